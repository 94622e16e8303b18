/*
 * One run of the converter over a stream: opens the input, works out formats, sizes and colour,
 * makes the renderer and its buffers, then moves frame after frame through
 *   read (own thread) -> copy into a source buffer -> blit -> copy out -> write,
 * putting the next frame into the other buffer slot while the GPU converts the current one.
 */
#pragma once

#include <memory>

#include "Converter.h"
#include "FramePrefetcher.h"
#include "FrameReader.h"
#include "FrameStats.h"
#include "FrameWriter.h"
#include "Options.h"
#include "ToolError.h"

namespace zel::convert {

class StreamRunner {
public:
    explicit StreamRunner(const Options& options) : mOptions(options) {}
    ToolError run();

private:
    ToolError prepare();
    ToolError convertAll();
    // Takes the next frame from the reading thread into the slot's source buffer; false at the
    // end of the input (or after an error, in mReadError).
    bool load(int slot, FrameTimes* times);

    const Options& mOptions;
    std::unique_ptr<FrameReader> mReader;
    std::unique_ptr<FrameWriter> mWriter;
    std::unique_ptr<Converter> mConverter;
    std::unique_ptr<FramePrefetcher> mPrefetcher;
    ConversionSetup mSetup;
    int64_t mFrameCount = -1;
    ToolError mReadError;
};

}  // namespace zel::convert
