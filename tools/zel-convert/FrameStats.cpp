#include "FrameStats.h"

#include <algorithm>
#include <cstdio>

namespace zel::convert {

namespace {

struct Spread {
    double median = 0;
    double p95 = 0;
    double max = 0;
    double sum = 0;
};

template <typename Pick>
Spread spreadOf(const std::vector<FrameTimes>& frames, Pick pick) {
    std::vector<double> values;
    for (const FrameTimes& frame : frames) {
        values.push_back(pick(frame) * 1000.0);
    }
    Spread spread;
    if (values.empty()) {
        return spread;
    }
    std::sort(values.begin(), values.end());
    spread.median = values[values.size() / 2];
    spread.p95 = values[std::min(values.size() - 1, values.size() * 95 / 100)];
    spread.max = values.back();
    for (double value : values) {
        spread.sum += value;
    }
    return spread;
}

std::string line(const char* name, const Spread& spread) {
    char text[160];
    std::snprintf(text, sizeof(text), "  %-22s median %8.3f ms   p95 %8.3f ms   max %8.3f ms\n",
                  name, spread.median, spread.p95, spread.max);
    return text;
}

}  // namespace

FrameStats::FrameStats()
    : mStart(std::chrono::steady_clock::now()), mCountersAtStart(HostHooks::gpuCounters()) {}

std::string FrameStats::report(double readSeconds) const {
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    const double count = static_cast<double>(std::max<size_t>(mFrames.size(), 1));
    const Spread total = spreadOf(mFrames, [](const FrameTimes& f) { return f.total(); });
    const Spread blit = spreadOf(mFrames, [](const FrameTimes& f) { return f.blit; });
    const Spread copyIn = spreadOf(mFrames, [](const FrameTimes& f) { return f.copyIn; });
    const Spread copyOut = spreadOf(mFrames, [](const FrameTimes& f) { return f.copyOut; });
    const Spread write = spreadOf(mFrames, [](const FrameTimes& f) { return f.write; });
    const Spread waitInput = spreadOf(mFrames, [](const FrameTimes& f) { return f.waitInput; });
    std::string out = "zel-convert: " + std::to_string(mFrames.size()) + " frames\n";
    out += line("frame", total);
    out += line("blit (GPU)", blit);
    out += line("copy into buffer", copyIn);
    out += line("copy out of buffer", copyOut);
    out += line("write", write);
    out += line("wait for input", waitInput);
    char text[512];
    const double readMs = readSeconds * 1000.0 / count;
    const Spread copies =
        spreadOf(mFrames, [](const FrameTimes& f) { return f.copyIn + f.copyOut + f.write; });
    const double own = copies.median + readMs;
    std::snprintf(text, sizeof(text),
                  "  read and parse         mean %8.3f ms (reading thread, overlapped)\n"
                  "  tool's own cost        %.3f ms per frame = %.1f%% of the blit's median %.3f "
                  "ms (copies in and out, median; read and parse, mean; writing not counted)\n"
                  "  throughput             %.1f frames per second (%.3f s wall)\n",
                  readMs, own, blit.median > 0 ? 100.0 * own / blit.median : 0.0, blit.median,
                  mFrames.size() / wall, wall);
    out += text;
    const GpuCounterSnapshot end = HostHooks::gpuCounters();
    if (end.available) {
        std::snprintf(
            text, sizeof(text),
            "  GPU per frame          images %.2f  programs %.2f  draws %.2f  uploads %.2f  "
            "write-backs %.2f  fence fds %.2f\n",
            (end.images - mCountersAtStart.images) / count,
            (end.programs - mCountersAtStart.programs) / count,
            (end.draws - mCountersAtStart.draws) / count,
            (end.uploads - mCountersAtStart.uploads) / count,
            (end.writeBacks - mCountersAtStart.writeBacks) / count,
            (end.fenceFds - mCountersAtStart.fenceFds) / count);
        out += text;
    }
    return out;
}

}  // namespace zel::convert
