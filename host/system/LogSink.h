#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include <android/log.h>
#include <zel/host/Log.h>

namespace zel::host {

// The liblog logger of the host: prints logcat-style lines to stderr and, while capture is on,
// keeps every line in memory. Installed when libzel_host loads; thread-safe.
class LogSink {
public:
    static LogSink& instance();
    ~LogSink();

    void setCapture(bool enabled) { mCapture.store(enabled); }
    void setToStderr(bool enabled) { mToStderr.store(enabled); }
    std::vector<LogLine> captured();
    void clearCaptured();

private:
    LogSink();
    static void onLog(const __android_logger_data* data, const char* message);
    void write(int priority, const char* tag, const char* message);

    std::atomic<bool> mCapture{false};
    std::atomic<bool> mToStderr{true};
    std::mutex mCaptureMutex;
    std::vector<LogLine> mLines;
    std::mutex mStderrMutex;
};

}  // namespace zel::host
