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

} // namespace

TEST(FormatFloatF6Test, SpecialClassesPrintAsPrintfDoes)
{
    const float inf = std::numeric_limits<float>::infinity();
    const float cases[] = {0.0f, -0.0f, inf, -inf, std::numeric_limits<float>::quiet_NaN(),
                           -std::numeric_limits<float>::quiet_NaN(), FromBits(0x7f800001), FromBits(0xffbfffff),
                           std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
                           std::numeric_limits<float>::min(), std::numeric_limits<float>::denorm_min(),
                           -std::numeric_limits<float>::denorm_min(), -1e-7f, -4.9e-7f, -5.1e-7f, 1e-7f,
                           0.0078125f, 0.0234375f, -0.0078125f, 0.5f, 1.0f, 10.0f, 123456.789f, 16777216.0f,
                           16777217.0f, 1e10f, 9.223372e18f, 1.8446744e19f, 3.4e38f, 0.1f, 0.01f, 1.0f / 3.0f};
    for (float f : cases) EXPECT_EQ(Ours(f), Printf(f)) << std::hexfloat << f;
    EXPECT_EQ(Ours(-0.0f), "-0.000000");
    EXPECT_EQ(Ours(-1e-7f), "-0.000000");
    EXPECT_EQ(Ours(0.0078125f), "0.007812"); // a tie at the seventh decimal goes to the even digit
    EXPECT_EQ(Ours(0.0234375f), "0.023438");
}

TEST(FormatFloatF6Test, EveryExponentWithEdgeMantissas)
{
    for (uint32_t sign = 0; sign < 2; sign++)
        for (uint32_t e = 0; e < 255; e++)
            for (uint32_t m : {0u, 1u, 2u, 3u, 0x400000u, 0x7ffffeu, 0x7fffffu, 0x2aaaaau, 0x555555u}) {
                uint32_t bits = sign << 31 | e << 23 | m;
                ASSERT_EQ(Ours(FromBits(bits)), Printf(FromBits(bits))) << std::hex << bits;
            }
}

TEST(FormatFloatF6Test, MillionsOfRandomPatterns)
{
    std::mt19937 rng(20261122);
    for (int i = 0; i < 3000000; i++) {
        uint32_t bits = rng();
        ASSERT_EQ(Ours(FromBits(bits)), Printf(FromBits(bits))) << std::hex << bits;
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
