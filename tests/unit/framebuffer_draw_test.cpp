// Drawing on a real GLES renderer: a destination buffer attached to a framebuffer, viewport and
// projection, and drawMesh feeding the rectangle, grids and client meshes to generated programs.
// Pixels are read back from the destination buffer's memory.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <GLES3/gl31.h>
#include <GLES2/gl2ext.h>
#include <android/log.h>
#include <hardware/gralloc.h>
#include <ui/GraphicBuffer.h>

#include <zel/Debug.h>
#include <zel/host/Gpu.h>

#include "Framebuffer.h"
#include "GLESRenderer.h"
#include "LogCapture.h"

namespace kav::zel {
namespace {

constexpr uint32_t kWidth = 16;
constexpr uint32_t kHeight = 8;
constexpr uint32_t kPoison = 0xA5C35A3Cu;

using Pixels = std::vector<uint32_t>;

std::shared_ptr<GLESRenderer> makeRenderer() {
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    return GLESRenderer::create(args);
}

// Every channel varies, alpha included; bytes R, G, B, A in memory order.
uint32_t sourcePixel(uint32_t x, uint32_t y) {
    return (x * 16 + 1) | (y * 30 + 2) << 8 | ((x ^ y) * 13 + 3) << 16 |
           (255 - x * 5 - y * 3) << 24;
}

// Destination pixel (x, y) taken from source pixel (mapX(x), mapY(y)).
Pixels expected(uint32_t (*mapX)(uint32_t), uint32_t (*mapY)(uint32_t)) {
    Pixels pixels;
    for (uint32_t y = 0; y < kHeight; ++y) {
        for (uint32_t x = 0; x < kWidth; ++x) {
            pixels.push_back(sourcePixel(mapX(x), mapY(y)));
        }
    }
    return pixels;
}
uint32_t same(uint32_t v) {
    return v;
}

// Writes |pixels| into the buffer when given, and returns what it holds.
Pixels access(const android::sp<android::GraphicBuffer>& buffer, const Pixels* pixels) {
    Pixels out;
    void* address = nullptr;
    EXPECT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN, &address),
              0);
    auto* rows = static_cast<uint32_t*>(address);
    for (uint32_t y = 0; rows != nullptr && y < kHeight; ++y) {
        for (uint32_t x = 0; x < kWidth; ++x) {
            if (pixels != nullptr) {
                rows[y * buffer->getStride() + x] = (*pixels)[y * kWidth + x];
            }
            out.push_back(rows[y * buffer->getStride() + x]);
        }
    }
    buffer->unlock();
    return out;
}

// A renderer sampling the patterned source on unit 0, drawing into a poisoned destination
// through a framebuffer, with the pass's viewport and projection.
class DrawTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
        mRenderer = makeRenderer();
        ASSERT_NE(mRenderer, nullptr);
        const uint64_t usage = GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER |
                               GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;
        for (auto* buffer : {&mSource, &mDestination}) {
            *buffer = new android::GraphicBuffer(kWidth, kHeight, HAL_PIXEL_FORMAT_RGBA_8888, 1,
                                                 usage, "draw test");
        }
        const Pixels source = expected(same, same);
        const Pixels poison(kWidth * kHeight, kPoison);
        access(mSource, &source);
        access(mDestination, &poison);
        mSourceImage = std::make_unique<Image>(mRenderer->getDisplay(), 0);
        mSourceImage->setNativeWindowBuffer(mSource->getNativeBuffer(), android::Rect::INVALID_RECT,
                                            false);
        ASSERT_TRUE(mSourceImage->bindTextureImage(GL_TEXTURE0));
        mDestinationImage = std::make_shared<Image>(mRenderer->getDisplay(), 0);
        mDestinationImage->setNativeWindowBuffer(mDestination->getNativeBuffer(),
                                                 android::Rect::INVALID_RECT, false);
        ASSERT_TRUE(mDestinationImage->bindTextureImage(GL_TEXTURE2));
        mFramebuffer = std::make_unique<gl::Framebuffer>();  // made once the context is current
        mFramebuffer->bindTextureImageAsFramebuffer(mDestinationImage);
        ASSERT_EQ(mFramebuffer->getStatus(), static_cast<GLenum>(GL_FRAMEBUFFER_COMPLETE));
        android::FloatRect viewport(0, 0, kWidth, kHeight);
        android::FloatRect clip(-1, -1, 1, 1);
        mRenderer->setViewportAndProjection(viewport, clip);
        mRenderer->getDescription().mCacheProgram = true;
        ::zel::host::resetGpuCounters();
    }

    Pixels draw(const Mesh* mesh) {
        mFramebuffer->bind();
        EXPECT_TRUE(mRenderer->drawMesh(mesh));
        mFramebuffer->unbind();
        glFinish();
        return access(mDestination, nullptr);
    }

    ::zel::test::LogCapture mLogs;
    std::shared_ptr<GLESRenderer> mRenderer;
    android::sp<android::GraphicBuffer> mSource;
    android::sp<android::GraphicBuffer> mDestination;
    std::unique_ptr<Image> mSourceImage;
    std::shared_ptr<Image> mDestinationImage;
    std::unique_ptr<gl::Framebuffer> mFramebuffer;
};

