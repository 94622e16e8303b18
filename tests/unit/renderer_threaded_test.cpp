// The threaded proxy: queued GL work in FIFO order from many callers, settings calls that wait
// for the inner renderer, and shutdown with work still queued.
#include <sched.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "LogCapture.h"
#include "RendererThreaded.h"

namespace kav {
namespace zel {
namespace {

using namespace std::chrono_literals;

// An inner renderer that records which thread runs each call, and can hold a call until released.
class RecordingRenderer : public Renderer {
public:
    ~RecordingRenderer() override {
        if (mOnDestroy) {
            mOnDestroy();
        }
    }
    Status genTexture(uint32_t* name, uint32_t width, uint32_t, uint32_t, uint32_t,
                      const void*) override {
        std::unique_lock<std::mutex> lock(mMutex);
        mOrder.push_back(width);
        mThreads.push_back(std::this_thread::get_id());
        *name = width * 10;
        if (width == mHoldAt) {
            mHeld = true;
            mCond.notify_all();
            mCond.wait(lock, [this] { return mReleased; });
        }
        return OK;
    }
    Status deleteTexture(const uint32_t*) override { return BAD_VALUE; }
    Status blit(const std::vector<Buffer>& inputs, Buffer&, int timeout, AppInside) override {
        return inputs.size() == 2 && timeout == 7 ? UNSUPPORTED_FORMAT : OK;
    }
    Status blit(const std::vector<Buffer>&, Buffer&, android::sp<android::Fence>&,
                AppInside) override {
        return TIMED_OUT;
    }
    Status asyncBlit(const std::vector<Buffer>&, Buffer&, void*, AppInside) override { return OK; }
    Status cacheNewImage(unsigned long, Buffer, android::Rect, long) override {
        ++mCacheCalls;
        return RENDER_FAILED;
    }
    Status releaseCache() override { return RENDER_FAILED; }

    void waitHeld() {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait(lock, [this] { return mHeld; });
    }
    void release() {
        std::lock_guard<std::mutex> lock(mMutex);
        mReleased = true;
        mCond.notify_all();
    }

