#include "foundation/qmessage.h"
#include "telemetry/analyse_signaltypes.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace tarvik;
using tarvik::test::TempDir;
using tarvik::test::WriteFile;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

const char* const fileName = "telemetry_signals.ini";

class SignalTypeDefsTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }

    // Loads 'text' as the type file into a fresh table; what the loading printed goes to 'err'.
    bool Load(const std::string& text, std::string* err)
    {
        WriteFile(fileName, text);
        CaptureStderr();
        bool found = defs->Load(fileName);
        *err = GetCapturedStderr();
        return found;
    }

    TempDir dir{true};
    std::unique_ptr<PSignalTypeDefs> defs{new PSignalTypeDefs}; // large: not on the stack
};

} // namespace

TEST_F(SignalTypeDefsTest, ChildWithoutKeysGetsDefaults)
{
    std::string err;
    ASSERT_TRUE(Load("signals\n{\nspeed\n{\n}\n}\n", &err));
    EXPECT_EQ(err, "signals.speed.max: 0.000000-1.000000\n");
    ASSERT_EQ(defs->GetCount(), 1);
    const PSignalTypeDef& d = *defs->Get(0);
    EXPECT_STREQ(d.id.cstr(), "speed");
    EXPECT_STREQ(d.name.cstr(), "signals.speed");
    EXPECT_STREQ(d.unit.cstr(), "-");
    EXPECT_EQ(d.flags, uint32_t(PSignalTypeDef::PSTF_SELECTABLE));
    EXPECT_EQ(d.min, 0.0f);
    EXPECT_EQ(d.max, 1.0f);
    EXPECT_EQ(d.factor, 1.0f);
    EXPECT_EQ(d.offset, 0.0f);
    EXPECT_EQ(d.color[0], 0.0f); // black, while a fresh entry is white
    EXPECT_EQ(d.color[1], 0.0f);
    EXPECT_EQ(d.color[2], 0.0f);
    EXPECT_EQ(d.decimals, 2);
}

TEST_F(SignalTypeDefsTest, AllKeysAreRead)
{
    std::string err;
    ASSERT_TRUE(
        Load("; the types\nsignals\n{\n; engine\nrpm\n{\nname=Engine speed\nunit=1/min\nmin=-100\n"
             "max=12000\nfactor=2.5\noffset=-1\nlive=1\nselectable=0\ncolor=1, 0.5\ndecimals=0\n}\n}\n",
             &err));
    EXPECT_EQ(err, "signals.rpm.max: -100.000000-12000.000000\n");
    ASSERT_EQ(defs->GetCount(), 1); // comments are no types
    const PSignalTypeDef& d = *defs->Get(0);
    EXPECT_STREQ(d.id.cstr(), "rpm");
    EXPECT_STREQ(d.name.cstr(), "Engine speed");
    EXPECT_STREQ(d.unit.cstr(), "1/min");
    EXPECT_EQ(d.min, -100.0f);
    EXPECT_EQ(d.max, 12000.0f);
    EXPECT_EQ(d.factor, 2.5f);
    EXPECT_EQ(d.offset, -1.0f);
    EXPECT_EQ(d.flags, uint32_t(PSignalTypeDef::PSTF_LIVE));
    EXPECT_EQ(d.color[0], 1.0f);
    EXPECT_EQ(d.color[1], 0.5f);
    EXPECT_EQ(d.color[2], 0.0f);
    EXPECT_EQ(d.decimals, 0);
}

TEST_F(SignalTypeDefsTest, LevelsNamesAndOrder)
{
    std::string err;
    ASSERT_TRUE(
        Load("signals\n{\nbrake\nspeed\n{\nunit=km/h\nsub\n{\nx=1\n}\n}\ngear=3\nspeed\n{\nunit=mph\n}\n}\n",
             &err));
    EXPECT_EQ(err, "signals.brake.max: 0.000000-1.000000\nsignals.speed.max: 0.000000-1.000000\n"
                   "signals.gear.max: 0.000000-1.000000\nsignals.speed.max: 0.000000-1.000000\n");
    // A bare key counts as a type; the child's own child doesn't; the name appears twice.
    ASSERT_EQ(defs->GetCount(), 4);
    EXPECT_STREQ(defs->Get(0)->id.cstr(), "brake");
    EXPECT_STREQ(defs->Get(0)->name.cstr(), "signals.brake");
    EXPECT_STREQ(defs->Get(2)->id.cstr(), "gear");
    EXPECT_EQ(defs->Find("brake"), 0);
    EXPECT_EQ(defs->Find("speed"), 1); // the first of the two
    EXPECT_EQ(defs->Find("gear"), 2);
    EXPECT_STREQ(defs->Get(3)->id.cstr(), "speed");
    // Both read their keys by the same path, where the first assignment wins.
    EXPECT_STREQ(defs->Get(3)->unit.cstr(), "km/h");
    EXPECT_EQ(defs->Find("Speed"), -1);
    EXPECT_EQ(defs->Find("sub"), -1);
    EXPECT_EQ(defs->Find(""), -1);
}

TEST_F(SignalTypeDefsTest, ValuesThatDoNotParseWarn)
{
    std::string err;
    ASSERT_TRUE(Load("signals\n{\nspeed\n{\nmax=abc\ndecimals=1.5\n}\n}\n", &err));
    EXPECT_EQ(err,
              "signals.speed.max value 'abc' (in telemetry_signals.ini) is not a valid float: character 'a' "
              "is not allowed\n"
              "signals.speed.max: 0.000000-0.000000\n"
              "signals.speed.decimals value '1.5' (in telemetry_signals.ini) is not a valid integer: a '.' "
              "is not allowed (floating point)\n");
    EXPECT_EQ(defs->Get(0)->decimals, 1);
}

TEST_F(SignalTypeDefsTest, AtMostOneThousandTypes)
{
    std::string text = "signals\n{\n";
    for (int i = 0; i <= 1000; i++)
        text += "t" + std::to_string(i) + "\n";
    text += "}\n";
    std::string err;
    ASSERT_TRUE(Load(text, &err));
    EXPECT_EQ(defs->GetCount(), 1000);
    EXPECT_EQ(defs->Find("t999"), 999);
    EXPECT_EQ(defs->Find("t1000"), -1);
    const std::string warning =
        "t999.max: 0.000000-1.000000\n"
        "PSignalTypeDefs:Load(telemetry_signals.ini); maximum reached (1000) - skipping rest\n";
    ASSERT_GE(err.size(), warning.size());
    EXPECT_EQ(err.substr(err.size() - warning.size()), warning);
    EXPECT_EQ(err.rfind("signals.t0.max: 0.000000-1.000000\n", 0), 0u);
}

TEST_F(SignalTypeDefsTest, MissingFileOrGroup)
{
    std::string err;
    ASSERT_TRUE(Load("signals\n{\nspeed\n}\n", &err));
    EXPECT_EQ(defs->GetCount(), 1);
    CaptureStderr();
    EXPECT_FALSE(defs->Load("absent.ini")); // silent, and the table is emptied
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(defs->GetCount(), 0);
    EXPECT_EQ(defs->Find("speed"), -1);

    ASSERT_TRUE(Load("other\n{\nspeed\n}\n", &err)); // no group signals: found, but empty
    EXPECT_EQ(err, "");
    EXPECT_EQ(defs->GetCount(), 0);
}
