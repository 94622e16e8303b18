#include "HostHooks.h"

#include <cutils/trace.h>

#include <zel/host/Gpu.h>
#include <zel/host/Properties.h>
#include <zel/host/Trace.h>

namespace zel::convert {

ToolError HostHooks::setProperty(const std::string& key, const std::string& value) {
    zel::host::setProperty(key, value);
    return {};
}

ToolError HostHooks::startTrace() {
    zel::host::setProperty("vendor.kav.c2.zel.systrace", "1");
    zel::host::setEnabledTags(zel::host::enabledTags() | ATRACE_TAG_ALWAYS);
    zel::host::clearTraceEvents();
    return {};
}

ToolError HostHooks::writeTrace(const std::string& path) {
    if (!zel::host::writeChromeTrace(path)) {
        return ToolError::badInput("cannot write the trace to " + path);
    }
    return {};
}

GpuCounterSnapshot HostHooks::gpuCounters() {
    const zel::host::GpuCounters counters = zel::host::gpuCounters();
    GpuCounterSnapshot snapshot;
    snapshot.available = true;
    snapshot.images = counters.imagesCreated;
    snapshot.programs = counters.programsLinked;
    snapshot.draws = counters.draws;
    snapshot.uploads = counters.uploads;
    snapshot.writeBacks = counters.writeBacks;
    snapshot.fenceFds = counters.fenceFdsCreated;
    return snapshot;
}

}  // namespace zel::convert
