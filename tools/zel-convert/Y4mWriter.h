/*
 * A YUV4MPEG2 stream: 4:2:0 frames, 8-bit (C420jpeg) or 10-bit (C420p10), with XCOLORRANGE.
 */
#pragma once

#include "FrameWriter.h"

namespace zel::convert {

class Y4mWriter : public FrameWriter {
public:
    Y4mWriter(std::unique_ptr<OutputFile> file, const StreamInfo& stream);
    ToolError write(const Frame& frame) override;
    ToolError finish() override { return mFile->flush(); }

private:
    std::unique_ptr<OutputFile> mFile;
    std::string mHeader;  // written ahead of the first frame
};

}  // namespace zel::convert
