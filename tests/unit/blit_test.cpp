// The blit as a codec uses it: per-frame settings change the picture the way the interface
// promises, steady state reuses what it made, fences and the listener tell the truth, bad
// requests get their Status, and nothing outlives the renderer.
#include <dirent.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include <ui/Fence.h>

#include <zel/Renderer.h>
#include <zel/host/Gpu.h>
#include <zel/host/Sync.h>

#include "Extensions.h"
#include "Frames.h"
#include "GLESRenderer.h"
#include "LogCapture.h"
#include "Mesh.h"
#include "ReferenceConverter.h"

namespace kav {
namespace zel {
namespace {

using namespace ::zel::test;

constexpr int kSize = 64;

class Blit : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        if (!::zel::host::gpuAvailable()) {
            GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
        }
        mRenderer = makeRenderer();
        ASSERT_NE(mRenderer, nullptr);
    }

    std::shared_ptr<Renderer> makeRenderer() {
        Renderer::Args args;
        args.rendererType = GetParam();
        return Renderer::create(args);
    }

    // An RGBA source holding a picture with no symmetry, so that flips and turns show.
    Buffer source(std::shared_ptr<BufferSettings> settings = nullptr, uint64_t usage = kGpuUsage) {
        mPicture = gradient(kSize, kSize);
        mPicture.at(3, 5) = Rgb8{255, 255, 255};
        mSource = allocateBuffer(kSize, kSize, 0x1, usage);
        writeRgba(*mSource, mPicture);
        return bufferOf(mSource, std::move(settings));
    }

    Buffer destination(int32_t format = 0x1) {
        mDestination = allocateBuffer(kSize, kSize, format);
        poisonBuffer(*mDestination);
        if (!isYuvFormat(format)) {
            mPoison = readRgba(*mDestination).at(0, 0);
        }
        return bufferOf(mDestination);
    }

    Status blitOnce(const Buffer& src, Buffer& dst) {
        return mRenderer->blit({src}, dst, 1000, APP_INSIDE_DEFAULT);
    }

    testing::AssertionResult drawn(const SampleMap& map, const RgbImage& source) {
        return drawMatches(readRgba(*mDestination), source, map, mPoison, 0);
    }

    std::shared_ptr<Renderer> mRenderer;
    RgbImage mPicture;
    android::sp<android::GraphicBuffer> mSource;
    android::sp<android::GraphicBuffer> mDestination;
    Rgb8 mPoison;
};

// Pixel centre to clip space, for a destination of kSize x kSize.
double clip(double pixel) {
    return pixel / kSize * 2.0 - 1.0;
}

bool inside(double px, double py) {
    return std::fabs(px) <= 1.0 && std::fabs(py) <= 1.0;
}

TEST_P(Blit, PlainCopyAndForcedSize) {
    Buffer dst = destination();
    ASSERT_EQ(blitOnce(source(), dst), OK);
    EXPECT_TRUE(drawn(
        [](double x, double y, double* s, double* t) {
            *s = x / kSize;
            *t = y / kSize;
            return true;
        },
        mPicture));

    // A forced size renders the whole picture into that corner of the destination; one forced
    // dimension alone is ignored.
    auto settings = std::make_shared<BufferSettings>();
    settings->forceWidth = 40;
    settings->forceHeight = 24;
    dst = destination();
    ASSERT_EQ(blitOnce(source(settings), dst), OK);
    EXPECT_TRUE(drawn(
        [](double x, double y, double* s, double* t) {
            *s = x / 40;
            *t = y / 24;
            return x <= 40 && y <= 24;
        },
        mPicture));

    settings->forceWidth = 0;
    dst = destination();
    ASSERT_EQ(blitOnce(source(settings), dst), OK);
    EXPECT_TRUE(imagesMatch(readRgba(*mDestination), mPicture, 0));
}

TEST_P(Blit, CropSamplesOnlyTheCroppedPart) {
    auto settings = std::make_shared<BufferSettings>();
    settings->crop = android::Rect(8, 16, 40, 48);
    Buffer dst = destination();
    ASSERT_EQ(blitOnce(source(settings), dst), OK);
    RgbImage cropped(32, 32);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 32; ++x) {
            cropped.at(x, y) = mPicture.at(8 + x, 16 + y);
        }
    }
    EXPECT_TRUE(drawn(
        [](double x, double y, double* s, double* t) {
            *s = x / kSize;
            *t = y / kSize;
            return true;
        },
        cropped));
}

