// The file list: logical file names mapped to real paths, so that an
// installation can redirect any file the program opens.
#pragma once

// Reads the list named by option "lst" (default: program path, ".lst").
int files_init();
// Installs a list; ownership of the arrays and their strings passes.
int files_init(int n, char** names, char** paths);
// The path for an exactly equal name; null (with a warning) otherwise.
const char* files_get(const char* name);
int files_info();
void files_done();
