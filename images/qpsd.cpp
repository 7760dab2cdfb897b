// The layered paint file: header, layer records, channel planes, and their composition.
//
// The file is read in its own order through QFile, whose reads stop at the end of the data and
// yield zeros beyond it; a short file therefore leaves planes partly zero, as if painted black and
// transparent. All numbers in the file are big-endian.
#include "images/qpsd.h"

#include "images/qbitmap.h"

#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <cstring>

namespace tarvik {

namespace {

enum { PSD_MODE_RGB = 3, PSD_MASK_RECORD = 20 };

// A canvas with no merged picture behind it is unusual, and a merged picture in run-length rows
// takes at least a byte for every 21 or so pixels of the canvas. A claim beyond this many pixels a
// byte, with room for a small canvas over a tiny file, is no canvas the file can describe.
const long long maxPixelsPerByte = 128;
const long long smallCanvasPixels = 1 << 20;

uint16_t Word(QFile& f)
{
    uint16_t v = 0;
    f.ReadBE16(&v);
    return v;
}

int32_t Long(QFile& f)
{
    uint32_t v = 0;
    f.ReadBE32(&v);
    return int32_t(v);
}

uint8_t Byte(QFile& f)
{
    uint8_t v = 0;
    f.Read(&v, 1);
    return v;
}

// Four bytes of the file as text for the log.
struct Tag {
    char text[5];
    explicit Tag(const char* four) { std::memcpy(text, four, 4); text[4] = 0; }
};

// The fewest bytes that can fill a layer's planes: each its compression word, and rows verbatim or
// as run-length rows, a count word each and a two-byte packet for every 129 bytes.
long long LeastBytes(const QPSDLayer& l)
{
    const long long h = (long long)l.bottom - l.top, w = (long long)l.right - l.left;
    const long long verbatim = h * w, packed = 2 * h + 2 * h * ((w + 128) / 129);
    return l.channels * (2 + (verbatim == 0 ? 0 : verbatim < packed ? verbatim : packed));
}

long BytesLeft(QFile& f, long size)
{
    long here = f.Tell();
    return here < size ? size - here : 0;
}

// Expands one run-length row of 'width' bytes. A packet that runs past the row's end is consumed
// whole and its surplus dropped, so that it never spills into the next row or out of the plane.
// False once the data has ended.
bool ExpandRow(QFile& f, uint8_t* row, int width)
{
    int x = 0;
    while (x < width) {
        uint8_t n;
        if (f.Read(&n, 1) != 1) return false;
        if (n < 0x80) {
            int count = n + 1;
            int take = count < width - x ? count : width - x;
            if (f.Read(row + x, take) != take) return false;
            if (count > take) f.Seek(count - take, QFile::SEEK_FROM_HERE);
            x += take;
        } else {
            // 0xFF repeats twice, 0x81 128 times, and 0x80 is no exception: 129 times.
            int count = (~n & 0x7F) + 2;
            uint8_t v;
            if (f.Read(&v, 1) != 1) return false;
            int take = count < width - x ? count : width - x;
            std::memset(row + x, v, size_t(take));
            x += take;
        }
    }
    return true;
}

} // namespace

QPSD::QPSD(const char* fileName)
    : version(0), channels(0), rows(0), columns(0), depth(0), mode(0), layers(0)
{
    std::memset(sig, 0, sizeof sig);
    std::memset(layer, 0, sizeof layer);
    if (!fileName) return;
    QFile file(fileName, QFile::READ | QFile::MEMORY);
    if (file.IsOpen()) Load(file);
}

QPSD::~QPSD() { FreeLayers(); }

void QPSD::FreeLayers(int from)
{
    for (int i = from; i < QPSD_MAX_LAYERS; i++) {
        QPSDLayer* l = layer[i];
        if (!l) continue;
        for (int c = 0; c < QPSD_MAX_CHANNELS; c++)
            if (l->imageData[c]) qfree(l->imageData[c]);
        qfree(l);
        layer[i] = nullptr;
    }
    if (layers > from) layers = from;
}

const QPSDLayer* QPSD::GetLayer(int index) const
{
    return index >= 0 && index < layers ? layer[index] : nullptr;
}

bool QPSD::Load(QFile& file)
{
    FreeLayers();
    // A refused file keeps its header fields but no layers: nothing of it is painted.
    if (LoadParts(file)) return true;
    FreeLayers();
    return false;
}

bool QPSD::LoadParts(QFile& file)
{
    const long fileSize = file.Size();

    std::memset(sig, 0, sizeof sig);
    file.Read(sig, 4);
    version = Word(file);
    file.Seek(6, QFile::SEEK_FROM_HERE); // reserved
    channels = Word(file);
    rows = Long(file);
    columns = Long(file);
    depth = Word(file);
    mode = Word(file);
    QINFO("hdr: size=%dx%d\n", columns, rows);
    QINFO("sig: %s, version %d\n", Tag(sig).text, version);
    QINFO("Mode=%d, channels=%d, depth %d\n", mode, channels, depth);

    // A canvas the bitmap may be made of. A refused header still leaves its size to the caller,
    // who makes a blank picture of it, so an absurd size must not survive a refusal either.
    const long long pixels = (long long)rows * columns;
    const bool inBounds = rows >= 0 && columns >= 0 && rows <= QPSD_MAX_CANVAS && columns <= QPSD_MAX_CANVAS;
    const bool held = pixels <= maxPixelsPerByte * fileSize + smallCanvasPixels;
    const int gotRows = rows, gotColumns = columns;
    if (!inBounds || !held) rows = columns = 0;

    if (std::memcmp(sig, "8BPS", 4) != 0) {
        QWARNING("Not a PSD file");
        return false;
    }
    if (version != 1) {
        QWARNING("PSD version not 1");
        return false;
    }
    if (depth != 8) {
        QWARNING("PSD has no 8-bit/channel (depth)");
        return false;
    }
    if (mode != PSD_MODE_RGB) {
        QWARNING("PSD not RGB");
        return false;
    }
    if (!inBounds) {
        QWARNING("PSD size %dx%d out of bounds (max %dx%d)", gotColumns, gotRows, QPSD_MAX_CANVAS, QPSD_MAX_CANVAS);
        return false;
    }
    if (!held) {
        QWARNING("PSD size %dx%d is more than the file holds", gotColumns, gotRows);
        return false;
    }

    file.Seek(long(uint32_t(Long(file))), QFile::SEEK_FROM_HERE); // colour mode data
    file.Seek(long(uint32_t(Long(file))), QFile::SEEK_FROM_HERE); // image resources

    // A file without layers has an empty layer and mask section, or an empty layer information in
    // it; the count word is then absent, and what follows is the merged picture, not a count.
    const uint32_t sectionSize = uint32_t(Long(file));
    const uint32_t infoSize = sectionSize ? uint32_t(Long(file)) : 0;
    const int16_t count = infoSize ? int16_t(Word(file)) : 0;
    QINFO("Layers=%d\n", count);
    // A negative count says that the first alpha channel is the merged picture's transparency.
    const int total = count < 0 ? -count : count;
    if (total > QPSD_MAX_LAYERS)
        QWARNING("PSD has %d layers; only the first %d are read", total, QPSD_MAX_LAYERS);

    QPSDLayer* spare = nullptr; // the records past the table are read into this one and dropped
    long spareStart = -1;
    for (int i = 0; i < total; i++) {
        QPSDLayer* l;
        if (i < QPSD_MAX_LAYERS) {
            l = static_cast<QPSDLayer*>(qcalloc(sizeof(QPSDLayer)));
            if (!l) {
                QWARNING("QPSD::Load(); no memory for layer %d", i);
                return false;
            }
            layer[i] = l;
            layers = i + 1;
        } else {
            // Records past the end of the data are all zero and dropped anyway, and a record that
            // leads back to itself or before would be read again and again: the rest is not read.
            if (file.Tell() >= fileSize || file.Tell() <= spareStart) break;
            spareStart = file.Tell();
            if (!spare) spare = static_cast<QPSDLayer*>(qcalloc(sizeof(QPSDLayer)));
            if (!spare) {
                QWARNING("QPSD::Load(); no memory for layer %d", i);
                return false;
            }
            std::memset(spare, 0, sizeof *spare);
            l = spare;
        }
        if (!ReadLayerRecord(file, i, l)) {
            if (spare) qfree(spare);
            return false;
        }
    }
    if (spare) qfree(spare);

    QINFO("Bytecount array: %d high\n", layers > 0 ? layer[0]->bottom - layer[0]->top : 0);
    QINFO("  Image data file loc: 0x%x\n", unsigned(file.Tell()));

    // Render walks every row of every plane, whether the file filled it or not. So the bytes left
    // must be able to hold the planes of each layer read, at the best packing the format has; the
    // first layer they cannot is not read, and neither are those above it. A lost layer is partly
    // lost anyway: its data is not in the file.
    const long long left = BytesLeft(file, fileSize);
    long long promised = 0;
    for (int i = 0; i < layers; i++) {
        promised += LeastBytes(*layer[i]);
        if (promised <= left) continue;
        const QPSDLayer* l = layer[i];
        QWARNING("PSD layer %d of %dx%d in %d channels is more than the file holds; only the first %d layers "
                 "are read", i, l->right - l->left, l->bottom - l->top, l->channels, i);
        FreeLayers(i);
        return true;
    }

    for (int i = 0; i < layers; i++)
        for (int c = 0; c < layer[i]->channels; c++)
            if (!ReadPlane(file, i, c, layer[i])) return false;

    if (sectionSize) file.Seek(long(uint32_t(Long(file))), QFile::SEEK_FROM_HERE); // global layer mask
    return true;
}

bool QPSD::ReadLayerRecord(QFile& file, int index, QPSDLayer* l)
{
    l->top = Long(file);
    l->left = Long(file);
    l->bottom = Long(file);
    l->right = Long(file);
    l->channels = int16_t(Word(file));
    QINFO("layer %d: top %d, left %d, bottom %d, right %d, %d chns\n", index, l->top, l->left, l->bottom, l->right,
          l->channels);
    if (l->channels < 0 || l->channels > QPSD_MAX_CHANNELS) {
        QWARNING("PSD layer %d has %d channels (max %d)", index, l->channels, QPSD_MAX_CHANNELS);
        l->channels = 0;
        return false;
    }
    const long long h = (long long)l->bottom - l->top, w = (long long)l->right - l->left;
    if (h < 0 || w < 0 || h > QPSD_MAX_LAYER_SIDE || w > QPSD_MAX_LAYER_SIDE) {
        QWARNING("PSD layer %d size %lldx%lld out of bounds (max %dx%d)", index, w, h, QPSD_MAX_LAYER_SIDE,
                 QPSD_MAX_LAYER_SIDE);
        l->channels = 0;
        return false;
    }

    for (int c = 0; c < l->channels; c++) {
        l->channel[c].id = int16_t(Word(file));
        l->channel[c].length = Long(file);
        QINFO("  channel %d: id %d, length %d\n", c, l->channel[c].id, l->channel[c].length);
    }

    char blendSig[4];
    file.Read(blendSig, 4); // "8BIM", not examined
    file.Read(l->blendKey, 4);
    QINFO("  blend mode key: %s\n", Tag(l->blendKey).text);
    l->opacity = Byte(file);
    l->clipping = Byte(file);
    l->flags = Byte(file);
    l->filler = Byte(file);
    QINFO((l->flags & QPSD_LAYER_HIDDEN) ? "  layer invisible\n" : "  layer visible\n");

    l->extraSize = Long(file);
    QINFO("Extra data size: %d\n", l->extraSize);
    const long end = file.Tell() + l->extraSize;

    const int32_t maskSize = Long(file);
    QINFO("Layer mask size: %d\n", maskSize);
    if (maskSize == PSD_MASK_RECORD) {
        l->maskTop = Long(file);
        l->maskLeft = Long(file);
        l->maskBottom = Long(file);
        l->maskRight = Long(file);
        l->maskColor = Byte(file);
        l->maskFlags = Byte(file);
        file.Seek(2, QFile::SEEK_FROM_HERE);
    } else if (maskSize != 0) {
        QWARNING("Unsupported layer mask size (%d)", maskSize);
        return false;
    }

    const int32_t rangeSize = Long(file);
    QINFO("Layer blending range size: %d\n", rangeSize);
    file.Seek(rangeSize, QFile::SEEK_FROM_HERE);

    // A signed byte: a length with the top bit set reads as negative, and then as no name. The
    // longest name, 127 bytes, fits the field with its terminator.
    const int nameLen = int8_t(Byte(file));
    QINFO("  Layer name len: %d\n", nameLen);
    int got = nameLen > 0 ? file.Read(l->name, nameLen) : 0;
    l->name[got > 0 ? got : 0] = 0;
    QINFO("  Layer name    : %s\n", l->name);

    // Past the name's padding and whatever adjustment data the record carries.
    file.Seek(end, QFile::SEEK_FROM_START);
    return true;
}

bool QPSD::ReadPlane(QFile& file, int index, int c, QPSDLayer* l)
{
    const int compression = Word(file);
    QINFO("Layer %d, channel %d: compression %d\n", index, c, compression);
    const int h = l->bottom - l->top, w = l->right - l->left; // both within QPSD_MAX_LAYER_SIDE
    const long long size = (long long)h * w;
    if (size == 0) return true;

    // Only the rows that the rest of the file could fill get memory. Verbatim rows need their
    // bytes; a run-length row needs its count word, and a two-byte packet gives at most 129 bytes.
    const long long left = BytesLeft(file, file.Size());
    long long fillable = 0;
    if (compression == 0) {
        fillable = left;
    } else if (compression == 1) {
        long long packets = left - 2LL * h;
        fillable = packets > 0 ? packets / 2 * 129 : 0;
    }
    long long planeRows = (fillable + w - 1) / w;
    if (planeRows > h) planeRows = h;

    if (planeRows > 0) {
        l->imageData[c] = static_cast<uint8_t*>(qcalloc(size_t(planeRows) * size_t(w)));
        if (!l->imageData[c]) {
            QWARNING("QPSD::Load(); no memory for a %dx%d plane of layer %d", w, h, index);
            return false;
        }
        l->imageRows[c] = int32_t(planeRows);
    }
    QINFO("  imageData size: %d\n", int(size));

    uint8_t* plane = l->imageData[c];
    if (compression == 0) {
        if (plane) file.Read(plane, int(planeRows * w));
    } else if (compression == 1) {
        file.Seek(2L * h, QFile::SEEK_FROM_HERE); // the byte count of every row, not needed
        for (long long y = 0; y < planeRows; y++)
            if (!ExpandRow(file, plane + y * w, w)) break;
    }
    return true;
}

void QPSD::Render(QBitMap* bitmap)
{
    if (!bitmap || !bitmap->GetMemory() || bitmap->GetDepth() != 32 || bitmap->GetWidth() != columns ||
        bitmap->GetHeight() != rows) {
        QWARNING("QPSD:Render(); the bitmap is no 32-bit %dx%d canvas", columns, rows);
        return;
    }
    bitmap->Clear();

    for (int i = 0; i < layers; i++) {
        const QPSDLayer* l = layer[i];
        if (l->flags & QPSD_LAYER_HIDDEN) continue;
        QINFO("QPSD:Render() layer %d\n", i);

        // The layer's part on the canvas; the rest of it is skipped on all four sides.
        const int lw = l->right - l->left;
        const int lh = l->bottom - l->top;
        const long long x0 = l->left < 0 ? -(long long)l->left : 0;
        const long long y0 = l->top < 0 ? -(long long)l->top : 0;
        const long long x1 = (long long)columns - l->left < lw ? (long long)columns - l->left : lw;
        const long long y1 = (long long)rows - l->top < lh ? (long long)rows - l->top : lh;

        // The running alpha lives on from pixel to pixel: a transparency channel that stands
        // behind the colours weighs the colours of the next pixel.
        int a = 255;
        if (x0 >= x1 || y0 >= y1) continue;
        for (long long y = y0; y < y1; y++) {
            uint8_t* d = bitmap->GetAddress(int(l->left + x0), int(rows - (l->top + y) - 1));
            for (long long x = x0; x < x1; x++, d += 4) {
                for (int c = 0; c < l->channels; c++) {
                    const uint8_t* plane = l->imageData[c];
                    const int v = plane && y < l->imageRows[c] ? plane[y * lw + x] : 0;
                    const int id = l->channel[c].id;
                    if (id == -1) {
                        a = v;
                        d[3] = uint8_t((d[3] * (255 - a) + v * v) >> 8);
                    } else if (id >= 0 && id <= 2) {
                        // A shift, not a division by 255: opaque 255 comes out as 254.
                        d[id] = uint8_t((v * a + d[id] * (255 - a)) >> 8);
                    }
                }
            }
        }
    }
}

} // namespace tarvik
