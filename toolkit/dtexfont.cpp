#include "toolkit/dtexfont.h"

#include <epoxy/gl.h>

#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "images/qbytes.h"
#include "images/qimage.h"
#include "toolkit/glext.h"
#include "toolkit/qglcontext.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace tarvik {

// The picture and, once it went to OpenGL, its texture. A texture object of the render library
// can take its place without the font's callers noticing.
struct DTexFontTexture {
    QBitMap* picture; // owned
    GLuint name;      // 0 until the first paint
};

namespace {

const uint32_t fileVersion = 1;
const int glyphBytes = 32;
const int maxCode = 65535, maxPixels = 4096, maxGlyphs = 65536, maxNameLength = 255;

// Past the end every read yields 0 and sets 'overrun'; callers check once per record.
struct Cursor {
    const uint8_t* p;
    const uint8_t* end;
    bool overrun = false;

    long Left() const { return long(end - p); }
    const uint8_t* Take(long n)
    {
        if (Left() < n) { overrun = true; p = end; return nullptr; }
        const uint8_t* at = p;
        p += n;
        return at;
    }
    uint16_t U16() { const uint8_t* at = Take(2); return at ? QGetLE16(at) : 0; }
    uint32_t U32() { const uint8_t* at = Take(4); return at ? QGetLE32(at) : 0; }
    int32_t I32() { return int32_t(U32()); }
    float F32() { uint32_t bits = U32(); float v; std::memcpy(&v, &bits, 4); return v; }
};

void PutU32(std::vector<uint8_t>& out, uint32_t v)
{
    uint8_t b[4];
    QPutLE32(b, v);
    out.insert(out.end(), b, b + 4);
}

void PutF32(std::vector<uint8_t>& out, float v)
{
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    PutU32(out, bits);
}

bool PlainName(const char* name, int len)
{
    if (len < 1 || len > maxNameLength) return false;
    if ((len == 1 && name[0] == '.') || (len == 2 && name[0] == '.' && name[1] == '.')) return false;
    for (int i = 0; i < len; i++) {
        unsigned char c = static_cast<unsigned char>(name[i]);
        if (c < 32 || c > 126 || c == '/' || c == '\\') return false;
    }
    return true;
}

bool Near(float v, float limit) { return std::isfinite(v) && v >= -limit && v <= limit; }
bool Unit(float v) { return std::isfinite(v) && v >= 0 && v <= 1; }

// The table's rules, shared by the reader and the writer: what breaks one, or null.
struct TableView {
    int32_t firstChar, lastChar, lineHeight, baseline, ranges;
    const int32_t* rangeFirst;
    const int32_t* rangeLast;
    const int32_t* rangeIndex;
    const DTexGlyph* glyphs;
    int32_t glyphCount;
};

// Says in 'why' what breaks a rule first; false then.
bool CheckTable(const TableView& t, char* why, size_t whySize)
{
    const char* broken = nullptr;
    if (t.firstChar < 0 || t.firstChar > maxCode) broken = "first character";
    else if (t.lastChar < t.firstChar || t.lastChar > maxCode) broken = "last character";
    else if (t.lineHeight < 1 || t.lineHeight > maxPixels) broken = "line height";
    else if (t.baseline < 0 || t.baseline > t.lineHeight) broken = "baseline";
    else if (t.ranges < 1 || t.ranges > DTEXFONT_MAX_RANGES) broken = "range count";
    else if (t.glyphCount < 1 || t.glyphCount > maxGlyphs) broken = "glyph count";
    if (broken) {
        std::snprintf(why, whySize, "%s", broken);
        return false;
    }
    for (int i = 0; i < t.ranges && !broken; i++) {
        int32_t first = t.rangeFirst[i], last = t.rangeLast[i], index = t.rangeIndex[i];
        if (first < t.firstChar || last > t.lastChar || first > last) broken = "outside the characters";
        else if (i > 0 && first <= t.rangeLast[i - 1]) broken = "not ascending";
        else if (index < 0 || int64_t(index) + (last - first) >= t.glyphCount) broken = "outside the glyphs";
        if (broken) std::snprintf(why, whySize, "range %d %s", i, broken);
    }
    for (int i = 0; i < t.glyphCount && !broken; i++) {
        const DTexGlyph& g = t.glyphs[i];
        if (g.wid < 0 || g.wid > maxPixels || g.hgt < 0 || g.hgt > maxPixels) broken = "size";
        else if (!Near(g.advance, maxPixels) || !Near(g.bearing, maxPixels)) broken = "advance";
        else if (!Unit(g.s0) || !Unit(g.t0) || !Unit(g.s1) || !Unit(g.t1)) broken = "texture coordinates";
        if (broken) std::snprintf(why, whySize, "glyph %d %s", i, broken);
    }
    return !broken;
}

} // namespace

