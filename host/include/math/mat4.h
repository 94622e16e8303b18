/*
 * Host version of Android's <math/mat4.h>: android::mat4, a 4x4 matrix stored column-major as on
 * Android and in GL (m[c] is column c, m[c][r] the element in row r), so asArray() can be handed
 * to glUniformMatrix4fv with transpose GL_FALSE.
 *
 * A default-constructed matrix is the identity. The factories build the usual transforms:
 * ortho (as glOrtho), translate and scale (from a vec4; w should be 1), rotate (angle in radians,
 * counter-clockwise about the axis, which need not be normalized).
 */
#pragma once

#include <math.h>
#include <stddef.h>

#include <math/vec3.h>
#include <math/vec4.h>

namespace android {
namespace details {

template <typename T>
class TMat44 {
public:
    typedef T value_type;
    typedef TVec4<T> col_type;
    static constexpr size_t COL_SIZE = 4;
    static constexpr size_t ROW_SIZE = 4;

    // The identity.
    constexpr TMat44()
        : mValue{col_type(1, 0, 0, 0), col_type(0, 1, 0, 0), col_type(0, 0, 1, 0),
                 col_type(0, 0, 0, 1)} {}

    // A diagonal matrix.
    explicit constexpr TMat44(T v)
        : mValue{col_type(v, 0, 0, 0), col_type(0, v, 0, 0), col_type(0, 0, v, 0),
                 col_type(0, 0, 0, v)} {}

    constexpr TMat44(const col_type& c0, const col_type& c1, const col_type& c2, const col_type& c3)
        : mValue{c0, c1, c2, c3} {}

    // Sixteen values in column-major order: the first four are column 0.
    constexpr TMat44(T m00, T m01, T m02, T m03, T m10, T m11, T m12, T m13, T m20, T m21, T m22,
                     T m23, T m30, T m31, T m32, T m33)
        : mValue{col_type(m00, m01, m02, m03), col_type(m10, m11, m12, m13),
                 col_type(m20, m21, m22, m23), col_type(m30, m31, m32, m33)} {}

    // Sixteen values in column-major order.
    explicit TMat44(const T* v) {
        for (size_t c = 0; c < COL_SIZE; c++) {
            for (size_t r = 0; r < ROW_SIZE; r++) {
                mValue[c][r] = v[c * ROW_SIZE + r];
            }
        }
    }

    constexpr col_type& operator[](size_t column) { return mValue[column]; }
    constexpr const col_type& operator[](size_t column) const { return mValue[column]; }

    // The sixteen elements, column-major.
    const T* asArray() const { return &mValue[0].x; }

    static TMat44 ortho(T left, T right, T bottom, T top, T near, T far) {
        TMat44 m;
        m[0][0] = T(2) / (right - left);
        m[1][1] = T(2) / (top - bottom);
        m[2][2] = T(-2) / (far - near);
        m[3][0] = -(right + left) / (right - left);
        m[3][1] = -(top + bottom) / (top - bottom);
        m[3][2] = -(far + near) / (far - near);
        return m;
    }

    template <typename A>
    static constexpr TMat44 translate(const TVec4<A>& t) {
        TMat44 m;
        m[3] = col_type(static_cast<T>(t.x), static_cast<T>(t.y), static_cast<T>(t.z),
                        static_cast<T>(t.w));
        return m;
    }

    template <typename A>
    static constexpr TMat44 scale(const TVec4<A>& s) {
        TMat44 m;
        m[0][0] = static_cast<T>(s.x);
        m[1][1] = static_cast<T>(s.y);
        m[2][2] = static_cast<T>(s.z);
        m[3][3] = static_cast<T>(s.w);
        return m;
    }

    template <typename A, typename B>
    static TMat44 rotate(A radian, const TVec3<B>& about) {
        TVec3<T> axis(static_cast<T>(about.x), static_cast<T>(about.y), static_cast<T>(about.z));
        axis = normalize(axis);
        const T c = static_cast<T>(cos(radian));
        const T s = static_cast<T>(sin(radian));
        const T k = T(1) - c;
        const T x = axis.x;
        const T y = axis.y;
        const T z = axis.z;
        TMat44 m;
        m[0] = col_type(k * x * x + c, k * x * y + s * z, k * x * z - s * y, 0);
        m[1] = col_type(k * x * y - s * z, k * y * y + c, k * y * z + s * x, 0);
        m[2] = col_type(k * x * z + s * y, k * y * z - s * x, k * z * z + c, 0);
        return m;
    }

    friend constexpr TMat44 transpose(const TMat44& m) {
        TMat44 t;
        for (size_t c = 0; c < COL_SIZE; c++) {
            for (size_t r = 0; r < ROW_SIZE; r++) {
                t[c][r] = m[r][c];
            }
        }
        return t;
    }

    friend constexpr col_type operator*(const TMat44& m, const col_type& v) {
        col_type r(0);
        for (size_t c = 0; c < COL_SIZE; c++) {
            r += m[c] * v[c];
        }
        return r;
    }

    friend constexpr TMat44 operator*(const TMat44& a, const TMat44& b) {
        TMat44 r;
        for (size_t c = 0; c < COL_SIZE; c++) {
            r[c] = a * b[c];
        }
        return r;
    }

    TMat44& operator*=(const TMat44& b) { return *this = *this * b; }

    friend constexpr bool operator==(const TMat44& a, const TMat44& b) {
        for (size_t c = 0; c < COL_SIZE; c++) {
            if (a[c] != b[c]) {
                return false;
            }
        }
        return true;
    }
    friend constexpr bool operator!=(const TMat44& a, const TMat44& b) { return !(a == b); }

private:
    col_type mValue[COL_SIZE];
};

static_assert(sizeof(TMat44<float>) == 16 * sizeof(float), "mat4 must be 16 packed floats");

}  // namespace details

typedef details::TMat44<double> mat4d;
typedef details::TMat44<float> mat4;
typedef details::TMat44<float> mat4f;

}  // namespace android
