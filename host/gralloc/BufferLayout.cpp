// The CPU memory layout of host buffers; the rules are written out in <zel/host/Gralloc.h>.

#include <zel/host/Gralloc.h>

#include <limits>

#include <system/graphics.h>

namespace zel::host {
namespace {

// Host stand-ins for vendor YUV formats.
constexpr uint32_t kVendorNv12A = 0x1000;
constexpr uint32_t kVendorNv12B = 0x7f000030;
constexpr uint32_t kVendorNv21 = 0x7f000010;
constexpr uint32_t kFormatR8 = 0x38;

constexpr uint64_t kRowAlignment = 64;
constexpr uint64_t kYv12Alignment = 16;

constexpr uint64_t alignUp(uint64_t v, uint64_t a) {
    return (v + a - 1) / a * a;
}

constexpr uint64_t half(uint64_t v) {
    return (v + 1) / 2;
}

// Bytes per pixel of the packed formats the host allocates; 0 for the rest.
uint32_t packedBytesPerPixel(uint32_t format) {
    switch (format) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
        case HAL_PIXEL_FORMAT_BGRA_8888:
        case HAL_PIXEL_FORMAT_RGBA_1010102:
            return 4;
        case HAL_PIXEL_FORMAT_RGBA_FP16:
            return 8;
        case HAL_PIXEL_FORMAT_RGB_888:
            return 3;
        case HAL_PIXEL_FORMAT_RGB_565:
            return 2;
        case kFormatR8:
        case HAL_PIXEL_FORMAT_BLOB:
            return 1;
        default:
            return 0;
    }
}

enum class ChromaOrder { CbCr, CrCb };

bool semiPlanarOrder(uint32_t format, ChromaOrder* order, uint32_t* sampleBytes) {
    switch (format) {
        case HAL_PIXEL_FORMAT_YCBCR_420_888:
        case kVendorNv12A:
        case kVendorNv12B:
            *order = ChromaOrder::CbCr;
            *sampleBytes = 1;
            return true;
        case HAL_PIXEL_FORMAT_YCRCB_420_SP:
        case kVendorNv21:
            *order = ChromaOrder::CrCb;
            *sampleBytes = 1;
            return true;
        case HAL_PIXEL_FORMAT_YCBCR_P010:
            *order = ChromaOrder::CbCr;
            *sampleBytes = 2;
            return true;
        default:
            return false;
    }
}

}  // namespace

bool computeBufferLayout(uint32_t format, uint32_t width, uint32_t height, uint32_t layerCount,
                         BufferLayout* outLayout) {
    if (outLayout == nullptr || width == 0 || height == 0) {
        return false;
    }
    // Keep every offset comfortably inside 32 bits.
    if (width > 32768 || height > 32768 || layerCount > 64) {
        return false;
    }
    BufferLayout l;
    l.format = format;
    l.width = width;
    l.height = height;
    l.layerCount = layerCount == 0 ? 1 : layerCount;

    uint64_t layerSize = 0;
    ChromaOrder order;
    uint32_t sampleBytes = 0;
    if (const uint32_t bpp = packedBytesPerPixel(format); bpp != 0) {
        const bool blob = format == HAL_PIXEL_FORMAT_BLOB;
        const uint64_t pitch = blob ? width : alignUp(uint64_t{width} * bpp, kRowAlignment);
        l.kind = LayoutKind::Packed;
        l.planeCount = 1;
        l.stride = static_cast<uint32_t>(pitch / bpp);
        l.planes[0] = {0, static_cast<uint32_t>(pitch), width, height, bpp};
        layerSize = pitch * height;
    } else if (semiPlanarOrder(format, &order, &sampleBytes)) {
        const uint64_t pitch = alignUp(uint64_t{width} * sampleBytes, kRowAlignment);
        const uint64_t chromaOffset = pitch * height;
        const uint32_t pairBytes = 2 * sampleBytes;
        l.kind = LayoutKind::SemiPlanar;
        l.bitsPerSample = sampleBytes == 2 ? 10 : 8;
        l.planeCount = 2;
        l.stride = static_cast<uint32_t>(pitch / sampleBytes);
        l.planes[0] = {0, static_cast<uint32_t>(pitch), width, height, sampleBytes};
        l.planes[1] = {static_cast<uint32_t>(chromaOffset), static_cast<uint32_t>(pitch),
                       static_cast<uint32_t>(half(width)), static_cast<uint32_t>(half(height)),
                       pairBytes};
        const uint32_t first = static_cast<uint32_t>(chromaOffset);
        const uint32_t second = first + sampleBytes;
        l.cbOffset = order == ChromaOrder::CbCr ? first : second;
        l.crOffset = order == ChromaOrder::CbCr ? second : first;
        l.chromaPitch = static_cast<uint32_t>(pitch);
        l.chromaStep = pairBytes;
        layerSize = chromaOffset + pitch * half(height);
    } else if (format == HAL_PIXEL_FORMAT_YV12) {
        const uint64_t yPitch = alignUp(width, kYv12Alignment);
        const uint64_t cPitch = alignUp(yPitch / 2, kYv12Alignment);
        const uint64_t crOffset = yPitch * height;
        const uint64_t cbOffset = crOffset + cPitch * half(height);
        const uint32_t cw = static_cast<uint32_t>(half(width));
        const uint32_t ch = static_cast<uint32_t>(half(height));
        l.kind = LayoutKind::Planar;
        l.planeCount = 3;
        l.stride = static_cast<uint32_t>(yPitch);
        l.planes[0] = {0, static_cast<uint32_t>(yPitch), width, height, 1};
        l.planes[1] = {static_cast<uint32_t>(crOffset), static_cast<uint32_t>(cPitch), cw, ch, 1};
        l.planes[2] = {static_cast<uint32_t>(cbOffset), static_cast<uint32_t>(cPitch), cw, ch, 1};
        l.cbOffset = static_cast<uint32_t>(cbOffset);
        l.crOffset = static_cast<uint32_t>(crOffset);
        l.chromaPitch = static_cast<uint32_t>(cPitch);
        l.chromaStep = 1;
        layerSize = cbOffset + cPitch * half(height);
    } else {
        return false;
    }

    const uint64_t total = layerSize * l.layerCount;
    if (total > std::numeric_limits<int32_t>::max()) {
        return false;
    }
    l.layerSize = static_cast<uint32_t>(layerSize);
    l.allocationSize = static_cast<uint32_t>(total);
    *outLayout = l;
    return true;
}

}  // namespace zel::host