TEST_P(Blit, RotationTurnsThePictureAboutTheCentre) {
    for (float degrees : {90.0f, 180.0f, 270.0f}) {
        SCOPED_TRACE(degrees);
        auto settings = std::make_shared<BufferSettings>();
        settings->rotation = degrees;
        Buffer dst = destination();
        ASSERT_EQ(blitOnce(source(settings), dst), OK);
        const double angle = degrees * 3.1415927 / 180.0;
        // Positions are turned by the angle; a pixel shows the texel whose position lands there.
        EXPECT_TRUE(drawn(
            [angle](double x, double y, double* s, double* t) {
                const double cx = clip(x), cy = clip(y);
                const double px = std::cos(angle) * cx + std::sin(angle) * cy;
                const double py = -std::sin(angle) * cx + std::cos(angle) * cy;
                *s = (px + 1) / 2;
                *t = (py + 1) / 2;
                return inside(px, py);
            },
            mPicture));
    }
}

TEST_P(Blit, RegionScalesAndMovesThePicture) {
    auto settings = std::make_shared<BufferSettings>();
    settings->region = android::Rect(16, 8, 48, 40);
    Buffer dst = destination();
    ASSERT_EQ(blitOnce(source(settings), dst), OK);
    // Translation (left/W, top/H), scale ((right-left)/W, (bottom-top)/W): the vertical scale
    // goes by the width too.
    const double tx = 16.0 / kSize, ty = 8.0 / kSize, sx = 32.0 / kSize, sy = 32.0 / kSize;
    EXPECT_TRUE(drawn(
        [=](double x, double y, double* s, double* t) {
            const double px = (clip(x) - tx) / sx, py = (clip(y) - ty) / sy;
            *s = (px + 1) / 2;
            *t = (py + 1) / 2;
            return inside(px, py);
        },
        mPicture));
}

TEST_P(Blit, ClientGridMeshDrawsWithItsOwnTextureCoordinates) {
    // A 3x3 grid whose texture coordinates are mirrored left to right.
    auto settings = std::make_shared<BufferSettings>();
    settings->mesh = Mesh::buildRect(3, 3);
    Mesh& mesh = *settings->mesh;
    for (size_t v = 0; v < mesh.mVertexCount; ++v) {
        float& s = mesh.mVertices[v * mesh.mStride + mesh.mVertexSize];
        s = 1.0f - s;
    }
    ::zel::host::resetGpuCounters();
    Buffer dst = destination();
    ASSERT_EQ(blitOnce(source(settings), dst), OK);
    EXPECT_EQ(::zel::host::gpuCounters().draws, 1u);
    EXPECT_NE(mesh.mVertexBuffer, nullptr);
    EXPECT_TRUE(drawn(
        [](double x, double y, double* s, double* t) {
            *s = 1.0 - x / kSize;
            *t = y / kSize;
            return true;
        },
        mPicture));
}

TEST_P(Blit, SteadyStateReusesImagesProgramsAndMeshes) {
    uint32_t enable = 3;  // mesh and program caches on
    ASSERT_EQ(mRenderer->setConfig(Renderer::ENABLE, &enable), OK);
    const Buffer src = source();
    Buffer dst = destination();
    ASSERT_EQ(blitOnce(src, dst), OK);
    const auto warm = ::zel::host::gpuCounters();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(blitOnce(src, dst), OK);
    }
    const auto steady = ::zel::host::gpuCounters();
    // Only the destination image is made per frame; no shader is built again; one draw a frame.
    EXPECT_EQ(steady.imagesCreated - warm.imagesCreated, 3u);
    EXPECT_EQ(steady.shadersCompiled, warm.shadersCompiled);
    EXPECT_EQ(steady.programsLinked, warm.programsLinked);
    EXPECT_EQ(steady.draws - warm.draws, 3u);
    EXPECT_TRUE(imagesMatch(readRgba(*mDestination), mPicture, 0));

    if (GetParam() == Renderer::kTypeGles) {
        auto* gles = static_cast<GLESRenderer*>(mRenderer.get());
        EXPECT_EQ(gles->cachedImageIds(0).size(), 1u);
        EXPECT_EQ(gles->getMeshCacheSize(), 1u);
        enable = 2;  // mesh cache off: the next frame empties it
        ASSERT_EQ(mRenderer->setConfig(Renderer::ENABLE, &enable), OK);
        ASSERT_EQ(blitOnce(src, dst), OK);
        EXPECT_EQ(gles->getMeshCacheSize(), 0u);
    }
}

