// The GLES renderer brought up on the host GPU: creation, version checks, the texture service and
// configuration, and teardown that leaves nothing behind.
#include <dirent.h>

#include <gtest/gtest.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl31.h>

#include <zel/Renderer.h>
#include <zel/Debug.h>
#include <zel/host/Gpu.h>
#include <zel/host/Properties.h>

#include "Extensions.h"
#include "GLESRenderer.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

size_t openFdCount() {
    size_t count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir) != nullptr) {
            ++count;
        }
        closedir(dir);
    }
    return count;
}

std::shared_ptr<GLESRenderer> makeRenderer(bool protectedContext = false) {
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    args.enableProtectedContext = protectedContext;
    return GLESRenderer::create(args);
}

TEST(GlesVersion, ParsesTheVersionStringForms) {
    ::zel::test::LogCapture logs;
    struct Case {
        const char* text;
        int code;
    };
    for (const Case& c : {Case{"OpenGL ES 3.2 Mesa 22.3.6", 0x30000},
                          Case{"OpenGL ES 3.0", 0x30000}, Case{"OpenGL ES 2.0 build 7", 0x20000},
                          Case{"OpenGL ES-CM 1.1", 0x10001}, Case{"OpenGL ES-CM 1.0", 0x10000},
                          Case{"OpenGL ES 4.0", 0x10000}, Case{"4.6 desktop", 0x10000}}) {
        EXPECT_EQ(GLESRenderer::parseGlesVersion(c.text), c.code) << c.text;
    }
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "Unrecognized OpenGL ES version: 4.0"), 1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "Unable to parse GL_VERSION string: \"4.6 desktop\""),
              1u);
}

TEST(GlesRenderer, ComesUpCurrentOnTheCreatingThread) {
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    args.contextPriority = Renderer::LOW;
    std::shared_ptr<Renderer> renderer = Renderer::create(args);
    ASSERT_NE(renderer, nullptr);
    auto* gles = static_cast<GLESRenderer*>(renderer.get());

    EXPECT_EQ(eglGetCurrentContext(), gles->getContext());
    EXPECT_EQ(renderer->getContextPriority(), Renderer::LOW);
    EXPECT_EQ(renderer->getProtection(), UNPROTECTED);
    EXPECT_FALSE(gles->isProtectedContext());
    // The registry now knows both the display and the GL implementation.
    EXPECT_TRUE(gl::Extensions::getInstance().hasOESFramebuffer());
    EXPECT_GT(gl::Extensions::getInstance().getVersion().length(), 0u);
    // Settings change the stored values only.
    EXPECT_EQ(renderer->setContextPriority(Renderer::REALTIME), OK);
    EXPECT_EQ(renderer->getContextPriority(), Renderer::REALTIME);

    renderer.reset();
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
}

TEST(GlesRenderer, ReadsTheDebugPropertiesAtCreation) {
    ::zel::test::LogCapture logs;
    ::zel::host::setProperty("vendor.kav.c2.enable.zel.log", "2");
    auto renderer = makeRenderer();
    ASSERT_NE(renderer, nullptr);
    EXPECT_EQ(ZEL_debug_level, 2);
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG,
                         "rendererType = 1, enableProtectedContext = 0, contextPriority = 3"),
              1u)
        << logs.dump();
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "OpenGL ES informations:"), 1u);
}

TEST(GlesRenderer, TextureServiceMakesAndDeletesTextures) {
    ::zel::test::LogCapture logs;
    auto renderer = makeRenderer();
    ASSERT_NE(renderer, nullptr);

    const uint8_t pixels[4 * 4 * 4] = {1, 2, 3, 4};
    uint32_t rgba = 0;
    EXPECT_EQ(renderer->genTexture(&rgba, 4, 4, GL_RGBA, GL_UNSIGNED_BYTE, pixels), OK);
    EXPECT_TRUE(glIsTexture(rgba));
    uint32_t red = 0;
    EXPECT_EQ(renderer->genTexture(&red, 4, 4, GL_R8, GL_UNSIGNED_BYTE, pixels), OK);
    const uint16_t halves[4 * 4 * 4] = {};
    uint32_t half = 0;
    EXPECT_EQ(renderer->genTexture(&half, 4, 4, GL_RGBA16F, GL_HALF_FLOAT, halves), OK);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();

    // An unsupported format leaves a live name for the caller to delete.
    uint32_t rgb8 = 0;
    EXPECT_EQ(renderer->genTexture(&rgb8, 4, 4, GL_RGB8, GL_UNSIGNED_BYTE, pixels),
              UNSUPPORTED_FORMAT);
    EXPECT_TRUE(glIsTexture(rgb8));
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "format is not support"), 1u);

    uint32_t none = 0;
    EXPECT_EQ(renderer->genTexture(&none, 0, 4, GL_RGBA, GL_UNSIGNED_BYTE, pixels), BAD_VALUE);
    EXPECT_EQ(renderer->genTexture(&none, 4, 4, GL_RGBA, GL_UNSIGNED_BYTE, nullptr), BAD_VALUE);
    EXPECT_EQ(renderer->genTexture(nullptr, 4, 4, GL_RGBA, GL_UNSIGNED_BYTE, pixels), BAD_VALUE);
    EXPECT_EQ(none, 0u);

    for (uint32_t name : {rgba, red, half, rgb8}) {
        EXPECT_EQ(renderer->deleteTexture(&name), OK);
        EXPECT_FALSE(glIsTexture(name));
    }
}

TEST(GlesRenderer, SetConfigStoresTheEnableMaskOnly) {
    ::zel::test::LogCapture logs;
    auto renderer = makeRenderer();
    ASSERT_NE(renderer, nullptr);
    ZEL_debug_level = 2;
    uint32_t mask = 3;
    EXPECT_EQ(renderer->setConfig(Renderer::ENABLE, &mask), OK);
    EXPECT_EQ(renderer->getEnable(), 3u);
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "mEnable = 0x00000003"), 1u);
    uint32_t other = 1;
    EXPECT_EQ(renderer->setConfig(static_cast<Renderer::Config>(2), &other), BAD_VALUE);
    EXPECT_EQ(renderer->setConfig(Renderer::ENABLE, nullptr), BAD_VALUE);
    EXPECT_EQ(renderer->getEnable(), 3u);
}

TEST(GlesRenderer, RepeatedCreationLeavesNothingBehind) {
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
    // Warm up once: the driver keeps process-wide state after its first context.
    makeRenderer().reset();
    const auto contextsBefore = ::zel::host::gpuCounters().contextsAlive;
    const size_t fdsBefore = openFdCount();
    for (int i = 0; i < 10; ++i) {
        Renderer::Args args;
        args.rendererType = (i % 2 == 0) ? Renderer::kTypeGles : Renderer::kTypeGlesThreaded;
        std::shared_ptr<Renderer> renderer = Renderer::create(args);
        ASSERT_NE(renderer, nullptr);
        uint32_t mask = 1;
        EXPECT_EQ(renderer->setConfig(Renderer::ENABLE, &mask), OK);
    }
    EXPECT_EQ(::zel::host::gpuCounters().contextsAlive, contextsBefore);
    EXPECT_EQ(openFdCount(), fdsBefore);
}

}  // namespace
}  // namespace zel
}  // namespace kav
