#include "DumpReader.h"

#include <charconv>
#include <regex>
#include <vector>

#include <libyuv/planar_functions.h>

#include "BufferCopier.h"

namespace zel::convert {

namespace {

size_t alignUp(size_t value, size_t alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

// The planes of the dump's bytes for a row pitch that makes the allocation come out exactly;
// false when no pitch does.
bool dumpPlanes(std::vector<uint8_t>& bytes, const Frame& frame, YuvPlanes* planes, size_t* pitch) {
    const size_t size = bytes.size();
    const size_t width = static_cast<size_t>(frame.width());
    const size_t height = static_cast<size_t>(frame.height());
    const size_t sample = static_cast<size_t>(Frame::bytesPerSample(frame.layout()));
    uint8_t* base = bytes.data();
    if (frame.layout() == FrameLayout::Rgba) {
        *pitch = size / height;
        return size % height == 0 && *pitch >= width * 4;
    }
    if (frame.layout() == FrameLayout::Yv12) {
        // Android's YV12: luma pitch a multiple of 16, chroma pitch half of it, rounded up to 16.
        const size_t lumaPitch = alignUp(width, 16);
        const size_t chromaPitch = alignUp(lumaPitch / 2, 16);
        if (size != lumaPitch * height + 2 * chromaPitch * (height / 2)) {
            return false;
        }
        *planes = {base,
                   base + lumaPitch * height + chromaPitch * (height / 2),
                   base + lumaPitch * height,
                   lumaPitch,
                   chromaPitch,
                   1,
                   false};
        return true;
    }
    // Semi-planar: the luma rows and half as many chroma rows share one pitch.
    const size_t rows = height + height / 2;
    *pitch = size / rows;
    if (size % rows != 0 || *pitch < width * sample) {
        return false;
    }
    uint8_t* chroma = base + *pitch * height;
    const bool crFirst = frame.layout() == FrameLayout::Nv21;
    *planes = {
        base,   crFirst ? chroma + sample : chroma, crFirst ? chroma : chroma + sample, *pitch,
        *pitch, static_cast<int>(2 * sample),       frame.layout() == FrameLayout::P010};
    return true;
}

// The whole of digits as an int; false when it does not fit.
template <typename Int>
bool parseInt(const std::ssub_match& digits, Int* out) {
    const std::string text = digits;
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, *out);
    return error == std::errc() && last == end;
}

}  // namespace

bool DumpReader::parseName(const std::string& path, DumpName* out) {
    static const std::regex kPattern(R"((?:^|/)\d+_\d+_W_(\d+)_H_(\d+)_P_(-?\d+)_(.*)#\d+\.raw$)");
    std::smatch match;
    if (!std::regex_search(path, match, kPattern)) {
        return false;
    }
    out->tag = match[4];
    return parseInt(match[1], &out->width) && parseInt(match[2], &out->height) &&
           parseInt(match[3], &out->format);
}

ToolError DumpReader::open(std::unique_ptr<InputFile> file, const DumpName& name,
                           std::unique_ptr<FrameReader>* out) {
    const PixelFormat* format = PixelFormat::byAndroid(name.format);
    if (format == nullptr) {
        return ToolError::badInput(file->name() + ": unknown pixel format " +
                                   std::to_string(name.format) + " in the dump's name");
    }
    std::unique_ptr<DumpReader> reader(new DumpReader());
    if (name.width <= 0 || name.height <= 0) {
        return ToolError::badInput(file->name() + ": the dump's name gives no frame size");
    }
    std::vector<uint8_t> bytes = file->readAll();
    const auto mismatch = [&] {
        return ToolError::badInput(file->name() + ": " + std::to_string(bytes.size()) +
                                   " bytes do not hold a " + std::to_string(name.width) + "x" +
                                   std::to_string(name.height) + " " + format->name + " buffer");
    };
    // Every layout takes at least a byte a pixel: a name promising more than the file holds is
    // refused before a picture of that size is allocated.
    if (bytes.size() / static_cast<size_t>(name.width) < static_cast<size_t>(name.height)) {
        return mismatch();
    }
    Frame picture(format->layout, name.width, name.height);
    YuvPlanes planes;
    size_t pitch = 0;
    if (!dumpPlanes(bytes, picture, &planes, &pitch)) {
        return mismatch();
    }
    if (picture.layout() == FrameLayout::Rgba) {
        libyuv::CopyPlane(bytes.data(), static_cast<int>(pitch), picture.data(),
                          picture.width() * 4, picture.width() * 4, picture.height());
    } else {
        BufferCopier::copyPlanes(planes, picture.planes(), picture.width(), picture.height(),
                                 Frame::bytesPerSample(picture.layout()));
    }
    reader->setPicture(std::move(picture), format);
    reader->mFile = std::move(file);
    *out = std::move(reader);
    return {};
}

}  // namespace zel::convert
