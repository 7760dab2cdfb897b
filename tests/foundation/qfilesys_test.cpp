// Files and directories on disk, the search path, directory reading, and the virtual file system
// in front of archives, reached directly and through the application's hooks.
#include "foundation/qapphooks.h"
#include "foundation/qfile.h"
#include "foundation/qfilesys.h"
#include "foundation/qmessage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <utime.h>

using namespace tarvik;
using namespace tarvik::test;
namespace fs = std::filesystem;

namespace {

class QFileSysTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }
    void TearDown() override { qappHooks = nullptr; }
    TempDir dir{true};
};
using QPathTest = QFileSysTest;
using QDirectoryTest = QFileSysTest;
using QVirtualFileSystemTest = QFileSysTest;

// An archive that holds its members in memory and notes which names it was asked for.
struct FakeArchive : QVfsArchive {
    FakeArchive(std::string name, std::map<std::string, std::string> files)
        : archiveName(std::move(name)), members(std::move(files)) {}
    const char* GetArchiveFileName() const override { return archiveName.c_str(); }
    bool HasFile(const char* name) override { return asked.push_back(name), members.count(name) != 0; }
    QFile* OpenMember(const char* name) override
    {
        auto it = members.find(name);
        return it == members.end() ? nullptr : new QFile(name, &it->second[0], int(it->second.size()));
    }
    std::string archiveName;
    std::map<std::string, std::string> members;
    std::vector<std::string> asked;
};

// The first line of the file opened through 'vfs' ("<none>" if none), '|', what went to standard error.
std::string Opened(QVirtualFileSystem& vfs, const char* name)
{
    testing::internal::CaptureStderr();
    std::unique_ptr<QFile> file(vfs.OpenFile(name, QFile::READ));
    qstring line;
    if (file) file->GetLine(line);
    return (file ? std::string(line.cstr()) : "<none>") + "|" + testing::internal::GetCapturedStderr();
}

QVirtualFileSystem* hookedFileSystem;
QVirtualFileSystem* HookedFileSystem() { return hookedFileSystem; }

std::set<std::string> Entries(QDirectory& d, std::map<std::string, QFileInfo>* infos = nullptr)
{
    std::set<std::string> names;
    char name[1024];
    QFileInfo info;
    while (d.Read(name, &info)) {
        names.insert(name);
        if (infos) (*infos)[name] = info;
    }
    return names;
}

} // namespace

