#include "platform/metafile.h"

#include <allegro.h>
#include <cairo.h>
#include <emf2svg.h>
#include <librsvg/rsvg.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdlib>

#include "platform/datafile.h"

namespace {
// cairo refuses larger images.
const int kMaxSide = 32767;

// The header record: type 1, then the drawn bounds in device pixels, the
// frame in 0.01 mm, ..., the reference device in pixels and in mm.
const size_t kBounds = 8, kFrame = 24, kDevice = 72, kMillimetres = 80, kHeaderSize = 88;

int32_t get32(const std::vector<unsigned char>& b, size_t at) {
  return static_cast<int32_t>(static_cast<uint32_t>(b[at]) | static_cast<uint32_t>(b[at + 1]) << 8 |
                              static_cast<uint32_t>(b[at + 2]) << 16 | static_cast<uint32_t>(b[at + 3]) << 24);
}

void put32(std::vector<unsigned char>& b, size_t at, long v) {
  const uint32_t u = static_cast<uint32_t>(static_cast<int32_t>(v));
  for (int i = 0; i < 4; ++i) b[at + static_cast<size_t>(i)] = static_cast<unsigned char>(u >> (8 * i));
}

// A metafile played into a rectangle maps its frame onto it; the converter
// sizes and places its picture by the drawn bounds, which may lie inside the
// frame or be unset. The bounds become the frame in reference-device pixels.
// -1 when the header gives no frame or device to go by.
int frame_as_bounds(std::vector<unsigned char>& b) {
  if (b.size() < kHeaderSize || get32(b, 0) != 1) return -1;
  const double px_x = get32(b, kDevice), px_y = get32(b, kDevice + 4);
  const double mm_x = get32(b, kMillimetres), mm_y = get32(b, kMillimetres + 4);
  if (!(px_x > 0 && px_y > 0 && mm_x > 0 && mm_y > 0)) return -1;
  long side[4];
  for (size_t i = 0; i < 4; ++i) {
    const double scale = (i % 2 == 0 ? px_x / mm_x : px_y / mm_y) / 100.0;
    const double v = std::round(get32(b, kFrame + 4 * i) * scale);
    if (!(std::fabs(v) < 1e9)) return -1;
    side[i] = static_cast<long>(v);
  }
  if (side[2] - side[0] < 1 || side[3] - side[1] < 1) return -1;
  for (size_t i = 0; i < 4; ++i) put32(b, kBounds + 4 * i, side[i]);
  return 0;
}
}  // namespace

int metafile_svg(const enhmetafile* mf, std::string& svg) {
  svg.clear();
  if (!mf || mf->size <= 0 || !mf->bits) {
    errno = EINVAL;
    return -1;
  }
  std::vector<unsigned char> bytes(mf->bits, mf->bits + mf->size);
  if (frame_as_bounds(bytes) != 0) {
    errno = EINVAL;
    return -1;
  }
  generatorOptions options{};
  options.nameSpace = nullptr;
  options.verbose = false;
  options.emfplus = false;  // dual metafiles: the plain records, as GDI plays them
  options.svgDelimiter = true;
  options.imgWidth = 0;  // 0 x 0: the frame's own size
  options.imgHeight = 0;
  char* out = nullptr;
  size_t length = 0;
  const int ok = emf2svg(reinterpret_cast<char*>(bytes.data()), bytes.size(), &out, &length, &options);
  if (ok && out) svg.assign(out, length);
  free(out);
  if (!ok || svg.empty()) {
    svg.clear();
    errno = EINVAL;
    return -1;
  }
  return 0;
}

int metafile_raster(const std::string& svg, int w, int h, std::vector<uint32_t>& argb) {
  argb.clear();
  if (w < 1 || h < 1 || w > kMaxSide || h > kMaxSide) {
    errno = EINVAL;
    return -1;
  }
  GError* error = nullptr;
  RsvgHandle* doc =
      rsvg_handle_new_from_data(reinterpret_cast<const guint8*>(svg.data()), static_cast<gsize>(svg.size()), &error);
  if (error) g_error_free(error);
  double sw = 0, sh = 0;
  if (!doc || !rsvg_handle_get_intrinsic_size_in_pixels(doc, &sw, &sh) || !(sw > 0) || !(sh > 0)) {
    if (doc) g_object_unref(doc);
    errno = EINVAL;
    return -1;
  }

  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
  cairo_t* cr = cairo_create(surface);
  cairo_scale(cr, w / sw, h / sh);
  const RsvgRectangle frame{0, 0, sw, sh};
  error = nullptr;
  const bool drawn = rsvg_handle_render_document(doc, cr, &frame, &error);
  if (error) g_error_free(error);
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  g_object_unref(doc);

  const bool ok = drawn && cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS;
  if (ok) {
    const unsigned char* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    argb.resize(static_cast<size_t>(w) * static_cast<size_t>(h));
    for (int y = 0; y < h; ++y) {
      const uint32_t* row = reinterpret_cast<const uint32_t*>(data + static_cast<ptrdiff_t>(y) * stride);
      std::copy(row, row + w, argb.begin() + static_cast<ptrdiff_t>(y) * w);
    }
  }
  cairo_surface_destroy(surface);
  if (!ok) {
    errno = EINVAL;
    return -1;
  }
  return 0;
}

int metafile_play(const enhmetafile* mf, BITMAP* target) {
  if (!target) {
    errno = EINVAL;
    return -1;
  }
  std::string svg;
  std::vector<uint32_t> argb;
  if (metafile_svg(mf, svg) != 0 || metafile_raster(svg, target->w, target->h, argb) != 0) return -1;
  const int depth = bitmap_color_depth(target);
  size_t i = 0;
  for (int y = 0; y < target->h; ++y) {
    for (int x = 0; x < target->w; ++x, ++i) {
      const uint32_t p = argb[i];
      if ((p >> 24) == 0) continue;
      // Premultiplied colour channels are the colour over black.
      putpixel(target, x, y, makecol_depth(depth, (p >> 16) & 0xff, (p >> 8) & 0xff, p & 0xff));
    }
  }
  return 0;
}
