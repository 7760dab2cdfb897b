// Inside the image readers: a file read whole into one block.
#pragma once

#include "images/qbytes.h"

#include <cstddef>
#include <cstdint>

namespace tarvik {

enum QImageLoad { QIMAGE_LOAD_OK, QIMAGE_LOAD_MISSING, QIMAGE_LOAD_NO_MEMORY };

// Reads the whole file into a block from qmalloc that the caller frees with qfree. A file of more
// than 2 GB counts as one that cannot be held. An empty file gives a valid block of size 0.
QImageLoad QImageLoadFile(const char* name, uint8_t** data, long* size);

} // namespace tarvik
