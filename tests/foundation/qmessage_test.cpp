// Cases of the message log. Every case runs in a fresh directory of its own, since QLOG.txt lands in
// the current directory, and starts with a fresh log state, so that a message of an earlier case is
// never folded into a repeat count and the start line is written again.
#include "foundation/qapphooks.h"
#include "foundation/qmessage.h"
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
const char* const kStart = "(INFO ): [-] --- application start ---\n";

template <class Action>
std::string StderrOf(Action&& action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

std::vector<std::string> mirrored;
void Mirror(const char* message) { mirrored.push_back(message); }

// Leaves a mark on disk: a death test's child can't tell its parent anything else.
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
    EXPECT_EQ(Name("void tarvik::QFile::Close()"), "QFile::Close");
    EXPECT_EQ(Name("int main(int, char**)"), "main");
    EXPECT_EQ(Name("static tarvik::QString* tarvik::QString::Create(const char*, int)"), "QString::Create");
    EXPECT_EQ(Name("const char* tarvik::QString::GetBuffer() const"), "QString::GetBuffer");
    EXPECT_EQ(Name("virtual void QMessageTest_X_Test::TestBody()"), "QMessageTest_X_Test::TestBody");
    EXPECT_EQ(Name("void tarvik::Sort(T*, int) [with T = int]"), "Sort");
    EXPECT_EQ(Name(nullptr), "");
    EXPECT_EQ(Name("void tarvik::QFile::Close()", 6), "QFile");
}

TEST_F(QMessageTest, FunctionNameOfOperators)
{
    EXPECT_EQ(Name("bool tarvik::QString::operator==(const tarvik::QString&) const"), "QString::operator==");
    EXPECT_EQ(Name("bool tarvik::QString::operator<(const tarvik::QString&) const"), "QString::operator<");
    EXPECT_EQ(Name("tarvik::QString& tarvik::QString::operator<<(int)"), "QString::operator<<");
    EXPECT_EQ(Name("char& tarvik::QString::operator[](int)"), "QString::operator[]");
    EXPECT_EQ(Name("void tarvik::QTimer::operator()(int)"), "QTimer::operator()");
    EXPECT_EQ(Name("T* tarvik::QPtr<T>::operator->() const [with T = int]"), "QPtr<T>::operator->");
    EXPECT_EQ(Name("static void* tarvik::QObject::operator new(size_t)"), "QObject::operator new");
    EXPECT_EQ(Name("tarvik::QString::operator int() const"), "QString::operator int");
    EXPECT_EQ(Name("tarvik::QString::operator const char*() const"), "QString::operator const char*");
}

TEST_F(QMessageTest, FunctionNameOfTemplates)
{
    EXPECT_EQ(Name("T tarvik::QList<T>::Get(int) const [with T = int]"), "QList<T>::Get");
    EXPECT_EQ(Name("void tarvik::QMap<K, V>::Set(const K&, const V&) [with K = int; V = double]"),
              "QMap<K, V>::Set");
    EXPECT_EQ(Name("std::map<int, std::basic_string<char> > tarvik::QTable::Rows(int)"), "QTable::Rows");
}

TEST_F(QMessageTest, StartLineStandsOnceAboveTheFirstReport)
{
    std::string err = StderrOf([] {
        qmsgerror(kFile, kFunction, 42, "disk %s full", "C");
        qmsgwarning(kFile, kFunction, 43, "low memory: %d", 5);
    });
    // The start line takes the no-echo bit of the error: it stays off standard error.
    EXPECT_EQ(err, "disk C full\nlow memory: 5\n");
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] disk C full [widget.cpp:42 / Widget::Paint]\n"
                                           "(WARN ): [-] low memory: 5 [widget.cpp:43 / Widget::Paint]\n");

    std::string raw = test::ReadFile("QLOG.txt");
    EXPECT_TRUE(std::regex_search(raw, std::regex("^[A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} "
                                                  "[0-9]{2}:[0-9]{2}:[0-9]{2} \\(INFO \\): ")))
        << raw;
}

