#include "ImageCacheManager.h"

#include <utility>

#include "Log.h"

namespace kav {
namespace zel {

Status ImageCacheManager::Barrier::wait() {
    std::unique_lock<std::mutex> lock(mutex);
    condition.wait(lock, [this] { return done; });
    return result;
}

ImageCacheManager::ImageCacheManager(Renderer* renderer) : mRenderer(renderer) {}

ImageCacheManager::~ImageCacheManager() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mRunning = false;
    }
    mCondition.notify_all();
    if (mThread.joinable()) {
        mThread.join();
    }
    // Whatever is still queued is dropped unrun; its barriers are never signalled.
    mQueue.clear();
}

void ImageCacheManager::initThread(bool /*start*/) {
    // Deliberately empty: cacheNewImage creates EGL images in the current context, which only the
    // renderer's own thread has.
}

void ImageCacheManager::startThread() {
    if (!mThread.joinable()) {
        mThread = std::thread(&ImageCacheManager::threadMain, this);
    }
}

Status ImageCacheManager::cache(unsigned long id, Buffer buffer, android::Rect crop,
                                long cacheType) {
    // Run here rather than queued: the image must be made on the thread with the GL context.
    run({kCacheImage, std::move(buffer), id, crop, cacheType, nullptr});
    return OK;
}

Status ImageCacheManager::releaseAllCache() {
    run({kReleaseAll, Buffer(), 0, android::Rect::INVALID_RECT, 0, nullptr});
    return OK;
}

void ImageCacheManager::queueOperation(const QueueEntry&& entry) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mQueue.push_back(entry);
    }
    mCondition.notify_one();
}

void ImageCacheManager::threadMain() {
    bool running;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        running = mRunning;
    }
    if (running) {
        for (;;) {
            std::unique_lock<std::mutex> lock(mMutex);
            while (mQueue.empty() && mRunning) {
                mCondition.wait(lock);
            }
            // Shutdown wins over work still queued.
            if (!mRunning) {
                break;
            }
            const QueueEntry entry = std::move(mQueue.front());
            mQueue.pop_front();
            lock.unlock();
            run(entry);
        }
    }
    ZEL_LOGI("Reached end of threadMain, terminating ImageCacheManager thread!");
}

Status ImageCacheManager::run(const QueueEntry& entry) {
    Status result = OK;
    switch (entry.operation) {
        case kReleaseAll:
            result = mRenderer->releaseCache();
            break;
        case kCacheImage:
            result = mRenderer->cacheNewImage(entry.id, entry.buffer, entry.crop, entry.cacheType);
            break;
        default:
            break;
    }
    if (entry.barrier) {
        {
            std::lock_guard<std::mutex> lock(entry.barrier->mutex);
            entry.barrier->result = result;
            entry.barrier->done = true;
        }
        entry.barrier->condition.notify_one();
    }
    return result;
}

}  // namespace zel
}  // namespace kav
