// The atrace entry points that <cutils/trace.h> declares, recording into TraceRecorder. They
// take the place of Debian's no-op libcutils ones: libzel_host precedes libcutils in every link
// line, so the dynamic linker binds these first.

#include <cutils/properties.h>
#include <cutils/trace.h>
#include <zel/host/Trace.h>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "TraceRecorder.h"

using zel::host::TracePhase;
using zel::host::TraceRecorder;

// Same initial state as on Android.
atomic_bool atrace_is_ready(false);
uint64_t atrace_enabled_tags = ATRACE_TAG_NOT_READY;
int atrace_marker_fd = -1;

namespace {

std::once_flag gSetupOnce;
std::atomic<bool> gTracingEnabled(true);

void storeTags(uint64_t tags) {
    __atomic_store_n(&atrace_enabled_tags, tags, __ATOMIC_RELAXED);
}

uint64_t tagsFromProperty() {
    // debug.atrace.tags.enableflags adds tags; the always-on tag is always there, as on a phone.
    // A process asked to write its trace to ZEL_HOST_TRACE_FILE traces every tag.
    const char* traceFile = std::getenv("ZEL_HOST_TRACE_FILE");
    int64_t fallback = traceFile != nullptr && *traceFile != '\0' ? ATRACE_TAG_VALID_MASK : 0;
    int64_t flags = property_get_int64("debug.atrace.tags.enableflags", fallback);
    return (static_cast<uint64_t>(flags) & ATRACE_TAG_VALID_MASK) | ATRACE_TAG_ALWAYS;
}

// Names of the sections open on this thread, so that an end event carries its section's name.
std::vector<std::string>& openSections() {
    thread_local std::vector<std::string> sections;
    return sections;
}

// Warns when another library's atrace won the symbol lookup: nothing would be recorded.
void checkSymbolBinding() {
    Dl_info bound{};
    Dl_info ours{};
    void* symbol = dlsym(RTLD_DEFAULT, "atrace_begin_body");
    if (symbol == nullptr || dladdr(symbol, &bound) == 0 ||
        dladdr(reinterpret_cast<void*>(&checkSymbolBinding), &ours) == 0) {
        return;
    }
    if (bound.dli_fbase != ours.dli_fbase) {
        std::fprintf(stderr,
                     "zel_host: atrace_begin_body binds to %s, not libzel_host: link libzel_host "
                     "before libcutils, or traces will be empty\n",
                     bound.dli_fname);
    }
}

// At load: build the recorder early (it is destroyed late, after the users' statics, and writes
// ZEL_HOST_TRACE_FILE then) and check the binding.
[[maybe_unused]] const bool gLoaded = [] {
    TraceRecorder::instance();
    checkSymbolBinding();
    return true;
}();

}  // namespace

extern "C" {

void atrace_setup() {
    std::call_once(gSetupOnce, [] {
        storeTags(gTracingEnabled.load() ? tagsFromProperty() : 0);
        atrace_is_ready.store(true, std::memory_order_release);
    });
}

void atrace_init() {
    if (!atrace_is_ready.load(std::memory_order_acquire)) {
        atrace_setup();
    }
}

uint64_t atrace_get_enabled_tags() {
    atrace_init();
    return __atomic_load_n(&atrace_enabled_tags, __ATOMIC_RELAXED);
}

void atrace_update_tags() {
    if (atrace_is_ready.load(std::memory_order_acquire)) {
        storeTags(gTracingEnabled.load() ? tagsFromProperty() : 0);
    }
}

void atrace_set_debuggable(bool) {
    // Every host process counts as debuggable: application tags need no permission.
}

void atrace_set_tracing_enabled(bool enabled) {
    gTracingEnabled.store(enabled);
    atrace_update_tags();
}

void atrace_begin_body(const char* name) {
    std::string section = name != nullptr ? name : "";
    openSections().push_back(section);
    TraceRecorder::instance().record(TracePhase::Begin, std::move(section), 0);
}

void atrace_end_body() {
    std::string section;
    auto& sections = openSections();
    if (!sections.empty()) {
        section = std::move(sections.back());
        sections.pop_back();
    }
    TraceRecorder::instance().record(TracePhase::End, std::move(section), 0);
}

void atrace_async_begin_body(const char* name, int32_t cookie) {
    TraceRecorder::instance().record(TracePhase::AsyncBegin, name != nullptr ? name : "", cookie);
}

void atrace_async_end_body(const char* name, int32_t cookie) {
    TraceRecorder::instance().record(TracePhase::AsyncEnd, name != nullptr ? name : "", cookie);
}

void atrace_int_body(const char* name, int32_t value) {
    TraceRecorder::instance().record(TracePhase::Counter, name != nullptr ? name : "", value);
}

void atrace_int64_body(const char* name, int64_t value) {
    TraceRecorder::instance().record(TracePhase::Counter, name != nullptr ? name : "", value);
}

}  // extern "C"

namespace zel::host {

void setEnabledTags(uint64_t tags) {
    atrace_init();
    storeTags(tags);
}

uint64_t enabledTags() {
    return atrace_get_enabled_tags();
}

std::vector<TraceEvent> traceEvents() {
    return TraceRecorder::instance().events();
}

void clearTraceEvents() {
    TraceRecorder::instance().clear();
}

uint64_t droppedTraceEvents() {
    return TraceRecorder::instance().dropped();
}

size_t maxTraceEvents() {
    return TraceRecorder::kMaxEvents;
}

std::string chromeTraceJson() {
    return TraceRecorder::instance().chromeJson();
}

bool writeChromeTrace(const std::string& path) {
    return TraceRecorder::instance().writeChromeJson(path);
}

}  // namespace zel::host
