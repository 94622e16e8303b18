/*
 * A progress line on stderr for long runs: frames done, frames per second, and the time left when
 * the number of frames is known. Silent when stderr is not a terminal.
 */
#pragma once

#include <chrono>
#include <cstdint>

namespace zel::convert {

class ProgressBar {
public:
    ProgressBar(bool enabled, int64_t total);
    ~ProgressBar();
    void update(int64_t done);

private:
    void draw(int64_t done);

    bool mEnabled = false;
    bool mDrawn = false;
    int64_t mTotal = -1;
    std::chrono::steady_clock::time_point mStart;
    std::chrono::steady_clock::time_point mLastDraw;
};

}  // namespace zel::convert
