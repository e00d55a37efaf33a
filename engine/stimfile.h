// The stimulus file, read into blocks at start-up, and the registry that
// turns one line into one stimulus object by its first word.
//
// File format: one stimulus per line; blocks are separated by one short line
// (under 5 characters before the newline, e.g. an empty line or "---"). A
// short line where a block should begin ends the file. Lines are read in
// pieces of at most 999 characters; each piece counts as a line.
#pragma once
#include <cstdio>

class stim;
class Chapter;
struct BITMAP;

typedef stim* (*stim_factory)(const char* attributes);

struct stimrec {
  const char* name;  // borrowed; null for the default record
  stim_factory factory;
};

int stimfile_init();
int stimfile_anzahl();
int stimfile_index(int block);
const char* stimfile_lines(int block, int line);
// The line of the file (from 1) that a block's line starts on.
int stimfile_line_number(int block, int line);
// The file the blocks were read from.
const char* stimfile_path();
void stimfile_done();
FILE* stimfile_create();
// Reads blocks from an open stream (the work of stimfile_init); for tests.
int stimfile_read(FILE* f, const char* path);

void stim_register(const char* name, stim_factory factory);
void stim_default(stim_factory factory);
// Builds one stimulus from one line; null on failure.
stim* _stimulus(const char* line);

int stimuli_init(const char* dict);
void stimuli_done();
// The dictionary and locale pictures loaded by stimuli_init (may be null).
const Chapter* stimuli_dict();
BITMAP* stimuli_noresponse_image();
BITMAP* stimuli_pleaserelease_image();
BITMAP* stimuli_interrupt_image();
// Empties the registry (tests).
void stim_registry_clear();
