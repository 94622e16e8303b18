// Image: the crop and protected-content attributes of the EGLImage of an Android buffer,
// re-attaching, teardown, and binding after a failed import. Sampling through an Image is proven
// end to end by the blit tests.
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
#include "ExtensionsTestAccess.h"
#include "Image.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

using android::GraphicBuffer;
using android::sp;

sp<GraphicBuffer> makeBuffer(int width, int height) {
    return new GraphicBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888, 1,
                             GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER, "image-test");
}

class ImageTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
        gl::ExtensionsTestAccess::reset();
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

    std::unique_ptr<::zel::test::EglContext> mContext;
};

TEST_F(ImageTest, OnlyRectanglesWithRightAndBottomNotBelowLeftAndTopAreSentAsCrops) {
    ::zel::test::LogCapture logs;
    ZEL_debug_level = 2;
    sp<GraphicBuffer> buffer = makeBuffer(16, 8);
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
    sp<GraphicBuffer> plain = makeBuffer(4, 4);
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
    sp<GraphicBuffer> first = makeBuffer(6, 4);
    sp<GraphicBuffer> second = makeBuffer(6, 4);
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
        // A texture targeted on the old image keeps it until the next bind retargets it.
        ASSERT_TRUE(image.bindTextureImage(GL_TEXTURE0));
        ASSERT_TRUE(image.setNativeWindowBuffer(first->getNativeBuffer(),
                                                android::Rect::INVALID_RECT, false));
        EXPECT_EQ(imagesAlive(), alive + 2);
        ASSERT_TRUE(image.bindTextureImage(GL_TEXTURE0));
        EXPECT_EQ(imagesAlive(), alive + 1);
        // The GL_TEXTURE_2D render target of an RGBA buffer goes with the Image too.
        EXPECT_NE(image.bindTexture2D(), 0u);
    }
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
    EXPECT_EQ(imagesAlive(), alive);
}

TEST_F(ImageTest, BindAfterFailedAttachReportsAndLeavesBindingsAlone) {
    // Displays brought up under this profile refuse to create images.
    mContext.reset();
    ASSERT_TRUE(::zel::host::setDriverProfile("fail-image"));
    startContext();
    ::zel::test::LogCapture logs;
    sp<GraphicBuffer> buffer = makeBuffer(4, 4);
    glActiveTexture(GL_TEXTURE3);

    Image image(display(), 5);
    EXPECT_FALSE(
        image.setNativeWindowBuffer(buffer->getNativeBuffer(), android::Rect::INVALID_RECT, false));
    // The line carries the driver's code (EGL_BAD_ALLOC), not what a second read would give.
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "failed to create EGLImage: 0x3003"), 1u)
        << logs.dump();
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
