// Bring-up of the GLES renderer on the drivers of different phones: each host driver profile
// drives one branch of the config fallback chain or of context creation, and the renderer must
// come up (or refuse, or abort) the way a real device would see it.
#include <gtest/gtest.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <zel/Renderer.h>
#include <zel/host/Gpu.h>

#include "Extensions.h"
#include "ExtensionsTestAccess.h"
#include "GLESRenderer.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

using ::zel::test::LogCapture;

std::shared_ptr<GLESRenderer> createWithDriver(
    const char* profile, bool protectedContext = false,
    Renderer::ContextPriority priority = Renderer::HIGH) {
    EXPECT_TRUE(::zel::host::setDriverProfile(profile)) << profile;
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    args.enableProtectedContext = protectedContext;
    args.contextPriority = priority;
    return GLESRenderer::create(args);
}

EGLint contextAttrib(const GLESRenderer& renderer, EGLint attribute) {
    EGLint value = -1;
    EXPECT_TRUE(eglQueryContext(renderer.getDisplay(), renderer.getContext(), attribute, &value));
    return value;
}

class RendererBringUp : public ::testing::Test {
protected:
    void SetUp() override {
        if (!::zel::host::gpuAvailable()) {
            GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
        }
        // The registry keeps every flag it once saw set; each case starts as a fresh process.
        gl::ExtensionsTestAccess::reset();
    }
    void TearDown() override { ::zel::host::resetDriverProfile(); }
    LogCapture mLogs;
};

TEST_F(RendererBringUp, EachDriverComesUpOnItsBranchOfTheFallbackChain) {
    const struct {
        const char* profile;
        EGLint clientVersion;
        bool configSearch;  // a config is chosen (and the EGL information dumped)
        bool stubSurface;   // a 1x1 pbuffer is made current
        size_t errors;      // the refused ES3 context is logged
    } cases[] = {
        // Least capable first: the extension registry keeps every flag it once saw set.
        {"no-config-context,no-surfaceless", 3, true, true, 0},
        // The ES2 config gives a version 2 context; Mesa still answers with a 3.x GL_VERSION,
        // which passes the version check.
        {"no-config-context,configs-es2", 2, true, false, 0},
        {"fail-es3-context", 2, false, false, 1},
        {"", 3, false, false, 0},
        {"gl-version=OpenGL ES 3.2 vendor build 1234", 3, false, false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.profile);
        mLogs.clear();
        auto renderer = createWithDriver(c.profile);
        ASSERT_NE(renderer, nullptr) << mLogs.dump();
        EXPECT_EQ(contextAttrib(*renderer, EGL_CONTEXT_CLIENT_VERSION), c.clientVersion);
        EXPECT_EQ(mLogs.count(ANDROID_LOG_INFO, "EGL information:"), c.configSearch ? 1u : 0u);
        EXPECT_EQ(renderer->getStubSurface() != EGL_NO_SURFACE, c.stubSurface);
        if (c.stubSurface) {
            EGLint width = 0;
            EXPECT_TRUE(eglQuerySurface(renderer->getDisplay(), renderer->getStubSurface(),
                                        EGL_WIDTH, &width));
            EXPECT_EQ(width, 1);
            EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW), renderer->getStubSurface());
        }
        EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, ""), c.errors) << mLogs.dump();
    }
    // Version 3.2 with a vendor suffix is accepted.
    EXPECT_EQ(gl::Extensions::getInstance().getVersion(), "OpenGL ES 3.2 vendor build 1234");
}

TEST_F(RendererBringUp, ConfigsWithoutAndroidAttributesUseTheNativeVisualQuery) {
    EXPECT_TRUE(::zel::host::setDriverProfile("no-config-context,configs-no-android"));
    EGLDisplay display = GLESRenderer::initEglDisplay();
    EGLConfig config = GLESRenderer::initEglConfig(display);
    ASSERT_NE(config, EGL_NO_CONFIG_KHR);
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "no suitable EGLConfig found, trying a simpler query"),
              1u)
        << mLogs.dump();
    EGLint visual = 0;
    EXPECT_TRUE(eglGetConfigAttrib(display, config, EGL_NATIVE_VISUAL_ID, &visual));
    EXPECT_EQ(visual, 1);
    eglTerminate(display);

    // The whole renderer still comes up on that config.
    mLogs.clear();
    auto renderer = createWithDriver("no-config-context,configs-no-android");
    EXPECT_NE(renderer, nullptr);
}

