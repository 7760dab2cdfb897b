// The signal set: type entries of added signals, lookups, sample access out of range, trigger
// values, banks and the fixed limits of signals and properties.
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_signaltypes.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <gtest/gtest.h>

#include <string>

using namespace tarvik;
using namespace tarvik::test;

using SignalSetTest = TelemetryTest;

TEST_F(SignalSetTest, FreshSetIsEmptyAndFindsNothing)
{
    PSignals set;
    EXPECT_EQ(set.signalCount, 0);
    EXPECT_EQ(set.propertyCount, 0);
    EXPECT_EQ(set.metaCount, 0);
    EXPECT_TRUE(set.fileName.IsEmpty());
    EXPECT_EQ(set.FindSignal("time"), nullptr);
    EXPECT_EQ(set.FindSignal(""), nullptr);
}

TEST_F(SignalSetTest, UnknownNameGetsPrivateEntryWithUnknownUnit)
{
    PSignals set;
    PSignal* s = set.AddSignal("oiltemp", 4);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(set.signalCount, 1);
    EXPECT_EQ(set.signals[0], s);
    EXPECT_EQ(s->flags, uint32_t(PSignal::PSF_OWN_DEF));
    ASSERT_NE(s->def, nullptr);
    EXPECT_STREQ(s->def->id.cstr(), "oiltemp");
    EXPECT_STREQ(s->def->unit.cstr(), "?");
    EXPECT_TRUE(s->def->name.IsEmpty());
    EXPECT_EQ(s->def->factor, 1.0f);
    EXPECT_EQ(s->def->max, 1.0f);
    EXPECT_EQ(s->def->decimals, 2);
    // The caller fills the samples, the count and the step; the set only allocates.
    EXPECT_EQ(s->capacity, 4);
    EXPECT_EQ(s->count, 0);
    EXPECT_EQ(s->timestep, 0.0f);
    EXPECT_EQ(s->bank, 0);
    for (int i = 0; i < 4; i++) EXPECT_EQ(s->data[i], 0.0f);
    EXPECT_EQ(set.FindSignal("oiltemp"), s);
}

TEST_F(SignalSetTest, FindSignalComparesExactlyAndTakesTheFirst)
{
    PSignals set;
    PSignal* first = set.AddSignal("speed", 1);
    set.AddSignal("Speed", 1);
    PSignal* second = set.AddSignal("speed", 1);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(set.FindSignal("speed"), first);
    EXPECT_EQ(set.FindSignal("Speed"), set.signals[1]);
    EXPECT_EQ(set.FindSignal("SPEED"), nullptr);
    EXPECT_EQ(set.FindSignal("spee"), nullptr);
    EXPECT_EQ(set.FindSignal("speed "), nullptr);
}

TEST_F(SignalSetTest, LapSamplesReadMinusOneUntilStoredButCountStaysZero)
{
    PSignals set;
    PSignal* lap = set.AddSignal("lap", 3);
    ASSERT_NE(lap, nullptr);
    EXPECT_EQ(lap->count, 0);
    for (int i = 0; i < 3; i++) EXPECT_EQ(lap->data[i], -1.0f) << i;

    float value = 1.0f;
    std::string err = StderrOf([&] { value = lap->GetValue(0); });
    EXPECT_EQ(value, 0.0f);
    EXPECT_EQ(err, "GetValue index (0) out of range 0..-1 (lap)\n");
    EXPECT_TRUE(Contains(Log(), "(ERR  ): [-] GetValue index (0) out of range 0..-1 (lap) ["));
}

TEST_F(SignalSetTest, OnlyTheExactNameLapStartsAtMinusOne)
{
    PSignals set;
    for (const char* name : {"Lap", "laps", "LAP"}) {
        PSignal* s = set.AddSignal(name, 2);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(s->data[0], 0.0f) << name;
        EXPECT_EQ(s->data[1], 0.0f) << name;
    }
}

TEST_F(SignalSetTest, GetValueInsideRangeAndErrorsOnBothSides)
{
    PSignals set;
    PSignal* rpm = AddFilled(set, "rpm", {1000.0f, 1500.0f});
    ASSERT_NE(rpm, nullptr);
    EXPECT_EQ(rpm->GetValue(0), 1000.0f);
    EXPECT_EQ(rpm->GetValue(1), 1500.0f);

    float below = 1.0f, above = 1.0f;
    std::string err = StderrOf([&] {
        below = rpm->GetValue(-1);
        above = rpm->GetValue(2);
    });
    EXPECT_EQ(below, 0.0f);
    EXPECT_EQ(above, 0.0f);
    EXPECT_EQ(err, "GetValue index (-1) out of range 0..1 (rpm)\n"
                   "GetValue index (2) out of range 0..1 (rpm)\n");
    // Reading out of range leaves the recording intact.
    EXPECT_EQ(rpm->count, 2);
    EXPECT_EQ(rpm->GetValue(1), 1500.0f);
}

TEST_F(SignalSetTest, SignalWithoutTypeEntryIsReportedAndNamedAsSuch)
{
    PSignal* s = nullptr;
    float value = 1.0f;
    std::string err = StderrOf([&] {
        s = new PSignal(2, nullptr, 0);
        value = s->GetValue(0);
    });
    EXPECT_EQ(err, "PSignal ctor; def may not be 0\n"
                   "GetValue index (0) out of range 0..-1 (<no_signaltypedef>)\n");
    EXPECT_EQ(value, 0.0f);
    delete s;
}

