// DDDS: reading a DDS file level by level, flipping compressed blocks, and the upload.
#include "toolkit/glext.h" // first of the OpenGL headers

#include "render/dds.h"

#include "foundation/qfile.h"
#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "render/dglobal.h"
#include "render/dtexture.h"
#include "toolkit/qapp.h"
#include "toolkit/qglcontext.h"

#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace tarvik {

namespace {

// A stream is read in slices of this many bytes: few enough to stay in the cache between the read
// and the flip, enough to keep the reads few.
const int SLICE_BYTES = 256 * 1024;

// Reads forward through the header; past its end every number is 0, so a header cut short reads
// as a file of no known format, or of levels that the file has no bytes for.
struct Cursor {
    const uint8_t* p;
    const uint8_t* end;

    void Skip(long n) { p = end - p < n ? end : p + n; }
    uint32_t U32()
    {
        if (end - p < 4) { p = end; return 0; }
        uint32_t v = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
        p += 4;
        return v;
    }
};

// Block halves as little-endian numbers, whatever the machine's order.
inline uint64_t LoadLE64(const uint8_t* p)
{
    uint64_t v;
    std::memcpy(&v, p, 8);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap64(v);
#endif
    return v;
}

inline void StoreLE64(uint8_t* p, uint64_t v)
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap64(v);
#endif
    std::memcpy(p, &v, 8);
}

// Colours in bytes 0-3 stay; bytes 4-7 hold one byte of 2-bit indices per pixel row, top row first.
inline uint64_t FlipColour(uint64_t v)
{
    return (v & 0xFFFFFFFF) | uint64_t(__builtin_bswap32(uint32_t(v >> 32))) << 32;
}

// Explicit alpha: one 16-bit word of 4-bit values per pixel row.
inline uint64_t FlipAlphaDXT3(uint64_t v)
{
    return v >> 48 | (v >> 16 & 0xFFFF0000) | (v << 16 & 0xFFFF00000000) | v << 48;
}

// Interpolated alpha: the two ends in bytes 0-1, then four rows of 12 bits (four 3-bit indices
// each) from bit 16 up.
inline uint64_t FlipAlphaDXT5(uint64_t v)
{
    const uint64_t row = 0xFFF;
    return (v & 0xFFFF) | (v >> 52 & row) << 16 | (v >> 40 & row) << 28 | (v >> 28 & row) << 40 |
           (v >> 16 & row) << 52;
}

template <uint32_t Kind> inline uint64_t FlipFirst(uint64_t v)
{
    return Kind == DDDS::FOURCC_DXT1 ? FlipColour(v) : Kind == DDDS::FOURCC_DXT3 ? FlipAlphaDXT3(v) : FlipAlphaDXT5(v);
}

// Two ways to flip a row of 'blocks' blocks. Copy: 'b' becomes 'a' flipped ('a' may be 'b').
// Swap: rows 'a' and 'b' trade places, each flipped ('a' may be 'b').
enum FlipMode { FLIP_COPY, FLIP_SWAP };

template <uint32_t Kind> inline void FlipBlock(const uint8_t* src, uint8_t* dst)
{
    uint64_t first = FlipFirst<Kind>(LoadLE64(src));
    if (Kind != DDDS::FOURCC_DXT1) {
        uint64_t second = FlipColour(LoadLE64(src + 8));
        StoreLE64(dst + 8, second);
    }
    StoreLE64(dst, first);
}

