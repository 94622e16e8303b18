#include "FramePrefetcher.h"

#include <chrono>

#include "TraceSection.h"

namespace zel::convert {

FramePrefetcher::FramePrefetcher(FrameReader& reader, int64_t limit, size_t depth)
    : mReader(reader), mLimit(limit), mDepth(depth), mThread(&FramePrefetcher::run, this) {}

FramePrefetcher::~FramePrefetcher() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;
    }
    mChanged.notify_all();
    mThread.join();
}

void FramePrefetcher::run() {
    for (int64_t count = 0; mLimit < 0 || count < mLimit; ++count) {
        std::unique_ptr<Frame> frame;
        {
            std::unique_lock<std::mutex> lock(mMutex);
            mChanged.wait(lock, [this] { return mStopping || mReady.size() < mDepth; });
            if (mStopping) {
                return;
            }
            if (!mFree.empty()) {
                frame = std::move(mFree.front());
                mFree.pop_front();
            }
        }
        if (frame == nullptr) {
            frame = std::make_unique<Frame>();
        }
        bool done = false;
        const auto start = std::chrono::steady_clock::now();
        ToolError error;
        {
            TraceSection section("zel-convert read");
            error = mReader.read(*frame, &done);
        }
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::lock_guard<std::mutex> lock(mMutex);
        mReadSeconds += seconds;
        if (error || done) {
            mError = error;
            break;
        }
        mReady.push_back(std::move(frame));
        mChanged.notify_all();
    }
    std::lock_guard<std::mutex> lock(mMutex);
    mEnded = true;
    mChanged.notify_all();
}

std::unique_ptr<Frame> FramePrefetcher::next(ToolError* error) {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return !mReady.empty() || mEnded; });
    if (mReady.empty()) {
        *error = mError;
        return nullptr;
    }
    std::unique_ptr<Frame> frame = std::move(mReady.front());
    mReady.pop_front();
    mChanged.notify_all();
    return frame;
}

void FramePrefetcher::recycle(std::unique_ptr<Frame> frame) {
    std::lock_guard<std::mutex> lock(mMutex);
    mFree.push_back(std::move(frame));
}

double FramePrefetcher::readSeconds() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mReadSeconds;
}

}  // namespace zel::convert
