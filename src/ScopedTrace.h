/*
 * A systrace section for the lifetime of a scope. The section opens only when ZEL_debug_trace
 * was set on entry and the always-on trace tag is enabled; it closes when the flag was set on
 * entry and the tag is still enabled on exit, so begin and end pair up while the tag is steady.
 */
#pragma once

#include <cutils/trace.h>

#include "DebugSettings.h"

namespace kav {
namespace zel {

class ScopedTrace {
public:
    explicit ScopedTrace(const char* name) : mTracing(debugTrace()) {
        if (mTracing) {
            atrace_begin(ATRACE_TAG_ALWAYS, name);
        }
    }
    ~ScopedTrace() {
        // atrace_end tests the tag again rather than remembering it from the start.
        if (mTracing) {
            atrace_end(ATRACE_TAG_ALWAYS);
        }
    }
    ScopedTrace(const ScopedTrace&) = delete;
    ScopedTrace& operator=(const ScopedTrace&) = delete;

private:
    const bool mTracing;
};

}  // namespace zel
}  // namespace kav

#define ZEL_TRACE_CONCAT_(a, b) a##b
#define ZEL_TRACE_CONCAT(a, b) ZEL_TRACE_CONCAT_(a, b)
// A section named after the enclosing function.
#define ZEL_TRACE_FUNC() ::kav::zel::ScopedTrace ZEL_TRACE_CONCAT(zelTrace, __LINE__)(__func__)
// A section with a fixed label.
#define ZEL_TRACE_NAME(label) ::kav::zel::ScopedTrace ZEL_TRACE_CONCAT(zelTrace, __LINE__)(label)
