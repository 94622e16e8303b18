/*
 * Host version of Android's <ui/PixelFormat.h>: android::PixelFormat and the PIXEL_FORMAT_*
 * constants, which alias the HAL pixel formats.
 */
#pragma once

#include <stdint.h>

#include <system/graphics.h>

namespace android {

enum {
    // logical formats
    PIXEL_FORMAT_UNKNOWN = 0,
    PIXEL_FORMAT_NONE = 0,
    PIXEL_FORMAT_CUSTOM = -4,
    PIXEL_FORMAT_TRANSLUCENT = -3,
    PIXEL_FORMAT_TRANSPARENT = -2,
    PIXEL_FORMAT_OPAQUE = -1,

    // real formats
    PIXEL_FORMAT_RGBA_8888 = HAL_PIXEL_FORMAT_RGBA_8888,
    PIXEL_FORMAT_RGBX_8888 = HAL_PIXEL_FORMAT_RGBX_8888,
    PIXEL_FORMAT_RGBA_FP16 = HAL_PIXEL_FORMAT_RGBA_FP16,
    PIXEL_FORMAT_RGBA_1010102 = HAL_PIXEL_FORMAT_RGBA_1010102,
    PIXEL_FORMAT_RGB_888 = HAL_PIXEL_FORMAT_RGB_888,
    PIXEL_FORMAT_RGB_565 = HAL_PIXEL_FORMAT_RGB_565,
    PIXEL_FORMAT_BGRA_8888 = HAL_PIXEL_FORMAT_BGRA_8888,
    PIXEL_FORMAT_RGBA_5551 = 6,
    PIXEL_FORMAT_RGBA_4444 = 7,
    PIXEL_FORMAT_R_8 = 0x38,
};

typedef int32_t PixelFormat;

// Bytes per pixel of a packed RGB format; 0 for YUV and unknown formats.
uint32_t bytesPerPixel(PixelFormat format);

}  // namespace android
