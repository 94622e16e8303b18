// The blit as a codec uses it: per-frame settings change the picture the way the interface
// promises, steady state reuses what it made, fences and the listener tell the truth, bad
// requests get their Status, and nothing outlives the renderer.
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include <GLES3/gl31.h>
#include <gtest/gtest.h>

#include <ui/Fence.h>

#include <zel/Debug.h>
#include <zel/Renderer.h>
#include <zel/host/Gpu.h>
#include <zel/host/Sync.h>

#include "ChooseProgram.h"
#include "Extensions.h"
#include "ExtensionsTestAccess.h"
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
    if (GetParam() == Renderer::kTypeGles) {
        // The pass hands the context back with the default framebuffer bound.
        GLint framebuffer = -1;
        glGetIntegerv(GL_FRAMEBUFFER_BINDING, &framebuffer);
        EXPECT_EQ(framebuffer, 0);
    }

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

    for (const auto& [width, height] : {std::pair{0, 24}, std::pair{40, 0}}) {
        SCOPED_TRACE(testing::Message() << "forced " << width << "x" << height);
        settings->forceWidth = width;
        settings->forceHeight = height;
        dst = destination();
        ASSERT_EQ(blitOnce(source(settings), dst), OK);
        EXPECT_TRUE(imagesMatch(readRgba(*mDestination), mPicture, 0));
    }
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
    const uint64_t buffers = ::zel::host::gpuCounters().buffersAlive;
    for (int frame = 0; frame < 2; ++frame) {
        Buffer dst = destination();
        ASSERT_EQ(blitOnce(source(settings), dst), OK);
        EXPECT_EQ(::zel::host::gpuCounters().draws, frame + 1u);
        EXPECT_TRUE(drawn(
            [](double x, double y, double* s, double* t) {
                *s = 1.0 - x / kSize;
                *t = y / kSize;
                return true;
            },
            mPicture));
        // The mesh's GL buffers live for the pass only, deleted in the renderer's context.
        EXPECT_EQ(mesh.mVertexBuffer, nullptr);
        EXPECT_EQ(::zel::host::gpuCounters().buffersAlive, buffers);
    }

    // The same mesh converting into YUV destinations: the conversion samples the mesh's own
    // texture coordinates too.
    RgbImage mirrored(kSize, kSize);
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            mirrored.at(x, y) = mPicture.at(kSize - 1 - x, y);
        }
    }
    const struct {
        int32_t format;
        ColourSpace space;
    } yuvCases[] = {{0x23, {YuvStandard::Bt601, false}},
                    {0x11, {YuvStandard::Bt709, true}},
                    {0x36, {YuvStandard::Bt2020, false}},
                    {0x32315659, {YuvStandard::Bt709, false}}};
    for (const auto& c : yuvCases) {
        SCOPED_TRACE(testing::Message() << std::hex << "0x" << c.format << " " << nameOf(c.space));
        Buffer dst = destination(c.format);
        setDataspace(*mDestination, dataspaceOf(c.space));
        ASSERT_EQ(blitOnce(source(settings), dst), OK);
        EXPECT_TRUE(planesMatch(readPlanes(*mDestination),
                                encode(mirrored, c.space, bitDepthOf(c.format)), 1, 2));
    }
    // The client drops its settings on a thread of its own, with no context current: nothing
    // of the renderer's may depend on that.
    std::thread([dropped = std::move(settings)]() mutable { dropped.reset(); }).join();
    mSource.clear();
    EXPECT_EQ(::zel::host::gpuCounters().buffersAlive, buffers);
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

    // The CPU scribbles on the destination between frames: the pass's rectangle covers it, so
    // none of the scribble is uploaded and none of it survives.
    poisonBuffer(*mDestination);
    ASSERT_EQ(blitOnce(src, dst), OK);
    const auto scribbled = ::zel::host::gpuCounters();
    EXPECT_EQ(scribbled.uploads, steady.uploads);
    EXPECT_EQ(scribbled.coveredTargets - steady.coveredTargets, 1u);
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
    const int32_t level = ZEL_debug_level;
    ZEL_debug_level = 2;
    LogCapture logs;
    ASSERT_EQ(blitOnce(src, dst), OK);
    ZEL_debug_level = level;
    EXPECT_EQ(::zel::host::gpuCounters().imagesCreated - before.imagesCreated, 2u);
    // Images made for one pass carry no buffer id, which is how a debug log tells them from
    // cached ones (those carry their buffer's).
    EXPECT_EQ(logs.count(ANDROID_LOG_DEBUG, "eglCreateImageKHR, buffer id: 0"), 2u) << logs.dump();
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
    if (GetParam() == Renderer::kTypeGles) {
        // The pass itself refuses a missing texture too, naming the side that lacks it.
        auto* gles = static_cast<GLESRenderer*>(mRenderer.get());
        EXPECT_EQ(gles->convert(src, noTexture, nullptr), BAD_VALUE);
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "dst buffer has no texture"), 2u);
        EXPECT_EQ(gles->convert(noTexture, dst, nullptr), BAD_VALUE);
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "src buffer has no texture"), 2u);
    }
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
    const uint64_t openBefore = ::zel::host::gpuCounters().fenceFdsOpen;
    android::sp<android::Fence> fence;
    ASSERT_EQ(mRenderer->blit(inputs, dst, fence, APP_INSIDE_DEFAULT), OK);
    ASSERT_NE(fence, nullptr);
    ASSERT_TRUE(fence->isValid());
    EXPECT_EQ(fence->wait(1000), android::OK);
    EXPECT_TRUE(imagesMatch(readRgba(*mDestination), mPicture, 0));
    // Exactly the caller's descriptor is open, until the caller drops the fence.
    EXPECT_EQ(::zel::host::gpuCounters().fenceFdsOpen, openBefore + 1);
    fence.clear();
    EXPECT_EQ(::zel::host::gpuCounters().fenceFdsOpen, openBefore);

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