TEST_F(QMessageTest, ReporterMacrosPassFileFunctionAndLine)
{
    testing::internal::CaptureStderr();
    int line = __LINE__ + 1;
    QERROR("by macro"); QWARNING("warned"); QDEBUG("noted");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "by macro\nwarned\nnoted\n");
    std::string where = " [qmessage_test.cpp:" + std::to_string(line) +
                        " / QMessageTest_ReporterMacrosPassFileFunctionAndLine_Test::TestBody]\n";
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] by macro" + where + "(WARN ): [-] warned" + where +
                         "(INFO ): [-] noted" + where);

    testing::internal::CaptureStderr();
    QINFO("half %d%%", 50);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "half 50%");
}

TEST_F(QMessageTest, RepeatsFoldIntoOneLineWithTheFirstLocation)
{
    std::string err = StderrOf([] {
        qmsgerror(kFile, kFunction, 10, "same");
        qmsgerror(kFile, kFunction, 20, "same");
        qmsgerror(kFile, kFunction, 30, "same");
    });
    EXPECT_EQ(err, "same\nsame\nsame\n");
    // A pending run is not written until a different message comes.
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] same [widget.cpp:10 / Widget::Paint]\n");

    err = StderrOf([] { qmsgwarning(kFile, kFunction, 40, "other"); });
    EXPECT_EQ(err, "other\n");
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] same [widget.cpp:10 / Widget::Paint]\n"
                                           "(ERR  ): [-] [2x repeat] same [widget.cpp:10 / Widget::Paint]\n"
                                           "(WARN ): [-] other [widget.cpp:40 / Widget::Paint]\n");
}

TEST_F(QMessageTest, DebugNotesEchoOnceAndTheirRepeatLineLater)
{
    std::string err = StderrOf([] {
        qmsgdebug(kFile, kFunction, 7, "tick %d", 1);
        qmsgdebug(kFile, kFunction, 7, "tick %d", 1);
    });
    EXPECT_EQ(err, "--- application start ---\ntick 1\n");

    err = StderrOf([] { qmsgerror(kFile, kFunction, 8, "stop"); });
    // The error's own echo comes before the folding writes the pending repeat line.
    EXPECT_EQ(err, "stop\n[1x repeat] tick 1\n");
    EXPECT_EQ(Log(), std::string(kStart) + "(INFO ): [-] tick 1 [widget.cpp:7 / Widget::Paint]\n"
                                           "(INFO ): [-] [1x repeat] tick 1 [widget.cpp:7 / Widget::Paint]\n"
                                           "(ERR  ): [-] stop [widget.cpp:8 / Widget::Paint]\n");
}

TEST_F(QMessageTest, InfoReportsStayOutOfTheLogAndTheFolding)
{
    std::string err = StderrOf([] { qmsginfo(kFile, kFunction, 1, "loading %s\n", "map"); });
    EXPECT_EQ(err, "loading map\n");
    EXPECT_FALSE(test::FileExists("QLOG.txt"));

    err = StderrOf([] {
        qmsgerror(kFile, kFunction, 2, "x");
        qmsginfo(kFile, kFunction, 3, "progress 50%%");
        qmsgerror(kFile, kFunction, 4, "x");
        qmsgerror(kFile, kFunction, 5, "y");
    });
    EXPECT_EQ(err, "x\nprogress 50%x\ny\n");
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] x [widget.cpp:2 / Widget::Paint]\n"
                                           "(ERR  ): [-] [1x repeat] x [widget.cpp:2 / Widget::Paint]\n"
                                           "(ERR  ): [-] y [widget.cpp:5 / Widget::Paint]\n");
}

TEST_F(QMessageTest, TrailingLineFeedMakesADifferentTextToTheCore)
{
    std::string err = StderrOf([] {
        qmsgwrite(QMSG_ERR, nullptr, "abc");
        qmsgwrite(QMSG_ERR, nullptr, "abc\n");
    });
    EXPECT_EQ(err, "--- application start ---\nabc\nabc\n");
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] abc\n(ERR  ): [-] abc\n");
}

