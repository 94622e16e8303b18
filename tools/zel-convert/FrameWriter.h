/*
 * Where converted frames go: raw frames, a YUV4MPEG2 stream (YUV destinations) or PNG pictures
 * (RGBA destinations). Each frame is handed over whole, after its conversion succeeded.
 */
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Frame.h"
#include "Options.h"
#include "OutputFile.h"
#include "PixelFormat.h"
#include "ToolError.h"

namespace zel::convert {

// What the writer needs to know about the stream it writes.
struct StreamInfo {
    const PixelFormat* format = nullptr;  // of the destination buffer
    int width = 0;
    int height = 0;
    bool fullRange = false;
    std::string frameRate = "25:1";
    int64_t frameCount = -1;  // -1: unknown
    bool inputIsY4m = false;
};

class FrameWriter {
public:
    static ToolError open(const Options& options, const StreamInfo& stream,
                          std::unique_ptr<FrameWriter>* out);
    virtual ~FrameWriter() = default;

    // The layout frames must be in when handed to write().
    FrameLayout layout() const { return mLayout; }
    virtual ToolError write(const Frame& frame) = 0;
    virtual ToolError finish() { return {}; }

protected:
    FrameLayout mLayout = FrameLayout::Rgba;
};

}  // namespace zel::convert
