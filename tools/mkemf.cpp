// Writes a small enhanced metafile for trying out the metafile stimuli:
// a frame of 200 x 100 mm, its left half a filled red rectangle, in its
// right half a blue ellipse touching the middle of all four sides of that
// half. Everything outside the figures is left undrawn. With -margin the two
// figures are drawn at half the size round the frame's centre, so that the
// drawing touches no side of the frame.
//
//   ixmod_mkemf [-margin] out.emf
#include <libEMF/emf.h>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
  const bool margin = argc == 3 && strcmp(argv[1], "-margin") == 0;
  if (argc != 2 && !margin) {
    fprintf(stderr, "usage: %s [-margin] out.emf\n", argv[0]);
    return 2;
  }
  const char* name = argv[argc - 1];
  FILE* out = fopen(name, "wb");
  if (!out) {
    perror(name);
    return 1;
  }
  const RECT frame = {0, 0, 20000, 10000};  // in 0.01 mm
  HDC dc = CreateEnhMetaFileWithFILEA(0, out, &frame, "ixmod test\0red rectangle, blue ellipse\0");
  if (!dc) {
    fprintf(stderr, "%s: cannot create the metafile\n", name);
    fclose(out);
    return 1;
  }
  // Logical units of 0.1 mm; the frame is 2000 x 1000 of them.
  SetMapMode(dc, MM_ANISOTROPIC);
  SetWindowExtEx(dc, 2000, 1000, nullptr);
  const int px_per_100mm_x = GetDeviceCaps(dc, HORZRES) * 100 / GetDeviceCaps(dc, HORZSIZE);
  const int px_per_100mm_y = GetDeviceCaps(dc, VERTRES) * 100 / GetDeviceCaps(dc, VERTSIZE);
  SetViewportExtEx(dc, 2 * px_per_100mm_x, px_per_100mm_y, nullptr);

  SelectObject(dc, GetStockObject(NULL_PEN));
  HBRUSH red = CreateSolidBrush(RGB(255, 0, 0));
  HGDIOBJ old = SelectObject(dc, red);
  // Figures of w x h from (x, y): half the size round the centre with a margin.
  const int x = margin ? 500 : 0, y = margin ? 250 : 0, w = margin ? 500 : 1000, h = margin ? 500 : 1000;
  Rectangle(dc, x, y, x + w + 1, y + h + 1);  // the right and bottom edges are excluded
  HBRUSH blue = CreateSolidBrush(RGB(0, 0, 255));
  SelectObject(dc, blue);
  Ellipse(dc, x + w, y, x + 2 * w + 1, y + h + 1);
  SelectObject(dc, old);
  DeleteObject(red);
  DeleteObject(blue);

  HENHMETAFILE mf = CloseEnhMetaFileWithFILE(dc);
  DeleteEnhMetaFile(mf);
  if (fclose(out) != 0) {
    perror(name);
    return 1;
  }
  return 0;
}
