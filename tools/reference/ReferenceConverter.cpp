#include "ReferenceConverter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <hardware/gralloc.h>
#include <system/graphics.h>
#include <ui/GraphicBufferMapper.h>

namespace zel {
namespace test {

namespace {

// Host stand-ins for vendor YUV formats.
constexpr int32_t kVendorNv12A = 0x1000;
constexpr int32_t kVendorNv12B = 0x7f000030;
constexpr int32_t kVendorNv21 = 0x7f000010;

struct LumaWeights {
    double kr;
    double kb;
};

LumaWeights weightsOf(YuvStandard standard) {
    switch (standard) {
        case YuvStandard::Bt709:
            return {0.2126, 0.0722};
        case YuvStandard::Bt2020:
            return {0.2627, 0.0593};
        case YuvStandard::Bt601:
        default:
            return {0.299, 0.114};
    }
}

double maxCode(int bitDepth) {
    return static_cast<double>((1 << bitDepth) - 1);
}

double unit(uint8_t code) {
    return code / 255.0;
}

uint8_t byteOf(double normalised) {
    return static_cast<uint8_t>(codeOf(normalised, 8));
}

// A CPU mapping of a buffer for the life of the object.
class Lock {
public:
    Lock(android::GraphicBuffer& buffer, uint32_t usage) : mBuffer(buffer) {
        if (isYuvFormat(buffer.getPixelFormat())) {
            mOk = buffer.lockYCbCr(usage, &mYcbcr) == android::NO_ERROR;
        } else {
            mOk = buffer.lock(usage, &mData) == android::NO_ERROR;
        }
    }
    ~Lock() {
        if (mOk) {
            mBuffer.unlock();
        }
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    bool ok() const { return mOk; }
    const android_ycbcr& ycbcr() const { return mYcbcr; }
    uint8_t* pixels() const { return static_cast<uint8_t*>(mData); }

private:
    android::GraphicBuffer& mBuffer;
    bool mOk = false;
    android_ycbcr mYcbcr = {};
    void* mData = nullptr;
};

// One sample of a plane: 8-bit bytes, or 16-bit little-endian words holding code << 6.
uint16_t loadSample(const uint8_t* at, int bitDepth) {
    if (bitDepth == 8) {
        return *at;
    }
    const uint16_t word = static_cast<uint16_t>(at[0] | (at[1] << 8));
    return static_cast<uint16_t>(word >> 6);
}

void storeSample(uint8_t* at, uint16_t code, int bitDepth) {
    if (bitDepth == 8) {
        *at = static_cast<uint8_t>(code);
        return;
    }
    const uint16_t word = static_cast<uint16_t>(code << 6);
    at[0] = static_cast<uint8_t>(word & 0xFF);
    at[1] = static_cast<uint8_t>(word >> 8);
}

}  // namespace

const char* nameOf(YuvStandard standard) {
    switch (standard) {
        case YuvStandard::Bt709:
            return "Bt709";
        case YuvStandard::Bt2020:
            return "Bt2020";
        case YuvStandard::Bt601:
        default:
            return "Bt601";
    }
}

std::string nameOf(const ColourSpace& space) {
    return std::string(nameOf(space.standard)) + (space.fullRange ? "Full" : "Limited");
}

void PrintTo(const ColourSpace& space, std::ostream* out) {
    *out << nameOf(space);
}

ColourSpace colourSpaceOf(int32_t dataspace) {
    switch (dataspace) {
        case HAL_DATASPACE_JFIF:
            return {YuvStandard::Bt601, true};
        case HAL_DATASPACE_BT601_625:
        case HAL_DATASPACE_BT601_525:
            return {YuvStandard::Bt601, false};
        case HAL_DATASPACE_BT709:
            return {YuvStandard::Bt709, false};
        default:
            break;
    }
    ColourSpace space;
    const int32_t standard = dataspace & HAL_DATASPACE_STANDARD_MASK;
    if (standard == HAL_DATASPACE_STANDARD_BT709) {
        space.standard = YuvStandard::Bt709;
    } else if (standard == HAL_DATASPACE_STANDARD_BT2020 ||
               standard == HAL_DATASPACE_STANDARD_BT2020_CONSTANT_LUMINANCE) {
        space.standard = YuvStandard::Bt2020;
    }
    space.fullRange = (dataspace & HAL_DATASPACE_RANGE_MASK) == HAL_DATASPACE_RANGE_FULL;
    return space;
}

int32_t dataspaceOf(const ColourSpace& space) {
    int32_t standard = HAL_DATASPACE_STANDARD_BT601_625;
    if (space.standard == YuvStandard::Bt709) {
        standard = HAL_DATASPACE_STANDARD_BT709;
    } else if (space.standard == YuvStandard::Bt2020) {
        standard = HAL_DATASPACE_STANDARD_BT2020;
    }
    return standard | HAL_DATASPACE_TRANSFER_SMPTE_170M |
           (space.fullRange ? HAL_DATASPACE_RANGE_FULL : HAL_DATASPACE_RANGE_LIMITED);
}

Yuv yuvFromRgb(const ColourSpace& space, const Rgb& rgb) {
    const LumaWeights w = weightsOf(space.standard);
    const double y = w.kr * rgb.r + (1.0 - w.kr - w.kb) * rgb.g + w.kb * rgb.b;
    const double cb = (rgb.b - y) / (2.0 * (1.0 - w.kb));
    const double cr = (rgb.r - y) / (2.0 * (1.0 - w.kr));
    if (space.fullRange) {
        return {y, cb + 128.0 / 255.0, cr + 128.0 / 255.0};
    }
    return {(219.0 * y + 16.0) / 255.0, (224.0 * cb + 128.0) / 255.0, (224.0 * cr + 128.0) / 255.0};
}

Rgb rgbFromYuv(const ColourSpace& space, const Yuv& yuv, int bitDepth) {
    const LumaWeights w = weightsOf(space.standard);
    // Back to codes, then the code ranges of the bit depth: the 8-bit ones times 2^(n-8).
    const double top = maxCode(bitDepth);
    const double step = (1 << bitDepth) / 256.0;
    const double luma = yuv.y * top;
    const double cbCode = yuv.cb * top - 128.0 * step;
    const double crCode = yuv.cr * top - 128.0 * step;
    double y = luma / top;
    double cb = cbCode / top;
    double cr = crCode / top;
    if (!space.fullRange) {
        y = (luma - 16.0 * step) / (219.0 * step);
        cb = cbCode / (224.0 * step);
        cr = crCode / (224.0 * step);
    }
    Rgb rgb;
    rgb.r = y + 2.0 * (1.0 - w.kr) * cr;
    rgb.b = y + 2.0 * (1.0 - w.kb) * cb;
    rgb.g = (y - w.kr * rgb.r - w.kb * rgb.b) / (1.0 - w.kr - w.kb);
    return rgb;
}

uint16_t codeOf(double normalised, int bitDepth) {
    const double top = maxCode(bitDepth);
    return static_cast<uint16_t>(std::clamp(std::round(normalised * top), 0.0, top));
}

YuvImage::YuvImage(int w, int h, int depth)
    : width(w),
      height(h),
      bitDepth(depth),
      y(static_cast<size_t>(w) * h),
      cb(static_cast<size_t>((w + 1) / 2) * ((h + 1) / 2)),
      cr(cb.size()) {}

YuvImage YuvImage::cropped(int left, int top, int w, int h) const {
    YuvImage out(w, h, bitDepth);
    for (int row = 0; row < h; ++row) {
        for (int x = 0; x < w; ++x) {
            out.lumaAt(x, row) = lumaAt(left + x, top + row);
        }
    }
    for (int j = 0; j < out.chromaHeight(); ++j) {
        for (int i = 0; i < out.chromaWidth(); ++i) {
            out.cbAt(i, j) = cbAt(left / 2 + i, top / 2 + j);
            out.crAt(i, j) = crAt(left / 2 + i, top / 2 + j);
        }
    }
    return out;
}

YuvImage encode(const RgbImage& image, const ColourSpace& space, int bitDepth,
                ChromaSiting siting) {
    YuvImage out(image.width, image.height, bitDepth);
    std::vector<Yuv> exact(image.pixels.size());
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const Rgb8& p = image.at(x, y);
            const Yuv yuv = yuvFromRgb(space, {unit(p.r), unit(p.g), unit(p.b)});
            exact[static_cast<size_t>(y) * image.width + x] = yuv;
            out.lumaAt(x, y) = codeOf(yuv.y, bitDepth);
        }
    }
    for (int j = 0; j < out.chromaHeight(); ++j) {
        for (int i = 0; i < out.chromaWidth(); ++i) {
            double cb = 0;
            double cr = 0;
            int count = 0;
            for (int dy = 0; dy < 2; ++dy) {
                for (int dx = 0; dx < 2; ++dx) {
                    const int x = 2 * i + dx;
                    const int y = 2 * j + dy;
                    if (x >= image.width || y >= image.height ||
                        (siting == ChromaSiting::TopLeft && count > 0)) {
                        continue;
                    }
                    const Yuv& yuv = exact[static_cast<size_t>(y) * image.width + x];
                    cb += yuv.cb;
                    cr += yuv.cr;
                    ++count;
                }
            }
            out.cbAt(i, j) = codeOf(cb / count, bitDepth);
            out.crAt(i, j) = codeOf(cr / count, bitDepth);
        }
    }
    return out;
}

Yuv sampleAt(const YuvImage& image, int x, int y, ChromaFilter filter) {
    const double top = maxCode(image.bitDepth);
    Yuv yuv;
    yuv.y = image.lumaAt(x, y) / top;
    if (filter == ChromaFilter::Nearest) {
        yuv.cb = image.cbAt(x / 2, y / 2) / top;
        yuv.cr = image.crAt(x / 2, y / 2) / top;
        return yuv;
    }
    // Chroma sample i is centred on luma position 2i + 1 (pixel centres at n + 0.5).
    const double cx = (x + 0.5) / 2.0 - 0.5;
    const double cy = (y + 0.5) / 2.0 - 0.5;
    const int x0 = static_cast<int>(std::floor(cx));
    const int y0 = static_cast<int>(std::floor(cy));
    const double fx = cx - x0;
    const double fy = cy - y0;
    auto clampX = [&](int i) { return std::clamp(i, 0, image.chromaWidth() - 1); };
    auto clampY = [&](int j) { return std::clamp(j, 0, image.chromaHeight() - 1); };
    auto bilinear = [&](auto at) {
        const double top0 =
            at(clampX(x0), clampY(y0)) * (1 - fx) + at(clampX(x0 + 1), clampY(y0)) * fx;
        const double bottom =
            at(clampX(x0), clampY(y0 + 1)) * (1 - fx) + at(clampX(x0 + 1), clampY(y0 + 1)) * fx;
        return (top0 * (1 - fy) + bottom * fy) / top;
    };
    yuv.cb = bilinear([&](int i, int j) { return static_cast<double>(image.cbAt(i, j)); });
    yuv.cr = bilinear([&](int i, int j) { return static_cast<double>(image.crAt(i, j)); });
    return yuv;
}

RgbImage decode(const YuvImage& image, const ColourSpace& space, ChromaFilter filter) {
    RgbImage out(image.width, image.height);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const Rgb rgb = rgbFromYuv(space, sampleAt(image, x, y, filter), image.bitDepth);
            out.at(x, y) = {byteOf(rgb.r), byteOf(rgb.g), byteOf(rgb.b), 255};
        }
    }
    return out;
}

