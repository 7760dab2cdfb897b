// Cases for the value types: planes from points, Euler angles in and out, boxes and matrices.
#include "render/dmath.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace tarvik;

namespace {

const float pi = 3.14159265358979f;

DQuat Mul(const DQuat& p, const DQuat& q)
{
    return DQuat(p.w * q.w - p.x * q.x - p.y * q.y - p.z * q.z, p.w * q.x + p.x * q.w + p.y * q.z - p.z * q.y,
                 p.w * q.y - p.x * q.z + p.y * q.w + p.z * q.x, p.w * q.z + p.x * q.y - p.y * q.x + p.z * q.w);
}

} // namespace

TEST(DMathTest, PlaneFromPoints)
{
    const struct {
        DVector3 p1, p2, p3, normal;
        float d;
    } cases[] = {
        {{1, 0, 2}, {0, 1, 2}, {0, 0, 2}, {0, 0, 1}, -2},   // (p1 - p3) x (p2 - p3)
        {{0, 1, 2}, {1, 0, 2}, {0, 0, 2}, {0, 0, -1}, 2},   // the other way round
        {{0, 0, 0}, {0, 0, 4}, {3, 0, 0}, {0, 1, 0}, 0},    // scaled to unit length
        {{1, 2, 3}, {2, 4, 6}, {3, 6, 9}, {0, 1, 0}, -2},   // on one line: (0, 1, 0), d from p1
        {{5, 7, 1}, {5, 7, 1}, {5, 7, 1}, {0, 1, 0}, -7},   // one point
        {{0, 0, 0}, {1e-3f, 0, 0}, {0, 1e-3f, 0}, {0, 1, 0}, 0}, // area below the threshold
    };
    for (const auto& c : cases) {
        DPlane plane;
        plane.FromPoints(c.p1, c.p2, c.p3);
        EXPECT_NEAR(c.normal.x, plane.normal.x, 1e-6f);
        EXPECT_NEAR(c.normal.y, plane.normal.y, 1e-6f);
        EXPECT_NEAR(c.normal.z, plane.normal.z, 1e-6f);
        EXPECT_NEAR(c.d, plane.d, 1e-6f);
    }
}

TEST(DMathTest, SetEulerIsTheProductAboutXThenYThenZ)
{
    const float angles[][3] = {{0.3f, 0.5f, 0.7f}, {-2.0f, 1.1f, -0.4f}, {3.0f, -3.0f, 1.4f}};
    for (const auto& a : angles) {
        DQuat q;
        q.SetEuler(a[0], a[1], a[2]);
        DQuat qx(std::cos(a[1] / 2), std::sin(a[1] / 2), 0, 0);
        DQuat qy(std::cos(a[0] / 2), 0, std::sin(a[0] / 2), 0);
        DQuat qz(std::cos(a[2] / 2), 0, 0, std::sin(a[2] / 2));
        DQuat expect = Mul(Mul(qx, qy), qz);
        EXPECT_NEAR(expect.w, q.w, 1e-6f);
        EXPECT_NEAR(expect.x, q.x, 1e-6f);
        EXPECT_NEAR(expect.y, q.y, 1e-6f);
        EXPECT_NEAR(expect.z, q.z, 1e-6f);
    }
    DQuat q(0.5f, 0.5f, 0.5f, 0.5f);
    q.SetEuler(0, 0, 0);
    EXPECT_TRUE(q.w == 1 && q.x == 0 && q.y == 0 && q.z == 0);
}

// One axis at a time, the angles come back in reverse order: c in out[0], b in out[1], a in out[2].
TEST(DMathTest, EulerRoundTripsOneAxisAtATime)
{
    const struct {
        float a, b, c;
        float out[3];
    } cases[] = {
        {0, 0, 0, {0, 0, 0}},
        {0.3f, 0, 0, {0, 0, 0.3f}},
        {-2.9f, 0, 0, {0, 0, -2.9f}},
        {0, 1.2f, 0, {0, 1.2f, 0}},
        {0, -3.0f, 0, {0, -3.0f, 0}},
        {0, 0, 0.7f, {0.7f, 0, 0}},
        {0, 0, -1.5f, {-1.5f, 0, 0}}, // just short of the pole
    };
    for (const auto& c : cases) {
        DQuat q;
        q.SetEuler(c.a, c.b, c.c);
        for (float scale : {1.0f, 2.0f}) { // no unit length needed
            DQuat scaled(q.w * scale, q.x * scale, q.y * scale, q.z * scale);
            float out[3] = {9, 9, 9};
            scaled.GetEuler(out);
            for (int k = 0; k < 3; k++) EXPECT_NEAR(c.out[k], out[k], 2e-6f) << c.a << " " << c.b << " " << c.c << " out " << k;
        }
    }
}

TEST(DMathTest, AtThePolesTheRestOfTheTurnLandsInTheLastAngle)
{
    const struct {
        float a, c; // 'c' beyond the 0.499 test
        float out[3];
    } cases[] = {
        {0.8f, pi / 2, {pi / 2, 0, 0.8f}},
        {0, 1.56f, {pi / 2, 0, 0}}, // 2 test / unit = 0.99994
        {-0.8f, -pi / 2, {-pi / 2, 0, -0.8f}}, // below: out[2] is -2 atan2(x, w)
    };
    for (const auto& c : cases) {
        DQuat q;
        q.SetEuler(c.a, 0, c.c);
        for (float scale : {1.0f, 2.0f}) { // no unit length needed
            DQuat scaled(q.w * scale, q.x * scale, q.y * scale, q.z * scale);
            float out[3];
            scaled.GetEuler(out);
            EXPECT_FLOAT_EQ(c.out[0], out[0]);
            EXPECT_EQ(0.0f, out[1]); // exactly
            EXPECT_NEAR(c.out[2], out[2], 2e-6f);
        }
    }
}

TEST(DMathTest, BoxRadiusIsHalfTheDiagonal)
{
    EXPECT_EQ(0.0f, DBox().GetRadius());
    EXPECT_EQ(DVector3(0), DBox().min);
    EXPECT_EQ(DVector3(0), DBox().max);
    EXPECT_FLOAT_EQ(1.5f, DBox(DVector3(-1, 0, 5), DVector3(1, 2, 6)).GetRadius());
}

TEST(DMathTest, MatrixTransformsWithTheUpperLeftPartOnly)
{
    DMatrix4 zero(0.0f);
    for (int i = 0; i < 16; i++) EXPECT_EQ(0.0f, zero[i]);
    DMatrix4 m(0.0f);
    // Columns one after another: m[4] is column 1, row 0, so y feeds x.
    m[4] = 2;  // x += 2y
    m[1] = 3;  // y += 3x
    m[10] = 5; // z = 5z
    m[12] = 100, m[13] = 100, m[14] = 100, m[3] = 7; // translation and the bottom row play no part
    DVector3 v(1, 10, 100);
    m.TransformVector(v, v);
    EXPECT_EQ(DVector3(20, 3, 500), v);
    DVector3 out;
    DMatrix4().TransformVector(DVector3(4, 5, 6), out); // identity
    EXPECT_EQ(DVector3(4, 5, 6), out);
    EXPECT_EQ(DVector3(7, 7, 7), DVector3(7));
}
