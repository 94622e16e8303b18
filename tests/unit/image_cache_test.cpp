// The GLES renderer's source and destination image caches, and the cache manager in front of
// them: its synchronous operations and its (dormant) queue and worker.
#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>

#include <android/log.h>
#include <hardware/gralloc.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>

#include <zel/ExternalTexture.h>
#include <zel/host/Gpu.h>
#include <zel/host/Properties.h>

#include "GLESRenderer.h"
#include "Image.h"
#include "Frames.h"
#include "ImageCacheManager.h"
#include "LogCapture.h"
#include "ReferenceConverter.h"

namespace kav {
namespace zel {
namespace {

constexpr long kSource = 0;
constexpr long kDestination = 1;
const android::Rect kNoCrop = android::Rect::INVALID_RECT;

uint64_t imagesAlive() {
    return ::zel::host::gpuCounters().imagesAlive;
}

std::shared_ptr<GLESRenderer> makeRenderer(bool protectedContext = false) {
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    args.enableProtectedContext = protectedContext;
    return GLESRenderer::create(args);
}

Buffer makeBuffer(uint32_t usage = GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER) {
    return Buffer{std::make_shared<ExternalTexture>(new android::GraphicBuffer(
                      8, 4, HAL_PIXEL_FORMAT_RGBA_8888, 1, usage, "cache-test")),
                  nullptr};
}

class ImageCacheTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
        // Default debug switches (no dumping, whatever an earlier case set).
        ::zel::host::clearProperties();
        mRenderer = makeRenderer();
        ASSERT_NE(mRenderer, nullptr);
        mAlive = imagesAlive();
    }
    std::shared_ptr<GLESRenderer> mRenderer;
    Buffer mBuffer = makeBuffer();
    uint64_t mAlive = 0;
};

TEST_F(ImageCacheTest, DuplicateIdKeepsTheFirstImageAndDropsTheNewOne) {
    EXPECT_EQ(mRenderer->cacheNewImage(7, mBuffer, kNoCrop, kSource), OK);
    std::shared_ptr<Image> cached = mRenderer->findCachedImage(7, kSource);
    ASSERT_NE(cached, nullptr);
    EXPECT_EQ(cached->getBufferId(), 7u);
    EXPECT_NE(cached->getEGLImage(), EGL_NO_IMAGE_KHR);

    const uint64_t created = ::zel::host::gpuCounters().imagesCreated;
    EXPECT_EQ(mRenderer->cacheNewImage(7, makeBuffer(), kNoCrop, kSource), OK);
    EXPECT_EQ(::zel::host::gpuCounters().imagesCreated, created + 1);
    EXPECT_EQ(imagesAlive(), mAlive + 1);
    EXPECT_EQ(mRenderer->findCachedImage(7, kSource), cached);
    EXPECT_EQ(mRenderer->findCachedImage(7, kDestination), nullptr);
}

std::vector<unsigned long> idRange(unsigned long first, unsigned long last) {
    std::vector<unsigned long> ids;
    for (unsigned long id = first; id < last; ++id) {
        ids.push_back(id);
    }
    return ids;
}

TEST_F(ImageCacheTest, EachCacheEvictsItsLeastRecentlyUsedEntry) {
    for (long type : {kSource, kDestination}) {
        SCOPED_TRACE(type);
        const uint64_t alive = imagesAlive();
        for (unsigned long id = 1000; id < 1350; ++id) {
            ASSERT_EQ(mRenderer->cacheNewImage(id, mBuffer, kNoCrop, type), OK);
        }
        EXPECT_EQ(mRenderer->cachedImageIds(type), idRange(1000, 1350));
        // Asking again for a cached id counts as a use: 1001 is now the oldest.
        ASSERT_EQ(mRenderer->cacheNewImage(1000, mBuffer, kNoCrop, type), OK);
        std::shared_ptr<Image> held = mRenderer->findCachedImage(1001, type);
        ASSERT_NE(held, nullptr);
        for (unsigned long id = 1350; id < 1401; ++id) {
            ASSERT_EQ(mRenderer->cacheNewImage(id, mBuffer, kNoCrop, type), OK);
            ASSERT_NE(mRenderer->findCachedImage(id, type), nullptr) << id;
            ASSERT_EQ(mRenderer->cachedImageIds(type).size(), 350u);
        }
        std::vector<unsigned long> expected = idRange(1052, 1350);
        expected.push_back(1000);
        for (unsigned long id : idRange(1350, 1401)) {
            expected.push_back(id);
        }
        EXPECT_EQ(mRenderer->cachedImageIds(type), expected);
        EXPECT_EQ(mRenderer->findCachedImage(1001, type), nullptr);
        // An evicted image lives on while someone holds it.
        EXPECT_EQ(imagesAlive(), alive + 351);
        held.reset();
        EXPECT_EQ(imagesAlive(), alive + 350);
    }
    EXPECT_EQ(mRenderer->cachedImageIds(kSource).size(), 350u);
}

// A distinct solid colour per source index.
::zel::test::Rgb8 colourOf(int index) {
    return {static_cast<uint8_t>(index), static_cast<uint8_t>(40 + index / 256 * 100),
            static_cast<uint8_t>(255 - index % 256), 255};
}

TEST_F(ImageCacheTest, BlitsOfManySourcesAlwaysFindTheirCachedImage) {
    using namespace ::zel::test;
    constexpr int kSide = 16;
    constexpr int kSources = 400;
    std::vector<android::sp<android::GraphicBuffer>> sources;
    for (int i = 0; i < kSources; ++i) {
        sources.push_back(allocateBuffer(kSide, kSide, HAL_PIXEL_FORMAT_RGBA_8888));
        RgbImage solid(kSide, kSide);
        std::fill(solid.pixels.begin(), solid.pixels.end(), colourOf(i));
        writeRgba(*sources.back(), solid);
    }
    android::sp<android::GraphicBuffer> destination =
        allocateBuffer(kSide, kSide, HAL_PIXEL_FORMAT_RGBA_8888);
    Buffer output = bufferOf(destination);
    auto blitSource = [&](int i) -> testing::AssertionResult {
        poisonBuffer(*destination);
        const Status status =
            mRenderer->blit({bufferOf(sources[i])}, output, 1000, APP_INSIDE_DEFAULT);
        if (status != OK) {
            return testing::AssertionFailure() << "source " << i << ": status " << status;
        }
        RgbImage expected(kSide, kSide);
        std::fill(expected.pixels.begin(), expected.pixels.end(), colourOf(i));
        return imagesMatch(readRgba(*destination), expected, 0) << " source " << i;
    };

    ::zel::test::LogCapture logs;
    for (int i = 0; i < kSources; ++i) {
        ASSERT_TRUE(blitSource(i));
        // Source 0 is used every hundred frames, source 1 only once.
        if (i % 100 == 99) {
            ASSERT_TRUE(blitSource(0));
        }
        ASSERT_LE(mRenderer->cachedImageIds(kSource).size(), 350u);
        ASSERT_NE(mRenderer->findCachedImage(sources[0]->getId(), kSource), nullptr) << i;
    }
    EXPECT_EQ(mRenderer->findCachedImage(sources[1]->getId(), kSource), nullptr);
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(blitSource(i));
    }
    // The last fifty are still cached: blitting them makes only the destination images.
    const uint64_t created = ::zel::host::gpuCounters().imagesCreated;
    for (int i = kSources - 50; i < kSources; ++i) {
        ASSERT_TRUE(blitSource(i));
    }
    EXPECT_EQ(::zel::host::gpuCounters().imagesCreated - created, 50u);
    EXPECT_EQ(mRenderer->cachedImageIds(kSource).size(), 350u);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
}

