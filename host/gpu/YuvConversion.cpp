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

YuvToRgbCoefficients yuvToRgbCoefficients(YuvConversion conversion) {
    const int index = static_cast<int>(conversion);
    static const double kKr[3] = {0.299, 0.2126, 0.2627};
    static const double kKb[3] = {0.114, 0.0722, 0.0593};
    const double kr = kKr[index / 2];
    const double kb = kKb[index / 2];
    const double kg = 1.0 - kr - kb;
    YuvToRgbCoefficients c;
    if (index % 2 == 1) {
        c.offset[0] = 0.0;
        c.offset[1] = c.offset[2] = 128.0 / 255.0;
        c.scale[0] = c.scale[1] = c.scale[2] = 1.0;
    } else {
        c.offset[0] = 16.0 / 255.0;
        c.offset[1] = c.offset[2] = 128.0 / 255.0;
        c.scale[0] = 255.0 / 219.0;
        c.scale[1] = c.scale[2] = 255.0 / 224.0;
    }
    c.crToR = 2.0 - 2.0 * kr;
    c.cbToB = 2.0 - 2.0 * kb;
    c.cbToG = kb * (2.0 - 2.0 * kb) / kg;
    c.crToG = kr * (2.0 - 2.0 * kr) / kg;
    return c;
}

}  // namespace hostgpu
}  // namespace zel
