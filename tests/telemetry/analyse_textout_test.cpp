// The export's number formatter against printf("%f"), and its output buffer.
#include "telemetry/analyse_textout.h"

#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>
#include <algorithm>

using namespace tarvik;
using namespace tarvik::test;

namespace {

std::string Ours(float f)
{
    char buf[128];
    int n = FormatFloatF6(buf, f);
    return std::string(buf, size_t(n));
}

std::string Printf(float f)
{
    char buf[128];
    std::snprintf(buf, sizeof buf, "%f", double(f));
    return buf;
}

float FromBits(uint32_t bits)
{
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
}

std::vector<float> FromBits(const std::vector<uint32_t>& bits)
{
    std::vector<float> values(bits.size());
    for (size_t i = 0; i < bits.size(); i++) values[i] = FromBits(bits[i]);
    return values;
}

// The row formatters to check: the scalar road always, the vector road where the processor has it.
std::vector<bool> Roads()
{
    std::vector<bool> roads{false};
    if (f6::VectorRowAvailable()) roads.push_back(true);
    return roads;
}

struct RoadGuard {
    ~RoadGuard() { f6::UseVectorRow(true); }
};

// Formats values[first, first + count) as a row through FormatRowF6 and printf, and compares.
::testing::AssertionResult RowMatchesPrintf(const std::vector<float>& values, size_t first, size_t count, char sep)
{
    std::vector<char> buf(RowBytes(int(count)));
    char* end = FormatRowF6(buf.data(), values.data() + first, int(count), sep);
    std::string ours(buf.data(), size_t(end - buf.data())), expected;
    for (size_t i = 0; i < count; i++) expected += Printf(values[first + i]) + (i + 1 < count ? sep : '\n');
    if (ours == expected) return ::testing::AssertionSuccess();
    for (size_t i = 0; i < count; i++) {
        char one[128];
        one[FormatRowF6(one, &values[first + i], 1, sep) - one - 1] = 0;
        if (Printf(values[first + i]) != one)
            return ::testing::AssertionFailure() << "value " << i << " bits " << std::hex
                                                 << *reinterpret_cast<const uint32_t*>(&values[first + i]) << ": "
                                                 << one << " != " << Printf(values[first + i]);
    }
    return ::testing::AssertionFailure() << "row differs:\n" << ours << expected;
}

} // namespace

// The tests below check the vector road only where the processor has it: say so where it hasn't.
TEST(FormatFloatF6Test, VectorRoadIsCheckedOnThisProcessor)
{
    if (!f6::VectorRowAvailable())
        GTEST_SKIP() << "no 512-bit byte instructions here: only the scalar row formatter is checked";
    EXPECT_TRUE(f6::UseVectorRow(true));
}

TEST(FormatFloatF6Test, SpecialClassesPrintAsPrintfDoesOnBothRoads)
{
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> cases = {
        0.0f, -0.0f, inf, -inf, std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
        FromBits(0x7f800001), FromBits(0xffbfffff), std::numeric_limits<float>::max(),
        -std::numeric_limits<float>::max(), std::numeric_limits<float>::min(), std::numeric_limits<float>::denorm_min(),
        -std::numeric_limits<float>::denorm_min(), -1e-7f, -4.9e-7f, -5.1e-7f, 1e-7f, 0.0078125f, 0.0234375f,
        -0.0078125f, 0.5f, 1.0f, 10.0f, 123456.789f, 9999999.0f, 9999999.5f, -9999999.5f, 10000000.0f, 16777216.0f,
        16777217.0f, 1e10f, 9.223372e18f, 1.8446744e19f, 3.4e38f, 0.1f, 0.01f, 1.0f / 3.0f, 999999.9999f, 0.9999995f};
    for (float f : cases) EXPECT_EQ(Ours(f), Printf(f)) << std::hexfloat << f;
    EXPECT_EQ(Ours(-0.0f), "-0.000000");
    EXPECT_EQ(Ours(-1e-7f), "-0.000000");
    EXPECT_EQ(Ours(0.0078125f), "0.007812"); // a tie at the seventh decimal goes to the even digit
    EXPECT_EQ(Ours(0.0234375f), "0.023438");

    RoadGuard guard;
    for (bool vector : Roads()) {
        ASSERT_EQ(f6::UseVectorRow(vector), vector);
        // Every slice, so each case sits in every lane and rows end at every lane.
        for (size_t first = 0; first < cases.size(); first++)
            for (size_t count = 1; first + count <= cases.size(); count++)
                ASSERT_TRUE(RowMatchesPrintf(cases, first, count, count % 2 ? ' ' : '\t'))
                    << "vector " << vector << " first " << first << " count " << count;
    }
}

