// Many callers on one threaded renderer, as a codec with several streams drives it for hours:
// every caller checks its own pixels after every blit, asynchronous blits and listener calls mix
// in, sources come and go, other renderers are created and destroyed on other threads, and the
// proxy is finally destroyed with work still queued. Every wait is bounded: a hang fails the test
// with a message instead of stalling the suite.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <ui/Fence.h>

#include <zel/Renderer.h>
#include <zel/host/Gpu.h>
#include <zel/host/Sync.h>

#include "Frames.h"

namespace kav {
namespace zel {
namespace {

using namespace ::zel::test;
using Clock = std::chrono::steady_clock;

constexpr int kSize = 64;
constexpr int kCallers = 8;
constexpr int kBlitsPerCaller = 500;
constexpr int kAsyncEvery = 10;      // every tenth blit of a caller is asynchronous
constexpr int kNewSourceEvery = 50;  // a caller drops its source for a new one this often
constexpr auto kDeadline = std::chrono::seconds(120);

// Counts each asynchronous blit's outcome by its cookie.
class CookieListener : public Renderer::Listener {
public:
    void onBlitDone(Buffer&, void* data) override { report(data, &mDone); }
    void onBlitError(Status, void* data) override { report(data, &mErrors); }

    bool waitFor(void* cookie, std::chrono::seconds limit) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCalled.wait_for(lock, limit, [&] { return mDone.count(cookie) != 0; });
    }
    // Cookies reported more than once, or as errors.
    std::vector<std::string> problems() {
        std::lock_guard<std::mutex> lock(mMutex);
        std::vector<std::string> found;
        for (const auto& [cookie, calls] : mDone) {
            if (calls != 1) {
                found.push_back(std::to_string(calls) + " calls for one blit");
            }
        }
        for (const auto& [cookie, calls] : mErrors) {
            found.push_back("error for cookie " +
                            std::to_string(reinterpret_cast<uintptr_t>(cookie)));
        }
        return found;
    }
    size_t done() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mDone.size();
    }

private:
    void report(void* cookie, std::map<void*, int>* calls) {
        std::lock_guard<std::mutex> lock(mMutex);
        ++(*calls)[cookie];
        mCalled.notify_all();
    }
    std::mutex mMutex;
    std::condition_variable mCalled;
    std::map<void*, int> mDone;
    std::map<void*, int> mErrors;
};

// A cookie that names caller and blit; never dereferenced.
void* cookieOf(int caller, int blit) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(caller) << 32 |
                                   static_cast<uintptr_t>(blit + 1));
}

