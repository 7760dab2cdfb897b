// DTexture: one OpenGL texture object with a reference count, the sampling state it is created
// with, and a guard against leaked texture ids. DBitMapTexture fills one from a QBitMap.
//
// Counting: CreateTexture gives the count 1, sharers Attach, and the Detach that brings the count
// to 0 takes the texture out of DGlobal's pool and returns true: the caller then deletes it. A
// texture is never deleted while referenced; the destructor says so if it is.
//
// With D3_USE_OPENGL clear in DGlobal's flags FromBitMap does no OpenGL work at all, so the logic
// above it (caches, pool, materials) runs without a context. CreateTexture talks to OpenGL only
// with that flag set and a current context; otherwise it only counts, and the id stays 0.
//
// d3LoadTextureMap turns a file name into a bitmap the caller owns; a file that can't be had
// becomes a small stub picture, so that a scene always loads. DTexturePool is the list of loaded
// textures by name, through which materials share them; it does not own the textures.
#pragma once

#include "foundation/qobject.h"

#include <cstdint>

namespace tarvik {

class QBitMap;
class QGLContext;

enum DTextureFlags : uint32_t {
    DTEX_TRANSPARENT = 1,  // the picture has transparent pixels (set and read by materials)
    DTEX_MIPMAP = 2,       // build mipmaps; on by default, fixed at creation
    DTEX_COMPRESS = 8,     // ask OpenGL to compress the texture
    DTEX_PIXEL_BUFFER = 16 // pixelBuffer and pixelMemory are in use; the destructor releases them
};

class DTexture : public QObject {
public:
    DTexture();
    ~DTexture() override;

    const char* ClassName() const override { return "DTexture"; }
    virtual const char* GetTypeName() const { return "texture2D"; }

    void Attach() { refCount++; }
    bool Detach(); // true: the count reached 0, the texture left the pool; the caller deletes it

    void SetSize(int w, int h);      // once, before creation
    void EnableMipmap(bool enable);  // before creation only
    void DisableCompression();
    void SetInternalFormat(uint32_t format);
    void CreateTexture();            // makes the OpenGL texture in the current context; count 1
    void Select();                   // binds it; an error without a context
    void SetLevels(int base, int max);
    void SetWrap(uint32_t s, uint32_t t, uint32_t r, uint32_t q); // no OpenGL work if unchanged

    int GetWidth() const { return wid; }
    int GetHeight() const { return hgt; }
    int GetRefCount() const { return refCount; }
    uint32_t GetID() const { return id; }
    uint32_t GetFlags() const { return flags; }
    void SetFlags(uint32_t f) { flags = f; }
    uint32_t GetTarget() const { return target; }
    uint32_t GetInternalFormat() const { return internalFormat; }
    uint32_t GetMinFilter() const { return minFilter; }
    uint32_t GetMagFilter() const { return magFilter; }
    uint32_t GetWrapS() const { return wrapS; }
    uint32_t GetWrapT() const { return wrapT; }
    uint32_t GetWrapR() const { return wrapR; }
    uint32_t GetWrapQ() const { return wrapQ; }
    int GetBaseLevel() const { return baseLevel; }
    int GetMaxLevel() const { return maxLevel; }
    int GetBytesPerPixel() const { return bytesPerPixel; }
    QGLContext* GetGLContext() const { return glContext; }

protected:
    int32_t refCount;
    QGLContext* glContext; // borrowed: the context current at CreateTexture; null before
    uint32_t id;           // OpenGL texture name; 0 while not created
    uint32_t pixelBuffer;  // buffer object name, with DTEX_PIXEL_BUFFER
    void* pixelMemory;     // owned with DTEX_PIXEL_BUFFER (qmalloc)
    int32_t bytesPerPixel; // from internalFormat at CreateTexture: 3, 4 or 0
    uint32_t flags;        // DTextureFlags
    int32_t wid;
    int32_t hgt;
    uint32_t target;
    uint32_t internalFormat;
    uint32_t minFilter;
    uint32_t magFilter;
    uint32_t wrapS, wrapT, wrapR, wrapQ;
    uint32_t word0;        // three words that nothing here reads: 0, 1000.0f, 0
    float word1;
    uint32_t word2;
    int32_t baseLevel;
    int32_t maxLevel;
};

class DBitMapTexture : public DTexture {
public:
    DBitMapTexture();
    explicit DBitMapTexture(QBitMap* bm); // then FromBitMap(bm)

    const char* ClassName() const override { return "DBitMapTexture"; }
    const char* GetTypeName() const override { return "bitmapTexture"; }
    void DbgReport() const override; // "@%p %s (class %s) size %dx%d, refs %d\n"

    // Uploads the 32-bit bitmap to level 0, creating the texture first if needed; with DTEX_MIPMAP
    // the driver builds the mipmaps where it offers glGenerateMipmapEXT, and there are none where
    // it doesn't. The bitmap is not kept: callers may delete it right after.
    void FromBitMap(QBitMap* bm);

    QBitMap* GetBitMap() const { return bitmap; }
    int GetBitMapWidth() const { return bitmapWid; }
    int GetBitMapHeight() const { return bitmapHgt; }

protected:
    QBitMap* bitmap; // borrowed, a record only: the one last given to FromBitMap
    int32_t bitmapWid;
    int32_t bitmapHgt;
};

// The textures shared by name. Used slots are always the first 'numTextures', in the order of
// Add. Materials ask Find for every texture they take, with full paths that share their first
// characters, so a walk through the names would compare most of each; a hash index (open
// addressing, rebuilt by Remove, which is rare) finds the slot, and a name is compared only where
// the hashes match.
struct DTexturePool {
    enum { MAX_TEXTURES = 3000, INDEX_SLOTS = 4096 }; // a power of two, a quarter above the limit

    DTexturePool();
    ~DTexturePool(); // frees the names; the textures are not owned
    DTexturePool(const DTexturePool&) = delete;
    DTexturePool& operator=(const DTexturePool&) = delete;

    bool Add(const char* name, DTexture* tex); // true also when the name is known (first one stays)
    DTexture* Find(const char* name) const;     // exact, case counts; null if absent
    void Remove(DTexture* tex);                 // first entry with this pointer; order kept

    char** names;         // owned, MAX_TEXTURES slots, each owned (qstrdup)
    DTexture** textures;  // owned array, MAX_TEXTURES slots; the textures are borrowed
    int32_t maxTextures;
    int32_t numTextures;
    uint32_t* keys;       // owned, MAX_TEXTURES slots: the hash of each name
    int32_t* index;       // owned, INDEX_SLOTS: a slot number + 1, 0 for none

private:
    void Index(int slot);
};

// Stub kinds: 0 a 2x2 red/blue chequer, 1 a 1x1 opaque white pixel.
QBitMap* d3MakeStubImage(int kind);
// A bitmap from the file 'name' searched on DGlobal's texturePath, reduced to the limits of
// DGlobal; the caller owns it. '*loaded' false: it is the red/blue stub.
QBitMap* d3LoadTextureMap(const char* name, bool* loaded, bool silent);
// Resamples 32-bit pixels of sw x sh to dw x dh with a box filter: each target pixel is the
// area-weighted mean of the source pixels it covers, so halving averages 2x2 blocks exactly.
void d3ScaleImage(const uint8_t* src, int sw, int sh, uint8_t* dst, int dw, int dh);

// The leak guard's stock objects, released when a fresh context hands out texture id 1. Nothing
// in the render library sets them; whoever does gives up ownership to the guard.
extern DTexture* d3StockTexture;
extern QObject* d3StockObject;

} // namespace tarvik