TEST_P(Blit, SourceWithCpuUsageIsNeverCached) {
    const Buffer src = source(nullptr, kCpuUsage);
    Buffer dst = destination();
    ASSERT_EQ(blitOnce(src, dst), OK);
    const auto before = ::zel::host::gpuCounters();
    ASSERT_EQ(blitOnce(src, dst), OK);
    EXPECT_EQ(::zel::host::gpuCounters().imagesCreated - before.imagesCreated, 2u);
    EXPECT_TRUE(imagesMatch(readRgba(*mDestination), mPicture, 0));
    if (GetParam() == Renderer::kTypeGles) {
        EXPECT_TRUE(static_cast<GLESRenderer*>(mRenderer.get())->cachedImageIds(0).empty());
    }
}

TEST_P(Blit, RequestsItDoesNotServeGetTheirStatus) {
    LogCapture logs;
    const Buffer src = source();
    Buffer dst = destination();
    EXPECT_EQ(mRenderer->blit({src, src, src}, dst, 1000, APP_INSIDE_DEFAULT), UNSUPPORTED_FORMAT);
    EXPECT_EQ(mRenderer->blit({src, src}, dst, 1000, APP_INSIDE_DEFAULT), UNSUPPORTED_FORMAT);
    EXPECT_EQ(mRenderer->blit({src}, dst, 1000, static_cast<AppInside>(1)), UNSUPPORTED_FORMAT);
    // No source: nothing to draw, nothing to wait on, and so no fence either.
    android::sp<android::Fence> fence;
    EXPECT_EQ(mRenderer->blit({}, dst, fence, APP_INSIDE_DEFAULT), OK);
    EXPECT_EQ(mRenderer->blit({}, dst, 1000, APP_INSIDE_DEFAULT), TIMED_OUT);

    auto rgbx = allocateBuffer(kSize, kSize, 2);
    EXPECT_EQ(mRenderer->blit({bufferOf(rgbx)}, dst, 1000, APP_INSIDE_DEFAULT), UNSUPPORTED_FORMAT);
    Buffer rgbxOut = bufferOf(rgbx);
    EXPECT_EQ(mRenderer->blit({src}, rgbxOut, 1000, APP_INSIDE_DEFAULT), UNSUPPORTED_FORMAT);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "src supportFormat not support"), 1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "dst supportFormat not support"), 1u);

    // A texture that never got a buffer (size 0), or none at all, on either side is refused
    // before anything touches it.
    const Buffer empty{std::make_shared<ExternalTexture>(0, 0, 0x1, 0, nullptr, 0), nullptr};
    Buffer emptyOut = empty;
    Buffer noTexture;
    EXPECT_EQ(mRenderer->blit({empty}, dst, 1000, APP_INSIDE_DEFAULT), BAD_VALUE);
    EXPECT_EQ(mRenderer->blit({empty}, dst, fence, APP_INSIDE_DEFAULT), BAD_VALUE);
    EXPECT_EQ(mRenderer->blit({Buffer{}}, dst, 1000, APP_INSIDE_DEFAULT), BAD_VALUE);
    EXPECT_EQ(mRenderer->blit({src}, emptyOut, 1000, APP_INSIDE_DEFAULT), BAD_VALUE);
    EXPECT_EQ(mRenderer->blit({src}, noTexture, fence, APP_INSIDE_DEFAULT), BAD_VALUE);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "src texture has no graphic buffer"), 2u);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "src buffer has no texture"), 1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "dst texture has no graphic buffer"), 1u);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "dst buffer has no texture"), 1u);
    // The destination was never written.
    EXPECT_EQ(readRgba(*mDestination).at(7, 7).r, mPoison.r);
}

