// Cases of the message log. Each runs in a fresh directory (QLOG.txt lands in the current one) and
// from a fresh log state, so no earlier message folds into a repeat and the start line comes again.
#include "foundation/qapphooks.h"
#include "foundation/qmessage.h"
#include "tests/foundation/cpulimit.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

using namespace tarvik;

namespace {

const char* const kFile = "/home/build/src/widgets/widget.cpp";
const char* const kFunction = "void tarvik::Widget::Paint(int, const char*) const";
const std::string kStart = "(INFO ): [-] --- application start ---\n";

template <class Action>
std::string StderrOf(Action&& action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

// One log line of a report from kFile/kFunction; 'severity' is the padded word.
std::string At(const char* severity, const std::string& text, int line)
{
    return std::string("(") + severity + "): [-] " + text + " [widget.cpp:" + std::to_string(line) +
           " / Widget::Paint]\n";
}

std::vector<std::string> mirrored;
void Mirror(const char* message) { mirrored.push_back(message); }

// A death test's child can tell its parent only through the disk.
void MarkShutdown() { test::WriteFile("shutdown.txt", "called"); }

class QMessageTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }
    void TearDown() override
    {
        qappHooks = nullptr;
        QSetLogMirror(nullptr);
        QSetNetworkShutdown(nullptr);
        qmsgReset();
    }
    static std::string Log() { return test::LogWithoutTimes(test::ReadFile("QLOG.txt")); }
    test::TempDir dir{true};
};

using QMessageDeathTest = QMessageTest;

std::string Name(const char* signature, int size = 256)
{
    std::vector<char> out(size_t(size) + 8, '#');
    qmsgFunctionName(signature, out.data(), size);
    EXPECT_EQ(out[size_t(size)], '#') << "wrote past the given size";
    return out.data();
}

} // namespace

TEST_F(QMessageTest, FunctionNameIsClassAndMethod)
{
    const struct { const char* signature; const char* name; } cases[] = {
        {"void tarvik::QFile::Close()", "QFile::Close"}, {"int main(int, char**)", "main"}, {nullptr, ""},
        {"static tarvik::QString* tarvik::QString::Create(const char*, int)", "QString::Create"},
        {"const char* tarvik::QString::GetBuffer() const", "QString::GetBuffer"},
        {"virtual void QMessageTest_X_Test::TestBody()", "QMessageTest_X_Test::TestBody"},
        {"void tarvik::Sort(T*, int) [with T = int]", "Sort"},
        {"bool tarvik::QString::operator==(const tarvik::QString&) const", "QString::operator=="},
        {"bool tarvik::QString::operator<(const tarvik::QString&) const", "QString::operator<"},
        {"tarvik::QString& tarvik::QString::operator<<(int)", "QString::operator<<"},
        {"char& tarvik::QString::operator[](int)", "QString::operator[]"},
        {"void tarvik::QTimer::operator()(int)", "QTimer::operator()"},
        {"T* tarvik::QPtr<T>::operator->() const [with T = int]", "QPtr<T>::operator->"},
        {"static void* tarvik::QObject::operator new(size_t)", "QObject::operator new"},
        {"tarvik::QString::operator int() const", "QString::operator int"},
        {"tarvik::QString::operator const char*() const", "QString::operator const char*"},
        {"T tarvik::QList<T>::Get(int) const [with T = int]", "QList<T>::Get"},
        {"void tarvik::QMap<K, V>::Set(const K&, const V&) [with K = int; V = double]", "QMap<K, V>::Set"},
        {"std::map<int, std::basic_string<char> > tarvik::QTable::Rows(int)", "QTable::Rows"},
        // The other compiler's spellings give the same names.
        {"void tarvik::{anonymous}::Parse(int)", "Parse"},
        {"void tarvik::(anonymous namespace)::Parse(int)", "Parse"},
        {"tarvik::(anonymous namespace)::Parser::~Parser()", "Parser::~Parser"},
        {"tarvik::QInfo::Read()::<lambda(int)>", "QInfo::Read"},
        {"auto tarvik::QInfo::Read()::(anonymous class)::operator()(int) const", "QInfo::Read"},
        {"const char *tarvik::QString::operator const char *() const", "QString::operator const char*"},
        {"void tarvik::Sort(T *, int) [T = int]", "Sort"},
    };
    for (const auto& c : cases) EXPECT_EQ(Name(c.signature), c.name) << (c.signature ? c.signature : "null");
    EXPECT_EQ(Name("void tarvik::QFile::Close()", 6), "QFile");
}

