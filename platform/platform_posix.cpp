// POSIX implementation of the platform layer for console programs.
#include "platform/platform.h"

#include <cstdio>
#include <cstring>
#include <cerrno>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace tarvik {

static PlatformAnswer presetAnswer = PLATFORM_ANSWER_NONE;

// A write past the file size limit (ulimit -f) would end the process with a signal and no word;
// ignored, the write fails with EFBIG and its caller reports it like a full disk.
[[maybe_unused]] static const bool fileSizeSignalIgnored = std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR;

void PlatformMessageBox(const char* title, const char* text, void* owner)
{
    (void)owner; // a console has no windows to own the box
    std::fprintf(stderr, "[%s] %s\n", title ? title : "", text ? text : "");
    std::fflush(stderr);
}

void PlatformSetAnswer(PlatformAnswer answer) { presetAnswer = answer; }

PlatformAnswer PlatformAsk(const char* title, const char* text, PlatformAnswer safeAnswer)
{
    std::fprintf(stderr, "[%s] %s\n", title ? title : "", text ? text : "");
    if (presetAnswer != PLATFORM_ANSWER_NONE) return presetAnswer;
    if (!isatty(STDIN_FILENO)) return safeAnswer;

    // Read the answer from the terminal: y, n or c; anything else asks again; end of input is the safe answer.
    for (;;) {
        std::fprintf(stderr, "(y)es, (n)o, (c)ancel? ");
        std::fflush(stderr);
        char line[64];
        if (!std::fgets(line, sizeof line, stdin)) return safeAnswer;
        switch (line[0]) {
        case 'y': case 'Y': return PLATFORM_ANSWER_YES;
        case 'n': case 'N': return PLATFORM_ANSWER_NO;
        case 'c': case 'C': return PLATFORM_ANSWER_CANCEL;
        default: break;
        }
    }
}

int PlatformProcessId() { return int(getpid()); }

bool PlatformFileTime(const char* name, int64_t* time)
{
    struct stat st;
    if (!name || stat(name, &st) != 0) return false;
    *time = int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return true;
}

void PlatformCurrentDirectory(char* out, int size)
{
    if (size <= 0) return;
    if (!getcwd(out, size_t(size))) out[0] = 0;
}

bool PlatformIsTerminal(int fd) { return isatty(fd) != 0; }

bool PlatformSetCurrentDirectory(const char* path, int* error)
{
    if (path && chdir(path) == 0) return true;
    if (error) *error = path ? errno : EINVAL;
    return false;
}

bool PlatformMakeDirectory(const char* path)
{
    if (!path) return false;
    if (mkdir(path, 0777) == 0) return true;
    struct stat st;
    return errno == EEXIST && stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

bool PlatformRemoveDirectory(const char* path) { return path && rmdir(path) == 0; }
bool PlatformRemoveFile(const char* path) { return path && unlink(path) == 0; }

bool PlatformStat(const char* path, PlatformFileStatus* status)
{
    struct stat st;
    if (!path || stat(path, &st) != 0) return false;
    status->size = int64_t(st.st_size);
    status->isDirectory = S_ISDIR(st.st_mode);
    status->modified = int64_t(st.st_mtime);
    status->created = int64_t(st.st_ctime);
    return true;
}

FILE* PlatformOpenRegularFile(const char* path, bool* notRegular)
{
    *notRegular = false;
    struct stat st;
    if (!path || stat(path, &st) != 0) return nullptr;
    if (!S_ISREG(st.st_mode)) {
        *notRegular = true;
        return nullptr;
    }
    // Without O_NONBLOCK a pipe swapped in since the stat would hold the open until a writer came.
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    bool stated = fstat(fd, &st) == 0;
    *notRegular = stated && !S_ISREG(st.st_mode);
    FILE* f = nullptr;
    if (stated && !*notRegular && fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) == 0)
        f = fdopen(fd, "rb");
    if (!f) {
        int e = errno;
        close(fd);
        errno = e;
    }
    return f;
}

FILE* PlatformOpenMemory(const void* data, size_t size)
{
    // No bytes at all can't be a memory stream; an empty device reads the same.
    if (size == 0) return std::fopen("/dev/null", "rb");
    return fmemopen(const_cast<void*>(data), size, "rb");
}

struct PlatformDir {
    DIR* dir;
};

PlatformDir* PlatformOpenDir(const char* path)
{
    DIR* d = path ? opendir(path) : nullptr;
    if (!d) return nullptr;
    return new PlatformDir{d};
}

bool PlatformReadDir(PlatformDir* dir, char* name, int size)
{
    if (!dir || size <= 0) return false;
    struct dirent* e = readdir(dir->dir);
    if (!e) return false;
    std::snprintf(name, size_t(size), "%s", e->d_name);
    return true;
}

void PlatformCloseDir(PlatformDir* dir)
{
    if (!dir) return;
    closedir(dir->dir);
    delete dir;
}

void PlatformSleepMs(int milliseconds)
{
    if (milliseconds <= 0) {
        sched_yield();
        return;
    }
    struct timespec t = {milliseconds / 1000, long(milliseconds % 1000) * 1000000L};
    while (nanosleep(&t, &t) != 0 && errno == EINTR) {
    }
}

uint64_t PlatformCounter()
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return uint64_t(t.tv_sec) * 1000000000u + uint64_t(t.tv_nsec);
}

uint64_t PlatformCounterFrequency() { return 1000000000u; }

} // namespace tarvik
