#include "foundation/qmessage.h"
#include "telemetry/analyse_signaltypes.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

using namespace tarvik;
using namespace tarvik::test;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

const char* const fileName = "telemetry_signals.ini";

class SignalTypeDefsTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }

    // Loads 'text' as the type file; what the loading printed goes to 'err'.
    bool Load(const std::string& text)
    {
        WriteFile(fileName, text);
        CaptureStderr();
        bool found = defs->Load(fileName);
        err = GetCapturedStderr();
        return found;
    }

    std::string err;
    TempDir dir{true};
    std::unique_ptr<PSignalTypeDefs> defs{new PSignalTypeDefs}; // large: not on the stack
};

} // namespace

TEST_F(SignalTypeDefsTest, KeysAreReadAndMissingOnesGetDefaults)
{
    const struct {
        const char* text;
        const char* err;
        const char *id, *name, *unit;
        uint32_t flags;
        float min, max, factor, offset, color[3];
        int decimals;
    } cases[] = {
        {"signals\n{\nspeed\n{\n}\n}\n", "signals.speed.max: 0.000000-1.000000\n", "speed", "signals.speed", "-",
         PSignalTypeDef::PSTF_SELECTABLE, 0, 1, 1, 0, {0, 0, 0} /* black; a fresh entry is white */, 2},
        {"; the types\nsignals\n{\n; engine\nrpm\n{\nname=Engine speed\nunit=1/min\nmin=-100\nmax=12000\n"
         "factor=2.5\noffset=-1\nlive=1\nselectable=0\ncolor=1, 0.5\ndecimals=0\n}\n}\n",
         "signals.rpm.max: -100.000000-12000.000000\n", "rpm", "Engine speed", "1/min", PSignalTypeDef::PSTF_LIVE,
         -100, 12000, 2.5f, -1, {1, 0.5f, 0}, 0},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(Load(c.text));
        EXPECT_EQ(err, c.err);
        ASSERT_EQ(defs->GetCount(), 1); // comments are no types
        const PSignalTypeDef& d = *defs->Get(0);
        EXPECT_STREQ(d.id.cstr(), c.id);
        EXPECT_STREQ(d.name.cstr(), c.name);
        EXPECT_STREQ(d.unit.cstr(), c.unit);
        EXPECT_EQ(d.flags, c.flags);
        EXPECT_TRUE(d.min == c.min && d.max == c.max && d.factor == c.factor && d.offset == c.offset) << c.id;
        for (int i = 0; i < 3; i++) EXPECT_EQ(d.color[i], c.color[i]) << c.id << " " << i;
        EXPECT_EQ(d.decimals, c.decimals);
    }
}

TEST_F(SignalTypeDefsTest, LevelsNamesAndOrder)
{
    ASSERT_TRUE(Load("signals\n{\nbrake\nspeed\n{\nunit=km/h\nsub\n{\nx=1\n}\n}\ngear=3\nspeed\n{\nunit=mph\n}\n}\n"));
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
    for (const char* id : {"Speed", "sub", ""}) EXPECT_EQ(defs->Find(id), -1) << id;
}

TEST_F(SignalTypeDefsTest, ValuesThatDoNotParseWarn)
{
    ASSERT_TRUE(Load("signals\n{\nspeed\n{\nmax=abc\ndecimals=1.5\n}\n}\n"));
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
    for (int i = 0; i <= 1000; i++) text += "t" + std::to_string(i) + "\n";
    ASSERT_TRUE(Load(text + "}\n"));
    EXPECT_EQ(defs->GetCount(), 1000);
    EXPECT_EQ(defs->Find("t999"), 999);
    EXPECT_EQ(defs->Find("t1000"), -1);
    const std::string warning = "t999.max: 0.000000-1.000000\n"
                                "PSignalTypeDefs:Load(telemetry_signals.ini); maximum reached (1000) - skipping rest\n";
    EXPECT_EQ(err.substr(err.size() - std::min(err.size(), warning.size())), warning);
    EXPECT_EQ(err.rfind("signals.t0.max: 0.000000-1.000000\n", 0), 0u);
}

TEST_F(SignalTypeDefsTest, MissingFileOrGroup)
{
    ASSERT_TRUE(Load("signals\n{\nspeed\n}\n"));
    EXPECT_EQ(defs->GetCount(), 1);
    CaptureStderr();
    EXPECT_FALSE(defs->Load("absent.ini")); // silent, and the table is emptied
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(defs->GetCount(), 0);
    EXPECT_EQ(defs->Find("speed"), -1);

    ASSERT_TRUE(Load("other\n{\nspeed\n}\n")); // no group signals: found, but empty
    EXPECT_EQ(err, "");
    EXPECT_EQ(defs->GetCount(), 0);
}
