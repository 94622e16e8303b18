/*
 * The YUV <-> RGB conversions of GL_EXT_YUV_target and of external sampling, in the order of the
 * yuvCscStandardEXT constants itu_601, itu_601_full_range, itu_709, itu_709_full_range, itu_2020,
 * itu_2020_full_range (the enumerator value is the constant's value in injected GLSL).
 *
 * The digital ITU formulas: with (Kr, Kb) of the standard,
 *   y = Kr r + (1 - Kr - Kb) g + Kb b,  cb = (b - y) / (2 - 2 Kb),  cr = (r - y) / (2 - 2 Kr).
 * Sampling a YUV image decodes its codes with the code ranges of their bit depth n, as BT.2020,
 * BT.2100 and FFmpeg do: limited range y = (Y - 16 * 2^(n-8)) / (219 * 2^(n-8)),
 * c = (C - 128 * 2^(n-8)) / (224 * 2^(n-8)); full range y = Y / (2^n - 1),
 * c = (C - 2^(n-1)) / (2^n - 1). For 8 bits: (Y - 16) / 219, (C - 128) / 224; for 10 bits:
 * (Y - 64) / 876, (C - 512) / 896.
 * The built-ins rgb_2_yuv and yuv_2_rgb of GL_EXT_YUV_target work on normalised samples with the
 * 8-bit ranges whatever the bit depth (limited Y = (219 y + 16) / 255, C = (224 c + 128) / 255;
 * full Y = y, C = c + 128 / 255), as the extension defines them.
 */
#pragma once

#include <cstdint>

namespace zel {
namespace hostgpu {

enum class YuvConversion : uint8_t {
    Bt601,
    Bt601Full,
    Bt709,
    Bt709Full,
    Bt2020,
    Bt2020Full,
};

// YUV -> RGB as an affine map on samples normalised by their largest code:
// e = (yuv - offset) * scale, then
//   r = e.y' + crToR e.cr,  g = e.y' - cbToG e.cb - crToG e.cr,  b = e.y' + cbToB e.cb.
struct YuvToRgbCoefficients {
    double offset[3];
    double scale[3];
    double crToR;
    double cbToG;
    double crToG;
    double cbToB;
};

// The conversion a buffer's dataspace asks for: its standard (BT.709, BT.2020, otherwise BT.601)
// and range (full only when it says so). The legacy dataspaces JFIF, BT601_625, BT601_525 and
// BT709 count as their V0_ versions; no dataspace at all is BT.601 limited range.
YuvConversion conversionOfDataspace(int32_t dataspace);

// The decoding of codes of `bitDepth` bits (8 or 10) by sampling.
YuvToRgbCoefficients yuvToRgbCoefficients(YuvConversion conversion, int bitDepth);

}  // namespace hostgpu
}  // namespace zel
