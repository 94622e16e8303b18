// Bring-up of the GLES renderer on the drivers of different phones: each host driver profile
// drives one branch of the config fallback chain or of context creation, and the renderer must
// come up (or refuse, or abort) the way a real device would see it.
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl31.h>

#include <zel/Renderer.h>
#include <zel/host/Gpu.h>

#include "EglDisplayUsers.h"
#include "Extensions.h"
#include "ExtensionsTestAccess.h"
#include "Frames.h"
#include "GLESRenderer.h"
#include "Image.h"
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
    GLESRenderer::releaseEglDisplay(display);

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
    GLESRenderer::releaseEglDisplay(display);
}

TEST_F(RendererBringUp, ContextCarriesPriorityAndProtection) {
    auto renderer = createWithDriver("", true, Renderer::REALTIME);
    ASSERT_NE(renderer, nullptr);
    EXPECT_TRUE(renderer->isProtectedContext());
    EXPECT_EQ(contextAttrib(*renderer, EGL_CONTEXT_PRIORITY_LEVEL_IMG),
              EGL_CONTEXT_PRIORITY_REALTIME_NV);
    EXPECT_EQ(contextAttrib(*renderer, EGL_PROTECTED_CONTENT_EXT), EGL_TRUE);
    renderer.reset();
    // Without surfaceless contexts the stub pbuffer is protected along with its context (the
    // registry forgets the surfaceless contexts it saw first).
    gl::ExtensionsTestAccess::reset();
    renderer = createWithDriver("no-surfaceless", true);
    ASSERT_NE(renderer, nullptr) << mLogs.dump();
    EGLint surfaceProtected = -1;
    EXPECT_TRUE(eglQuerySurface(renderer->getDisplay(), renderer->getStubSurface(),
                                EGL_PROTECTED_CONTENT_EXT, &surfaceProtected));
    EXPECT_EQ(surfaceProtected, EGL_TRUE);
    renderer.reset();

    renderer = createWithDriver("", false, Renderer::LOW);
    ASSERT_NE(renderer, nullptr);
    EXPECT_EQ(contextAttrib(*renderer, EGL_CONTEXT_PRIORITY_LEVEL_IMG),
              EGL_CONTEXT_PRIORITY_LOW_IMG);
    EXPECT_EQ(contextAttrib(*renderer, EGL_PROTECTED_CONTENT_EXT), EGL_FALSE);

    // A driver that keeps to the texts has no REALTIME without EGL_NV_context_priority_realtime:
    // creation fails cleanly, with its error line.
    renderer.reset();
    mLogs.clear();
    EXPECT_EQ(createWithDriver("conformant", false, Renderer::REALTIME), nullptr);
    EXPECT_GT(mLogs.count(ANDROID_LOG_ERROR, ""), 0u);
    EXPECT_NE(
        createWithDriver("conformant,+EGL_NV_context_priority_realtime", false, Renderer::REALTIME),
        nullptr)
        << mLogs.dump();
}

// What a renderer creation may leave behind.
struct LiveObjects {
    uint64_t contexts;
    uint64_t images;
    size_t descriptors;
    size_t displayUsers;
    bool operator==(const LiveObjects& o) const {
        return contexts == o.contexts && images == o.images && descriptors == o.descriptors &&
               displayUsers == o.displayUsers;
    }
};

std::ostream& operator<<(std::ostream& out, const LiveObjects& o) {
    return out << o.contexts << " contexts, " << o.images << " images, " << o.descriptors
               << " descriptors, " << o.displayUsers << " display users";
}

LiveObjects liveObjects() {
    ::zel::host::waitGpuIdle();  // fences still pending hold a descriptor
    const auto counters = ::zel::host::gpuCounters();
    return {counters.contextsAlive, counters.imagesAlive, ::zel::test::openFdCount(),
            EglDisplayUsers::count(eglGetDisplay(EGL_DEFAULT_DISPLAY))};
}

