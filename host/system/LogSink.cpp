#include "LogSink.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace zel::host {
namespace {

char priorityLetter(int priority) {
    switch (priority) {
        case ANDROID_LOG_VERBOSE:
            return 'V';
        case ANDROID_LOG_DEBUG:
            return 'D';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_WARN:
            return 'W';
        case ANDROID_LOG_ERROR:
            return 'E';
        case ANDROID_LOG_FATAL:
            return 'F';
        case ANDROID_LOG_SILENT:
            return 'S';
        default:
            return '?';
    }
}

void writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        done += static_cast<size_t>(n);
    }
}

}  // namespace

LogSink& LogSink::instance() {
    static LogSink sink;
    return sink;
}

LogSink::LogSink() {
    const char* mode = std::getenv("ZEL_HOST_LOG");
    mToStderr.store(mode == nullptr || std::strcmp(mode, "quiet") != 0);
    __android_log_set_logger(&LogSink::onLog);
    // liblog on the host drops debug and verbose lines unless a minimum priority is set.
    if (__android_log_get_minimum_priority() == ANDROID_LOG_DEFAULT) {
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    }
}

LogSink::~LogSink() {
    // Lines logged by destructors that run after this one still reach stderr.
    __android_log_set_logger(&__android_log_stderr_logger);
}

std::vector<LogLine> LogSink::captured() {
    std::lock_guard<std::mutex> lock(mCaptureMutex);
    return mLines;
}

void LogSink::clearCaptured() {
    std::lock_guard<std::mutex> lock(mCaptureMutex);
    mLines.clear();
    mLines.shrink_to_fit();
}

void LogSink::onLog(const __android_logger_data* data, const char* message) {
    instance().write(data->priority, data->tag, message);
}

void LogSink::write(int priority, const char* tag, const char* message) {
    if (tag == nullptr) {
        tag = "";
    }
    if (message == nullptr) {
        message = "";
    }
    if (mCapture.load()) {
        LogLine line{priority, tag, message, static_cast<int>(gettid())};
        std::lock_guard<std::mutex> lock(mCaptureMutex);
        mLines.push_back(std::move(line));
    }
    if (mToStderr.load()) {
        // Like logcat, every line of a multi-line message gets its own prefix; the whole message
        // goes out in one write so that other threads cannot split it.
        std::string prefix = std::string(1, priorityLetter(priority)) + " " + tag + " : ";
        std::string text;
        const char* start = message;
        do {
            const char* newline = std::strchr(start, '\n');
            size_t length =
                newline != nullptr ? static_cast<size_t>(newline - start) : std::strlen(start);
            text += prefix;
            text.append(start, length);
            text += '\n';
            start = newline != nullptr ? newline + 1 : nullptr;
        } while (start != nullptr && *start != '\0');
        std::lock_guard<std::mutex> lock(mStderrMutex);
        writeAll(STDERR_FILENO, text);
    }
}

}  // namespace zel::host