TEST_F(ImageCacheTest, ReleaseAndDestructionLeaveNoImageAlive) {
    ::zel::test::LogCapture logs;
    EXPECT_EQ(mRenderer->releaseCache(), OK);
    // Any cache type but 0 is the destination cache.
    for (long type : {0, 1, 2}) {
        EXPECT_EQ(mRenderer->cacheNewImage(10 + type, mBuffer, kNoCrop, type), OK);
    }
    EXPECT_EQ(mRenderer->cachedImageIds(kSource), std::vector<unsigned long>{10});
    EXPECT_EQ(mRenderer->cachedImageIds(kDestination).size(), 2u);
    EXPECT_EQ(mRenderer->releaseCache(), OK);
    EXPECT_EQ(imagesAlive(), mAlive);
    EXPECT_TRUE(mRenderer->cachedImageIds(kSource).empty());
    EXPECT_TRUE(mRenderer->cachedImageIds(kDestination).empty());
    // Released ids are gone from the tables too: cached again, they get a new image instead of
    // finding the released entry in their place.
    for (long type : {kSource, kDestination}) {
        EXPECT_EQ(mRenderer->findCachedImage(10 + type, type), nullptr);
        EXPECT_EQ(mRenderer->cacheNewImage(10 + type, mBuffer, kNoCrop, type), OK);
        EXPECT_NE(mRenderer->findCachedImage(10 + type, type), nullptr) << "cache " << type;
    }
    EXPECT_EQ(mRenderer->releaseCache(), OK);

    // What is cached when the renderer goes is released before its context.
    EXPECT_EQ(mRenderer->cacheNewImage(4, mBuffer, kNoCrop, kSource), OK);
    EXPECT_EQ(mRenderer->cacheNewImage(5, mBuffer, kNoCrop, kDestination), OK);
    logs.clear();
    mRenderer.reset();
    EXPECT_EQ(imagesAlive(), mAlive);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
}

