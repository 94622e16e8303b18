/*
 * The reference for every pixel test and for zel-convert's demo: YUV <-> RGB in double precision,
 * written from the formulas of the host platform's design (never from the code under test), with
 * readers and writers for the memory of every host buffer format and generators of test images.
 *
 * Colour model. Samples are normalised: a code divided by the largest code of its bit depth
 * (8 bit: /255, 10 bit: /1023). With (Kr, Kb) = (0.299, 0.114) for BT.601, (0.2126, 0.0722) for
 * BT.709 and (0.2627, 0.0593) for BT.2020, RGB in [0,1] gives
 *   y = Kr r + (1 - Kr - Kb) g + Kb b,   cb = (b - y) / (2 (1 - Kb)),   cr = (r - y) / (2 (1 - Kr))
 * and the samples are, limited range, Y = (219 y + 16) / 255, C = (224 c + 128) / 255, full range
 * Y = y, C = c + 128 / 255, whatever the bit depth (GL_EXT_YUV_target's rgb_2_yuv, which renders
 * into YUV buffers; a 10-bit buffer stores round(sample * 1023)). Decoding, as sampling a YUV
 * buffer does, reads codes with the ranges of their bit depth n, as BT.2020, BT.2100 and FFmpeg
 * do: limited range y = (Y - 16 * 2^(n-8)) / (219 * 2^(n-8)), c = (C - 128 * 2^(n-8)) /
 * (224 * 2^(n-8)) (10 bits: (Y - 64) / 876, (C - 512) / 896); full range y = Y / (2^n - 1),
 * c = (C - 2^(n-1)) / (2^n - 1). At 8 bits both are the same. Nothing is clamped until a value
 * becomes a code.
 *
 * 4:2:0. A chroma sample stands for a 2x2 block of pixels, sited at its centre. Encoding takes the
 * average of the block's exact values (the pixels that exist, at odd sizes), or its top-left
 * pixel. Decoding upsamples with the nearest sample or bilinearly (clamped at the edges), as GL
 * filters a chroma texture read at the luma position.
 *
 * Buffers are read and written through CPU locks (lock, lockYCbCr), so the layouts come from the
 * mapper, as on Android.
 */
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <ui/GraphicBuffer.h>

namespace zel {
namespace test {

enum class YuvStandard { Bt601, Bt709, Bt2020 };

// The conversion a YUV buffer asks for.
struct ColourSpace {
    YuvStandard standard = YuvStandard::Bt601;
    bool fullRange = false;
};

const char* nameOf(YuvStandard standard);
std::string nameOf(const ColourSpace& space);
void PrintTo(const ColourSpace& space, std::ostream* out);  // for test parameters

// The colour space of a dataspace: its standard (BT.709, BT.2020 and BT.2020 constant luminance,
// otherwise BT.601) and range (full only when it says so); the legacy JFIF, BT601_625, BT601_525
// and BT709 values as their V0_ versions. 0 (no dataspace): BT.601 limited range.
ColourSpace colourSpaceOf(int32_t dataspace);
// A dataspace (the V0_ kind, SMPTE 170M transfer) that stands for `space`.
int32_t dataspaceOf(const ColourSpace& space);

// Normalised RGB and YUV samples, unclamped.
struct Rgb {
    double r = 0;
    double g = 0;
    double b = 0;
};
struct Yuv {
    double y = 0;
    double cb = 0;
    double cr = 0;
};

Yuv yuvFromRgb(const ColourSpace& space, const Rgb& rgb);
// `yuv` normalised by the largest code of `bitDepth`, decoded with that depth's code ranges.
Rgb rgbFromYuv(const ColourSpace& space, const Yuv& yuv, int bitDepth = 8);

// round(value * (2^bitDepth - 1)), clamped to the codes of the bit depth.
uint16_t codeOf(double normalised, int bitDepth);

struct Rgb8 {
    uint8_t r = 0;
    uint8_t g = 0;
    uint8_t b = 0;
    uint8_t a = 255;
};

// An RGB image, rows top to bottom (row 0 is memory row 0 of a buffer).
struct RgbImage {
    int width = 0;
    int height = 0;
    std::vector<Rgb8> pixels;

