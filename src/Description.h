/*
 * The per-draw record from which the conversion pass's shader program is chosen. The renderer owns
 * one and refills it for every pass: the format pair decides the conversion type, the destination
 * dataspace the colour standard of an RGBA-to-YUV pass, and the pass's mesh and transform the
 * remaining flags. ChooseProgram turns it into a program key and shader text; gl::Program uploads
 * its matrix.
 */
#pragma once

#include <stdint.h>

#include <math/mat4.h>
#include <system/graphics.h>

namespace kav {
namespace zel {

// Vendor YUV formats that the generated programs sample and render like the public ones.
constexpr int kVendorFormatYuv420SpA = 0x1000;
constexpr int kVendorFormatYvu420Sp = 0x7f000010;
constexpr int kVendorFormatYuv420SpB = 0x7f000030;

class Description {
public:
    // mFmtType values.
    static constexpr int32_t kFmtRgbaDst = 0;  // the destination is RGBA
    static constexpr int32_t kFmtYuvToYuv = 1;
    static constexpr int32_t kFmtRgbaToYuv = 2;

    // mStandard values.
    static constexpr int32_t kStandardUnset = 0;
    static constexpr int32_t kStandardBt709 = 1;
    static constexpr int32_t kStandardBt601 = 2;
    static constexpr int32_t kStandardBt2020 = 3;

    // True when the HAL pixel format can be sampled or rendered by the generated programs. Only
    // RGBA_8888 among the RGB formats: the others are refused on purpose.
    static bool supportFormat(int format);

    // RGBA_8888 (1) is the only format that counts as RGB; every other one counts as YUV.
    void setFmtType(int srcFormat, int dstFormat);

    // Colour standard and range of the destination. A standard other than BT.709, BT.601_625 and
    // BT.2020 leaves both fields as they were; any range but LIMITED counts as full.
    void setDatasapce(android_dataspace_t dataspace);

    int32_t mFmtType = kFmtRgbaDst;
    int32_t mStandard = kStandardUnset;
    bool mFullRange = false;
    android::mat4 mProjectionMatrix;  // identity
    bool mHasProjection = false;
    bool mUseVertexBuffer = false;
    bool mHasIndices = false;
    bool mHasTexCoords = false;
    bool mHasWarp = false;
    bool mWarpIs2D = false;
    bool mHasAlpha = false;
    bool mAlphaIs2D = false;
    bool mCacheProgram = false;
    bool mDualSource = false;
    int32_t mAppId = 0;
};

}  // namespace zel
}  // namespace kav
