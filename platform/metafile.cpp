#include "platform/metafile.h"

#include <allegro.h>
#include <cairo.h>
#include <emf2svg.h>
#include <librsvg/rsvg.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "platform/datafile.h"

namespace {
// cairo refuses larger images.
const int kMaxSide = 32767;
}  // namespace

int metafile_svg(const enhmetafile* mf, std::string& svg) {
  svg.clear();
  if (!mf || mf->size <= 0 || !mf->bits) {
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
  // The converter only reads the bytes; its interface is not const-correct.
  const int ok = emf2svg(reinterpret_cast<char*>(mf->bits), static_cast<size_t>(mf->size), &out, &length, &options);
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