// Everything a glyph file holds, parsed into locals before the font takes it.
struct DTexFontFile {
    qstring pictureName;
    int32_t firstChar = 0, lastChar = 0, lineHeight = 0, baseline = 0, ranges = 0;
    int32_t rangeFirst[DTEXFONT_MAX_RANGES] = {}, rangeLast[DTEXFONT_MAX_RANGES] = {},
            rangeIndex[DTEXFONT_MAX_RANGES] = {};
    DTexGlyph* glyphs = nullptr; // owned until handed over
    int32_t glyphCount = 0;

    DTexFontFile() = default;
    DTexFontFile(const DTexFontFile&) = delete;
    DTexFontFile& operator=(const DTexFontFile&) = delete;
    ~DTexFontFile() { qfree(glyphs); }
};

namespace {

bool Damaged(const char* name, const char* what)
{
    QERROR("DTexFont: '%s' is damaged (%s)", name, what);
    return false;
}

bool Parse(const char* name, const uint8_t* data, long size, DTexFontFile* f)
{
    Cursor c{data, data + (data ? size : 0)};
    const uint8_t* magic = c.Take(4);
    if (!magic || std::memcmp(magic, "TFNT", 4) != 0) return Damaged(name, "not a glyph file");
    uint32_t version = c.U32();
    if (c.overrun) return Damaged(name, "cut short");
    if (version != fileVersion) return Damaged(name, "unknown version");
    int nameLength = c.U16();
    const uint8_t* pictureName = c.Take(nameLength);
    if (c.overrun) return Damaged(name, "cut short");
    if (!PlainName(reinterpret_cast<const char*>(pictureName), nameLength))
        return Damaged(name, "picture name");
    std::string text(reinterpret_cast<const char*>(pictureName), size_t(nameLength));
    f->pictureName = text.c_str();

    f->firstChar = c.I32();
    f->lastChar = c.I32();
    f->lineHeight = c.I32();
    f->baseline = c.I32();
    f->ranges = c.I32();
    if (c.overrun) return Damaged(name, "cut short");
    if (f->ranges < 1 || f->ranges > DTEXFONT_MAX_RANGES) return Damaged(name, "range count");
    for (int i = 0; i < f->ranges; i++) {
        f->rangeFirst[i] = c.I32();
        f->rangeLast[i] = c.I32();
        f->rangeIndex[i] = c.I32();
    }
    int64_t count = int32_t(c.U32());
    if (c.overrun) return Damaged(name, "cut short");
    // The count is checked against the bytes that follow before a block is sized by it.
    if (count < 1 || count > maxGlyphs) return Damaged(name, "glyph count");
    if (c.Left() != count * glyphBytes)
        return Damaged(name, c.Left() < count * glyphBytes ? "cut short" : "bytes behind the glyphs");
    f->glyphs = static_cast<DTexGlyph*>(qcalloc(size_t(count) * sizeof(DTexGlyph)));
    if (!f->glyphs) {
        QERROR("DTexFont: no memory for the %d glyphs of '%s'", int(count), name);
        return false;
    }
    f->glyphCount = int32_t(count);
    for (int i = 0; i < f->glyphCount; i++) {
        DTexGlyph& g = f->glyphs[i];
        g.wid = c.I32();
        g.hgt = c.I32();
        g.advance = c.F32();
        g.bearing = c.F32();
        g.s0 = c.F32();
        g.t0 = c.F32();
        g.s1 = c.F32();
        g.t1 = c.F32();
    }
    TableView view = {f->firstChar, f->lastChar, f->lineHeight, f->baseline, f->ranges, f->rangeFirst,
                      f->rangeLast, f->rangeIndex, f->glyphs, f->glyphCount};
    char why[80];
    return CheckTable(view, why, sizeof(why)) || Damaged(name, why);
}

void FreeTexture(DTexFontTexture* t)
{
    if (!t) return;
    // Without a current context the texture goes with the contexts that share it.
    if (t->name && QGLContext::GetCurrent()) glDeleteTextures(1, &t->name);
    delete t->picture;
    delete t;
}

} // namespace

DTexFont::DTexFont()
    : firstChar(0), lastChar(-1), rangeFirst(), rangeLast(), rangeIndex(), ranges(0), lineHeight(0), baseline(0),
      scaleX(1), scaleY(1), shear(0), spacing(0), boldOffset(1), color(0xFFFFFFFFu), flags(0), glyphs(nullptr),
      glyphCount(0), texture(nullptr)
{
}

DTexFont::~DTexFont()
{
    qfree(glyphs);
    FreeTexture(texture);
}

