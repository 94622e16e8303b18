/*
 * The built-in example: a test picture converted through a representative set of format pairs
 * and settings, a PNG of each result, a contact sheet with captions, and a table of the time per
 * frame and the largest error against the double-precision reference converter.
 */
#pragma once

#include "Options.h"
#include "ToolError.h"

namespace zel::convert {

class Demo {
public:
    explicit Demo(const Options& options) : mOptions(options) {}
    ToolError run();

private:
    const Options& mOptions;
};

}  // namespace zel::convert
