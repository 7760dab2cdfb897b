// qarchive: packs a folder into an archive, lists one, and extracts one.
//
//   qarchive pack <archive> <folder>
//   qarchive list <archive>
//   qarchive extract <archive> <folder> [member ...]
//
// An archive holds names without directories, so pack takes the files of the folder itself, in the
// order of their names, and passes over sub-folders with a note. Extract writes into the folder
// (made if needed) every member, or the ones named, and refuses member names that would lead out of
// it. Failures are the log's own reports on standard error, and the exit status is 1; nothing goes
// to QLOG.txt.
#include "images/qarchive.h"

#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using namespace tarvik;

namespace {

int Usage() {
    std::fprintf(stderr, "usage: qarchive pack <archive> <folder>\n"
                         "       qarchive list <archive>\n"
                         "       qarchive extract <archive> <folder> [member ...]\n");
    return 2;
}

// The whole file in 'bytes'; false with a report if it can't be read.
bool ReadWhole(const std::string& path, std::vector<uint8_t>& bytes) {
    FILE* f = qfopen(path.c_str(), "rb");
    if (!f) {
        QWARNING("qarchive: can't open '%s'", path.c_str());
        return false;
    }
    bytes.clear();
    uint8_t block[65536];
    size_t got;
    while ((got = std::fread(block, 1, sizeof block, f)) > 0) {
        if (bytes.size() + got > size_t(INT32_MAX)) {
            QWARNING("qarchive: '%s' is larger than 2 GB", path.c_str());
            qfclose(f);
            return false;
        }
        bytes.insert(bytes.end(), block, block + got);
    }
    bool ok = !std::ferror(f);
    qfclose(f);
    if (!ok) QWARNING("qarchive: can't read '%s'", path.c_str());
    return ok;
}

int Pack(const char* archiveName, const char* folder) {
    QDirectory dir(folder);
    std::vector<std::string> names;
    char name[1024];
    QFileInfo info;
    bool any = false;
    while (dir.Read(name, &info)) {
        any = true;
        if (!std::strcmp(name, ".") || !std::strcmp(name, "..")) continue;
        if (info.isDirectory) {
            std::fprintf(stderr, "qarchive: passing over folder '%s'\n", name);
            continue;
        }
        names.push_back(name);
    }
    if (!any) {
        QWARNING("qarchive: can't read folder '%s'", folder);
        return 1;
    }
    std::sort(names.begin(), names.end());

    QArchiveWriter writer;
    if (!writer.Create(archiveName)) return 1;
    long long total = 0;
    std::vector<uint8_t> bytes;
    for (const std::string& member : names) {
        if (!ReadWhole(std::string(folder) + "/" + member, bytes)) return 1; // the writer removes the archive
        if (!writer.AddMember(member.c_str(), bytes.data(), int(bytes.size()))) return 1;
        total += (long long)bytes.size();
    }
    if (!writer.Finish()) return 1;
    long packed = writer.GetPackedSize();
    std::printf("%d files, %lld bytes in %ld bytes (%.1f%%)\n", int(names.size()), total, packed,
                total ? 100.0 * double(packed) / double(total) : 100.0);
    return 0;
}

int List(const char* archiveName) {
    QArchive archive;
    if (!archive.Open(archiveName)) return 1;
    qstring name;
    int offset, size;
    while (archive.GetNextEntry(name, &offset, &size))
        std::printf("%10d %10d  %s\n", size, offset, name.cstr());
    return 0;
}

// A member name that stays inside the folder it is extracted to.
bool SafeName(const char* name) {
    return name[0] && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
           !std::strchr(name, '/') && !std::strchr(name, '\\') && !std::strchr(name, ':');
}

int Extract(const char* archiveName, const char* folder, char** wanted, int wantedCount) {
    QArchive archive;
    if (!archive.Open(archiveName)) return 1;
    std::vector<std::string> names;
    std::vector<int> sizes;
    qstring name;
    int size;
    while (archive.GetNextEntry(name, nullptr, &size)) {
        names.push_back(name.cstr());
        sizes.push_back(size);
    }
    if (!QMakeDirectory(folder)) {
        QWARNING("qarchive: can't make folder '%s'", folder);
        return 1;
    }
    int result = 0;
    for (int w = 0; w < wantedCount; w++) {
        if (std::find(names.begin(), names.end(), wanted[w]) == names.end()) {
            QWARNING("qarchive: no member '%s' in '%s'", wanted[w], archiveName);
            result = 1;
        }
    }
    for (size_t i = 0; i < names.size(); i++) {
        const char* member = names[i].c_str();
        if (wantedCount && std::find_if(wanted, wanted + wantedCount,
                                        [&](const char* w) { return names[i] == w; }) == wanted + wantedCount)
            continue;
        if (!SafeName(member)) {
            QWARNING("qarchive: passing over member '%s': not a plain file name", member);
            result = 1;
            continue;
        }
        // Two members of one name: the directory's first is the one FindEntry gives.
        if (std::find(names.begin(), names.begin() + long(i), names[i]) != names.begin() + long(i)) continue;
        std::string out = std::string(folder) + "/" + member;
        int expanded = 0;
        bool ok =
            archive.FindEntry(member, true) && archive.DecompressFile(out.c_str(), 0, &expanded, nullptr, 0);
        if (ok && expanded != sizes[i]) {
            QWARNING("qarchive: member '%s' expands to %d bytes, directory says %d", member, expanded,
                     sizes[i]);
            ok = false;
        }
        if (!ok) {
            QRemoveFile(out.c_str()); // half a file is worse than none
            result = 1;
        }
    }
    return result;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) return Usage();
    qmsgSetLogFile(false); // a tool for the command line leaves no log file behind
    const char* command = argv[1];
    if (!std::strcmp(command, "pack") && argc == 4) return Pack(argv[2], argv[3]);
    if (!std::strcmp(command, "list") && argc == 3) return List(argv[2]);
    if (!std::strcmp(command, "extract") && argc >= 4) return Extract(argv[2], argv[3], argv + 4, argc - 4);
    return Usage();
}