template <uint32_t Kind, int Mode> void FlipRow(uint8_t* a, uint8_t* b, int blocks)
{
    const int size = Kind == DDDS::FOURCC_DXT1 ? 8 : 16;
    uint8_t tmp[16];
    for (int i = 0; i < blocks; i++, a += size, b += size) {
        if (Mode == FLIP_SWAP) {
            FlipBlock<Kind>(a, tmp);
            FlipBlock<Kind>(b, a);
            std::memcpy(b, tmp, size);
        } else {
            FlipBlock<Kind>(a, b);
        }
    }
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define DDS_HAVE_SIMD 1

// The same with 32 bytes at a time, on processors that have AVX2 (asked once at run time): one
// byte shuffle does the byte-aligned part of every kind (colour index rows, DXT3's alpha words,
// and the two 24-bit halves of DXT5's alpha indices); DXT5 then swaps the 12-bit rows inside
// each half with shifts and masks. The rest of a row goes block by block.
template <uint32_t Kind> __attribute__((target("avx2"))) inline __m256i FlipAVX2(__m256i v)
{
    // Two copies of one 16-byte pattern, as 32-bit words (the set functions count from the top).
    const __m256i order =
        Kind == DDDS::FOURCC_DXT1
            ? _mm256_set_epi32(0x0C0D0E0F, 0x0B0A0908, 0x04050607, 0x03020100, 0x0C0D0E0F, 0x0B0A0908, 0x04050607,
                               0x03020100)
        : Kind == DDDS::FOURCC_DXT3
            ? _mm256_set_epi32(0x0C0D0E0F, 0x0B0A0908, 0x01000302, 0x05040706, 0x0C0D0E0F, 0x0B0A0908, 0x01000302,
                               0x05040706)
            : _mm256_set_epi32(0x0C0D0E0F, 0x0B0A0908, 0x04030207, 0x06050100, 0x0C0D0E0F, 0x0B0A0908, 0x04030207,
                               0x06050100);
    v = _mm256_shuffle_epi8(v, order);
    if (Kind != DDDS::FOURCC_DXT5) return v;
    // DXT5, after the shuffle: the alpha word holds two 24-bit halves, each of two 12-bit rows in
    // the wrong order. 'keep' is all but those rows: the alpha ends and the colour half.
    const __m256i low = _mm256_set_epi64x(0, 0x000FFF000FFF0000, 0, 0x000FFF000FFF0000);
    const __m256i high = _mm256_set_epi64x(0, int64_t(0xFFF000FFF0000000), 0, int64_t(0xFFF000FFF0000000));
    const __m256i keep = _mm256_set_epi64x(-1, 0xFFFF, -1, 0xFFFF);
    return _mm256_or_si256(_mm256_and_si256(v, keep), _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi64(v, 12), low),
                                                                      _mm256_and_si256(_mm256_slli_epi64(v, 12), high)));
}

template <uint32_t Kind, int Mode> __attribute__((target("avx2"))) void FlipRowAVX2(uint8_t* a, uint8_t* b, int blocks)
{
    const int perVector = Kind == DDDS::FOURCC_DXT1 ? 4 : 2;
    int i = 0;
    for (; i + perVector <= blocks; i += perVector, a += 32, b += 32) {
        __m256i va = FlipAVX2<Kind>(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(a)));
        if (Mode == FLIP_SWAP)
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(a),
                                FlipAVX2<Kind>(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(b))));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(b), va);
    }
    FlipRow<Kind, Mode>(a, b, blocks - i);
}

