/*
 * One PNG picture per frame. A stream of several frames needs a file name with a printf number
 * pattern ("out-%03d.png"), numbered from 1.
 */
#pragma once

#include "FrameWriter.h"

namespace zel::convert {

class PngWriter : public FrameWriter {
public:
    explicit PngWriter(std::string pattern);
    ToolError write(const Frame& frame) override;

    static bool hasNumberPattern(const std::string& path);

private:
    std::string mPattern;
    int64_t mWritten = 0;
};

}  // namespace zel::convert
