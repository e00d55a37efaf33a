#include "engine/stimfile.h"

#include <allegro.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "engine/stim.h"
#include "engine/reak.h"
#include "platform/datafile.h"
#include "platform/directory.h"
#include "screens/back.h"
#include "screens/info.h"
#include "screens/instrukt.h"
#include "screens/led.h"
#include "screens/null.h"
#include "screens/pause.h"
#include "screens/stift.h"
#include "sound/swav.h"
#include "visual/clock.h"
#include "visual/emf.h"
#include "visual/sbmp.h"
#include "visual/sfli.h"
#include "visual/shape.h"
#include "visual/vbmp.h"
#include "visual/wheel.h"
#include "visual/wort.h"
#include "services/argument.h"
#include "services/config.h"
#include "services/dict.h"
#include "services/files.h"
#include "services/log.h"
#include "services/textfile.h"

namespace {
std::vector<std::vector<std::string>> blocks_;
std::vector<std::vector<int>> line_numbers_;
std::string path_;
bool stimfile_registered_ = false;

std::vector<stimrec> records_;
stimrec default_{nullptr, nullptr};

Chapter* dict_ = nullptr;
DATAFILE* locale_[3] = {nullptr, nullptr, nullptr};
bool stimuli_registered_ = false;

const int kLine = 1000;  // 999 characters and the terminator

// A line of fewer than 6 characters, newline included, separates blocks.
bool is_content(const std::string& piece) { return piece.size() >= 6; }

BITMAP* locale_bitmap(int i) { return locale_[i] ? static_cast<BITMAP*>(locale_[i]->dat) : nullptr; }

bool file_exists(const char* path) { return access(path, F_OK) == 0; }
}  // namespace

int stimfile_read(FILE* f, const char* path) {
  std::vector<std::string> pieces;
  std::vector<int> numbers;  // the file's line each piece starts on
  char buf[kLine];
  for (int number = 1; text_gets(buf, sizeof buf, f);) {
    pieces.emplace_back(buf);
    numbers.push_back(number);
    if (!pieces.back().empty() && pieces.back().back() == '\n') ++number;
  }

  std::vector<std::vector<std::string>> blocks;
  std::vector<std::vector<int>> lines;
  size_t i = 0;
  while (i < pieces.size() && is_content(pieces[i])) {
    std::vector<std::string> block;
    std::vector<int> block_lines;
    while (i < pieces.size() && is_content(pieces[i])) {
      block_lines.push_back(numbers[i]);
      block.push_back(std::move(pieces[i++]));
    }
    blocks.push_back(std::move(block));
    lines.push_back(std::move(block_lines));
    ++i;  // the one separator between blocks
  }
  blocks_ = std::move(blocks);
  line_numbers_ = std::move(lines);
  path_ = path ? path : "";
  if (blocks_.empty()) alleg_warning("empty stimulus file", path);
  return 0;
}

int stimfile_init() {
  char def[201];
  argument_progname(def, sizeof def, "s");
  const char* name = argument_get("s", def, "Using %s as stimfile");

  char path[300];
  if (name[0] == '/') {
    snprintf(path, sizeof path, "%s", name);
  } else {
    const char* prog = argument_progname();
    const char* slash = strrchr(prog, '/');
    const int dir = slash ? static_cast<int>(slash - prog + 1) : 0;
    snprintf(path, sizeof path, "%.*s%s", dir, prog, name);
    if (!file_exists(path)) snprintf(path, sizeof path, "%s", name);
  }
  if (const char* mapped = files_get(path)) snprintf(path, sizeof path, "%s", mapped);

  FILE* f = file_open(path, "r");
  if (!f) {
    alleg_perror(path);
    return -1;
  }
  stimfile_read(f, path);
  fclose(f);
  if (!stimfile_registered_) {
    atexit(stimfile_done);
    stimfile_registered_ = true;
  }
  return 0;
}

int stimfile_anzahl() { return static_cast<int>(blocks_.size()); }
int stimfile_index(int block) { return static_cast<int>(blocks_[static_cast<size_t>(block)].size()); }
const char* stimfile_lines(int block, int line) {
  return blocks_[static_cast<size_t>(block)][static_cast<size_t>(line)].c_str();
}
int stimfile_line_number(int block, int line) {
  return line_numbers_[static_cast<size_t>(block)][static_cast<size_t>(line)];
}
const char* stimfile_path() { return path_.c_str(); }
void stimfile_done() {
  blocks_.clear();
  line_numbers_.clear();
}

