/*
 * Host version of Android's <ui/FloatRect.h>: a rectangle with float edges (right and bottom
 * exclusive, as android::Rect).
 */
#pragma once

#include <algorithm>

namespace android {

class FloatRect {
public:
    FloatRect() = default;
    constexpr FloatRect(float l, float t, float r, float b)
        : left(l), top(t), right(r), bottom(b) {}

    float getWidth() const { return right - left; }
    float getHeight() const { return bottom - top; }

    FloatRect intersect(const FloatRect& other) const {
        FloatRect r(std::max(left, other.left), std::max(top, other.top),
                    std::min(right, other.right), std::min(bottom, other.bottom));
        // An empty intersection is reported as the empty rectangle at the origin.
        if (r.right < r.left || r.bottom < r.top) {
            return FloatRect();
        }
        return r;
    }

    constexpr bool isEmpty() const { return !(left < right && top < bottom); }
    bool isValid() const { return getWidth() >= 0 && getHeight() >= 0; }

    float left = 0.0f;
    float top = 0.0f;
    float right = 0.0f;
    float bottom = 0.0f;
};

inline bool operator==(const FloatRect& a, const FloatRect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

// No operator!=: Android's FloatRect has none.

}  // namespace android
