// android::mat4 as a renderer uses it: GL's column-major layout, and transforms that map points
// as GL does.

#include <math.h>

#include <gtest/gtest.h>

#include <math/mat4.h>

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

}  // namespace
