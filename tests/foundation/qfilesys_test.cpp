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
class FakeArchive : public QVfsArchive {
public:
    FakeArchive(std::string name, std::map<std::string, std::string> files)
        : archiveName(std::move(name)), members(std::move(files)) {}
    const char* GetArchiveFileName() const override { return archiveName.c_str(); }
    bool HasFile(const char* name) override
    {
        asked.push_back(name);
        return members.count(name) != 0;
    }
    QFile* OpenMember(const char* name) override
    {
        auto it = members.find(name);
        if (it == members.end()) return nullptr;
        return new QFile(name, &it->second[0], int(it->second.size()));
    }

    std::string archiveName;
    std::map<std::string, std::string> members;
    std::vector<std::string> asked;
};

std::string FirstLine(QFile* file)
{
    qstring line;
    file->GetLine(line);
    return line.cstr();
}

// The application's hooks, pointing at one virtual file system while the object lives.
QVirtualFileSystem* hookedFileSystem;
QVirtualFileSystem* HookedFileSystem() { return hookedFileSystem; }

class HookedFileSystemScope {
public:
    explicit HookedFileSystemScope(QVirtualFileSystem* vfs)
    {
        static QAppHooks hooks{};
        hooks.GetFileSystem = HookedFileSystem;
        hookedFileSystem = vfs;
        qappHooks = &hooks;
    }
    ~HookedFileSystemScope()
    {
        qappHooks = nullptr;
        hookedFileSystem = nullptr;
    }
};

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

TEST_F(QFileSysTest, FileExistsOnDisk)
{
    WriteFile("here.txt", "x");
    EXPECT_TRUE(QFileExists("here.txt"));
    EXPECT_FALSE(QFileExists("missing.txt"));
    EXPECT_FALSE(QFileExists(""));
    EXPECT_FALSE(QFileExists(nullptr));
    EXPECT_TRUE(QFileExists("here.txt", true)); // no application: the disk answers
    static QAppHooks hooks{};                    // an application without archives: the disk too
    qappHooks = &hooks;
    EXPECT_TRUE(QFileExists("here.txt", true));
    EXPECT_FALSE(QFileExists("missing.txt", true));
    qappHooks = nullptr;
}

TEST_F(QFileSysTest, FileInfoFromStatus)
{
    WriteFile("five.bin", "12345");
    struct utimbuf times = {1000000000, 1000000000};
    ASSERT_EQ(utime("five.bin", &times), 0);
    QFileInfo info;
    ASSERT_TRUE(QFileInfoOf("five.bin", &info));
    EXPECT_EQ(info.size, 5);
    EXPECT_EQ(info.isDirectory, 0);
    EXPECT_EQ(info.modified, 1000000000);
    EXPECT_GT(info.created, 1000000000); // the status changed just now

    std::filesystem::create_directory("sub");
    ASSERT_TRUE(QFileInfoOf("sub", &info));
    EXPECT_EQ(info.isDirectory, 1);

    std::memset(&info, 0xAB, sizeof info);
    EXPECT_FALSE(QFileInfoOf("missing", &info));
    EXPECT_EQ(info.size, 0);
    EXPECT_EQ(info.isDirectory, 0);
    EXPECT_EQ(info.modified, 0);
    EXPECT_EQ(info.created, 0);
}

TEST_F(QFileSysTest, FileNameAndExtension)
{
    const char* mixed = "c:\\dir/file.x";
    EXPECT_EQ(QFileName(mixed), mixed + 7);
    EXPECT_STREQ(QFileName("a/b\\c"), "c");
    const char* plain = "plain.txt";
    EXPECT_EQ(QFileName(plain), plain);
    EXPECT_STREQ(QFileName("dir/"), "");
    EXPECT_EQ(QFileName(nullptr), nullptr);

    const char* name = "a.b.txt";
    EXPECT_EQ(QFileExtension(name), name + 3);
    EXPECT_EQ(QFileExtension("noext"), nullptr);
    const char* empty = "";
    EXPECT_EQ(QFileExtension(empty), empty);
    EXPECT_STREQ(QFileExtension("dir.d/file"), ".d/file"); // the last '.', wherever it stands
}