TEST_F(QMessageTest, StartLineStandsOnceAndRepeatsFoldWithTheFirstLocation)
{
    std::string err = StderrOf([] {
        qmsgerror(kFile, kFunction, 42, "disk %s full", "C");
        qmsgwarning(kFile, kFunction, 43, "low memory: %d", 5);
        for (int line : {10, 20, 30}) qmsgerror(kFile, kFunction, line, "same");
    });
    // The start line takes the no-echo bit of the error: it stays off standard error.
    EXPECT_EQ(err, "disk C full\nlow memory: 5\nsame\nsame\nsame\n");
    std::string lines = kStart + At("ERR  ", "disk C full", 42) + At("WARN ", "low memory: 5", 43) +
                        At("ERR  ", "same", 10);
    EXPECT_EQ(Log(), lines); // a pending run is not written until a different message comes
    EXPECT_TRUE(std::regex_search(test::ReadFile("QLOG.txt"),
                                  std::regex("^[A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} "
                                             "[0-9]{2}:[0-9]{2}:[0-9]{2} \\(INFO \\): ")));
    EXPECT_EQ(StderrOf([] { qmsgwarning(kFile, kFunction, 40, "other"); }), "other\n");
    EXPECT_EQ(Log(), lines + At("ERR  ", "[2x repeat] same", 10) + At("WARN ", "other", 40));
}

namespace {
int WarnFromUnnamedNamespace() { QWARNING("warned"); return __LINE__; }
} // namespace

TEST_F(QMessageTest, ReporterMacrosPassFileFunctionAndLine)
{
    testing::internal::CaptureStderr();
    int line = __LINE__ + 1;
    QERROR("by macro"); int warned = WarnFromUnnamedNamespace(); QDEBUG("noted"); QINFO("half %d%%", 50);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "by macro\nwarned\nnoted\nhalf 50%");
    std::string where = " [qmessage_test.cpp:" + std::to_string(line) +
                        " / QMessageTest_ReporterMacrosPassFileFunctionAndLine_Test::TestBody]\n";
    EXPECT_EQ(Log(), kStart + "(ERR  ): [-] by macro" + where + "(WARN ): [-] warned [qmessage_test.cpp:" +
                         std::to_string(warned) + " / WarnFromUnnamedNamespace]\n(INFO ): [-] noted" + where);
}

TEST_F(QMessageTest, DebugNotesEchoOnceInfoReportsStayOutOfTheLogAndLineFeedsFold)
{
    EXPECT_EQ(StderrOf([] { qmsginfo(kFile, kFunction, 1, "loading %s\n", "map"); }), "loading map\n");
    EXPECT_FALSE(test::FileExists("QLOG.txt"));
    std::string err = StderrOf([] {
        qmsgdebug(kFile, kFunction, 7, "tick %d", 1);
        qmsgdebug(kFile, kFunction, 7, "tick %d", 1);
    });
    EXPECT_EQ(err, "--- application start ---\ntick 1\n");
    err = StderrOf([] {
        qmsgerror(kFile, kFunction, 8, "x");
        qmsginfo(kFile, kFunction, 3, "progress 50%%");
        qmsgerror(kFile, kFunction, 4, "x");
        qmsgerror(kFile, kFunction, 5, "y");
    });
    // The error's own echo comes before the folding writes the pending repeat line.
    EXPECT_EQ(err, "x\n[1x repeat] tick 1\nprogress 50%x\ny\n");
    std::string log = kStart + At("INFO ", "tick 1", 7) + At("INFO ", "[1x repeat] tick 1", 7) +
                      At("ERR  ", "x", 8) + At("ERR  ", "[1x repeat] x", 8) + At("ERR  ", "y", 5);
    EXPECT_EQ(Log(), log);
    // The error reporter adds the line feed, so "abc" and "abc\n" fold; the core takes them as two texts.
    err = StderrOf([] {
        qmsgerror(kFile, kFunction, 1, "abc");
        qmsgerror(kFile, kFunction, 1, "abc\n");
        qmsgerror(kFile, kFunction, 1, "%s", ""); // gets no line feed
        qmsgerror(kFile, kFunction, 2, "def");
        qmsgwrite(QMSG_ERR, nullptr, "abc");
        qmsgwrite(QMSG_ERR, nullptr, "abc\n");
    });
    EXPECT_EQ(err, "abc\nabc\ndef\nabc\nabc\n");
    EXPECT_EQ(Log(), log + At("ERR  ", "abc", 1) + At("ERR  ", "[1x repeat] abc", 1) + At("ERR  ", "", 1) +
                         At("ERR  ", "def", 2) + "(ERR  ): [-] abc\n(ERR  ): [-] abc\n");
    EXPECT_EQ(StderrOf([] { qmsgwrite(QMSG_WARN | QMSG_NOECHO, nullptr, "two\n\n"); }), "");
    std::string raw = test::ReadFile("QLOG.txt"); // only the last of two line feeds goes
    EXPECT_EQ(raw.substr(raw.size() - 19), " (WARN ): [-] two\n\n");
}