bool isYuvFormat(int32_t halFormat) {
    switch (halFormat) {
        case HAL_PIXEL_FORMAT_YCRCB_420_SP:
        case HAL_PIXEL_FORMAT_YCBCR_420_888:
        case HAL_PIXEL_FORMAT_YCBCR_P010:
        case HAL_PIXEL_FORMAT_YV12:
        case kVendorNv12A:
        case kVendorNv12B:
        case kVendorNv21:
            return true;
        default:
            return false;
    }
}

int bitDepthOf(int32_t halFormat) {
    return halFormat == HAL_PIXEL_FORMAT_YCBCR_P010 ? 10 : 8;
}

YuvImage readPlanes(android::GraphicBuffer& buffer) {
    const int width = static_cast<int>(buffer.getWidth());
    const int height = static_cast<int>(buffer.getHeight());
    const int depth = bitDepthOf(buffer.getPixelFormat());
    const int bytes = depth == 8 ? 1 : 2;
    YuvImage image(width, height, depth);
    Lock lock(buffer, GRALLOC_USAGE_SW_READ_OFTEN);
    if (!lock.ok()) {
        return image;
    }
    const android_ycbcr& planes = lock.ycbcr();
    const auto* y = static_cast<const uint8_t*>(planes.y);
    const auto* cb = static_cast<const uint8_t*>(planes.cb);
    const auto* cr = static_cast<const uint8_t*>(planes.cr);
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            image.lumaAt(x, row) = loadSample(y + row * planes.ystride + x * bytes, depth);
        }
    }
    for (int j = 0; j < image.chromaHeight(); ++j) {
        for (int i = 0; i < image.chromaWidth(); ++i) {
            const size_t offset = j * planes.cstride + i * planes.chroma_step;
            image.cbAt(i, j) = loadSample(cb + offset, depth);
            image.crAt(i, j) = loadSample(cr + offset, depth);
        }
    }
    return image;
}

