// QPSD: the layers of a layered paint file, composed into a QBitMap.
//
// Only RGB files of 8 bits a channel, version 1, are read. The merged picture that such a file also
// carries is never read: the result is what the visible layers add up to, painted bottom to top.
// Blend modes, layer opacity and layer masks are logged, not applied. Every header field is logged
// as it is read, so the log of one load is a full account of the file.
//
// The file's lengths and counts are taken as claims. Sides are capped and weighed against the file
// before any pixel exists, a channel plane gets only the rows the rest of the file could fill (the
// rows beyond read as zero), and no read or write leaves the file's block, a plane or the bitmap.
// Layers whose planes the rest of the file could not hold even at the best packing are left out,
// so that composing them costs no more than the file's size allows.
// A QPSD is short-lived: made, rendered and deleted by QImage's PSD reader.
#pragma once

#include <cstdint>

namespace tarvik {

class QBitMap;
class QFile;

enum {
    QPSD_MAX_LAYERS = 50,    // layers beyond these are read past and left out
    QPSD_MAX_CHANNELS = 24,  // a layer with more is refused
    QPSD_MAX_CANVAS = 16384, // widest and highest canvas, as for the other readers
    QPSD_MAX_LAYER_SIDE = 30000, // the format's own limit; a layer may stand partly off the canvas
    QPSD_LAYER_HIDDEN = 2,   // bit of QPSDLayer::flags
};

struct QPSDChannel {
    int16_t id;     // 0 red, 1 green, 2 blue, -1 transparency; others (the mask, -2) are not painted
    int32_t length; // bytes of channel data in the file; logged only
};

// One layer record and its planes. Starts all zero.
struct QPSDLayer {
    int32_t top, left, bottom, right; // the layer's rectangle on the canvas
    int16_t channels;
    QPSDChannel channel[QPSD_MAX_CHANNELS];
    char blendKey[4];  // logged, not applied
    uint8_t opacity;   // not applied
    uint8_t clipping;  // not applied
    uint8_t flags;     // QPSD_LAYER_HIDDEN
    uint8_t filler;
    int32_t extraSize; // bytes of the record behind its flags
    int32_t maskTop, maskLeft, maskBottom, maskRight; // not applied
    uint8_t maskColor;
    uint8_t maskFlags;
    char name[258];    // zero-terminated
    // One plane of (bottom-top)*(right-left) bytes per channel, owned, or null for an empty plane.
    // Only the first imageRows[c] rows of a plane exist: rows the file could not fill read as zero.
    uint8_t* imageData[QPSD_MAX_CHANNELS];
    int32_t imageRows[QPSD_MAX_CHANNELS];
};

class QPSD {
public:
    explicit QPSD(const char* fileName); // loads the file if it opens; null loads nothing
    ~QPSD();
    QPSD(const QPSD&) = delete;
    QPSD& operator=(const QPSD&) = delete;

    // Reads the whole file. False after a refused header, layer mask or layer size: the header
    // fields keep what was read, no layers are kept, and a canvas refused for its size leaves
    // rows and columns at 0.
    bool Load(QFile& file);
    // Paints the visible layers into a 32-bit bitmap of columns x rows, cleared first.
    void Render(QBitMap* bitmap);

    int GetRows() const { return rows; }
    int GetColumns() const { return columns; }
    int GetLayerCount() const { return layers; }           // layers held, at most QPSD_MAX_LAYERS
    const QPSDLayer* GetLayer(int index) const;            // null outside 0..GetLayerCount()-1

private:
    bool LoadParts(QFile& file);
    bool ReadLayerRecord(QFile& file, int index, QPSDLayer* l);
    bool ReadPlane(QFile& file, int index, int c, QPSDLayer* l);
    void FreeLayers(int from = 0); // those from 'from' on

    char sig[4];
    uint16_t version;
    uint16_t channels; // of the merged picture; logged only
    int32_t rows;      // canvas height
    int32_t columns;   // canvas width
    uint16_t depth;    // bits per channel
    uint16_t mode;     // colour mode; 3 is RGB
    int32_t layers;    // layers in 'layer'
    QPSDLayer* layer[QPSD_MAX_LAYERS]; // owned, from qcalloc
};

} // namespace tarvik