// With AVX-512 64 bytes at a time, and the masks' selections in one ternary logic step each.
template <uint32_t Kind> __attribute__((target("avx512f,avx512bw"))) inline __m512i FlipAVX512(__m512i v)
{
    const __m512i order =
        Kind == DDDS::FOURCC_DXT1
            ? _mm512_set4_epi32(0x0C0D0E0F, 0x0B0A0908, 0x04050607, 0x03020100)
        : Kind == DDDS::FOURCC_DXT3 ? _mm512_set4_epi32(0x0C0D0E0F, 0x0B0A0908, 0x01000302, 0x05040706)
                                    : _mm512_set4_epi32(0x0C0D0E0F, 0x0B0A0908, 0x04030207, 0x06050100);
    v = _mm512_shuffle_epi8(v, order);
    if (Kind != DDDS::FOURCC_DXT5) return v;
    // The 12-bit rows that come from above (shifted right); the others come from below, but for
    // 'keep', which stays. 0xCA: first operand ? second : third, bit by bit. The zero-masked
    // shifts are the plain ones; the unmasked forms trip a compiler warning in their header.
    const __m512i low = _mm512_set4_epi64(0, 0x000FFF000FFF0000, 0, 0x000FFF000FFF0000);
    const __m512i keep = _mm512_set4_epi64(-1, 0xFFFF, -1, 0xFFFF);
    __m512i rows = _mm512_ternarylogic_epi64(low, _mm512_maskz_srli_epi64(0xFF, v, 12),
                                             _mm512_maskz_slli_epi64(0xFF, v, 12), 0xCA);
    return _mm512_ternarylogic_epi64(keep, v, rows, 0xCA);
}

template <uint32_t Kind, int Mode>
__attribute__((target("avx512f,avx512bw"))) void FlipRowAVX512(uint8_t* a, uint8_t* b, int blocks)
{
    const int size = Kind == DDDS::FOURCC_DXT1 ? 8 : 16;
    const int perVector = 64 / size;
    int i = 0;
    if (Mode == FLIP_COPY && a != b) {
        // A copy goes past the cache in whole lines: the level is not read again before the
        // upload, and a plain store would first fetch every line it fills.
        for (; i < blocks && (reinterpret_cast<uintptr_t>(b) & 63); i++, a += size, b += size) FlipRow<Kind, Mode>(a, b, 1);
        for (; i + perVector <= blocks; i += perVector, a += 64, b += 64)
            _mm512_stream_si512(reinterpret_cast<__m512i*>(b), FlipAVX512<Kind>(_mm512_loadu_si512(a)));
    }
    for (; i + perVector <= blocks; i += perVector, a += 64, b += 64) {
        __m512i va = FlipAVX512<Kind>(_mm512_loadu_si512(a));
        if (Mode == FLIP_SWAP) _mm512_storeu_si512(a, FlipAVX512<Kind>(_mm512_loadu_si512(b)));
        _mm512_storeu_si512(b, va);
    }
    FlipRowAVX2<Kind, Mode>(a, b, blocks - i);
}

// The widest of the three that the processor has, asked once.
enum { FLIP_SCALAR, FLIP_AVX2, FLIP_AVX512 };
int FlipWidth()
{
    static const int width = __builtin_cpu_supports("avx512bw") ? FLIP_AVX512
                             : __builtin_cpu_supports("avx2")   ? FLIP_AVX2
                                                                : FLIP_SCALAR;
    return width;
}
#endif

template <uint32_t Kind, int Mode> void FlipRowAny(uint8_t* a, uint8_t* b, int blocks)
{
#ifdef DDS_HAVE_SIMD
    if (FlipWidth() == FLIP_AVX512) return FlipRowAVX512<Kind, Mode>(a, b, blocks);
    if (FlipWidth() == FLIP_AVX2) return FlipRowAVX2<Kind, Mode>(a, b, blocks);
#endif
    FlipRow<Kind, Mode>(a, b, blocks);
}

// 'rows' block rows of 'rowBytes' bytes from 'src' to 'dst' in reverse order, every block
// flipped; with 'src' equal to 'dst' in place.
template <uint32_t Kind> void FlipRows(const uint8_t* src, uint8_t* dst, int rows, int rowBytes, int blocks)
{
    uint8_t* from = const_cast<uint8_t*>(src); // only read unless it is 'dst'
    if (src == dst) {
        for (int i = 0, j = rows - 1; i <= j; i++, j--)
            FlipRowAny<Kind, FLIP_SWAP>(dst + long(i) * rowBytes, dst + long(j) * rowBytes, blocks);
    } else {
        for (int i = 0; i < rows; i++)
            FlipRowAny<Kind, FLIP_COPY>(from + long(i) * rowBytes, dst + long(rows - 1 - i) * rowBytes, blocks);
    }
#ifdef DDS_HAVE_SIMD
    _mm_sfence(); // stores that went past the cache are done before anyone reads the level
#endif
}

