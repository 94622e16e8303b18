/*
 * One PNG picture as one RGBA frame.
 */
#pragma once

#include "PictureReader.h"

namespace zel::convert {

class PngReader : public PictureReader {
public:
    static ToolError open(std::unique_ptr<InputFile> file, std::unique_ptr<FrameReader>* out);
};

}  // namespace zel::convert
