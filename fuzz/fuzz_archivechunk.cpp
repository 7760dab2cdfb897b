// The chunk decoder on any bytes, into a block of exactly the size the input asks for, so that a
// byte written past it is caught; and the packer on the same bytes, whose chunks must decode back.
#include "fuzz/fuzz.h"

#include "foundation/qhelpers.h"
#include "images/qarchive.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzSetup();
    if (size < 2) return 0;
    // Two bytes choose the room in the block, 0 to 65535, so that both small blocks and the full
    // MAX_CHUNK are reached; the rest is one chunk, at most as long as the reader takes one.
    int room = data[0] | data[1] << 8;
    if (room > QArchive::MAX_CHUNK) room = room % (QArchive::MAX_CHUNK + 1);
    const uint8_t* chunk = data + 2;
    int n = int(size - 2);
    if (n > QArchive::MAX_CHUNK) n = QArchive::MAX_CHUNK;

    uint8_t* block = static_cast<uint8_t*>(std::malloc(size_t(room)));
    const char* fault = nullptr;
    int length = QArchive::DecompressChunk(chunk, block, n, room, &fault);
    if (length < 0 && !fault) std::abort();
    std::free(block);

    // Round trip: what the packer makes of these bytes decodes to them.
    static QArchiveWriter writer;
    static uint8_t packed[QArchive::MAX_CHUNK];
    static uint8_t back[QArchive::MAX_CHUNK];
    for (int done = 0; done < n;) {
        int consumed = 0;
        int bytes = writer.CompressChunk(chunk + done, n - done, packed, &consumed);
        if (consumed <= 0 || bytes > QArchive::MAX_CHUNK) std::abort();
        int got = QArchive::DecompressChunk(packed, back, bytes, QArchive::MAX_CHUNK);
        if (got != consumed || std::memcmp(back, chunk + done, size_t(consumed)) != 0) {
            std::fprintf(stderr, "packed chunk does not decode to its input\n");
            std::abort();
        }
        done += consumed;
    }
    return 0;
}
