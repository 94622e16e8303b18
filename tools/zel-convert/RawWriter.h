/*
 * Raw frames back to back, in the destination format's raw layout.
 */
#pragma once

#include "FrameWriter.h"

namespace zel::convert {

class RawWriter : public FrameWriter {
public:
    RawWriter(std::unique_ptr<OutputFile> file, FrameLayout layout);
    ToolError write(const Frame& frame) override;
    ToolError finish() override { return mFile->flush(); }

private:
    std::unique_ptr<OutputFile> mFile;
};

}  // namespace zel::convert
