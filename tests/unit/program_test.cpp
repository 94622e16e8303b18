// Shader programs: the key of a description, the generated text (pinned byte for byte by golden
// files), compiling every key a description can reach on the host GPU, the GL program object and
// the program cache.
#include <stdlib.h>

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <GLES3/gl31.h>
#include <android/log.h>

#include <zel/Debug.h>
#include <zel/host/Gpu.h>

#include "ChooseProgram.h"
#include "EglContext.h"
#include "LogCapture.h"

namespace kav::zel {
namespace {

using Key = ChooseProgram::Key;

std::string shaderText(uint32_t key, bool vertex) {
    Formatter out;
    if (vertex) {
        ChooseProgram::generateVertexShader(out, Key{key});
    } else {
        ChooseProgram::generateFragmentShader(out, Key{key});
    }
    return out.getText().c_str();
}

std::string golden(const std::string& name) {
    const char* root = getenv("ZEL_TEST_SOURCE_DIR");
    std::ifstream file(std::string(root != nullptr ? root : ".") + "/tests/unit/golden/" + name);
    EXPECT_TRUE(file.good()) << "missing golden file " << name;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool hasYuvTarget() {
    std::istringstream words(reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS)));
    for (std::string word; words >> word;) {
        if (word == "GL_EXT_YUV_target") {
            return true;
        }
    }
    return false;
}

// A current ES 3 context for the test, optionally skipping when YUV targets cannot compile.
#define REQUIRE_CONTEXT(yuv)                                                                    \
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();            \
    ::zel::test::EglContext context;                                                            \
    ASSERT_TRUE(context.ok()) << context.failure();                                             \
    if ((yuv) && !hasYuvTarget()) {                                                             \
        GTEST_SKIP() << "the host GPU layer lacks GL_EXT_YUV_target: YUV shaders cannot build"; \
    }

TEST(ProgramKey, FollowsTheDescription) {
    auto key = [](void (*fill)(Description&)) {
        Description desc;
        fill(desc);
        return ChooseProgram::computeKey(desc).mKey;
    };
    EXPECT_EQ(key([](Description&) {}), 0x0u);
    EXPECT_EQ(
        key([](Description& d) { d.mDualSource = d.mHasProjection = d.mHasTexCoords = true; }),
        0x31u);
    EXPECT_EQ(key([](Description& d) { d.mHasWarp = d.mWarpIs2D = d.mHasAlpha = true; }), 0x240u);
    // Kinds without the texture, and fields the key does not read, change nothing.
    EXPECT_EQ(key([](Description& d) {
                  d.mWarpIs2D = d.mAlphaIs2D = d.mUseVertexBuffer = d.mHasIndices = true;
                  d.mAppId = 3;
              }),
              0x0u);
    // Any type but 0 and 1 is RGBA to YUV; the standard only counts there.
    EXPECT_EQ(key([](Description& d) { d.mFmtType = 7; }), 0x8u);
    EXPECT_EQ(key([](Description& d) { d.mFmtType = 1, d.mStandard = 3; }), 0x4u);

    ::zel::test::LogCapture logs;
    ZEL_debug_level = 2;
    const uint32_t byStandard[4][2] = {{0x8, 0x8}, {0x808, 0xc08}, {0x8, 0x408}, {0x1008, 0x1408}};
    for (int32_t standard = 0; standard < 4; ++standard) {
        for (int full = 0; full < 2; ++full) {
            Description desc;
            desc.mFmtType = 2;
            desc.mStandard = standard;
            desc.mFullRange = full != 0;
            EXPECT_EQ(ChooseProgram::computeKey(desc).mKey, byStandard[standard][full])
                << standard << "/" << full;
        }
    }
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "mKey = c08"), 1u) << logs.dump();
}

TEST(ShaderText, MatchesTheGoldenFiles) {
    const struct {
        uint32_t key;
        const char* vertex;
        const char* fragment;
    } cases[] = {{0x0, "position_only", "rgba_plain"},
                 {0x4, "position_only", "yuv_to_yuv"},
                 {0xc08, "position_only", "rgba_to_yuv_709_full"},
                 {0x30, "projection_texcoords", "projection_texcoords"},
                 {0x1b1, "dual_alpha_warp", "dual_alpha_warp"}};
    for (const auto& c : cases) {
        EXPECT_EQ(shaderText(c.key, true), golden(std::string(c.vertex) + ".vert")) << c.key;
        EXPECT_EQ(shaderText(c.key, false), golden(std::string(c.fragment) + ".frag")) << c.key;
    }
    // Both dual-source bits write the same text.
    EXPECT_EQ(shaderText(0x221, false), shaderText(0x222, false));
    EXPECT_EQ(shaderText(0x221, true), shaderText(0x223, true));
}

