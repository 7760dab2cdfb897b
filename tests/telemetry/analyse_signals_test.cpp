// The signal set: entries of added signals, lookups, sample access, triggers, banks and limits.
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_signaltypes.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <gtest/gtest.h>

#include <string>

using namespace tarvik;
using namespace tarvik::test;

using SignalSetTest = TelemetryTest;

TEST_F(SignalSetTest, UnknownNameGetsPrivateEntryAndFindSignalComparesExactly)
{
    PSignals set;
    EXPECT_EQ(set.signalCount + set.propertyCount + set.metaCount, 0);
    EXPECT_TRUE(set.fileName.IsEmpty());
    EXPECT_EQ(set.FindSignal("time"), nullptr);

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

    PSignal* speed = set.AddSignal("speed", 1);
    PSignal* upper = set.AddSignal("Speed", 1);
    ASSERT_NE(set.AddSignal("speed", 1), nullptr);
    EXPECT_EQ(set.FindSignal("oiltemp"), s);
    EXPECT_EQ(set.FindSignal("speed"), speed); // the first of the two
    EXPECT_EQ(set.FindSignal("Speed"), upper);
    for (const char* name : {"SPEED", "spee", "speed ", ""}) EXPECT_EQ(set.FindSignal(name), nullptr) << name;
}

TEST_F(SignalSetTest, OnlyLapSamplesReadMinusOneUntilStored)
{
    PSignals set;
    PSignal* lap = set.AddSignal("lap", 3);
    ASSERT_NE(lap, nullptr);
    EXPECT_EQ(lap->count, 0);
    for (int i = 0; i < 3; i++) EXPECT_EQ(lap->data[i], -1.0f) << i;
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
    PSignal* lap = set.AddSignal("lap", 3); // stored nothing yet: count 0
    PSignal* bare = nullptr;
    ASSERT_NE(rpm, nullptr);
    EXPECT_EQ(rpm->GetValue(0), 1000.0f);
    EXPECT_EQ(rpm->GetValue(1), 1500.0f);

    float values[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    std::string err = StderrOf([&] {
        values[0] = rpm->GetValue(-1);
        values[1] = rpm->GetValue(2);
        values[2] = lap->GetValue(0);
        bare = new PSignal(2, nullptr, 0);
        values[3] = bare->GetValue(0);
    });
    delete bare;
    for (float v : values) EXPECT_EQ(v, 0.0f);
    EXPECT_EQ(err, "GetValue index (-1) out of range 0..1 (rpm)\n"
                   "GetValue index (2) out of range 0..1 (rpm)\n"
                   "GetValue index (0) out of range 0..-1 (lap)\n"
                   "PSignal ctor; def may not be 0\n"
                   "GetValue index (0) out of range 0..-1 (<no_signaltypedef>)\n");
    EXPECT_TRUE(Contains(Log(), "(ERR  ): [-] GetValue index (0) out of range 0..-1 (lap) ["));
    EXPECT_EQ(rpm->count, 2); // reading out of range leaves the recording intact
    EXPECT_EQ(rpm->GetValue(1), 1500.0f);
}

TEST_F(SignalSetTest, TriggerMarksChangesAboveThresholdInEitherDirection)
{
    PSignals set;
    PSignal* gear = AddFilled(set, "gear", {5.0f, 5.0f});
    PSignal* s = AddFilled(set, "sector", {1.0f, 1.000001f, 2.0f, 1.0f, 0.0f, 0.00001f, 0.000011f, -0.000001f});
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(gear->GetTriggerValue(0), 0.0f); // zero at the first sample even if non-zero
    EXPECT_EQ(gear->GetTriggerValue(1), 0.0f);
    // 1.000001 is below the threshold; a change of exactly 1e-5 is no change, 1.2e-5 is one.
    const float expected[] = {0, 0, 1, 1, 1, 0, 0, 1};
    for (int i = 0; i < 8; i++) EXPECT_EQ(s->GetTriggerValue(i), expected[i]) << i;

    float v = 1.0f, w = 1.0f;
    std::string err = StderrOf([&] {
        v = s->GetTriggerValue(8);
        w = s->GetTriggerValue(-1);
    });
    EXPECT_TRUE(v == 0.0f && w == 0.0f) << v << " " << w;
    EXPECT_EQ(err, "GetTriggerValue index (8) out of range 0..7 (sector)\n"
                   "GetTriggerValue index (-1) out of range 0..7 (sector)\n");
}

TEST_F(SignalSetTest, BankSwitchSavesAndRestoresTheActiveFields)
{
    PSignals set;
    PSignal* s = AddFilled(set, "rpm", {7.0f, 8.0f}, 0.5f);
    ASSERT_NE(s, nullptr);
    float* samples = s->data;

    auto expectActive = [&](int bank, float* data, int count, float step) {
        EXPECT_EQ(s->bank, bank);
        EXPECT_EQ(s->data, data);
        EXPECT_TRUE(s->count == count && s->capacity == count && s->timestep == step) << "bank " << bank;
    };
    s->SelectBank(1);
    expectActive(1, nullptr, 0, 0.0f);
    s->SelectBank(0);
    expectActive(0, samples, 2, 0.5f);
    EXPECT_EQ(s->GetValue(1), 8.0f);
    s->SelectBank(3); // no such bank: nothing changes
    expectActive(0, samples, 2, 0.5f);
}

TEST_F(SignalSetTest, ThousandSignalsAndThirtyPropertiesFitAndTheNextIsRefused)
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

    qmsgReset();
    err = StderrOf([&] {
        for (int i = 0; i < 30; i++) set.AddProperty(("n" + std::to_string(i)).c_str(), ("v" + std::to_string(i)).c_str());
    });
    EXPECT_EQ(err, "");
    EXPECT_FALSE(Contains(Log(), "AddProperty"));
    EXPECT_EQ(set.propertyCount, 30);

    err = StderrOf([&] { set.AddProperty("track", "oval"); });
    EXPECT_EQ(err, "PSignals::AddProperty(track,oval) out of space\n");
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] PSignals::AddProperty(track,oval) out of space ["));
    EXPECT_EQ(set.propertyCount, 30);
    EXPECT_STREQ(set.propertyName[29].cstr(), "n29");
    EXPECT_STREQ(set.propertyValue[29].cstr(), "v29");
}
