#include "toolkit/qstate.h"

#include "foundation/qfile.h"
#include "tests/foundation/cpulimit.h"
#include "tests/support/testsupport.h"
#include "toolkit/qapp.h"
#include "toolkit/qevent.h"
#include "toolkit/qwindow.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>

using namespace tarvik;
using tarvik::test::FileExists;
using tarvik::test::ReadFile;
using tarvik::test::TempDir;
using tarvik::test::WriteFile;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

// What the procedures of the states and the tape saw, in order: "Ea" enter a, "Fa" frame a, "La"
// leave a; "R<1>" the application data read back.
std::string calls;
int written;

template <char C> void Enter() { calls += std::string("E") + C; }
template <char C> void Frame() { calls += std::string("F") + C; }
template <char C> void Leave() { calls += std::string("L") + C; }

// Three bytes of application data per frame, numbered as written: "<0>", "<1>", ...
const int DATA_BYTES = 3;
std::string Data(int k) { return std::string("<") + char('0' + k) + ">"; }
void WriteData(QFile* tape) { tape->Write(Data(written++).data(), DATA_BYTES); }
void ReadData(QFile* tape)
{
    char b[DATA_BYTES] = {};
    tape->Read(b, DATA_BYTES);
    calls += "R" + std::string(b, DATA_BYTES);
}
void ReadTooLittle(QFile* tape)
{
    char b[DATA_BYTES - 1];
    tape->Read(b, DATA_BYTES - 1);
}

testing::AssertionResult Has(const std::string& text, const std::string& part)
{
    if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << part << "\" is not in:\n" << text;
}

// One frame as it stands on a tape: the name in 32 bytes, the data, the start low byte first.
std::string TapeFrame(const std::string& name, const std::string& data, int32_t start)
{
    std::string f = name.substr(0, 31);
    f.resize(QStateManager::NAME_BYTES, '\0');
    f += data;
    for (int i = 0; i < 4; i++) f += char(uint32_t(start) >> (8 * i));
    return f;
}

const int FRAME = 36 + DATA_BYTES;

// Frames a, b, c with data <0>, <1>, <2>.
std::string ThreeFrames()
{
    return TapeFrame("a", Data(0), 0) + TapeFrame("b", Data(1), FRAME) + TapeFrame("c", Data(2), 2 * FRAME);
}

std::string TapeBytes(QStateManager* sm)
{
    sm->GetTape()->Flush();
    return ReadFile(sm->GetTape()->GetName());
}

class QStateTest : public testing::Test {
protected:
    QStateTest()
    {
        calls.clear();
        written = 0;
        sm->SetTapeProcs(ReadData, WriteData);
    }
    static QStateManager* MakeManager() { return app->sm = new QStateManager(); }

    // The tape in use, where it stands and what it counts, and the state shown.
    std::tuple<QFile*, long, int, int, QState*> InForce() const
    {
        return {sm->GetTape(), sm->GetTape() ? sm->GetTape()->Tell() : -1L, sm->GetFrames(), sm->GetFrame(),
                sm->GetCurrent()};
    }

    TempDir dir{true}; // the tape names are fixed names in the current directory
    QApp app0{"test"};
    QStateManager* sm = MakeManager(); // owned by app0
    QState a{"a", nullptr, Frame<'a'>, Enter<'a'>, Leave<'a'>};
    QState b{"b", nullptr, Frame<'b'>, Enter<'b'>, Leave<'b'>};
    QState c{"c", nullptr, Frame<'c'>, Enter<'c'>, Leave<'c'>};
};

} // namespace

// ---- Recording --------------------------------------------------------------------------------