// Every program shape a pass can select (the key of its description: destination RGBA, YUV to
// YUV, RGBA into YUV with each colour matrix; with and without a client mesh and a texture
// transform) draws every pixel of a poisoned destination. A shape whose program cannot link (dual
// source with an alpha texture into YUV, which no pass selects on its own) fails the pass with the
// reason in the log, every time, and leaves the destination untouched.
TEST(BlitShapes, EveryShapeDrawsAndAnUnlinkableOneFailsThePass) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    std::shared_ptr<Renderer> base = Renderer::create(args);
    ASSERT_NE(base, nullptr);
    auto& renderer = static_cast<GLESRenderer&>(*base);
    uint32_t enable = 3;  // cached programs: a broken one must be refused from the cache too
    ASSERT_EQ(renderer.setConfig(Renderer::ENABLE, &enable), OK);

    // No dark pixels: limited or full range, no sample can come out as the YUV poison, whose
    // chroma pair no colour produces anyway.
    RgbImage picture = gradient(kSize, kSize);
    for (Rgb8& p : picture.pixels) {
        p = Rgb8{static_cast<uint8_t>(64 + p.r / 2), static_cast<uint8_t>(64 + p.g / 2),
                 static_cast<uint8_t>(64 + p.b / 2), 255};
    }
    const YuvImage poison = [] {
        auto buffer = allocateBuffer(2, 2, 0x23);
        poisonBuffer(*buffer);
        return readPlanes(*buffer);
    }();
    // Samples (or pixels) of the destination that still hold the poison.
    auto untouched = [&](android::GraphicBuffer& buffer) {
        int count = 0;
        if (!isYuvFormat(buffer.getPixelFormat())) {
            for (const Rgb8& p : readRgba(buffer).pixels) {
                count += p.a != 255;  // the poison's alpha is 0xEF, every draw writes 1.0
            }
            return count;
        }
        const YuvImage planes = readPlanes(buffer);
        for (uint16_t y : planes.y) {
            count += y == poison.y[0];
        }
        for (size_t i = 0; i < planes.cb.size(); ++i) {
            count += planes.cb[i] == poison.cb[0] && planes.cr[i] == poison.cr[0];
        }
        return count;
    };

    const ColourSpace spaces[] = {{YuvStandard::Bt601, false},  {YuvStandard::Bt601, true},
                                  {YuvStandard::Bt709, false},  {YuvStandard::Bt709, true},
                                  {YuvStandard::Bt2020, false}, {YuvStandard::Bt2020, true}};
    std::set<uint32_t> keys;
    for (int32_t srcFormat : {0x1, 0x23}) {
        for (int32_t dstFormat : {0x1, 0x23}) {
            const bool rgbToYuv = srcFormat == 0x1 && dstFormat != 0x1;
            for (size_t space = 0; space < (rgbToYuv ? 6u : 1u); ++space) {
                for (int shape = 0; shape < 4; ++shape) {
                    SCOPED_TRACE(testing::Message()
                                 << std::hex << "0x" << srcFormat << " -> 0x" << dstFormat << " "
                                 << nameOf(spaces[space]) << " shape " << shape);
                    auto settings = std::make_shared<BufferSettings>();
                    if (shape & 1) {
                        settings->mesh = Mesh::buildRect(3, 3);
                    }
                    if (shape & 2) {
                        settings->rotation = 180.0f;  // still covers the whole destination
                    }
                    auto src = allocateBuffer(kSize, kSize, srcFormat);
                    fillSource(*src, picture, {});
                    auto dst = allocateBuffer(kSize, kSize, dstFormat);
                    poisonBuffer(*dst);
                    setDataspace(*dst, dataspaceOf(spaces[space]));
                    Buffer output = bufferOf(dst);
                    LogCapture logs;
                    ASSERT_EQ(
                        renderer.blit({bufferOf(src, settings)}, output, 1000, APP_INSIDE_DEFAULT),
                        OK)
                        << logs.dump();
                    keys.insert(ChooseProgram::computeKey(renderer.getDescription()).mKey);
                    EXPECT_EQ(untouched(*dst), 0);
                }
            }
        }
    }
    // Three types; RGBA into YUV with six colour matrices; with or without each of the two.
    EXPECT_EQ(keys.size(), (1u + 1u + 6u) * 4u);

    // Two passes with the unlinkable shape, the second one with the program from the cache.
    auto src = allocateBuffer(kSize, kSize, 0x1);
    writeRgba(*src, picture);
    auto dst = allocateBuffer(kSize, kSize, 0x23);
    for (int pass = 0; pass < 2; ++pass) {
        SCOPED_TRACE(pass);
        poisonBuffer(*dst);
        Buffer output = bufferOf(dst);
        Description& desc = renderer.getDescription();
        desc.mDualSource = true;
        desc.mHasAlpha = true;
        LogCapture logs;
        android::base::unique_fd fence;
        EXPECT_EQ(renderer.convert(bufferOf(src), output, &fence), RENDER_FAILED);
        glFinish();
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "program did not link, nothing drawn: "), 1u)
            << logs.dump();
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "drawMesh failed"), 1u);
        EXPECT_EQ(untouched(*dst), kSize * kSize + kSize * kSize / 4);
        desc.mHasAlpha = false;
    }
    // The next frame with a shape that links draws again.
    Buffer output = bufferOf(dst);
    EXPECT_EQ(renderer.blit({bufferOf(src)}, output, 1000, APP_INSIDE_DEFAULT), OK);
    EXPECT_EQ(untouched(*dst), 0);
}

