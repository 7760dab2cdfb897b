// A private X server for the tests that need a display: one virtual-framebuffer server per test
// program, started on first use with a display number it picks itself, DISPLAY set for the process
// and for the tools it runs (xdotool), and ended with the program. Tests derive their fixture from
// XServerTest, which skips them with the reason when no server could be started.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace tarvik {
namespace test {

class XServer {
public:
    static XServer& Shared()
    {
        static XServer server;
        return server;
    }
    ~XServer() { Stop(); }
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    bool Running() const { return pid > 0; }
    const std::string& Error() const { return error; }

private:
    XServer() { Start(); }

    void Start()
    {
        const int startMs = 10000; // the server compiles its keymap first; slow under sanitizers
        int fds[2];
        if (pipe(fds) != 0) {
            error = "no pipe";
            return;
        }
        std::string fdText = std::to_string(fds[1]);
        owner = getpid();
        pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM); // no server outlives a test program that crashed
            close(fds[0]);
            int null = open("/dev/null", O_RDWR);
            dup2(null, 0), dup2(null, 1), dup2(null, 2);
            // No reset when the last client leaves: the next test would find the server mid-reset.
            execlp("Xvfb", "Xvfb", "-displayfd", fdText.c_str(), "-screen", "0", "1024x768x24", "-nolisten",
                   "tcp", "-noreset", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(fds[1]);
        if (pid < 0) {
            close(fds[0]);
            error = "fork failed";
            return;
        }
        // The server writes its display number and a newline once it accepts connections.
        std::string number;
        pollfd p{fds[0], POLLIN, 0};
        char c = 0;
        while (c != '\n' && poll(&p, 1, startMs) > 0 && read(fds[0], &c, 1) == 1)
            if (c >= '0' && c <= '9') number += c;
        close(fds[0]);
        if (c != '\n' || number.empty()) {
            int status = 0;
            kill(pid, SIGTERM);
            waitpid(pid, &status, 0);
            pid = -1;
            error = WIFEXITED(status) && WEXITSTATUS(status) == 127 ? "Xvfb is not installed"
                                                                    : "Xvfb did not start";
            return;
        }
        setenv("DISPLAY", (":" + number).c_str(), 1);
    }

    // A forked child (a death test) that ends through exit() runs this too; only the process that
    // started the server may end it.
    void Stop()
    {
        if (pid <= 0 || getpid() != owner) return;
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
        pid = -1;
    }

    pid_t pid = -1;   // of the server
    pid_t owner = -1; // the process that started it
    std::string error;
};

class XServerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        XServer& server = XServer::Shared();
        if (!server.Running()) GTEST_SKIP() << "no X server could be started: " << server.Error();
    }
};

} // namespace test
} // namespace tarvik