// Records the outcome of asynchronous blits; the threaded renderer reports from its worker.
class Listener : public Renderer::Listener {
public:
    void onBlitDone(Buffer& output, void* data) override {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mDone;
        mOutput = output.texture.get();
        mData = data;
        mCalled.notify_all();
    }
    void onBlitError(Status status, void* data) override {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mErrors;
        mStatus = status;
        mData = data;
        mCalled.notify_all();
    }
    // Waits until `calls` outcomes in all were reported.
    void waitFor(int calls) {
        std::unique_lock<std::mutex> lock(mMutex);
        mCalled.wait_for(lock, std::chrono::seconds(10), [&] { return mDone + mErrors >= calls; });
    }
    std::mutex mMutex;
    std::condition_variable mCalled;
    int mDone = 0;
    int mErrors = 0;
    Status mStatus = OK;
    const ExternalTexture* mOutput = nullptr;
    void* mData = nullptr;
};

TEST_P(Blit, FencesSignalOnlyWithThePixelsInMemory) {
    const std::vector<Buffer> inputs{source()};
    Buffer dst = destination();
    android::sp<android::Fence> fence;
    ASSERT_EQ(mRenderer->blit(inputs, dst, fence, APP_INSIDE_DEFAULT), OK);
    ASSERT_NE(fence, nullptr);
    ASSERT_TRUE(fence->isValid());
    EXPECT_EQ(fence->wait(1000), android::OK);
    EXPECT_TRUE(imagesMatch(readRgba(*mDestination), mPicture, 0));
    fence.clear();

    // asyncBlit hands the fence to the destination and tells the listener, with the caller's
    // data. The inputs and output must outlive the call: the threaded proxy reads them later.
    android::sp<Listener> listener = new Listener();
    ASSERT_EQ(mRenderer->setListener(listener), OK);
    int token = 0;
    Buffer out = destination();
    ASSERT_EQ(mRenderer->asyncBlit(inputs, out, &token, APP_INSIDE_DEFAULT), OK);
    listener->waitFor(1);
    EXPECT_EQ(listener->mDone, 1);
    EXPECT_EQ(listener->mOutput, out.texture.get());
    EXPECT_EQ(listener->mData, &token);
    ASSERT_NE(out.texture->getFence(), nullptr);
    EXPECT_EQ(out.texture->getFence()->wait(1000), android::OK);
    EXPECT_TRUE(imagesMatch(readRgba(*mDestination), mPicture, 0));

    // A failing pass reports the error and leaves the destination's fence alone.
    const android::sp<android::Fence> previous = out.texture->getFence();
    const std::vector<Buffer> bad{bufferOf(allocateBuffer(kSize, kSize, 2))};
    const Status status = mRenderer->asyncBlit(bad, out, &listener, APP_INSIDE_DEFAULT);
    // The proxy answers before the pass has run.
    EXPECT_EQ(status, GetParam() == Renderer::kTypeGles ? UNSUPPORTED_FORMAT : OK);
    listener->waitFor(2);
    EXPECT_EQ(listener->mErrors, 1);
    EXPECT_EQ(listener->mStatus, UNSUPPORTED_FORMAT);
    EXPECT_EQ(listener->mData, &listener);
    EXPECT_EQ(out.texture->getFence(), previous);

    // So does an output without a texture, or a source that never got a buffer.
    Buffer noTexture;
    const std::vector<Buffer> empty{
        {std::make_shared<ExternalTexture>(0, 0, 0x1, 0, nullptr, 0), nullptr}};
    EXPECT_EQ(mRenderer->asyncBlit(inputs, noTexture, &token, APP_INSIDE_DEFAULT),
              GetParam() == Renderer::kTypeGles ? BAD_VALUE : OK);
    EXPECT_EQ(mRenderer->asyncBlit(empty, out, &token, APP_INSIDE_DEFAULT),
              GetParam() == Renderer::kTypeGles ? BAD_VALUE : OK);
    listener->waitFor(4);
    EXPECT_EQ(listener->mErrors, 3);
    EXPECT_EQ(listener->mStatus, BAD_VALUE);
    EXPECT_EQ(listener->mData, &token);
    EXPECT_EQ(out.texture->getFence(), previous);
}

