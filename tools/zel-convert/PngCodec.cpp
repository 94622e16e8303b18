#include "PngCodec.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <spng.h>

namespace zel::convert {

namespace {

struct ContextDeleter {
    void operator()(spng_ctx* context) const { spng_ctx_free(context); }
};
using Context = std::unique_ptr<spng_ctx, ContextDeleter>;

}  // namespace

ToolError PngCodec::decode(const std::vector<uint8_t>& png, const std::string& name, Frame* frame) {
    Context context(spng_ctx_new(0));
    spng_ihdr header = {};
    size_t size = 0;
    int error = spng_set_png_buffer(context.get(), png.data(), png.size());
    if (error == 0) {
        error = spng_get_ihdr(context.get(), &header);
    }
    if (error == 0) {
        error = spng_decoded_image_size(context.get(), SPNG_FMT_RGBA8, &size);
    }
    if (error == 0) {
        *frame = Frame(FrameLayout::Rgba, static_cast<int>(header.width),
                       static_cast<int>(header.height));
        error = size == frame->size()
                    ? spng_decode_image(context.get(), frame->data(), size, SPNG_FMT_RGBA8, 0)
                    : SPNG_EOVERFLOW;
    }
    if (error != 0) {
        return ToolError::badInput(name + ": not a readable PNG picture (" + spng_strerror(error) +
                                   ")");
    }
    return {};
}

bool PngCodec::encode(const Frame& frame, std::vector<uint8_t>* png) {
    Context context(spng_ctx_new(SPNG_CTX_ENCODER));
    spng_ihdr header = {};
    header.width = static_cast<uint32_t>(frame.width());
    header.height = static_cast<uint32_t>(frame.height());
    header.bit_depth = 8;
    header.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    int error = spng_set_option(context.get(), SPNG_ENCODE_TO_BUFFER, 1);
    if (error == 0) {
        error = spng_set_ihdr(context.get(), &header);
    }
    if (error == 0) {
        error = spng_encode_image(context.get(), frame.data(), frame.size(), SPNG_FMT_PNG,
                                  SPNG_ENCODE_FINALIZE);
    }
    if (error != 0) {
        return false;
    }
    size_t size = 0;
    std::unique_ptr<void, decltype(&std::free)> bytes(
        spng_get_png_buffer(context.get(), &size, &error), &std::free);
    if (bytes == nullptr) {
        return false;
    }
    const auto* begin = static_cast<const uint8_t*>(bytes.get());
    png->assign(begin, begin + size);
    return true;
}

ToolError PngCodec::write(const Frame& frame, const std::string& path) {
    std::vector<uint8_t> png;
    if (!encode(frame, &png)) {
        return ToolError::badInput("cannot encode " + path + " as PNG");
    }
    const std::string temporary = path + ".part";
    std::FILE* file = std::fopen(temporary.c_str(), "wb");
    if (file == nullptr) {
        return ToolError::badInput("cannot write " + path + ": " + std::strerror(errno));
    }
    const bool written = std::fwrite(png.data(), 1, png.size(), file) == png.size();
    const int savedErrno = errno;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        return ToolError::badInput("cannot write " + path + ": " +
                                   std::strerror(written ? errno : savedErrno));
    }
    return {};
}

}  // namespace zel::convert