TEST_F(ImageCacheTest, ImagesTakeTheContextsProtectionAndAreCachedEvenWhenImportFails) {
    ::zel::test::LogCapture logs;
    Buffer secure = makeBuffer(GRALLOC_USAGE_PROTECTED);
    EXPECT_EQ(mRenderer->cacheNewImage(1, secure, kNoCrop, kSource), OK);
    ASSERT_NE(mRenderer->findCachedImage(1, kSource), nullptr);
    EXPECT_EQ(mRenderer->findCachedImage(1, kSource)->getEGLImage(), EGL_NO_IMAGE_KHR);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "failed to create EGLImage"), 1u) << logs.dump();

    // A pass that finds its cached source without an EGLImage drops the entry from the table
    // and from the recency order alike: an id left in the order alone would be picked for
    // eviction later while the table kept growing past its capacity.
    Buffer secureTarget = makeBuffer(GRALLOC_USAGE_PROTECTED | GRALLOC_USAGE_HW_RENDER);
    EXPECT_EQ(mRenderer->blit({secure}, secureTarget, 100, APP_INSIDE_DEFAULT), RENDER_FAILED);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "cached source image has no EGLImage"), 1u)
        << logs.dump();
    const unsigned long secureId = secure.texture->getGraphicBuffer()->getId();
    EXPECT_EQ(mRenderer->findCachedImage(secureId, kSource), nullptr);
    EXPECT_EQ(mRenderer->cachedImageIds(kSource), std::vector<unsigned long>{1});

    mRenderer = makeRenderer(true);
    ASSERT_NE(mRenderer, nullptr);
    EXPECT_EQ(mRenderer->cacheNewImage(1, secure, kNoCrop, kSource), OK);
    EXPECT_NE(mRenderer->findCachedImage(1, kSource)->getEGLImage(), EGL_NO_IMAGE_KHR);

    // A pass that meets a cached source without an EGLImage fails and drops the entry, from the
    // table and from the eviction order alike, so that the buffer's next pass imports it again.
    ASSERT_TRUE(::zel::host::setDriverProfile("fail-image"));
    mRenderer.reset();  // the display takes the profile when it is next initialised
    mRenderer = makeRenderer();
    ASSERT_NE(mRenderer, nullptr);
    Buffer source = ::zel::test::bufferOf(::zel::test::allocateBuffer(8, 8, 0x1));
    Buffer output = ::zel::test::bufferOf(::zel::test::allocateBuffer(8, 8, 0x1));
    for (int pass = 0; pass < 2; ++pass) {
        logs.clear();
        EXPECT_EQ(mRenderer->blit({source}, output, 1000, APP_INSIDE_DEFAULT), RENDER_FAILED);
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "cached source image has no EGLImage"), 1u)
            << logs.dump();
        EXPECT_TRUE(mRenderer->cachedImageIds(kSource).empty());
    }
    ::zel::host::resetDriverProfile();
}

