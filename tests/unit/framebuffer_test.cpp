// gl::Framebuffer on a real GLES renderer: an incomplete attachment and a texture of its own; and
// a renderer's teardown with cached programs and client buffers. Drawing through the renderer is
// proven end to end by the blit tests.
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <GLES3/gl31.h>
#include <android/log.h>

#include <zel/host/Gpu.h>

#include "Framebuffer.h"
#include "GLESRenderer.h"
#include "LogCapture.h"

namespace kav::zel {
namespace {

std::shared_ptr<GLESRenderer> makeRenderer() {
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    return GLESRenderer::create(args);
}

TEST(Framebuffer, IncompleteAttachmentIsLoggedAndOwnTextureAttachesWithoutData) {
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
    auto renderer = makeRenderer();
    ASSERT_NE(renderer, nullptr);
    ::zel::test::LogCapture logs;
    Image unbound(renderer->getDisplay(), 0);  // a texture with no EGLImage
    gl::Framebuffer incomplete;
    incomplete.bindTextureImageAsFramebuffer(unbound);
    const GLenum status = incomplete.getStatus();
    EXPECT_NE(status, static_cast<GLenum>(GL_FRAMEBUFFER_COMPLETE));
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR,
                         "Frame buffer is not complete. Error " + std::to_string(status)),
              1u)
        << logs.dump();

    logs.clear();
    GLuint names[2] = {};
    {
        gl::Framebuffer own;
        names[0] = own.getTexture();
        names[1] = own.getFramebuffer();
        own.allocateBuffers(32, 24, nullptr);
        EXPECT_EQ(own.getStatus(), static_cast<GLenum>(GL_FRAMEBUFFER_COMPLETE));
        EXPECT_EQ(own.getWidth() * 100 + own.getHeight(), 3224u);
        // Only the two refused wrap modes are logged.
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "file(src/Framebuffer), fun(allocateBuffers)"), 2u);
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 2u) << logs.dump();
        own.bind();
        GLint attached = 0;
        glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                              GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &attached);
        EXPECT_EQ(static_cast<GLuint>(attached), names[0]);
        own.unbind();
    }
    EXPECT_FALSE(glIsTexture(names[0]) || glIsFramebuffer(names[1]));
}

TEST(GlesRendererTeardown, CachedProgramsAndClientBuffersOutliveTheContextSafely) {
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
    ::zel::test::LogCapture logs;
    auto mesh = Mesh::buildRect(2, 2);
    {
        auto renderer = makeRenderer();
        ASSERT_NE(renderer, nullptr);
        renderer->getDescription().mCacheProgram = true;
        mesh->mVertexBuffer = std::make_shared<gl::VertexBuffer>();
        // No framebuffer is bound: the draw has no target (logged) and only fills the cache.
        EXPECT_TRUE(renderer->drawMesh(mesh.get()));
        logs.clear();
    }
    // The program cache went with the renderer, the client's buffers go now: both after the
    // context, whose names died with it.
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
    mesh.reset();
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
    auto renderer = makeRenderer();
    ASSERT_NE(renderer, nullptr);
    EXPECT_TRUE(renderer->drawMesh(Mesh::buildRect().get()));
}

}  // namespace
}  // namespace kav::zel