TEST_F(QMessageTest, EchoAndBoxFlagsAndTheSeverityWordFromTheFirstSetBitPaddedToFive)
{
    // The start line keeps neither the box bit nor the severity: echoed, no box, INFO.
    EXPECT_EQ(StderrOf([] { qmsgwrite(QMSG_ERR | QMSG_BOX, nullptr, "box me\n"); }),
              "--- application start ---\nbox me\n[Error] box me\n");
    EXPECT_EQ(StderrOf([] { qmsgwrite(QMSG_FATAL | QMSG_BOX | QMSG_NOECHO, nullptr, "end"); }),
              "[Fatal error - the program will exit] end\n");
    EXPECT_EQ(StderrOf([] { qmsgwrite(0, nullptr, "plain %d", 3); }), "plain 3\n");
    const int flags[] = {QMSG_ERR, QMSG_WARN, QMSG_CRIT, QMSG_NOTE, QMSG_INFO, QMSG_FATAL, QMSG_INFO2, 0,
                         QMSG_WARN | QMSG_ERR, QMSG_FATAL | QMSG_INFO, QMSG_INFO2 | QMSG_FATAL,
                         QMSG_CRIT | QMSG_NOTE};
    EXPECT_EQ(StderrOf([&] {
                  for (int i = 0; i < 12; i++) qmsgwrite(flags[i] | QMSG_NOECHO, nullptr, "m%d", i + 1);
              }), "");
    EXPECT_EQ(Log(), kStart + "(ERR  ): [-] box me\n(FATAL): [-] end\n(?    ): [-] plain 3\n"
                              "(ERR  ): [-] m1\n(WARN ): [-] m2\n(CRIT ): [-] m3\n(NOTE ): [-] m4\n"
                              "(INFO ): [-] m5\n(FATAL): [-] m6\n(INFO ): [-] m7\n(?    ): [-] m8\n"
                              "(ERR  ): [-] m9\n(INFO ): [-] m10\n(FATAL): [-] m11\n(CRIT ): [-] m12\n");
}

TEST_F(QMessageTest, MessageIsCutAtTheBufferSize)
{
    const std::string xs(20000, 'x'), ys(20000, 'y');
    const std::string cutX(QMSG_MAX - 1, 'x'), cutY(QMSG_MAX - 1, 'y');
    std::string err = StderrOf([&] {
        qmsgwrite(QMSG_ERR | QMSG_NOECHO, nullptr, "%s", xs.c_str());
        // Equal to the first after the cut, so it folds into it.
        qmsgwrite(QMSG_ERR | QMSG_NOECHO, nullptr, "%s", xs.substr(0, 15000).c_str());
        qmsgerror(kFile, kFunction, 9, "%s", ys.c_str());
    });
    EXPECT_TRUE(err == cutY + "\n") << "standard error holds " << err.size() << " characters";
    // The repeat line is cut as well: its prefix takes room from the message.
    const std::string expected = kStart + "(ERR  ): [-] " + cutX + "\n(ERR  ): [-] [1x repeat] " +
                                 cutX.substr(12) + "\n" + At("ERR  ", cutY, 9);
    std::string log = Log();
    EXPECT_TRUE(log == expected) << "the log holds " << log.size() << " characters, not " << expected.size();
}