TEST_F(DrawTest, RectangleCopiesTheSourceWithOnlyThePositionAttribute) {
    EXPECT_EQ(draw(Mesh::buildRect().get()), expected(same, same));
    EXPECT_EQ(::zel::host::gpuCounters().draws, 1u);
    GLint enabled[2] = {-1, -1};
    glGetVertexAttribiv(0, GL_VERTEX_ATTRIB_ARRAY_ENABLED, &enabled[0]);
    glGetVertexAttribiv(1, GL_VERTEX_ATTRIB_ARRAY_ENABLED, &enabled[1]);
    EXPECT_EQ(enabled[0], GL_TRUE);
    EXPECT_EQ(enabled[1], GL_FALSE);
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, ""), 0u) << mLogs.dump();

    // The pass's projection maps y to -y.
    mRenderer->getDescription().mHasProjection = true;
    EXPECT_EQ(draw(Mesh::buildRect().get()),
              expected(same, [](uint32_t y) { return kHeight - 1 - y; }));
    EXPECT_EQ(::zel::host::gpuCounters().programsLinked, 2u);

    EXPECT_FALSE(mRenderer->drawMesh(nullptr));
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "drawMesh <"), 1u);
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, ">: drawMesh: mesh is nullptr"), 1u) << mLogs.dump();
    EXPECT_EQ(::zel::host::gpuCounters().draws, 2u);
}

TEST_F(DrawTest, ClientMeshWithIndicesDrawsElementsFromItsVertexBuffer) {
    // A quad with texture coordinates mirrored horizontally, uploaded as the pass does; the
    // client copy of the vertices is cleared, so only the buffer object can give the mirror.
    auto mesh = std::make_shared<Mesh>(Mesh::TRIANGLES, 4, 2, 2, 6);
    mesh->mVertices = {-1, -1, 1, 0, -1, 1, 1, 1, 1, -1, 0, 0, 1, 1, 0, 1};
    mesh->mIndices = {0, 1, 2, 2, 1, 3};
    mesh->mVertexBuffer = std::make_shared<gl::VertexBuffer>();
    mesh->mVertexBuffer->allocateBuffers(mesh->mVertices.data(), 16, false);
    mesh->mVertexBuffer->allocateBuffers(mesh->mIndices.data(), 6, true);
    mesh->mVertices.assign(16, 0.0f);
    Description& desc = mRenderer->getDescription();
    desc.mUseVertexBuffer = desc.mHasIndices = desc.mHasTexCoords = true;
    EXPECT_EQ(draw(mesh.get()), expected([](uint32_t x) { return kWidth - 1 - x; }, same));
    EXPECT_EQ(::zel::host::gpuCounters().draws, 1u);
    GLint bound = -1;
    glGetIntegerv(GL_ELEMENT_ARRAY_BUFFER_BINDING, &bound);
    EXPECT_EQ(bound, 0);
    glGetVertexAttribiv(1, GL_VERTEX_ATTRIB_ARRAY_BUFFER_BINDING, &bound);
    EXPECT_EQ(static_cast<GLuint>(bound), mesh->mVertexBuffer->getVertexBufferId());
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, ""), 0u) << mLogs.dump();

    // A grid from client memory, through indices, with texture coordinates.
    mesh = Mesh::buildRect(5, 3);
    desc.mUseVertexBuffer = false;
    EXPECT_EQ(draw(mesh.get()), expected(same, same));
}

TEST(ViewportAndProjection, PassRectanglesGiveTheFlippedOrthographicMatrix) {
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
    ::zel::test::LogCapture logs;
    auto renderer = makeRenderer();
    ASSERT_NE(renderer, nullptr);
    ZEL_debug_level = 2;
    const struct {
        android::FloatRect viewport, clip;
        std::vector<GLint> box;
        android::mat4 matrix;
    } cases[] = {{{0, 0, 1920, 1080},
                  {-1, -1, 1, 1},
                  {0, 0, 1920, 1080},
                  android::mat4(1, 0, 0, 0, 0, -1, 0, 0, 0, 0, -2, 0, 0, 0, -1, 1)},
                 // Origin and size are truncated; the matrix follows any clip.
                 {{10.7f, 20.2f, 111.5f, 70.9f},
                  {0, 0, 4, 2},
                  {10, 20, 100, 50},
                  android::mat4(0.5f, 0, 0, 0, 0, -1, 0, 0, 0, 0, -2, 0, -1, 1, -1, 1)}};
    for (auto c : cases) {
        renderer->setViewportAndProjection(c.viewport, c.clip);
        std::vector<GLint> box(4);
        glGetIntegerv(GL_VIEWPORT, box.data());
        EXPECT_EQ(box, c.box);
        EXPECT_EQ(renderer->getVpWidth(), static_cast<uint32_t>(c.box[2]));
        EXPECT_EQ(renderer->getVpHeight(), static_cast<uint32_t>(c.box[3]));
        EXPECT_EQ(renderer->getDescription().mProjectionMatrix, c.matrix);
        EXPECT_FALSE(renderer->getDescription().mHasProjection);
    }
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "mVpWidth = 1920, mVpHeight = 1080"), 1u)
        << logs.dump();
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG,
                         "clip.left = -1.000000, clip.right = 1.000000, "
                         "clip.bottom = 1.000000, clip.top = -1.000000"),
              1u);
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
