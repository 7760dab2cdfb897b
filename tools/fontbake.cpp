// fontbake: renders the Latin-1 characters of a scalable font into a glyph picture and a glyph
// table, the two files a texture font loads (toolkit/dtexfont.h).
//
//   fontbake <font.ttf> <pixel size> <out.tfnt>
//
// Codes 32 to 255 in one range. Every glyph cell is a full line high, from the lowest ink below
// the baseline to the highest above it, so that glyphs painted on one bottom line stand on one
// baseline. The picture is white with the coverage in alpha, a power of two on each side, with a
// transparent white pixel between cells so that filtering never reaches a neighbour; it is written
// as a 32-bit Targa beside the table, named after it with ".tga". Codes the font has no glyph for
// (the controls 127 to 159) get empty records: no ink, no advance. Failures are reported on
// standard error, with exit status 1; nothing goes to QLOG.txt.
#include "toolkit/dtexfont.h"

#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "images/qbitmap.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace tarvik;

namespace {

const int firstCode = 32, lastCode = 255;
const int minSize = 4, maxSize = 256;
const int pad = 1;          // transparent pixels between cells and at the picture's edges
const int maxSide = 4096;

int Usage()
{
    std::fprintf(stderr, "usage: fontbake <font.ttf> <pixel size %d-%d> <out.tfnt>\n", minSize, maxSize);
    return 2;
}

struct Glyph {
    bool present;
    int wid, rows, left, top, advance;
    std::vector<uint8_t> coverage; // rows x wid, top row first
};

int Ceil64(long v) { return int((v + 63) / 64); }

bool Render(FT_Face face, int code, Glyph* g)
{
    *g = Glyph{};
    FT_UInt index = FT_Get_Char_Index(face, FT_ULong(code));
    if (index == 0) return true; // no such glyph: an empty record
    if (FT_Load_Glyph(face, index, FT_LOAD_RENDER) != 0) return false;
    FT_GlyphSlot slot = face->glyph;
    const FT_Bitmap& bm = slot->bitmap;
    if (bm.pixel_mode != FT_PIXEL_MODE_GRAY && bm.width > 0) return false;
    g->present = true;
    g->wid = int(bm.width);
    g->rows = int(bm.rows);
    g->left = slot->bitmap_left;
    g->top = slot->bitmap_top;
    g->advance = int((slot->advance.x + 32) >> 6);
    g->coverage.resize(size_t(g->wid) * g->rows);
    for (int r = 0; r < g->rows; r++)
        std::memcpy(&g->coverage[size_t(r) * g->wid], bm.buffer + long(r) * bm.pitch, size_t(g->wid));
    return true;
}

int NextPowerOfTwo(int v)
{
    int p = 1;
    while (p < v) p <<= 1;
    return p;
}

// The picture's height for cells packed in rows 'side' wide; 0 if a cell is wider than that.
int PackedHeight(const std::vector<Glyph>& glyphs, int side, int lineHeight)
{
    int x = pad, y = pad;
    for (const Glyph& g : glyphs) {
        if (g.wid + 2 * pad > side) return 0;
        if (x + g.wid + pad > side) {
            x = pad;
            y += lineHeight + pad;
        }
        x += g.wid + pad;
    }
    return NextPowerOfTwo(y + lineHeight + pad);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) return Usage();
    char* end = nullptr;
    long size = std::strtol(argv[2], &end, 10);
    if (*end || end == argv[2] || size < minSize || size > maxSize) return Usage();
    const char* out = argv[3];
    qmsgSetLogFile(false);

    // The picture's name: the table's own, ".tfnt" (or nothing) replaced by ".tga".
    qstring base = out;
    base.CutPath();
    qstring pictureName = base;
    int dot = pictureName.GetLength() - 5;
    if (dot > 0 && std::strcmp(pictureName.cstr() + dot, ".tfnt") == 0) pictureName.CutExtension();
    pictureName += ".tga";
    qstring picturePath = out;
    if (picturePath.CutFile())
        picturePath += "/";
    else
        picturePath.Empty();
    picturePath += pictureName;

