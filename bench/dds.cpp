// DDS loading against the floor: a 4096x4096 DXT5 file with its full chain of 13 mipmap levels
// (22 369 776 bytes of blocks) is loaded and flipped by DDDS::Load, and the same file is read with
// one fread into one block, allocated for the read and freed after it as the loader's levels are,
// which no loader can beat. A third road preloads the file into memory
// and loads from there, as a file opened with QFile's MEMORY mode would be.
//   dds_bench <folder> [loads]        (loads per road, default 20; the best of each road counts)
// The file is written into <folder> first and read from the page cache. One line out:
// "dds 4096x4096 DXT5, 13 levels: fread <ms> ms, load <ms> ms (<ratio>x), preload <ms> ms (<ratio>x)".
#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "render/dds.h"
#include "toolkit/qapp.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace tarvik;

static double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

static void Put32(std::vector<uint8_t>& v, size_t at, uint32_t x)
{
    for (int i = 0; i < 4; i++) v[at + i] = uint8_t(x >> (8 * i));
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: dds_bench <folder> [loads]\n");
        return 2;
    }
    int runs = argc > 2 ? std::atoi(argv[2]) : 20;
    if (runs < 1) runs = 1;
    qmsgSetLogFile(false);

    const int side = 4096;
    int levels = 0;
    size_t bytes = 0;
    for (int s = side; s >= 1; s /= 2, levels++) bytes += size_t((s + 3) / 4) * size_t((s + 3) / 4) * 16;
    std::vector<uint8_t> file(DDDS::HEADER_SIZE + bytes);
    uint32_t seed = 12345;
    for (size_t i = DDDS::HEADER_SIZE; i < file.size(); i++) seed = seed * 1664525 + 1013904223, file[i] = uint8_t(seed >> 24);
    Put32(file, 0, DDDS::MAGIC);
    Put32(file, 4, 124);
    Put32(file, 12, side);
    Put32(file, 16, side);
    Put32(file, 28, uint32_t(levels));
    Put32(file, 76, 32);
    Put32(file, 80, DDDS::DDPF_FOURCC);
    Put32(file, 84, DDDS::FOURCC_DXT5);
    std::string path = std::string(argv[1]) + "/bench.dds";
    FILE* out = std::fopen(path.c_str(), "wb");
    if (!out || std::fwrite(file.data(), 1, file.size(), out) != file.size() || std::fclose(out) != 0) {
        std::fprintf(stderr, "dds_bench: can't write %s\n", path.c_str());
        return 1;
    }

    new QApp("dds_bench"); // Load reads through the application's file system
    double floorBest = 1e9, loadBest = 1e9, preloadBest = 1e9;
    long sink = 0;
    for (int run = 0; run < runs; run++) {
        double t0 = Now();
        uint8_t* block = static_cast<uint8_t*>(qmalloc(file.size()));
        FILE* in = std::fopen(path.c_str(), "rb");
        size_t got = in ? std::fread(block, 1, file.size(), in) : 0;
        if (in) std::fclose(in);
        sink += block[got / 2];
        qfree(block);
        double t1 = Now();
        DDDS* dds = new DDDS();
        bool ok = dds->Load(path.c_str());
        sink += ok ? dds->GetPixels(0)[7] : 0;
        delete dds;
        double t2 = Now();
        QFile* pre = new QFile(path.c_str(), QFile::READ | QFile::MEMORY);
        dds = new DDDS();
        ok = ok && dds->LoadMemory(path.c_str(), pre->GetMemory(), pre->GetMemorySize());
        sink += ok ? dds->GetPixels(0)[7] : 0;
        delete dds;
        delete pre;
        double t3 = Now();
        if (!ok || got != file.size()) {
            std::fprintf(stderr, "dds_bench: reading %s failed\n", path.c_str());
            return 1;
        }
        floorBest = std::min(floorBest, t1 - t0);
        loadBest = std::min(loadBest, t2 - t1);
        preloadBest = std::min(preloadBest, t3 - t2);
    }
    delete app;
    std::printf("dds %dx%d DXT5, %d levels: fread %.2f ms, load %.2f ms (%.2fx), preload %.2f ms (%.2fx)%s\n",
                side, side, levels, floorBest * 1e3, loadBest * 1e3, loadBest / floorBest, preloadBest * 1e3,
                preloadBest / floorBest, sink == -1 ? " " : "");
    return 0;
}