    RgbImage() = default;
    RgbImage(int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h) {}
    Rgb8& at(int x, int y) { return pixels[static_cast<size_t>(y) * width + x]; }
    const Rgb8& at(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x]; }
};

// A 4:2:0 image of codes: Y per pixel, Cb and Cr per 2x2 block (ceil(size / 2) of them).
struct YuvImage {
    int width = 0;
    int height = 0;
    int bitDepth = 8;
    std::vector<uint16_t> y;
    std::vector<uint16_t> cb;
    std::vector<uint16_t> cr;

    YuvImage() = default;
    YuvImage(int w, int h, int depth);
    int chromaWidth() const { return (width + 1) / 2; }
    int chromaHeight() const { return (height + 1) / 2; }
    uint16_t& lumaAt(int x, int y_) { return y[static_cast<size_t>(y_) * width + x]; }
    uint16_t lumaAt(int x, int y_) const { return y[static_cast<size_t>(y_) * width + x]; }
    uint16_t& cbAt(int i, int j) { return cb[static_cast<size_t>(j) * chromaWidth() + i]; }
    uint16_t cbAt(int i, int j) const { return cb[static_cast<size_t>(j) * chromaWidth() + i]; }
    uint16_t& crAt(int i, int j) { return cr[static_cast<size_t>(j) * chromaWidth() + i]; }
    uint16_t crAt(int i, int j) const { return cr[static_cast<size_t>(j) * chromaWidth() + i]; }
    // The sub-image of the rectangle (left, top, width, height); left and top even.
    YuvImage cropped(int left, int top, int w, int h) const;
};

enum class ChromaSiting {
    Average,  // each chroma sample is the mean of its block
    TopLeft,  // each chroma sample is its block's top-left pixel
};

enum class ChromaFilter { Nearest, Linear };

// RGB -> 4:2:0 codes of `bitDepth` bits.
YuvImage encode(const RgbImage& image, const ColourSpace& space, int bitDepth,
                ChromaSiting siting = ChromaSiting::Average);
// 4:2:0 codes -> RGB, clamped and rounded to 8 bits (alpha 255): what sampling the image through
// samplerExternalOES returns.
RgbImage decode(const YuvImage& image, const ColourSpace& space,
                ChromaFilter filter = ChromaFilter::Nearest);
// The normalised (Y, Cb, Cr) at pixel (x, y), chroma upsampled with `filter`.
Yuv sampleAt(const YuvImage& image, int x, int y, ChromaFilter filter);

// Buffers.
bool isYuvFormat(int32_t halFormat);
int bitDepthOf(int32_t halFormat);  // 10 for P010, otherwise 8

// A YUV buffer's planes, codes in their bit depth (P010: the top 10 bits of each sample).
YuvImage readPlanes(android::GraphicBuffer& buffer);
void writePlanes(android::GraphicBuffer& buffer, const YuvImage& image);
// P010 only: whether the 6 low bits of every sample are zero.
bool p010LowBitsClear(android::GraphicBuffer& buffer);

// An RGBA (or RGBX) buffer's pixels.
RgbImage readRgba(android::GraphicBuffer& buffer);
void writeRgba(android::GraphicBuffer& buffer, const RgbImage& image);

// Fills `buffer` with `image`: RGBA as it is, YUV encoded (2x2 average) with the colour space of
// `dataspace`, which the buffer is also given.
void fillBuffer(android::GraphicBuffer& buffer, const RgbImage& image, int32_t dataspace);
// Writes unlikely values over the whole buffer (every plane), so that pixels nobody wrote show.
void poisonBuffer(android::GraphicBuffer& buffer);

// Test images.
RgbImage colourBars(int width, int height);  // the eight 100% bars, left to right
RgbImage gradient(int width, int height);    // red along x, green along y, blue along both
RgbImage noise(int width, int height, uint32_t seed);

// The largest difference of R, G or B (and A when asked) over all pixels; -1 when the sizes
// differ.
int maxDifference(const RgbImage& actual, const RgbImage& expected, bool compareAlpha = false);
// The largest difference of a code over all three planes; -1 when sizes or depths differ.
int maxDifference(const YuvImage& actual, const YuvImage& expected);

}  // namespace test
}  // namespace zel