void FlipRowsOf(uint32_t fourCC, const uint8_t* src, uint8_t* dst, int rows, int rowBytes, int blocks)
{
    switch (fourCC) {
    case DDDS::FOURCC_DXT1: FlipRows<DDDS::FOURCC_DXT1>(src, dst, rows, rowBytes, blocks); break;
    case DDDS::FOURCC_DXT3: FlipRows<DDDS::FOURCC_DXT3>(src, dst, rows, rowBytes, blocks); break;
    default: FlipRows<DDDS::FOURCC_DXT5>(src, dst, rows, rowBytes, blocks); break;
    }
}

// Blue, green, red, alpha to red, green, blue, alpha; 'src' may be 'dst'.
void SwapRedBlue(const uint8_t* src, uint8_t* dst, int bytes)
{
    for (int i = 0; i < bytes; i += 4) {
        uint8_t b = src[i], r = src[i + 2];
        dst[i] = r, dst[i + 1] = src[i + 1], dst[i + 2] = b, dst[i + 3] = src[i + 3];
    }
}

// Halved 'level' times, a zero counting as 1: the size of a level.
uint32_t LevelDim(uint32_t d, int level)
{
    d >>= level;
    return d ? d : 1;
}

uint64_t MulSat(uint64_t a, uint64_t b)
{
    uint64_t r;
    return __builtin_mul_overflow(a, b, &r) ? UINT64_MAX : r;
}

} // namespace

DDDS::DDDS() : wid(0), hgt(0), mipmaps(0), format(0), internalFormat(0), word(0), blockSize(0)
{
    for (int i = 0; i < MAX_LEVELS; i++) pixels[i] = nullptr, sizes[i] = 0;
}

DDDS::~DDDS()
{
    Free();
}

void DDDS::Free()
{
    for (int i = 0; i < MAX_LEVELS; i++) {
        if (pixels[i]) qfree(pixels[i]);
        pixels[i] = nullptr;
        sizes[i] = 0;
    }
}

uint64_t DDDS::LevelBytes(uint32_t w, uint32_t h, int fmt, int block)
{
    if (!w) w = 1;
    if (!h) h = 1;
    if (fmt == DDS_FORMAT_RGBA) return MulSat(MulSat(w, h), 4);
    return MulSat(MulSat((uint64_t(w) + 3) / 4, (uint64_t(h) + 3) / 4), uint64_t(block));
}

void DDDS::FlipBlocks(uint8_t* blocks, int count, uint32_t fourCC)
{
    FlipRowsOf(fourCC, blocks, blocks, 1, count * (fourCC == FOURCC_DXT1 ? 8 : 16), count);
}

bool DDDS::Load(const char* name)
{
    // Only an application has archives to look into; without one there is no file system to ask.
    if (!app || !name) return false;
    QVirtualFileSystem plain; // no archives: plain files only
    QVirtualFileSystem* vfs = app->GetFileSystem() ? app->GetFileSystem() : &plain;
    // A plain stream, not a preloaded block: the levels are read straight into their own blocks,
    // where a preload would copy every byte twice. Archive members come as blocks all the same.
    QFile* file = vfs->OpenFile(name, QFile::READ);
    if (!file) return false;
    bool ok = file->IsOpen() && LoadFile(name, file);
    delete file;
    return ok;
}

bool DDDS::LoadMemory(const char* name, const void* data, int size)
{
    QFile file(name, const_cast<void*>(data), size); // only read; the block stays the caller's
    return LoadFile(name, &file);
}