TEST_F(QMessageTest, LogFollowsTheCurrentDirectoryAndTheFileAtItsName)
{
    namespace fs = std::filesystem;
    StderrOf([] {
        qmsgerror(kFile, kFunction, 1, "here");
        fs::create_directory("sub"); // a log there as long as this one tells nothing by its size
        fs::copy_file("QLOG.txt", "sub/QLOG.txt");
        fs::current_path("sub");
        qmsgerror(kFile, kFunction, 2, "in sub");
        fs::current_path("..");
        qmsgerror(kFile, kFunction, 3, "back");
    });
    EXPECT_EQ(test::LogWithoutTimes(test::ReadFile("sub/QLOG.txt")),
              kStart + At("ERR  ", "here", 1) + At("ERR  ", "in sub", 2));
    EXPECT_EQ(Log(), kStart + At("ERR  ", "here", 1) + At("ERR  ", "back", 3));
    fs::remove("QLOG.txt");
    StderrOf([] { qmsgerror(kFile, kFunction, 4, "anew"); });
    EXPECT_EQ(Log(), At("ERR  ", "anew", 4));
    test::WriteFile("other", "replaced\n");
    fs::rename("other", "QLOG.txt");
    StderrOf([] { qmsgerror(kFile, kFunction, 5, "behind"); });
    EXPECT_EQ(Log(), "replaced\n" + At("ERR  ", "behind", 5));
}

TEST_F(QMessageTest, LogThatCannotRotateTakesTheLineAndTheReportEnds)
{
    namespace fs = std::filesystem;
    // Nobody may rename in the folder; the log itself may be written by all.
    fs::create_directory("locked");
    test::WriteFile("locked/QLOG.txt", "");
    fs::resize_file("locked/QLOG.txt", 10000001);
    fs::permissions("locked/QLOG.txt", fs::perms::all);
    fs::permissions("locked", fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                    fs::perm_options::remove);
    testing::internal::CaptureStderr();
    EXPECT_EQ(test::RunWithCpuLimit(5, [] {
        fs::current_path("locked");
        if (geteuid() == 0 && setuid(65534) != 0) return false; // the owner of all may rename anywhere
        qmsgerror(kFile, kFunction, 1, "kept");
        qmsgerror(kFile, kFunction, 2, "again");
        return true;
    }), "done");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "kept\nagain\n");
    fs::permissions("locked", fs::perms::owner_all);
    std::string log = test::ReadFile("locked/QLOG.txt");
    ASSERT_GT(log.size(), 10000001u);
    EXPECT_EQ(test::LogWithoutTimes(log.substr(10000001)),
              kStart + At("ERR  ", "kept", 1) + At("ERR  ", "again", 2));
}

namespace {
int boxPrepared;
const char* AppName() { return "Viewer"; }
void* BoxOwner() { return &boxPrepared; }
void PrepareForBox() { boxPrepared++; }
} // namespace

TEST_F(QMessageTest, LogThatCannotBeOpenedOrWrittenIsSaidAndTriedAgainAndRotatesOnlyWhenOverTheLimit)
{
    std::filesystem::create_directory("QLOG.txt");
    std::string head = "** [-/" + std::to_string(getpid()) + "] Can't ";
    std::string cant = head + "open log file (QLOG)\n", unwritten = head + "write log file (QLOG)\n";
    // Once for the start line, once for the report; the report stays on standard error.
    EXPECT_EQ(StderrOf([] { qmsgerror(kFile, kFunction, 1, "lost"); }), "lost\n" + cant + cant);
    for (int run = 0; run < 2; run++) {
        std::filesystem::remove("QLOG.txt");
        std::filesystem::create_symlink("/dev/full", "QLOG.txt"); // a lost line is said once per run of them
        EXPECT_EQ(StderrOf([] { for (const char* m : {"a", "b"}) qmsgerror(kFile, kFunction, 1, "%s", m); }),
                  "a\n" + unwritten + "b\n");
        std::filesystem::remove("QLOG.txt"); // the next report tries again
        EXPECT_EQ(StderrOf([] { qmsgerror(kFile, kFunction, 2, "back"); }), "back\n");
    }
    EXPECT_EQ(Log(), At("ERR  ", "back", 2));
    const std::string full(10000000, 'a');
    test::WriteFile("QLOG.txt", full);
    test::WriteFile("QLOG_OLD.txt", "stale");
    StderrOf([] { qmsgerror(kFile, kFunction, 3, "second"); });
    std::string log = test::ReadFile("QLOG.txt");
    ASSERT_GT(log.size(), full.size());
    EXPECT_EQ(log.compare(0, full.size(), full), 0);
    EXPECT_EQ(test::LogWithoutTimes(log.substr(full.size())), At("ERR  ", "second", 3));
    EXPECT_EQ(test::ReadFile("QLOG_OLD.txt"), "stale");
    StderrOf([] { qmsgerror(kFile, kFunction, 4, "third"); });
    EXPECT_EQ(Log(), At("ERR  ", "third", 4));
    EXPECT_TRUE(test::ReadFile("QLOG_OLD.txt") == log) << "QLOG_OLD.txt is not the previous QLOG.txt";
}

