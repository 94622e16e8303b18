/*
 * Per-frame timings of a run and what the GPU layer did, for --stats: median, p95 and maximum of
 * each step, frames per second, and the tool's own cost around the blit as a share of it.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "HostHooks.h"

namespace zel::convert {

struct FrameTimes {
    double waitInput = 0;  // waiting for the reading thread
    double copyIn = 0;     // frame into the source buffer
    double blit = 0;       // submit and wait for the GPU
    double copyOut = 0;    // destination buffer into a frame
    double write = 0;      // handing the frame to the writer
    double total() const { return waitInput + copyIn + blit + copyOut + write; }
};

class FrameStats {
public:
    FrameStats();
    void add(const FrameTimes& times) { mFrames.push_back(times); }
    size_t frames() const { return mFrames.size(); }
    // The report; readSeconds is the reading thread's time (overlapped with the conversions).
    std::string report(double readSeconds) const;

private:
    std::vector<FrameTimes> mFrames;
    std::chrono::steady_clock::time_point mStart;
    GpuCounterSnapshot mCountersAtStart;
};

}  // namespace zel::convert
