#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <zel/host/Trace.h>

namespace zel::host {

// The process-wide, bounded, thread-safe store of atrace events. When ZEL_HOST_TRACE_FILE is set
// in the environment, the trace is written there when the recorder is destroyed at exit.
class TraceRecorder {
public:
    static constexpr size_t kMaxEvents = size_t{1} << 20;

    static TraceRecorder& instance();
    ~TraceRecorder();

    // Timestamp, pid and tid are filled in here, on the calling thread.
    void record(TracePhase phase, std::string name, int64_t value);
    std::vector<TraceEvent> events();
    void clear();
    uint64_t dropped();
    std::string chromeJson();
    bool writeChromeJson(const std::string& path);

private:
    TraceRecorder() = default;

    std::mutex mMutex;
    std::vector<TraceEvent> mEvents;
    uint64_t mDropped = 0;
};

}  // namespace zel::host
