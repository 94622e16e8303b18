// android::mat4 and the vec types: the transforms a renderer builds, in GL's column-major order.

#include <math.h>

#include <gtest/gtest.h>

#include <math/mat4.h>
#include <math/vec2.h>
#include <math/vec3.h>
#include <math/vec4.h>

using android::mat4;
using android::vec2;
using android::vec3;
using android::vec4;

namespace {

void expectNear(const vec4& actual, const vec4& expected) {
    for (size_t i = 0; i < 4; i++) {
        EXPECT_NEAR(actual[i], expected[i], 1e-5f) << "component " << i;
    }
}

TEST(MathTest, MatricesAreColumnMajor) {
    const mat4 t = mat4::translate(vec4(3, 4, 5, 1));
    const float* m = t.asArray();
    EXPECT_EQ(m[12], 3.0f);
    EXPECT_EQ(m[13], 4.0f);
    EXPECT_EQ(m[14], 5.0f);
    EXPECT_EQ(m[15], 1.0f);
    EXPECT_EQ(t[3][1], 4.0f);  // column 3, row 1
    EXPECT_EQ(mat4(), mat4(1.0f));
    EXPECT_EQ(transpose(t)[1][3], 4.0f);

    const float values[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const mat4 fromArray(values);
    EXPECT_EQ(fromArray[1], vec4(5, 6, 7, 8));
    EXPECT_EQ(fromArray.asArray()[6], 7.0f);
}

TEST(MathTest, TransformsMapPointsAsGlDoes) {
    // ortho maps the box onto normalized device coordinates.
    const mat4 projection = mat4::ortho(0, 640, 0, 480, -1, 1);
    expectNear(projection * vec4(0, 0, 0, 1), vec4(-1, -1, 0, 1));
    expectNear(projection * vec4(640, 480, 0, 1), vec4(1, 1, 0, 1));
    expectNear(projection * vec4(320, 120, 0, 1), vec4(0, -0.5f, 0, 1));

    // Counter-clockwise about z; the axis need not be normalized.
    const mat4 quarter = mat4::rotate(M_PI / 2, vec3(0, 0, 2));
    expectNear(quarter * vec4(1, 0, 0, 1), vec4(0, 1, 0, 1));
    expectNear(quarter * vec4(0, 1, 0, 1), vec4(-1, 0, 0, 1));
    expectNear(mat4::rotate(M_PI / 2, vec3(1, 0, 0)) * vec4(0, 1, 0, 1), vec4(0, 0, 1, 1));
    const mat4 any = mat4::rotate(0.7f, vec3(1, 2, 3));
    const mat4 back = any * transpose(any);
    for (size_t c = 0; c < 4; c++) {
        expectNear(back[c], mat4()[c]);
    }

    // Products apply right to left: scale, then rotate, then translate.
    const mat4 model =
        mat4::translate(vec4(10, 20, 0, 1)) * quarter * mat4::scale(vec4(2, 3, 1, 1));
    expectNear(model * vec4(1, 1, 0, 1), vec4(10 - 3, 20 + 2, 0, 1));
    expectNear(
        mat4::scale(vec4(2, 3, 1, 1)) * mat4::translate(vec4(10, 20, 0, 1)) * vec4(0, 0, 0, 1),
        vec4(20, 60, 0, 1));
    mat4 accumulated = mat4::translate(vec4(10, 20, 0, 1));
    accumulated *= quarter;
    accumulated *= mat4::scale(vec4(2, 3, 1, 1));
    EXPECT_EQ(accumulated, model);
}

TEST(MathTest, VectorArithmetic) {
    const vec3 a(1, 2, 3);
    const vec3 b(4, 5, 6);
    EXPECT_EQ(a + b, vec3(5, 7, 9));
    EXPECT_EQ(b - a, vec3(3));
    EXPECT_EQ(a * 2.0f, vec3(2, 4, 6));
    EXPECT_EQ(2.0f * a, a * 2.0f);
    EXPECT_EQ(b / 2.0f, vec3(2, 2.5f, 3));
    EXPECT_EQ(-a, vec3(-1, -2, -3));
    EXPECT_EQ(dot(a, b), 32.0f);
    EXPECT_EQ(cross(vec3(1, 0, 0), vec3(0, 1, 0)), vec3(0, 0, 1));
    EXPECT_EQ(length(vec2(3, 4)), 5.0f);
    EXPECT_NEAR(length(normalize(b)), 1.0f, 1e-6f);

    vec4 v(vec3(1, 2, 3), 4);
    EXPECT_EQ(v.w, 4.0f);
    v += vec4(1);
    EXPECT_EQ(v, vec4(2, 3, 4, 5));
    v[2] = 9;
    EXPECT_EQ(v.z, 9.0f);
    EXPECT_EQ(v.xy(), vec2(2, 3));
    EXPECT_NE(v, vec4(2, 3, 4, 5));
}

}  // namespace
