// The test's own stimulus types: the default factory for lines whose first
// word names no registered type, and "prep" for preparatory tones.
#pragma once

class stim;

// Until the crossmodal stimuli exist, both build a plain trial that parses
// the base attributes of its line.
stim* _ixmod(const char* line);
stim* _ixmod_prep(const char* attributes);

// The start-up chain and the block loop; the process's exit status.
int ixmod_main(int argc, char** argv);
