// POSIX implementation of the platform layer for console programs.
#include "platform/platform.h"

#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace tarvik {

static PlatformAnswer presetAnswer = PLATFORM_ANSWER_NONE;

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

} // namespace tarvik
