// Image: Android buffers imported as EGLImages and sampled through an external texture on the
// host GPU, crop and protected-content attributes, re-attaching and teardown of the EGLImage.
#include <memory>

#include <gtest/gtest.h>

#include <android/log.h>
#include <hardware/gralloc.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>
#include <ui/Rect.h>

#include <zel/Debug.h>
#include <zel/host/Gpu.h>

#include "EglContext.h"
#include "Extensions.h"
#include "GlDrawing.h"
#include "Image.h"
#include "LogCapture.h"
#include "ReferenceConverter.h"

namespace kav {
namespace zel {
namespace {

using android::GraphicBuffer;
using android::sp;
using ::zel::test::RgbImage;

const char kVertexShader[] = R"(#version 300 es
layout(location = 0) in vec2 aPosition;
layout(location = 1) in vec2 aTexCoord;
out vec2 vTexCoord;
void main() {
    vTexCoord = aTexCoord;
    gl_Position = vec4(aPosition, 0.0, 1.0);
})";

const char kFragmentShader[] = R"(#version 300 es
#extension GL_OES_EGL_image_external_essl3 : require
precision highp float;
uniform samplerExternalOES uImage;
in vec2 vTexCoord;
out vec4 fragColor;
void main() {
    fragColor = texture(uImage, vTexCoord);
})";

sp<GraphicBuffer> makeBuffer(int width, int height, int32_t format) {
    constexpr uint32_t kUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN |
                                GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER;
    return new GraphicBuffer(width, height, format, 1, kUsage, "image-test");
}

class ImageTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
        startContext();
    }
    void TearDown() override {
        mContext.reset();
        ::zel::host::resetDriverProfile();
    }
    void startContext() {
        mContext = std::make_unique<::zel::test::EglContext>();
        ASSERT_TRUE(mContext->ok()) << mContext->failure();
    }

    EGLDisplay display() const { return mContext->display(); }
    static uint64_t imagesAlive() { return ::zel::host::gpuCounters().imagesAlive; }

    // Draws the external texture of unit GL_TEXTURE0 + unit over a new RGBA buffer and reads it
    // back: with nearest filtering, pixel (x, y) is texel (x, y) of the image.
    static RgbImage sample(int unit, int width, int height) {
        sp<GraphicBuffer> target = makeBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
        ::zel::test::poisonBuffer(*target);
        // The target texture goes on a unit of its own, away from the one sampled.
        glActiveTexture(GL_TEXTURE7);
        {
            ::zel::test::ExternalImage image(eglGetCurrentDisplay(), *target);
            ::zel::test::ImageFramebuffer framebuffer(image, width, height);
            ::zel::test::Program program(kVertexShader, kFragmentShader);
            EXPECT_EQ(program.error(), "");
            program.use();
            glUniform1i(glGetUniformLocation(program.name(), "uImage"), unit);
            ::zel::test::Quad().draw();
            glFinish();
        }
        return ::zel::test::readRgba(*target);
    }

    std::unique_ptr<::zel::test::EglContext> mContext;
};

TEST_F(ImageTest, RgbaBufferSamplesAsStoredWithAndWithoutCrop) {
    RgbImage picture = ::zel::test::noise(13, 7, 5);
    for (size_t i = 0; i < picture.pixels.size(); ++i) {
        picture.pixels[i].a = static_cast<uint8_t>(i * 3);
    }
    sp<GraphicBuffer> buffer = makeBuffer(13, 7, HAL_PIXEL_FORMAT_RGBA_8888);
    ::zel::test::fillBuffer(*buffer, picture, 0);

    Image image(display(), 42);
    ASSERT_TRUE(
        image.setNativeWindowBuffer(buffer->getNativeBuffer(), android::Rect::INVALID_RECT, false));
    // The conversion pass samples its source on unit 0 and its destination on unit 2.
    for (GLenum unit : {GL_TEXTURE0, GL_TEXTURE2}) {
        ASSERT_TRUE(image.bindTextureImage(unit));
        EXPECT_TRUE(::zel::test::imagesMatch(sample(unit - GL_TEXTURE0, 13, 7), picture, 0, true));
    }

    const android::Rect crop(3, 2, 10, 6);
    ASSERT_TRUE(image.setNativeWindowBuffer(buffer->getNativeBuffer(), crop, false));
    ASSERT_TRUE(image.bindTextureImage(GL_TEXTURE0));
    RgbImage expected(crop.getWidth(), crop.getHeight());
    for (int y = 0; y < expected.height; ++y) {
        for (int x = 0; x < expected.width; ++x) {
            expected.at(x, y) = picture.at(x + crop.left, y + crop.top);
        }
    }
    EXPECT_TRUE(
        ::zel::test::imagesMatch(sample(0, expected.width, expected.height), expected, 0, true));
}