// Waits for `done` to reach `count` until the deadline; a hang aborts with `what`, since hung
// threads can be neither joined nor left behind.
void awaitOrAbort(std::atomic<int>& done, int count, Clock::time_point deadline, const char* what) {
    while (done.load() < count) {
        if (Clock::now() > deadline) {
            fprintf(stderr, "HANG: %s (%d of %d finished)\n", what, done.load(), count);
            abort();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

std::shared_ptr<Renderer> create(int type) {
    Renderer::Args args;
    args.rendererType = type;
    return Renderer::create(args);
}

// One caller: its own pictures, its own destination, every result checked.
void callerLoop(Renderer* renderer, int caller, CookieListener* listener,
                std::vector<std::string>* failures) {
    auto fail = [&](int blit, const std::string& what) {
        failures->push_back("caller " + std::to_string(caller) + " blit " + std::to_string(blit) +
                            ": " + what);
    };
    android::sp<android::GraphicBuffer> source;
    RgbImage picture;
    auto target = allocateBuffer(kSize, kSize, 0x1);
    Buffer output = bufferOf(target);
    for (int blit = 0; blit < kBlitsPerCaller && failures->size() < 5; ++blit) {
        if (blit % kNewSourceEvery == 0) {
            // The old source goes while its image may still sit in the cache.
            picture = noise(kSize, kSize, static_cast<uint32_t>(caller * 1000 + blit));
            source = allocateBuffer(kSize, kSize, 0x1);
            writeRgba(*source, picture);
        }
        // Poisoned each time: a blit that draws nothing, or another caller's picture, shows.
        poisonBuffer(*target);
        const std::vector<Buffer> inputs{bufferOf(source)};
        if (blit % kAsyncEvery == kAsyncEvery - 1) {
            void* cookie = cookieOf(caller, blit);
            if (renderer->asyncBlit(inputs, output, cookie, APP_INSIDE_DEFAULT) != OK) {
                fail(blit, "asyncBlit refused");
                continue;
            }
            // The proxy reads inputs and output until the pass has run: wait for its outcome.
            if (!listener->waitFor(cookie, std::chrono::seconds(30))) {
                fail(blit, "no callback");
                continue;
            }
            const android::sp<android::Fence> fence = output.texture->getFence();
            if (fence == nullptr || fence->wait(5000) != android::OK) {
                fail(blit, "fence of the asynchronous blit did not signal");
                continue;
            }
        } else {
            const Status status = renderer->blit(inputs, output, 5000, APP_INSIDE_DEFAULT);
            if (status != OK) {
                fail(blit, "status " + std::to_string(status));
                continue;
            }
        }
        const testing::AssertionResult match = imagesMatch(readRgba(*target), picture, 0);
        if (!match) {
            fail(blit, match.message());
        }
        if (blit % 25 == 0) {
            // Settings calls run on this thread, under the proxy's queue lock.
            renderer->setListener(listener);
            if (renderer->getProtection() != UNPROTECTED) {
                fail(blit, "protection changed");
            }
        }
    }
}

TEST(Stress, CallersOnOneThreadedRendererEachGetTheirOwnPixels) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    // The driver keeps process-wide state and threads after its first contexts.
    ASSERT_TRUE(blitsCorrectly(*create(Renderer::kTypeGles)));
    ASSERT_TRUE(blitsCorrectly(*create(Renderer::kTypeGlesThreaded)));
    const LiveResources before = LiveResources::now();
    const Clock::time_point deadline = Clock::now() + kDeadline;

    std::shared_ptr<Renderer> renderer = create(Renderer::kTypeGlesThreaded);
    ASSERT_NE(renderer, nullptr);
    android::sp<CookieListener> listener = new CookieListener();
    ASSERT_EQ(renderer->setListener(listener), OK);

    std::atomic<bool> callersDone{false};
    std::atomic<int> finished{0};
    std::vector<std::vector<std::string>> failures(kCallers + 1);
    std::vector<std::thread> threads;
    for (int caller = 0; caller < kCallers; ++caller) {
        threads.emplace_back([&, caller] {
            callerLoop(renderer.get(), caller, listener.get(), &failures[caller]);
            ++finished;
        });
    }
    // Meanwhile renderers of both kinds come and go on another thread.
    int churned = 0;
    threads.emplace_back([&] {
        for (int i = 0; !callersDone.load(); ++i) {
            auto other = create(i % 2 == 0 ? Renderer::kTypeGles : Renderer::kTypeGlesThreaded);
            if (other == nullptr || !blitsCorrectly(*other)) {
                failures[kCallers].push_back("renderer " + std::to_string(i) + " failed");
                break;
            }
            ++churned;
        }
        ++finished;
    });
    awaitOrAbort(finished, kCallers, deadline, "blit callers");
    callersDone = true;
    awaitOrAbort(finished, kCallers + 1, deadline, "renderer churn");
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& list : failures) {
        for (const std::string& failure : list) {
            ADD_FAILURE() << failure;
        }
    }
    EXPECT_GT(churned, 0);
    EXPECT_EQ(listener->done(), static_cast<size_t>(kCallers * (kBlitsPerCaller / kAsyncEvery)));
    for (const std::string& problem : listener->problems()) {
        ADD_FAILURE() << problem;
    }
    renderer.reset();
    EXPECT_EQ(LiveResources::now(), before);
}

// Checks in the child process of a death test; a failure leaves with status 1 and says why.
void check(bool condition, const char* what) {
    if (!condition) {
        fprintf(stderr, "FAILED: %s\n", what);
        fflush(stderr);
        _exit(1);
    }
}

// The proxy goes while its worker is busy and more asynchronous blits wait in its queue: the
// blit in hand finishes and reports once, the queued ones are dropped unrun and never report, and
// the destruction itself returns. Callers of dropped tasks stay blocked for good (that is the
// proxy's contract), so this runs in a child process that takes them with it.
void destroyWithQueuedWork() {
    CookieListener* listener = new CookieListener();
    android::sp<CookieListener> listenerRef = listener;
    std::shared_ptr<Renderer> owner = create(Renderer::kTypeGlesThreaded);
    check(owner != nullptr, "renderer");
    Renderer* renderer = owner.get();
    check(renderer->setListener(listenerRef) == OK, "setListener");
    // The GPU layer's completion thread starts with the first fence: start it before counting.
    check(blitsCorrectly(*renderer), "a first blit");
    const LiveResources before = LiveResources::now();
    check(threadsNamed("RendererThreaded") == 1, "the worker runs");

    // The first blit holds the worker: its source's producer fence is not signalled yet.
    auto picture = gradient(kSize, kSize);
    auto source = allocateBuffer(kSize, kSize, 0x1);
    writeRgba(*source, picture);
    const std::vector<Buffer> held{bufferOf(source)};
    const int producer = ::zel::host::createFenceFd(false);
    held[0].texture->setFence(new android::Fence(producer));
    auto firstTarget = allocateBuffer(kSize, kSize, 0x1);
    Buffer firstOutput = bufferOf(firstTarget);
    check(renderer->asyncBlit(held, firstOutput, cookieOf(0, 0), APP_INSIDE_DEFAULT) == OK,
          "first asyncBlit");

    // Queued behind it, each caller blocked until the worker would take its task up.
    constexpr int kQueued = 4;
    std::vector<android::sp<android::GraphicBuffer>> targets;
    for (int i = 0; i < kQueued; ++i) {
        targets.push_back(allocateBuffer(kSize, kSize, 0x1));
    }
    for (int i = 0; i < kQueued; ++i) {
        std::thread([renderer, &held, target = targets[i], i] {
            Buffer output = bufferOf(target);
            renderer->asyncBlit(held, output, cookieOf(1, i), APP_INSIDE_DEFAULT);
        }).detach();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));

    std::atomic<int> destroyed{0};
    std::thread destroyer([&] {
        owner.reset();
        ++destroyed;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    check(destroyed.load() == 0, "destruction waits for the blit in hand");
    ::zel::host::signalFenceFd(producer);
    awaitOrAbort(destroyed, 1, Clock::now() + std::chrono::seconds(30), "destruction");
    destroyer.join();

    check(listener->waitFor(cookieOf(0, 0), std::chrono::seconds(5)), "the blit in hand reports");
    check(imagesMatch(readRgba(*firstTarget), picture, 0), "the blit in hand drew its picture");
    firstOutput.texture->setFence(nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    check(listener->done() == 1, "queued blits are dropped unrun");
    check(listener->problems().empty(), "no doubled or failed callback");
    const LiveResources after = LiveResources::now();
    // The renderer's GPU objects and its worker are gone.
    check(after.contexts + 1 == before.contexts, "the context goes with the renderer");
    check(after.images == 0 && after.framebuffers == 0 && after.fenceFds == 0,
          "no image, framebuffer or fence outlives the renderer");
    // Mesa's own threads go with the context, the blocked callers' threads may or may not have
    // returned yet: what must be gone is the renderer's worker. Joined, it may still be listed
    // for a moment: the kernel wakes the joiner before it takes the exiting thread off the list.
    const Clock::time_point listed = Clock::now() + std::chrono::seconds(1);
    while (threadsNamed("RendererThreaded") != 0 && Clock::now() < listed) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    check(threadsNamed("RendererThreaded") == 0, "the worker is gone");
    _exit(0);
}

TEST(StressDeathTest, DestructionWithQueuedWorkFinishesTheTaskInHandAndDropsTheRest) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(destroyWithQueuedWork(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace zel
}  // namespace kav
