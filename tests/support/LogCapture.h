#pragma once

#include <cstddef>
#include <string>

#include <android/log.h>
#include <string_view>
#include <vector>

#include <zel/host/Log.h>

namespace zel::test {

// Captures liblog output for the lifetime of the object: turns capture on and starts from an
// empty buffer; turns it off and clears on destruction.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<zel::host::LogLine> lines() const;
    // Lines whose message contains text.
    std::vector<zel::host::LogLine> linesContaining(std::string_view text) const;
    // Lines at priority (ANDROID_LOG_*) whose message contains text.
    size_t count(int priority, std::string_view text) const;
    void clear();
    // Every captured line, logcat-style, for failure messages.
    std::string dump() const;
};

}  // namespace zel::test
