#include "Dataspace.h"

#include <system/graphics.h>

namespace zel::convert {

int32_t Dataspace::of(const ColourChoice& choice, std::optional<bool> streamFullRange) {
    if (choice.dataspace) {
        return *choice.dataspace;
    }
    const int32_t standard = choice.standard.value_or(HAL_DATASPACE_STANDARD_BT601_625);
    const bool full = choice.fullRange.value_or(streamFullRange.value_or(false));
    return standard | HAL_DATASPACE_TRANSFER_SMPTE_170M |
           (full ? HAL_DATASPACE_RANGE_FULL : HAL_DATASPACE_RANGE_LIMITED);
}

bool Dataspace::isFullRange(int32_t dataspace) {
    return dataspace == HAL_DATASPACE_JFIF ||
           (dataspace & HAL_DATASPACE_RANGE_MASK) == HAL_DATASPACE_RANGE_FULL;
}

}  // namespace zel::convert
