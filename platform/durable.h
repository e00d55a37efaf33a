// Files that must survive a crash of the program or of the machine: data
// made durable on the disk, and files replaced whole so that a reader never
// finds a half-written one. Called between blocks only: each call waits for
// the disk.
#pragma once
#include <cstdio>
#include <string>

// Writes what the stream holds and waits until the file's data is on the
// disk. 0, or -1 with errno set.
int durable_sync(FILE* f);
int durable_sync(int fd);

// Replaces the file path by one holding text, or, with keep_old, the old
// content followed by text (no old file counts as an empty one). The new
// content goes to path + ".tmp", is made durable and then renamed over
// path, so a kill or a power cut leaves either the old file or the new one,
// whole. Something other than a file (a terminal, a device) is written to
// in place. 0, or -1 with errno set (the temporary file removed).
//
// Test hook: IXMOD_TEST_SLOW_REPLACE=MS in the environment makes each
// replacement wait MS milliseconds halfway through writing the temporary
// file, so that a test can kill the program while a file is being written.
int durable_replace(const std::string& path, const std::string& text, bool keep_old = false);
