/*
 * The layer's activity counters, read by tests and benchmarks through <zel/host/Gpu.h>.
 * Lock-free; safe to bump from any thread.
 */
#pragma once

#include <cstddef>
#include <cstdint>

namespace zel {
namespace hostgpu {

enum class Counter : size_t {
    // Cumulative: reset by resetGpuCounters().
    ContextsCreated,
    DisplaysInitialized,
    ImagesCreated,
    ShadersCompiled,
    ProgramsLinked,
    Draws,
    Uploads,
    WriteBacks,
    FenceFdsCreated,
    ProgramVariants,
    InternalPasses,
    CoveredTargets,
    // Live objects: they follow what exists and are never reset.
    ContextsAlive,
    ImagesAlive,
    BuffersAlive,
    TexturesAlive,
    FramebuffersAlive,
    ProgramsAlive,
    Count,
};

class Counters {
public:
    static void add(Counter counter, int64_t delta = 1);
    static uint64_t get(Counter counter);
    // Zeroes the cumulative counters.
    static void resetCumulative();
};

}  // namespace hostgpu
}  // namespace zel
