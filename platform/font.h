// Text output: a scalable-font layer on FreeType (alfont_*), the system font
// lookup, and the program's text functions with their three faces.
//
// Text is UTF-8; a byte that does not start a valid UTF-8 sequence stands for
// its Latin-1 character. Control characters (below 0x20, and 0x7f) take no
// space and draw nothing. y is the top of the text line; the baseline lies
// the face's ascender below it.
#pragma once

struct BITMAP;
struct ALFONT_FONT;

// 0 on success; calling it again while initialised is harmless.
int alfont_init();
// Releases the library; faces still loaded become empty (they draw nothing,
// measure 0) and must still be passed to alfont_destroy_font.
void alfont_exit();
// Null when the layer is not initialised or the file is no usable font.
// A new font has a size of 16 pixels.
ALFONT_FONT* alfont_load_font(const char* path);
void alfont_destroy_font(ALFONT_FONT* f);
// Size in pixels per em; values <= 0 are ignored. Rendered glyphs are kept
// per size, so switching back and forth does not rasterise again.
void alfont_set_font_size(ALFONT_FONT* f, int px);

// Plain: pixels of at least half coverage are set to color.
void alfont_textout(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color);
// Anti-aliased: coverage blends color over the target's pixels; 8-bit
// targets get the plain form.
void alfont_textout_aa(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color);
// Centred on x: drawn from x - length / 2.
void alfont_textout_centre(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color);
void alfont_textout_centre_aa(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color);
// Sum of the advances (with kerning) in pixels; 0 for null arguments.
int alfont_text_length(ALFONT_FONT* f, const char* text);
// Ascender to descender of the current size in pixels.
int alfont_text_height(ALFONT_FONT* f);

// Looks a face name up with fontconfig (aliases included: "Arial" finds a
// metric-compatible face where Arial is absent; "Name:bold" selects a
// style). -1 when a font of that name or one of its aliases was found:
// display_name = "family style", file_name = the file without directory,
// font_dir = its folder. 0 otherwise, with display_name and file_name empty
// and font_dir the folder of fontconfig's fallback choice (or a configured
// font directory, or empty). Each buffer must hold 1000 bytes; null buffers
// are skipped.
int GetFontFile(const char* face_name, char* display_name, char* file_name, char* font_dir);

// Faces: 1 = Arial (size 30), 2 = Courier bold (size 20); any other value,
// or a face that is not loaded, uses Allegro's current `font`. Colour is
// r, g, b at the target's colour depth. Null text draws nothing. Return 0.
int alleg_textout(BITMAP* bmp, const char* text, int face, int x, int y, int r, int g, int b);
int alleg_textout_centre(BITMAP* bmp, const char* text, int face, int x, int y, int r, int g, int b);
int alleg_text_length(const char* text, int face);
int alleg_text_height(int face);

// Initialises the layer and loads the two faces, logging a warning for each
// that fails. -1 (after the warning "Error while initializing alfont") when
// the layer cannot start; the caller then falls back to text mode. Calling
// it again reloads both faces.
int alleg_fonts_init();
// Destroys both faces and releases the layer; safe at any time.
void alleg_fonts_exit();
// The loaded handle of face 1 or 2, else null.
ALFONT_FONT* alleg_font_handle(int face);
// The file face 1 or 2 was loaded from; null when it is not loaded.
const char* alleg_font_file(int face);
