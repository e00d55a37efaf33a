// Writes a small film for trying out and testing film stimuli: COUNT frames
// of SIZE x SIZE pixels as 8-bit PCX pictures, a white bar turning once
// round the centre over the film on a background whose colour changes from
// frame to frame (frame k: entry 16 + k of the palette, hue k / COUNT), and
// the description file film.txt that names them.
//
//   mkfilm DIR COUNT RATE [SIZE]
#include <allegro.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  if (argc < 4) {
    fprintf(stderr, "usage: %s DIR COUNT RATE [SIZE]\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  const int count = atoi(argv[2]), rate = atoi(argv[3]), size = argc > 4 ? atoi(argv[4]) : 64;
  if (count < 1 || count > 200 || rate < 1 || size < 8 || size > 2000) {
    fprintf(stderr, "mkfilm: COUNT 1..200, RATE >= 1, SIZE 8..2000\n");
    return 2;
  }
  if (install_allegro(SYSTEM_NONE, &errno, atexit) != 0) return 1;
  set_color_depth(8);
  PALETTE pal;
  for (int i = 0; i < PAL_SIZE; ++i) pal[i] = RGB{0, 0, 0, 0};
  pal[15] = RGB{63, 63, 63, 0};
  for (int k = 0; k < count; ++k) {
    int r, g, b;
    hsv_to_rgb(360.0f * k / count, 0.8f, 0.6f, &r, &g, &b);
    pal[16 + k] = RGB{static_cast<unsigned char>(r / 4), static_cast<unsigned char>(g / 4),
                      static_cast<unsigned char>(b / 4), 0};
  }
  std::string list = std::to_string(count) + " " + std::to_string(rate) + " 0 0\n";
  BITMAP* frame = create_bitmap(size, size);
  for (int k = 0; k < count; ++k) {
    clear_to_color(frame, 16 + k);
    const double a = 2 * M_PI * k / count;
    const int c = size / 2, r = size * 2 / 5;
    for (int w = -1; w <= 1; ++w)
      line(frame, c + w, c, c + w + static_cast<int>(r * std::sin(a)), c - static_cast<int>(r * std::cos(a)), 15);
    char name[32];
    snprintf(name, sizeof name, "frame%03d.pcx", k);
    if (save_pcx((dir + "/" + name).c_str(), frame, pal) != 0) {
      fprintf(stderr, "mkfilm: cannot write %s/%s\n", dir.c_str(), name);
      return 1;
    }
    list += std::string(name) + "\n";
  }
  destroy_bitmap(frame);
  FILE* f = fopen((dir + "/film.txt").c_str(), "w");
  if (!f || fputs(list.c_str(), f) < 0 || fclose(f) != 0) {
    fprintf(stderr, "mkfilm: cannot write %s/film.txt\n", dir.c_str());
    return 1;
  }
  return 0;
}