bool DTexFont::Load(const char* fileName)
{
    if (!fileName || !*fileName) {
        QERROR("DTexFont: no glyph file named");
        return false;
    }
    QFile file(fileName, QFile::READ | QFile::MEMORY);
    if (!file.IsOpen()) {
        QERROR("DTexFont: can't open '%s'", fileName);
        return false;
    }
    DTexFontFile parsed;
    if (!Parse(fileName, file.GetMemory(), file.GetMemorySize(), &parsed)) return false;

    // The picture lies in the glyph file's folder.
    qstring path = fileName;
    if (path.CutFile())
        path += "/";
    else
        path.Empty();
    path += parsed.pictureName;
    QImage* picture = new QImage(path.cstr());
    if (!picture->IsOK() || picture->GetDepth() != 32 || !picture->GetMemory()) {
        QERROR("DTexFont: can't load the glyph picture '%s' of '%s'", path.cstr(), fileName);
        delete picture;
        return false;
    }
    Take(parsed, picture);
    return true;
}

bool DTexFont::LoadMemory(const char* name, const uint8_t* data, long size, QBitMap* picture)
{
    DTexFontFile parsed;
    if (!Parse(name ? name : "<memory>", data, size, &parsed)) {
        delete picture;
        return false;
    }
    Take(parsed, picture);
    return true;
}

void DTexFont::Take(DTexFontFile& parsed, QBitMap* picture)
{
    qfree(glyphs);
    glyphs = parsed.glyphs;
    parsed.glyphs = nullptr;
    glyphCount = parsed.glyphCount;
    firstChar = parsed.firstChar;
    lastChar = parsed.lastChar;
    lineHeight = parsed.lineHeight;
    baseline = parsed.baseline;
    ranges = parsed.ranges;
    for (int i = 0; i < DTEXFONT_MAX_RANGES; i++) {
        rangeFirst[i] = parsed.rangeFirst[i];
        rangeLast[i] = parsed.rangeLast[i];
        rangeIndex[i] = parsed.rangeIndex[i];
    }
    SetPicture(picture);
}

bool DTexFont::Write(const char* fileName, const char* pictureName) const
{
    TableView view = {firstChar, lastChar, lineHeight, baseline, ranges, rangeFirst, rangeLast, rangeIndex,
                      glyphs, glyphCount};
    char why[80] = "picture name";
    int nameLength = pictureName ? int(std::strlen(pictureName)) : 0;
    if (!CheckTable(view, why, sizeof(why)) || !PlainName(pictureName, nameLength)) {
        QERROR("DTexFont: can't write '%s'; the table breaks a rule (%s)", fileName, why);
        return false;
    }
    std::vector<uint8_t> out = {'T', 'F', 'N', 'T'};
    PutU32(out, fileVersion);
    out.push_back(uint8_t(nameLength));
    out.push_back(0);
    out.insert(out.end(), pictureName, pictureName + nameLength);
    for (int32_t v : {firstChar, lastChar, lineHeight, baseline, ranges}) PutU32(out, uint32_t(v));
    for (int i = 0; i < ranges; i++)
        for (int32_t v : {rangeFirst[i], rangeLast[i], rangeIndex[i]}) PutU32(out, uint32_t(v));
    PutU32(out, uint32_t(glyphCount));
    for (int i = 0; i < glyphCount; i++) {
        const DTexGlyph& g = glyphs[i];
        PutU32(out, uint32_t(g.wid));
        PutU32(out, uint32_t(g.hgt));
        for (float v : {g.advance, g.bearing, g.s0, g.t0, g.s1, g.t1}) PutF32(out, v);
    }
    QFile file(fileName, QFile::WRITE);
    if (!file.IsOpen() || file.Write(out.data(), int(out.size())) != int(out.size())) {
        QERROR("DTexFont: can't write '%s'", fileName);
        return false;
    }
    return true;
}

void DTexFont::SetGlyphs(const DTexGlyph* records, int count, int first)
{
    qfree(glyphs);
    glyphs = nullptr;
    glyphCount = 0;
    ranges = 0;
    if (!records || count < 1) return;
    glyphs = static_cast<DTexGlyph*>(qcalloc(size_t(count) * sizeof(DTexGlyph)));
    if (!glyphs) return;
    std::memcpy(glyphs, records, size_t(count) * sizeof(DTexGlyph));
    glyphCount = count;
    firstChar = first;
    lastChar = first + count - 1;
    ranges = 1;
    rangeFirst[0] = first;
    rangeLast[0] = lastChar;
    rangeIndex[0] = 0;
}

bool DTexFont::SetRanges(int count, const int32_t* first, const int32_t* last, const int32_t* index)
{
    if (count < 1 || count > DTEXFONT_MAX_RANGES) return false;
    for (int i = 0; i < count; i++) {
        rangeFirst[i] = first[i];
        rangeLast[i] = last[i];
        rangeIndex[i] = index[i];
    }
    ranges = count;
    return true;
}

