// DTexture and DBitMapTexture: creation, counting, sampling state, upload. The loading of pictures
// and the pool are in dtexture_load.cpp.
#include "render/dtexture.h"

#include "render/dglobal.h"
#include "toolkit/glext.h" // first of the OpenGL headers: <epoxy/gl.h>

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "images/qbitmap.h"
#include "toolkit/qglcontext.h"

namespace tarvik {

DTexture* d3StockTexture = nullptr;
QObject* d3StockObject = nullptr;

// A name handed out earlier that the leak guard found still in use; 0 for none.
static uint32_t suspectTextureID = 0;

// OpenGL work needs both the switch and a current context; without them the counting and the
// settings still run, so the logic above works without a display.
static bool UseGL()
{
    return (d3GetDGlobal()->flags & D3_USE_OPENGL) && QGLContext::GetCurrent();
}

DTexture::DTexture()
    : refCount(0), glContext(nullptr), id(0), pixelBuffer(0), pixelMemory(nullptr), bytesPerPixel(0),
      flags(DTEX_MIPMAP), wid(0), hgt(0), target(GL_TEXTURE_2D), internalFormat(GL_RGBA),
      minFilter(GL_LINEAR_MIPMAP_LINEAR), magFilter(GL_LINEAR), wrapS(GL_REPEAT), wrapT(GL_REPEAT),
      wrapR(GL_REPEAT), wrapQ(GL_REPEAT), word0(0), word1(1000.0f), word2(0), baseLevel(0), maxLevel(0)
{
    DGlobal* g = d3GetDGlobal();
    if (g->texFlags & D3_COMPRESS_TEXTURES) {
        glContext = QGLContext::GetCurrent();
        GLLExtensionManager* ext = glContext ? glContext->GetExtensions() : nullptr;
        if (ext && ext->IsSupported(GLL_TEXTURE_COMPRESSION)) flags |= DTEX_COMPRESS;
    }
    glContext = nullptr;
    if (g->linearColor) internalFormat = (flags & DTEX_COMPRESS) ? GL_COMPRESSED_RGBA : GL_RGBA;
    else internalFormat = (flags & DTEX_COMPRESS) ? GL_COMPRESSED_SRGB_ALPHA : GL_SRGB8_ALPHA8;
}

DTexture::~DTexture()
{
    if (flags & DTEX_PIXEL_BUFFER) {
        if (gll::glDeleteBuffersARB && QGLContext::GetCurrent()) gll::glDeleteBuffersARB(1, &pixelBuffer);
        qfree(pixelMemory);
        pixelMemory = nullptr;
        flags &= ~DTEX_PIXEL_BUFFER;
        pixelBuffer = 0;
    }
    if (refCount > 0) {
        QERROR("DTexture dtor (%s); reference count was still %d! Use D3_DETACH_TEXTURE (Detach()), not "
               "delete!",
               GetName(), refCount);
        QDEBUG("DTexture dtor: Expecting crash, dangling texture pointer.");
    }
    if (id) {
        // A name only exists in a context; without a current one there is nothing to call.
        if (QGLContext::GetCurrent()) {
            glBindTexture(GL_TEXTURE_2D, 0);
            glDeleteTextures(1, &id);
        }
        id = 0;
    }
}

bool DTexture::Detach()
{
    refCount--;
    if (refCount > 0) return false;
    // Peeked, not made: a texture given back after the render state went has no pool to leave.
    DGlobal* g = d3PeekDGlobal();
    if (refCount == 0) {
        if (g && g->texturePool) g->texturePool->Remove(this);
        return true;
    }
    if (!g || (g->flags & D3_USE_OPENGL))
        QERROR("DTexture:Detach(); refCount<0 (refCount=%d); too many Detach() calls", refCount);
    return false;
}

void DTexture::SetSize(int w, int h)
{
    if (wid == 0 && hgt == 0) {
        wid = w;
        hgt = h;
        return;
    }
    QERROR("DTexture::SetSize() called twice for the same object (%s)", GetName());
}

void DTexture::EnableMipmap(bool enable)
{
    if (id) {
        QWARNING("DTexture:EnableMipmap() called after creation (%s)", GetName());
        return;
    }
    if (enable) {
        flags |= DTEX_MIPMAP;
    } else {
        flags &= ~DTEX_MIPMAP;
        minFilter = GL_NEAREST;
        magFilter = GL_LINEAR;
    }
}

void DTexture::DisableCompression()
{
    flags &= ~DTEX_COMPRESS;
    SetInternalFormat(internalFormat);
}

void DTexture::SetInternalFormat(uint32_t format)
{
    const bool linear = d3GetDGlobal()->linearColor != 0;
    if (!(flags & DTEX_COMPRESS)) {
        if (!linear) internalFormat = GL_SRGB8_ALPHA8;
        else if (format == GL_COMPRESSED_RGB) internalFormat = GL_RGB;
        else internalFormat = GL_RGBA; // GL_COMPRESSED_RGBA and anything else
    } else if (format == GL_RGBA || format == GL_RGB) {
        if (linear) internalFormat = format == GL_RGBA ? GL_COMPRESSED_RGBA : GL_COMPRESSED_RGB;
        else internalFormat = GL_COMPRESSED_SRGB_ALPHA;
    } else {
        internalFormat = format;
    }
}

// A fresh context hands out name 1 first: the textures of the last one must be gone by now, and
// any name the driver still knows is one somebody forgot to give back.
static void CheckLeaksAtFirstTexture()
{
    if (d3StockTexture) {
        if (d3StockTexture->Detach()) delete d3StockTexture;
        d3StockTexture = nullptr;
    }
    delete d3StockObject;
    d3StockObject = nullptr;
    QINFO("## First texture; verify that all textures are released\n");
    int active = 0;
    for (uint32_t name = 1; name < 1000; name++) {
        if (!glIsTexture(name)) continue;
        QWARNING("Texture ID %u is still in use; possible memory leak", name);
        if (!suspectTextureID) suspectTextureID = name;
        active++;
    }
    if (active > 0) QERROR("Unreleased texture(s) exist (%d are active)", active);
}

void DTexture::CreateTexture()
{
    if (refCount > 0) QWARNING("DTexture::CreateTexture(); texture was already created (%s)", GetName());
    if (UseGL()) {
        glContext = QGLContext::GetCurrent();
        glGenTextures(1, &id);
        if (id == suspectTextureID) {
            QDEBUG("Creation of texture ID %u (%s) spotted; this ID was previously marked as still in "
                   "use, so perhaps leaking",
                   id, GetName());
            suspectTextureID = 0;
        }
        if (id == 1) CheckLeaksAtFirstTexture();
        glBindTexture(target, id);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
        glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
        if (target == GL_TEXTURE_2D)
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, wid, hgt, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GLint(minFilter));
        glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GLint(magFilter));
        glTexParameteri(target, GL_TEXTURE_WRAP_S, GLint(wrapS));
        glTexParameteri(target, GL_TEXTURE_WRAP_T, GLint(wrapT));
        glTexParameteri(target, GL_TEXTURE_WRAP_R, GLint(wrapR));
        // Without the extension the name is unknown to the driver and would only leave an error.
        GLLExtensionManager* ext = glContext->GetExtensions();
        if (!ext || ext->IsSupported(GLL_TEXTURE_FILTER_ANISOTROPIC))
            glTexParameterf(target, GL_TEXTURE_MAX_ANISOTROPY_EXT, d3GetDGlobal()->anisotropy);
    }
    refCount++;
    switch (internalFormat) {
    case GL_RGB:
    case GL_COMPRESSED_RGB: bytesPerPixel = 3; break;
    case GL_RGBA:
    case GL_COMPRESSED_RGBA:
    case GL_SRGB8_ALPHA8:
    case GL_COMPRESSED_SRGB_ALPHA: bytesPerPixel = 4; break;
    default: bytesPerPixel = 0; break;
    }
}

