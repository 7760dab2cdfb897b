// DTexFont: a font whose glyphs are quads cut from one picture, drawn with OpenGL in any colour,
// size, slant and weight. The glyph table and the picture come from a glyph file that
// tools/fontbake makes from a scalable font.
//
// The font owns its glyph table and its picture. The picture goes to OpenGL the first time the
// font paints, into the context current then (the contexts of an application share textures); a
// font without a picture paints nothing. A glyph file comes from outside: every count, range and
// number in it is checked before anything is allocated or kept, and a damaged file is refused
// with a report, leaving the font as it was.
//
// The glyph file, little-endian, fields one after the other:
//
//   offset  size  field
//   0       4     magic "TFNT"
//   4       4     version, 1
//   8       2     n, the length of the picture's file name, 1..255
//   10      n     the picture's file name: a Targa or SGI RGB file in the glyph file's folder, a
//                 plain name without a folder, '/' or '\'
//   +0      4     firstChar, signed; codes below it are skipped, 0..65535
//   +4      4     lastChar, signed; codes above it are skipped, firstChar..65535
//   +8      4     lineHeight: pixels from the bottom of a glyph cell to its top, 1..4096
//   +12     4     baseline: pixels from the bottom of a cell up to the baseline, 0..lineHeight
//   +16     4     ranges, 1..5, then per range three signed words: first code, last code and the
//                 glyph index of the first code; each range lies within firstChar..lastChar,
//                 starts behind the one before, and its glyphs lie inside the glyph count
//   +0      4     glyph count, 1..65536, then per glyph 32 bytes, and nothing behind the last:
//                 pixel width, pixel height (signed 32-bit, 0..4096), advance and left bearing
//                 (float, finite, within +-4096), texture coordinates s0, t0, s1, t1 (float,
//                 0..1; t counts from the bottom row of the picture)
#pragma once

#include "images/qdrawable.h"

#include <cstdint>

namespace tarvik {

class QBitMap;
class qstring;

// A glyph record: 11 words, of which words 3 to 10 are in use.
struct DTexGlyph {
    int32_t reserved[3];
    int32_t wid, hgt;      // pixel size of the glyph's quad
    float advance;         // from this pen position to the next
    float bearing;         // from the pen to the quad's left edge
    float s0, t0, s1, t1;  // the quad's corners in the picture: bottom left, top right
};

enum DTexFontFlags : uint32_t {
    DTF_ADDITIVE = 1, // the source colour is added, not weighed by its alpha
    DTF_BOLD = 2,     // each glyph twice, the second boldOffset to the right
};

enum { DTEXFONT_MAX_RANGES = 5 };

struct DTexFontTexture;
struct DTexFontFile;

class DTexFont {
public:
    DTexFont();
    ~DTexFont(); // frees the texture only when a context is current; else it goes with the contexts
    DTexFont(const DTexFont&) = delete;
    DTexFont& operator=(const DTexFont&) = delete;

    // Reads a glyph file and the picture beside it. False, with a report, on a missing or damaged
    // file or picture; the font then stays as it was.
    bool Load(const char* fileName);
    // The glyph table from a file already in memory, 'name' for the reports; 'picture' (may be
    // null) is adopted on success and freed on failure.
    bool LoadMemory(const char* name, const uint8_t* data, long size, QBitMap* picture);
    // Writes the glyph table, naming 'pictureName' as the picture beside it (the caller writes
    // that). False, with a report, when the file can't be written or the table breaks a rule above.
    bool Write(const char* fileName, const char* pictureName) const;

    // Draws at x, y in OpenGL's direction, y the bottom of the glyph cells, into the current
    // context; the pen position behind the text, truncated. x itself, with nothing drawn, without
    // a picture, a current context or text. Leaves blending and texturing off.
    int Paint(const char* text, int x, int y, int len);

    const DTexGlyph* FindGlyph(int code) const; // null for a code without a glyph
    float GetCharWidth(int code) const;         // advance * scaleX + spacing; 0 without a glyph
    float GetWidth(const char* text, int len) const; // len -1: up to the zero
    float GetWidth(const uint16_t* text, int len) const;
    float GetHeight() const; // glyph 0's pixel height * scaleY

    // A table made in code: 'count' glyphs copied, one range over all of them from 'first'.
    void SetGlyphs(const DTexGlyph* records, int count, int first);
    bool SetRanges(int count, const int32_t* first, const int32_t* last, const int32_t* index); // 1..5
    void SetPicture(QBitMap* picture); // adopted; null removes it
    const QBitMap* GetPicture() const;
    int GetGlyphCount() const { return glyphCount; }
    const DTexGlyph* GetGlyphs() const { return glyphs; }

    int32_t firstChar, lastChar;
    int32_t rangeFirst[DTEXFONT_MAX_RANGES];
    int32_t rangeLast[DTEXFONT_MAX_RANGES];
    int32_t rangeIndex[DTEXFONT_MAX_RANGES];
    int32_t ranges;
    int32_t lineHeight, baseline; // as baked; painting uses the glyph records
    float scaleX, scaleY;
    float shear;      // the top of a glyph moves right by this
    float spacing;    // added to each advance
    float boldOffset;
    QColor color;     // packed -1: the glyphs' own colours
    uint32_t flags;   // DTexFontFlags

private:
    template <typename Char> float Width(const Char* text, int len) const;
    void Take(DTexFontFile& parsed, QBitMap* picture); // commits a table that passed every check
    bool Bind(); // selects the texture, uploading the picture the first time

    DTexGlyph* glyphs;          // owned
    int32_t glyphCount;
    DTexFontTexture* texture;   // owned; null: nothing is drawn
};

} // namespace tarvik
