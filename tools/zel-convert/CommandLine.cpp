#include "CommandLine.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include <CLI/CLI.hpp>
#include <system/graphics.h>

namespace zel::convert {

namespace {

// "WxH" with positive numbers.
bool parseSize(const std::string& text, Size* size) {
    char x = 0;
    char rest = 0;
    std::istringstream in(text);
    return (in >> size->width >> x >> size->height) && (x == 'x' || x == 'X') && !(in >> rest) &&
           size->width > 0 && size->height > 0;
}

// "left,top,right,bottom".
bool parseRect(const std::string& text, android::Rect* rect) {
    char c1 = 0, c2 = 0, c3 = 0, rest = 0;
    std::istringstream in(text);
    return (in >> rect->left >> c1 >> rect->top >> c2 >> rect->right >> c3 >> rect->bottom) &&
           c1 == ',' && c2 == ',' && c3 == ',' && !(in >> rest);
}

std::optional<Size> sizeOption(const std::string& text, const char* option, ToolError* error) {
    if (text.empty()) {
        return std::nullopt;
    }
    Size size;
    if (!parseSize(text, &size)) {
        *error = ToolError::badInput(std::string(option) + ": '" + text +
                                     "' is not a size such as 1920x1080");
        return std::nullopt;
    }
    return size;
}

std::optional<android::Rect> rectOption(const std::string& text, const char* option,
                                        ToolError* error) {
    if (text.empty()) {
        return std::nullopt;
    }
    android::Rect rect;
    if (!parseRect(text, &rect)) {
        *error = ToolError::badInput(std::string(option) + ": '" + text +
                                     "' is not a rectangle left,top,right,bottom");
        return std::nullopt;
    }
    return rect;
}

const PixelFormat* formatOption(const std::string& text, const char* option, ToolError* error) {
    if (text.empty()) {
        return nullptr;
    }
    const PixelFormat* format = PixelFormat::find(text);
    if (format == nullptr) {
        *error = ToolError::badInput(std::string(option) + ": unknown pixel format '" + text +
                                     "' (--list-formats shows them)");
    }
    return format;
}

struct ColourTexts {
    std::string standard;
    std::string range;
    std::string dataspace;
};

ColourChoice colourOption(const ColourTexts& texts, ToolError* error) {
    static const std::map<std::string, int32_t> kStandards = {
        {"bt601", HAL_DATASPACE_STANDARD_BT601_625},
        {"bt709", HAL_DATASPACE_STANDARD_BT709},
        {"bt2020", HAL_DATASPACE_STANDARD_BT2020},
    };
    ColourChoice choice;
    if (!texts.standard.empty()) {
        choice.standard = kStandards.at(texts.standard);
    }
    if (!texts.range.empty()) {
        choice.fullRange = texts.range == "full";
    }
    if (!texts.dataspace.empty()) {
        char* end = nullptr;
        const long value = std::strtol(texts.dataspace.c_str(), &end, 0);
        if (end == nullptr || *end != '\0') {
            *error = ToolError::badInput("'" + texts.dataspace + "' is not a dataspace number");
        }
        choice.dataspace = static_cast<int32_t>(value);
    }
    return choice;
}

}  // namespace

std::string CommandLine::formatList() {
    std::string out = "name           android      ffmpeg    layout\n";
    char line[160];
    for (const PixelFormat& format : PixelFormat::all()) {
        std::snprintf(line, sizeof(line), "%-14s 0x%-10x %-9s %s\n", format.name,
                      static_cast<unsigned>(format.android),
                      format.ffmpeg != nullptr ? format.ffmpeg : "-", format.description);
        out += line;
    }
    return out;
}

ToolError CommandLine::parse(int argc, char** argv, Options* options, bool* helpShown) {
    *helpShown = false;
    CLI::App app(
        "zel-convert: converts frames on the GPU through libcodec2_zel.\n"
        "  zel-convert in.y4m -o out.y4m -t nv21          a YUV4MPEG2 stream\n"
        "  zel-convert -s 1920x1080 -f nv21 in.yuv -o out.png\n"
        "  ffmpeg ... -f yuv4mpegpipe - | zel-convert - -t nv12 -o - | ffmpeg -i - ...\n"
        "  zel-convert 1234_1240_W_1920_H_1088_P_35_out#5.raw -o out.png   a buffer dump\n"
        "  zel-convert --demo demo                        the built-in example",
        "zel-convert");
    std::string size, from, to, crop, region, forceSize, outputSize, grid;
    std::string renderer = "direct", blit = "sync", outputFormat = "auto";
    ColourTexts source, destination;
    std::vector<std::string> defines;
    bool noProgress = false;
    app.add_option("input", options->input, "input file, - for standard input");
    app.add_option("-o,--output", options->output, "output file, - for standard output");
    app.add_option("--output-format", outputFormat, "raw, y4m or png (default: by the name)")
        ->check(CLI::IsMember({"auto", "raw", "y4m", "png"}));
    app.add_option("-s,--size", size, "WxH of raw input frames");
    app.add_option("-f,--from", from, "source buffer format (raw input: its format)");
    app.add_option("-t,--to", to, "destination buffer format (default rgba)");
    const auto standards = CLI::IsMember({"bt601", "bt709", "bt2020"});
    const auto ranges = CLI::IsMember({"limited", "full"});
    app.add_option("--src-colour", source.standard, "source standard: bt601|bt709|bt2020")
        ->check(standards);
    app.add_option("--src-range", source.range, "source range: limited|full")->check(ranges);
    app.add_option("--src-dataspace", source.dataspace, "source Android dataspace (a number)");
    app.add_option("--dst-colour", destination.standard, "destination standard")->check(standards);
    app.add_option("--dst-range", destination.range, "destination range")->check(ranges);
    app.add_option("--dst-dataspace", destination.dataspace, "destination Android dataspace");
    app.add_option("--crop", crop, "crop of the source: left,top,right,bottom");
    app.add_option("--region", region, "sampled region of the source: left,top,right,bottom");
    app.add_option("--rotate", options->rotation, "rotation in degrees");
    app.add_option("--force-size", forceSize, "render at WxH from the destination's origin");
    app.add_option("--out-size", outputSize, "destination buffer WxH (default: source or crop)");
    app.add_option("--grid", grid, "draw through a grid mesh of CxR vertices");
    app.add_option("--renderer", renderer, "direct (this thread) or threaded")
        ->check(CLI::IsMember({"direct", "threaded"}));
    app.add_option("--blit", blit, "sync, fence or async entry point")
        ->check(CLI::IsMember({"sync", "fence", "async"}));
    app.add_option("-n,--frames", options->frames, "convert at most N frames")
        ->check(CLI::NonNegativeNumber);
    app.add_option("-D", defines, "set a system property first: -D key=value");
    app.add_flag("--stats", options->stats, "per-frame times, fps and GPU counters on stderr");
    app.add_option("--trace", options->traceFile, "write a Chrome/Perfetto JSON trace");
    app.add_flag("--no-progress", noProgress, "no progress line on a terminal");
    app.add_flag("-v,--verbose", options->verbose,
                 "show the library's debug and info lines (default: warnings and errors)");
    app.add_option("--demo", options->demoDir, "run the built-in example into DIR");
    app.add_flag("--list-formats", options->listFormats, "print the pixel formats");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::printf("%s", app.help().c_str());
        *helpShown = true;
        return {};
    } catch (const CLI::ParseError& e) {
        return ToolError::badInput(e.what());
    }
    ToolError error;
    options->size = sizeOption(size, "--size", &error);
    options->forceSize = sizeOption(forceSize, "--force-size", &error);
    options->outputSize = sizeOption(outputSize, "--out-size", &error);
    options->grid = sizeOption(grid, "--grid", &error);
    options->crop = rectOption(crop, "--crop", &error);
    options->region = rectOption(region, "--region", &error);
    options->from = formatOption(from, "--from", &error);
    options->to = formatOption(to, "--to", &error);
    options->sourceColour = colourOption(source, &error);
    options->destinationColour = colourOption(destination, &error);
    options->rendererType = renderer == "threaded" ? 2 : 1;
    options->blitMode = blit == "fence"   ? BlitMode::Fence
                        : blit == "async" ? BlitMode::Async
                                          : BlitMode::Sync;
    options->outputKind = outputFormat == "raw"   ? OutputKind::Raw
                          : outputFormat == "y4m" ? OutputKind::Y4m
                          : outputFormat == "png" ? OutputKind::Png
                                                  : OutputKind::Auto;
    options->progress = !noProgress;
    for (const std::string& define : defines) {
        const size_t equals = define.find('=');
        if (equals == std::string::npos || equals == 0) {
            return ToolError::badInput("-D " + define + ": expected key=value");
        }
        options->properties.emplace_back(define.substr(0, equals), define.substr(equals + 1));
    }
    if (error) {
        return error;
    }
    if (options->grid && (options->grid->width < 2 || options->grid->height < 2)) {
        return ToolError::badInput("--grid needs at least 2x2 vertices");
    }
    if (options->crop &&
        (options->crop->isEmpty() || options->crop->left < 0 || options->crop->top < 0)) {
        return ToolError::badInput("--crop needs a non-empty rectangle inside the source");
    }
    if (!options->listFormats && options->demoDir.empty()) {
        if (options->input.empty()) {
            return ToolError::badInput("no input: zel-convert INPUT -o OUTPUT (--help for more)");
        }
        if (options->output.empty()) {
            return ToolError::badInput("no output: add -o FILE, or -o - for standard output");
        }
    }
    return {};
}

}  // namespace zel::convert