void writePlanes(android::GraphicBuffer& buffer, const YuvImage& image) {
    const int depth = bitDepthOf(buffer.getPixelFormat());
    const int bytes = depth == 8 ? 1 : 2;
    if (image.width != static_cast<int>(buffer.getWidth()) ||
        image.height != static_cast<int>(buffer.getHeight()) || image.bitDepth != depth) {
        return;
    }
    Lock lock(buffer, GRALLOC_USAGE_SW_WRITE_OFTEN);
    if (!lock.ok()) {
        return;
    }
    const android_ycbcr& planes = lock.ycbcr();
    auto* y = static_cast<uint8_t*>(planes.y);
    auto* cb = static_cast<uint8_t*>(planes.cb);
    auto* cr = static_cast<uint8_t*>(planes.cr);
    for (int row = 0; row < image.height; ++row) {
        for (int x = 0; x < image.width; ++x) {
            storeSample(y + row * planes.ystride + x * bytes, image.lumaAt(x, row), depth);
        }
    }
    for (int j = 0; j < image.chromaHeight(); ++j) {
        for (int i = 0; i < image.chromaWidth(); ++i) {
            const size_t offset = j * planes.cstride + i * planes.chroma_step;
            storeSample(cb + offset, image.cbAt(i, j), depth);
            storeSample(cr + offset, image.crAt(i, j), depth);
        }
    }
}