TEST_F(ImageTest, Nv12BufferSamplesAsBt601LimitedRgb) {
    const RgbImage picture = ::zel::test::colourBars(16, 8);
    sp<GraphicBuffer> buffer = makeBuffer(16, 8, HAL_PIXEL_FORMAT_YCBCR_420_888);
    ::zel::test::fillBuffer(*buffer, picture, 0);
    Image image(display(), 3);
    if (!image.setNativeWindowBuffer(buffer->getNativeBuffer(), android::Rect::INVALID_RECT,
                                     false)) {
        GTEST_SKIP() << "the host GPU layer cannot import YCbCr_420_888 buffers yet";
    }
    ASSERT_TRUE(image.bindTextureImage(GL_TEXTURE0));
    const RgbImage expected =
        ::zel::test::decode(::zel::test::readPlanes(*buffer), ::zel::test::colourSpaceOf(0));
    EXPECT_TRUE(::zel::test::imagesMatch(sample(0, 16, 8), expected, 1));
}

TEST_F(ImageTest, OnlyRectanglesWithRightAndBottomNotBelowLeftAndTopAreSentAsCrops) {
    ::zel::test::LogCapture logs;
    ZEL_debug_level = 2;
    sp<GraphicBuffer> buffer = makeBuffer(16, 8, HAL_PIXEL_FORMAT_RGBA_8888);
    Image image(display(), 1);
    const struct {
        android::Rect crop;
        const char* line;  // the crop line; nullptr: no crop may be sent
    } cases[] = {{android::Rect::INVALID_RECT, nullptr},
                 {android::Rect(10, 0, 10, 4), "image crop (10,0,10,4)"},
                 {android::Rect(10, 0, 9, 4), nullptr},
                 {android::Rect(0, 5, 4, 5), "image crop (0,5,4,5)"},
                 {android::Rect(0, 5, 4, 4), nullptr}};
    for (const auto& c : cases) {
        logs.clear();
        EXPECT_TRUE(image.setNativeWindowBuffer(buffer->getNativeBuffer(), c.crop, false));
        EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, c.line != nullptr ? c.line : "image crop"),
                  c.line != nullptr ? 1u : 0u)
            << logs.dump();
    }
}

TEST_F(ImageTest, ProtectedContentIsRequestedOnlyWhenTheDisplayOffersIt) {
    sp<GraphicBuffer> plain = makeBuffer(4, 4, HAL_PIXEL_FORMAT_RGBA_8888);
    sp<GraphicBuffer> secure = new GraphicBuffer(4, 4, HAL_PIXEL_FORMAT_RGBA_8888, 1,
                                                 GRALLOC_USAGE_PROTECTED, "image-test");
    // The registry knows nothing yet: the attribute is left out but the request is recorded.
    ASSERT_FALSE(gl::Extensions::getInstance().hasProtectedContent());
    Image image(display(), 1);
    EXPECT_TRUE(
        image.setNativeWindowBuffer(plain->getNativeBuffer(), android::Rect::INVALID_RECT, true));
    EXPECT_TRUE(image.isProtected());
    // Secure memory only goes into protected EGLImages; a failure keeps the flag as it was.
    Image secureImage(display(), 2);
    EXPECT_FALSE(secureImage.setNativeWindowBuffer(secure->getNativeBuffer(),
                                                   android::Rect::INVALID_RECT, true));
    EXPECT_FALSE(secureImage.isProtected());

    gl::Extensions::getInstance().initWithEGLStrings(eglQueryString(display(), EGL_VERSION),
                                                     eglQueryString(display(), EGL_EXTENSIONS));
    EXPECT_TRUE(secureImage.setNativeWindowBuffer(secure->getNativeBuffer(),
                                                  android::Rect::INVALID_RECT, true));
    EXPECT_TRUE(secureImage.isProtected());
}

