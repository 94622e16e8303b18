#include "Description.h"

#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {

namespace {

constexpr int kRgba8888 = HAL_PIXEL_FORMAT_RGBA_8888;

// The accepted formats below 64, one bit each.
constexpr uint64_t kSmallFormatMask =
    (1ull << HAL_PIXEL_FORMAT_RGBA_8888) | (1ull << HAL_PIXEL_FORMAT_YCrCb_420_SP) |
    (1ull << HAL_PIXEL_FORMAT_YCbCr_420_888) | (1ull << HAL_PIXEL_FORMAT_YCBCR_P010);
constexpr uint32_t kSmallFormatLimit = 0xfff;

}  // namespace

bool Description::supportFormat(int format) {
    ZEL_TRACE_NAME("supportFormat");
    const uint32_t value = static_cast<uint32_t>(format);
    if (value <= kSmallFormatLimit) {
        return value < 64 && ((kSmallFormatMask >> value) & 1u) != 0;
    }
    switch (format) {
        case HAL_PIXEL_FORMAT_YV12:
        case kVendorFormatYuv420SpA:
        case kVendorFormatYvu420Sp:
        case kVendorFormatYuv420SpB:
            return true;
        default:
            return false;
    }
}

void Description::setFmtType(int srcFormat, int dstFormat) {
    ZEL_TRACE_NAME("setFmtType");
    ZEL_LOGD("srcFormat = %d, dstFormat = %d", srcFormat, dstFormat);
    if (dstFormat == kRgba8888) {
        mFmtType = kFmtRgbaDst;
    } else if (srcFormat == kRgba8888) {
        mFmtType = kFmtRgbaToYuv;
    } else {
        mFmtType = kFmtYuvToYuv;
    }
}

void Description::setDatasapce(android_dataspace_t dataspace) {
    ZEL_TRACE_NAME("setDatasapce");
    const uint32_t value = static_cast<uint32_t>(dataspace);
    const unsigned long standard = value & HAL_DATASPACE_STANDARD_MASK;
    const unsigned long range = value & HAL_DATASPACE_RANGE_MASK;
    ZEL_LOGI("setDatasapce model : %lu, range :%lu", standard, range);
    switch (standard) {
        case HAL_DATASPACE_STANDARD_BT709:
            mStandard = kStandardBt709;
            break;
        case HAL_DATASPACE_STANDARD_BT601_625:
            mStandard = kStandardBt601;
            break;
        case HAL_DATASPACE_STANDARD_BT2020:
            mStandard = kStandardBt2020;
            break;
        default:
            // Unknown standards, BT601_525 among them, keep what an earlier pass set.
            return;
    }
    mFullRange = range != HAL_DATASPACE_RANGE_LIMITED;
}

}  // namespace zel
}  // namespace kav
