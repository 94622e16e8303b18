#include "FenceCompleter.h"

#include <errno.h>
#include <pthread.h>
#include <poll.h>
#include <unistd.h>

#include <thread>

#include <zel/host/Sync.h>

namespace zel {
namespace hostgpu {

FenceCompleter& FenceCompleter::instance() {
    // Never destroyed, and its thread never joined: fences may still be pending at exit.
    static FenceCompleter* const completer = new FenceCompleter();
    return *completer;
}

void FenceCompleter::submit(int fd, std::vector<int> waitFor, std::chrono::nanoseconds delay) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mStarted) {
        std::thread([this] { run(); }).detach();
        mStarted = true;
    }
    mJobs.push_back(
        {fd, std::move(waitFor), std::chrono::steady_clock::now() + delay, ++mSubmitted});
    mQueued.notify_one();
}

void FenceCompleter::waitIdle() {
    std::unique_lock<std::mutex> lock(mMutex);
    const uint64_t target = mSubmitted;
    mDone.wait(lock, [&] { return mCompleted >= target; });
}

void FenceCompleter::complete(const Job& job) {
    for (int dependency : job.waitFor) {
        struct pollfd descriptor = {dependency, POLLIN, 0};
        while (poll(&descriptor, 1, -1) < 0 && errno == EINTR) {
        }
        close(dependency);
    }
    std::this_thread::sleep_until(job.due);
    host::signalFenceFd(job.fd);
    close(job.fd);
}

void FenceCompleter::run() {
    // A thread otherwise inherits its creator's name: whichever client thread flushed first.
    pthread_setname_np(pthread_self(), "gpu-fences");
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        mQueued.wait(lock, [this] { return !mJobs.empty(); });
        const Job job = std::move(mJobs.front());
        mJobs.pop_front();
        lock.unlock();
        complete(job);
        lock.lock();
        mCompleted = job.serial;
        mDone.notify_all();
    }
}

}  // namespace hostgpu
}  // namespace zel