TEST_F(RendererBringUp, FailedCreationGivesBackOnlyWhatItMadeAndLeavesTheThreadAsItWas) {
    // Warm up: the driver keeps process-wide state after its first context.
    createWithDriver("").reset();
    const struct {
        std::string display;
        std::vector<std::string> failures;
    } displays[] = {
        {"", {"fail-context", "fail-make-current"}},
        // With configs and a stub surface; an ES 3 config then gets no second, ES 2 attempt.
        {"no-config-context,no-surfaceless",
         {"fail-context", "fail-make-current", "fail-es3-context"}},
    };
    for (bool withRenderer : {false, true}) {
        for (const auto& d : displays) {
            SCOPED_TRACE("display '" + d.display + "', working renderer " +
                         std::to_string(withRenderer));
            gl::ExtensionsTestAccess::reset();
            // A renderer that already works on this thread, and holds the display: the later,
            // failing creations then only switch what their contexts get.
            std::shared_ptr<GLESRenderer> working;
            if (withRenderer) {
                working = createWithDriver(d.display.c_str());
                ASSERT_NE(working, nullptr);
                ASSERT_TRUE(::zel::test::blitsCorrectly(*working));
            }
            const LiveObjects before = liveObjects();
            for (const std::string& failure : d.failures) {
                const std::string profile = d.display.empty() ? failure : d.display + "," + failure;
                for (int attempt = 0; attempt < 3; ++attempt) {
                    SCOPED_TRACE(profile);
                    mLogs.clear();
                    EXPECT_EQ(createWithDriver(profile.c_str()), nullptr);
                    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "can't"), 1u) << mLogs.dump();
                    EXPECT_EQ(liveObjects(), before);
                    EXPECT_EQ(eglGetCurrentContext(),
                              working ? working->getContext() : EGL_NO_CONTEXT);
                    EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW),
                              working ? working->getStubSurface() : EGL_NO_SURFACE);
                }
            }
            if (working) {
                EXPECT_TRUE(::zel::test::blitsCorrectly(*working));
                const uint8_t texel[4] = {1, 2, 3, 4};
                uint32_t name = 0;
                EXPECT_EQ(working->genTexture(&name, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, texel), OK);
                EXPECT_NE(name, 0u);
                EXPECT_EQ(working->deleteTexture(&name), OK);
            }
        }
    }
    // Every display use was given back: a renderer still comes up, and its display goes with it.
    ::zel::host::resetDriverProfile();
    auto renderer = createWithDriver("");
    ASSERT_NE(renderer, nullptr);
    EXPECT_EQ(liveObjects().displayUsers, 1u);
    renderer.reset();
    EXPECT_EQ(liveObjects().displayUsers, 0u);
    // A use given back twice is a bookkeeping fault: said as an error, and nothing terminated.
    mLogs.clear();
    EglDisplayUsers::release(eglGetDisplay(EGL_DEFAULT_DISPLAY));
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "has no users"), 1u) << mLogs.dump();
    EXPECT_EQ(liveObjects().displayUsers, 0u);
}

TEST_F(RendererBringUp, DestroyingARendererLeavesTheOtherCurrentOneWorking) {
    // Both keep their meshes and programs: cached GL objects are what a teardown in the wrong
    // context would hit.
    uint32_t caches = 3;
    auto first = createWithDriver("");
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(first->setConfig(Renderer::ENABLE, &caches), OK);
    ASSERT_TRUE(::zel::test::blitsCorrectly(*first));
    const LiveObjects withFirst = liveObjects();
    auto second = createWithDriver("");
    ASSERT_NE(second, nullptr);
    ASSERT_EQ(second->setConfig(Renderer::ENABLE, &caches), OK);
    ASSERT_TRUE(::zel::test::blitsCorrectly(*second));
    EXPECT_EQ(liveObjects().displayUsers, 2u);
    Buffer buffer = ::zel::test::bufferOf(::zel::test::allocateBuffer(4, 4, 0x1));
    ASSERT_EQ(second->cacheNewImage(77, buffer, android::Rect::INVALID_RECT, 0), OK);
    const GLuint name = second->findCachedImage(77, 0)->getTexture();
    buffer.texture.reset();  // the cache's image keeps what it needs

    // A client that drives both on one thread makes the first current again, then drops the
    // second: the second's teardown must neither delete the first's objects (which go by the
    // same numbers) nor unbind it.
    ASSERT_TRUE(eglMakeCurrent(first->getDisplay(), first->getStubSurface(),
                               first->getStubSurface(), first->getContext()));
    const uint8_t texel[4] = {1, 2, 3, 4};
    glBindTexture(GL_TEXTURE_2D, name);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, texel);
    glBindTexture(GL_TEXTURE_2D, 0);
    ASSERT_TRUE(glIsTexture(name));
    mLogs.clear();
    second.reset();
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, ""), 0u) << mLogs.dump();
    EXPECT_EQ(eglGetCurrentContext(), first->getContext());
    EXPECT_EQ(liveObjects(), withFirst);
    EXPECT_TRUE(glIsTexture(name));
    glDeleteTextures(1, &name);
    EXPECT_TRUE(::zel::test::blitsCorrectly(*first));

    first.reset();
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
    EXPECT_EQ(liveObjects().displayUsers, 0u);
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
