// Shared by the cases of the telemetry library: every case runs in a fresh directory of its own,
// since warnings and errors land in QLOG.txt in the current directory, and starts with a fresh
// message log, so that a message of an earlier case is never folded into a repeat count.
#pragma once

#include "foundation/qmessage.h"
#include "telemetry/analyse_signals.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tarvik {
namespace test {

class TelemetryTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }

    // QLOG.txt of this case with the times cut off; empty if nothing was logged.
    std::string Log() const { return LogWithoutTimes(ReadFile(dir.File("QLOG.txt"))); }
    bool LogExists() const { return FileExists(dir.File("QLOG.txt")); }

    TempDir dir{true};
};

// Runs 'action' and returns what it wrote to standard error.
template <class Action>
std::string StderrOf(Action&& action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

// Adds a signal filled the way an import fills it: samples, count and step.
inline PSignal* AddFilled(PSignals& set, const char* name, const std::vector<float>& samples, float step = 1.0f)
{
    PSignal* s = set.AddSignal(name, int(samples.size()));
    if (!s) return nullptr;
    std::copy(samples.begin(), samples.end(), s->data);
    s->count = int32_t(samples.size());
    s->timestep = step;
    return s;
}

// For EXPECT_TRUE: passes if 'part' stands somewhere in 'text', and shows both otherwise.
inline ::testing::AssertionResult Contains(const std::string& text, const std::string& part)
{
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "\"" << part << "\" not found in:\n" << text;
}

inline int Occurrences(const std::string& text, const std::string& what)
{
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
    return n;
}

} // namespace test
} // namespace tarvik
