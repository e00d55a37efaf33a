// Checks the datafile appended to a built program: every object the program
// looks up is there under its exact name and type, with plausible contents,
// and nothing else is.
//
// usage: ixmod_rescheck PROGRAM
//
// Allegro reads appended data ("#") only from the running executable. So the
// check copies itself, appends the block that PROGRAM carries (data and
// trailer, byte for byte) and runs the copy, which looks every object up
// through "#" as the program does.
#define ALLEGRO_NO_MAGIC_MAIN
#include <allegro.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kImgf = DAT_ID('I', 'M', 'G', 'F');

int failures = 0;

void check(bool ok, const char* name, const char* what) {
  if (!ok) {
    fprintf(stderr, "%s: %s\n", name, what);
    ++failures;
  }
}

bool white(BITMAP* b, int x, int y) { return getpixel(b, x, y) == makecol24(255, 255, 255); }

// The arrow's head is wider than its shaft: the up arrow is white left of
// the shaft near the top, the down arrow near the bottom.
void check_picture(const char* name, BITMAP* b, int arrow) {
  check(bitmap_color_depth(b) == 24 && b->w <= 1024 && b->h <= 240, name, "not a true-colour picture that fits");
  if (arrow) check(b->w == 160 && b->h == 240 && white(b, 30, arrow > 0 ? 95 : 144) && !white(b, 30, arrow > 0 ? 144 : 95),
                   name, "not the arrow");
}

// Sign changes give the frequency; silence has none.
void check_sample(const char* name, const SAMPLE* s, int hz, int length_ms) {
  check(s->bits == 16 && !s->stereo && s->freq == 44100 && static_cast<int>(s->len) == 44100 * length_ms / 1000, name,
        "not 16-bit mono at 44100 Hz of the expected length");
  const uint16_t* pcm = static_cast<const uint16_t*>(s->data);  // offset binary
  int changes = 0;
  for (unsigned long i = 1; i < s->len; ++i) changes += (pcm[i] >= 0x8000) != (pcm[i - 1] >= 0x8000);
  check(std::abs(changes * 1000 / (2 * length_ms) - hz) <= hz / 50, name, "wrong frequency");
}

// The umlauts sit at their Latin-1 code points and at the positions of the
// German ASCII variant, and both draw the same glyph.
void check_font(const char* name, FONT* f) {
  check(is_mono_font(f) && text_height(f) >= 16 && text_height(f) <= 32, name, "not a monochrome font of text size");
  const char* pairs[][2] = {{"{", "\xc3\xa4"}, {"|", "\xc3\xb6"}, {"}", "\xc3\xbc"}, {"~", "\xc3\x9f"},
                            {"[", "\xc3\x84"}, {"\\", "\xc3\x96"}, {"]", "\xc3\x9c"}};
  BITMAP* a = create_bitmap_ex(8, 40, 40);
  BITMAP* b = create_bitmap_ex(8, 40, 40);
  for (auto& p : pairs) {
    clear(a);
    clear(b);
    textout_ex(a, f, p[0], 0, 0, 1, 0);
    textout_ex(b, f, p[1], 0, 0, 1, 0);
    int same = 1, lit = 0;
    for (int y = 0; y < 40; ++y)
      for (int x = 0; x < 40; ++x) {
        same &= getpixel(a, x, y) == getpixel(b, x, y);
        lit += getpixel(a, x, y);
      }
    check(same && lit > 10, name, (std::string("no umlaut at ") + p[0]).c_str());
  }
  destroy_bitmap(a);
  destroy_bitmap(b);
}

struct Expected {
  const char* name;
  int type;
  const char* list;  // payload of a list object
  int arrow;         // 1 up, -1 down
};

const Expected kObjects[] = {
    {"ARIAL_PCX", DAT_FONT, nullptr, 0},
    {"ixmod.img", kImgf, "2\r\npfeil-ob.pcx\r\npfeil-un.pcx\r\n", 0},
    {"ixmod.snd", kImgf, "3\r\nixmod-hoch.wav\r\nixmod-tief.wav\r\nstille.wav\r\n", 0},
    {"ixmod.mf", kImgf, "0\r\n", 0},
    {"pfeil-ob.pcx.pal", DAT_PALETTE, nullptr, 0},
    {"pfeil-ob.pcx.bmp", DAT_BITMAP, nullptr, 1},
    {"pfeil-un.pcx.pal", DAT_PALETTE, nullptr, 0},
    {"pfeil-un.pcx.bmp", DAT_BITMAP, nullptr, -1},
    {"ixmod-hoch.wav", DAT_SAMPLE, nullptr, 0},
    {"ixmod-tief.wav", DAT_SAMPLE, nullptr, 0},
    {"stille.wav", DAT_SAMPLE, nullptr, 0},
    {"noresponse-de.bmp", DAT_BITMAP, nullptr, 0},
    {"pleaserelease-de.bmp", DAT_BITMAP, nullptr, 0},
    {"interrupt-de.bmp", DAT_BITMAP, nullptr, 0},
    {"noresponse-en.bmp", DAT_BITMAP, nullptr, 0},
    {"pleaserelease-en.bmp", DAT_BITMAP, nullptr, 0},
    {"interrupt-en.bmp", DAT_BITMAP, nullptr, 0},
};

