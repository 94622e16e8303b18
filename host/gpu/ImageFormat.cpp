#include "ImageFormat.h"

#include <system/graphics.h>

namespace zel {
namespace hostgpu {

const ImageFormat* ImageFormat::find(uint32_t halFormat) {
    static const ImageFormat kFormats[] = {
        {HAL_PIXEL_FORMAT_RGBA_8888, Kind::Packed, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4, false},
        {HAL_PIXEL_FORMAT_RGBX_8888, Kind::Packed, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4, true},
    };
    for (const ImageFormat& format : kFormats) {
        if (format.halFormat == halFormat) {
            return &format;
        }
    }
    return nullptr;
}

}  // namespace hostgpu
}  // namespace zel
