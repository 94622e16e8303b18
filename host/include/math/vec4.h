/*
 * Host version of Android's <math/vec4.h>: four-component vectors (android::vec4, float4, ...).
 */
#pragma once

#include <math/vec3.h>

namespace android {
namespace details {

template <typename T>
class TVec4 : public TVecOps<TVec4, T, 4> {
public:
    typedef T value_type;
    static constexpr size_t SIZE = 4;

    T x;
    T y;
    T z;
    T w;

    constexpr TVec4() : x(0), y(0), z(0), w(0) {}
    constexpr TVec4(T v) : x(v), y(v), z(v), w(v) {}  // NOLINT: implicit, as on Android
    constexpr TVec4(T x_, T y_, T z_, T w_) : x(x_), y(y_), z(z_), w(w_) {}
    constexpr TVec4(const TVec3<T>& v, T w_) : x(v.x), y(v.y), z(v.z), w(w_) {}
    constexpr TVec4(const TVec2<T>& v, T z_, T w_) : x(v.x), y(v.y), z(z_), w(w_) {}
    template <typename A>
    explicit constexpr TVec4(const TVec4<A>& v)
        : x(static_cast<T>(v.x)),
          y(static_cast<T>(v.y)),
          z(static_cast<T>(v.z)),
          w(static_cast<T>(v.w)) {}

    constexpr size_t size() const { return SIZE; }
    constexpr T& operator[](size_t i) { return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w)); }
    constexpr const T& operator[](size_t i) const {
        return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w));
    }

    constexpr TVec2<T> xy() const { return TVec2<T>(x, y); }
    constexpr TVec3<T> xyz() const { return TVec3<T>(x, y, z); }
};

}  // namespace details

typedef details::TVec4<double> double4;
typedef details::TVec4<float> float4;
typedef details::TVec4<float> vec4;
typedef details::TVec4<int32_t> int4;
typedef details::TVec4<uint32_t> uint4;

}  // namespace android
