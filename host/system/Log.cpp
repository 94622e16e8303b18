// The log control API, and the installation of the host's liblog logger when libzel_host loads.

#include <zel/host/Log.h>

#include "LogSink.h"

namespace {

// Installs the logger before any user of libzel_host runs (they are initialised after it).
[[maybe_unused]] const bool gInstalled = (zel::host::LogSink::instance(), true);

}  // namespace

namespace zel::host {

void setLogCapture(bool enabled) {
    LogSink::instance().setCapture(enabled);
}

std::vector<LogLine> capturedLogs() {
    return LogSink::instance().captured();
}

void clearCapturedLogs() {
    LogSink::instance().clearCaptured();
}

void setLogToStderr(bool enabled) {
    LogSink::instance().setToStderr(enabled);
}

}  // namespace zel::host