TEST(FormatFloatF6Test, EveryExponentWithEdgeMantissasOnBothRoads)
{
    std::vector<uint32_t> bits;
    for (uint32_t sign = 0; sign < 2; sign++)
        for (uint32_t e = 0; e < 255; e++)
            for (uint32_t m : {0u, 1u, 2u, 3u, 0x400000u, 0x7ffffeu, 0x7fffffu, 0x2aaaaau, 0x555555u})
                bits.push_back(sign << 31 | e << 23 | m);
    const std::vector<float> values = FromBits(bits);
    RoadGuard guard;
    for (bool vector : Roads()) {
        f6::UseVectorRow(vector);
        for (size_t first = 0; first < values.size(); first += 40)
            ASSERT_TRUE(RowMatchesPrintf(values, first, std::min<size_t>(40, values.size() - first), ','));
    }
}

TEST(FormatFloatF6Test, MillionsOfRandomPatternsOnBothRoads)
{
    // Random bits, and as many again from the exponents telemetry lives in (about 1e-6 to 1e7).
    std::mt19937 rng(20261122);
    std::vector<uint32_t> bits(4000000);
    for (size_t i = 0; i < bits.size(); i++) {
        bits[i] = rng();
        if (i % 2) bits[i] = (bits[i] & 0x807FFFFFu) | (107 + bits[i] % 44) << 23;
    }
    const std::vector<float> values = FromBits(bits);
    RoadGuard guard;
    for (bool vector : Roads()) {
        f6::UseVectorRow(vector);
        for (size_t first = 0, count = 1; first < values.size(); first += count, count = 1 + first % 45)
            ASSERT_TRUE(RowMatchesPrintf(values, first, std::min(count, values.size() - first), ' '))
                << "vector " << vector;
    }
    // Telemetry lives between -1e6 and 1e6: walk that range densely too.
    for (float f = -1000.0f; f < 1000.0f; f += 0.0013f) ASSERT_EQ(Ours(f), Printf(f)) << f;
}

TEST(PTextOutTest, WritesTextAndNumbersInOrderAcrossBufferRefills)
{
    TempDir dir;
    std::string path = dir.File("out.txt");
    FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::string expected;
    {
        PTextOut out(f);
        for (int i = 0; i < 200000; i++) { // about 2.6 MB: the 1 MB buffer drains several times
            out.Float(float(i) * 0.25f);
            out.Char(i % 10 ? ' ' : '\n');
            expected += Printf(float(i) * 0.25f) + (i % 10 ? ' ' : '\n');
        }
        out.Text("end\n");
        expected += "end\n";
        EXPECT_TRUE(out.Flush());
        EXPECT_FALSE(out.Failed());
    }
    std::fclose(f);
    EXPECT_TRUE(ReadFile(path) == expected);
}

TEST(PTextOutTest, FullDiskIsRemembered)
{
    FILE* f = std::fopen("/dev/full", "w");
    if (!f) GTEST_SKIP() << "no /dev/full here";
    {
        PTextOut out(f);
        for (int i = 0; i < 300000; i++) out.Float(1.5f);
        EXPECT_FALSE(out.Flush());
        EXPECT_TRUE(out.Failed());
    }
    std::fclose(f);
}
