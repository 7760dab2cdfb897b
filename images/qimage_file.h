// Inside the image readers: a file read whole into one block, and bounded little/big-endian access.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarvik {

enum QImageLoad { QIMAGE_LOAD_OK, QIMAGE_LOAD_MISSING, QIMAGE_LOAD_NO_MEMORY };

// Reads the whole file into a block from qmalloc that the caller frees with qfree. A file of more
// than 2 GB counts as one that cannot be held. An empty file gives a valid block of size 0.
QImageLoad QImageLoadFile(const char* name, uint8_t** data, long* size);

inline uint16_t QGetLE16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t QGetLE32(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }
inline uint16_t QGetBE16(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }
inline uint32_t QGetBE32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]); }

} // namespace tarvik