TEST(ShaderText, RgbaToYuvConvertsWithTheIndexedConstant) {
    const char* constants[] = {"itu_601",  "itu_601_full_range", "itu_709", "itu_709_full_range",
                               "itu_2020", "itu_2020_full_range"};
    for (uint32_t index = 0; index < 6; ++index) {
        const std::string fs = shaderText(0x9 | (index << 10), false);
        const std::string line =
            std::string("\n    vec4 src0 = vec4(rgb_2_yuv(texture(uTexture0, ") +
            "vTexCoords).rgb, " + constants[index] + "), 1.0);\n";
        EXPECT_NE(fs.find(line + "    fragColor = src0;\n}\n"), std::string::npos) << fs;
    }
    // Past the table no sampling line is written at all.
    EXPECT_EQ(shaderText(0x8 | (6u << 10), false).find("src0 ="), std::string::npos);
}

// Compiles and links every key of one conversion type that a description can reach.
void linkReachableKeys(int32_t fmtType, size_t keyCount, bool (*mustFail)(uint32_t key)) {
    std::map<uint32_t, Description> byKey;
    for (int bits = 0; bits < 4 * 4 * 2 * 2 * 9; ++bits) {
        Description desc;
        desc.mFmtType = fmtType;
        desc.mStandard = bits % 4;
        desc.mFullRange = (bits / 4) % 2 != 0;
        desc.mDualSource = (bits / 8) % 2 != 0;
        desc.mHasProjection = (bits / 16) % 2 != 0;
        desc.mHasTexCoords = (bits / 32) % 2 != 0;
        desc.mHasWarp = (bits / 64) % 3 != 0;
        desc.mWarpIs2D = (bits / 64) % 3 == 1;
        desc.mHasAlpha = (bits / 192) % 3 != 0;
        desc.mAlphaIs2D = (bits / 192) % 3 == 1;
        desc.mCacheProgram = true;
        byKey.emplace(ChooseProgram::computeKey(desc).mKey, desc);
    }
    EXPECT_EQ(byKey.size(), keyCount);
    ChooseProgram chooser;
    for (auto& [key, desc] : byKey) {
        ::zel::test::LogCapture logs;
        std::shared_ptr<gl::Program> program = chooser.getProgram(desc);
        ASSERT_NE(program, nullptr);
        EXPECT_EQ(program->isLinked(), !mustFail(key)) << std::hex << key << logs.dump();
        EXPECT_EQ(program->getProgram() != 0, !mustFail(key)) << std::hex << key;
    }
}

TEST(ProgramLink, EveryRgbaDestinationKeyLinks) {
    REQUIRE_CONTEXT(false);
    // dual x projection x texture coordinates x warp (3) x alpha (3)
    linkReachableKeys(0, 72, [](uint32_t) { return false; });
}

TEST(ProgramLink, EveryYuvToYuvKeyLinks) {
    REQUIRE_CONTEXT(true);
    linkReachableKeys(1, 72, [](uint32_t) { return false; });
}

TEST(ProgramLink, EveryRgbaToYuvKeyLinksButTheUncompilableShapes) {
    REQUIRE_CONTEXT(true);
    // Six colour matrices. As generated, two shapes cannot compile: with texture coordinates and
    // no alpha texture the conversion samples at an undeclared vTexCoords; with dual source and
    // alpha the blend names src1, alpha and negalpha, which this conversion never samples.
    linkReachableKeys(2, 6 * 72, [](uint32_t key) {
        const bool alpha = (key & Key::kAlphaMask) != 0;
        return ((key & Key::kTexCoords) != 0 && !alpha) || ((key & Key::kDualSourceMask) && alpha);
    });
}

TEST(ProgramLink, ColourMatrixIndexAboveFiveFailsToCompile) {
    REQUIRE_CONTEXT(true);
    const uint32_t key = 0x8 | (6u << 10);
    EXPECT_TRUE(gl::Program(shaderText(0x1408, true), shaderText(0x1408, false), {}).isLinked());
    ::zel::test::LogCapture logs;
    gl::Program program(shaderText(key, true), shaderText(key, false), {});
    EXPECT_FALSE(program.isLinked());
    EXPECT_EQ(program.getProgram(), 0u);
    EXPECT_EQ(
        logs.count(ANDROID_LOG_ERROR, "Error while compiling shader: \n" + shaderText(key, false)),
        1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "Error while linking shaders:"), 1u) << logs.dump();
}

