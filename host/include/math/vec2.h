/*
 * Host version of Android's <math/vec2.h>: small fixed-size vectors (android::vec2, float2, ...).
 * This header also holds the arithmetic shared by vec2, vec3 and vec4: component-wise + - * /,
 * scalar * and /, comparison, dot, length and normalize.
 */
#pragma once

#include <math.h>
#include <stddef.h>
#include <stdint.h>

namespace android {
namespace details {

// Arithmetic for the vector class V<T> of N components; V provides operator[].
template <template <typename> class V, typename T, size_t N>
class TVecOps {
public:
    friend constexpr V<T> operator+(V<T> a, const V<T>& b) {
        for (size_t i = 0; i < N; i++) {
            a[i] += b[i];
        }
        return a;
    }
    friend constexpr V<T> operator-(V<T> a, const V<T>& b) {
        for (size_t i = 0; i < N; i++) {
            a[i] -= b[i];
        }
        return a;
    }
    friend constexpr V<T> operator*(V<T> a, const V<T>& b) {
        for (size_t i = 0; i < N; i++) {
            a[i] *= b[i];
        }
        return a;
    }
    friend constexpr V<T> operator/(V<T> a, const V<T>& b) {
        for (size_t i = 0; i < N; i++) {
            a[i] /= b[i];
        }
        return a;
    }
    friend constexpr V<T> operator*(V<T> a, T s) {
        for (size_t i = 0; i < N; i++) {
            a[i] *= s;
        }
        return a;
    }
    friend constexpr V<T> operator*(T s, V<T> a) { return a * s; }
    friend constexpr V<T> operator/(V<T> a, T s) {
        for (size_t i = 0; i < N; i++) {
            a[i] /= s;
        }
        return a;
    }
    friend constexpr V<T> operator-(V<T> a) {
        for (size_t i = 0; i < N; i++) {
            a[i] = -a[i];
        }
        return a;
    }
    friend constexpr V<T>& operator+=(V<T>& a, const V<T>& b) { return a = a + b; }
    friend constexpr V<T>& operator-=(V<T>& a, const V<T>& b) { return a = a - b; }
    friend constexpr V<T>& operator*=(V<T>& a, T s) { return a = a * s; }
    friend constexpr V<T>& operator/=(V<T>& a, T s) { return a = a / s; }

    friend constexpr bool operator==(const V<T>& a, const V<T>& b) {
        for (size_t i = 0; i < N; i++) {
            if (a[i] != b[i]) {
                return false;
            }
        }
        return true;
    }
    friend constexpr bool operator!=(const V<T>& a, const V<T>& b) { return !(a == b); }

    friend constexpr T dot(const V<T>& a, const V<T>& b) {
        T r(0);
        for (size_t i = 0; i < N; i++) {
            r += a[i] * b[i];
        }
        return r;
    }
    friend T length(const V<T>& a) { return static_cast<T>(sqrt(dot(a, a))); }
    friend V<T> normalize(const V<T>& a) { return a / length(a); }
};

template <typename T>
class TVec2 : public TVecOps<TVec2, T, 2> {
public:
    typedef T value_type;
    static constexpr size_t SIZE = 2;

    T x;
    T y;

    constexpr TVec2() : x(0), y(0) {}
    constexpr TVec2(T v) : x(v), y(v) {}  // NOLINT: implicit, as on Android
    constexpr TVec2(T x_, T y_) : x(x_), y(y_) {}
    template <typename A>
    explicit constexpr TVec2(const TVec2<A>& v) : x(static_cast<T>(v.x)), y(static_cast<T>(v.y)) {}

    constexpr size_t size() const { return SIZE; }
    constexpr T& operator[](size_t i) { return i == 0 ? x : y; }
    constexpr const T& operator[](size_t i) const { return i == 0 ? x : y; }
};

}  // namespace details

typedef details::TVec2<double> double2;
typedef details::TVec2<float> float2;
typedef details::TVec2<float> vec2;
typedef details::TVec2<int32_t> int2;
typedef details::TVec2<uint32_t> uint2;

}  // namespace android
