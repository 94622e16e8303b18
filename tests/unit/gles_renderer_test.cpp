// The GLES renderer brought up on the host GPU: version checks, creation, the texture service
// (and Textures made through it) and configuration.
#include <gtest/gtest.h>

#include <EGL/egl.h>
#include <GLES3/gl31.h>
#include <math/mat4.h>
#include <ui/FloatRect.h>

#include <zel/Debug.h>
#include <zel/Renderer.h>
#include <zel/Texture.h>
#include <zel/host/Gpu.h>
#include <zel/host/Properties.h>

#include "Extensions.h"
#include "GLESRenderer.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

std::shared_ptr<GLESRenderer> makeRenderer() {
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    return GLESRenderer::create(args);
}

TEST(GlesVersion, ParsesTheVersionStringForms) {
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
}

TEST(GlesRenderer, ComesUpCurrentWithTheDebugPropertiesRead) {
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
    ::zel::host::setProperty("vendor.kav.c2.enable.zel.log", "2");
    std::shared_ptr<Renderer> renderer = Renderer::create(Renderer::Args{Renderer::kTypeGles});
    ASSERT_NE(renderer, nullptr);
    EXPECT_EQ(ZEL_debug_level, 2);
    EXPECT_EQ(eglGetCurrentContext(), static_cast<GLESRenderer*>(renderer.get())->getContext());
    // The registry now knows the GL implementation too.
    EXPECT_TRUE(gl::Extensions::getInstance().hasOESFramebuffer());
    renderer.reset();
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
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

    // A Texture takes its name from the service and gives it back when it goes; a failed
    // genTexture leaves it without one.
    std::shared_ptr<Renderer> service = renderer;
    uint32_t owned = 0;
    {
        Texture texture(service, 4, 4, Texture::RGBA, Texture::UNSIGNED_BYTE, pixels, 0);
        owned = texture.getTextureName();
        EXPECT_TRUE(glIsTexture(owned));
        EXPECT_EQ(texture.getTextureTarget(), Texture::kTarget2D);
    }
    EXPECT_FALSE(glIsTexture(owned));
    Texture failed(service, 4, 4, Texture::RGBA, Texture::UNSIGNED_BYTE, nullptr, 0);
    EXPECT_EQ(failed.getTextureName(), 0u);
}

TEST(GlesRenderer, ViewportAndProjectionFollowTheirRectangles) {
    auto renderer = makeRenderer();
    ASSERT_NE(renderer, nullptr);
    // Neither rectangle starts at the origin or is centred on it, so that every term shows.
    android::FloatRect viewport(8.0f, 4.0f, 40.0f, 20.0f);
    android::FloatRect clip(0.0f, 0.0f, 2.0f, 4.0f);
    renderer->setViewportAndProjection(viewport, clip);
    EXPECT_EQ(renderer->getVpWidth(), 32u);
    EXPECT_EQ(renderer->getVpHeight(), 16u);
    GLint box[4] = {};
    glGetIntegerv(GL_VIEWPORT, box);
    EXPECT_EQ(box[0], 8);
    EXPECT_EQ(box[1], 4);
    EXPECT_EQ(box[2], 32);
    EXPECT_EQ(box[3], 16);
    // Orthographic with near plane 0 and far plane 1: x from 0 to 2 onto -1 to 1, y from top 0
    // to bottom 4 onto 1 to -1, eye z from 0 to -1 onto -1 to 1.
    const android::mat4& m = renderer->getDescription().mProjectionMatrix;
    const android::vec4 topLeftNear = m * android::vec4(0.0f, 0.0f, 0.0f, 1.0f);
    const android::vec4 bottomRightFar = m * android::vec4(2.0f, 4.0f, -1.0f, 1.0f);
    EXPECT_FLOAT_EQ(topLeftNear.x, -1.0f);
    EXPECT_FLOAT_EQ(topLeftNear.y, 1.0f);
    EXPECT_FLOAT_EQ(topLeftNear.z, -1.0f);
    EXPECT_FLOAT_EQ(bottomRightFar.x, 1.0f);
    EXPECT_FLOAT_EQ(bottomRightFar.y, -1.0f);
    EXPECT_FLOAT_EQ(bottomRightFar.z, 1.0f);
    EXPECT_FLOAT_EQ(bottomRightFar.w, 1.0f);
}

TEST(GlesRenderer, SetConfigTakesOnlyTheEnableMask) {
    auto renderer = makeRenderer();
    ASSERT_NE(renderer, nullptr);
    // Mesh and program caches stay off until the client asks for them.
    EXPECT_EQ(renderer->getEnable(), 0u);
    uint32_t mask = 3;
    EXPECT_EQ(renderer->setConfig(Renderer::ENABLE, &mask), OK);
    EXPECT_EQ(renderer->getEnable(), 3u);
    uint32_t other = 1;
    EXPECT_EQ(renderer->setConfig(static_cast<Renderer::Config>(2), &other), BAD_VALUE);
    EXPECT_EQ(renderer->setConfig(Renderer::ENABLE, nullptr), BAD_VALUE);
    EXPECT_EQ(renderer->getEnable(), 3u);
}

}  // namespace
}  // namespace zel
}  // namespace kav