TEST_F(QStateTest, EachRecordedChangeWritesNameDataAndItsOwnStartToTheFirstTape)
{
    sm->GotoState(&a, false);
    ASSERT_NE(sm->GetTape(), nullptr);
    EXPECT_STREQ(sm->GetTape()->GetName(), "temptape.vcr");
    std::string one = TapeBytes(sm);
    EXPECT_EQ(one, TapeFrame("a", "<0>", 0));
    EXPECT_EQ(one.size(), size_t(36 + DATA_BYTES));
    EXPECT_EQ(one.substr(one.size() - 4), std::string(4, '\0'));

    sm->GotoState(&b, false);
    sm->GotoState(&c, false);
    EXPECT_EQ(TapeBytes(sm), ThreeFrames());
    EXPECT_EQ(calls, "EaLaEbLbEc");
    EXPECT_EQ(sm->GetFrames(), 3);
    EXPECT_EQ(sm->GetFrame(), 3);
}

TEST_F(QStateTest, NoRecordChangesStateAndLeavesTheTapeAlone)
{
    sm->GotoState(&a, true);
    EXPECT_EQ(sm->GetTape(), nullptr);
    EXPECT_FALSE(FileExists("temptape.vcr"));
    sm->GotoState(&b, false);
    sm->GotoState(&c, true);
    EXPECT_EQ(sm->GetCurrent(), &c);
    EXPECT_EQ(TapeBytes(sm), TapeFrame("b", "<0>", 0));
    EXPECT_EQ(sm->GetFrames(), 1);
    EXPECT_EQ(calls, "EaLaEbLbEc");
}

TEST_F(QStateTest, LongNameIsStoredWithItsFirst31CharactersAndReadsBackOnlyAsThose)
{
    const char* longName = "abcdefghijklmnopqrstuvwxyz0123456789ABCD"; // 40
    QState cutOff(longName, nullptr, nullptr, nullptr, nullptr);
    sm->GotoState(&cutOff, false);
    std::string tape = TapeBytes(sm);
    EXPECT_EQ(tape.substr(0, 32), std::string(longName, 31) + '\0');

    WriteFile("long.vcr", tape);
    CaptureStderr();
    EXPECT_TRUE(sm->VCR_UseFile("long.vcr")); // the tape is taken; its one frame can't be shown
    EXPECT_TRUE(Has(GetCapturedStderr(), "State 'abcdefghijklmnopqrstuvwxyz01234' was not found in this application."));

    QState cut("abcdefghijklmnopqrstuvwxyz01234", nullptr, Frame<'x'>, nullptr, nullptr);
    calls.clear();
    EXPECT_TRUE(sm->VCR_UseFile("long.vcr"));
    EXPECT_EQ(sm->GetCurrent(), &cut);
    EXPECT_EQ(calls, "R<0>Fx");
}

// ---- Replay -----------------------------------------------------------------------------------

TEST_F(QStateTest, StepBackShowsTheFrameBeforeAndStepForwardGoesOnToTheEnd)
{
    sm->GotoState(&a, false), sm->GotoState(&b, false), sm->GotoState(&c, false);
    calls.clear();
    EXPECT_TRUE(sm->VCR_StepBack());
    EXPECT_EQ(sm->GetFrame(), 2);
    EXPECT_EQ(sm->GetFrames(), 3);
    EXPECT_EQ(sm->GetCurrent(), &b);
    EXPECT_EQ(calls, "R<1>EbFb"); // replacing c, not leaving it

    calls.clear();
    EXPECT_TRUE(sm->VCR_StepForward());
    EXPECT_EQ(sm->GetFrame(), 3);
    EXPECT_EQ(sm->GetCurrent(), &c);
    EXPECT_EQ(calls, "R<2>EcFc");
    EXPECT_FALSE(sm->VCR_StepForward());
    EXPECT_EQ(sm->GetFrame(), 3);

    // Back to the first frame, and back again: the first frame is shown once more.
    EXPECT_TRUE(sm->VCR_StepBack());
    EXPECT_TRUE(sm->VCR_StepBack());
    EXPECT_EQ(sm->GetFrame(), 1);
    calls.clear();
    EXPECT_TRUE(sm->VCR_StepBack());
    EXPECT_EQ(sm->GetFrame(), 1);
    EXPECT_EQ(sm->GetCurrent(), &a);
    EXPECT_EQ(calls, "R<0>EaFa");
}

