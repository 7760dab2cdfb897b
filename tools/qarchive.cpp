// qarchive: packs a folder into an archive, lists one, and extracts one.
//
//   qarchive pack <archive> <folder>
//   qarchive list <archive>
//   qarchive extract <archive> <folder> [member ...]
//
// An archive holds names without directories, so pack takes the regular files of the folder itself,
// in the order of their names, and passes over sub-folders, pipes, devices and the archive itself
// with a note. Extract writes into the folder (made if needed) every member, or the ones named; it
// refuses member names that would lead out of it and never writes through a link. Refused members
// are reported by name and the others still extracted. Failures are the log's own reports on
// standard error, and the exit status is 1; nothing goes to QLOG.txt. Names are listed and reported
// with control characters escaped.
#include "images/qarchive.h"

#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qoutput.h"
#include "foundation/qstring.h"
#include "platform/platform.h"

#include <algorithm>
#include <cerrno>
#include <climits>
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

// A name as a terminal should show it: control characters (C0, DEL, and C1 whether as UTF-8 or as
// bare bytes), bytes that are no UTF-8, and the backslash itself become escapes, so that a member
// name can neither move the cursor nor pass for another name or line.
std::string Printable(const char* s) {
    std::string r;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(s); *p;) {
        unsigned c = *p;
        int n = c < 0x80                 ? 1
                : c >= 0xC2 && c <= 0xDF ? 2
                : c >= 0xE0 && c <= 0xEF ? 3
                : c >= 0xF0 && c <= 0xF4 ? 4
                                         : 0;
        bool ok = n > 0;
        for (int k = 1; ok && k < n; k++)
            ok = (p[k] & 0xC0) == 0x80;
        // Overlong forms and the C1 controls U+0080 to U+009F (C2 80 to C2 9F).
        if (ok && ((c == 0xC2 && p[1] < 0xA0) || (c == 0xE0 && p[1] < 0xA0) || (c == 0xF0 && p[1] < 0x90)))
            ok = false;
        if (ok && (n > 1 || (c >= 0x20 && c != 0x7F && c != '\\'))) {
            r.append(reinterpret_cast<const char*>(p), size_t(n));
            p += n;
            continue;
        }
        static const char hex[] = "0123456789abcdef";
        if (c == '\n')
            r += "\\n";
        else if (c == '\t')
            r += "\\t";
        else if (c == '\r')
            r += "\\r";
        else if (c == '\\')
            r += "\\\\";
        else
            r += std::string("\\x") + hex[c >> 4] + hex[c & 15];
        p++;
    }
    return r;
}

// The whole file in 'bytes'; false with a report if it can't be read. Only a regular file is read
// (a link to one is followed: a folder of textures may well link to shared ones); a pipe, a socket
// or a device, or a link to one, is never opened for reading, so nothing blocks or reads without
// end, and '*skipped' says so.
bool ReadWhole(const std::string& path, std::vector<uint8_t>& bytes, bool* skipped) {
    FILE* f = PlatformOpenRegularFile(path.c_str(), skipped);
    if (!f) {
        if (!*skipped) QWARNING("qarchive: can't open '%s'", Printable(path.c_str()).c_str());
        return false;
    }
    bytes.clear();
    uint8_t block[65536];
    size_t got;
    while ((got = std::fread(block, 1, sizeof block, f)) > 0) {
        if (bytes.size() + got > size_t(INT32_MAX)) {
            QWARNING("qarchive: '%s' is larger than 2 GB", Printable(path.c_str()).c_str());
            std::fclose(f);
            return false;
        }
        bytes.insert(bytes.end(), block, block + got);
    }
    bool ok = !std::ferror(f);
    std::fclose(f);
    if (!ok) QWARNING("qarchive: can't read '%s'", Printable(path.c_str()).c_str());
    return ok;
}

