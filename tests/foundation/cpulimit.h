// Runs a piece of a test in a child process with a limit on its processor time, so that a hang
// shows as a failure under any load of the machine, where a clock on the wall would not tell.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace tarvik {
namespace test {

// "done" if 'action' returned true within 'seconds' of processor time; otherwise how the child
// ended: "exit code 1" when the action returned false, "signal 24" (SIGXCPU) when it ran out of time.
template <class Action>
std::string RunWithCpuLimit(int seconds, Action&& action)
{
    std::fflush(nullptr); // nothing buffered may be written twice
    pid_t pid = fork();
    if (pid == 0) {
        rlimit limit{rlim_t(seconds), rlim_t(seconds) + 1};
        setrlimit(RLIMIT_CPU, &limit);
        bool ok = action();
        std::fflush(nullptr);
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return "no child";
    if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
    return WEXITSTATUS(status) == 0 ? "done" : "exit code " + std::to_string(WEXITSTATUS(status));
}

} // namespace test
} // namespace tarvik
