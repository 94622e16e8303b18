/*
 * Everything the command line says, parsed and checked.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ui/Rect.h>

#include "PixelFormat.h"

namespace zel::convert {

enum class BlitMode { Sync, Fence, Async };
enum class OutputKind { Auto, Raw, Y4m, Png };

// A colour standard and range; each unset part comes from the input or the default (BT.601,
// limited range). A raw dataspace overrides both.
struct ColourChoice {
    std::optional<int32_t> standard;  // HAL_DATASPACE_STANDARD_*
    std::optional<bool> fullRange;
    std::optional<int32_t> dataspace;
};

struct Size {
    int width = 0;
    int height = 0;
};

struct Options {
    std::string input;
    std::string output;
    OutputKind outputKind = OutputKind::Auto;
    std::optional<Size> size;           // of raw input frames
    const PixelFormat* from = nullptr;  // source buffer format; nullptr: from the input
    const PixelFormat* to = nullptr;    // destination buffer format; nullptr: rgba
    ColourChoice sourceColour;
    ColourChoice destinationColour;
    std::optional<android::Rect> crop;
    std::optional<android::Rect> region;
    float rotation = 0.0f;
    std::optional<Size> forceSize;
    std::optional<Size> outputSize;  // destination buffer size
    std::optional<Size> grid;        // columns x rows of mesh vertices
    int rendererType = 1;
    BlitMode blitMode = BlitMode::Sync;
    int64_t frames = -1;  // -1: all
    std::vector<std::pair<std::string, std::string>> properties;
    bool stats = false;
    std::string traceFile;
    std::string demoDir;
    bool listFormats = false;
    bool progress = true;
    bool verbose = false;  // the library's debug and info lines on stderr too
};

}  // namespace zel::convert