int Pack(const char* archiveName, const char* folder) {
    QDirectory dir(folder);
    std::vector<std::pair<std::string, bool>> entries; // name, is a folder
    char name[1024];
    QFileInfo info;
    bool any = false;
    while (dir.Read(name, &info)) {
        any = true;
        if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0)
            entries.push_back({name, info.isDirectory != 0});
    }
    if (!any) {
        QWARNING("qarchive: can't read folder '%s'", folder);
        return 1;
    }
    std::sort(entries.begin(), entries.end());

    // Written under a temporary name and put in place by Finish: a failed pack leaves an old
    // archive of that name as it was. The folder was read before, so its own temporary file is not
    // among the entries, unless the archive stands in the folder since.
    QArchiveWriter writer;
    if (!writer.Create(archiveName)) return 1;

    int count = 0;
    long long total = 0;
    std::vector<uint8_t> bytes;
    for (const auto& [member, isFolder] : entries) {
        std::string path = std::string(folder) + "/" + member;
        std::string shown = Printable(member.c_str());
        if (isFolder) {
            std::fprintf(stderr, "qarchive: passing over folder '%s'\n", shown.c_str());
            continue;
        }
        // The archive may be written into the folder it packs, or replace a file there.
        if (PlatformSameFile(path.c_str(), writer.GetWorkName()) ||
            PlatformSameFile(path.c_str(), archiveName)) {
            std::fprintf(stderr, "qarchive: passing over '%s': it is the archive itself\n", shown.c_str());
            continue;
        }
        bool skipped = false;
        if (!ReadWhole(path, bytes, &skipped)) {
            if (!skipped) return 1; // the writer leaves nothing behind
            std::fprintf(stderr, "qarchive: passing over '%s': not a regular file\n", shown.c_str());
            continue;
        }
        if (!writer.AddMember(member.c_str(), bytes.data(), int(bytes.size()))) return 1;
        count++;
        total += (long long)bytes.size();
    }
    if (!writer.Finish()) return 1;
    long packed = writer.GetPackedSize();
    std::printf("%d files, %lld bytes in %ld bytes (%.1f%%)\n", count, total, packed,
                total ? 100.0 * double(packed) / double(total) : 100.0);
    return 0;
}

int List(const char* archiveName) {
    QArchive archive;
    if (!archive.Open(archiveName)) return 1;
    qstring name;
    int offset, size;
    while (archive.GetNextEntry(name, &offset, &size))
        std::printf("%10d %10d  %s\n", size, offset, Printable(name.cstr()).c_str());
    return 0;
}

// A member name that stays inside the folder it is extracted to: no folders in it, neither kind of
// separator, nor a drive.
bool SafeName(const char* name) {
    return name[0] && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
           !std::strchr(name, '/') && !std::strchr(name, '\\') && !std::strchr(name, ':');
}

// Why a member's output could not be opened, in the words of this command.
std::string OutputFault(int error) {
    switch (error) {
    case ELOOP:
        return "a link stands at its name";
    case EINVAL:
        return "something other than a file stands at its name";
    case EISDIR:
        return "a folder stands at its name";
    default:
        return std::strerror(error);
    }
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
        std::string shown = Printable(member);
        if (!SafeName(member)) {
            QWARNING("qarchive: passing over member '%s': not a plain file name", shown.c_str());
            result = 1;
            continue;
        }
        // Two members of one name: the directory's first is the one FindEntry gives.
        if (std::find(names.begin(), names.begin() + long(i), names[i]) != names.begin() + long(i)) continue;
        // Each member goes to a temporary file made afresh and renamed over its name, and only when
        // it expanded whole: a link at the name, even a dangling one, is refused rather than written
        // through, and a file that stands there stays as it was if anything fails. A file of the
        // user's is never removed.
        std::string out = std::string(folder) + "/" + member;
        QOutput output;
        if (!output.Open(out.c_str(), PLATFORM_OUTPUT_BINARY | PLATFORM_OUTPUT_NO_LINKS)) {
            QWARNING("qarchive: passing over member '%s': %s", shown.c_str(), OutputFault(errno).c_str());
            result = 1;
            continue;
        }
        int expanded = 0;
        bool ok = archive.FindEntry(member, true) &&
                  archive.DecompressToStream(output.Stream(), Printable(out.c_str()).c_str(), &expanded);
        if (ok && expanded != sizes[i]) {
            QWARNING("qarchive: member '%s' expands to %d bytes, directory says %d", shown.c_str(), expanded,
                     sizes[i]);
            ok = false;
        }
        if (ok && !output.Commit()) {
            QWARNING("qarchive: can't write member '%s': %s", shown.c_str(), std::strerror(errno));
            ok = false;
        }
        if (!ok) result = 1; // an output not committed is abandoned: no half file
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
