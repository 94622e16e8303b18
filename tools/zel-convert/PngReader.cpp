#include "PngReader.h"

#include <vector>

#include "PngCodec.h"

namespace zel::convert {

ToolError PngReader::open(std::unique_ptr<InputFile> file, std::unique_ptr<FrameReader>* out) {
    std::unique_ptr<PngReader> reader(new PngReader());
    const std::vector<uint8_t> bytes = file->readAll();
    Frame picture;
    if (ToolError error = PngCodec::decode(bytes, file->name(), &picture)) {
        return error;
    }
    reader->setPicture(std::move(picture), PixelFormat::find("rgba"));
    reader->mFile = std::move(file);
    *out = std::move(reader);
    return {};
}

}  // namespace zel::convert
