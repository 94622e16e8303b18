#include "Y4mWriter.h"

namespace zel::convert {

namespace {

constexpr char kFrameHeader[] = "FRAME\n";

}  // namespace

Y4mWriter::Y4mWriter(std::unique_ptr<OutputFile> file, const StreamInfo& stream)
    : mFile(std::move(file)) {
    const bool tenBits = stream.format->bitDepth() == 10;
    mLayout = tenBits ? FrameLayout::I010 : FrameLayout::I420;
    mHeader = "YUV4MPEG2 W" + std::to_string(stream.width) + " H" + std::to_string(stream.height) +
              " F" + stream.frameRate + " Ip A1:1 " +
              (tenBits ? "C420p10 XYSCSS=420P10" : "C420jpeg XYSCSS=420JPEG") +
              (stream.fullRange ? " XCOLORRANGE=FULL" : " XCOLORRANGE=LIMITED") + "\n";
}

ToolError Y4mWriter::write(const Frame& frame) {
    if (!mHeader.empty()) {
        if (ToolError error = mFile->write(mHeader.data(), mHeader.size())) {
            return error;
        }
        mHeader.clear();
    }
    if (ToolError error = mFile->write(kFrameHeader, sizeof(kFrameHeader) - 1)) {
        return error;
    }
    return mFile->write(frame.data(), frame.size());
}

}  // namespace zel::convert
