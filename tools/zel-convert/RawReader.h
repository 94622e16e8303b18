/*
 * Raw frames of one format and size, back to back, as FFmpeg's rawvideo writes them.
 */
#pragma once

#include "FrameReader.h"

namespace zel::convert {

class RawReader : public FrameReader {
public:
    // Fails when a regular file does not hold a whole number of frames.
    static ToolError open(std::unique_ptr<InputFile> file, const PixelFormat& format, Size size,
                          std::unique_ptr<FrameReader>* out);
    ToolError read(Frame& frame, bool* done) override;
};

}  // namespace zel::convert
