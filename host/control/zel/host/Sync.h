/*
 * Host fence and fdsan control.
 *
 * A native fence on the host is an eventfd: it polls readable once signalled, which is all that
 * sync_wait(), android::Fence and EGL_ANDROID_native_fence_sync consumers rely on. Its counter
 * holds the CLOCK_MONOTONIC time of the signal, which Fence::getSignalTime() reports. Signalled
 * fences are never read, so they stay signalled and every duplicate of one sees the same state.
 */
#pragma once

#include <stdint.h>

#include <string>

namespace zel::host {

// A new, close-on-exec fence descriptor, unsignalled unless `signaled`. -1 with errno on failure.
int createFenceFd(bool signaled = false);

// Signals the fence `fd` (any duplicate of it). Signalling twice keeps the first time.
// Returns 0, or -errno (-EINVAL when `fd` is not a host fence).
int signalFenceFd(int fd);

// The CLOCK_MONOTONIC time in nanoseconds at which the fence was signalled; INT64_MAX while it is
// pending; -1 when `fd` is not a host fence.
int64_t fenceSignalTime(int fd);

// A number that tells host fences apart for as long as they exist, whatever descriptor refers to
// them (duplicates share it); -1 when `fd` is not a host fence.
int64_t fenceIdentity(int fd);

// fdsan reports since the start of the process (or the last reset): closes and tag exchanges by
// the wrong owner, plain close() of an owned descriptor, double closes.
uint64_t fdsanErrorCount();
std::string lastFdsanError();
void resetFdsanErrors();

}  // namespace zel::host
