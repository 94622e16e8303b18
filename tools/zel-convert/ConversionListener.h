/*
 * Hears the outcome of asynchronous blits. The cookie of each blit is a BlitCompletion, which
 * the listener fills in and signals: a threaded renderer returns from asyncBlit as soon as its
 * worker takes the blit up, so the caller waits for the listener before it waits on the fence.
 */
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <zel/Renderer.h>

namespace zel::convert {

class BlitCompletion {
public:
    void reset() {
        std::lock_guard<std::mutex> lock(mMutex);
        mDone = false;
        mStatus = kav::zel::OK;
    }
    void complete(kav::zel::Status status) {
        std::lock_guard<std::mutex> lock(mMutex);
        mDone = true;
        mStatus = status;
        mChanged.notify_all();
    }
    // The blit's status, or TIMED_OUT when the listener did not hear of it in time.
    kav::zel::Status wait(std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, timeout, [this] { return mDone; }) ? mStatus
                                                                          : kav::zel::TIMED_OUT;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mDone = false;
    kav::zel::Status mStatus = kav::zel::OK;
};

class ConversionListener : public kav::zel::Renderer::Listener {
public:
    void onBlitDone(kav::zel::Buffer& /*output*/, void* data) override {
        static_cast<BlitCompletion*>(data)->complete(kav::zel::OK);
    }
    void onBlitError(kav::zel::Status status, void* data) override {
        static_cast<BlitCompletion*>(data)->complete(status);
    }
};

}  // namespace zel::convert