FILE* stimfile_create() {
  char def[101];
  argument_progname(def, sizeof def, "s");
  const char* name = argument_get("s", def, "Using %s as stimfile");
  FILE* f = fopen(name, "w");
  if (!f) allegro_message("%s: %s", name, strerror(errno));
  return f;
}

void stim_register(const char* name, stim_factory factory) { records_.push_back({name, factory}); }
void stim_default(stim_factory factory) { default_ = {nullptr, factory}; }

void stim_registry_clear() {
  records_.clear();
  default_ = {nullptr, nullptr};
}

stim* _stimulus(const char* line) {
  if (records_.empty()) {
    errno = EINVAL;
    alleg_perror("nothing registered");
    return nullptr;
  }
  if (!line) line = "";
  char word[100];
  stim* s = nullptr;
  const char* blank = strpbrk(line, " \t");
  if (sscanf(line, "%99s", word) != 1 || !blank) {
    errno = EINVAL;
    alleg_perror(line);
  } else {
    const char* attributes = blank;
    while (*attributes == ' ' || *attributes == '\t') ++attributes;
    for (auto r = records_.rbegin(); r != records_.rend() && !s; ++r)
      if (r->name && strcmp(r->name, word) == 0) s = r->factory(attributes);
  }
  if (s) return s;
  if (default_.factory) return default_.factory(line);
  errno = EINVAL;
  alleg_perror(line);
  return nullptr;
}

int stimuli_init(const char* dict) {
  // In the order of the type table; types of later stages join it here.
  stim_register("bmp", _bmp);
  stim_register("emf", _emf);
  stim_register("sbmp", _sbmp);
  stim_register("vbmp", _vbmp);
  stim_register("semf", _semf);
  stim_register("word", _wort);
  stim_register("image", _sbmp);
  stim_register("wav", _wav);
  stim_register("swav", _swav);
  stim_register("sound", _swav);
  stim_register("back", _background);
  stim_register("instr", _instrukt);
  stim_register("info", _info);
  stim_register("null", _null);
  stim_register("pause", _pause);
  stim_register("fli", _fli);
  stim_register("sfli", _sfli);
  stim_register("stift", _stift);
  stim_register("led", _led);
  stim_register("film", _sfli);
  stim_register("reak", _reak);
  stim_register("shape", _shape);
  stim_register("stift", _stift);  // again: the later record answers first, both build a stift
  stim_register("clock", _clock);
  stim_register("cbmp", _cbmp);
  stim_register("cwav", _cwav);
  stim_register("cled", _cled);
  stim_register("cstift", _cstift);
  stim_register("wheel", _wheel);

  delete dict_;
  dict_ = new Chapter(dict);
  if (dict_->load() != 0) return -1;

  static const char* const kLocale[3] = {"noresponse-%s.bmp", "pleaserelease-%s.bmp", "interrupt-%s.bmp"};
  const char* locale = argument_get("locale");
  for (int i = 0; i < 3; ++i) {
    char name[201];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(name, sizeof name, kLocale[i], locale ? locale : "(null)");
#pragma GCC diagnostic pop
    if (locale_[i]) unload_datafile_object(locale_[i]);
    locale_[i] = datafile_object(name);
  }
  alleg_message("Running on Linux %.1lf", config_osversion());
  if (!stimuli_registered_) {
    atexit(stimuli_done);
    stimuli_registered_ = true;
  }
  return 0;
}

void stimuli_done() {
  stim_registry_clear();
  delete dict_;
  dict_ = nullptr;
  for (DATAFILE*& d : locale_) {
    if (d) unload_datafile_object(d);
    d = nullptr;
  }
}

const Chapter* stimuli_dict() { return dict_; }
BITMAP* stimuli_noresponse_image() { return locale_bitmap(0); }
BITMAP* stimuli_pleaserelease_image() { return locale_bitmap(1); }
BITMAP* stimuli_interrupt_image() { return locale_bitmap(2); }