TEST_F(QFileSysTest, CurrentDirectoryIsReadAndSet)
{
    qstring here;
    QCurrentDirectory(here);
    EXPECT_EQ(std::string(here.cstr()), std::filesystem::current_path().string());

    std::filesystem::create_directory("sub");
    ASSERT_TRUE(QSetCurrentDirectory("sub"));
    EXPECT_EQ(std::filesystem::current_path().filename().string(), "sub");
    ASSERT_TRUE(QSetCurrentDirectory(here));
    qstring back;
    QCurrentDirectory(back);
    EXPECT_STREQ(back.cstr(), here.cstr());
}

TEST_F(QFileSysTest, FailedChangeOfDirectoryWarns)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(QSetCurrentDirectory("nowhere"));
    std::string err = testing::internal::GetCapturedStderr();
    std::string words = "QSetCurrentDirectory(nowhere) failed; errno " + std::to_string(ENOENT);
    EXPECT_EQ(err, words + "\n");
    EXPECT_NE(LogWithoutTimes(ReadFile("QLOG.txt")).find("(WARN ): [-] " + words + " ["), std::string::npos);
}

TEST_F(QFileSysTest, MakeAndRemoveDirectoriesAndFiles)
{
    EXPECT_TRUE(QMakeDirectory("made"));
    EXPECT_TRUE(std::filesystem::is_directory("made"));
    EXPECT_TRUE(QMakeDirectory("made")); // existed already
    EXPECT_FALSE(QMakeDirectory("no/such/parent"));

    WriteFile("made/f.txt", "x");
    EXPECT_FALSE(QRemoveDirectory("made")); // not empty
    EXPECT_TRUE(QRemoveFile("made/f.txt"));
    EXPECT_FALSE(FileExists("made/f.txt"));
    EXPECT_FALSE(QRemoveFile("made/f.txt"));
    EXPECT_TRUE(QRemoveDirectory("made"));
    EXPECT_FALSE(FileExists("made"));
    EXPECT_FALSE(QRemoveDirectory("made"));
}

TEST_F(QPathTest, FindFileSearchesDirectoriesInOrder)
{
    QPath path;
    EXPECT_STREQ(path.ClassName(), "QPath");
    std::filesystem::create_directories("a");
    std::filesystem::create_directories("b");
    WriteFile("b/x.txt", "b");
    ASSERT_TRUE(path.Add("a"));
    ASSERT_TRUE(path.Add("b"));
    EXPECT_STREQ(path.FindFile("x.txt"), "b/x.txt");
    WriteFile("a/x.txt", "a");
    EXPECT_STREQ(path.FindFile("x.txt"), "a/x.txt");
    EXPECT_STREQ(path.FindFile("none.txt"), "none.txt");

    const char* first = path.FindFile("x.txt");
    const char* second = path.FindFile("none.txt");
    EXPECT_EQ(first, second); // one static buffer
    EXPECT_STREQ(first, "none.txt");

    path.Clear();
    EXPECT_EQ(path.GetCount(), 0);
    EXPECT_STREQ(path.FindFile("x.txt"), "x.txt");
}

TEST_F(QPathTest, FindFileIntoStrings)
{
    QPath path;
    std::filesystem::create_directories("d2");
    WriteFile("d2/y.txt", "y");
    path.Add("d1");
    path.Add("d2");
    qstring found, directory("stale");
    EXPECT_TRUE(path.FindFile("y.txt", found, &directory));
    EXPECT_STREQ(found.cstr(), "d2/y.txt");
    EXPECT_STREQ(directory.cstr(), "d2");

    EXPECT_FALSE(path.FindFile("z.txt", found, &directory));
    EXPECT_STREQ(found.cstr(), "z.txt");
    EXPECT_STREQ(directory.cstr(), "");
    EXPECT_TRUE(path.FindFile("y.txt", found, nullptr));
    EXPECT_STREQ(found.cstr(), "d2/y.txt");
}

TEST_F(QPathTest, FindFileLooksIntoArchivesThroughTheApplication)
{
    FakeArchive archive("pack/data.arc", {{"inside.txt", "member"}});
    QVirtualFileSystem vfs;
    vfs.AddArchive(&archive);
    QPath path;
    path.Add("other");
    path.Add("PACK");
    {
        HookedFileSystemScope scope(&vfs);
        EXPECT_TRUE(QFileExists("pack/inside.txt", true));
        EXPECT_FALSE(QFileExists("pack/inside.txt", false));
        EXPECT_STREQ(path.FindFile("inside.txt"), "PACK/inside.txt");
    }
    EXPECT_EQ(qappHooks, nullptr);
    EXPECT_FALSE(QFileExists("pack/inside.txt", true));
    EXPECT_STREQ(path.FindFile("inside.txt"), "inside.txt");
}

