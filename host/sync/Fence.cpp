#define LOG_TAG "Fence"

#include <ui/Fence.h>

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <log/log.h>
#include <sync/sync.h>
#include <zel/host/Sync.h>

namespace android {

const sp<Fence> Fence::NO_FENCE = sp<Fence>(new Fence);

Fence::Fence(int fenceFd) : mFenceFd(fenceFd) {}

Fence::Fence(base::unique_fd fenceFd) : mFenceFd(fenceFd.release()) {}

status_t Fence::wait(int timeout) {
    if (mFenceFd == -1) {
        return NO_ERROR;
    }
    return sync_wait(mFenceFd.get(), timeout) < 0 ? -errno : NO_ERROR;
}

status_t Fence::waitForever(const char* logname) {
    if (mFenceFd == -1) {
        return NO_ERROR;
    }
    constexpr int kWarningTimeoutMs = 3000;
    status_t err = wait(kWarningTimeoutMs);
    if (err == -ETIME) {
        ALOGE("waitForever: %s: fence %d did not signal in %d ms", logname, mFenceFd.get(),
              kWarningTimeoutMs);
        err = wait(TIMEOUT_NEVER);
    }
    return err;
}

int Fence::dup() const {
    return ::dup(mFenceFd.get());
}

nsecs_t Fence::getSignalTime() const {
    if (mFenceFd == -1) {
        return SIGNAL_TIME_INVALID;
    }
    const int64_t time = zel::host::fenceSignalTime(mFenceFd.get());
    if (time >= 0) {
        return time;
    }
    // Not a host fence (a pipe, say): only its state is known.
    struct pollfd pfd = {mFenceFd.get(), POLLIN, 0};
    const int ret = poll(&pfd, 1, 0);
    if (ret < 0 || (ret > 0 && (pfd.revents & (POLLERR | POLLNVAL)))) {
        return SIGNAL_TIME_INVALID;
    }
    return ret == 0 ? SIGNAL_TIME_PENDING : 0;
}

}  // namespace android
