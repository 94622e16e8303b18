// Host native fences: eventfd fences, sync_wait, android::Fence.

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include <android-base/unique_fd.h>
#include <sync/sync.h>
#include <ui/Fence.h>
#include <zel/host/Sync.h>

using android::Fence;
using android::sp;

namespace {

int64_t nowNs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

bool pollsReadable(int fd) {
    struct pollfd pfd = {fd, POLLIN, 0};
    return poll(&pfd, 1, 0) == 1 && (pfd.revents & POLLIN);
}

TEST(FenceTest, FenceFdBecomesReadableOnlyWhenSignalled) {
    const int fd = zel::host::createFenceFd();
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    const int copy = dup(fd);
    EXPECT_FALSE(pollsReadable(fd));
    EXPECT_EQ(zel::host::fenceSignalTime(fd), INT64_MAX);
    const int64_t start = nowNs();
    errno = 0;
    EXPECT_EQ(sync_wait(fd, 40), -1);
    EXPECT_EQ(errno, ETIME);
    EXPECT_GE(nowNs() - start, 39'000'000);

    // Signalled through another descriptor from another thread while a long wait is under way.
    int64_t signalledAt = 0;
    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        signalledAt = nowNs();
        EXPECT_EQ(zel::host::signalFenceFd(copy), 0);
    });
    EXPECT_EQ(sync_wait(fd, 5000), 0);
    signaller.join();
    EXPECT_GE(nowNs() - start, 60'000'000);

    // Signalled stays signalled, for every descriptor of the fence; the time is the first signal.
    const int64_t time = zel::host::fenceSignalTime(fd);
    EXPECT_GE(time, signalledAt);
    EXPECT_EQ(zel::host::signalFenceFd(fd), 0);
    EXPECT_EQ(zel::host::fenceSignalTime(copy), time);
    EXPECT_EQ(sync_wait(copy, 0), 0);
    EXPECT_TRUE(pollsReadable(fd));
    close(copy);
    close(fd);
}

TEST(FenceTest, SyncWaitRejectsBadDescriptors) {
    errno = 0;
    EXPECT_EQ(sync_wait(-1, 0), -1);
    EXPECT_EQ(errno, EINVAL);
    const int fd = zel::host::createFenceFd(true);  // born signalled
    EXPECT_EQ(sync_wait(fd, 0), 0);
    close(fd);
    errno = 0;
    EXPECT_EQ(sync_wait(fd, 100), -1);
    EXPECT_EQ(errno, EINVAL);
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    EXPECT_EQ(zel::host::signalFenceFd(pipeFds[0]), -EINVAL);  // not a host fence
    close(pipeFds[0]);
    close(pipeFds[1]);
}

TEST(FenceTest, FenceWaitsOnAndOwnsItsDescriptor) {
    const uint64_t fdsanErrors = zel::host::fdsanErrorCount();
    EXPECT_FALSE(Fence::NO_FENCE->isValid());
    EXPECT_EQ(Fence::NO_FENCE->wait(Fence::TIMEOUT_NEVER), android::NO_ERROR);

    const int fd = zel::host::createFenceFd();
    sp<Fence> fence = new Fence(fd);
    EXPECT_EQ(fence->getStatus(), Fence::Status::Unsignaled);
    EXPECT_EQ(fence->wait(10), -ETIME);
    EXPECT_EQ(fence->getSignalTime(), Fence::SIGNAL_TIME_PENDING);

    const int copy = fence->dup();
    ASSERT_GE(copy, 0);
    EXPECT_NE(copy, fd);
    const int64_t before = nowNs();
    ASSERT_EQ(zel::host::signalFenceFd(copy), 0);
    EXPECT_EQ(fence->getStatus(), Fence::Status::Signaled);
    EXPECT_EQ(fence->waitForever("test"), android::NO_ERROR);
    EXPECT_GE(fence->getSignalTime(), before);
    EXPECT_LE(fence->getSignalTime(), nowNs());

    fence.clear();
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_NE(fcntl(copy, F_GETFD), -1);

    // From a unique_fd: ownership moves into the fence, which closes it.
    {
        android::base::unique_fd owned(copy);
        sp<Fence> adopted = new Fence(std::move(owned));
        EXPECT_EQ(owned.get(), -1);
        EXPECT_EQ(adopted->wait(0), android::NO_ERROR);
    }
    EXPECT_EQ(fcntl(copy, F_GETFD), -1);
    EXPECT_EQ(zel::host::fdsanErrorCount(), fdsanErrors);
}

}  // namespace
