#include "YuvConversion.h"

#include <system/graphics.h>

namespace zel {
namespace hostgpu {

YuvConversion conversionOfDataspace(int32_t dataspace) {
    switch (dataspace) {
        case HAL_DATASPACE_JFIF:
            return YuvConversion::Bt601Full;
        case HAL_DATASPACE_BT601_625:
        case HAL_DATASPACE_BT601_525:
            return YuvConversion::Bt601;
        case HAL_DATASPACE_BT709:
            return YuvConversion::Bt709;
        default:
            break;
    }
    const bool full = (dataspace & HAL_DATASPACE_RANGE_MASK) == HAL_DATASPACE_RANGE_FULL;
    switch (dataspace & HAL_DATASPACE_STANDARD_MASK) {
        case HAL_DATASPACE_STANDARD_BT709:
            return full ? YuvConversion::Bt709Full : YuvConversion::Bt709;
        case HAL_DATASPACE_STANDARD_BT2020:
        case HAL_DATASPACE_STANDARD_BT2020_CONSTANT_LUMINANCE:
            return full ? YuvConversion::Bt2020Full : YuvConversion::Bt2020;
        default:
            return full ? YuvConversion::Bt601Full : YuvConversion::Bt601;
    }
}

YuvToRgbCoefficients yuvToRgbCoefficients(YuvConversion conversion, int bitDepth) {
    const int index = static_cast<int>(conversion);
    static const double kKr[3] = {0.299, 0.2126, 0.2627};
    static const double kKb[3] = {0.114, 0.0722, 0.0593};
    const double kr = kKr[index / 2];
    const double kb = kKb[index / 2];
    const double kg = 1.0 - kr - kb;
    // The 8-bit code ranges scale with the bit depth: 16..235 and 16..240 become 64..940 and
    // 64..960 at 10 bits, centred on 512; samples are normalised by the largest code.
    const double largest = (1 << bitDepth) - 1;
    const double step = (1 << bitDepth) / 256.0;
    YuvToRgbCoefficients c;
    c.offset[1] = c.offset[2] = 128.0 * step / largest;
    if (index % 2 == 1) {
        c.offset[0] = 0.0;
        c.scale[0] = c.scale[1] = c.scale[2] = 1.0;
    } else {
        c.offset[0] = 16.0 * step / largest;
        c.scale[0] = largest / (219.0 * step);
        c.scale[1] = c.scale[2] = largest / (224.0 * step);
    }
    c.crToR = 2.0 - 2.0 * kr;
    c.cbToB = 2.0 - 2.0 * kb;
    c.cbToG = kb * (2.0 - 2.0 * kb) / kg;
    c.crToG = kr * (2.0 - 2.0 * kr) / kg;
    return c;
}

}  // namespace hostgpu
}  // namespace zel