TEST(BlitWithoutNativeFences, OnlyTheTimeOutEntryFailsAndTheDriversCodeIsReported) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    const struct {
        const char* profile;
        const char* warning;  // nullptr: the renderer does not even try
    } cases[] = {
        {"no-native-fence-sync", nullptr},
        {"fail-fence", "failed to create EGL native fence sync: 0x3003"},   // EGL_BAD_ALLOC
        {"fail-fence-dup", "failed to dup EGL native fence sync: 0x300c"},  // EGL_BAD_PARAMETER
    };
    for (const auto& c : cases) {
        // The registry keeps flags it once saw set: start as a fresh process would.
        gl::ExtensionsTestAccess::reset();
        ASSERT_TRUE(::zel::host::setDriverProfile(c.profile));
        for (int type : {Renderer::kTypeGles, Renderer::kTypeGlesThreaded}) {
            SCOPED_TRACE(std::string(c.profile) + " type " + std::to_string(type));
            LogCapture logs;
            Renderer::Args args;
            args.rendererType = type;
            std::shared_ptr<Renderer> renderer = Renderer::create(args);
            ASSERT_NE(renderer, nullptr);
            EXPECT_EQ(gl::Extensions::getInstance().hasNativeFenceSync(), c.warning != nullptr);
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
            EXPECT_EQ(logs.count(ANDROID_LOG_WARN, "native fence sync"),
                      c.warning != nullptr ? 2u : 0u)
                << logs.dump();
            if (c.warning != nullptr) {
                EXPECT_EQ(logs.count(ANDROID_LOG_WARN, c.warning), 2u) << logs.dump();
            }
        }
    }
    ::zel::host::resetDriverProfile();
}

