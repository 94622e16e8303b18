/*
 * The Android dataspace a buffer gets from the command line's colour choice and what the input
 * says about its range.
 */
#pragma once

#include <cstdint>
#include <optional>

#include "Options.h"

namespace zel::convert {

class Dataspace {
public:
    // BT.601 and limited range unless the choice (or, for the range, the stream) says otherwise.
    static int32_t of(const ColourChoice& choice, std::optional<bool> streamFullRange);
    static bool isFullRange(int32_t dataspace);
};

}  // namespace zel::convert
