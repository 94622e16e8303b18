/*
 * PNG pictures as RGBA frames, through libspng.
 */
#pragma once

#include <string>
#include <vector>

#include "Frame.h"
#include "ToolError.h"

namespace zel::convert {

class PngCodec {
public:
    static constexpr unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

    // Decodes a PNG file's bytes into an RGBA frame; name is for messages.
    static ToolError decode(const std::vector<uint8_t>& png, const std::string& name, Frame* frame);
    // Encodes an RGBA frame; false when libspng refuses.
    static bool encode(const Frame& frame, std::vector<uint8_t>* png);
    // Encodes and writes path through a temporary file, so a failed write leaves no partial file.
    static ToolError write(const Frame& frame, const std::string& path);
};

}  // namespace zel::convert