TEST_F(SignalSetTest, TriggerIsZeroAtFirstSampleEvenIfNonZero)
{
    PSignals set;
    PSignal* s = AddFilled(set, "gear", {5.0f, 5.0f});
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->GetTriggerValue(0), 0.0f);
    EXPECT_EQ(s->GetTriggerValue(1), 0.0f);
}

TEST_F(SignalSetTest, TriggerMarksChangesAboveThresholdInEitherDirection)
{
    PSignals set;
    PSignal* s = AddFilled(set, "sector", {1.0f, 1.000001f, 2.0f, 1.0f, 0.0f, 0.00001f, 0.000011f, -0.000001f});
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->GetTriggerValue(1), 0.0f); // 1.0 -> 1.000001: below the threshold
    EXPECT_EQ(s->GetTriggerValue(2), 1.0f); // up by one
    EXPECT_EQ(s->GetTriggerValue(3), 1.0f); // down by one
    EXPECT_EQ(s->GetTriggerValue(4), 1.0f);
    EXPECT_EQ(s->GetTriggerValue(5), 0.0f); // a change of exactly 1e-5 is no change
    EXPECT_EQ(s->GetTriggerValue(6), 0.0f);
    EXPECT_EQ(s->GetTriggerValue(7), 1.0f); // 1.2e-5 is one
}

TEST_F(SignalSetTest, TriggerOutOfRangeReportsAndGivesZero)
{
    PSignals set;
    PSignal* s = AddFilled(set, "sector", {0.0f, 3.0f});
    ASSERT_NE(s, nullptr);
    float v = 1.0f, w = 1.0f;
    std::string err = StderrOf([&] {
        v = s->GetTriggerValue(2);
        w = s->GetTriggerValue(-1);
    });
    EXPECT_EQ(v, 0.0f);
    EXPECT_EQ(w, 0.0f);
    EXPECT_EQ(err, "GetTriggerValue index (2) out of range 0..1 (sector)\n"
                   "GetTriggerValue index (-1) out of range 0..1 (sector)\n");
}

TEST_F(SignalSetTest, BankSwitchSavesAndRestoresTheActiveFields)
{
    PSignals set;
    PSignal* s = AddFilled(set, "rpm", {7.0f, 8.0f}, 0.5f);
    ASSERT_NE(s, nullptr);
    float* samples = s->data;

    s->SelectBank(1);
    EXPECT_EQ(s->bank, 1);
    EXPECT_EQ(s->data, nullptr);
    EXPECT_EQ(s->count, 0);
    EXPECT_EQ(s->capacity, 0);
    EXPECT_EQ(s->timestep, 0.0f);

    s->SelectBank(0);
    EXPECT_EQ(s->bank, 0);
    EXPECT_EQ(s->data, samples);
    EXPECT_EQ(s->count, 2);
    EXPECT_EQ(s->capacity, 2);
    EXPECT_EQ(s->timestep, 0.5f);
    EXPECT_EQ(s->GetValue(1), 8.0f);

    s->SelectBank(3); // no such bank: nothing changes
    EXPECT_EQ(s->bank, 0);
    EXPECT_EQ(s->data, samples);
}

TEST_F(SignalSetTest, ThousandthSignalIsAcceptedAndTheNextRefused)
{
    PSignals set;
    for (int i = 0; i < 1000; i++) ASSERT_NE(set.AddSignal(("s" + std::to_string(i)).c_str(), 1), nullptr) << i;
    EXPECT_EQ(set.signalCount, 1000);
    EXPECT_STREQ(set.signals[999]->GetId(), "s999");

    PSignal* refused = set.signals[0];
    std::string err = StderrOf([&] { refused = set.AddSignal("extra", 1); });
    EXPECT_EQ(refused, nullptr);
    EXPECT_EQ(err, "PSignals:AddSignal(); out of signals (max=1000)\n");
    EXPECT_EQ(set.signalCount, 1000);
    EXPECT_EQ(set.FindSignal("extra"), nullptr);
    EXPECT_TRUE(Contains(Log(), "(ERR  ): [-] PSignals:AddSignal(); out of signals (max=1000) ["));
}

TEST_F(SignalSetTest, ThirtiethPropertyIsAcceptedAndTheNextWarned)
{
    PSignals set;
    std::string err = StderrOf([&] {
        for (int i = 0; i < 30; i++) set.AddProperty(("n" + std::to_string(i)).c_str(), ("v" + std::to_string(i)).c_str());
    });
    EXPECT_EQ(err, "");
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(set.propertyCount, 30);
    EXPECT_STREQ(set.propertyName[29].cstr(), "n29");
    EXPECT_STREQ(set.propertyValue[29].cstr(), "v29");

    err = StderrOf([&] { set.AddProperty("track", "oval"); });
    EXPECT_EQ(err, "PSignals::AddProperty(track,oval) out of space\n");
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] PSignals::AddProperty(track,oval) out of space ["));
    EXPECT_EQ(set.propertyCount, 30);
    EXPECT_STREQ(set.propertyName[29].cstr(), "n29");
    EXPECT_STREQ(set.propertyValue[29].cstr(), "v29");
}