TEST_F(QMessageTest, HooksNameTheApplicationAndOwnTheBoxAndTheMirrorGetsLinesUnlessFlagged)
{
    static QAppHooks hooks{};
    hooks.GetName = AppName;
    hooks.GetBoxOwner = BoxOwner;
    hooks.PrepareForBox = PrepareForBox;
    qappHooks = &hooks;
    boxPrepared = 0;
    mirrored.clear();
    QSetLogMirror(Mirror);
    std::string err = StderrOf([] {
        qmsgwrite(QMSG_ERR | QMSG_NOMIRROR | QMSG_NOECHO, nullptr, "hidden");
        qmsgerror(kFile, kFunction, 5, "named");
        qmsginfo(kFile, kFunction, 2, "info only\n");
        qmsgwrite(QMSG_ERR | QMSG_BOX | QMSG_NOECHO, nullptr, "boxed");
    });
    EXPECT_EQ(boxPrepared, 1); // only for the report that shows a box
    EXPECT_EQ(err, "named\ninfo only\n[Error] boxed\n");
    EXPECT_EQ(Log(), "(INFO ): [Viewer] --- application start ---\n(ERR  ): [Viewer] hidden\n"
                     "(ERR  ): [Viewer] named [widget.cpp:5 / Widget::Paint]\n(ERR  ): [Viewer] boxed\n");
    // The start line took the no-mirror bit of the first report.
    EXPECT_EQ(mirrored, (std::vector<std::string>{"named", "boxed"}));
    qmsgReset();
    mirrored.clear();
    std::filesystem::remove("QLOG.txt"); // the name stands in the complaint about the log as well
    std::filesystem::create_directory("QLOG.txt");
    std::string cant = "** [Viewer/" + std::to_string(getpid()) + "] Can't open log file (QLOG)\n";
    EXPECT_EQ(StderrOf([] { qmsgwarning(kFile, kFunction, 1, "again"); }), "again\n" + cant + cant);
    EXPECT_EQ(mirrored, (std::vector<std::string>{"--- application start ---", "again"}));
}

TEST_F(QMessageDeathTest, FatalAndCrashLogAndCrashWhileExitsShutTheNetworkDown)
{
    QSetNetworkShutdown(MarkShutdown);
    EXPECT_EXIT(qfatal("disk %s gone", "C"), testing::ExitedWithCode(3),
                "disk C gone\n\\[Fatal error - the program will exit\\] disk C gone\n"
                "Going to crash, reason: qfatal\n");
    EXPECT_FALSE(test::FileExists("shutdown.txt")) << "a crash does no clean-up";
    const std::string head =
        kStart + "(FATAL): [-] disk C gone\n(INFO ): [-] Going to crash, reason: qfatal [qmessage.cpp:";
    std::string log = Log();
    ASSERT_EQ(log.compare(0, head.size(), head), 0) << log;
    EXPECT_TRUE(std::regex_match(log.substr(head.size()), std::regex("[0-9]+ / QCrash\\]\n"))) << log;
    std::filesystem::remove("QLOG.txt");
    EXPECT_EXIT(QCrash("manual"), testing::ExitedWithCode(3), "Going to crash, reason: manual\n");
    EXPECT_NE(Log().find("(INFO ): [-] Going to crash, reason: manual [qmessage.cpp:"), std::string::npos);
    std::filesystem::remove("QLOG.txt"); // the exits go through the network's shut-down
    EXPECT_EXIT(qexit(5), testing::ExitedWithCode(5), "");
    EXPECT_EQ(test::ReadFile("shutdown.txt"), "called");
    EXPECT_FALSE(test::FileExists("QLOG.txt"));
    std::filesystem::remove("shutdown.txt");
    EXPECT_EXIT(qmsgexit("bye %d", 1), testing::ExitedWithCode(0),
                "bye 1\n\\[Fatal error - the program will exit\\] bye 1\n");
    EXPECT_EQ(test::ReadFile("shutdown.txt"), "called");
    EXPECT_EQ(Log(), kStart + "(FATAL): [-] bye 1\n");
}