void DTexFont::SetPicture(QBitMap* picture)
{
    FreeTexture(texture);
    texture = picture ? new DTexFontTexture{picture, 0} : nullptr;
}

const QBitMap* DTexFont::GetPicture() const
{
    return texture ? texture->picture : nullptr;
}

// The first range that ends at or above the code names the glyph; a code in a gap in front of a
// range takes the index that range's arithmetic gives it, as long as that is a glyph.
const DTexGlyph* DTexFont::FindGlyph(int code) const
{
    if (code < firstChar || code > lastChar) return nullptr;
    for (int i = 0; i < ranges; i++) {
        if (rangeLast[i] < code) continue;
        int64_t index = int64_t(rangeIndex[i]) - rangeFirst[i] + code;
        return index >= 0 && index < glyphCount ? &glyphs[index] : nullptr;
    }
    return nullptr;
}

float DTexFont::GetCharWidth(int code) const
{
    const DTexGlyph* g = FindGlyph(code);
    return g ? g->advance * scaleX + spacing : 0;
}

template <typename Char> float DTexFont::Width(const Char* text, int len) const
{
    if (!text) return 0;
    float width = 0;
    for (int i = 0; (len < 0 || i < len) && text[i]; i++) width += GetCharWidth(int(text[i]));
    return width;
}

float DTexFont::GetWidth(const char* text, int len) const
{
    return Width(reinterpret_cast<const unsigned char*>(text), len);
}

float DTexFont::GetWidth(const uint16_t* text, int len) const
{
    return Width(text, len);
}

float DTexFont::GetHeight() const
{
    return glyphCount > 0 ? float(glyphs[0].hgt) * scaleY : 0;
}

bool DTexFont::Bind()
{
    if (texture->name) {
        glBindTexture(GL_TEXTURE_2D, texture->name);
        return true;
    }
    QBitMap* bm = texture->picture;
    glGenTextures(1, &texture->name);
    if (!texture->name) return false;
    glBindTexture(GL_TEXTURE_2D, texture->name);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    // The canvas leaves row lengths and skips behind for its pixel transfers.
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, bm->GetWidth(), bm->GetHeight(), 0, GL_RGBA, GL_UNSIGNED_BYTE,
                 bm->GetMemory());
    glPopClientAttrib();
    return true;
}

int DTexFont::Paint(const char* text, int x0, int y0, int len)
{
    // Without a context the calls would have nothing to draw into.
    if (!texture || !text || !QGLContext::GetCurrent()) return x0;
    if (len == -1) len = int(std::strlen(text));
    if (len <= 0) return x0;

    if (!Bind()) return x0;
    GLenum src = (flags & DTF_ADDITIVE) ? GL_ONE : GL_SRC_ALPHA;
    glDisable(GL_LIGHTING);
    glEnable(GL_BLEND);
    glBlendFunc(src, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_TEXTURE_2D);
    glDisable(GL_CULL_FACE);
    if (color.GetRGBA() != 0xFFFFFFFFu) {
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
        const float k = 0.003921569f;
        glColor4f(color.GetR() * k, color.GetG() * k, color.GetB() * k, color.GetA() * k);
    } else {
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    }
    glDisable(GL_DEPTH_TEST);
    if (gll::glBlendFuncSeparate) gll::glBlendFuncSeparate(src, GL_ONE_MINUS_SRC_ALPHA, GL_SRC_ALPHA_SATURATE, GL_ONE);

    float x = float(x0), y = float(y0);
    glBegin(GL_QUADS);
    for (int i = 0; i < len; i++) {
        const DTexGlyph* g = FindGlyph(static_cast<unsigned char>(text[i]));
        if (!g) continue;
        float left = x + scaleX * g->bearing;
        float right = left + float(g->wid) * scaleX;
        float top = y + float(g->hgt) * scaleY;
        int quads = (flags & DTF_BOLD) ? 2 : 1;
        for (int q = 0; q < quads; q++) {
            float dx = q ? boldOffset : 0;
            glTexCoord2f(g->s0, g->t0);
            glVertex2f(left + dx, y);
            glTexCoord2f(g->s0, g->t1);
            glVertex2f(left + dx + shear, top);
            glTexCoord2f(g->s1, g->t1);
            glVertex2f(right + dx + shear, top);
            glTexCoord2f(g->s1, g->t0);
            glVertex2f(right + dx, y);
        }
        x = left - scaleX * g->bearing + g->advance * scaleX + spacing;
    }
    glEnd();
    glDisable(GL_BLEND);
    glDisable(GL_TEXTURE_2D);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    return int(x);
}

} // namespace tarvik
