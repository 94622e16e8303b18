/*
 * A systrace section for the life of the object, so the tool's own steps show in a trace next
 * to the library's.
 */
#pragma once

#include <cutils/trace.h>

namespace zel::convert {

class TraceSection {
public:
    explicit TraceSection(const char* name) { atrace_begin(ATRACE_TAG_ALWAYS, name); }
    ~TraceSection() { atrace_end(ATRACE_TAG_ALWAYS); }
    TraceSection(const TraceSection&) = delete;
    TraceSection& operator=(const TraceSection&) = delete;
};

}  // namespace zel::convert
