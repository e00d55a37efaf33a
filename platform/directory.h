// Directories the program writes into, whether a file is there, and where
// the program itself is.
#pragma once
#include <cstdio>

// fopen for reading a file: a directory, which fopen opens on Linux and
// which then reads as an error, is refused with errno EISDIR.
FILE* file_open(const char* path, const char* mode);

// Whether path names something that is not a directory. The graphics
// library's exists() matches the name as a wildcard pattern, which takes
// exponential time on a name of many '*'.
bool file_there(const char* path);

// Creates dir (one level: its parent must exist) unless it is a directory
// already, then checks that files can be made in it. 0, or -1 with errno set
// (ENOTDIR when dir names something else).
int directory_ensure(const char* dir);

// The program's own file as the system started it (/proc/self/exe), into
// buf: its default files and the files beside it are found from there,
// also when it was started through PATH by its bare name. argv0 when the
// system does not say.
void program_path(char* buf, int size, const char* argv0);