TEST_F(QDirectoryTest, ReadsEveryEntryWithInfo)
{
    std::filesystem::create_directory("tree");
    WriteFile("tree/one", "1");
    WriteFile("tree/three", "333");
    std::filesystem::create_directory("tree/sub");
    QDirectory d("tree");
    EXPECT_STREQ(d.ClassName(), "QDirectory");
    std::map<std::string, QFileInfo> infos;
    EXPECT_EQ(Entries(d, &infos), (std::set<std::string>{".", "..", "one", "three", "sub"}));
    EXPECT_EQ(infos["three"].size, 3);
    EXPECT_EQ(infos["three"].isDirectory, 0);
    EXPECT_EQ(infos["sub"].isDirectory, 1);
    EXPECT_EQ(infos["."].isDirectory, 1);
    char name[1024];
    EXPECT_FALSE(d.Read(name, nullptr)); // stays at the end

    ASSERT_TRUE(d.Open("tree/sub")); // a new search replaces the old one
    EXPECT_EQ(Entries(d), (std::set<std::string>{".", ".."}));
    ASSERT_TRUE(d.Open("tree"));
    EXPECT_EQ(Entries(d).size(), 5u);
}

TEST_F(QDirectoryTest, MissingDirectoryReadsNothing)
{
    QDirectory d("absent");
    char name[1024] = "unchanged";
    EXPECT_FALSE(d.Read(name));
    EXPECT_FALSE(d.Open("absent/too"));
    EXPECT_FALSE(d.Read(name));
    ASSERT_TRUE(d.Open("."));
    EXPECT_TRUE(Entries(d).count(".."));
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
    EXPECT_FALSE(vfs.FileExists("data/y.txt"));
    EXPECT_FALSE(vfs.FileExists("data/sub/x.txt"));
    EXPECT_FALSE(vfs.FileExists("x.txt"));
    EXPECT_FALSE(vfs.FileExists(""));
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(other.asked.empty()); // its directory never matched
    ASSERT_FALSE(data.asked.empty());
    EXPECT_EQ(data.asked[0], "x.txt"); // the member name without directory

    FakeArchive top("top.arc", {{"bare.txt", "bare"}}); // an archive without directory serves bare names
    QVirtualFileSystem topOnly;
    topOnly.AddArchive(&top);
    EXPECT_TRUE(topOnly.FileExists("bare.txt"));
    EXPECT_FALSE(topOnly.FileExists("sub/bare.txt"));
}

TEST_F(QVirtualFileSystemTest, OpenFilePrefersDiskThenArchivesInOrder)
{
    std::filesystem::create_directory("data");
    WriteFile("data/disk.txt", "from disk\n");
    FakeArchive other("other/a.arc", {{"x.txt", "wrong"}});
    FakeArchive first("DATA/b.arc", {{"x.txt", "first"}});
    FakeArchive second("data/c.arc", {{"x.txt", "second"}, {"y.txt", "only second"}});
    QVirtualFileSystem vfs;
    vfs.AddArchive(&other);
    vfs.AddArchive(&first);
    vfs.AddArchive(&second);

    testing::internal::CaptureStderr();
    std::unique_ptr<QFile> disk(vfs.OpenFile("data/disk.txt", QFile::READ));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_NE(disk, nullptr);
    EXPECT_EQ(FirstLine(disk.get()), "from disk");

    testing::internal::CaptureStderr();
    std::unique_ptr<QFile> x(vfs.OpenFile("data/x.txt", QFile::READ));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Directory does not match\n");
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(FirstLine(x.get()), "first");

    testing::internal::CaptureStderr();
    std::unique_ptr<QFile> y(vfs.OpenFile("Data/y.txt", QFile::READ));
    testing::internal::GetCapturedStderr();
    ASSERT_NE(y, nullptr);
    EXPECT_EQ(FirstLine(y.get()), "only second");

    testing::internal::CaptureStderr();
    EXPECT_EQ(vfs.OpenFile("data/none.txt", QFile::READ), nullptr);
    EXPECT_EQ(vfs.OpenFile("x.txt", QFile::READ), nullptr);
    // One report for each archive whose directory differs: one, then all three.
    std::string four;
    for (int i = 0; i < 4; i++) four += "Directory does not match\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), four);
    EXPECT_FALSE(FileExists("QLOG.txt")); // an information, not a warning
}

