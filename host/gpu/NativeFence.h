/*
 * An EGL native fence sync (EGL_ANDROID_native_fence_sync): a sync object backed by a pollable
 * fence descriptor, which it owns and closes when destroyed. Either the client handed the
 * descriptor in, or the sync stands for GPU work: it then has no descriptor until the context that
 * made it is flushed, and its descriptor signals later, once that work is complete
 * (FenceCompleter).
 */
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class NativeFence {
public:
    // Takes ownership of `fd`; -1: a fence for GPU work, not flushed yet. `fromClient`: the client
    // passed the descriptor in (the sync's condition is then
    // EGL_SYNC_NATIVE_FENCE_SIGNALED_ANDROID).
    NativeFence(EGLDisplay display, int fd, bool fromClient);
    ~NativeFence();
    NativeFence(const NativeFence&) = delete;
    NativeFence& operator=(const NativeFence&) = delete;

    EGLDisplay display() const { return mDisplay; }
    EGLenum condition() const;
    bool signaled() const;
    // Waits up to `timeoutNs` (EGL_FOREVER_KHR: no limit), for the flush first when there was
    // none yet; true once signalled.
    bool wait(uint64_t timeoutNs) const;
    // A new descriptor for the same fence (close-on-exec); -1 before the flush.
    int duplicate() const;
    // The flush gave the fence its descriptor (taken over); set once.
    void attach(int fd);

private:
    const EGLDisplay mDisplay;
    const bool mFromClient;
    mutable std::mutex mMutex;
    mutable std::condition_variable mAttached;
    int mFd;
};

}  // namespace hostgpu
}  // namespace zel
