#include "PngWriter.h"

#include <regex>

#include "PngCodec.h"

namespace zel::convert {

PngWriter::PngWriter(std::string pattern) : mPattern(std::move(pattern)) {
    mLayout = FrameLayout::Rgba;
}

namespace {

const std::regex& numberPattern() {
    static const std::regex kNumber(R"(%(0?)(\d*)d)");
    return kNumber;
}

}  // namespace

bool PngWriter::hasNumberPattern(const std::string& path) {
    return std::regex_search(path, numberPattern());
}

ToolError PngWriter::write(const Frame& frame) {
    ++mWritten;
    std::string path = mPattern;
    std::smatch match;
    if (std::regex_search(mPattern, match, numberPattern())) {
        std::string number = std::to_string(mWritten);
        const size_t width = match[2].length() > 0 ? std::stoul(match[2]) : 0;
        if (number.size() < width) {
            number.insert(0, width - number.size(), match[1].length() > 0 ? '0' : ' ');
        }
        path = match.prefix().str() + number + match.suffix().str();
    } else if (mWritten > 1) {
        return ToolError::badInput(mPattern +
                                   " holds one picture: name PNG output of a stream with a "
                                   "number pattern such as out-%03d.png");
    }
    return PngCodec::write(frame, path);
}

}  // namespace zel::convert
