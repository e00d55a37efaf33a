#include "driver/usage.h"

#include <cstring>

#ifndef IXMOD_VERSION
#define IXMOD_VERSION "unknown"
#endif

const char* ixmod_version() { return IXMOD_VERSION; }

void usage_print(FILE* f, const char* prog) {
  fprintf(f,
          "usage: %s -s=STIMFILE -lst=LISTFILE -dict=DICTIONARY [options]\n"
          "       %s -check [-s=STIMFILE -lst=LISTFILE -dict=DICTIONARY] [-cfg=CONFIG] [-log=LOG]\n"
          "\n"
          "Runs the blocks of a stimulus file full-screen. Options are one word each:\n"
          "a dash, the key, '=' (or '#') and the value.\n"
          "\n"
          "  -s=FILE        stimulus file (default: the program's path with .s)\n"
          "  -lst=FILE      file list: a count, then name and path lines (required;\n"
          "                 an empty one holds the line 0)\n"
          "  -dict=FILE     text dictionary of the pause dialogue (required)\n"
          "  -cfg=FILE      configuration overrides (default: the program's path with .cfg)\n"
          "  -log=FILE      log (default: the program's path with .log)\n"
          "  -locale=WORD   locale of the pause dialogue's pictures (de, en)\n"
          "  -res=FILE      results lines, one per saved trial; -r: do not name it in the log\n"
          "  -timing=FILE   timing trace, one line per scheduled action\n"
          "  -report=DIR    session report (tab-separated table and HTML page)\n"
          "  -tr=FILE       trigger value file\n"
          "  -img= -snd= -vol= -mf= -fl=   preloaded picture, sound, volume, metafile\n"
          "                 and film lists\n"
          "  -KEY=VALUE     any configuration key, e.g. -lpt1-device=/dev/parport0\n"
          "\n"
          "  -check         start display and sound, print what this machine offers and\n"
          "                 whether it is fit for the test, run nothing; with -s=FILE also\n"
          "                 build every block of FILE and list the lines that fail.\n"
          "                 Exit status 0 when fit, 1 when not.\n"
          "  -help          this text\n"
          "  -version       the version\n"
          "\n"
          "Exit status of a session: 0 when every block ran, 255 otherwise.\n",
          prog, prog);
}

int usage_wanted(int argc, const char* const* argv) {
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (!a) continue;
    if (strcmp(a, "-help") == 0 || strcmp(a, "--help") == 0 || strcmp(a, "-h") == 0) return 1;
    if (strcmp(a, "-version") == 0 || strcmp(a, "--version") == 0) return 2;
  }
  return 0;
}