TEST_F(QMessageTest, ErrorReporterEnsuresTheLineFeedSoBothFold)
{
    std::string err = StderrOf([] {
        qmsgerror(kFile, kFunction, 1, "abc");
        qmsgerror(kFile, kFunction, 1, "abc\n");
        qmsgerror(kFile, kFunction, 1, "%s", "");
        qmsgerror(kFile, kFunction, 2, "def");
    });
    // An empty message gets no line feed.
    EXPECT_EQ(err, "abc\nabc\ndef\n");
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] abc [widget.cpp:1 / Widget::Paint]\n"
                                           "(ERR  ): [-] [1x repeat] abc [widget.cpp:1 / Widget::Paint]\n"
                                           "(ERR  ): [-]  [widget.cpp:1 / Widget::Paint]\n"
                                           "(ERR  ): [-] def [widget.cpp:2 / Widget::Paint]\n");
}

TEST_F(QMessageTest, OnlyTheLastOfTwoLineFeedsIsRemoved)
{
    std::string err = StderrOf([] { qmsgwrite(QMSG_WARN | QMSG_NOECHO, nullptr, "two\n\n"); });
    EXPECT_EQ(err, "");
    const std::string tail = "(WARN ): [-] two\n\n";
    std::string raw = test::ReadFile("QLOG.txt");
    ASSERT_GE(raw.size(), tail.size());
    EXPECT_EQ(raw.substr(raw.size() - tail.size()), tail);
    EXPECT_EQ(raw.find("two\n\n\n"), std::string::npos);
}

TEST_F(QMessageTest, SeverityWordFromTheFirstSetBitPaddedToFive)
{
    std::string err = StderrOf([] {
        qmsgwrite(QMSG_ERR | QMSG_NOECHO, nullptr, "m1");
        qmsgwrite(QMSG_WARN | QMSG_NOECHO, nullptr, "m2");
        qmsgwrite(QMSG_CRIT | QMSG_NOECHO, nullptr, "m3");
        qmsgwrite(QMSG_NOTE | QMSG_NOECHO, nullptr, "m4");
        qmsgwrite(QMSG_INFO | QMSG_NOECHO, nullptr, "m5");
        qmsgwrite(QMSG_FATAL | QMSG_NOECHO, nullptr, "m6");
        qmsgwrite(QMSG_INFO2 | QMSG_NOECHO, nullptr, "m7");
        qmsgwrite(QMSG_NOECHO, nullptr, "m8");
        qmsgwrite(QMSG_WARN | QMSG_ERR | QMSG_NOECHO, nullptr, "m9");
        qmsgwrite(QMSG_FATAL | QMSG_INFO | QMSG_NOECHO, nullptr, "m10");
        qmsgwrite(QMSG_INFO2 | QMSG_FATAL | QMSG_NOECHO, nullptr, "m11");
        qmsgwrite(QMSG_CRIT | QMSG_NOTE | QMSG_NOECHO, nullptr, "m12");
    });
    EXPECT_EQ(err, "");
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] m1\n(WARN ): [-] m2\n(CRIT ): [-] m3\n(NOTE ): [-] m4\n"
                                           "(INFO ): [-] m5\n(FATAL): [-] m6\n(INFO ): [-] m7\n(?    ): [-] m8\n"
                                           "(ERR  ): [-] m9\n(INFO ): [-] m10\n(FATAL): [-] m11\n(CRIT ): [-] m12\n");
}