bool p010LowBitsClear(android::GraphicBuffer& buffer) {
    Lock lock(buffer, GRALLOC_USAGE_SW_READ_OFTEN);
    if (!lock.ok()) {
        return false;
    }
    const android_ycbcr& planes = lock.ycbcr();
    const int width = static_cast<int>(buffer.getWidth());
    const int height = static_cast<int>(buffer.getHeight());
    auto clear = [](const void* at) {
        const auto* bytes = static_cast<const uint8_t*>(at);
        return (bytes[0] & 0x3F) == 0;
    };
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            if (!clear(static_cast<const uint8_t*>(planes.y) + row * planes.ystride + x * 2)) {
                return false;
            }
        }
    }
    for (int j = 0; j < (height + 1) / 2; ++j) {
        for (int i = 0; i < (width + 1) / 2; ++i) {
            const size_t offset = j * planes.cstride + i * planes.chroma_step;
            if (!clear(static_cast<const uint8_t*>(planes.cb) + offset) ||
                !clear(static_cast<const uint8_t*>(planes.cr) + offset)) {
                return false;
            }
        }
    }
    return true;
}

RgbImage readRgba(android::GraphicBuffer& buffer) {
    RgbImage image(static_cast<int>(buffer.getWidth()), static_cast<int>(buffer.getHeight()));
    Lock lock(buffer, GRALLOC_USAGE_SW_READ_OFTEN);
    if (!lock.ok()) {
        return image;
    }
    for (int y = 0; y < image.height; ++y) {
        const uint8_t* row = lock.pixels() + static_cast<size_t>(y) * buffer.getStride() * 4;
        for (int x = 0; x < image.width; ++x) {
            image.at(x, y) = {row[4 * x], row[4 * x + 1], row[4 * x + 2], row[4 * x + 3]};
        }
    }
    return image;
}

void writeRgba(android::GraphicBuffer& buffer, const RgbImage& image) {
    if (image.width != static_cast<int>(buffer.getWidth()) ||
        image.height != static_cast<int>(buffer.getHeight())) {
        return;
    }
    Lock lock(buffer, GRALLOC_USAGE_SW_WRITE_OFTEN);
    if (!lock.ok()) {
        return;
    }
    for (int y = 0; y < image.height; ++y) {
        uint8_t* row = lock.pixels() + static_cast<size_t>(y) * buffer.getStride() * 4;
        for (int x = 0; x < image.width; ++x) {
            const Rgb8& p = image.at(x, y);
            const uint8_t bytes[4] = {p.r, p.g, p.b, p.a};
            memcpy(row + 4 * x, bytes, 4);
        }
    }
}