TEST(BlitWithoutImages, ReportsRenderFailedAndWritesNothing) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    // A source made per pass (CPU usage) reaches the draw even when no image can be made: the
    // destination cannot be a render target, so the pass fails instead of drawing nowhere.
    ASSERT_TRUE(::zel::host::setDriverProfile("fail-image"));
    {
        Renderer::Args args;
        args.rendererType = Renderer::kTypeGles;
        std::shared_ptr<Renderer> renderer = Renderer::create(args);
        ASSERT_NE(renderer, nullptr);
        auto src = allocateBuffer(kSize, kSize, 0x1, kCpuUsage);
        writeRgba(*src, gradient(kSize, kSize));
        auto dst = allocateBuffer(kSize, kSize, 0x1);
        poisonBuffer(*dst);
        const Rgb8 poison = readRgba(*dst).at(5, 5);
        Buffer output = bufferOf(dst);
        EXPECT_EQ(renderer->blit({bufferOf(src)}, output, 1000, APP_INSIDE_DEFAULT), RENDER_FAILED);
        EXPECT_EQ(readRgba(*dst).at(5, 5).g, poison.g);
    }
    ::zel::host::resetDriverProfile();
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
    // The GPU's completion thread holds a descriptor of each fence until it has signalled it.
    ::zel::host::waitGpuIdle();
    const auto after = ::zel::host::gpuCounters();
    EXPECT_EQ(after.imagesAlive, before.imagesAlive);
    EXPECT_EQ(after.fenceFdsOpen, before.fenceFdsOpen);
    EXPECT_EQ(after.contextsAlive, before.contextsAlive);
    EXPECT_EQ(openFdCount(), fdsBefore);
    EXPECT_EQ(::zel::host::fdsanErrorCount(), 0u);
}

// A GPU still busy when the call returns: every fence the renderer hands back is pending for a
// while, so the paths that wait on it, time out or pass it on meet a fence that is not signalled.
class DelayedFences : public Blit {
protected:
    static constexpr int kDelayMs = 100;

    void SetUp() override {
        ASSERT_TRUE(::zel::host::setDriverProfile("fence-delay=" + std::to_string(kDelayMs)));
        Blit::SetUp();
    }
    void TearDown() override {
        mRenderer.reset();
        ::zel::host::resetDriverProfile();
    }

    bool pixelsLanded() { return imagesMatch(readRgba(*mDestination), mPicture, 0); }
};

