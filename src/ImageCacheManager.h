/*
 * Stands between the conversion pass and the GLES renderer's image caches. It is built around an
 * operation queue served by a worker (threadMain) that reports through barriers, but the worker
 * is not started: initThread leaves all image work on the renderer's GL thread, and cache and
 * releaseAllCache call the renderer directly on the caller's thread. Should the worker ever run,
 * it needs an EGL context of its own current before it may create or destroy images.
 */
#pragma once

#include <stdint.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include <ui/Rect.h>

#include <zel/Renderer.h>

namespace kav {
namespace zel {

class ImageCacheManager {
public:
    // Operations of a queued entry.
    static constexpr uint32_t kReleaseAll = 0;
    static constexpr uint32_t kCacheImage = 1;

    // Completion of one queued operation.
    struct Barrier {
        std::mutex mutex;
        std::condition_variable_any condition;
        bool done = false;
        Status result = OK;

        // Blocks until the worker has run the operation; returns its result.
        Status wait();
    };

    struct QueueEntry {
        uint32_t operation = kReleaseAll;
        Buffer buffer;
        unsigned long id = 0;
        android::Rect crop = android::Rect::INVALID_RECT;
        long cacheType = 0;
        std::shared_ptr<Barrier> barrier;
    };

    // renderer owns the manager and outlives it.
    explicit ImageCacheManager(Renderer* renderer);
    ~ImageCacheManager();

    ImageCacheManager(const ImageCacheManager&) = delete;
    ImageCacheManager& operator=(const ImageCacheManager&) = delete;

    // Starts nothing: image creation stays on the GL thread.
    void initThread(bool start);

    // Imports buffer into the renderer's cache (cacheType 0: source, else destination) on the
    // calling thread. Always OK; failures are logged by the renderer.
    Status cache(unsigned long id, Buffer buffer, android::Rect crop, long cacheType);
    // Empties both of the renderer's caches on the calling thread. Always OK.
    Status releaseAllCache();

    // Appends an entry for the worker.
    void queueOperation(const QueueEntry&& entry);
    // The worker loop: runs queued entries in order until the manager shuts down.
    void threadMain();
    // Runs threadMain on the manager's own thread, which the destructor stops and joins. The
    // library never calls it.
    void startThread();

private:
    Status run(const QueueEntry& entry);

    Renderer* mRenderer;
    std::thread mThread;
    std::condition_variable_any mCondition;
    std::mutex mMutex;
    std::deque<QueueEntry> mQueue;
    bool mRunning = true;
};

}  // namespace zel
}  // namespace kav
