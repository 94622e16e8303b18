// zel-convert: converts frames and streams on the GPU through libcodec2_zel, runs the built-in
// demo, and replays buffer dumps. Exit status 0 on success, 1 when a conversion failed, 2 for
// bad usage or bad input.
#include <cstdio>

#include <android/log.h>

#include "CommandLine.h"
#include "Demo.h"
#include "StreamRunner.h"

int main(int argc, char** argv) {
    using namespace zel::convert;
    Options options;
    bool helpShown = false;
    ToolError error = CommandLine::parse(argc, argv, &options, &helpShown);
    if (!error && !helpShown) {
        // The library's debug and info lines would bury the tool's own output.
        if (!options.verbose) {
            __android_log_set_minimum_priority(ANDROID_LOG_WARN);
        }
        if (options.listFormats) {
            std::printf("%s", CommandLine::formatList().c_str());
        } else if (!options.demoDir.empty()) {
            error = Demo(options).run();
        } else {
            error = StreamRunner(options).run();
        }
    }
    if (error) {
        std::fprintf(stderr, "zel-convert: %s\n", error.message().c_str());
        return error.exitCode();
    }
    return 0;
}
