// Child processes for work that runs side by side: the tree's libraries keep static state and one
// thread, so parallel work gets a process each.
#include "platform/platform.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tarvik {

int PlatformRunChildren(int count, int parallel, int (*work)(int index, void* context),
                        void (*done)(int index, bool ok, void* context), void* context)
{
    if (parallel < 1) parallel = 1;
    std::vector<pid_t> pids;  // running children
    std::vector<int> indices; // their work's index
    int failed = 0, next = 0;
    while (next < count || !pids.empty()) {
        while (next < count && int(pids.size()) < parallel) {
            const int index = next++;
            std::fflush(nullptr); // buffered output would otherwise be written twice
            const pid_t pid = fork();
            if (pid == 0) {
                const int result = work(index, context);
                std::fflush(nullptr);
                _exit(result & 0xFF);
            }
            if (pid < 0) {
                std::fprintf(stderr, "[Warning] can't start a process (%s); working here instead\n",
                             std::strerror(errno));
                const bool ok = work(index, context) == 0;
                if (!ok) failed++;
                if (done) done(index, ok, context);
                continue;
            }
            pids.push_back(pid);
            indices.push_back(index);
        }
        if (pids.empty()) continue;
        int status = 0;
        const pid_t ended = waitpid(-1, &status, 0);
        if (ended < 0) {
            if (errno == EINTR) continue;
            // No child left to wait for: count the ones still listed as lost.
            for (size_t i = 0; i < pids.size(); i++) {
                failed++;
                if (done) done(indices[i], false, context);
            }
            pids.clear();
            indices.clear();
            continue;
        }
        for (size_t i = 0; i < pids.size(); i++) {
            if (pids[i] != ended) continue;
            const bool ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
            if (!ok) failed++;
            const int index = indices[i];
            pids.erase(pids.begin() + long(i));
            indices.erase(indices.begin() + long(i));
            if (done) done(index, ok, context);
            break;
        }
    }
    return failed;
}

} // namespace tarvik