void check_contents(const Expected& e, const DATAFILE* d) {
  const std::string n = e.name;
  if (e.list) check(d->size == static_cast<long>(strlen(e.list)) && memcmp(d->dat, e.list, d->size) == 0, e.name, "wrong list");
  else if (d->type == DAT_FONT) check_font(e.name, static_cast<FONT*>(d->dat));
  else if (d->type == DAT_BITMAP) check_picture(e.name, static_cast<BITMAP*>(d->dat), e.arrow);
  else if (n == "ixmod-hoch.wav") check_sample(e.name, static_cast<SAMPLE*>(d->dat), 1000, 200);
  else if (n == "ixmod-tief.wav") check_sample(e.name, static_cast<SAMPLE*>(d->dat), 500, 200);
  else if (n == "stille.wav") check_sample(e.name, static_cast<SAMPLE*>(d->dat), 0, 1000);
}

// The system driver without hardware does not know the executable that "#"
// stands for; the Unix driver would read it from /proc as well.
void own_executable(char* output, int size) {
  const ssize_t n = readlink("/proc/self/exe", output, size - 1);
  output[n > 0 ? n : 0] = '\0';
}

int check_self() {
  system_none.get_executable_name = own_executable;
  if (install_allegro(SYSTEM_NONE, &errno, atexit) != 0) return 2;
  set_uformat(U_UTF8);
  set_color_conversion(COLORCONV_NONE);

  std::set<std::string> expected;
  for (const Expected& e : kObjects) {
    expected.insert(e.name);
    DATAFILE* d = load_datafile_object("#", e.name);
    check(d != nullptr, e.name, "not found in the appended datafile");
    if (!d) continue;
    check(d->type == e.type, e.name, "wrong object type");
    if (d->type == e.type) check_contents(e, d);
    unload_datafile_object(d);
  }
  DATAFILE* all = load_datafile("#");
  check(all != nullptr, "#", "no appended datafile");
  for (int i = 0; all && all[i].type != DAT_END; ++i) {
    const char* name = get_datafile_property(&all[i], DAT_NAME);
    check(expected.count(name) == 1, name, "is not looked up by the program");
  }
  if (all) unload_datafile(all);
  allegro_exit();
  if (failures) {
    fprintf(stderr, "%d problem(s) in the appended datafile\n", failures);
    return 1;
  }
  printf("all %zu resource objects present\n", expected.size());
  return 0;
}

std::vector<char> read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

uint32_t big_endian(const char* p) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v = (v << 8) | static_cast<unsigned char>(p[i]);
  return v;
}

// The appended block ends in "slh+" and its own size, trailer included.
int check_program(const char* path) {
  const std::vector<char> prog = read_file(path);
  if (prog.size() < 8 || big_endian(&prog[prog.size() - 8]) != DAT_ID('s', 'l', 'h', '+') ||
      big_endian(&prog[prog.size() - 4]) > prog.size()) {
    fprintf(stderr, "%s: carries no appended datafile\n", path);
    return 1;
  }
  const size_t block = big_endian(&prog[prog.size() - 4]);
  std::vector<char> self = read_file("/proc/self/exe");
  self.insert(self.end(), prog.end() - block, prog.end());

  const std::string copy = std::string(path) + ".rescheck." + std::to_string(getpid());
  {
    std::ofstream out(copy, std::ios::binary | std::ios::trunc);
    out.write(self.data(), static_cast<std::streamsize>(self.size()));
    if (!out.flush()) {
      fprintf(stderr, "cannot write %s\n", copy.c_str());
      return 2;
    }
  }
  chmod(copy.c_str(), 0700);
  int status = -1;
  const pid_t pid = fork();
  if (pid == 0) {
    execl(copy.c_str(), copy.c_str(), "--self", static_cast<char*>(nullptr));
    _exit(127);
  }
  if (pid > 0) waitpid(pid, &status, 0);
  unlink(copy.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s PROGRAM\n", argv[0]);
    return 2;
  }
  return strcmp(argv[1], "--self") == 0 ? check_self() : check_program(argv[1]);
}
