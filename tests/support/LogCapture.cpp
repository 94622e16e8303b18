#include "LogCapture.h"

namespace zel::test {

LogCapture::LogCapture() {
    zel::host::clearCapturedLogs();
    zel::host::setLogCapture(true);
}

LogCapture::~LogCapture() {
    zel::host::setLogCapture(false);
    zel::host::clearCapturedLogs();
}

std::vector<zel::host::LogLine> LogCapture::lines() const {
    return zel::host::capturedLogs();
}

std::vector<zel::host::LogLine> LogCapture::linesContaining(std::string_view text) const {
    std::vector<zel::host::LogLine> matching;
    for (auto& line : zel::host::capturedLogs()) {
        if (line.message.find(text) != std::string::npos) {
            matching.push_back(std::move(line));
        }
    }
    return matching;
}

size_t LogCapture::count(int priority, std::string_view text) const {
    size_t n = 0;
    for (const auto& line : linesContaining(text)) {
        n += line.priority == priority ? 1 : 0;
    }
    return n;
}

void LogCapture::clear() {
    zel::host::clearCapturedLogs();
}

std::string LogCapture::dump() const {
    static const char kLetters[] = "??VDIWEFS";
    std::string text;
    for (const auto& line : zel::host::capturedLogs()) {
        text += line.priority >= 0 && line.priority <= 8 ? kLetters[line.priority] : '?';
        text += " " + line.tag + " : " + line.message + "\n";
    }
    return text;
}

}  // namespace zel::test
