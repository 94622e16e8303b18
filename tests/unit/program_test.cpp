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
#include <system/graphics.h>

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

// A current ES 3 context for the test.
#define REQUIRE_CONTEXT()                                                            \
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason(); \
    ::zel::test::EglContext context;                                                 \
    ASSERT_TRUE(context.ok()) << context.failure()

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
                 {0x38, "projection_texcoords", "rgba_to_yuv_texcoords"},
                 {0x1b1, "dual_alpha_warp", "dual_alpha_warp"}};
    for (const auto& c : cases) {
        EXPECT_EQ(shaderText(c.key, true), golden(std::string(c.vertex) + ".vert")) << c.key;
        EXPECT_EQ(shaderText(c.key, false), golden(std::string(c.fragment) + ".frag")) << c.key;
    }
    // Both dual-source bits write the same text.
    EXPECT_EQ(shaderText(0x221, false), shaderText(0x222, false));
    EXPECT_EQ(shaderText(0x221, true), shaderText(0x223, true));
}

// Every key a description can reach compiles and links, but for RGBA to YUV with dual source and
// alpha: there the blend names src1, alpha and negalpha, which this conversion never samples.
TEST(ProgramLink, EveryReachableKeyLinksButRgbaToYuvWithDualSourceAndAlpha) {
    REQUIRE_CONTEXT();
    // Per type: dual x projection x texture coordinates x warp (3) x alpha (3); RGBA to YUV has
    // six colour matrices besides. The YUV types are checked only where they can compile.
    const std::string extensions =
        std::string(" ") + reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS)) + " ";
    for (int32_t fmtType : {0, 1, 2}) {
        if (fmtType != 0 && extensions.find(" GL_EXT_YUV_target ") == std::string::npos) {
            GTEST_SKIP() << "the host GPU layer lacks GL_EXT_YUV_target: YUV shaders cannot build";
        }
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
        EXPECT_EQ(byKey.size(), fmtType == 2 ? 6 * 72u : 72u);
        ChooseProgram chooser;
        for (auto& [key, desc] : byKey) {
            const bool alpha = (key & Key::kAlphaMask) != 0;
            const bool mustFail = fmtType == 2 && (key & Key::kDualSourceMask) != 0 && alpha;
            ::zel::test::LogCapture logs;
            std::shared_ptr<gl::Program> program = chooser.getProgram(desc);
            ASSERT_NE(program, nullptr);
            EXPECT_EQ(program->isLinked(), !mustFail) << std::hex << key << logs.dump();
            EXPECT_EQ(program->getProgram() != 0, !mustFail) << std::hex << key;
            EXPECT_EQ(program->getFailureLog().empty(), !mustFail) << std::hex << key;
        }
    }
    // A colour-matrix index past the table leaves the conversion out: no such shader compiles.
    const uint32_t pastTable = 0x8 | (6u << 10);
    EXPECT_FALSE(
        gl::Program(shaderText(pastTable, true), shaderText(pastTable, false), {}).isLinked());
}

