/*
 * YUV4MPEG2 streams of 4:2:0 frames, 8-bit (C420, C420jpeg, C420mpeg2, C420paldv) or 10-bit
 * (C420p10), with the colour range of XCOLORRANGE when the header has one.
 */
#pragma once

#include "FrameReader.h"

namespace zel::convert {

class Y4mReader : public FrameReader {
public:
    static constexpr const char* kSignature = "YUV4MPEG2 ";

    static ToolError open(std::unique_ptr<InputFile> file, std::unique_ptr<FrameReader>* out);
    ToolError read(Frame& frame, bool* done) override;

private:
    ToolError parseHeader(const std::string& header);
};

}  // namespace zel::convert