    std::mutex mMutex;
    std::condition_variable mCond;
    std::vector<uint32_t> mOrder;
    std::vector<std::thread::id> mThreads;
    uint32_t mHoldAt = 0;
    bool mHeld = false;
    bool mReleased = false;
    std::atomic<int> mCacheCalls{0};
    std::function<void()> mOnDestroy;
};

Renderer::Args threadedArgs() {
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGlesThreaded;
    args.enableProtectedContext = true;
    args.contextPriority = Renderer::MEDIUM;
    return args;
}

TEST(RendererThreaded, QueuedWorkRunsOnTheWorkerInFifoOrder) {
    auto inner = std::make_shared<RecordingRenderer>();
    std::thread::id factoryThread;
    auto proxy = RendererThreaded::create(
        [&](const Renderer::Args& args) {
            factoryThread = std::this_thread::get_id();
            // The worker passes on the creation arguments.
            EXPECT_TRUE(args.enableProtectedContext);
            EXPECT_EQ(args.contextPriority, Renderer::MEDIUM);
            return std::shared_ptr<Renderer>(inner);
        },
        threadedArgs());
    ASSERT_NE(proxy, nullptr);

    // Hold the worker in a first task so that the next ones pile up in a known order.
    inner->mHoldAt = 1;
    uint32_t first = 0;
    std::thread holder([&] { EXPECT_EQ(proxy->genTexture(&first, 1, 1, 0, 0, nullptr), OK); });
    inner->waitHeld();

    std::vector<std::thread> callers;
    std::vector<uint32_t> names(4, 0);
    for (uint32_t i = 0; i < 4; ++i) {
        callers.emplace_back(
            [&, i] { EXPECT_EQ(proxy->genTexture(&names[i], 100 + i, 1, 0, 0, nullptr), OK); });
        // Each caller is queued before the next starts.
        std::this_thread::sleep_for(20ms);
    }
    inner->release();
    holder.join();
    for (auto& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(inner->mOrder, (std::vector<uint32_t>{1, 100, 101, 102, 103}));
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(names[i], (100 + i) * 10);
    }
    for (const auto& id : inner->mThreads) {
        EXPECT_EQ(id, factoryThread);
        EXPECT_NE(id, std::this_thread::get_id());
    }

    // Calls hand back the inner result unchanged (asyncBlit's is proven by the blit tests).
    std::vector<Buffer> two(2);
    Buffer output;
    android::sp<android::Fence> fence;
    EXPECT_EQ(proxy->blit(two, output, 7, APP_INSIDE_DEFAULT), UNSUPPORTED_FORMAT);
    EXPECT_EQ(proxy->blit(two, output, fence, APP_INSIDE_DEFAULT), TIMED_OUT);
    uint32_t name = 5;
    EXPECT_EQ(proxy->deleteTexture(&name), BAD_VALUE);

    // The inner renderer goes on the worker too, where its GL context is current.
    std::thread::id destroyedOn;
    inner->mOnDestroy = [&] { destroyedOn = std::this_thread::get_id(); };
    inner.reset();
    proxy.reset();
    EXPECT_EQ(destroyedOn, factoryThread);
}

TEST(RendererThreaded, SettingsWaitForTheInnerRenderer) {
    auto inner = std::make_shared<RecordingRenderer>();
    inner->setProtection(UNPROTECTED);
    std::atomic<bool> built{false};
    auto proxy = RendererThreaded::create(
        [&](const Renderer::Args&) {
            std::this_thread::sleep_for(100ms);
            built = true;
            return std::shared_ptr<Renderer>(inner);
        },
        threadedArgs());
    ASSERT_NE(proxy, nullptr);
    // The proxy's own copy says PROTECTED; the answer must come from the inner renderer.
    EXPECT_EQ(proxy->getProtection(), UNPROTECTED);
    EXPECT_TRUE(built);
    EXPECT_EQ(proxy->setContextPriority(Renderer::LOW), OK);
    EXPECT_EQ(inner->getContextPriority(), Renderer::LOW);
    EXPECT_EQ(proxy->setConfig(Renderer::ENABLE, nullptr), NOT_IMPLEMENTED);
    ASSERT_GT(proxy->getTid(), 0);
    // Named by then, within the 15 characters a thread name holds: a longer name is refused
    // and would leave the worker with its creator's name.
    std::ifstream comm("/proc/self/task/" + std::to_string(proxy->getTid()) + "/comm");
    std::string name;
    std::getline(comm, name);
    EXPECT_EQ(name, "RendererThreade");
}

TEST(RendererThreaded, DestructionFinishesTheTaskInHandAndDropsTheRest) {
    auto inner = std::make_shared<RecordingRenderer>();
    auto proxy = RendererThreaded::create(
        [&](const Renderer::Args&) { return std::shared_ptr<Renderer>(inner); }, threadedArgs());
    inner->mHoldAt = 1;
    uint32_t name = 0;
    std::thread running([&] { proxy->genTexture(&name, 1, 1, 0, 0, nullptr); });
    inner->waitHeld();

    // A second task queued behind it; its caller blocks for good once the task is dropped.
    RendererThreaded* raw = proxy.get();
    std::thread queued([raw] {
        uint32_t other = 0;
        raw->genTexture(&other, 2, 1, 0, 0, nullptr);
    });
    std::this_thread::sleep_for(50ms);
    queued.detach();

    std::thread destroyer([&] { proxy.reset(); });
    std::this_thread::sleep_for(50ms);
    inner->release();
    running.join();
    destroyer.join();
    EXPECT_EQ(name, 10u);
    EXPECT_EQ(inner->mOrder, std::vector<uint32_t>{1});
}

TEST(RendererThreaded, CacheOperationsAreNotForwarded) {
    auto inner = std::make_shared<RecordingRenderer>();
    auto proxy = RendererThreaded::create(
        [&](const Renderer::Args&) { return std::shared_ptr<Renderer>(inner); }, threadedArgs());
    Buffer buffer;
    EXPECT_EQ(proxy->cacheNewImage(77, buffer, android::Rect::INVALID_RECT, 1), OK);
    buffer.settings = std::make_shared<BufferSettings>();
    EXPECT_EQ(proxy->cacheNewImage(78, buffer, android::Rect(0, 0, 4, 4), 0), OK);
    EXPECT_EQ(proxy->releaseCache(), OK);
    EXPECT_EQ(inner->mCacheCalls, 0);
}

TEST(RendererThreaded, FailedInnerCreationFailsCallsInsteadOfCrashing) {
    ::zel::test::LogCapture logs;
    auto proxy = RendererThreaded::create(
        [](const Renderer::Args&) { return std::shared_ptr<Renderer>(); }, threadedArgs());
    ASSERT_NE(proxy, nullptr);
    uint32_t name = 0;
    EXPECT_EQ(proxy->genTexture(&name, 1, 1, 0, 0, nullptr), RENDER_FAILED);
    EXPECT_EQ(proxy->setConfig(Renderer::ENABLE, &name), RENDER_FAILED);
    EXPECT_EQ(RendererThreaded::create(RendererThreaded::Factory(), threadedArgs()), nullptr);
    // Both failures are errors in the log, not warnings.
    EXPECT_GE(logs.count(ANDROID_LOG_ERROR, "creation failed on the worker thread"), 1u)
        << logs.dump();
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "no renderer factory"), 1u) << logs.dump();
}

TEST(RendererThreaded, SchedulingPolicyOfTheCallingThread) {
    auto proxy = RendererThreaded::create(
        [](const Renderer::Args&) { return std::make_shared<RecordingRenderer>(); },
        threadedArgs());
    std::thread([&] {
        EXPECT_EQ(proxy->setSchedFifo(false, 5), OK);
        EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
        // An out-of-range real-time priority is refused with the proxy's one failure code.
        EXPECT_EQ(proxy->setSchedFifo(true, 1000), TIMED_OUT);
    }).join();
}

}  // namespace
}  // namespace zel
}  // namespace kav
