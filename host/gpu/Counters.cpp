#include "Counters.h"

#include <atomic>

namespace zel {
namespace hostgpu {

namespace {

constexpr size_t kCounterCount = static_cast<size_t>(Counter::Count);
std::atomic<uint64_t> gCounters[kCounterCount] = {};

bool isLive(Counter counter) {
    return counter >= Counter::ContextsAlive;
}

}  // namespace

void Counters::add(Counter counter, int64_t delta) {
    // Two's complement wrap-around makes a negative delta a decrement.
    gCounters[static_cast<size_t>(counter)].fetch_add(static_cast<uint64_t>(delta),
                                                      std::memory_order_relaxed);
}

uint64_t Counters::get(Counter counter) {
    return gCounters[static_cast<size_t>(counter)].load(std::memory_order_relaxed);
}

void Counters::resetCumulative() {
    for (size_t i = 0; i < kCounterCount; ++i) {
        if (!isLive(static_cast<Counter>(i))) {
            gCounters[i].store(0, std::memory_order_relaxed);
        }
    }
}

}  // namespace hostgpu
}  // namespace zel