TEST(GlProgram, FailedCompileLogsTheSourceThenTheLinkAndLeavesAnEmptyShell) {
    REQUIRE_CONTEXT(false);
    ::zel::test::LogCapture logs;
    const std::string broken =
        "#version 310 es\nprecision highp float;\nout vec4 fragColor;\n"
        "void main(void) {\n    fragColor = undeclaredThing;\n}\n";
    gl::Program program(shaderText(0, true), broken, {});
    EXPECT_FALSE(program.isLinked());
    EXPECT_EQ(program.getProgram(), 0u);
    // The whole source, then the compiler's log naming the culprit; then the link.
    const auto compile = logs.linesContaining("Error while compiling shader: \n" + broken + "\n");
    ASSERT_EQ(compile.size(), 1u) << logs.dump();
    EXPECT_NE(compile[0].message.find("undeclared", compile[0].message.find("\n}\n")),
              std::string::npos);
    const auto link = logs.linesContaining("Error while linking shaders:");
    ASSERT_EQ(link.size(), 1u) << logs.dump();
    EXPECT_EQ(link[0].message.rfind("Program <", 0), 0u) << link[0].message;
}

TEST(GlProgram, ProjectionIsIdentityAfterLinkAndUploadedOnlyWhenSet) {
    REQUIRE_CONTEXT(false);
    ::zel::test::LogCapture logs;
    Description desc;
    gl::Program program(shaderText(Key::kProjection, true), shaderText(Key::kProjection, false),
                        desc);
    ASSERT_TRUE(program.isLinked()) << logs.dump();
    ASSERT_EQ(program.getProjectionLoc(), program.getUniform("uProjection"));
    auto uploaded = [&] {
        android::mat4 m(0.0f);
        glGetUniformfv(program.getProgram(), program.getProjectionLoc(), &m[0][0]);
        return m;
    };
    EXPECT_EQ(uploaded(), android::mat4());

    desc.mProjectionMatrix = android::mat4(2.0f);
    program.setUniforms(desc);
    EXPECT_EQ(uploaded(), android::mat4());
    desc.mHasProjection = true;
    program.setUniforms(desc);
    EXPECT_EQ(uploaded(), android::mat4(2.0f));

    // Without the uniform the location is -1, and uploads are ignored without an error.
    gl::Program plain(shaderText(0, true), shaderText(0, false), desc);
    EXPECT_EQ(plain.getProjectionLoc(), -1);
    plain.setUniforms(desc);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
}

TEST(ProgramCache, SameTextCompilesOnceAndCachingOffEmptiesTheCache) {
    REQUIRE_CONTEXT(false);
    ::zel::test::LogCapture logs;
    ZEL_debug_level = 2;
    ChooseProgram chooser;
    Description desc;
    desc.mCacheProgram = true;
    desc.mHasProjection = true;
    ::zel::host::resetGpuCounters();
    std::shared_ptr<gl::Program> first = chooser.getProgram(desc);
    EXPECT_EQ(chooser.getProgram(desc), first);
    // Fields outside the key give the same text, so the same program.
    Description same = desc;
    same.mStandard = 3;
    same.mHasIndices = true;
    same.mAppId = 9;
    EXPECT_EQ(chooser.getProgram(same), first);
    EXPECT_EQ(::zel::host::gpuCounters().shadersCompiled, 2u);
    EXPECT_EQ(::zel::host::gpuCounters().programsLinked, 1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_INFO, "create program"), 1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "cache program"), 2u) << logs.dump();
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "desc.fmtType = 0, appId = 9"), 1u);

    // Caching off: a new program each time, and the cache lets go of its own.
    Description uncached;
    std::shared_ptr<gl::Program> a = chooser.getProgram(uncached);
    EXPECT_NE(chooser.getProgram(uncached), a);
    EXPECT_EQ(::zel::host::gpuCounters().programsLinked, 3u);
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "no cache program"), 2u);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_TRUE(first->isLinked());
    EXPECT_NE(chooser.getProgram(desc), first);
    EXPECT_EQ(::zel::host::gpuCounters().programsLinked, 4u);
}

}  // namespace
}  // namespace kav::zel