TEST_F(QFileSysTest, FileNamesFilesAndDirectoriesOnDiskAndTheCurrentOne)
{
    const char *mixed = "c:\\dir/file.x", *plain = "plain.txt", *name = "a.b.txt", *empty = "";
    EXPECT_EQ(QFileName(mixed), mixed + 7);
    EXPECT_EQ(QFileName(plain), plain);
    EXPECT_STREQ(QFileName("a/b\\c"), "c");
    EXPECT_STREQ(QFileName("dir/"), "");
    EXPECT_EQ(QFileName(nullptr), nullptr);
    EXPECT_EQ(QFileExtension(name), name + 3);
    EXPECT_EQ(QFileExtension("noext"), nullptr);
    EXPECT_EQ(QFileExtension(empty), empty);
    EXPECT_STREQ(QFileExtension("dir.d/file"), ".d/file"); // the last '.', wherever it stands

    WriteFile("five.bin", "12345");
    EXPECT_TRUE(QFileExists("five.bin"));
    EXPECT_FALSE(QFileExists("missing.txt") || QFileExists("") || QFileExists(nullptr));
    EXPECT_TRUE(QFileExists("five.bin", true)); // no application: the disk answers
    static QAppHooks hooks{};                    // an application without archives: the disk too
    qappHooks = &hooks;
    EXPECT_TRUE(QFileExists("five.bin", true));
    EXPECT_FALSE(QFileExists("missing.txt", true));

    struct utimbuf times = {1000000000, 1000000000};
    ASSERT_EQ(utime("five.bin", &times), 0);
    QFileInfo info;
    ASSERT_TRUE(QFileInfoOf("five.bin", &info));
    EXPECT_TRUE(info.size == 5 && info.isDirectory == 0 && info.modified == 1000000000);
    EXPECT_GT(info.created, 1000000000); // the status changed just now
    std::memset(&info, 0xAB, sizeof info);
    EXPECT_FALSE(QFileInfoOf("missing", &info));
    EXPECT_TRUE(info.size == 0 && info.isDirectory == 0 && info.modified == 0 && info.created == 0);

    EXPECT_TRUE(QMakeDirectory("made"));
    ASSERT_TRUE(QFileInfoOf("made", &info));
    EXPECT_EQ(info.isDirectory, 1);
    EXPECT_TRUE(QMakeDirectory("made")); // existed already
    EXPECT_FALSE(QMakeDirectory("no/such/parent"));
    WriteFile("made/f.txt", "x");
    EXPECT_FALSE(QRemoveDirectory("made")); // not empty
    EXPECT_TRUE(QRemoveFile("made/f.txt") && !FileExists("made/f.txt") && !QRemoveFile("made/f.txt"));
    EXPECT_TRUE(QRemoveDirectory("made") && !FileExists("made") && !QRemoveDirectory("made"));

    qstring here, back;
    QCurrentDirectory(here);
    EXPECT_EQ(std::string(here.cstr()), fs::current_path().string());
    fs::create_directory("sub");
    ASSERT_TRUE(QSetCurrentDirectory("sub"));
    EXPECT_EQ(fs::current_path().filename().string(), "sub");
    ASSERT_TRUE(QSetCurrentDirectory(here));
    QCurrentDirectory(back);
    EXPECT_STREQ(back.cstr(), here.cstr());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(QSetCurrentDirectory("nowhere"));
    std::string words = "QSetCurrentDirectory(nowhere) failed; errno " + std::to_string(ENOENT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), words + "\n");
    EXPECT_NE(LogWithoutTimes(ReadFile("QLOG.txt")).find("(WARN ): [-] " + words + " ["), std::string::npos);
}

TEST_F(QPathTest, FindFileSearchesDirectoriesInOrder)
{
    QPath path;
    EXPECT_STREQ(path.ClassName(), "QPath");
    fs::create_directories("a");
    fs::create_directories("b");
    WriteFile("b/x.txt", "b");
    ASSERT_TRUE(path.Add("a"));
    ASSERT_TRUE(path.Add("b"));
    EXPECT_STREQ(path.FindFile("x.txt"), "b/x.txt");
    WriteFile("a/x.txt", "a");
    const char* first = path.FindFile("x.txt");
    EXPECT_STREQ(first, "a/x.txt");
    EXPECT_EQ(path.FindFile("none.txt"), first); // one static buffer
    EXPECT_STREQ(first, "none.txt");
    qstring found, directory("stale");
    EXPECT_TRUE(path.FindFile("x.txt", found, &directory));
    EXPECT_EQ(std::string(found.cstr()) + "|" + directory.cstr(), "a/x.txt|a");
    EXPECT_FALSE(path.FindFile("z.txt", found, &directory));
    EXPECT_EQ(std::string(found.cstr()) + "|" + directory.cstr(), "z.txt|");
    fs::remove("a/x.txt");
    EXPECT_TRUE(path.FindFile("x.txt", found, nullptr));
    EXPECT_STREQ(found.cstr(), "b/x.txt");
    path.Clear();
    EXPECT_EQ(path.GetCount(), 0);
    EXPECT_STREQ(path.FindFile("x.txt"), "x.txt");
}

TEST_F(QDirectoryTest, ReadsEveryEntryWithInfo)
{
    fs::create_directory("tree");
    WriteFile("tree/one", "1");
    WriteFile("tree/three", "333");
    fs::create_directory("tree/sub");
    QDirectory d("tree");
    EXPECT_STREQ(d.ClassName(), "QDirectory");
    std::map<std::string, QFileInfo> infos;
    EXPECT_EQ(Entries(d, &infos), (std::set<std::string>{".", "..", "one", "three", "sub"}));
    EXPECT_TRUE(infos["three"].size == 3 && infos["three"].isDirectory == 0);
    EXPECT_TRUE(infos["sub"].isDirectory == 1 && infos["."].isDirectory == 1);
    char name[1024] = "unchanged";
    EXPECT_FALSE(d.Read(name, nullptr)); // stays at the end
    ASSERT_TRUE(d.Open("tree/sub")); // a new search replaces the old one
    EXPECT_EQ(Entries(d), (std::set<std::string>{".", ".."}));
    EXPECT_FALSE(d.Open("absent") || d.Read(name));
    QDirectory missing("absent");
    EXPECT_FALSE(missing.Read(name));
    ASSERT_TRUE(missing.Open("tree"));
    EXPECT_EQ(Entries(missing).size(), 5u);
}