TEST_P(Blit, SourceFenceIsWaitedOnBeforeDrawing) {
    Buffer src = source();
    const int fd = ::zel::host::createFenceFd(false);
    ASSERT_GE(fd, 0);
    src.texture->setFence(new android::Fence(fd));
    std::atomic<bool> signalled{false};
    std::thread producer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        signalled = true;
        ::zel::host::signalFenceFd(fd);
    });
    Buffer dst = destination();
    EXPECT_EQ(blitOnce(src, dst), OK);
    EXPECT_TRUE(signalled);
    producer.join();
}

TEST(BlitWithoutNativeFences, OnlyTheTimeOutEntryFails) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    // Before any renderer of this process: the extension registry keeps flags it once saw set.
    ASSERT_TRUE(::zel::host::setDriverProfile("no-native-fence-sync"));
    for (int type : {Renderer::kTypeGles, Renderer::kTypeGlesThreaded}) {
        SCOPED_TRACE(type);
        Renderer::Args args;
        args.rendererType = type;
        std::shared_ptr<Renderer> renderer = Renderer::create(args);
        ASSERT_NE(renderer, nullptr);
        ASSERT_FALSE(gl::Extensions::getInstance().hasNativeFenceSync());
        auto srcBuffer = allocateBuffer(kSize, kSize, 0x1);
        writeRgba(*srcBuffer, gradient(kSize, kSize));
        const Buffer src = bufferOf(srcBuffer);
        Buffer dst = bufferOf(allocateBuffer(kSize, kSize, 0x1));
        // The draw goes through, but there is no fence to wait on.
        EXPECT_EQ(renderer->blit({src}, dst, 1000, APP_INSIDE_DEFAULT), TIMED_OUT);
        android::sp<android::Fence> fence;
        EXPECT_EQ(renderer->blit({src}, dst, fence, APP_INSIDE_DEFAULT), OK);
        ASSERT_NE(fence, nullptr);
        EXPECT_FALSE(fence->isValid());
    }
    ::zel::host::resetDriverProfile();
}

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

TEST_P(Blit, NothingOutlivesTheRenderer) {
    mRenderer.reset();
    makeRenderer().reset();  // the driver keeps process-wide state after its first context
    const auto before = ::zel::host::gpuCounters();
    const size_t fdsBefore = openFdCount();
    {
        mRenderer = makeRenderer();
        uint32_t enable = 3;
        mRenderer->setConfig(Renderer::ENABLE, &enable);
        const Buffer src = source();
        Buffer dst = destination(0x23);
        ASSERT_EQ(blitOnce(src, dst), OK);
        android::sp<android::Fence> fence;
        ASSERT_EQ(mRenderer->blit({src}, dst, fence, APP_INSIDE_DEFAULT), OK);
        // The threaded proxy reads the inputs after it returns: they must outlive the work.
        const std::vector<Buffer> inputs{src};
        ASSERT_EQ(mRenderer->asyncBlit(inputs, dst, nullptr, APP_INSIDE_DEFAULT), OK);
        auto settings = std::make_shared<BufferSettings>();
        settings->mesh = Mesh::buildRect(2, 2);
        ASSERT_EQ(blitOnce(source(settings, kCpuUsage), dst), OK);
        mRenderer.reset();
    }
    mSource.clear();
    mDestination.clear();
    const auto after = ::zel::host::gpuCounters();
    EXPECT_EQ(after.imagesAlive, before.imagesAlive);
    EXPECT_EQ(after.fenceFdsOpen, before.fenceFdsOpen);
    EXPECT_EQ(after.contextsAlive, before.contextsAlive);
    EXPECT_EQ(openFdCount(), fdsBefore);
    EXPECT_EQ(::zel::host::fdsanErrorCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Types, Blit,
                         ::testing::Values(Renderer::kTypeGles, Renderer::kTypeGlesThreaded),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return info.param == Renderer::kTypeGles ? "Direct" : "Threaded";
                         });

}  // namespace
}  // namespace zel
}  // namespace kav
