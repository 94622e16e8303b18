/*
 * An EGL native fence sync (EGL_ANDROID_native_fence_sync): a sync object backed by a pollable
 * fence descriptor, which it owns and closes when destroyed. Either the layer made the fence for
 * GPU work it already completed (and wrote back), or the client handed one in.
 */
#pragma once

#include <cstdint>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class NativeFence {
public:
    // Takes ownership of `fd`. `fromClient`: the client passed it in (the sync's condition is then
    // EGL_SYNC_NATIVE_FENCE_SIGNALED_ANDROID).
    NativeFence(EGLDisplay display, int fd, bool fromClient);
    ~NativeFence();
    NativeFence(const NativeFence&) = delete;
    NativeFence& operator=(const NativeFence&) = delete;

    EGLDisplay display() const { return mDisplay; }
    EGLenum condition() const;
    bool signaled() const;
    // Waits up to `timeoutNs` (EGL_FOREVER_KHR: no limit); true once signalled.
    bool wait(uint64_t timeoutNs) const;
    // A new descriptor for the same fence (close-on-exec), or -1.
    int duplicate() const;

private:
    const EGLDisplay mDisplay;
    const int mFd;
    const bool mFromClient;
};

}  // namespace hostgpu
}  // namespace zel
