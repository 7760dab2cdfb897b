// Helpers for the test programs: temporary directories, whole-file reads and writes, and running
// a command with its standard streams captured.
#pragma once

#include <string>

namespace tarvik {
namespace test {

// A fresh directory under the system's temporary folder, removed with everything in it at the end.
// With 'enter' the process works inside it until the end of the object's life.
class TempDir {
public:
    explicit TempDir(bool enter = false);
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path; }
    std::string File(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
    std::string previous; // the working directory to return to, if entered
};

std::string ReadFile(const std::string& path); // empty if missing
void WriteFile(const std::string& path, const std::string& bytes);
bool FileExists(const std::string& path);

struct RunResult {
    int exitCode = -1;
    std::string out; // standard output
    std::string err; // standard error
};

// Runs 'command' through the shell in 'directory', standard input from /dev/null.
RunResult RunCommand(const std::string& command, const std::string& directory);

// Quotes a word for the shell.
std::string ShellQuote(const std::string& word);

// The lines of QLOG.txt with the time in front of each cut off, so that they compare exactly:
// "Mon Jan 01 12:00:00 (ERR  ): ..." becomes "(ERR  ): ...".
std::string LogWithoutTimes(const std::string& logText);

} // namespace test
} // namespace tarvik
