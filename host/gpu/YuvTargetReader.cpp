#include "YuvTargetReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "GlErrorQueue.h"
#include "MesaDriver.h"
#include "YuvConversion.h"

namespace zel {
namespace hostgpu {
namespace {

GLint integer(GLenum name) {
    GLint value = 0;
    mesa().glGetIntegerv(name, &value);
    return value;
}

// A code of a plane: 8-bit samples, or the 10 bits in bits 15..6 of P010's 16-bit containers.
uint32_t codeAt(const uint8_t* sample, bool tenBit) {
    if (!tenBit) {
        return *sample;
    }
    uint16_t container = 0;
    std::memcpy(&container, sample, sizeof(container));
    return container >> 6;
}

uint8_t unorm8(double value) {
    return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255.0));
}

// Decodes the pixel at crop-relative (x, y) of `image` into RGBA.
void decodePixel(const NativeBufferImage& image, const YuvToRgbCoefficients& c, uint32_t x,
                 uint32_t y, uint8_t out[4]) {
    const ImageLayout layout = image.format().layout;
    const bool tenBit = layout == ImageLayout::P010;
    const double largest = tenBit ? 1023.0 : 255.0;
    const uint32_t chromaX = ((image.crop().left + x) >> 1) - (image.crop().left >> 1);
    const uint32_t chromaY = ((image.crop().top + y) >> 1) - (image.crop().top >> 1);
    auto sample = [&](uint32_t plane, uint32_t column, uint32_t row) {
        return image.planeData(plane) + static_cast<size_t>(row) * image.rowPitch(plane) +
               static_cast<size_t>(column) * image.layout().planes[plane].sampleBytes;
    };
    const size_t half = tenBit ? 2 : 1;  // bytes of one chroma code in an interleaved pair
    uint32_t cb = 0;
    uint32_t cr = 0;
    switch (layout) {
        case ImageLayout::Nv12:
        case ImageLayout::P010:
            cb = codeAt(sample(1, chromaX, chromaY), tenBit);
            cr = codeAt(sample(1, chromaX, chromaY) + half, tenBit);
            break;
        case ImageLayout::Nv21:
            cr = codeAt(sample(1, chromaX, chromaY), false);
            cb = codeAt(sample(1, chromaX, chromaY) + 1, false);
            break;
        case ImageLayout::Yv12:
            cr = codeAt(sample(1, chromaX, chromaY), false);
            cb = codeAt(sample(2, chromaX, chromaY), false);
            break;
        case ImageLayout::Rgba:
            break;
    }
    const double luma = (codeAt(sample(0, x, y), tenBit) / largest - c.offset[0]) * c.scale[0];
    const double blue = (cb / largest - c.offset[1]) * c.scale[1];
    const double red = (cr / largest - c.offset[2]) * c.scale[2];
    out[0] = unorm8(luma + c.crToR * red);
    out[1] = unorm8(luma - c.cbToG * blue - c.crToG * red);
    out[2] = unorm8(luma + c.cbToB * blue);
    out[3] = 255;
}

}  // namespace

bool YuvTargetReader::read(ContextState& context, GLint x, GLint y, GLsizei width, GLsizei height,
                           GLenum format, GLenum type, GLsizei bufSize, void* pixels) {
    const MesaFunctions& gl = mesa();
    const GLint framebuffer = integer(GL_READ_FRAMEBUFFER_BINDING);
    const GLint readBuffer = integer(GL_READ_BUFFER);
    if (framebuffer == 0 || readBuffer == GL_NONE) {
        return false;
    }
    const GLuint clientTexture =
        context.attachedTexture(static_cast<GLuint>(framebuffer), static_cast<GLenum>(readBuffer));
    ImageTexture* texture = clientTexture != 0 ? context.shareGroup().find(clientTexture) : nullptr;
    if (texture == nullptr || !texture->isYuv()) {
        return false;
    }
    if (width < 0 || height < 0) {
        GlErrorQueue::push(GL_INVALID_VALUE);
        return true;
    }
    if (format != GL_RGBA || type != GL_UNSIGNED_BYTE || texture->image().isProtected()) {
        GlErrorQueue::push(GL_INVALID_OPERATION);
        return true;
    }

    // Where each row goes, as the pack state lays client memory out.
    const GLint packRowLength = integer(GL_PACK_ROW_LENGTH);
    const GLint rowLength = packRowLength > 0 ? packRowLength : width;
    const size_t alignment = static_cast<size_t>(std::max(integer(GL_PACK_ALIGNMENT), 1));
    const size_t stride =
        (static_cast<size_t>(rowLength) * 4 + alignment - 1) / alignment * alignment;
    const size_t first = static_cast<size_t>(integer(GL_PACK_SKIP_ROWS)) * stride +
                         static_cast<size_t>(integer(GL_PACK_SKIP_PIXELS)) * 4;
    const size_t size =
        width == 0 || height == 0
            ? 0
            : first + static_cast<size_t>(height - 1) * stride + static_cast<size_t>(width) * 4;
    if (bufSize >= 0 && size > static_cast<size_t>(bufSize)) {
        GlErrorQueue::push(GL_INVALID_OPERATION);
        return true;
    }
    if (size == 0) {
        return true;
    }

    if (texture->dirty()) {
        texture->writeBack(context.passResources());
    }
    const NativeBufferImage& image = texture->image();
    const YuvToRgbCoefficients coefficients =
        yuvToRgbCoefficients(conversionOfDataspace(image.dataspace()),
                             image.format().layout == ImageLayout::P010 ? 10 : 8);

    const bool packBuffer = integer(GL_PIXEL_PACK_BUFFER_BINDING) != 0;
    uint8_t* out = nullptr;
    if (packBuffer) {
        // `pixels` is an offset into the buffer; a range past its end is the driver's error.
        const GLintptr offset = static_cast<GLintptr>(reinterpret_cast<uintptr_t>(pixels));
        out = static_cast<uint8_t*>(gl.glMapBufferRange(
            GL_PIXEL_PACK_BUFFER, offset, static_cast<GLsizeiptr>(size), GL_MAP_WRITE_BIT));
        if (out == nullptr) {
            return true;
        }
    } else {
        out = static_cast<uint8_t*>(pixels);
    }
    const int64_t targetWidth = image.crop().width;
    const int64_t targetHeight = image.crop().height;
    for (GLsizei row = 0; row < height; ++row) {
        const int64_t targetY = static_cast<int64_t>(y) + row;
        if (targetY < 0 || targetY >= targetHeight) {
            continue;
        }
        uint8_t* line = out + first + static_cast<size_t>(row) * stride;
        for (GLsizei column = 0; column < width; ++column) {
            const int64_t targetX = static_cast<int64_t>(x) + column;
            if (targetX >= 0 && targetX < targetWidth) {
                decodePixel(image, coefficients, static_cast<uint32_t>(targetX),
                            static_cast<uint32_t>(targetY), line + static_cast<size_t>(column) * 4);
            }
        }
    }
    if (packBuffer) {
        gl.glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
    }
    return true;
}

}  // namespace hostgpu
}  // namespace zel
