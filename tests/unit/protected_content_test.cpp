// Secure video end to end. The CPU can never read a protected buffer, so the test reads and
// writes its memory through the host's GPU view of it (zel::host::BufferMemory), which no
// library path has: what the library itself can do with such a buffer is only what the GPU may.
#include <string>

#include <gtest/gtest.h>

#include <ui/GraphicBuffer.h>

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>
#include <zel/host/Gpu.h>
#include <zel/host/Gralloc.h>
#include <zel/host/Properties.h>

#include "Frames.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

using namespace ::zel::test;

constexpr int kSize = 32;
constexpr uint64_t kProtectedUsage = kGpuUsage | android::GraphicBuffer::USAGE_PROTECTED;

// The pixels of an RGBA buffer as the GPU sees them.
RgbImage gpuView(const android::GraphicBuffer& buffer) {
    ::zel::host::BufferMemory memory(buffer.handle);
    const ::zel::host::PlaneLayout& plane = memory.layout().planes[0];
    RgbImage image(static_cast<int>(buffer.getWidth()), static_cast<int>(buffer.getHeight()));
    for (int y = 0; y < image.height; ++y) {
        const uint8_t* row = memory.data() + plane.offset + static_cast<size_t>(y) * plane.rowPitch;
        for (int x = 0; x < image.width; ++x) {
            image.at(x, y) = Rgb8{row[4 * x], row[4 * x + 1], row[4 * x + 2]};
        }
    }
    return image;
}

// Fills an RGBA buffer the way a secure decoder would: through the GPU's view, not a CPU lock.
void gpuWrite(const android::GraphicBuffer& buffer, const RgbImage& image) {
    ::zel::host::BufferMemory memory(buffer.handle);
    const ::zel::host::PlaneLayout& plane = memory.layout().planes[0];
    for (int y = 0; y < image.height; ++y) {
        uint8_t* row = memory.data() + plane.offset + static_cast<size_t>(y) * plane.rowPitch;
        for (int x = 0; x < image.width; ++x) {
            const Rgb8& pixel = image.at(x, y);
            row[4 * x] = pixel.r;
            row[4 * x + 1] = pixel.g;
            row[4 * x + 2] = pixel.b;
            row[4 * x + 3] = 255;
        }
    }
    memory.markContentChanged();
}

std::shared_ptr<Renderer> create(int type, bool protectedContext) {
    Renderer::Args args;
    args.rendererType = type;
    args.enableProtectedContext = protectedContext;
    return Renderer::create(args);
}

class ProtectedContent : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        if (!::zel::host::gpuAvailable()) {
            GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
        }
        mPicture = noise(kSize, kSize, 7);
        mSecret = allocateBuffer(kSize, kSize, 0x1, kProtectedUsage);
        gpuWrite(*mSecret, mPicture);
    }
    void TearDown() override { ::zel::host::clearProperty("vendor.kav.c2.zel.dump"); }

    RgbImage mPicture;
    android::sp<android::GraphicBuffer> mSecret;
};

TEST_P(ProtectedContent, ProtectedRendererConvertsWithoutAnyCpuRead) {
    // Dumps on: the pass tries to read both buffers and must be refused, not crash.
    ::zel::host::setProperty("vendor.kav.c2.zel.dump", "1");
    std::shared_ptr<Renderer> renderer = create(GetParam(), true);
    ASSERT_NE(renderer, nullptr);
    auto target = allocateBuffer(kSize, kSize, 0x1, kProtectedUsage);
    Buffer output = bufferOf(target);
    LogCapture logs;
    ASSERT_EQ(renderer->blit({bufferOf(mSecret)}, output, 1000, APP_INSIDE_DEFAULT), OK)
        << logs.dump();
    EXPECT_TRUE(imagesMatch(gpuView(*target), mPicture, 0));
    // Named, not read: one refused lock for the source, one for the destination.
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "GraphicBuffer lock failed"), 2u) << logs.dump();
    void* address = nullptr;
    EXPECT_NE(target->lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &address), android::OK);

    // Nor can a second pass carry it into memory the CPU can read.
    auto open = allocateBuffer(kSize, kSize, 0x1);
    poisonBuffer(*open);
    const RgbImage poisoned = readRgba(*open);
    Buffer leak = bufferOf(open);
    logs.clear();
    EXPECT_EQ(renderer->blit({output}, leak, 1000, APP_INSIDE_DEFAULT), BAD_VALUE);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "protected src into unprotected dst refused"), 1u);
    EXPECT_TRUE(imagesMatch(readRgba(*open), poisoned, 0));
}

TEST_P(ProtectedContent, UnprotectedRendererCannotImportProtectedBuffers) {
    std::shared_ptr<Renderer> renderer = create(GetParam(), false);
    ASSERT_NE(renderer, nullptr);
    LogCapture logs;
    // Into readable memory: refused before anything is imported.
    auto open = allocateBuffer(kSize, kSize, 0x1);
    poisonBuffer(*open);
    const RgbImage poisoned = readRgba(*open);
    Buffer leak = bufferOf(open);
    EXPECT_EQ(renderer->blit({bufferOf(mSecret)}, leak, 1000, APP_INSIDE_DEFAULT), BAD_VALUE);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "protected src into unprotected dst refused"), 1u);
    EXPECT_TRUE(imagesMatch(readRgba(*open), poisoned, 0));

    // Into secure memory: the driver refuses the source's import (EGL_BAD_ACCESS), the pass
    // fails there, and the secret reaches nothing.
    logs.clear();
    auto target = allocateBuffer(kSize, kSize, 0x1, kProtectedUsage);
    const RgbImage before = gpuView(*target);
    Buffer output = bufferOf(target);
    EXPECT_EQ(renderer->blit({bufferOf(mSecret)}, output, 1000, APP_INSIDE_DEFAULT), RENDER_FAILED);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "failed to create EGLImage: 0x3002"), 1u)
        << logs.dump();
    EXPECT_TRUE(imagesMatch(gpuView(*target), before, 0));

    // The renderer is none the worse for it.
    EXPECT_TRUE(blitsCorrectly(*renderer));
}

INSTANTIATE_TEST_SUITE_P(Types, ProtectedContent,
                         ::testing::Values(Renderer::kTypeGles, Renderer::kTypeGlesThreaded),
                         rendererTypeName);

}  // namespace
}  // namespace zel
}  // namespace kav
