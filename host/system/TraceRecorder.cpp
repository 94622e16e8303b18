#include "TraceRecorder.h"

#include <time.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace zel::host {
namespace {

int64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void appendJsonString(std::string& out, const std::string& text) {
    out += '"';
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof(escaped), "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    out += '"';
}

void appendEvent(std::string& out, const TraceEvent& event) {
    char buffer[160];
    out += "{\"name\":";
    appendJsonString(out, event.name);
    std::snprintf(buffer, sizeof(buffer),
                  ",\"ph\":\"%c\",\"ts\":%" PRId64 ".%03" PRId64 ",\"pid\":%d,\"tid\":%d",
                  static_cast<char>(event.phase), event.timestampNs / 1000,
                  event.timestampNs % 1000, event.pid, event.tid);
    out += buffer;
    switch (event.phase) {
        case TracePhase::AsyncBegin:
        case TracePhase::AsyncEnd:
            std::snprintf(buffer, sizeof(buffer), ",\"cat\":\"atrace\",\"id\":%" PRId64,
                          event.value);
            out += buffer;
            break;
        case TracePhase::Counter:
            std::snprintf(buffer, sizeof(buffer), ",\"args\":{\"value\":%" PRId64 "}", event.value);
            out += buffer;
            break;
        case TracePhase::Begin:
        case TracePhase::End:
            break;
    }
    out += '}';
}

}  // namespace

TraceRecorder& TraceRecorder::instance() {
    static TraceRecorder recorder;
    return recorder;
}

TraceRecorder::~TraceRecorder() {
    const char* path = std::getenv("ZEL_HOST_TRACE_FILE");
    if (path != nullptr && *path != '\0' && !writeChromeJson(path)) {
        std::fprintf(stderr, "zel_host: cannot write the trace to '%s'\n", path);
    }
}

void TraceRecorder::record(TracePhase phase, std::string name, int64_t value) {
    TraceEvent event{phase,
                     std::move(name),
                     static_cast<int>(getpid()),
                     static_cast<int>(gettid()),
                     monotonicNs(),
                     value};
    std::lock_guard<std::mutex> lock(mMutex);
    if (mEvents.size() >= kMaxEvents) {
        ++mDropped;
        return;
    }
    mEvents.push_back(std::move(event));
}

std::vector<TraceEvent> TraceRecorder::events() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mEvents;
}

void TraceRecorder::clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mEvents.clear();
    mEvents.shrink_to_fit();
    mDropped = 0;
}

uint64_t TraceRecorder::dropped() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mDropped;
}

std::string TraceRecorder::chromeJson() {
    std::vector<TraceEvent> snapshot = events();
    std::string out = "{\"traceEvents\":[";
    for (size_t i = 0; i < snapshot.size(); ++i) {
        out += i == 0 ? "\n" : ",\n";
        appendEvent(out, snapshot[i]);
    }
    out += "\n],\"displayTimeUnit\":\"ms\"}\n";
    return out;
}

bool TraceRecorder::writeChromeJson(const std::string& path) {
    std::string json = chromeJson();
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(json.data(), static_cast<std::streamsize>(json.size()));
    file.close();
    return !file.fail();
}

}  // namespace zel::host
