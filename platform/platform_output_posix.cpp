// Outputs written whole or not at all: a temporary file beside the target, renamed into place.
#include "platform/platform.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace tarvik {

struct PlatformOutput {
    FILE* stream;
    std::string work;   // the temporary file, or the path itself when written directly
    std::string target; // where the temporary file goes on commit; empty when written directly
};

namespace {

// The folder part of a path ("." for a bare name) and the name part.
void SplitPath(const std::string& path, std::string* dir, std::string* base)
{
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        *dir = ".";
        *base = path;
    } else {
        *dir = slash == 0 ? "/" : path.substr(0, slash);
        *base = path.substr(slash + 1);
    }
}

mode_t NewFileMode()
{
    mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

PlatformOutput* OpenDirect(const char* path, int flags)
{
    FILE* f = std::fopen(path, (flags & PLATFORM_OUTPUT_BINARY) ? "wb" : "w");
    if (!f) return nullptr;
    return new PlatformOutput{f, path, std::string()};
}

// A temporary file in the target's folder, created exclusively (never through a link that stands
// at its name), with the permissions the target has or a new file would get.
PlatformOutput* OpenTemporary(const std::string& target, mode_t mode, int flags)
{
    std::string dir, base;
    SplitPath(target, &dir, &base);
    if (base.empty()) {
        errno = EISDIR;
        return nullptr;
    }
    // Visible beside the target, so that one left by a killed process is found; cut so that the
    // longest name still fits the folder's limit.
    std::string work = dir + "/" + base.substr(0, 200) + ".part-XXXXXX";
    int fd = mkostemp(&work[0], O_CLOEXEC);
    if (fd < 0) return nullptr;
    FILE* f = nullptr;
    if (fchmod(fd, mode) != 0 || !(f = fdopen(fd, (flags & PLATFORM_OUTPUT_BINARY) ? "wb" : "w"))) {
        int e = errno;
        close(fd);
        unlink(work.c_str());
        errno = e;
        return nullptr;
    }
    return new PlatformOutput{f, work, target};
}

} // namespace

bool PlatformSameFile(const char* a, const char* b)
{
    struct stat sa, sb;
    if (!a || !b || stat(a, &sa) != 0 || stat(b, &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

PlatformOutput* PlatformOutputOpen(const char* path, int flags)
{
    if (!path || !*path) {
        errno = ENOENT;
        return nullptr;
    }
    struct stat st;
    if (lstat(path, &st) != 0) {
        if (errno != ENOENT) return nullptr;
        return OpenTemporary(path, NewFileMode(), flags);
    }
    std::string target = path;
    if (S_ISLNK(st.st_mode)) {
        if (flags & PLATFORM_OUTPUT_NO_LINKS) {
            errno = ELOOP;
            return nullptr;
        }
        char resolved[PATH_MAX];
        // A dangling link is written through, as opening it would: the file it names is created.
        if (stat(path, &st) != 0 || !realpath(path, resolved)) return OpenDirect(path, flags);
        target = resolved;
    }
    if (S_ISDIR(st.st_mode)) {
        errno = EISDIR;
        return nullptr;
    }
    if (!S_ISREG(st.st_mode)) {
        if (flags & PLATFORM_OUTPUT_NO_LINKS) {
            errno = EINVAL;
            return nullptr;
        }
        return OpenDirect(path, flags);
    }
    // A file the user has made read-only stays as it is, though its folder would let it be replaced;
    // one without any write permission is kept from a privileged user too.
    if (access(target.c_str(), W_OK) != 0) return nullptr;
    if ((st.st_mode & 0222) == 0) {
        errno = EACCES;
        return nullptr;
    }
    return OpenTemporary(target, st.st_mode & 07777, flags);
}

FILE* PlatformOutputStream(PlatformOutput* out) { return out ? out->stream : nullptr; }

const char* PlatformOutputWorkName(PlatformOutput* out) { return out ? out->work.c_str() : ""; }

bool PlatformOutputCommit(PlatformOutput* out)
{
    if (!out) {
        errno = EINVAL;
        return false;
    }
    bool ok = std::fflush(out->stream) == 0 && !std::ferror(out->stream);
    int e = errno;
    if (std::fclose(out->stream) != 0 && ok) {
        ok = false;
        e = errno;
    }
    if (!out->target.empty()) {
        if (ok && rename(out->work.c_str(), out->target.c_str()) != 0) {
            ok = false;
            e = errno;
        }
        if (!ok) unlink(out->work.c_str());
    }
    delete out;
    errno = ok ? 0 : (e ? e : EIO);
    return ok;
}

void PlatformOutputAbandon(PlatformOutput* out)
{
    if (!out) return;
    std::fclose(out->stream);
    if (!out->target.empty()) unlink(out->work.c_str());
    delete out;
}

} // namespace tarvik
