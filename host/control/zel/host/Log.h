/*
 * Control of the host's liblog output. libzel_host installs a liblog logger when it loads and
 * lets every priority through (verbose and debug included). The logger prints each line to
 * stderr logcat-style ("D ZEL : message"), unless the environment variable ZEL_HOST_LOG is
 * "quiet" or setLogToStderr(false) was called, and keeps it in memory while capture is on.
 */
#pragma once

#include <string>
#include <vector>

namespace zel::host {

struct LogLine {
    int priority;  // android_LogPriority: ANDROID_LOG_VERBOSE (2) .. ANDROID_LOG_FATAL (7)
    std::string tag;
    std::string message;
    int tid;
};

void setLogCapture(bool enabled);
std::vector<LogLine> capturedLogs();
void clearCapturedLogs();
void setLogToStderr(bool enabled);

}  // namespace zel::host