TEST_F(QMessageTest, EchoAndBoxFlags)
{
    std::string err = StderrOf([] { qmsgwrite(QMSG_ERR | QMSG_BOX, nullptr, "box me\n"); });
    // The start line keeps neither the box bit nor the severity: echoed, no box, INFO.
    EXPECT_EQ(err, "--- application start ---\nbox me\n[Error] box me\n");

    err = StderrOf([] { qmsgwrite(QMSG_FATAL | QMSG_BOX | QMSG_NOECHO, nullptr, "end"); });
    EXPECT_EQ(err, "[Fatal error - the program will exit] end\n");

    err = StderrOf([] { qmsgwrite(0, nullptr, "plain %d", 3); });
    EXPECT_EQ(err, "plain 3\n");
    EXPECT_EQ(Log(), std::string(kStart) + "(ERR  ): [-] box me\n(FATAL): [-] end\n(?    ): [-] plain 3\n");
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
    const std::string expected = std::string(kStart) + "(ERR  ): [-] " + cutX + "\n(ERR  ): [-] [1x repeat] " +
                                 cutX.substr(12) + "\n(ERR  ): [-] " + cutY + " [widget.cpp:9 / Widget::Paint]\n";
    std::string log = Log();
    EXPECT_EQ(log.size(), expected.size());
    EXPECT_TRUE(log == expected);
}

TEST_F(QMessageTest, LogRotatesOnlyWhenOverTheLimit)
{
    StderrOf([] { qmsgerror(kFile, kFunction, 1, "first"); });
    const std::string full(10000000, 'a');
    test::WriteFile("QLOG.txt", full);
    test::WriteFile("QLOG_OLD.txt", "stale");

    StderrOf([] { qmsgerror(kFile, kFunction, 2, "second"); });
    const std::string second = "(ERR  ): [-] second [widget.cpp:2 / Widget::Paint]\n";
    std::string log = test::ReadFile("QLOG.txt");
    ASSERT_GT(log.size(), full.size());
    EXPECT_EQ(log.compare(0, full.size(), full), 0);
    EXPECT_EQ(test::LogWithoutTimes(log.substr(full.size())), second);
    EXPECT_EQ(test::ReadFile("QLOG_OLD.txt"), "stale");

    StderrOf([] { qmsgerror(kFile, kFunction, 3, "third"); });
    EXPECT_EQ(Log(), "(ERR  ): [-] third [widget.cpp:3 / Widget::Paint]\n");
    std::string old = test::ReadFile("QLOG_OLD.txt");
    EXPECT_EQ(old.size(), log.size());
    EXPECT_TRUE(old == log) << "QLOG_OLD.txt is not the previous QLOG.txt";
}

TEST_F(QMessageTest, LogThatCannotBeOpenedLeavesTheReportOnStandardError)
{
    std::filesystem::create_directory("QLOG.txt");
    std::string err = StderrOf([] { qmsgerror(kFile, kFunction, 1, "lost"); });
    std::string cant = "** [-/" + std::to_string(getpid()) + "] Can't open log file (QLOG)\n";
    // Once for the start line, once for the report.
    EXPECT_EQ(err, "lost\n" + cant + cant);

    // The next report tries again.
    std::filesystem::remove("QLOG.txt");
    err = StderrOf([] { qmsgerror(kFile, kFunction, 2, "back"); });
    EXPECT_EQ(err, "back\n");
    EXPECT_EQ(Log(), "(ERR  ): [-] back [widget.cpp:2 / Widget::Paint]\n");
}

namespace {
int boxPrepared;
const char* AppName() { return "Viewer"; }
void* BoxOwner() { return &boxPrepared; }
void PrepareForBox() { boxPrepared++; }
} // namespace

