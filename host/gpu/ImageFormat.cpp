#include "ImageFormat.h"

#include <system/graphics.h>

namespace zel {
namespace hostgpu {

namespace {

// Host stand-ins for vendor formats (see <zel/host/Gralloc.h>).
constexpr uint32_t kVendorNv12A = 0x1000;
constexpr uint32_t kVendorNv12B = 0x7f000030;
constexpr uint32_t kVendorNv21 = 0x7f000010;

constexpr PlaneFormat kRgba8 = {GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4};
constexpr PlaneFormat kR8 = {GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1};
constexpr PlaneFormat kRg8 = {GL_RG8, GL_RG, GL_UNSIGNED_BYTE, 2};
constexpr PlaneFormat kR16 = {GL_R16_EXT, GL_RED, GL_UNSIGNED_SHORT, 2};
constexpr PlaneFormat kRg16 = {GL_RG16_EXT, GL_RG, GL_UNSIGNED_SHORT, 4};

constexpr ImageFormat kFormats[] = {
    {HAL_PIXEL_FORMAT_RGBA_8888, ImageLayout::Rgba, false, 1, {kRgba8}},
    {HAL_PIXEL_FORMAT_RGBX_8888, ImageLayout::Rgba, true, 1, {kRgba8}},
    {HAL_PIXEL_FORMAT_YCRCB_420_SP, ImageLayout::Nv21, true, 2, {kR8, kRg8}},
    {HAL_PIXEL_FORMAT_YCBCR_420_888, ImageLayout::Nv12, true, 2, {kR8, kRg8}},
    {HAL_PIXEL_FORMAT_YCBCR_P010, ImageLayout::P010, true, 2, {kR16, kRg16}},
    {HAL_PIXEL_FORMAT_YV12, ImageLayout::Yv12, true, 3, {kR8, kR8, kR8}},
    {kVendorNv12A, ImageLayout::Nv12, true, 2, {kR8, kRg8}},
    {kVendorNv12B, ImageLayout::Nv12, true, 2, {kR8, kRg8}},
    {kVendorNv21, ImageLayout::Nv21, true, 2, {kR8, kRg8}},
};

}  // namespace

const ImageFormat* ImageFormat::find(uint32_t halFormat) {
    for (const ImageFormat& format : kFormats) {
        if (format.halFormat == halFormat) {
            return &format;
        }
    }
    return nullptr;
}

}  // namespace hostgpu
}  // namespace zel
