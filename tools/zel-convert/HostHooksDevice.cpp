// The device's side of HostHooks: properties go through property_set; traces are Perfetto's and
// GPU counters the GPU vendor's tools, so neither is offered here.
#include <cutils/properties.h>

#include "HostHooks.h"

namespace zel::convert {

ToolError HostHooks::setProperty(const std::string& key, const std::string& value) {
    if (property_set(key.c_str(), value.c_str()) != 0) {
        return ToolError::badInput("cannot set property " + key);
    }
    return {};
}

ToolError HostHooks::startTrace() {
    return ToolError::badInput("--trace records on the host only: on a device use Perfetto");
}

ToolError HostHooks::writeTrace(const std::string&) {
    return {};
}

GpuCounterSnapshot HostHooks::gpuCounters() {
    return {};
}

}  // namespace zel::convert