bool DDDS::LoadFile(const char* name, QFile* file)
{
    Free();
    format = 0;
    internalFormat = 0;
    uint8_t header[HEADER_SIZE];
    int got = file->Read(header, HEADER_SIZE);
    Cursor c{header, header + (got > 0 ? got : 0)};
    if (c.U32() != MAGIC) return false;

    c.Skip(8); // dwSize, dwFlags
    uint32_t fileHgt = c.U32();
    uint32_t fileWid = c.U32();
    c.Skip(8); // pitch, depth
    int32_t fileMips = int32_t(c.U32());
    c.Skip(48);
    uint32_t pfFlags = c.U32();
    uint32_t fourCC = c.U32();
    uint32_t bitCount = c.U32();
    wid = int32_t(fileWid);
    hgt = int32_t(fileHgt);
    mipmaps = fileMips;
    blockSize = 16;

    if (!(pfFlags & DDPF_FOURCC)) {
        if (bitCount != 32) {
            QWARNING("DDDS:Load(%s); unknown DDS format (rgb bitcount not 32, not DXT5)", name);
            return false;
        }
        format = DDS_FORMAT_RGBA;
        QWARNING("DDDS:Load(%s); DDS format might be unreliable, pls use DXT5.", name);
    } else {
        DGlobal* global = d3PeekDGlobal();
        bool linear = !global || global->linearColor != 0;
        format = DDS_FORMAT_YCOCG;
        switch (fourCC) {
        case FOURCC_DXT1:
            blockSize = 8;
            internalFormat = linear ? GL_COMPRESSED_RGBA_S3TC_DXT1_EXT : GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT1_EXT;
            break;
        case FOURCC_DXT3:
            internalFormat = linear ? GL_COMPRESSED_RGBA_S3TC_DXT3_EXT : GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT3_EXT;
            break;
        case FOURCC_DXT5:
            internalFormat = linear ? GL_COMPRESSED_RGBA_S3TC_DXT5_EXT : GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT5_EXT;
            break;
        default: {
            char code[5] = {char(fourCC), char(fourCC >> 8), char(fourCC >> 16), char(fourCC >> 24), 0};
            QWARNING("DDDS:Load(%s); unknown compressed format (%s)", name, code);
            return false;
        }
        }
    }
    if (mipmaps < 1) return true;

    // Every level the file names must be behind the header before the first is allocated: a few
    // bytes claiming 65535x65535 with 16 levels are refused here, not by running out of memory.
    int levels = mipmaps < MAX_LEVELS ? mipmaps : MAX_LEVELS;
    long here = file->Tell();
    long total = file->Size();
    uint64_t left = got == HEADER_SIZE && total > here ? uint64_t(total - here) : 0;
    uint64_t need = 0;
    for (int level = 0; level < levels; level++) {
        uint64_t bytes = LevelBytes(LevelDim(fileWid, level), LevelDim(fileHgt, level), format, blockSize);
        need = bytes > left - need ? left + 1 : need + bytes; // no overflow: 'need' stays within 'left'
        if (need > left) {
            QWARNING("DDDS:Load(%s); file too short for mipmap level %d", name, level);
            return false;
        }
        if (bytes > uint64_t(INT32_MAX)) { // a file of gigabytes: 'sizes' are 32-bit
            QERROR("DDDS:Load(%s); out of memory for mipmap level %d", name, level);
            return false;
        }
    }

    return ReadLevels(name, file, levels, fourCC);
}

bool DDDS::ReadLevels(const char* name, QFile* file, int levels, uint32_t fourCC)
{
    for (int level = 0; level < levels; level++) {
        int w = int(LevelDim(uint32_t(wid), level)), h = int(LevelDim(uint32_t(hgt), level));
        int size = int(LevelBytes(uint32_t(w), uint32_t(h), format, blockSize));
        sizes[level] = size;
        pixels[level] = static_cast<uint8_t*>(qmalloc(size_t(size)));
        if (!pixels[level]) {
            QERROR("DDDS:Load(%s); out of memory for mipmap level %d", name, level);
            return false;
        }
        bool read = format == DDS_FORMAT_RGBA ? ReadRGBA(file, pixels[level], size)
                                              : ReadCompressed(file, pixels[level], w, h, fourCC);
        if (!read) { // the file shrank since its size was asked
            QWARNING("DDDS:Load(%s); file too short for mipmap level %d", name, level);
            return false;
        }
    }
    return true;
}

