/*
 * The host's atrace recorder: every ATRACE_* section, async section and counter of an enabled tag
 * is recorded in memory (bounded; what does not fit is counted as dropped) and can be exported as
 * a Chrome/Perfetto JSON trace. When the environment variable ZEL_HOST_TRACE_FILE is set, the
 * trace is written there when the process exits.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zel::host {

enum class TracePhase : char {
    Begin = 'B',       // atrace_begin_body
    End = 'E',         // atrace_end_body; named after the section it closes
    AsyncBegin = 'b',  // atrace_async_begin_body; value holds the cookie
    AsyncEnd = 'e',    // atrace_async_end_body; value holds the cookie
    Counter = 'C',     // atrace_int_body, atrace_int64_body; value holds the count
};

struct TraceEvent {
    TracePhase phase;
    std::string name;
    int pid;
    int tid;
    int64_t timestampNs;  // CLOCK_MONOTONIC
    int64_t value;
};

// The enabled tag mask (what atrace_get_enabled_tags returns). ATRACE_TAG_ALWAYS (bit 0) is on by
// default, plus the tags in the property debug.atrace.tags.enableflags when it is set.
void setEnabledTags(uint64_t tags);
uint64_t enabledTags();

std::vector<TraceEvent> traceEvents();
// Discards the recorded events and resets the dropped count.
void clearTraceEvents();
// Events lost because the recorder was full (it keeps the first maxTraceEvents()).
uint64_t droppedTraceEvents();
size_t maxTraceEvents();

// {"traceEvents":[...]} with timestamps in microseconds, loadable by chrome://tracing and Perfetto.
std::string chromeTraceJson();
bool writeChromeTrace(const std::string& path);

}  // namespace zel::host
