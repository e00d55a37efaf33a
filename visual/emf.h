// Vector-picture stimuli: an enhanced metafile is played into a bitmap in
// prepare(), sized as fractions of the screen height so that the picture
// keeps its proportions at every resolution; from then on the stimulus is
// a bmp. semf takes its metafile from a set loaded once at start-up.
#pragma once
#include "platform/datafile.h"
#include "visual/bmp.h"

// A new w x h bitmap (current colour depth, cleared to 0) with the metafile
// played into it; null on failure.
BITMAP* emf2bmp(enhmetafile* metafile, int w, int h);
// The same for a metafile file, opened for the call only.
BITMAP* emf2bmp(const char* file, int w, int h);

class emf : public bmp {
 public:
  // Attributes "w=%lf", "h=%lf" (fractions of the screen height) and those of bmp.
  emf(const char* line, int& err);

  int set(const char* attr) override;
  // Opens the file named by datei, if any, and renders the metafile.
  int prepare() override;
  int cleanup() override;
  ~emf() override;

  enhmetafile* metafile = nullptr;
  double w = 0;
  double h = 0;
};

stim* _emf(const char* line);

class semf : public emf {
 public:
  // Attribute "index=%d" and those of emf.
  semf(const char* line, int& err);

  int set(const char* attr) override;
  // Renders metafile index of the set; the set keeps the metafile.
  int prepare() override;
  int cleanup() override;
  ~semf() override;
  int masked() const override;

  int index = 0;
};

stim* _semf(const char* line);

// Reads the list named by option "mf" (default: program path, ".mf").
int semf_init();
// Loads the named metafiles, each from the resource datafile or else as a file.
int semf_init(int n, char** names);
// Metafile / palette i of the set; null with a logged message when there is none.
enhmetafile* semf_emf(int i);
RGB* semf_palette(int i);
// Frees the set; the module is back to "not initialized".
void semf_done();