TEST_F(QStateTest, RecordingAfterStepBackOverwritesAndSavingStopsAtThePosition)
{
    sm->GotoState(&a, false), sm->GotoState(&b, false), sm->GotoState(&c, false);
    sm->VCR_StepBack();
    ASSERT_TRUE(sm->VCR_SaveAs("saved.vcr"));
    EXPECT_EQ(ReadFile("saved.vcr"), ThreeFrames().substr(0, 2 * FRAME)); // ends with b, shown last
    EXPECT_EQ(sm->GetTape()->Tell(), 2 * FRAME);

    sm->GotoState(&a, false); // a over c
    EXPECT_EQ(sm->GetFrames(), 3);
    EXPECT_EQ(TapeBytes(sm).substr(2 * FRAME), TapeFrame("a", "<3>", 2 * FRAME));

    sm->VCR_StepBack(), sm->VCR_StepBack(); // back to a, the first frame
    sm->GotoState(&c, false);               // c over b: the tape now ends there
    EXPECT_EQ(sm->GetFrames(), 2);
    EXPECT_FALSE(sm->VCR_StepForward()) << "the old third frame still stands in the file, behind the end";
}

TEST_F(QStateTest, UseFileShowsTheLastFrameAndAnEmptyFileIsAnEmptyTape)
{
    WriteFile("three.vcr", ThreeFrames());
    CaptureStderr();
    EXPECT_TRUE(sm->VCR_UseFile("three.vcr"));
    EXPECT_TRUE(Has(GetCapturedStderr(), "VCR_UseFile: 3 states in 'three.vcr'\n"));
    EXPECT_EQ(InForce(), std::make_tuple(sm->GetTape(), long(3 * FRAME), 3, 3, &c));
    EXPECT_EQ(calls, "R<2>EcFc");

    WriteFile("empty.vcr", "");
    calls.clear();
    EXPECT_TRUE(sm->VCR_UseFile("empty.vcr"));
    EXPECT_EQ(sm->GetFrames(), 0);
    EXPECT_EQ(sm->GetFrame(), 0);
    EXPECT_EQ(calls, "");
    EXPECT_FALSE(sm->VCR_StepBack());
    EXPECT_FALSE(sm->VCR_StepForward());
}

TEST_F(QStateTest, UnknownStateOnTheTapeFailsTheStepBehindTheName)
{
    WriteFile("ghost.vcr", TapeFrame("a", Data(0), 0) + TapeFrame("ghost", Data(1), FRAME));
    CaptureStderr();
    EXPECT_TRUE(sm->VCR_UseFile("ghost.vcr"));
    EXPECT_TRUE(Has(GetCapturedStderr(), "State 'ghost' was not found in this application."));
    EXPECT_EQ(sm->GetTape()->Tell(), FRAME + 32);
    EXPECT_EQ(sm->GetFrame(), 1);
    EXPECT_EQ(sm->GetCurrent(), nullptr);
}

// ---- Events -----------------------------------------------------------------------------------

TEST_F(QStateTest, ControlSSavesAndControlLPlaysACopyOfTheSavedTape)
{
    QEvent save{}, load{};
    save.type = load.type = QEVENT_KEYPRESS;
    save.n = 0x40053;
    load.n = 0x4004C;

    CaptureStderr();
    EXPECT_TRUE(sm->ProcessEvent(&load)); // nothing saved yet
    EXPECT_TRUE(Has(GetCapturedStderr(), "VCR file not found"));
    EXPECT_EQ(sm->GetTape(), nullptr);

    sm->GotoState(&a, false), sm->GotoState(&b, false);
    EXPECT_TRUE(sm->ProcessEvent(&save));
    std::string two = ThreeFrames().substr(0, 2 * FRAME);
    EXPECT_EQ(ReadFile("bc.vcr"), two);

    sm->GotoState(&c, false);
    EXPECT_TRUE(sm->ProcessEvent(&load));
    EXPECT_STREQ(sm->GetTape()->GetName(), "temptape.vcr");
    EXPECT_EQ(sm->GetFrames(), 2);
    EXPECT_EQ(sm->GetCurrent(), &b);
    sm->GotoState(&c, false); // records on the copy
    EXPECT_EQ(ReadFile("bc.vcr"), two);
    EXPECT_EQ(TapeBytes(sm).size(), size_t(3 * FRAME));
}