    FT_Library library;
    if (FT_Init_FreeType(&library) != 0) {
        QERROR("fontbake: can't start the font engine");
        return 1;
    }
    FT_Face face;
    if (FT_New_Face(library, argv[1], 0, &face) != 0) {
        QERROR("fontbake: can't read the font '%s'", argv[1]);
        FT_Done_FreeType(library);
        return 1;
    }
    int status = 1;
    std::vector<Glyph> glyphs(lastCode - firstCode + 1);
    if (FT_Set_Pixel_Sizes(face, 0, FT_UInt(size)) != 0) {
        QERROR("fontbake: '%s' has no size of %ld pixels", argv[1], size);
    } else {
        bool rendered = true;
        for (int code = firstCode; code <= lastCode && rendered; code++) {
            rendered = Render(face, code, &glyphs[size_t(code - firstCode)]);
            if (!rendered) QERROR("fontbake: can't render character %d of '%s'", code, argv[1]);
        }
        if (rendered) status = 0;
    }
    // The line: the font's own, widened to the ink of every glyph.
    int ascent = status == 0 ? Ceil64(face->size->metrics.ascender) : 0;
    int descent = status == 0 ? Ceil64(-face->size->metrics.descender) : 0;
    FT_Done_Face(face);
    FT_Done_FreeType(library);
    if (status != 0) return status;
    for (const Glyph& g : glyphs) {
        if (!g.present || g.rows == 0) continue;
        if (g.top > ascent) ascent = g.top;
        if (g.rows - g.top > descent) descent = g.rows - g.top;
    }
    int lineHeight = ascent + descent;

    int side = 64, height = 0;
    for (; side <= maxSide; side <<= 1) {
        height = PackedHeight(glyphs, side, lineHeight);
        if (height > 0 && height <= side) break;
    }
    if (side > maxSide) {
        QERROR("fontbake: the glyphs of '%s' at %ld pixels don't fit a picture of %d", argv[1], size, maxSide);
        return 1;
    }

    QBitMap picture(32, side, height, 0);
    if (!picture.GetMemory()) {
        QERROR("fontbake: no memory for a picture of %dx%d", side, height);
        return 1;
    }
    for (int i = 0; i < side * height; i++) std::memset(picture.GetMemory() + i * 4, 255, 3);

    std::vector<DTexGlyph> records(glyphs.size());
    int x = pad, y = pad; // y: the memory row of the cells' bottom, counted from the picture's bottom
    for (size_t i = 0; i < glyphs.size(); i++) {
        const Glyph& g = glyphs[i];
        DTexGlyph& rec = records[i];
        rec = DTexGlyph{};
        rec.hgt = lineHeight; // glyph 0, the blank, gives the font its height
        if (!g.present) continue;
        if (x + g.wid + pad > side) {
            x = pad;
            y += lineHeight + pad;
        }
        rec.wid = g.wid;
        rec.advance = float(g.advance);
        rec.bearing = float(g.left);
        rec.s0 = float(x) / side;
        rec.s1 = float(x + g.wid) / side;
        rec.t0 = float(y) / height;
        rec.t1 = float(y + lineHeight) / height;
        // Bitmap row r (from the top) lies top - 1 - r rows above the baseline.
        for (int r = 0; r < g.rows; r++) {
            int row = y + descent + g.top - 1 - r;
            for (int c = 0; c < g.wid; c++) picture.GetAddress(x + c, row)[3] = g.coverage[size_t(r) * g.wid + c];
        }
        x += g.wid + pad;
    }

    DTexFont font;
    font.SetGlyphs(records.data(), int(records.size()), firstCode);
    font.lineHeight = lineHeight;
    font.baseline = descent;
    if (!picture.Write(picturePath.cstr(), QBM_FORMAT_TGA, 0)) {
        QERROR("fontbake: can't write the picture '%s'", picturePath.cstr());
        return 1;
    }
    if (!font.Write(out, pictureName.cstr())) return 1;
    std::printf("fontbake: %s: %d glyphs, line %d pixels (baseline %d), picture %s %dx%d\n", out,
                int(records.size()), lineHeight, descent, pictureName.cstr(), side, height);
    return 0;
}
