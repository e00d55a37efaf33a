// The preloaded image set: every picture of the image list decoded once at
// start-up, from the appended datafile or else from files, with one common
// palette; and the stimulus that shows picture number index of it.
//
// Image list: a count, then that many picture names, separated by white
// space; or an "IMGF" list object of the same name in the datafile.
#pragma once
#include "visual/bmp.h"

// Reads the list named by option "img" (default: program path, ".img").
int sbmp_init();
int sbmp_init(int n, char** names);
// Picture i; null with a logged message when there is none.
BITMAP* sbmp_bitmap(int i);
// The set's palette; null with "sbmp not initialized" before a set was loaded.
RGB* sbmp_palette();
// The shared background sized to the largest picture; -1 when one is missing.
int sbmp_setonebg();
// Frees the set; the module is back to "not initialized".
void sbmp_done();
// Frees pictures 0..count-1 of a set (one taken from a datafile object with
// that object) and both arrays; leaves them null and count -1.
void sbmp_free(int& count, BITMAP**& bitmaps, DATAFILE**& objects);

// A set's names from the list named by option key: the list object named
// after the option's file name in the resource datafile, else the list
// file (msg is logged when its default name is used). Ends in init(n, names)
// and returns its result, or -1. The list file stays open on success.
int sbmp_list(const char* key, const char* msg, int (*init)(int, char**));

class sbmp : public bmp {
 public:
  sbmp(unsigned nummer, int index, const char* uv, unsigned trigger, int kritisch, long t0, long t1, double relx,
       double rely);
  // Attribute "index=%d" and those of bmp.
  sbmp(const char* line, int& err);

  int set(const char* attr) override;
  // Borrows picture index of the set and its palette; no file access.
  int prepare() override;
  int cleanup() override;
  int preshow() override;
  ~sbmp() override;
  int masked() const override;
  int synced() const override;

  int index = 0;
};

stim* _sbmp(const char* line);
