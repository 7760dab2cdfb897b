// archive_bench: the archive figures of bench/archive.sh.
//
//   archive_bench make <folder> <megabytes>   writes a folder of mixed files: text, binary, random
//   archive_bench expand <archive> [rounds]   loads every member, best of the rounds, and prints MB/s
//
// The folder is the same for the same size on every machine: all bytes come from a fixed generator.
// Text files are telemetry-like logs and tree files; binary files hold float channels, vertex
// tables, pictures with flat areas and zero padding; random files are incompressible.
#include "images/qarchive.h"

#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace tarvik;

namespace {

struct Random {
    uint64_t s;
    uint32_t Next() {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return uint32_t(s >> 16);
    }
    int Below(int n) { return int(Next() % uint32_t(n)); }
    float Unit() { return float(Next() & 0xFFFFFF) / float(0x1000000); }
};

// A vocabulary of made-up words, asked with a skewed distribution as words of real text are.
struct Words {
    std::vector<std::string> list;
    explicit Words(Random& r) {
        static const char* syllables[] = {"ra",  "ke",  "to", "mi", "sa", "lu", "ve", "no", "tar", "vik",
                                          "gen", "dor", "al", "in", "er", "st", "qu", "ph", "ex",  "ion"};
        for (int i = 0; i < 1500; i++) {
            std::string w;
            int n = 1 + r.Below(4);
            for (int k = 0; k < n; k++)
                w += syllables[r.Below(20)];
            list.push_back(w);
        }
    }
    const std::string& Pick(Random& r) {
        float u = r.Unit();
        return list[size_t(float(list.size() - 1) * u * u * u)];
    }
};

void TextFile(std::string& out, size_t size, Random& r, Words& words, bool tree) {
    char line[256];
    int lap = 1;
    while (out.size() < size) {
        if (tree) {
            int depth = r.Below(4);
            out.append(size_t(depth * 2), ' ');
            if (r.Below(5) == 0) {
                out += words.Pick(r) + "\n" + std::string(size_t(depth * 2), ' ') + "{\n";
            } else {
                std::snprintf(line, sizeof line, "%s=%d\n", words.Pick(r).c_str(), r.Below(1000));
                out += line;
            }
        } else {
            if (r.Below(40) == 0) lap++;
            std::snprintf(line, sizeof line, "lap %d t=%.3f speed %.2f km/h gear %d rpm %d %s %s\n", lap,
                          double(out.size()) * 1e-4, 80.0 + 120.0 * double(r.Unit()), 1 + r.Below(6),
                          3000 + r.Below(5000), words.Pick(r).c_str(), words.Pick(r).c_str());
            out += line;
        }
    }
    out.resize(size);
}

void PutFloat(std::string& out, float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, 4);
    for (int k = 0; k < 4; k++)
        out += char(bits >> (8 * k));
}

void BinaryFile(std::string& out, size_t size, Random& r, int kind) {
    while (out.size() < size) {
        if (kind == 0) { // channels: smooth signals, some held constant for a while
            int n = 4096;
            float phase = r.Unit() * 6.28f, step = 0.001f + r.Unit() * 0.01f;
            bool held = r.Below(3) == 0;
            for (int i = 0; i < n; i++)
                PutFloat(out, held ? 1.0f : std::sin(phase + step * float(i)) * 100.0f);
        } else if (kind == 1) { // vertices: a grid with normals and texture coordinates
            for (int y = 0; y < 64; y++)
                for (int x = 0; x < 64; x++) {
                    PutFloat(out, float(x));
                    PutFloat(out, float(y));
                    PutFloat(out, float(r.Below(8)) * 0.25f);
                    PutFloat(out, 0.0f);
                    PutFloat(out, 1.0f);
                    PutFloat(out, 0.0f);
                    PutFloat(out, float(x) / 63.0f);
                    PutFloat(out, float(y) / 63.0f);
                }
        } else { // pictures: RGBA rows with flat areas and gradients, then padding
            int w = 256;
            for (int y = 0; y < 64; y++)
                for (int x = 0; x < w; x++) {
                    bool flat = (x / 32 + y / 16) % 3 == 0;
                    out += char(flat ? 200 : x);
                    out += char(flat ? 40 : y * 4);
                    out += char(flat ? 40 : (x + y) / 2 + r.Below(3));
                    out += char(255);
                }
            out.append(size_t(r.Below(8192)), '\0');
        }
    }
    out.resize(size);
}

bool WriteWhole(const std::string& path, const std::string& bytes) {
    FILE* f = qfopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return qfclose(f) == 0 && ok;
}

int Make(const char* folder, int megabytes) {
    if (!QMakeDirectory(folder)) {
        std::fprintf(stderr, "archive_bench: can't make '%s'\n", folder);
        return 1;
    }
    Random r{0x9E3779B97F4A7C15ull};
    Words words(r);
    const size_t total = size_t(megabytes) << 20;
    size_t made = 0;
    // Four parts text, four binary, two random, in files of 256 KB to 4 MB.
    for (int i = 0; made < total; i++) {
        size_t size = size_t(256 << 10) + size_t(r.Below(15)) * (256 << 10);
        if (size > total - made) size = total - made;
        int slot = i % 10;
        std::string bytes, name;
        char id[16];
        std::snprintf(id, sizeof id, "%03d", i);
        if (slot < 4) {
            TextFile(bytes, size, r, words, slot % 2 == 1);
            name = std::string("text_") + id + (slot % 2 ? ".ini" : ".log");
        } else if (slot < 8) {
            BinaryFile(bytes, size, r, slot % 3);
            name = std::string("binary_") + id + ".bin";
        } else {
            bytes.resize(size);
            for (size_t k = 0; k < size; k++)
                bytes[k] = char(r.Next());
            name = std::string("random_") + id + ".dat";
        }
        if (!WriteWhole(std::string(folder) + "/" + name, bytes)) {
            std::fprintf(stderr, "archive_bench: can't write '%s'\n", name.c_str());
            return 1;
        }
        made += size;
    }
    return 0;
}

int Expand(const char* archiveName, int rounds) {
    QArchive archive;
    if (!archive.Open(archiveName)) return 1;
    std::vector<std::string> names;
    qstring name;
    int size;
    while (archive.GetNextEntry(name, nullptr, &size))
        if (size > 0) names.push_back(name.cstr());
    double best = 1e30;
    long long bytes = 0;
    for (int round = 0; round < rounds; round++) {
        bytes = 0;
        auto start = std::chrono::steady_clock::now();
        for (const std::string& member : names) {
            void* memory = nullptr;
            int loaded = 0;
            bool ok = archive.LoadFile(member.c_str(), &memory, &loaded);
            if (memory) qfree(memory);
            if (!ok) return 1;
            bytes += loaded;
        }
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (seconds < best) best = seconds;
    }
    std::printf("%lld %.4f %.1f\n", bytes, best, double(bytes) / 1e6 / best);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    qmsgSetLogFile(false);
    if (argc == 4 && !std::strcmp(argv[1], "make")) return Make(argv[2], std::atoi(argv[3]));
    if ((argc == 3 || argc == 4) && !std::strcmp(argv[1], "expand"))
        return Expand(argv[2], argc == 4 ? std::atoi(argv[3]) : 3);
    std::fprintf(stderr, "usage: archive_bench make <folder> <megabytes> | expand <archive> [rounds]\n");
    return 2;
}
