#include "NativeFence.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace zel {
namespace hostgpu {

NativeFence::NativeFence(EGLDisplay display, int fd, bool fromClient)
    : mDisplay(display), mFromClient(fromClient), mFd(fd) {}

NativeFence::~NativeFence() {
    if (mFd >= 0) {
        close(mFd);
    }
}

EGLenum NativeFence::condition() const {
    return mFromClient ? EGL_SYNC_NATIVE_FENCE_SIGNALED_ANDROID
                       : EGL_SYNC_PRIOR_COMMANDS_COMPLETE_KHR;
}

bool NativeFence::signaled() const {
    return wait(0);
}

void NativeFence::attach(int fd) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mFd >= 0) {
        close(fd);
        return;
    }
    mFd = fd;
    mAttached.notify_all();
}

bool NativeFence::wait(uint64_t timeoutNs) const {
    using Clock = std::chrono::steady_clock;
    const bool forever = timeoutNs == EGL_FOREVER_KHR;
    // A day is as good as forever for a finite time-out, and cannot overflow the clock.
    const auto limit = std::chrono::nanoseconds(std::min<uint64_t>(timeoutNs, 86400000000000ull));
    const Clock::time_point deadline = Clock::now() + limit;
    int fd = -1;
    {
        std::unique_lock<std::mutex> lock(mMutex);
        auto flushed = [this] { return mFd >= 0; };
        if (forever) {
            mAttached.wait(lock, flushed);
        } else if (!mAttached.wait_until(lock, deadline, flushed)) {
            return false;
        }
        fd = mFd;  // kept open until this object is destroyed, which the caller prevents
    }
    for (;;) {
        int timeoutMs = -1;
        if (!forever) {
            // Rounded up: a wait never ends before its time-out.
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            timeoutMs = static_cast<int>(std::max<int64_t>(0, left));
        }
        struct pollfd descriptor = {fd, POLLIN, 0};
        const int ready = poll(&descriptor, 1, timeoutMs);
        if (ready > 0) {
            return (descriptor.revents & (POLLIN | POLLERR | POLLHUP)) != 0;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

int NativeFence::duplicate() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mFd < 0 ? -1 : fcntl(mFd, F_DUPFD_CLOEXEC, 0);
}

}  // namespace hostgpu
}  // namespace zel