TEST_P(DelayedFences, EveryEntryPointHandsBackAFenceThatSignalsWithThePixels) {
    const std::vector<Buffer> inputs{source()};

    // A time-out shorter than the GPU's work: TIMED_OUT, and the frame still lands.
    Buffer dst = destination();
    EXPECT_EQ(mRenderer->blit(inputs, dst, 1, APP_INSIDE_DEFAULT), TIMED_OUT);
    ::zel::host::waitGpuIdle();
    EXPECT_TRUE(pixelsLanded());
    // Milliseconds, not seconds: a time-out longer than the work succeeds.
    dst = destination();
    EXPECT_EQ(mRenderer->blit(inputs, dst, 10 * kDelayMs, APP_INSIDE_DEFAULT), OK);
    EXPECT_TRUE(pixelsLanded());

    // The caller's Fence is handed back pending and signals only with the pixels in memory.
    dst = destination();
    android::sp<android::Fence> fence;
    ASSERT_EQ(mRenderer->blit(inputs, dst, fence, APP_INSIDE_DEFAULT), OK);
    ASSERT_NE(fence, nullptr);
    EXPECT_EQ(fence->getStatus(), android::Fence::Status::Unsignaled);
    EXPECT_EQ(fence->wait(-1), android::OK);
    EXPECT_TRUE(pixelsLanded());

    // The listener is called once, with the destination already holding the pending fence.
    class Checker : public Listener {
    public:
        void onBlitDone(Buffer& output, void* data) override {
            const android::sp<android::Fence> fence = output.texture->getFence();
            pendingWhenCalled =
                fence != nullptr && fence->getStatus() == android::Fence::Status::Unsignaled;
            Listener::onBlitDone(output, data);
        }
        std::atomic<bool> pendingWhenCalled{false};
    };
    android::sp<Checker> listener = new Checker();
    ASSERT_EQ(mRenderer->setListener(listener), OK);
    Buffer out = destination();
    ASSERT_EQ(mRenderer->asyncBlit(inputs, out, nullptr, APP_INSIDE_DEFAULT), OK);
    listener->waitFor(1);
    EXPECT_TRUE(listener->pendingWhenCalled);
    ASSERT_NE(out.texture->getFence(), nullptr);
    EXPECT_EQ(out.texture->getFence()->wait(-1), android::OK);
    EXPECT_TRUE(pixelsLanded());
    // The next frame that reads this buffer waits for its fence first.
    Buffer next = out;
    mSource = mDestination;
    Buffer copy = destination();
    EXPECT_EQ(blitOnce(next, copy), OK);
    EXPECT_TRUE(pixelsLanded());
    EXPECT_EQ(listener->mDone, 1);
}

TEST_P(DelayedFences, DestructionWithFencesPendingNeitherHangsNorLeaks) {
    mRenderer.reset();
    makeRenderer().reset();  // the driver keeps process-wide state after its first context
    const auto before = ::zel::host::gpuCounters();
    const size_t fdsBefore = openFdCount();
    {
        mRenderer = makeRenderer();
        android::sp<Listener> listener = new Listener();
        ASSERT_EQ(mRenderer->setListener(listener), OK);
        const std::vector<Buffer> inputs{source()};
        // The proxy keeps references to the outputs until it has run: they must not move.
        Buffer outputs[3];
        for (Buffer& output : outputs) {
            output = destination();
            ASSERT_EQ(mRenderer->asyncBlit(inputs, output, nullptr, APP_INSIDE_DEFAULT), OK);
        }
        // Submitted (the proxy drops work still queued when it goes), not complete.
        listener->waitFor(3);
        ASSERT_EQ(listener->mDone, 3);
        const auto start = std::chrono::steady_clock::now();
        mRenderer.reset();
        // Teardown does not wait for the GPU.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kDelayMs));
        EXPECT_EQ(outputs[2].texture->getFence()->wait(-1), android::OK);
        EXPECT_TRUE(pixelsLanded());
    }
    mSource.clear();
    mDestination.clear();
    ::zel::host::waitGpuIdle();
    const auto after = ::zel::host::gpuCounters();
    EXPECT_EQ(after.imagesAlive, before.imagesAlive);
    EXPECT_EQ(after.fenceFdsOpen, before.fenceFdsOpen);
    EXPECT_EQ(openFdCount(), fdsBefore);
    EXPECT_EQ(::zel::host::fdsanErrorCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Types, DelayedFences,
                         ::testing::Values(Renderer::kTypeGles, Renderer::kTypeGlesThreaded),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return info.param == Renderer::kTypeGles ? "Direct" : "Threaded";
                         });

INSTANTIATE_TEST_SUITE_P(Types, Blit,
                         ::testing::Values(Renderer::kTypeGles, Renderer::kTypeGlesThreaded),
                         rendererTypeName);

}  // namespace
}  // namespace zel
}  // namespace kav
