// The value types of dmath.h. Everything is float arithmetic but the pole test of GetEuler.
#include "render/dmath.h"

#include <cmath>

namespace tarvik {

float DVector3::Length() const { return std::sqrt(x * x + y * y + z * z); }

DMatrix4::DMatrix4()
{
    for (int i = 0; i < 16; i++) m[i] = (i % 5 == 0) ? 1.0f : 0.0f;
}

DMatrix4::DMatrix4(float value)
{
    for (int i = 0; i < 16; i++) m[i] = value;
}

void DMatrix4::TransformVector(const DVector3& in, DVector3& out) const
{
    float r[3];
    for (int i = 0; i < 3; i++) r[i] = m[i] * in.x + m[4 + i] * in.y + m[8 + i] * in.z;
    out = DVector3(r[0], r[1], r[2]); // 'in' and 'out' may be the same vector
}

void DQuat::SetEuler(float a, float b, float c)
{
    float ca = std::cos(a / 2), sa = std::sin(a / 2);
    float cb = std::cos(b / 2), sb = std::sin(b / 2);
    float cc = std::cos(c / 2), sc = std::sin(c / 2);
    w = ca * cb * cc - sa * sb * sc;
    x = ca * sb * cc + sa * cb * sc;
    y = sa * cb * cc - ca * sb * sc;
    z = ca * cb * sc + sa * sb * cc;
}

void DQuat::GetEuler(float out[3]) const
{
    const float pi = 3.14159265358979f;
    float unit = w * w + x * x + y * y + z * z; // so that the quaternion needs no unit length
    float test = x * y + z * w;
    // The pole test compares in double: 0.499 is no float, and rounding it to one would move the
    // threshold.
    if (double(test) > 0.499 * double(unit)) {
        out[0] = pi / 2;
        out[1] = 0;
        out[2] = 2 * std::atan2(x, w);
        return;
    }
    if (double(test) < -0.499 * double(unit)) {
        out[0] = -pi / 2;
        out[1] = 0;
        out[2] = -2 * std::atan2(x, w);
        return;
    }
    out[0] = std::asin(2 * test / unit);
    out[1] = std::atan2(2 * x * w - 2 * y * z, y * y - x * x - z * z + w * w);
    out[2] = std::atan2(2 * y * w - 2 * x * z, x * x - y * y - z * z + w * w);
}

float DBox::GetRadius() const { return (max - min).Length() * 0.5f; }

void DPlane::FromPoints(const DVector3& p1, const DVector3& p2, const DVector3& p3)
{
    DVector3 u = p1 - p3, v = p2 - p3;
    normal = u.Cross(v);
    float len = normal.Length();
    if (len < 1e-5f)
        normal = DVector3(0, 1, 0);
    else
        normal = DVector3(normal.x / len, normal.y / len, normal.z / len);
    d = -p1.Dot(normal);
}

} // namespace tarvik
