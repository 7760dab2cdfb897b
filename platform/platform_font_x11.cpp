// Core fonts of the X display, for text drawn with OpenGL display lists. Opening a font copies its
// metrics and gives the font back to the server at once: a PlatformFont holds only memory of its
// own, so it may outlive the display connection, and closing it never talks to the display. The
// lists are made by loading the font again for the length of one glXUseXFont call.
#include "platform/platform_x11_internal.h"

#include <string>
#include <vector>

namespace tarvik {

struct PlatformFont {
    std::string name;
    int ascent, descent;
    // The per-character table as the display laid it out: rows of byte 1 from minByte1, columns of
    // byte 2 from minByte2. Empty when every character has the font's largest metrics.
    unsigned minByte1, maxByte1, minByte2, maxByte2;
    unsigned defaultChar;
    std::vector<XCharStruct> chars;
    XCharStruct bounds; // the largest metrics, for fonts without a table
};

using x11::ds;

namespace {

// A character the font lacks reads as all zeros in the table.
bool Exists(const XCharStruct& cs)
{
    return cs.width != 0 || cs.lbearing != 0 || cs.rbearing != 0 || cs.ascent != 0 || cs.descent != 0;
}

// The metrics of 'code' as it stands in the font, or null when the font has no such character.
const XCharStruct* Lookup(const PlatformFont* f, unsigned code)
{
    unsigned byte1 = code >> 8, byte2 = code & 0xFF;
    if (code > 0xFFFF || byte1 < f->minByte1 || byte1 > f->maxByte1 || byte2 < f->minByte2 || byte2 > f->maxByte2)
        return nullptr;
    if (f->chars.empty()) return &f->bounds;
    size_t columns = f->maxByte2 - f->minByte2 + 1;
    const XCharStruct& cs = f->chars[(byte1 - f->minByte1) * columns + (byte2 - f->minByte2)];
    return Exists(cs) ? &cs : nullptr;
}

// What the display draws for 'code': its own glyph, else the font's default character.
const XCharStruct* Glyph(const PlatformFont* f, int code)
{
    if (!f || code < 0) return nullptr;
    const XCharStruct* cs = Lookup(f, unsigned(code));
    return cs ? cs : Lookup(f, f->defaultChar);
}

} // namespace

PlatformFont* PlatformFontOpen(const char* name)
{
    if (!name || !*name || !PlatformDisplayOpen(nullptr)) return nullptr;
    XFontStruct* fs = XLoadQueryFont(ds.display, name);
    if (!fs) return nullptr;
    PlatformFont* f = new PlatformFont;
    f->name = name;
    f->ascent = fs->ascent;
    f->descent = fs->descent;
    f->minByte1 = fs->min_byte1;
    f->maxByte1 = fs->max_byte1;
    f->minByte2 = fs->min_char_or_byte2;
    f->maxByte2 = fs->max_char_or_byte2;
    f->defaultChar = fs->default_char;
    f->bounds = fs->max_bounds;
    if (fs->per_char) {
        size_t count = size_t(f->maxByte1 - f->minByte1 + 1) * (f->maxByte2 - f->minByte2 + 1);
        f->chars.assign(fs->per_char, fs->per_char + count);
    }
    XFreeFont(ds.display, fs);
    return f;
}

void PlatformFontClose(PlatformFont* font)
{
    delete font;
}

bool PlatformFontMetrics(const PlatformFont* font, int* ascent, int* descent)
{
    if (!font) return false;
    if (ascent) *ascent = font->ascent;
    if (descent) *descent = font->descent;
    return true;
}

bool PlatformFontCharABC(const PlatformFont* font, int code, float* a, float* b, float* c)
{
    const XCharStruct* cs = Glyph(font, code);
    if (!cs) return false;
    *a = cs->lbearing;
    *b = float(cs->rbearing - cs->lbearing);
    *c = float(cs->width - cs->rbearing);
    return true;
}

int PlatformFontCharWidth(const PlatformFont* font, int code)
{
    const XCharStruct* cs = Glyph(font, code);
    return cs ? cs->width : 0;
}

bool PlatformFontMakeLists(const PlatformFont* font, int first, int count, unsigned listBase)
{
    if (!font || count < 1 || first < 0 || !ds.display) return false;
    if (!glXGetCurrentContext()) return false; // the lists would have nowhere to go
    XFontStruct* fs = XLoadQueryFont(ds.display, font->name.c_str());
    if (!fs) return false;
    int errorsBefore = x11::errorCount;
    glXUseXFont(fs->fid, first, count, int(listBase));
    XFreeFont(ds.display, fs);
    XSync(ds.display, False);
    if (x11::errorCount != errorsBefore) return false;
    // The driver compiles its blank lists with no pixels, which it then reports as out of memory;
    // nothing came of that but the empty lists mended below. The error flags go with it, together
    // with any the caller had left pending.
    for (int i = 0; i < 8 && glGetError() != GL_NO_ERROR; i++) {
    }

    // The driver leaves a character without ink (a space) and a character the font lacks with an
    // empty list that does not move. Drawn as the display draws them, a blank moves by its advance
    // and a missing character is the default one, as they are measured.
    // A bitmap of no size, moved by the advance; compiled into a list it still needs a pointer.
    const GLubyte noPixels = 0;
    const XCharStruct* fallback = Lookup(font, font->defaultChar);
    for (int i = 0; i < count; i++) {
        const XCharStruct* cs = Lookup(font, unsigned(first + i));
        bool blank = cs && (cs->rbearing == cs->lbearing || cs->ascent + cs->descent <= 0);
        if (cs && !blank) continue;
        if (!cs && !fallback) continue;
        glNewList(listBase + unsigned(i), GL_COMPILE);
        int defaultIndex = int(font->defaultChar) - first;
        if (!cs && defaultIndex >= 0 && defaultIndex < count && defaultIndex != i)
            glCallList(listBase + unsigned(defaultIndex));
        else
            glBitmap(0, 0, 0, 0, float((cs ? cs : fallback)->width), 0, &noPixels);
        glEndList();
    }
    return true;
}

} // namespace tarvik
