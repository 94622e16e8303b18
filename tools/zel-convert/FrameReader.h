/*
 * A source of frames: a raw file, a YUV4MPEG2 stream, a PNG picture or a buffer dump. open()
 * tells which from the stream's signature and the file name.
 */
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Frame.h"
#include "InputFile.h"
#include "Options.h"
#include "PixelFormat.h"
#include "ToolError.h"

namespace zel::convert {

class FrameReader {
public:
    static ToolError open(const Options& options, std::unique_ptr<FrameReader>* out);
    virtual ~FrameReader() = default;

    // Reads the next frame into frame (sized by the reader); *done is true at the end of the
    // input instead. A truncated or malformed frame is an error naming the frame's number.
    virtual ToolError read(Frame& frame, bool* done) = 0;

    int width() const { return mWidth; }
    int height() const { return mHeight; }
    FrameLayout layout() const { return mLayout; }
    // The source buffer format these frames go into, unless the command line names one.
    const PixelFormat* format() const { return mFormat; }
    // What the stream says about its colour range, if anything.
    std::optional<bool> fullRange() const { return mFullRange; }
    // Frame rate as YUV4MPEG2 writes it ("25:1").
    const std::string& frameRate() const { return mFrameRate; }
    // Frames in the input when it can tell (a regular file); -1 otherwise.
    int64_t frameCount() const { return mFrameCount; }

protected:
    FrameReader() = default;
    std::string frameName(int64_t index) const;
    // Reads the bytes of the next frame into frame (resized to the stream's frames); an error
    // names the frame when the input ends inside it.
    ToolError readFrameBytes(Frame& frame);

    std::unique_ptr<InputFile> mFile;
    int mWidth = 0;
    int mHeight = 0;
    FrameLayout mLayout = FrameLayout::Rgba;
    const PixelFormat* mFormat = nullptr;
    std::optional<bool> mFullRange;
    std::string mFrameRate = "25:1";
    int64_t mFrameCount = -1;
    int64_t mFramesRead = 0;
};

}  // namespace zel::convert