TEST_F(RendererBringUp, SlowConfigWarnsOnceAndGoesOn) {
    auto renderer = createWithDriver("no-config-context,configs-slow");
    ASSERT_NE(renderer, nullptr);
    EXPECT_EQ(mLogs.count(ANDROID_LOG_WARN, "EGL_SLOW_CONFIG selected!"), 1u) << mLogs.dump();
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "EGL_SLOW_CONFIG selected!"), 1u) << mLogs.dump();
}

TEST_F(RendererBringUp, TenBitFormatAsksForTenBitChannels) {
    EXPECT_TRUE(::zel::host::setDriverProfile("no-config-context"));
    EGLDisplay display = GLESRenderer::initEglDisplay();
    // RGBA_1010102 must not quietly come back with an 8-bit config.
    EGLConfig config = EGL_NO_CONFIG_KHR;
    if (GLESRenderer::selectEGLConfig(display, 43, EGL_OPENGL_ES3_BIT_KHR, &config) == 0) {
        EGLint red = 0, alpha = 0;
        EXPECT_TRUE(eglGetConfigAttrib(display, config, EGL_RED_SIZE, &red));
        EXPECT_TRUE(eglGetConfigAttrib(display, config, EGL_ALPHA_SIZE, &alpha));
        EXPECT_GE(red, 10);
        EXPECT_GE(alpha, 2);
    } else {
        EXPECT_EQ(config, EGL_NO_CONFIG_KHR);
    }
    eglTerminate(display);
}

TEST_F(RendererBringUp, ContextCarriesPriorityAndProtection) {
    auto renderer = createWithDriver("", true, Renderer::REALTIME);
    ASSERT_NE(renderer, nullptr);
    EXPECT_TRUE(renderer->isProtectedContext());
    EXPECT_EQ(contextAttrib(*renderer, EGL_CONTEXT_PRIORITY_LEVEL_IMG),
              EGL_CONTEXT_PRIORITY_REALTIME_NV);
    EXPECT_EQ(contextAttrib(*renderer, EGL_PROTECTED_CONTENT_EXT), EGL_TRUE);
    renderer.reset();

    renderer = createWithDriver("", false, Renderer::LOW);
    ASSERT_NE(renderer, nullptr);
    EXPECT_EQ(contextAttrib(*renderer, EGL_CONTEXT_PRIORITY_LEVEL_IMG),
              EGL_CONTEXT_PRIORITY_LOW_IMG);
    EXPECT_EQ(contextAttrib(*renderer, EGL_PROTECTED_CONTENT_EXT), EGL_FALSE);
}

TEST_F(RendererBringUp, FailedCreationGivesEverythingBack) {
    // Warm up: the driver keeps process-wide state after its first context.
    createWithDriver("").reset();
    const auto before = ::zel::host::gpuCounters();
    for (const char* profile : {"fail-context", "fail-make-current",
                                "fail-make-current,no-surfaceless,no-config-context"}) {
        mLogs.clear();
        EXPECT_EQ(createWithDriver(profile), nullptr) << profile;
        EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "can't"), 1u) << profile << mLogs.dump();
        EXPECT_EQ(::zel::host::gpuCounters().contextsAlive, before.contextsAlive) << profile;
        EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT) << profile;
    }
    // The display references were all given back: a renderer still comes up and goes away.
    EXPECT_NE(createWithDriver(""), nullptr);
}

using RendererBringUpDeathTest = RendererBringUp;

TEST_F(RendererBringUpDeathTest, GlesBelowThreeOrAboveThreeAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(createWithDriver("gl-version=OpenGL ES 2.0"),
                 "requires OpenGL ES 3.0 minimum to run.");
    EXPECT_DEATH(createWithDriver("gl-version=OpenGL ES-CM 1.1"),
                 "requires OpenGL ES 3.0 minimum to run.");
    // 4.0 is not a version this library knows: it parses as 1.0 and aborts the same way.
    EXPECT_DEATH(createWithDriver("gl-version=OpenGL ES 4.0"),
                 "requires OpenGL ES 3.0 minimum to run.");
}

}  // namespace
}  // namespace zel
}  // namespace kav
