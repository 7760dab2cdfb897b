#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace fs = std::filesystem;

namespace tarvik {
namespace test {

TempDir::TempDir(bool enter)
{
    std::random_device rd;
    std::mt19937_64 rng(rd());
    for (;;) {
        fs::path p = fs::temp_directory_path() / ("tarvik-test-" + std::to_string(rng()));
        std::error_code ec;
        if (fs::create_directory(p, ec)) {
            path = p.string();
            break;
        }
    }
    if (enter) {
        previous = fs::current_path().string();
        fs::current_path(path);
    }
}

TempDir::~TempDir()
{
    std::error_code ec;
    if (!previous.empty()) fs::current_path(previous, ec);
    fs::remove_all(path, ec);
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
}

bool FileExists(const std::string& path)
{
    std::error_code ec;
    return fs::exists(path, ec);
}

std::string ShellQuote(const std::string& word)
{
    std::string q = "'";
    for (char c : word) {
        if (c == '\'') q += "'\\''";
        else q += c;
    }
    return q + "'";
}

RunResult RunCommand(const std::string& command, const std::string& directory)
{
    TempDir capture;
    std::string out = capture.File("out"), err = capture.File("err");
    std::string line = "cd " + ShellQuote(directory) + " && " + command + " </dev/null >" + ShellQuote(out) + " 2>" +
                       ShellQuote(err);
    int status = std::system(line.c_str());
    RunResult r;
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = ReadFile(out);
    r.err = ReadFile(err);
    return r;
}

std::string LogWithoutTimes(const std::string& logText)
{
    std::istringstream in(logText);
    std::string line, result;
    while (std::getline(in, line)) {
        size_t at = line.find(" (");
        result += (at == std::string::npos ? line : line.substr(at + 1)) + "\n";
    }
    return result;
}

} // namespace test
} // namespace tarvik