TEST_F(QStateTest, PanelClicksStepTheTapeAndEventsReachTheGlobalStateFirst)
{
    static std::string seen;
    seen.clear();
    QState global("global", [](QEvent* e) { seen += "G"; return e->n == 1; }, nullptr, nullptr, nullptr);
    QState d("d", [](QEvent*) { seen += "D"; return true; }, nullptr, nullptr, nullptr);
    QWindow forward(nullptr, 0, 0, 10, 10), reverse(nullptr, 20, 0, 10, 10), other(nullptr, 40, 0, 10, 10);
    sm->SetPanelButtons(&forward, nullptr, nullptr, &reverse);
    sm->SetGlobalState(&global);

    sm->GotoState(&a, false), sm->GotoState(&d, false);
    QEvent e{};
    e.type = QEVENT_CLICK;
    e.win = &reverse;
    CaptureStderr();
    EXPECT_FALSE(sm->ProcessEvent(&e)); // a has no eventProc
    EXPECT_TRUE(Has(GetCapturedStderr(), "Reverse 1 frame\n"));
    EXPECT_EQ(sm->GetCurrent(), &a);
    e.win = &other;
    EXPECT_FALSE(sm->ProcessEvent(&e));
    EXPECT_EQ(sm->GetCurrent(), &a);
    e.win = &forward;
    EXPECT_TRUE(sm->ProcessEvent(&e)); // now on d
    EXPECT_EQ(sm->GetCurrent(), &d);
    EXPECT_EQ(seen, "GGGD");

    seen.clear();
    e.type = QEVENT_KEYPRESS;
    e.n = 1;
    EXPECT_TRUE(sm->ProcessEvent(&e));
    EXPECT_EQ(seen, "G");
}

// ---- The list of states -----------------------------------------------------------------------

TEST_F(QStateTest, RemoveInTheWrongOrderReportsAndKeepsTheList)
{
    QState d("d", nullptr, nullptr, nullptr, nullptr);
    CaptureStderr();
    sm->Remove(&c);
    EXPECT_TRUE(Has(GetCapturedStderr(), "QStateManager:Remove: state must be the last added"));
    EXPECT_EQ(sm->GetStateCount(), 4);
    EXPECT_EQ(sm->FindState("c"), &c);

    QStateManager empty;
    CaptureStderr();
    empty.Remove(&c);
    EXPECT_TRUE(Has(GetCapturedStderr(), "QStateManager:Remove without states"));
}

TEST_F(QStateTest, SecondStateOfOneNameEndsTheProcess)
{
    EXPECT_EXIT(QState("b", nullptr, nullptr, nullptr, nullptr), testing::ExitedWithCode(0),
                "Multiply defined state named 'b'");
}

// ---- Damaged tapes ----------------------------------------------------------------------------

