#include "foundation/qoutput.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tarvik;
using tarvik::test::ReadFile;
using tarvik::test::TempDir;
using tarvik::test::WriteFile;

namespace {

int Entries(const std::string& dir)
{
    int n = 0;
    for (auto it = std::filesystem::directory_iterator(dir); it != std::filesystem::directory_iterator(); ++it) n++;
    return n;
}

bool Write(QOutput& out, const std::string& bytes)
{
    return std::fwrite(bytes.data(), 1, bytes.size(), out.Stream()) == bytes.size();
}

} // namespace

TEST(QOutputTest, OldFileStandsUntilCommitAndAfterAbandon)
{
    TempDir dir;
    const std::string name = dir.File("table.txt");
    WriteFile(name, "old");
    chmod(name.c_str(), 0640);
    for (bool commit : {false, true}) {
        QOutput out;
        ASSERT_TRUE(out.Open(name.c_str()));
        EXPECT_NE(std::string(out.WorkName()), name);
        ASSERT_TRUE(Write(out, "new"));
        std::fflush(out.Stream());
        EXPECT_EQ(ReadFile(name), "old");
        if (commit) EXPECT_TRUE(out.Commit());
        else out.Abandon();
        EXPECT_EQ(ReadFile(name), commit ? "new" : "old");
        EXPECT_EQ(Entries(dir.Path()), 1);
    }
    struct stat st;
    ASSERT_EQ(stat(name.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    { // destroyed without a commit: abandoned
        QOutput out;
        ASSERT_TRUE(out.Open(dir.File("fresh.txt").c_str()));
        Write(out, "x");
    }
    EXPECT_EQ(Entries(dir.Path()), 1);
}

TEST(QOutputTest, WhatStandsAtTheName)
{
    TempDir dir;
    WriteFile(dir.File("target"), "old");
    symlink("target", dir.File("link").c_str());
    symlink("nowhere/x", dir.File("dangling").c_str());
    WriteFile(dir.File("readonly"), "keep");
    chmod(dir.File("readonly").c_str(), 0444);
    mkdir(dir.File("folder").c_str(), 0777);
    struct Case {
        std::string name;
        int flags;
        bool opens;
        std::string targetAfter; // content of 'target' after writing "new" and committing
    } cases[] = {
        {dir.File("link"), 0, true, "new"}, // followed: the target is replaced, the link stays
        {dir.File("link"), PLATFORM_OUTPUT_NO_LINKS, false, "old"},
        {dir.File("dangling"), PLATFORM_OUTPUT_NO_LINKS, false, "old"},
        {dir.File("readonly"), 0, false, "old"},
        {dir.File("folder"), 0, false, "old"},
        {"/dev/null", PLATFORM_OUTPUT_NO_LINKS, false, "old"},
        {"/dev/null", 0, true, "old"},
    };
    for (const Case& c : cases) {
        WriteFile(dir.File("target"), "old");
        QOutput out;
        ASSERT_EQ(out.Open(c.name.c_str(), c.flags), c.opens) << c.name;
        if (c.opens) {
            Write(out, "new");
            EXPECT_TRUE(out.Commit()) << c.name;
        }
        EXPECT_EQ(ReadFile(dir.File("target")), c.targetAfter) << c.name;
    }
    struct stat st;
    ASSERT_EQ(lstat(dir.File("link").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(ReadFile(dir.File("readonly")), "keep");
    EXPECT_EQ(Entries(dir.Path()), 5);
}

// A write past the file size limit fails with EFBIG instead of ending the process; the old file
// stands and no temporary file is left. Run in a child, where the limit can be lowered.
TEST(QOutputTest, FailedWriteKeepsTheOldFile)
{
    TempDir dir;
    const std::string name = dir.File("table.txt");
    WriteFile(name, "old");
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        struct rlimit limit = {4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        QOutput out;
        if (!out.Open(name.c_str())) _exit(2);
        std::string big(100000, 'x');
        std::fwrite(big.data(), 1, big.size(), out.Stream());
        bool ok = out.Commit();
        _exit(ok ? 3 : errno == EFBIG ? 0 : 4);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(ReadFile(name), "old");
    EXPECT_EQ(Entries(dir.Path()), 1);
}