void DTexture::Select()
{
    if (glContext) glBindTexture(target, id);
    else QERROR("DTexture:Select(); no OpenGL context yet");
}

void DTexture::SetLevels(int base, int max)
{
    Select();
    baseLevel = base;
    maxLevel = max;
    if (!glContext) return;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_BASE_LEVEL, base);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, max);
}

void DTexture::SetWrap(uint32_t s, uint32_t t, uint32_t r, uint32_t q)
{
    if (s == wrapS && t == wrapT && r == wrapR && q == wrapQ) return;
    Select();
    wrapS = s;
    wrapT = t;
    wrapR = r;
    wrapQ = q; // OpenGL has no fourth wrap for 2-D textures; kept for the record
    if (!glContext) return;
    glTexParameteri(target, GL_TEXTURE_WRAP_S, GLint(s));
    glTexParameteri(target, GL_TEXTURE_WRAP_T, GLint(t));
    glTexParameteri(target, GL_TEXTURE_WRAP_R, GLint(r));
}

DBitMapTexture::DBitMapTexture() : bitmap(nullptr), bitmapWid(0), bitmapHgt(0) {}

DBitMapTexture::DBitMapTexture(QBitMap* bm) : DBitMapTexture()
{
    FromBitMap(bm);
}

void DBitMapTexture::DbgReport() const
{
    QINFO("@%p %s (class %s) size %dx%d, refs %d\n", static_cast<const void*>(this), GetName(), ClassName(),
          wid, hgt, refCount);
}

static void ZeroPixelStore()
{
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glPixelStorei(GL_PACK_SKIP_ROWS, 0);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 0);
}

void DBitMapTexture::FromBitMap(QBitMap* bm)
{
    if (!(d3GetDGlobal()->flags & D3_USE_OPENGL)) return;
    if (!bm) {
        QERROR("DBitmapTexture:FromBitMap(); null bitmap (%s)", GetName());
        return;
    }
    bitmap = bm;
    bitmapWid = bm->GetWidth();
    bitmapHgt = bm->GetHeight();
    if (!id) SetSize(bitmapWid, bitmapHgt);
    if (!QGLContext::GetCurrent()) {
        QERROR("DBitmapTexture:FromBitMap(); no OpenGL context yet (%s)", GetName());
        return;
    }
    if (!id) CreateTexture();
    else Select();
    ZeroPixelStore();
    // OpenGL reads wid*hgt pixels from the block whatever the bitmap's size: a smaller picture
    // than the texture would be read past its end.
    if (bm->GetDepth() != 32 || !bm->GetMemory() || int64_t(bm->GetMemSize()) < int64_t(wid) * hgt * 4) {
        QERROR("DBitmapTexture:FromBitMap(); bitmap %dx%d (depth %d) doesn't fill texture %dx%d (%s)",
               bitmapWid, bitmapHgt, bm->GetDepth(), wid, hgt, GetName());
        return;
    }
    glTexImage2D(target, 0, GLint(internalFormat), wid, hgt, 0, GL_RGBA, GL_UNSIGNED_BYTE, bm->GetMemory());
    if (flags & DTEX_MIPMAP) {
        glEnable(GL_TEXTURE_2D);
        // Without the entry point there are no mipmaps; the filter stays as asked.
        if (gll::glGenerateMipmapEXT) gll::glGenerateMipmapEXT(GL_TEXTURE_2D);
    }
    QShowGLErrors("DBitmapTexture:FromBitMap()");
}

} // namespace tarvik