void fillBuffer(android::GraphicBuffer& buffer, const RgbImage& image, int32_t dataspace) {
    android::GraphicBufferMapper::get().setDataspace(
        buffer.handle, static_cast<android::ui::Dataspace>(dataspace));
    const int32_t format = buffer.getPixelFormat();
    if (!isYuvFormat(format)) {
        writeRgba(buffer, image);
        return;
    }
    writePlanes(buffer, encode(image, colourSpaceOf(dataspace), bitDepthOf(format)));
}

void poisonBuffer(android::GraphicBuffer& buffer) {
    const int width = static_cast<int>(buffer.getWidth());
    const int height = static_cast<int>(buffer.getHeight());
    if (!isYuvFormat(buffer.getPixelFormat())) {
        RgbImage image(width, height);
        std::fill(image.pixels.begin(), image.pixels.end(), Rgb8{0xDE, 0xAD, 0xBE, 0xEF});
        writeRgba(buffer, image);
        return;
    }
    const int depth = bitDepthOf(buffer.getPixelFormat());
    YuvImage image(width, height, depth);
    const uint16_t scale = depth == 8 ? 1 : 4;
    std::fill(image.y.begin(), image.y.end(), static_cast<uint16_t>(3 * scale));
    std::fill(image.cb.begin(), image.cb.end(), static_cast<uint16_t>(252 * scale));
    std::fill(image.cr.begin(), image.cr.end(), static_cast<uint16_t>(7 * scale));
    writePlanes(buffer, image);
}

RgbImage colourBars(int width, int height) {
    static const Rgb8 kBars[8] = {{255, 255, 255, 255}, {255, 255, 0, 255}, {0, 255, 255, 255},
                                  {0, 255, 0, 255},     {255, 0, 255, 255}, {255, 0, 0, 255},
                                  {0, 0, 255, 255},     {0, 0, 0, 255}};
    RgbImage image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.at(x, y) = kBars[x * 8 / width];
        }
    }
    return image;
}

RgbImage gradient(int width, int height) {
    RgbImage image(width, height);
    const int spanX = std::max(width - 1, 1);
    const int spanY = std::max(height - 1, 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.at(x, y) = {static_cast<uint8_t>(x * 255 / spanX),
                              static_cast<uint8_t>(y * 255 / spanY),
                              static_cast<uint8_t>((x + y) * 255 / (spanX + spanY)), 255};
        }
    }
    return image;
}

RgbImage noise(int width, int height, uint32_t seed) {
    RgbImage image(width, height);
    uint32_t state = seed == 0 ? 0x9E3779B9u : seed;
    auto next = [&state] {
        // xorshift32
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return static_cast<uint8_t>(state >> 24);
    };
    for (Rgb8& pixel : image.pixels) {
        pixel.r = next();
        pixel.g = next();
        pixel.b = next();
        pixel.a = 255;
    }
    return image;
}

int maxDifference(const RgbImage& actual, const RgbImage& expected, bool compareAlpha) {
    if (actual.width != expected.width || actual.height != expected.height) {
        return -1;
    }
    int worst = 0;
    for (size_t i = 0; i < actual.pixels.size(); ++i) {
        const Rgb8& a = actual.pixels[i];
        const Rgb8& e = expected.pixels[i];
        worst = std::max({worst, std::abs(a.r - e.r), std::abs(a.g - e.g), std::abs(a.b - e.b)});
        if (compareAlpha) {
            worst = std::max(worst, std::abs(a.a - e.a));
        }
    }
    return worst;
}

int maxDifference(const YuvImage& actual, const YuvImage& expected) {
    if (actual.width != expected.width || actual.height != expected.height ||
        actual.bitDepth != expected.bitDepth) {
        return -1;
    }
    int worst = 0;
    auto scan = [&worst](const std::vector<uint16_t>& a, const std::vector<uint16_t>& e) {
        for (size_t i = 0; i < a.size(); ++i) {
            worst = std::max(worst, std::abs(a[i] - e[i]));
        }
    };
    scan(actual.y, expected.y);
    scan(actual.cb, expected.cb);
    scan(actual.cr, expected.cr);
    return worst;
}

}  // namespace test
}  // namespace zel
