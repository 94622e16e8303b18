/*
 * The command line of zel-convert, parsed with CLI11 into Options.
 */
#pragma once

#include "Options.h"
#include "ToolError.h"

namespace zel::convert {

class CommandLine {
public:
    // Fills options; on --help prints the usage and sets *helpShown. Bad usage is an error with
    // exit code 2 and one line.
    static ToolError parse(int argc, char** argv, Options* options, bool* helpShown);
    // The table of --list-formats.
    static std::string formatList();
};

}  // namespace zel::convert
