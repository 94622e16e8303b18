#include "FrameReader.h"

#include <cstring>

#include "DumpReader.h"
#include "PngCodec.h"
#include "PngReader.h"
#include "RawReader.h"
#include "Y4mReader.h"

namespace zel::convert {

ToolError FrameReader::open(const Options& options, std::unique_ptr<FrameReader>* out) {
    std::unique_ptr<InputFile> file;
    if (ToolError error = InputFile::open(options.input, &file)) {
        return error;
    }
    const std::vector<uint8_t> head = file->peek(std::strlen(Y4mReader::kSignature));
    auto startsWith = [&head](const void* signature, size_t length) {
        return head.size() >= length && std::memcmp(head.data(), signature, length) == 0;
    };
    if (startsWith(Y4mReader::kSignature, std::strlen(Y4mReader::kSignature))) {
        return Y4mReader::open(std::move(file), out);
    }
    if (startsWith(PngCodec::kSignature, sizeof(PngCodec::kSignature))) {
        return PngReader::open(std::move(file), out);
    }
    DumpName dump;
    if (!options.size && DumpReader::parseName(options.input, &dump)) {
        return DumpReader::open(std::move(file), dump, out);
    }
    if (!options.size || options.from == nullptr) {
        return ToolError::badInput(file->name() +
                                   ": raw input needs -s WxH and -f FORMAT (YUV4MPEG2, PNG and "
                                   "buffer dumps say it themselves)");
    }
    return RawReader::open(std::move(file), *options.from, *options.size, out);
}

std::string FrameReader::frameName(int64_t index) const {
    return "frame " + std::to_string(index + 1);
}

ToolError FrameReader::readFrameBytes(Frame& frame) {
    if (frame.layout() != mLayout || frame.width() != mWidth || frame.height() != mHeight) {
        frame = Frame(mLayout, mWidth, mHeight);
    }
    const size_t got = mFile->read(frame.data(), frame.size());
    if (got != frame.size()) {
        return ToolError::badInput(mFile->name() + ": " + frameName(mFramesRead) +
                                   " is truncated (" + std::to_string(got) + " of " +
                                   std::to_string(frame.size()) + " bytes)");
    }
    ++mFramesRead;
    return {};
}

}  // namespace zel::convert
