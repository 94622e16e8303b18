// android::mat4 as a renderer uses it: GL's column-major layout, and transforms that map points
// as GL does. android::Rect and FloatRect: Android's semantics, and no members Android lacks.

#include <math.h>
#include <stdint.h>

#include <type_traits>

#include <gtest/gtest.h>

#include <math/mat4.h>
#include <ui/FloatRect.h>
#include <ui/Rect.h>

using android::mat4;
using android::vec3;
using android::vec4;

namespace {

void expectNear(const vec4& actual, const vec4& expected) {
    for (size_t i = 0; i < 4; i++) {
        EXPECT_NEAR(actual[i], expected[i], 1e-5f) << "component " << i;
    }
}

TEST(MathTest, TransformsMapPointsAsGlDoesInColumnMajorOrder) {
    // What glUniformMatrix4fv(..., GL_FALSE, asArray()) receives: the translation in 12..14.
    const mat4 move = mat4::translate(vec4(10, 20, 0, 1));
    EXPECT_EQ(move.asArray()[12], 10.0f);
    EXPECT_EQ(move.asArray()[13], 20.0f);
    EXPECT_EQ(move[3][1], 20.0f);  // column 3, row 1

    const mat4 projection = mat4::ortho(0, 640, 0, 480, -1, 1);
    expectNear(projection * vec4(0, 0, 0, 1), vec4(-1, -1, 0, 1));
    expectNear(projection * vec4(320, 120, 0, 1), vec4(0, -0.5f, 0, 1));

    // Counter-clockwise about z; the axis need not be normalized.
    const mat4 quarter = mat4::rotate(M_PI / 2, vec3(0, 0, 2));
    expectNear(quarter * vec4(1, 0, 0, 1), vec4(0, 1, 0, 1));

    // Products apply right to left: scale, then rotate, then translate.
    const mat4 model = move * quarter * mat4::scale(vec4(2, 3, 1, 1));
    expectNear(model * vec4(1, 1, 0, 1), vec4(10 - 3, 20 + 2, 0, 1));
}

// What does not compile against Android's headers must not compile here either.
template <typename T, typename = void>
struct HasNotEqual : std::false_type {};
template <typename T>
struct HasNotEqual<T, std::void_t<decltype(std::declval<T>() != std::declval<T>())>>
    : std::true_type {};
static_assert(!std::is_constructible_v<android::Rect, ARect>, "Android's Rect has no ARect ctor");
static_assert(!std::is_constructible_v<android::Rect, uint32_t, int32_t>,
              "Android's Rect(w, h) takes one type for both");
static_assert(!HasNotEqual<android::FloatRect>::value, "Android's FloatRect has no operator!=");

TEST(RectTest, SizesClampToInt32AndEdgesFollowAndroid) {
    // A width beyond INT32_MAX clamps instead of wrapping to a negative edge.
    const android::Rect huge(uint32_t{0x80000005u}, uint32_t{7});
    EXPECT_EQ(huge.right, INT32_MAX);
    EXPECT_EQ(huge.bottom, 7);
    EXPECT_FALSE(huge.isEmpty());

    const android::Rect sized(int32_t{640}, int32_t{480});
    EXPECT_EQ(sized, android::Rect(0, 0, 640, 480));
    EXPECT_EQ(sized.getWidth(), 640);

    // The default rectangle is INVALID_RECT (0, 0, -1, -1): invalid and empty.
    const android::Rect none;
    EXPECT_EQ(none, android::Rect::INVALID_RECT);
    EXPECT_FALSE(none.isValid());
    EXPECT_TRUE(none.isEmpty());

    // Disjoint FloatRects intersect in the empty rectangle at the origin.
    const android::FloatRect a(0, 0, 4, 4);
    const android::FloatRect b(5, 5, 8, 8);
    EXPECT_TRUE(a.intersect(b) == android::FloatRect(0, 0, 0, 0));
    EXPECT_TRUE(a.intersect(android::FloatRect(2, 1, 9, 3)) == android::FloatRect(2, 1, 4, 3));
    EXPECT_TRUE(android::FloatRect(1, 1, 0, 0).isEmpty());
    EXPECT_FALSE(android::FloatRect(1, 1, 0, 0).isValid());
}

}  // namespace
