/*
 * The GPU's completion timeline: native fences of flushed work are signalled here, on a thread of
 * the layer's own, never by the thread that submitted the work. Fences signal in the order they
 * were submitted, each once the fences it waits for have signalled and its delay has passed (the
 * driver profile's fence-delay, which stands in for a GPU still busy with the work).
 */
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

namespace zel {
namespace hostgpu {

class FenceCompleter {
public:
    static FenceCompleter& instance();

    // Signals the host fence `fd` once every fence of `waitFor` has signalled and `delay` has
    // passed from now. Takes over all the descriptors and closes them when done.
    void submit(int fd, std::vector<int> waitFor, std::chrono::nanoseconds delay);
    // Blocks until every fence submitted so far has been signalled.
    void waitIdle();

private:
    struct Job {
        int fd;
        std::vector<int> waitFor;
        std::chrono::steady_clock::time_point due;
        uint64_t serial;
    };

    FenceCompleter() = default;
    void run();
    static void complete(const Job& job);

    std::mutex mMutex;
    std::condition_variable mQueued;
    std::condition_variable mDone;
    std::deque<Job> mJobs;
    uint64_t mSubmitted = 0;
    uint64_t mCompleted = 0;
    bool mStarted = false;
};

}  // namespace hostgpu
}  // namespace zel