TEST(GlProgram, FailedCompileLogsTheSourceThenTheLinkAndLeavesAnEmptyShell) {
    REQUIRE_CONTEXT();
    ::zel::test::LogCapture logs;
    const std::string broken =
        "#version 310 es\nprecision highp float;\nout vec4 fragColor;\n"
        "void main(void) {\n    fragColor = undeclaredThing;\n}\n";
    const uint64_t programsBefore = ::zel::host::gpuCounters().programsAlive;
    gl::Program program(shaderText(0, true), broken, {});
    EXPECT_FALSE(program.isLinked());
    EXPECT_EQ(program.getProgram(), 0u);
    // The program object that failed to link is gone already.
    EXPECT_EQ(::zel::host::gpuCounters().programsAlive, programsBefore);
    // The draw reports what the compiler said.
    EXPECT_NE(program.getFailureLog().find("undeclared"), std::string::npos)
        << program.getFailureLog();
    // The whole source, then the compiler's log naming the culprit; then the link.
    const auto compile = logs.linesContaining("Error while compiling shader: \n" + broken + "\n");
    ASSERT_EQ(compile.size(), 1u) << logs.dump();
    EXPECT_NE(compile[0].message.find("undeclared", compile[0].message.find("\n}\n")),
              std::string::npos);
    const auto link = logs.linesContaining("Error while linking shaders:");
    ASSERT_EQ(link.size(), 1u) << logs.dump();
    EXPECT_EQ(link[0].message.rfind("Program <", 0), 0u) << link[0].message;
    EXPECT_EQ(link[0].priority, ANDROID_LOG_ERROR);
    // The linker's own log is logged too, and follows the compiler's in the failure log.
    const std::string& failure = program.getFailureLog();
    const size_t compilerEnd = failure.find('\n', failure.find("undeclared"));
    ASSERT_NE(compilerEnd, std::string::npos) << failure;
    std::string linker = failure.substr(compilerEnd + 1);
    while (!linker.empty() && linker.back() == '\n') {
        linker.pop_back();
    }
    EXPECT_FALSE(linker.empty()) << failure;
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, linker), 1u) << logs.dump();
}

TEST(ProgramCache, SameTextCompilesOnceAndCachingOffEmptiesTheCache) {
    REQUIRE_CONTEXT();
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

    // Caching off: a new program each time, and the cache lets go of its own.
    Description uncached;
    std::shared_ptr<gl::Program> a = chooser.getProgram(uncached);
    EXPECT_NE(chooser.getProgram(uncached), a);
    EXPECT_EQ(::zel::host::gpuCounters().programsLinked, 3u);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_TRUE(first->isLinked());
    EXPECT_NE(chooser.getProgram(desc), first);
    EXPECT_EQ(::zel::host::gpuCounters().programsLinked, 4u);
}

// Shader names alive in the current context; names are small integers handed out in order.
int shadersAlive() {
    int alive = 0;
    for (GLuint name = 1; name < 512; ++name) {
        alive += glIsShader(name) == GL_TRUE ? 1 : 0;
    }
    return alive;
}

TEST(ProgramCache, RgbaToYuvAsksTheDriverOnceAndKeepsNoShaderAlive) {
    REQUIRE_CONTEXT();
    auto chooser = std::make_unique<ChooseProgram>();
    Description desc;
    desc.mCacheProgram = true;
    desc.setFmtType(HAL_PIXEL_FORMAT_RGBA_8888, HAL_PIXEL_FORMAT_YCbCr_420_888);
    ASSERT_EQ(desc.mFmtType, Description::kFmtRgbaToYuv);
    ::zel::host::resetGpuCounters();
    // The first RGBA-into-YUV program also compiles the driver's YUV_target probe; the answer is
    // kept, so a second standard builds only its own two shaders and a cached one builds none.
    ASSERT_TRUE(chooser->getProgram(desc)->isLinked());
    EXPECT_EQ(::zel::host::gpuCounters().shadersCompiled, 3u);
    ASSERT_NE(chooser->getProgram(desc), nullptr);
    EXPECT_EQ(::zel::host::gpuCounters().shadersCompiled, 3u);
    Description other = desc;
    other.mStandard = Description::kStandardBt2020;
    ASSERT_TRUE(chooser->getProgram(other)->isLinked());
    EXPECT_EQ(::zel::host::gpuCounters().shadersCompiled, 5u);
    // Neither the probe nor the programs' own shaders outlive their use: a renderer's context
    // lives as long as the renderer and would otherwise gather them. Shaders stay attached to
    // their programs until those go with the cache, and the program last used until it is no
    // longer in use.
    chooser.reset();
    glUseProgram(0);
    EXPECT_EQ(shadersAlive(), 0);
    for (GLuint name = 1; name < 64; ++name) {
        EXPECT_FALSE(glIsProgram(name)) << name;
    }
}

}  // namespace
}  // namespace kav::zel
