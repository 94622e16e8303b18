/*
 * Host version of Android's <math/vec3.h>: three-component vectors (android::vec3, float3, ...),
 * with cross().
 */
#pragma once

#include <math/vec2.h>

namespace android {
namespace details {

template <typename T>
class TVec3 : public TVecOps<TVec3, T, 3> {
public:
    typedef T value_type;
    static constexpr size_t SIZE = 3;

    T x;
    T y;
    T z;

    constexpr TVec3() : x(0), y(0), z(0) {}
    constexpr TVec3(T v) : x(v), y(v), z(v) {}  // NOLINT: implicit, as on Android
    constexpr TVec3(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}
    constexpr TVec3(const TVec2<T>& v, T z_) : x(v.x), y(v.y), z(z_) {}
    template <typename A>
    explicit constexpr TVec3(const TVec3<A>& v)
        : x(static_cast<T>(v.x)), y(static_cast<T>(v.y)), z(static_cast<T>(v.z)) {}

    constexpr size_t size() const { return SIZE; }
    constexpr T& operator[](size_t i) { return i == 0 ? x : (i == 1 ? y : z); }
    constexpr const T& operator[](size_t i) const { return i == 0 ? x : (i == 1 ? y : z); }

    constexpr TVec2<T> xy() const { return TVec2<T>(x, y); }

    friend constexpr TVec3 cross(const TVec3& u, const TVec3& v) {
        return TVec3(u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x);
    }
};

}  // namespace details

typedef details::TVec3<double> double3;
typedef details::TVec3<float> float3;
typedef details::TVec3<float> vec3;
typedef details::TVec3<int32_t> int3;
typedef details::TVec3<uint32_t> uint3;

}  // namespace android
