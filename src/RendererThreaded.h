/*
 * A Renderer that runs another renderer on a worker thread of its own. The worker builds the inner
 * renderer through a factory (so its EGL context is created and current there) and runs GL work
 * queued by any number of caller threads in FIFO order, each caller blocking on its own promise.
 * Settings calls wait for the inner renderer and then run on the caller's thread under the queue
 * mutex. Cache operations are not forwarded.
 */
#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

#include <zel/Renderer.h>

namespace kav {
namespace zel {

class RendererThreaded : public Renderer {
public:
    using Factory = std::function<std::shared_ptr<Renderer>(const Renderer::Args&)>;

    // Empty when the worker thread cannot be started or the factory is empty.
    static std::shared_ptr<RendererThreaded> create(Factory factory, const Renderer::Args& args);

    // Starts the worker; does not wait for the inner renderer. Throws std::system_error
    // "thread constructor failed" when the thread cannot be created.
    RendererThreaded(Factory factory, const Renderer::Args& args);
    // Finishes the task in hand, drops queued tasks unrun and joins the worker, which releases
    // the inner renderer where its EGL context is current.
    ~RendererThreaded() override;

    // SCHED_FIFO at priority for the calling thread, or SCHED_OTHER when enable is false.
    // TIMED_OUT when the system refuses.
    Status setSchedFifo(bool enable, int priority);
    void waitUntilInitialized() const;

    Protection getProtection() override;
    ContextPriority getContextPriority() override;
    Status setProtection(Protection protection) override;
    Status setContextPriority(ContextPriority priority) override;
    Status setConfig(Config key, void* value) override;
    Status genTexture(uint32_t* texName, uint32_t width, uint32_t height, uint32_t format,
                      uint32_t type, const void* data) override;
    Status deleteTexture(const uint32_t* texName) override;
    Status blit(const std::vector<Buffer>& inputs, Buffer& output, int timeout,
                AppInside appId) override;
    Status blit(const std::vector<Buffer>& inputs, Buffer& output,
                android::sp<android::Fence>& fence, AppInside appId) override;
    Status setListener(const android::wp<Listener>& listener) override;
    Status asyncBlit(const std::vector<Buffer>& inputs, Buffer& output, void* data,
                     AppInside appId) override;
    Status cacheNewImage(unsigned long id, Buffer buffer, android::Rect crop,
                         long cacheType) override;
    Status releaseCache() override;

    pid_t getTid() const { return mTid; }

private:
    using Task = std::function<void(std::shared_ptr<Renderer>)>;

    void threadMain(Factory factory);
    // Queues task and blocks until it fulfils promise.
    Status runQueued(std::promise<Status>& promise, Task task);
    // Runs call on the inner renderer on the caller's thread once it exists. With no inner
    // renderer (its creation failed), returns fallback.
    template <typename Result, typename Call>
    Result callDirect(Result fallback, Call call);

    std::atomic<pid_t> mTid{0};
    const char* mThreadName = "RendererThreaded";
    std::mutex mQueueMutex;
    std::thread mThread;
    std::atomic<bool> mRunning{true};
    std::deque<Task> mTaskQueue;
    std::condition_variable mQueueCond;
    bool mInitialized = false;
    mutable std::mutex mInitMutex;
    mutable std::condition_variable mInitCond;
    std::shared_ptr<Renderer> mRenderer;
};

}  // namespace zel
}  // namespace kav
