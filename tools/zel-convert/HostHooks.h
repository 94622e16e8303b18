/*
 * What zel-convert asks of the platform beyond the Android API: system properties set from the
 * command line, the trace recorder, the GPU layer's counters. The host build implements them
 * over the host platform's control interface (HostHooks.cpp); a device build gets the stand-ins
 * of HostHooksDevice.cpp.
 */
#pragma once

#include <cstdint>
#include <string>

#include "ToolError.h"

namespace zel::convert {

struct GpuCounterSnapshot {
    bool available = false;
    uint64_t images = 0;
    uint64_t programs = 0;
    uint64_t draws = 0;
    uint64_t uploads = 0;
    uint64_t writeBacks = 0;
    uint64_t fenceFds = 0;
};

class HostHooks {
public:
    // Sets a system property before the renderer is made (and reads it back for the caller).
    static ToolError setProperty(const std::string& key, const std::string& value);
    // Starts recording a trace with the library's sections in it.
    static ToolError startTrace();
    // Writes what was recorded as a Chrome/Perfetto JSON trace.
    static ToolError writeTrace(const std::string& path);
    static GpuCounterSnapshot gpuCounters();
};

}  // namespace zel::convert