TEST_F(QStateTest, DamagedTapeIsRefusedWholeAndTheTapeInUseStays)
{
    const std::string good = ThreeFrames();
    auto withWord = [&](int32_t start) { // b's trailing word, at 2 * FRAME - 4
        std::string t = good;
        for (int i = 0; i < 4; i++) t[size_t(2 * FRAME - 4 + i)] = char(uint32_t(start) >> (8 * i));
        return t;
    };
    std::string unterminated = good;
    unterminated.replace(size_t(FRAME), 32, std::string(32, 'b'));
    struct Case {
        const char* what;
        std::string bytes;
    } cases[] = {
        {"forward", withWord(2 * FRAME + 10)},
        {"at itself", withWord(2 * FRAME)},
        {"less than a frame back", withWord(2 * FRAME - 35)},
        {"past the end", withWord(100000)},
        {"negative", withWord(-1)},
        {"mid-frame", withWord(10)}, // a step back to 10, which can't hold a frame before it
        {"unterminated name", unterminated},
        {"truncated", good.substr(0, good.size() - 1)},
        {"trailing bytes", good + "xy"},
        {"shorter than a frame", good.substr(0, 35)},
        {"a frame of 20 bytes in the chain", // its name would run into the next frame
         TapeFrame("a", Data(0), 0) + TapeFrame("", "", FRAME).substr(16) + TapeFrame("c", Data(2), FRAME + 20)},
    };
    WriteFile("three.vcr", good);
    ASSERT_TRUE(sm->VCR_UseFile("three.vcr"));
    ASSERT_TRUE(sm->VCR_StepBack());
    auto before = InForce();
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        WriteFile("bad.vcr", k.bytes);
        calls.clear();
        CaptureStderr();
        EXPECT_FALSE(sm->VCR_UseFile("bad.vcr"));
        EXPECT_TRUE(Has(GetCapturedStderr(), "VCR file 'bad.vcr' is damaged"));
        EXPECT_EQ(InForce(), before);
        EXPECT_EQ(calls, "");
    }
    CaptureStderr();
    EXPECT_FALSE(sm->VCR_UseFile("missing.vcr"));
    EXPECT_TRUE(Has(GetCapturedStderr(), "VCR file not found"));
    EXPECT_EQ(InForce(), before);
    EXPECT_TRUE(sm->VCR_StepForward()); // the old tape still plays
    EXPECT_EQ(sm->GetCurrent(), &c);
}

TEST_F(QStateTest, StepsOnATapeDamagedInUseFailWhereTheyStood)
{
    WriteFile("three.vcr", ThreeFrames());
    ASSERT_TRUE(sm->VCR_UseFile("three.vcr"));
    QFile* tape = sm->GetTape();
    auto poke = [&](long at, const std::string& bytes) {
        tape->Seek(at, QFile::SEEK_FROM_START);
        tape->Write(bytes.data(), int(bytes.size()));
        tape->Seek(3 * FRAME, QFile::SEEK_FROM_START);
    };
    auto before = InForce();

    poke(FRAME, std::string(32, 'b')); // b's name loses its terminator
    CaptureStderr();
    EXPECT_FALSE(sm->VCR_StepBack());
    EXPECT_TRUE(Has(GetCapturedStderr(), "damaged state name at 39 in 'three.vcr'"));
    EXPECT_EQ(InForce(), before);

    poke(FRAME, TapeFrame("b", "", 0).substr(0, 32));
    sm->SetTapeProcs(ReadTooLittle, WriteData);
    CaptureStderr();
    EXPECT_FALSE(sm->VCR_StepBack());
    EXPECT_TRUE(Has(GetCapturedStderr(), "frame at 39 in 'three.vcr' does not end where its data does"));
    EXPECT_EQ(InForce(), before);

    sm->SetTapeProcs(ReadData, WriteData);
    poke(3 * FRAME - 4, std::string("\x70\0\0\0", 4)); // c's word points forward
    CaptureStderr();
    EXPECT_FALSE(sm->VCR_StepBack());
    EXPECT_TRUE(Has(GetCapturedStderr(), "damaged frame link at 113 in 'three.vcr'"));
    EXPECT_EQ(InForce(), before);
}

TEST_F(QStateTest, AMillionFramesCountInLinearTime)
{
    const int count = 1000000;
    std::string tape;
    tape.reserve(size_t(count) * 36);
    for (int i = 0; i < count; i++) tape += TapeFrame("a", "", i * 36);
    WriteFile("big.vcr", tape);
    sm->SetTapeProcs(nullptr, nullptr);
    EXPECT_EQ(test::RunWithCpuLimit(10, [&] {
        return sm->VCR_UseFile("big.vcr") && sm->GetFrames() == count && sm->GetFrame() == count &&
               sm->GetCurrent() == &a;
    }), "done");
}