// Records what the cache manager asks of its renderer; no GL involved. The worker's calls are
// read only after their barriers were waited on.
class RecordingRenderer : public Renderer {
public:
    Status blit(const std::vector<Buffer>&, Buffer&, int, AppInside) override { return OK; }
    Status blit(const std::vector<Buffer>&, Buffer&, android::sp<android::Fence>&,
                AppInside) override {
        return OK;
    }
    Status asyncBlit(const std::vector<Buffer>&, Buffer&, void*, AppInside) override { return OK; }
    Status cacheNewImage(unsigned long id, Buffer, android::Rect crop, long type) override {
        mCalls.push_back("cache " + std::to_string(id) + "/" + std::to_string(type) + "/" +
                         std::to_string(crop.right));
        return RENDER_FAILED;
    }
    Status releaseCache() override {
        mCalls.push_back("release");
        return BAD_VALUE;
    }
    std::vector<std::string> mCalls;
};

TEST(ImageCacheManager, RunsOperationsOnTheCallerAndKeepsItsQueueForAWorker) {
    RecordingRenderer renderer;
    auto manager = std::make_unique<ImageCacheManager>(&renderer);
    manager->initThread(true);
    Buffer buffer{std::make_shared<ExternalTexture>(android::sp<android::GraphicBuffer>()),
                  nullptr};
    // The public operations run at once and answer OK whatever the renderer said.
    EXPECT_EQ(manager->cache(12, buffer, android::Rect(1, 2, 3, 4), 1), OK);
    EXPECT_EQ(manager->releaseAllCache(), OK);
    EXPECT_EQ(renderer.mCalls, (std::vector<std::string>{"cache 12/1/3", "release"}));
    EXPECT_EQ(buffer.texture.use_count(), 1);

    // Queued entries wait for a worker (initThread started none), then run in order.
    std::vector<std::shared_ptr<ImageCacheManager::Barrier>> barriers;
    for (uint32_t operation :
         {ImageCacheManager::kCacheImage, 2u, ImageCacheManager::kReleaseAll}) {
        barriers.push_back(std::make_shared<ImageCacheManager::Barrier>());
        manager->queueOperation(
            {operation, buffer, 5, android::Rect(0, 0, 8, 4), 0, barriers.back()});
    }
    EXPECT_EQ(renderer.mCalls.size(), 2u);
    manager->startThread();
    EXPECT_EQ(barriers[0]->wait(), RENDER_FAILED);
    EXPECT_EQ(barriers[1]->wait(), OK);  // no such operation: nothing runs
    EXPECT_EQ(barriers[2]->wait(), BAD_VALUE);
    EXPECT_EQ(renderer.mCalls,
              (std::vector<std::string>{"cache 12/1/3", "release", "cache 5/0/8", "release"}));
    manager.reset();
    EXPECT_EQ(buffer.texture.use_count(), 1);
}

TEST(ImageCacheManager, DestructionDropsQueuedEntriesUnrun) {
    RecordingRenderer renderer;
    auto manager = std::make_unique<ImageCacheManager>(&renderer);
    auto barrier = std::make_shared<ImageCacheManager::Barrier>();
    manager->queueOperation({ImageCacheManager::kReleaseAll, Buffer(), 0, kNoCrop, 0, barrier});
    manager.reset();
    EXPECT_TRUE(renderer.mCalls.empty());
    EXPECT_FALSE(barrier->done);
}

}  // namespace
}  // namespace zel
}  // namespace kav