TEST_F(ImageTest, EachAttachReplacesTheOneEglImageAndDestructionDestroysIt) {
    ::zel::test::LogCapture logs;
    ZEL_debug_level = 2;
    sp<GraphicBuffer> first = makeBuffer(6, 4, HAL_PIXEL_FORMAT_RGBA_8888);
    sp<GraphicBuffer> second = makeBuffer(6, 4, HAL_PIXEL_FORMAT_RGBA_8888);
    const uint64_t alive = imagesAlive();
    {
        Image image(display(), 9);
        // Detaching an Empty Image has nothing to destroy.
        EXPECT_TRUE(image.setNativeWindowBuffer(nullptr, android::Rect::INVALID_RECT, false));
        ASSERT_TRUE(image.setNativeWindowBuffer(first->getNativeBuffer(),
                                                android::Rect::INVALID_RECT, false));
        ASSERT_TRUE(image.setNativeWindowBuffer(second->getNativeBuffer(),
                                                android::Rect::INVALID_RECT, false));
        EXPECT_EQ(imagesAlive(), alive + 1);
        EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "angry if you destroy my image, buffer id: 9"), 1u);
        // A texture targeted on the old image keeps it until the next bind retargets it.
        ASSERT_TRUE(image.bindTextureImage(GL_TEXTURE0));
        ASSERT_TRUE(image.setNativeWindowBuffer(first->getNativeBuffer(),
                                                android::Rect::INVALID_RECT, false));
        EXPECT_EQ(imagesAlive(), alive + 2);
        ASSERT_TRUE(image.bindTextureImage(GL_TEXTURE0));
        EXPECT_EQ(imagesAlive(), alive + 1);
        logs.clear();
    }
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "angry if you destroy my image, buffer id: 9"), 1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "done deconstructor 9"), 1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
    EXPECT_EQ(imagesAlive(), alive);
}

TEST_F(ImageTest, BindAfterFailedAttachReportsAndLeavesBindingsAlone) {
    // Displays brought up under this profile refuse to create images.
    mContext.reset();
    ASSERT_TRUE(::zel::host::setDriverProfile("fail-image"));
    startContext();
    ::zel::test::LogCapture logs;
    sp<GraphicBuffer> buffer = makeBuffer(4, 4, HAL_PIXEL_FORMAT_RGBA_8888);
    glActiveTexture(GL_TEXTURE3);

    Image image(display(), 5);
    EXPECT_FALSE(
        image.setNativeWindowBuffer(buffer->getNativeBuffer(), android::Rect::INVALID_RECT, false));
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "failed to create EGLImage"), 1u) << logs.dump();
    EXPECT_FALSE(image.bindTextureImage(GL_TEXTURE0));
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "bindTextureImage get EGL_NO_IMAGE_KHR"), 1u);
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    EXPECT_EQ(active, GL_TEXTURE3);
    glActiveTexture(GL_TEXTURE0);
    GLint bound = -1;
    glGetIntegerv(GL_TEXTURE_BINDING_EXTERNAL_OES, &bound);
    EXPECT_EQ(bound, 0);
}

}  // namespace
}  // namespace zel
}  // namespace kav
