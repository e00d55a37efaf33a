// Plays an enhanced metafile into a raster: the metafile is translated to
// SVG and the SVG drawn with anti-aliasing. The picture's frame fills the
// target rectangle, stretched in each direction on its own, the way a
// metafile played into a rectangle fills it.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct BITMAP;
struct enhmetafile;

// The metafile as an SVG document whose width and height are its frame in
// device pixels. -1 (errno EINVAL) when the bytes are not a metafile.
int metafile_svg(const enhmetafile* mf, std::string& svg);

// The SVG stretched onto w x h pixels, row by row, each a premultiplied
// 0xAARRGGBB value (0 where nothing is drawn). -1 (errno EINVAL) when the
// document cannot be read or has no size.
int metafile_raster(const std::string& svg, int w, int h, std::vector<uint32_t>& argb);

// Draws the metafile over the whole of target, in the target's colour
// depth: every covered pixel gets the picture's colour as if drawn over
// black, uncovered pixels keep their value. 0, or -1 with errno set.
int metafile_play(const enhmetafile* mf, BITMAP* target);
