/*
 * Host version of Android's <ui/Rect.h>: the same class and the members the platform offers, with
 * the same semantics (right and bottom are exclusive; INVALID_RECT is (0, 0, -1, -1)). Members the
 * platform class lacks are left out, so code that builds here builds against Android's header.
 */
#pragma once

#include <stdint.h>

#include <algorithm>

#include <android/rect.h>

namespace android {

class Rect : public ARect {
public:
    static const Rect INVALID_RECT;
    static const Rect EMPTY_RECT;

    typedef ARect::value_type value_type;

    Rect() : Rect(INVALID_RECT) {}
    // Width and height of one type (both int32_t, or both uint32_t, ...), clamped to INT32_MAX:
    // mixing types does not compile on Android either.
    template <typename T>
    Rect(T w, T h) : Rect(0, 0, clampedEdge(w), clampedEdge(h)) {}
    Rect(int32_t l, int32_t t, int32_t r, int32_t b) {
        left = l;
        top = t;
        right = r;
        bottom = b;
    }

    void makeInvalid() { *this = INVALID_RECT; }
    void clear() { left = top = right = bottom = 0; }

    bool isValid() const { return (getWidth() >= 0) && (getHeight() >= 0); }
    bool isEmpty() const { return (getWidth() <= 0) || (getHeight() <= 0); }

    int32_t width() const { return getWidth(); }
    int32_t height() const { return getHeight(); }
    int32_t getWidth() const { return right - left; }
    int32_t getHeight() const { return bottom - top; }

    Rect getBounds() const { return Rect(right - left, bottom - top); }

    void set(const Rect& r) { *this = r; }

    bool operator==(const Rect& r) const {
        return left == r.left && top == r.top && right == r.right && bottom == r.bottom;
    }
    bool operator!=(const Rect& r) const { return !operator==(r); }

    Rect& offsetTo(int32_t x, int32_t y) {
        right -= left - x;
        bottom -= top - y;
        left = x;
        top = y;
        return *this;
    }
    Rect& offsetBy(int32_t x, int32_t y) {
        left += x;
        top += y;
        right += x;
        bottom += y;
        return *this;
    }

    // Returns true and writes the overlap when the two rectangles intersect.
    bool intersect(const Rect& with, Rect* result) const {
        result->left = std::max(left, with.left);
        result->top = std::max(top, with.top);
        result->right = std::min(right, with.right);
        result->bottom = std::min(bottom, with.bottom);
        return !result->isEmpty();
    }

private:
    template <typename T>
    static int32_t clampedEdge(T v) {
        return v > static_cast<T>(INT32_MAX) ? INT32_MAX : static_cast<int32_t>(v);
    }
};

}  // namespace android
