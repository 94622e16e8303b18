#include "RawReader.h"

namespace zel::convert {

ToolError RawReader::open(std::unique_ptr<InputFile> file, const PixelFormat& format, Size size,
                          std::unique_ptr<FrameReader>* out) {
    std::unique_ptr<RawReader> reader(new RawReader());
    reader->mWidth = size.width;
    reader->mHeight = size.height;
    reader->mLayout = format.layout;
    reader->mFormat = &format;
    const int64_t frameBytes =
        static_cast<int64_t>(Frame::sizeOf(format.layout, size.width, size.height));
    if (file->size() >= 0) {
        if (file->size() == 0 || file->size() % frameBytes != 0) {
            return ToolError::badInput(file->name() + ": " + std::to_string(file->size()) +
                                       " bytes is not a whole number of " +
                                       std::to_string(size.width) + "x" +
                                       std::to_string(size.height) + " " + format.name +
                                       " frames (" + std::to_string(frameBytes) + " bytes each)");
        }
        reader->mFrameCount = file->size() / frameBytes;
    }
    reader->mFile = std::move(file);
    *out = std::move(reader);
    return {};
}

ToolError RawReader::read(Frame& frame, bool* done) {
    *done = mFile->peek(1).empty() && !mFile->failed();
    return *done ? ToolError() : readFrameBytes(frame);
}

}  // namespace zel::convert
