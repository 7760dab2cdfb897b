#include "toolkit/qfont.h"

#include <epoxy/gl.h>

#include "foundation/qfilesys.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "platform/platform_window.h"
#include "toolkit/dtexfont.h"
#include "toolkit/qglcontext.h"

#include <cstring>

#ifndef TARVIK_SYSFONT_FILE
#define TARVIK_SYSFONT_FILE "sysfont.tfnt"
#endif

namespace tarvik {

namespace {

const int listCount = 256; // one list per 8-bit code
const char* const fallbackFont = "fixed";

} // namespace

QFont::QFont() : texFont(nullptr), nativeFont(nullptr), height(0), ascent(0), listBase(0)
{
}

QFont::~QFont()
{
    Release();
}

void QFont::Release()
{
    // Lists belong to the contexts that share them; without a current one they go with those.
    if (listBase && QGLContext::GetCurrent()) glDeleteLists(listBase, listCount);
    listBase = 0;
    PlatformFontClose(nativeFont);
    nativeFont = nullptr;
    delete texFont;
    texFont = nullptr;
    height = ascent = 0;
}

bool QFont::CreateFromNative(const char* name)
{
    if (!name || !*name) {
        QERROR("QFont::CreateFromNative(); no font named");
        return false;
    }
    if (!QGLContext::GetCurrent()) {
        QERROR("QFont::CreateFromNative(%s); no current OpenGL context for the display lists", name);
        return false;
    }
    PlatformFont* font = PlatformFontOpen(name);
    if (!font) {
        QERROR("QFont::CreateFromNative(); can't find font '%s'", name);
        return false;
    }
    GLuint base = glGenLists(listCount);
    if (!base || !PlatformFontMakeLists(font, 0, listCount, base)) {
        QERROR("QFont::CreateFromNative(); can't make the display lists of font '%s'", name);
        if (base) glDeleteLists(base, listCount);
        PlatformFontClose(font);
        return false;
    }
    Release();
    int a = 0, d = 0;
    PlatformFontMetrics(font, &a, &d);
    nativeFont = font;
    listBase = base;
    height = a + d;
    ascent = a;
    SetName(name);
    return true;
}

bool QFont::CreateFromFile(const char* fileName)
{
    DTexFont* font = new DTexFont();
    if (!font->Load(fileName)) {
        delete font;
        return false;
    }
    Release();
    texFont = font;
    SetName(fileName);
    return true;
}

float QFont::GetHeight() const
{
    return texFont ? texFont->GetHeight() : float(height);
}

float QFont::GetAscent() const
{
    return texFont ? texFont->GetHeight() : float(ascent);
}

// Only a positive overhang counts: see the head of qfont.h for what that makes of a glyph.
float QFont::GetCharWidth(int code) const
{
    if (texFont) return texFont->GetCharWidth(code);
    float a, b, c;
    if (!PlatformFontCharABC(nativeFont, code, &a, &b, &c)) return float(PlatformFontCharWidth(nativeFont, code));
    if (a > 0) return a + b;
    if (c > 0) return c + b;
    return b;
}

// A last character of negative width starts the sum at its size, so that the sum covers it.
template <typename Char> float QFont::Width(const Char* text, int len) const
{
    if (!text || len < 1) return 0;
    float last = GetCharWidth(int(text[len - 1]));
    float sum = last < 0 ? -last : 0;
    for (int i = 0; i < len; i++) sum += GetCharWidth(int(text[i]));
    return sum;
}

float QFont::GetWidth(const char* text, int len) const
{
    if (text && len == -1) len = int(std::strlen(text));
    return Width(reinterpret_cast<const unsigned char*>(text), len);
}

float QFont::GetWidth(const uint16_t* text, int len) const
{
    if (text && len == -1)
        for (len = 0; text[len];) len++;
    return Width(text, len);
}

float QFont::GetWidth(const qstring* s, int len) const
{
    if (!s) return 0;
    return s->IsWide() ? GetWidth(s->wstr(), len) : GetWidth(s->cstr(), len);
}

const char* QFontSystemFile()
{
    return TARVIK_SYSFONT_FILE;
}

QFont* QFontCreateSystem()
{
    QFont* font = new QFont();
    // A tree installed away from its build has no baked font: the core font stands in, silently.
    const char* file = QFontSystemFile();
    if (QFileExists(file) && font->CreateFromFile(file)) return font;
    if (font->CreateFromNative(fallbackFont)) return font;
    delete font;
    QWARNING("QFont: no system font; text will not be drawn");
    return nullptr;
}

} // namespace tarvik
