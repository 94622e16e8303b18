#include "FrameWriter.h"

#include "PngWriter.h"
#include "RawWriter.h"
#include "Y4mWriter.h"

namespace zel::convert {

namespace {

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

OutputKind kindOf(const Options& options, const StreamInfo& stream) {
    if (options.outputKind != OutputKind::Auto) {
        return options.outputKind;
    }
    if (endsWith(options.output, ".y4m")) {
        return OutputKind::Y4m;
    }
    if (endsWith(options.output, ".png")) {
        return OutputKind::Png;
    }
    if (options.output == "-" && stream.inputIsY4m && stream.format->isYuv()) {
        return OutputKind::Y4m;
    }
    return OutputKind::Raw;
}

}  // namespace

ToolError FrameWriter::open(const Options& options, const StreamInfo& stream,
                            std::unique_ptr<FrameWriter>* out) {
    const OutputKind kind = kindOf(options, stream);
    if (kind == OutputKind::Png) {
        if (stream.format->isYuv()) {
            return ToolError::badInput(std::string("PNG output needs an rgba destination, not ") +
                                       stream.format->name);
        }
        if (options.output == "-") {
            return ToolError::badInput("PNG output needs a file name");
        }
        if (stream.frameCount > 1 && !PngWriter::hasNumberPattern(options.output)) {
            return ToolError::badInput(options.output +
                                       " holds one picture: name PNG output of a stream with a "
                                       "number pattern such as out-%03d.png");
        }
        out->reset(new PngWriter(options.output));
        return {};
    }
    if (kind == OutputKind::Y4m && !stream.format->isYuv()) {
        return ToolError::badInput(
            "YUV4MPEG2 output needs a YUV destination (-t nv12, nv21, p010le, ...)");
    }
    std::unique_ptr<OutputFile> file;
    if (ToolError error = OutputFile::open(options.output, &file)) {
        return error;
    }
    if (kind == OutputKind::Y4m) {
        out->reset(new Y4mWriter(std::move(file), stream));
    } else {
        out->reset(new RawWriter(std::move(file), stream.format->layout));
    }
    return {};
}

}  // namespace zel::convert
