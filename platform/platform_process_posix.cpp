// Child processes for work that runs side by side: the tree's libraries keep static state and one
// thread, so parallel work gets a process each.
#include "platform/platform.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tarvik {

namespace {

// One result on the pipe: 8 bytes, far below PIPE_BUF, so the children's writes never interleave.
struct Result {
    int32_t index;
    int32_t ok;
};

bool WriteAll(int fd, const void* data, size_t n)
{
    const char* p = static_cast<const char*>(data);
    while (n > 0) {
        ssize_t w = write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        n -= size_t(w);
    }
    return true;
}

} // namespace

int PlatformRunChildren(int count, int parallel, int (*work)(int index, void* context),
                        void (*done)(int index, bool ok, void* context), void* context)
{
    if (count <= 0) return 0;
    if (parallel < 1) parallel = 1;
    if (parallel > count) parallel = count;
    std::vector<char> reported(size_t(count), 0);
    int failed = 0;
    auto report = [&](int index, bool ok) {
        if (index < 0 || index >= count || reported[size_t(index)]) return;
        reported[size_t(index)] = 1;
        if (!ok) failed++;
        if (done) done(index, ok, context);
    };

    int fds[2];
    if (pipe(fds) != 0) {
        std::fprintf(stderr, "[Warning] can't start processes (%s); working here instead\n", std::strerror(errno));
        for (int i = 0; i < count; i++) report(i, work(i, context) == 0);
        return failed;
    }
    std::vector<pid_t> pids;
    std::vector<int> local; // shares of children that could not be started
    for (int w = 0; w < parallel; w++) {
        std::fflush(nullptr); // buffered output would otherwise be written twice
        const pid_t pid = fork();
        if (pid == 0) {
            close(fds[0]);
            for (int i = w; i < count; i += parallel) {
                const Result r = {i, work(i, context) == 0};
                std::fflush(nullptr);
                if (!WriteAll(fds[1], &r, sizeof r)) break;
            }
            _exit(0);
        }
        if (pid < 0) {
            std::fprintf(stderr, "[Warning] can't start a process (%s); working here instead\n", std::strerror(errno));
            local.push_back(w);
        } else {
            pids.push_back(pid);
        }
    }
    close(fds[1]);
    for (int w : local)
        for (int i = w; i < count; i += parallel) report(i, work(i, context) == 0);

    // Results as they come, until every child has closed its end.
    Result r;
    size_t have = 0;
    for (;;) {
        ssize_t n = read(fds[0], reinterpret_cast<char*>(&r) + have, sizeof r - have);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        have += size_t(n);
        if (have < sizeof r) continue;
        report(r.index, r.ok != 0);
        have = 0;
    }
    close(fds[0]);
    for (pid_t pid : pids)
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    for (int i = 0; i < count; i++) report(i, false); // only those of a child that died unreported
    return failed;
}

} // namespace tarvik
