// Directories the program writes into, and whether a file is there.
#pragma once

// Whether path names something that is not a directory. The graphics
// library's exists() matches the name as a wildcard pattern, which takes
// exponential time on a name of many '*'.
bool file_there(const char* path);

// Creates dir (one level: its parent must exist) unless it is a directory
// already, then checks that files can be made in it. 0, or -1 with errno set
// (ENOTDIR when dir names something else).
int directory_ensure(const char* dir);