// Block rows go to the level last to first, each block flipped. A file in memory is flipped
// straight from its block. A stream is read in slices, each to where it ends up, and reversed and
// flipped there while it is still in the cache.
bool DDDS::ReadCompressed(QFile* file, uint8_t* level, int w, int h, uint32_t fourCC)
{
    int blocks = (w + 3) / 4, rows = (h + 3) / 4;
    int rowBytes = blocks * blockSize;
    if (const uint8_t* mem = file->GetMemory()) {
        long at = file->Tell();
        if (file->Size() - at < long(rows) * rowBytes) return false;
        FlipRowsOf(fourCC, mem + at, level, rows, rowBytes, blocks);
        return file->Seek(long(rows) * rowBytes, QFile::SEEK_FROM_HERE);
    }
    int sliceRows = SLICE_BYTES / rowBytes > 0 ? SLICE_BYTES / rowBytes : 1;
    for (int r = 0; r < rows;) {
        int n = rows - r < sliceRows ? rows - r : sliceRows;
        uint8_t* slice = level + long(rows - r - n) * rowBytes;
        if (file->Read(slice, n * rowBytes) != n * rowBytes) return false;
        FlipRowsOf(fourCC, slice, slice, n, rowBytes, blocks);
        r += n;
    }
    return true;
}

// The rows keep their order.
bool DDDS::ReadRGBA(QFile* file, uint8_t* level, int size)
{
    if (const uint8_t* mem = file->GetMemory()) {
        long at = file->Tell();
        if (file->Size() - at < size) return false;
        SwapRedBlue(mem + at, level, size);
        return file->Seek(size, QFile::SEEK_FROM_HERE);
    }
    if (file->Read(level, size) != size) return false;
    SwapRedBlue(level, level, size);
    return true;
}

DTexture* DDDS::CreateTexture()
{
    DTexture* tex = new DTexture();
    tex->SetSize(wid, hgt);
    tex->EnableMipmap(true);
    tex->DisableCompression();
    tex->SetInternalFormat(GL_RGBA);
    tex->CreateTexture();
    // The texture talks to OpenGL only with the flag and a current context; it has neither here.
    if (!(d3GetDGlobal()->flags & D3_USE_OPENGL) || !tex->GetGLContext()) return tex;

    tex->Select();
    int levels = mipmaps < MAX_LEVELS ? mipmaps : MAX_LEVELS;
    if (mipmaps > 0) tex->SetLevels(0, levels - 1);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    for (int level = 0; level < levels; level++) {
        if (!pixels[level]) {
            QWARNING("DDDS:CreateTexture(); missing pixels for mipmap level %d", level);
            continue;
        }
        GLsizei w = GLsizei(LevelDim(uint32_t(wid), level)), h = GLsizei(LevelDim(uint32_t(hgt), level));
        if (format == DDS_FORMAT_RGBA) {
            glTexImage2D(GL_TEXTURE_2D, level, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels[level]);
            continue;
        }
        // Without the entry point the level stays empty, which the question below reports.
        if (gll::glCompressedTexImage2D)
            gll::glCompressedTexImage2D(GL_TEXTURE_2D, level, internalFormat, w, h, 0, sizes[level], pixels[level]);
        QShowGLErrors("DDDS:CreateTexture()");
        GLint compressed = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_COMPRESSED, &compressed);
        if (!compressed) QWARNING("DDDS:CreateTexture(); mipmap level %d indicated compression failed", level);
    }
    return tex;
}

} // namespace tarvik
