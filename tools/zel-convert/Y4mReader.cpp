#include "Y4mReader.h"

#include <cstdlib>
#include <sstream>

namespace zel::convert {

namespace {

constexpr size_t kLineLimit = 1024;
// Larger than any frame a GPU here can take; a header beyond it is damaged, and its frames would
// be allocated before a byte of them is read.
constexpr int kMaxDimension = 16384;

}  // namespace

ToolError Y4mReader::open(std::unique_ptr<InputFile> file, std::unique_ptr<FrameReader>* out) {
    std::unique_ptr<Y4mReader> reader(new Y4mReader());
    std::string header;
    if (!file->readLine(&header, kLineLimit)) {
        return ToolError::badInput(file->name() + ": no YUV4MPEG2 header");
    }
    reader->mFile = std::move(file);
    if (ToolError error = reader->parseHeader(header)) {
        return error;
    }
    const int64_t size = reader->mFile->size();
    if (size >= 0) {
        const int64_t frameBytes =
            static_cast<int64_t>(Frame::sizeOf(reader->mLayout, reader->mWidth, reader->mHeight));
        reader->mFrameCount = (size - static_cast<int64_t>(header.size()) - 1) /
                              (frameBytes + static_cast<int64_t>(sizeof("FRAME")));
    }
    *out = std::move(reader);
    return {};
}

ToolError Y4mReader::parseHeader(const std::string& header) {
    std::istringstream tokens(header);
    std::string token;
    tokens >> token;  // the signature
    std::string chroma = "420jpeg";
    while (tokens >> token) {
        const std::string value = token.substr(1);
        switch (token[0]) {
            case 'W':
                mWidth = std::atoi(value.c_str());
                break;
            case 'H':
                mHeight = std::atoi(value.c_str());
                break;
            case 'F':
                mFrameRate = value;
                break;
            case 'C':
                chroma = value;
                break;
            case 'X':
                if (value == "COLORRANGE=FULL") {
                    mFullRange = true;
                } else if (value == "COLORRANGE=LIMITED") {
                    mFullRange = false;
                }
                break;
            default:
                break;
        }
    }
    if (mWidth <= 0 || mHeight <= 0) {
        return ToolError::badInput(mFile->name() + ": the YUV4MPEG2 header has no frame size");
    }
    if (mWidth > kMaxDimension || mHeight > kMaxDimension) {
        return ToolError::badInput(mFile->name() + ": YUV4MPEG2 frame size " +
                                   std::to_string(mWidth) + "x" + std::to_string(mHeight) +
                                   " is too large");
    }
    if (chroma == "420" || chroma == "420jpeg" || chroma == "420mpeg2" || chroma == "420paldv") {
        mLayout = FrameLayout::I420;
        mFormat = PixelFormat::find("nv12");
    } else if (chroma == "420p10") {
        mLayout = FrameLayout::I010;
        mFormat = PixelFormat::find("p010le");
    } else {
        return ToolError::badInput(mFile->name() + ": YUV4MPEG2 chroma layout C" + chroma +
                                   " is not supported (only 4:2:0, 8 or 10 bits)");
    }
    return {};
}

ToolError Y4mReader::read(Frame& frame, bool* done) {
    std::string line;
    *done = !mFile->readLine(&line, kLineLimit);
    if (*done) {
        return {};
    }
    if (line.compare(0, 5, "FRAME") != 0) {
        return ToolError::badInput(mFile->name() + ": " + frameName(mFramesRead) +
                                   " does not start with FRAME");
    }
    return readFrameBytes(frame);
}

}  // namespace zel::convert
