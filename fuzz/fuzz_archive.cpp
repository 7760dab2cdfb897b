// The archive reader on any bytes, in memory: open the container, walk its directory, load every
// member, and expand the first through FindEntry, into memory and into a stream. Nothing touches
// the file system per input.
#include "fuzz/fuzz.h"

#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qstring.h"
#include "images/qarchive.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzSetup();
    // A member may claim 800 times the bytes behind it: a megabyte of input keeps that in bounds.
    if (size > (1u << 20)) return 0;
    QArchive archive;
    if (!archive.OpenMemory("fuzz.arc", data, size)) return 0;

    // LoadFile restarts the walk, so the names are taken first.
    std::vector<std::string> names;
    qstring entry;
    int offset, entrySize;
    while (archive.GetNextEntry(entry, &offset, &entrySize) && names.size() < 64)
        names.push_back(entry.cstr());

    for (const std::string& member : names) {
        void* memory = nullptr;
        int loaded = 0;
        if (archive.LoadFile(member.c_str(), &memory, &loaded)) {
            // Every byte read once: a block shorter than its size shows under the sanitizers.
            const uint8_t* p = static_cast<const uint8_t*>(memory);
            unsigned sum = 0;
            for (int k = 0; k < loaded; k++)
                sum += p[k];
            if (sum == 0xFFFFFFFFu) std::abort();
        }
        if (memory) qfree(memory);
    }
    if (!names.empty()) {
        if (QFile* file = archive.OpenFile(names[0].c_str())) delete file;
        std::vector<uint8_t> block(4096);
        int expanded = 0;
        if (archive.FindEntry(names[0].c_str(), true))
            archive.DecompressFile("fuzz.out", QARCHIVE_NO_OUTPUT_FILE, &expanded, block.data(),
                                   int(block.size()));
        // The command's way: into a stream it opened, the size checked before the file is kept.
        static FILE* sink = std::fopen("/dev/null", "wb");
        if (sink && archive.FindEntry(names[0].c_str(), true)) archive.DecompressToStream(sink, "fuzz.out", &expanded);
    }
    return 0;
}
