// DDDS: a DirectDraw Surface file with its whole mipmap chain, turned into a DTexture.
//
// Compressed levels (DXT1, DXT3, DXT5) stay compressed and go to OpenGL as they are, but turned
// upside down in the block data on the way: the block rows are stored last to first and each block
// has its four pixel rows reversed, so the file's top row ends up last, where a texture's first row
// is the bottom one. For heights that are not multiples of 4 the padding rows of the last block
// row come to the bottom, so such a picture stands that many rows too high, its top rows cut off.
// 32-bit levels are turned from blue, green, red, alpha into red, green, blue, alpha and keep the
// file's row order.
//
// The file is never trusted: before any level is allocated, the sizes of all levels it names are
// worked out in 64 bits and checked against the bytes behind the header, so a small file that
// claims a huge picture or many levels is refused without allocating. A file in memory (an archive
// member, LoadMemory) is flipped straight from its block into the levels; a file on disk is read in
// slices straight into the levels and flipped in place while the slice is in the cache.
//
// Load needs the application's virtual file system, so that a file may come from an archive;
// without an application object it fails quietly. LoadMemory reads a file already in memory.
#pragma once

#include <cstdint>

namespace tarvik {

class DTexture;
class QFile;

enum DDSFormat {
    DDS_FORMAT_RGBA = 2,   // 32-bit pixels
    DDS_FORMAT_YCOCG = 14, // compressed blocks (no colour conversion takes place)
};

class DDDS {
public:
    enum {
        MAX_LEVELS = 16,
        HEADER_SIZE = 128,
        MAGIC = 0x20534444,   // "DDS "
        DDPF_FOURCC = 4,      // pixel format flag: compressed
        FOURCC_DXT1 = 0x31545844,
        FOURCC_DXT3 = 0x33545844,
        FOURCC_DXT5 = 0x35545844,
    };

    DDDS();
    ~DDDS(); // frees the levels
    DDDS(const DDDS&) = delete;
    DDDS& operator=(const DDDS&) = delete;

    // Reads the file through the virtual file system. False: not a usable file (reported unless it
    // is missing or has no magic); the object then holds at most partial levels.
    bool Load(const char* name);
    // The same on a file in memory; 'name' names it in reports.
    bool LoadMemory(const char* name, const void* data, int size);

    // The OpenGL texture of the levels, owned by the caller (count 1); this object may be deleted
    // afterwards. Without D3_USE_OPENGL or a current context the texture has no pixels.
    DTexture* CreateTexture();

    int GetWidth() const { return wid; }
    int GetHeight() const { return hgt; }
    int GetMipmaps() const { return mipmaps; } // as named by the file; levels held: at most 16
    int GetFormat() const { return format; }
    uint32_t GetInternalFormat() const { return internalFormat; }
    int GetBlockSize() const { return blockSize; }
    const uint8_t* GetPixels(int level) const { return level >= 0 && level < MAX_LEVELS ? pixels[level] : nullptr; }
    int GetSize(int level) const { return level >= 0 && level < MAX_LEVELS ? sizes[level] : 0; }

    // Turns 'count' blocks of the given kind upside down in place; twice gives the blocks back.
    static void FlipBlocks(uint8_t* blocks, int count, uint32_t fourCC);
    // Bytes of a level of w x h pixels (0 counts as 1): w*h*4 for 32-bit data, whole 4x4 blocks of
    // 'blockSize' bytes for compressed data. 64 bits, so no size a header can name overflows.
    static uint64_t LevelBytes(uint32_t w, uint32_t h, int format, int blockSize);

private:
    bool LoadFile(const char* name, QFile* file);
    bool ReadLevels(const char* name, QFile* file, int levels, uint32_t fourCC);
    bool ReadCompressed(QFile* file, uint8_t* level, int w, int h, uint32_t fourCC);
    bool ReadRGBA(QFile* file, uint8_t* level, int size);
    void Free();

    uint8_t* pixels[MAX_LEVELS]; // owned, qmalloc: one block per level
    int32_t sizes[MAX_LEVELS];   // bytes in each level
    int32_t wid;                 // of level 0
    int32_t hgt;
    int32_t mipmaps;             // levels named by the file
    int32_t format;              // DDSFormat
    uint32_t internalFormat;     // OpenGL format of compressed levels
    [[maybe_unused]] uint32_t word; // 0, read by nothing
    int32_t blockSize;           // bytes per 4x4 block: 8 or 16
};

} // namespace tarvik
