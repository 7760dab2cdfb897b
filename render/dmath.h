// The small value types of the render objects: a three-component vector, a four-by-four matrix, a
// quaternion read and set as Euler angles, an axis-aligned box and a plane through three points.
//
// Plain values of 32-bit floats: no ownership, no virtual operations, copied freely. Angles are
// radians everywhere here; files and spin boxes show degrees, and convert at their end.
#pragma once

namespace tarvik {

struct DVector3 {
    DVector3() : x(0), y(0), z(0) {}
    explicit DVector3(float value) : x(value), y(value), z(value) {}
    DVector3(float vx, float vy, float vz) : x(vx), y(vy), z(vz) {}

    DVector3 operator+(const DVector3& o) const { return DVector3(x + o.x, y + o.y, z + o.z); }
    DVector3 operator-(const DVector3& o) const { return DVector3(x - o.x, y - o.y, z - o.z); }
    DVector3 operator*(float s) const { return DVector3(x * s, y * s, z * s); }
    DVector3& operator+=(const DVector3& o) { x += o.x, y += o.y, z += o.z; return *this; }
    bool operator==(const DVector3& o) const { return x == o.x && y == o.y && z == o.z; }
    bool operator!=(const DVector3& o) const { return !(*this == o); }

    float Dot(const DVector3& o) const { return x * o.x + y * o.y + z * o.z; }
    DVector3 Cross(const DVector3& o) const
    {
        return DVector3(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x);
    }
    float Length() const;

    float x, y, z;
};

// 16 floats, one column after the other, as OpenGL takes them.
struct DMatrix4 {
    DMatrix4(); // identity
    explicit DMatrix4(float value); // all 16 elements

    float& operator[](int i) { return m[i]; }
    float operator[](int i) const { return m[i]; }

    // The upper-left 3x3 part times 'in': a direction, so no translation.
    void TransformVector(const DVector3& in, DVector3& out) const;

    float m[16];
};

struct DQuat {
    DQuat() : w(1), x(0), y(0), z(0) {} // no rotation
    DQuat(float qw, float qx, float qy, float qz) : w(qw), x(qx), y(qy), z(qz) {}

    // The rotation by b about x, then by a about y, then by c about z.
    void SetEuler(float a, float b, float c);
    // The angles back, in reverse order: out[0] is c, out[1] is b, out[2] is a. Needs no unit
    // length. Near the poles (|out[0]| at pi/2) the whole rest of the turn lands in out[2] and
    // out[1] is exactly 0.
    void GetEuler(float out[3]) const;

    float w, x, y, z;
};

struct DBox {
    DBox() {} // all six components 0
    DBox(const DVector3& lo, const DVector3& hi) : min(lo), max(hi) {}

    float GetRadius() const; // half the diagonal

    DVector3 min, max;
};

struct DPlane {
    DPlane() : d(0) {}

    // The plane through three points: normal = (p1 - p3) x (p2 - p3), made unit; (0, 1, 0) when
    // the points are (nearly) on one line. d makes normal . p1 + d = 0.
    void FromPoints(const DVector3& p1, const DVector3& p2, const DVector3& p3);

    DVector3 normal;
    float d;
};

} // namespace tarvik