TEST_F(QVirtualFileSystemTest, FileExistsOnDiskOrInAMatchingArchive)
{
    WriteFile("disk.txt", "");
    FakeArchive other("elsewhere/a.arc", {{"x.txt", "wrong"}});
    FakeArchive data("Data/b.arc", {{"x.txt", "right"}});
    QVirtualFileSystem vfs;
    EXPECT_TRUE(vfs.FileExists("disk.txt"));
    EXPECT_FALSE(vfs.FileExists("data/x.txt"));
    ASSERT_TRUE(vfs.AddArchive(&other));
    EXPECT_FALSE(vfs.FileExists("data/x.txt"));
    ASSERT_TRUE(vfs.AddArchive(&data));
    testing::internal::CaptureStderr();
    EXPECT_TRUE(vfs.FileExists("data/x.txt")); // directories compared upper-cased
    EXPECT_TRUE(vfs.FileExists("DATA/x.txt"));
    for (const char* name : {"data/y.txt", "data/sub/x.txt", "x.txt", ""})
        EXPECT_FALSE(vfs.FileExists(name)) << name;
    EXPECT_TRUE(other.asked.empty()); // its directory never matched
    ASSERT_FALSE(data.asked.empty());
    EXPECT_EQ(data.asked[0], "x.txt"); // the member name without directory

    QPath path; // the application's file system answers for the search path and QFileExists
    path.Add("other");
    path.Add("DATA");
    static QAppHooks hooks{};
    hooks.GetFileSystem = HookedFileSystem;
    hookedFileSystem = &vfs;
    qappHooks = &hooks;
    EXPECT_TRUE(QFileExists("data/x.txt", true));
    EXPECT_FALSE(QFileExists("data/x.txt", false));
    EXPECT_STREQ(path.FindFile("x.txt"), "DATA/x.txt");
    qappHooks = nullptr;
    EXPECT_FALSE(QFileExists("data/x.txt", true));
    EXPECT_STREQ(path.FindFile("x.txt"), "x.txt");
    testing::internal::GetCapturedStderr();
    FakeArchive top("top.arc", {{"bare.txt", "bare"}}); // an archive without directory serves bare names
    QVirtualFileSystem topOnly;
    topOnly.AddArchive(&top);
    EXPECT_TRUE(topOnly.FileExists("bare.txt"));
    EXPECT_FALSE(topOnly.FileExists("sub/bare.txt"));
}

TEST_F(QVirtualFileSystemTest, OpenFilePrefersDiskThenArchivesInOrder)
{
    fs::create_directory("data");
    WriteFile("data/disk.txt", "from disk\n");
    FakeArchive other("other/a.arc", {{"x.txt", "wrong"}});
    FakeArchive first("DATA/b.arc", {{"x.txt", "first"}});
    FakeArchive second("data/c.arc", {{"x.txt", "second"}, {"y.txt", "only second"}});
    QVirtualFileSystem vfs;
    for (FakeArchive* archive : {&other, &first, &second}) vfs.AddArchive(archive);
    const std::string no = "Directory does not match\n";
    EXPECT_EQ(Opened(vfs, "data/disk.txt"), "from disk|");
    EXPECT_EQ(Opened(vfs, "data/x.txt"), "first|" + no);
    EXPECT_EQ(Opened(vfs, "Data/y.txt"), "only second|" + no);
    // One report for each archive whose directory differs: one, then all three.
    EXPECT_EQ(Opened(vfs, "data/none.txt"), "<none>|" + no);
    EXPECT_EQ(Opened(vfs, "x.txt"), "<none>|" + no + no + no);
    EXPECT_FALSE(FileExists("QLOG.txt")); // an information, not a warning
}
