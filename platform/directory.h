// Directories the program writes into.
#pragma once

// Creates dir (one level: its parent must exist) unless it is a directory
// already, then checks that files can be made in it. 0, or -1 with errno set
// (ENOTDIR when dir names something else).
int directory_ensure(const char* dir);