TEST_F(QMessageTest, ApplicationNameAndBoxOwnerComeFromTheHooks)
{
    static QAppHooks hooks{};
    hooks.GetName = AppName;
    hooks.GetBoxOwner = BoxOwner;
    hooks.PrepareForBox = PrepareForBox;
    qappHooks = &hooks;
    boxPrepared = 0;
    std::string err = StderrOf([] {
        qmsgerror(kFile, kFunction, 5, "named");
        qmsgwrite(QMSG_ERR | QMSG_BOX | QMSG_NOECHO, nullptr, "boxed");
    });
    EXPECT_EQ(boxPrepared, 1); // only for the report that shows a box
    EXPECT_EQ(err, "named\n[Error] boxed\n");
    EXPECT_EQ(Log(), "(INFO ): [Viewer] --- application start ---\n"
                     "(ERR  ): [Viewer] named [widget.cpp:5 / Widget::Paint]\n"
                     "(ERR  ): [Viewer] boxed\n");

    std::filesystem::remove("QLOG.txt");
    std::filesystem::create_directory("QLOG.txt");
    err = StderrOf([] { qmsgwrite(QMSG_ERR | QMSG_NOECHO, nullptr, "nowhere"); });
    EXPECT_EQ(err, "** [Viewer/" + std::to_string(getpid()) + "] Can't open log file (QLOG)\n");
}

TEST_F(QMessageTest, MirrorGetsLinesUnlessFlagged)
{
    mirrored.clear();
    QSetLogMirror(Mirror);
    StderrOf([] {
        qmsgwrite(QMSG_ERR | QMSG_NOMIRROR | QMSG_NOECHO, nullptr, "hidden");
        qmsgerror(kFile, kFunction, 1, "seen");
        qmsginfo(kFile, kFunction, 2, "info only\n");
    });
    // The start line took the no-mirror bit of the first report.
    EXPECT_EQ(mirrored, std::vector<std::string>{"seen"});

    qmsgReset();
    mirrored.clear();
    StderrOf([] { qmsgwarning(kFile, kFunction, 1, "again"); });
    EXPECT_EQ(mirrored, (std::vector<std::string>{"--- application start ---", "again"}));
}

TEST_F(QMessageDeathTest, FatalShowsTheBoxLogsAndCrashes)
{
    QSetNetworkShutdown(MarkShutdown);
    EXPECT_EXIT(qfatal("disk %s gone", "C"), testing::ExitedWithCode(3),
                "disk C gone\n\\[Fatal error - the program will exit\\] disk C gone\n"
                "Going to crash, reason: qfatal\n");
    EXPECT_FALSE(test::FileExists("shutdown.txt")) << "a crash does no clean-up";

    std::string log = Log();
    const std::string head = std::string(kStart) + "(FATAL): [-] disk C gone\n"
                                                   "(INFO ): [-] Going to crash, reason: qfatal [qmessage.cpp:";
    ASSERT_EQ(log.compare(0, head.size(), head), 0) << log;
    EXPECT_TRUE(std::regex_match(log.substr(head.size()), std::regex("[0-9]+ / QCrash\\]\n"))) << log;
}

TEST_F(QMessageDeathTest, CrashReportsItsReason)
{
    EXPECT_EXIT(QCrash("manual"), testing::ExitedWithCode(3), "Going to crash, reason: manual\n");
    std::string log = Log();
    EXPECT_NE(log.find("(INFO ): [-] Going to crash, reason: manual [qmessage.cpp:"), std::string::npos) << log;
}

TEST_F(QMessageDeathTest, MessageExitEndsWithCodeZeroThroughShutdown)
{
    QSetNetworkShutdown(MarkShutdown);
    EXPECT_EXIT(qmsgexit("bye %d", 1), testing::ExitedWithCode(0),
                "bye 1\n\\[Fatal error - the program will exit\\] bye 1\n");
    EXPECT_EQ(test::ReadFile("shutdown.txt"), "called");
    EXPECT_EQ(Log(), std::string(kStart) + "(FATAL): [-] bye 1\n");
}

TEST_F(QMessageDeathTest, ExitShutsTheNetworkDownFirst)
{
    QSetNetworkShutdown(MarkShutdown);
    EXPECT_EXIT(qexit(5), testing::ExitedWithCode(5), "");
    EXPECT_EQ(test::ReadFile("shutdown.txt"), "called");
    EXPECT_FALSE(test::FileExists("QLOG.txt"));
}
