/*
 * Reads frames ahead on a thread of its own, so that reading and parsing the next frame
 * overlaps the conversion of the current one. Frames travel back and forth between the two
 * threads and are reused.
 */
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "FrameReader.h"

namespace zel::convert {

class FramePrefetcher {
public:
    // Reads at most limit frames (-1: all), keeping up to depth of them ready.
    FramePrefetcher(FrameReader& reader, int64_t limit, size_t depth = 2);
    ~FramePrefetcher();
    FramePrefetcher(const FramePrefetcher&) = delete;
    FramePrefetcher& operator=(const FramePrefetcher&) = delete;

    // The next frame, or null at the end or after an error (then *error says which).
    std::unique_ptr<Frame> next(ToolError* error);
    // Gives a frame back for reuse.
    void recycle(std::unique_ptr<Frame> frame);
    // Seconds the reading thread spent reading and parsing.
    double readSeconds() const;

private:
    void run();

    FrameReader& mReader;
    int64_t mLimit;
    size_t mDepth;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<std::unique_ptr<Frame>> mReady;
    std::deque<std::unique_ptr<Frame>> mFree;
    bool mEnded = false;
    bool mStopping = false;
    ToolError mError;
    double mReadSeconds = 0;
    std::thread mThread;  // last: starts once everything above exists
};

}  // namespace zel::convert
