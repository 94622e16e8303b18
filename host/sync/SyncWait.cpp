// sync_wait() over pollable fence descriptors.

#include <sync/sync.h>

#include <errno.h>
#include <poll.h>
#include <time.h>

namespace {

int64_t nowMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

}  // namespace

extern "C" int sync_wait(int fd, int timeout) {
    if (fd < 0) {
        errno = EINVAL;
        return -1;
    }
    const int64_t deadline = timeout >= 0 ? nowMs() + timeout : -1;
    for (;;) {
        struct pollfd pfd = {fd, POLLIN, 0};
        int remaining = -1;
        if (deadline >= 0) {
            const int64_t left = deadline - nowMs();
            remaining = left > 0 ? static_cast<int>(left) : 0;
        }
        const int ret = poll(&pfd, 1, remaining);
        if (ret > 0) {
            if (pfd.revents & (POLLERR | POLLNVAL)) {
                errno = EINVAL;
                return -1;
            }
            return 0;
        }
        if (ret == 0) {
            errno = ETIME;
            return -1;
        }
        if (errno != EINTR && errno != EAGAIN) {
            return -1;
        }
    }
}
