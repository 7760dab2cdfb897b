// POSIX implementation of the platform layer for console programs.
#include "platform/platform.h"

#include <cstdio>
#include <cstring>
#include <string>
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
static const PlatformBoxProvider* boxProvider = nullptr;
static PlatformFileDialogProc fileDialogProc = nullptr;

// A write past the file size limit (ulimit -f) would end the process with a signal and no word;
// ignored, the write fails with EFBIG and its caller reports it like a full disk.
[[maybe_unused]] static const bool fileSizeSignalIgnored = std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR;

void PlatformSetAnswer(PlatformAnswer answer) { presetAnswer = answer; }
void PlatformSetBoxProvider(const PlatformBoxProvider* provider) { boxProvider = provider; }

// Reads a line from the terminal into 'line'; false at the end of the input.
static bool ReadTerminalLine(const char* prompt, char* line, int size)
{
    std::fprintf(stderr, "%s", prompt);
    std::fflush(stderr);
    return std::fgets(line, size, stdin) != nullptr;
}

static PlatformAnswer ConsoleQuestion(const char* title, const char* text, PlatformButtons buttons,
                                      PlatformAnswer safeAnswer)
{
    std::fprintf(stderr, "[%s] %s\n", title ? title : "", text ? text : "");
    std::fflush(stderr);
    if (presetAnswer != PLATFORM_ANSWER_NONE) return presetAnswer;
    if (buttons == PLATFORM_BUTTONS_OK) return PLATFORM_ANSWER_OK;
    if (!isatty(STDIN_FILENO)) return safeAnswer;

    // y or o, n, c; anything else asks again; the end of the input is the safe answer.
    const bool okCancel = buttons == PLATFORM_BUTTONS_OK_CANCEL;
    for (;;) {
        char line[64];
        if (!ReadTerminalLine(okCancel ? "(o)k, (c)ancel? " : "(y)es, (n)o, (c)ancel? ", line, sizeof line))
            return safeAnswer;
        switch (line[0]) {
        case 'o': case 'O': if (okCancel) return PLATFORM_ANSWER_OK; break;
        case 'y': case 'Y': if (!okCancel) return PLATFORM_ANSWER_YES; break;
        case 'n': case 'N': if (!okCancel) return PLATFORM_ANSWER_NO; break;
        case 'c': case 'C': return PLATFORM_ANSWER_CANCEL;
        default: break;
        }
    }
}

PlatformAnswer PlatformQuestion(const char* title, const char* text, PlatformButtons buttons, void* owner,
                                PlatformAnswer safeAnswer)
{
    PlatformAnswer answer = PLATFORM_ANSWER_NONE;
    if (presetAnswer == PLATFORM_ANSWER_NONE && boxProvider && boxProvider->Question &&
        boxProvider->Question(title, text, buttons, owner, &answer))
        return answer;
    return ConsoleQuestion(title, text, buttons, safeAnswer);
}

void PlatformMessageBox(const char* title, const char* text, void* owner)
{
    PlatformQuestion(title, text, PLATFORM_BUTTONS_OK, owner, PLATFORM_ANSWER_OK);
}

PlatformAnswer PlatformAsk(const char* title, const char* text, PlatformAnswer safeAnswer)
{
    return PlatformQuestion(title, text, PLATFORM_BUTTONS_YES_NO_CANCEL, nullptr, safeAnswer);
}

void PlatformSetFileDialog(PlatformFileDialogProc proc) { fileDialogProc = proc; }
PlatformFileDialogProc PlatformGetFileDialog() { return fileDialogProc; }

// The console's file question: a name typed on the terminal, relative to the initial folder. One
// file even where several may be chosen, which the caller's list form allows.
static bool ConsoleFileDialog(PlatformFileRequest* rq)
{
    if (!rq->file || rq->fileSize < 2 || !isatty(STDIN_FILENO)) return false;
    std::fprintf(stderr, "[%s]\n", rq->title ? rq->title : "");
    char line[4096];
    if (!ReadTerminalLine("File name (empty: cancel): ", line, sizeof line)) return false;
    line[std::strcspn(line, "\r\n")] = 0;
    if (!line[0]) return false;
    std::string path = line;
    if (path[0] != '/' && rq->initialDir && rq->initialDir[0]) {
        path = std::string(rq->initialDir) + (rq->initialDir[std::strlen(rq->initialDir) - 1] == '/' ? "" : "/") + path;
    }
    if (path.size() + 2 > size_t(rq->fileSize)) return false;
    std::memcpy(rq->file, path.c_str(), path.size() + 1);
    rq->file[path.size() + 1] = 0;
    size_t slash = path.rfind('/');
    if (rq->fileTitle && rq->fileTitleSize > 0)
        std::snprintf(rq->fileTitle, size_t(rq->fileTitleSize), "%s", path.c_str() + (slash == std::string::npos ? 0 : slash + 1));
    // Like every file question, leave the current directory at the folder of the choice.
    if (slash != std::string::npos && chdir(slash ? path.substr(0, slash).c_str() : "/") != 0) {
        // The folder may not exist yet for a save; the current directory then stays.
    }
    return true;
}

bool PlatformFileDialog(PlatformFileRequest* request)
{
    if (!request) return false;
    return fileDialogProc ? fileDialogProc(request) : ConsoleFileDialog(request);
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
