// The GPU layer's YUV support as an Android driver with GL_EXT_YUV_target has it. Conversions are
// checked against the reference converter for every host YUV format, standard and range, with the
// three shader shapes the library generates: YUV sampled into RGBA through samplerExternalOES,
// RGBA rendered into YUV through rgb_2_yuv and a layout(yuv) output, and YUV copied to YUV through
// __samplerExternal2DY2YEXT. Beyond them: the extension is advertised, the built-ins follow the
// formulas without clamping, draws keep what they do not cover, crops select what is sampled and
// rendered, the chroma-top-left profile, and the program variants that sample YUV images.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <zel/host/Gpu.h>

#include "EglContext.h"
#include "GlDrawing.h"
#include "ReferenceConverter.h"

using android::GraphicBuffer;
using android::sp;
using zel::test::ColourSpace;
using zel::test::ExternalImage;
using zel::test::ImageFramebuffer;
using zel::test::libraryDraw;
using zel::test::Program;
using zel::test::Quad;
using zel::test::RgbImage;
using zel::test::ShaderShape;
using zel::test::YuvImage;
using zel::test::YuvStandard;

namespace {

struct Format {
    int32_t hal;
    const char* name;
};

void PrintTo(const Format& format, std::ostream* out) {
    *out << format.name;
}

constexpr Format kYuvFormats[] = {
    {HAL_PIXEL_FORMAT_YCRCB_420_SP, "Nv21"},
    {HAL_PIXEL_FORMAT_YCBCR_420_888, "Ycbcr420888"},
    {HAL_PIXEL_FORMAT_YCBCR_P010, "P010"},
    {HAL_PIXEL_FORMAT_YV12, "Yv12"},
    {0x1000, "VendorNv12A"},
    {0x7f000030, "VendorNv12B"},
    {0x7f000010, "VendorNv21"},
};

constexpr ColourSpace kColourSpaces[] = {
    {YuvStandard::Bt601, false}, {YuvStandard::Bt601, true},   {YuvStandard::Bt709, false},
    {YuvStandard::Bt709, true},  {YuvStandard::Bt2020, false}, {YuvStandard::Bt2020, true},
};

// An even and an odd size: odd ones have chroma blocks that cover one column or row only.
struct Size {
    int width;
    int height;
};
constexpr Size kSizes[] = {{64, 48}, {37, 19}};

// Random codes of every value of the bit depth.
YuvImage randomCodes(int width, int height, int bitDepth, uint32_t seed) {
    YuvImage image(width, height, bitDepth);
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> code(0, (1 << bitDepth) - 1);
    for (auto* plane : {&image.y, &image.cb, &image.cr}) {
        for (uint16_t& value : *plane) {
            value = static_cast<uint16_t>(code(random));
        }
    }
    return image;
}

constexpr ColourSpace kBt601 = {YuvStandard::Bt601, false};

std::vector<EGLint> crop(int left, int top, int right, int bottom) {
    return {EGL_IMAGE_CROP_LEFT_ANDROID,  left,  EGL_IMAGE_CROP_TOP_ANDROID,    top,
            EGL_IMAGE_CROP_RIGHT_ANDROID, right, EGL_IMAGE_CROP_BOTTOM_ANDROID, bottom};
}

// Copies the columns [first, last) of `from` into `to` (chroma: the blocks of those columns).
void copyColumns(const YuvImage& from, YuvImage& to, int first, int last) {
    for (int y = 0; y < from.height; ++y) {
        for (int x = first; x < last; ++x) {
            to.lumaAt(x, y) = from.lumaAt(x, y);
        }
    }
    for (int j = 0; j < from.chromaHeight(); ++j) {
        for (int i = first / 2; i < last / 2; ++i) {
            to.cbAt(i, j) = from.cbAt(i, j);
            to.crAt(i, j) = from.crAt(i, j);
        }
    }
}

// What drawing `drawn` at the origin of the crop (left, top, w, h) of a buffer holding `before`
// leaves there: covered pixels take the picture, the rest of the crop keeps its codes, pixels
// outside the crop are untouched, and each chroma block the crop touches becomes the mean of its
// pixels inside the crop (a block cut by the crop's edge knows nothing of the pixels outside).
YuvImage drawnIntoCrop(const YuvImage& before, const RgbImage& drawn, int left, int top, int w,
                       int h) {
    const double top8 = 255.0;
    const double topCode = before.bitDepth == 10 ? 1023.0 : 255.0;
    auto exact = [&](int x, int y) {
        const int dx = x - left;
        const int dy = y - top;
        if (dx < drawn.width && dy < drawn.height) {
            const zel::test::Rgb8& p = drawn.at(dx, dy);
            return zel::test::yuvFromRgb(kBt601, {p.r / top8, p.g / top8, p.b / top8});
        }
        return zel::test::Yuv{before.lumaAt(x, y) / topCode, before.cbAt(x / 2, y / 2) / topCode,
                              before.crAt(x / 2, y / 2) / topCode};
    };
    YuvImage after = before;
    for (int y = top; y < top + h; ++y) {
        for (int x = left; x < left + w; ++x) {
            after.lumaAt(x, y) = zel::test::codeOf(exact(x, y).y, before.bitDepth);
        }
    }
    for (int j = top / 2; j <= (top + h - 1) / 2; ++j) {
        for (int i = left / 2; i <= (left + w - 1) / 2; ++i) {
            double cb = 0;
            double cr = 0;
            int count = 0;
            for (int y = std::max(2 * j, top); y < std::min(2 * j + 2, top + h); ++y) {
                for (int x = std::max(2 * i, left); x < std::min(2 * i + 2, left + w); ++x) {
                    cb += exact(x, y).cb;
                    cr += exact(x, y).cr;
                    ++count;
                }
            }
            after.cbAt(i, j) = zel::test::codeOf(cb / count, before.bitDepth);
            after.crAt(i, j) = zel::test::codeOf(cr / count, before.bitDepth);
        }
    }
    return after;
}

// Away from rounding ties sampling is exact: every channel whose reference value is not within
// 0.05 of a half code is the reference rounded. Code ranges of another bit depth move values by
// fractions of a code, which a tolerance of one hides.
testing::AssertionResult exactAwayFromTies(const RgbImage& actual, const YuvImage& planes,
                                           const ColourSpace& space) {
    int checked = 0;
    int wrong = 0;
    for (int y = 0; y < planes.height; ++y) {
        for (int x = 0; x < planes.width; ++x) {
            const zel::test::Rgb exact = zel::test::rgbFromYuv(
                space, zel::test::sampleAt(planes, x, y, zel::test::ChromaFilter::Nearest),
                planes.bitDepth);
            const zel::test::Rgb8& got = actual.at(x, y);
            const std::pair<double, uint8_t> channels[3] = {
                {exact.r, got.r}, {exact.g, got.g}, {exact.b, got.b}};
            for (const auto& [value, code] : channels) {
                const double scaled = std::clamp(value, 0.0, 1.0) * 255.0;
                if (std::fabs(scaled - std::floor(scaled) - 0.5) < 0.05) {
                    continue;
                }
                ++checked;
                wrong += std::lround(scaled) != code;
            }
        }
    }
    if (wrong > 0) {
        return testing::AssertionFailure() << wrong << " of " << checked << " channels off";
    }
    return testing::AssertionSuccess() << checked << " channels checked";
}

class YuvRendering : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
        startContext();
    }
    void TearDown() override {
        mContext.reset();
        zel::host::resetDriverProfile();
    }

    void startContext() {
        mContext.reset();
        mContext = std::make_unique<zel::test::EglContext>();
        ASSERT_TRUE(mContext->ok()) << mContext->failure();
    }

    EGLDisplay display() const { return mContext->display(); }

    std::unique_ptr<zel::test::EglContext> mContext;
};

class YuvFormatAndColourSpace
    : public YuvRendering,
      public testing::WithParamInterface<std::tuple<Format, ColourSpace>> {};

TEST_P(YuvFormatAndColourSpace, ExternalSamplerConvertsWithTheBufferDataspace) {
    const auto& [format, space] = GetParam();
    for (const Size& size : kSizes) {
        SCOPED_TRACE(testing::Message() << size.width << "x" << size.height);
        sp<GraphicBuffer> source = zel::test::makeTestBuffer(size.width, size.height, format.hal);
        sp<GraphicBuffer> destination =
            zel::test::makeTestBuffer(size.width, size.height, HAL_PIXEL_FORMAT_RGBA_8888);
        zel::test::fillBuffer(*source, zel::test::noise(size.width, size.height, 7),
                              zel::test::dataspaceOf(space));
        const YuvImage planes = zel::test::readPlanes(*source);

        // Nearest chroma: every pixel sees its block's sample.
        zel::test::poisonBuffer(*destination);
        libraryDraw(*source, *destination, ShaderShape::ToRgba);
        EXPECT_TRUE(zel::test::imagesMatch(zel::test::readRgba(*destination),
                                           zel::test::decode(planes, space), 1, true));
        // 16-bit planes only: 8-bit ones land up to 0.13 of a code low on llvmpipe (measured).
        if (planes.bitDepth == 10) {
            EXPECT_TRUE(exactAwayFromTies(zel::test::readRgba(*destination), planes, space));
        }

        // Linear: chroma interpolated between sample centres, clamped at the edges. The driver
        // filters 8-bit planes to 8 bits, which the conversion magnifies by up to 2.3.
        zel::test::poisonBuffer(*destination);
        libraryDraw(*source, *destination, ShaderShape::ToRgba, "", GL_LINEAR);
        EXPECT_TRUE(zel::test::imagesMatch(
            zel::test::readRgba(*destination),
            zel::test::decode(planes, space, zel::test::ChromaFilter::Linear), 3, true));
    }
}

TEST_P(YuvFormatAndColourSpace, Rgb2YuvRendersIntoThePlanes) {
    const auto& [format, space] = GetParam();
    for (const Size& size : kSizes) {
        SCOPED_TRACE(testing::Message() << size.width << "x" << size.height);
        sp<GraphicBuffer> source =
            zel::test::makeTestBuffer(size.width, size.height, HAL_PIXEL_FORMAT_RGBA_8888);
        sp<GraphicBuffer> destination =
            zel::test::makeTestBuffer(size.width, size.height, format.hal);
        // Saturated bars push full-range chroma past the codes; noise covers the rest.
        RgbImage image = zel::test::noise(size.width, size.height, 11);
        const RgbImage bars = zel::test::colourBars(size.width, size.height);
        for (int y = 0; y < size.height / 2; ++y) {
            for (int x = 0; x < size.width; ++x) {
                image.at(x, y) = bars.at(x, y);
            }
        }
        zel::test::writeRgba(*source, image);
        zel::test::poisonBuffer(*destination);
        libraryDraw(*source, *destination, ShaderShape::RgbToYuv, zel::test::yuvConstantOf(space));
        const int bitDepth = zel::test::bitDepthOf(format.hal);
        EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*destination),
                                           zel::test::encode(image, space, bitDepth), 1, 2));
    }
}

// glReadPixels of a YUV target returns RGBA decoded with the buffer's colour space, from what the
// target holds: the buffer's contents, then rendering not yet flushed.
TEST_P(YuvFormatAndColourSpace, ReadPixelsDecodesTheTargetIntoRgba) {
    const auto& [format, space] = GetParam();
    for (const Size& size : kSizes) {
        SCOPED_TRACE(testing::Message() << size.width << "x" << size.height);
        sp<GraphicBuffer> target = zel::test::makeTestBuffer(size.width, size.height, format.hal);
        zel::test::fillBuffer(*target, zel::test::noise(size.width, size.height, 5),
                              zel::test::dataspaceOf(space));
        ExternalImage image(display(), *target);
        ImageFramebuffer framebuffer(image, size.width, size.height);
        auto readBack = [&] {
            RgbImage read(size.width, size.height);
            glReadPixels(0, 0, size.width, size.height, GL_RGBA, GL_UNSIGNED_BYTE,
                         read.pixels.data());
            EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
            return read;
        };
        EXPECT_TRUE(zel::test::imagesMatch(
            readBack(), zel::test::decode(zel::test::readPlanes(*target), space), 1, true));

        sp<GraphicBuffer> source =
            zel::test::makeTestBuffer(size.width, size.height, HAL_PIXEL_FORMAT_RGBA_8888);
        zel::test::writeRgba(*source, zel::test::noise(size.width, size.height, 6));
        ExternalImage sourceImage(display(), *source);
        sourceImage.bind(GL_TEXTURE0);
        Program program(zel::test::libraryVertexShader(),
                        zel::test::libraryFragmentShader(ShaderShape::RgbToYuv,
                                                         zel::test::yuvConstantOf(space)));
        program.use();
        Quad().draw();
        const RgbImage rendered = readBack();
        glFinish();
        EXPECT_TRUE(zel::test::imagesMatch(
            rendered, zel::test::decode(zel::test::readPlanes(*target), space), 1, true));
    }
}

std::string formatAndSpaceName(
    const testing::TestParamInfo<std::tuple<Format, ColourSpace>>& info) {
    return std::string(std::get<0>(info.param).name) + "_" +
           zel::test::nameOf(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(AllFormats, YuvFormatAndColourSpace,
                         testing::Combine(testing::ValuesIn(kYuvFormats),
                                          testing::ValuesIn(kColourSpaces)),
                         formatAndSpaceName);

class YuvFormat : public YuvRendering, public testing::WithParamInterface<Format> {};

TEST_P(YuvFormat, Y2ySamplerCopiesTheCodesIntoEveryLayoutOfItsDepth) {
    const Format source = GetParam();
    const int bitDepth = zel::test::bitDepthOf(source.hal);
    // Any layout of the same depth takes the codes as they are.
    std::vector<int32_t> destinations = {source.hal};
    if (bitDepth == 8) {
        destinations.push_back(HAL_PIXEL_FORMAT_YCBCR_420_888);
        destinations.push_back(HAL_PIXEL_FORMAT_YV12);
    }
    for (const Size& size : kSizes) {
        const YuvImage codes = randomCodes(size.width, size.height, bitDepth, 3);
        sp<GraphicBuffer> from = zel::test::makeTestBuffer(size.width, size.height, source.hal);
        zel::test::writePlanes(*from, codes);
        for (int32_t format : destinations) {
            SCOPED_TRACE(testing::Message()
                         << size.width << "x" << size.height << " into 0x" << std::hex << format);
            sp<GraphicBuffer> to = zel::test::makeTestBuffer(size.width, size.height, format);
            zel::test::poisonBuffer(*to);
            libraryDraw(*from, *to, ShaderShape::YuvToYuv);
            EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*to), codes, 0, 0));
            if (bitDepth == 10) {
                EXPECT_TRUE(zel::test::p010LowBitsClear(*to));
            }
        }
    }
}

TEST_P(YuvFormat, Y2ySamplerReturnsStoredRgbaOfRgbaBuffers) {
    // The library's YUV-destination shader reads RGBA sources through the same sampler type.
    sp<GraphicBuffer> source = zel::test::makeTestBuffer(37, 19, HAL_PIXEL_FORMAT_RGBA_8888);
    sp<GraphicBuffer> destination = zel::test::makeTestBuffer(37, 19, GetParam().hal);
    const RgbImage image = zel::test::gradient(37, 19);
    zel::test::writeRgba(*source, image);
    zel::test::poisonBuffer(*destination);
    libraryDraw(*source, *destination, ShaderShape::YuvToYuv);
    // Red, green, blue land in Y, Cb, Cr as they are.
    const YuvImage planes = zel::test::readPlanes(*destination);
    const int scale = zel::test::bitDepthOf(GetParam().hal) == 10 ? 4 : 1;
    int wrong = 0;
    for (int y = 0; y < 19; ++y) {
        for (int x = 0; x < 37; ++x) {
            wrong += std::abs(planes.lumaAt(x, y) / scale - image.at(x, y).r) > 1;
        }
    }
    EXPECT_EQ(wrong, 0);
}

INSTANTIATE_TEST_SUITE_P(AllFormats, YuvFormat, testing::ValuesIn(kYuvFormats),
                         [](const testing::TestParamInfo<Format>& info) {
                             return std::string(info.param.name);
                         });

TEST_F(YuvRendering, ExtensionIsInBothExtensionQueries) {
    const std::string extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    EXPECT_NE((" " + extensions + " ").find(" GL_EXT_YUV_target "), std::string::npos);
    EXPECT_NE(extensions.find("GL_OES_EGL_image_external_essl3"), std::string::npos);
    GLint count = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    int found = 0;
    for (GLint i = 0; i < count; ++i) {
        const auto* name = reinterpret_cast<const char*>(glGetStringi(GL_EXTENSIONS, GLuint(i)));
        ASSERT_NE(name, nullptr) << i;
        found += std::strcmp(name, "GL_EXT_YUV_target") == 0;
    }
    EXPECT_EQ(found, 1);
    EXPECT_EQ(glGetStringi(GL_EXTENSIONS, static_cast<GLuint>(count)), nullptr);
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_VALUE));
}

TEST_F(YuvRendering, ShaderTextKeepsItsLineNumbersAndExtensionOrder) {
    // The built-ins go after the last #extension line, whichever extension it names; the yuv
    // qualifier goes from a list and leaves the rest.
    for (const char* extensions :
         {"#extension GL_EXT_YUV_target : require\n#extension GL_EXT_texture_buffer : enable\n",
          "#extension GL_EXT_texture_buffer : enable\n#extension GL_EXT_YUV_target : require\n"}) {
        const std::string head = std::string("#version 310 es\n") + extensions +
                                 "precision highp float;\nlayout(location = 0, yuv) out vec4 c;\n";
        const std::string vertex = zel::test::libraryVertexShader();
        EXPECT_EQ(Program(vertex, head + "void main() { c = vec4(rgb_2_yuv(vec3(1.0), itu_709), "
                                         "1.0); }\n")
                      .error(),
                  "");
        // Errors name the client's own line (6).
        const std::string error =
            Program(vertex, head + "void main() { c = vec4(undefinedThing, 1.0); }\n").error();
        EXPECT_NE(error.find(":6("), std::string::npos) << error;
    }
}

TEST_F(YuvRendering, PixelsOutsideTheDrawKeepTheBufferContents) {
    const int width = 64;
    const int height = 48;
    const RgbImage drawn = zel::test::gradient(width, height);
    sp<GraphicBuffer> source = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::writeRgba(*source, drawn);
    for (int32_t format :
         {int32_t{HAL_PIXEL_FORMAT_YCBCR_420_888}, int32_t{HAL_PIXEL_FORMAT_YCBCR_P010}}) {
        SCOPED_TRACE(testing::Message() << "format 0x" << std::hex << format);
        const int depth = zel::test::bitDepthOf(format);
        sp<GraphicBuffer> destination = zel::test::makeTestBuffer(width, height, format);
        const YuvImage before =
            zel::test::encode(zel::test::noise(width, height, 5), kBt601, depth);
        zel::test::writePlanes(*destination, before);

        Program program(zel::test::libraryVertexShader(),
                        zel::test::libraryFragmentShader(ShaderShape::RgbToYuv));
        ExternalImage sourceImage(display(), *source);
        ExternalImage destinationImage(display(), *destination);
        sourceImage.bind(GL_TEXTURE0);
        ImageFramebuffer framebuffer(destinationImage, width, height);
        program.use();
        Quad quad;
        zel::host::resetGpuCounters();

        // The whole source into the left half (pixels 0..31, chroma blocks 0..15): pixel x shows
        // source pixel 2x + 1 (nearest).
        glViewport(0, 0, width / 2, height);
        quad.draw();
        glFlush();
        EXPECT_EQ(zel::host::gpuCounters().writeBacks, 1u);
        RgbImage squeezed(width / 2, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width / 2; ++x) {
                squeezed.at(x, y) = drawn.at(2 * x + 1, y);
            }
        }
        const YuvImage actual = zel::test::readPlanes(*destination);
        EXPECT_TRUE(zel::test::planesMatch(actual.cropped(width / 2, 0, width / 2, height),
                                           before.cropped(width / 2, 0, width / 2, height), 0, 0));
        EXPECT_TRUE(zel::test::planesMatch(actual.cropped(0, 0, width / 2, height),
                                           zel::test::encode(squeezed, kBt601, depth), 1, 2));

        // The CPU rewrites the right half; a full-width draw clipped by the scissor to the right
        // half replaces it there and leaves the left half as it is.
        YuvImage expected = actual;
        copyColumns(zel::test::encode(zel::test::noise(width, height, 9), kBt601, depth), expected,
                    width / 2, width);
        zel::test::writePlanes(*destination, expected);
        copyColumns(zel::test::encode(drawn, kBt601, depth), expected, width / 2, width);
        const uint64_t uploads = zel::host::gpuCounters().uploads;
        glViewport(0, 0, width, height);
        glEnable(GL_SCISSOR_TEST);
        glScissor(width / 2, 0, width / 2, height);
        quad.draw();
        glDisable(GL_SCISSOR_TEST);
        EXPECT_EQ(zel::host::gpuCounters().uploads, uploads + 1);  // the CPU's new contents
        glFinish();
        EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*destination), expected, 1, 2));

        // The CPU scribbles on the whole buffer; a draw over all of it needs none of that: no
        // upload, no unpack, only the write-back's packing of luma and of chroma.
        zel::test::writePlanes(
            *destination, zel::test::encode(zel::test::noise(width, height, 13), kBt601, depth));
        const zel::host::GpuCounters start = zel::host::gpuCounters();
        quad.draw();
        glFinish();
        const zel::host::GpuCounters end = zel::host::gpuCounters();
        EXPECT_EQ(end.uploads, start.uploads);
        EXPECT_EQ(end.coveredTargets - start.coveredTargets, 1u);
        EXPECT_EQ(end.internalPasses - start.internalPasses, 2u);
        EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*destination),
                                           zel::test::encode(drawn, kBt601, depth), 1, 2));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
}

// A texture that rendered into a YUV buffer and wrote it back holds what memory holds: sampling it
// uploads nothing, but for the Y plane when luma went to memory as packed bytes (rows that fill
// whole texels: four 8-bit samples or two P010 ones).
TEST_F(YuvRendering, WhatATextureRenderedIsSampledWithoutAnotherUpload) {
    for (int32_t format :
         {int32_t{HAL_PIXEL_FORMAT_YCBCR_420_888}, int32_t{HAL_PIXEL_FORMAT_YCBCR_P010}}) {
        for (const int width : {64, 37, 38}) {
            SCOPED_TRACE(testing::Message() << width << " wide, format 0x" << std::hex << format);
            const int height = 12;
            const bool packedLuma = width % (zel::test::bitDepthOf(format) == 10 ? 2 : 4) == 0;
            sp<GraphicBuffer> rgba =
                zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
            sp<GraphicBuffer> yuv = zel::test::makeTestBuffer(width, height, format);
            sp<GraphicBuffer> back =
                zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
            zel::test::writeRgba(*rgba, zel::test::noise(width, height, 41));
            ExternalImage rgbaImage(display(), *rgba);
            ExternalImage yuvImage(display(), *yuv);
            ExternalImage backImage(display(), *back);
            Quad quad;
            auto draw = [&](const ExternalImage& from, const ExternalImage& to, ShaderShape shape) {
                Program program(zel::test::libraryVertexShader(),
                                zel::test::libraryFragmentShader(shape));
                from.bind(GL_TEXTURE0);
                ImageFramebuffer framebuffer(to, width, height);
                program.use();
                quad.draw();
                glFlush();
            };
            draw(rgbaImage, backImage, ShaderShape::ToRgba);  // `back` has its storage now
            draw(rgbaImage, yuvImage, ShaderShape::RgbToYuv);
            const uint64_t uploads = zel::host::gpuCounters().uploads;
            draw(yuvImage, backImage, ShaderShape::ToRgba);
            EXPECT_EQ(zel::host::gpuCounters().uploads, uploads + (packedLuma ? 1 : 0));
            glFinish();
            EXPECT_TRUE(
                zel::test::imagesMatch(zel::test::readRgba(*back),
                                       zel::test::decode(zel::test::readPlanes(*yuv), kBt601), 1));
        }
    }
}

TEST_F(YuvRendering, TextureTargetedAgainRendersIntoItsNewImageOnly) {
    const int width = 64;
    const int height = 48;
    const RgbImage drawn = zel::test::noise(width, height, 23);
    sp<GraphicBuffer> source = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::writeRgba(*source, drawn);
    sp<GraphicBuffer> small =
        zel::test::makeTestBuffer(width / 2, height / 4, HAL_PIXEL_FORMAT_YCBCR_420_888);
    sp<GraphicBuffer> large =
        zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YCBCR_420_888);
    zel::test::poisonBuffer(*small);
    zel::test::poisonBuffer(*large);
    Program program(zel::test::libraryVertexShader(),
                    zel::test::libraryFragmentShader(ShaderShape::RgbToYuv));
    ExternalImage sourceImage(display(), *source);
    ExternalImage target(display(), *small);
    ExternalImage largeImage(display(), *large);
    sourceImage.bind(GL_TEXTURE0);
    program.use();
    Quad quad;
    {
        ImageFramebuffer framebuffer(target, width / 2, height / 4);
        quad.draw();
        glFinish();
    }
    // The same texture now stands for the larger buffer: everything its first image needed
    // on the GPU is sized again for the new one.
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, target.texture());
    glEGLImageTargetTexture2DOES(GL_TEXTURE_EXTERNAL_OES, largeImage.image());
    sourceImage.bind(GL_TEXTURE0);
    {
        ImageFramebuffer framebuffer(target, width, height);
        quad.draw();
        glFinish();
    }
    EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*large),
                                       zel::test::encode(drawn, kBt601, 8), 1, 2));

    // Onto a buffer of the same size that nobody has written yet: a draw into its left half
    // leaves the right half as its memory holds it, not as the previous image looked.
    sp<GraphicBuffer> fresh =
        zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YCBCR_420_888);
    const YuvImage before = zel::test::readPlanes(*fresh);
    ExternalImage freshImage(display(), *fresh);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, target.texture());
    glEGLImageTargetTexture2DOES(GL_TEXTURE_EXTERNAL_OES, freshImage.image());
    sourceImage.bind(GL_TEXTURE0);
    {
        ImageFramebuffer framebuffer(target, width, height);
        glEnable(GL_SCISSOR_TEST);
        glScissor(0, 0, width / 2, height);
        quad.draw();
        glDisable(GL_SCISSOR_TEST);
        glFinish();
    }
    const YuvImage after = zel::test::readPlanes(*fresh);
    EXPECT_TRUE(zel::test::planesMatch(after.cropped(width / 2, 0, width / 2, height),
                                       before.cropped(width / 2, 0, width / 2, height), 0, 0));
    EXPECT_TRUE(zel::test::planesMatch(
        after.cropped(0, 0, width / 2, height),
        zel::test::encode(drawn, kBt601, 8).cropped(0, 0, width / 2, height), 1, 2));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(YuvRendering, ChromaTopLeftProfileKeepsTheFirstSampleOfEachBlock) {
    ASSERT_TRUE(zel::host::setDriverProfile("chroma-top-left"));
    startContext();  // contexts take the profile when they are created
    const RgbImage image = zel::test::noise(38, 20, 21);
    sp<GraphicBuffer> source = zel::test::makeTestBuffer(38, 20, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::writeRgba(*source, image);
    for (int32_t format : {int32_t{HAL_PIXEL_FORMAT_YCRCB_420_SP},
                           int32_t{HAL_PIXEL_FORMAT_YCBCR_P010}, int32_t{HAL_PIXEL_FORMAT_YV12}}) {
        SCOPED_TRACE(testing::Message() << "format 0x" << std::hex << format);
        const int depth = zel::test::bitDepthOf(format);
        sp<GraphicBuffer> destination = zel::test::makeTestBuffer(38, 20, format);
        zel::test::poisonBuffer(*destination);
        libraryDraw(*source, *destination, ShaderShape::RgbToYuv);
        const YuvImage planes = zel::test::readPlanes(*destination);
        EXPECT_TRUE(zel::test::planesMatch(
            planes, zel::test::encode(image, kBt601, depth, zel::test::ChromaSiting::TopLeft), 1,
            1));
        // Noise has no two alike pixels in a block: the average would be far off.
        EXPECT_FALSE(zel::test::planesMatch(planes, zel::test::encode(image, kBt601, depth), 1, 2));
    }
}

// The read of a YUV target lays pixels out as the pack state says, crops at odd offsets included,
// leaves what lies outside the target alone, and refuses other formats and short buffers.
TEST_F(YuvRendering, ReadPixelsOfAYuvTargetFollowsThePackState) {
    const int width = 20;
    const int height = 14;
    sp<GraphicBuffer> target =
        zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YCRCB_420_SP);
    zel::test::fillBuffer(*target, zel::test::noise(width, height, 9),
                          zel::test::dataspaceOf(kBt601));
    const RgbImage whole = zel::test::decode(zel::test::readPlanes(*target), kBt601);
    // Crop (3, 5) .. (15, 12): 12x7 pixels starting in the middle of chroma blocks.
    ExternalImage image(display(), *target, crop(3, 5, 15, 12));
    ImageFramebuffer framebuffer(image, 12, 7);

    // Rows of 10 pixels aligned to 8 bytes, 2 rows and 1 pixel skipped; the rectangle starts left
    // of the target.
    constexpr int kRowLength = 10;
    constexpr int kReadX = -2;
    constexpr int kReadY = 1;
    constexpr int kReadWidth = 8;
    constexpr int kReadHeight = 5;
    constexpr size_t kStride = 40;
    glPixelStorei(GL_PACK_ROW_LENGTH, kRowLength);
    glPixelStorei(GL_PACK_SKIP_ROWS, 2);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 1);
    glPixelStorei(GL_PACK_ALIGNMENT, 8);
    auto check = [&](const std::vector<uint8_t>& memory) {
        for (int row = 0; row < kReadHeight; ++row) {
            for (int column = 0; column < kReadWidth; ++column) {
                const uint8_t* pixel = memory.data() + (2 + row) * kStride + (1 + column) * 4;
                const int x = kReadX + column;
                if (x < 0) {
                    EXPECT_EQ(pixel[0], 0xa5) << "outside the target, column " << column;
                    continue;
                }
                const zel::test::Rgb8& expected = whole.at(3 + x, 5 + kReadY + row);
                EXPECT_NEAR(pixel[0], expected.r, 1) << column << "," << row;
                EXPECT_NEAR(pixel[1], expected.g, 1) << column << "," << row;
                EXPECT_NEAR(pixel[2], expected.b, 1) << column << "," << row;
                EXPECT_EQ(pixel[3], 255);
            }
        }
    };
    const size_t size = (2 + kReadHeight) * kStride;
    std::vector<uint8_t> memory(size, 0xa5);
    glReadPixels(kReadX, kReadY, kReadWidth, kReadHeight, GL_RGBA, GL_UNSIGNED_BYTE, memory.data());
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    check(memory);

    // Only RGBA bytes, and never more than the client's buffer holds.
    std::vector<uint8_t> untouched(size, 0xa5);
    glReadPixels(0, 0, 2, 2, GL_RGB, GL_UNSIGNED_BYTE, untouched.data());
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_OPERATION));
    const size_t needed = 2 * kStride + 4 + (kReadHeight - 1) * kStride + kReadWidth * 4;
    glReadnPixels(kReadX, kReadY, kReadWidth, kReadHeight, GL_RGBA, GL_UNSIGNED_BYTE,
                  static_cast<GLsizei>(needed - 1), untouched.data());
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_OPERATION));
    EXPECT_EQ(untouched, std::vector<uint8_t>(size, 0xa5));
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glPixelStorei(GL_PACK_SKIP_ROWS, 0);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
}

TEST_F(YuvRendering, CropSelectsWhatIsSampledAndWhatIsRendered) {
    sp<GraphicBuffer> yuv = zel::test::makeTestBuffer(64, 48, HAL_PIXEL_FORMAT_YV12);
    zel::test::fillBuffer(*yuv, zel::test::noise(64, 48, 17), 0);
    const YuvImage planes = zel::test::readPlanes(*yuv);
    const RgbImage whole = zel::test::decode(planes, kBt601);

    // Even and odd crop origins: each pixel keeps the chroma of its block in the buffer.
    for (const auto& [left, top, right, bottom] : {std::array{4, 2, 36, 18}, {3, 1, 30, 16}}) {
        SCOPED_TRACE(testing::Message() << "crop at " << left << "," << top);
        const int w = right - left;
        const int h = bottom - top;
        sp<GraphicBuffer> rgba = zel::test::makeTestBuffer(w, h, HAL_PIXEL_FORMAT_RGBA_8888);
        zel::test::poisonBuffer(*rgba);
        libraryDraw(*yuv, *rgba, ShaderShape::ToRgba, "itu_601", GL_NEAREST,
                    crop(left, top, right, bottom));
        RgbImage expected(w, h);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                expected.at(x, y) = whole.at(left + x, top + y);
            }
        }
        EXPECT_TRUE(zel::test::imagesMatch(zel::test::readRgba(*rgba), expected, 1));
    }

    // Rendering into a crop of a YUV buffer writes that rectangle only.
    const RgbImage drawn = zel::test::gradient(32, 32);
    sp<GraphicBuffer> rgba = zel::test::makeTestBuffer(32, 32, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::writeRgba(*rgba, drawn);
    libraryDraw(*rgba, *yuv, ShaderShape::RgbToYuv, "itu_601", GL_NEAREST, {}, crop(8, 4, 40, 36),
                32, 32);
    YuvImage expected = planes;
    const YuvImage inside = zel::test::encode(drawn, kBt601, 8);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 32; ++x) {
            expected.lumaAt(8 + x, 4 + y) = inside.lumaAt(x, y);
        }
    }
    for (int j = 0; j < 16; ++j) {
        for (int i = 0; i < 16; ++i) {
            expected.cbAt(4 + i, 2 + j) = inside.cbAt(i, j);
            expected.crAt(4 + i, 2 + j) = inside.crAt(i, j);
        }
    }
    EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*yuv), expected, 1, 2));

    // A crop at an odd origin starts and ends inside chroma blocks; a draw that leaves the last
    // two columns and rows of the crop uncovered also has blocks half drawn, half kept.
    const RgbImage picture = zel::test::noise(32, 32, 23);
    zel::test::writeRgba(*rgba, picture);
    for (int32_t format : {int32_t{HAL_PIXEL_FORMAT_YV12}, int32_t{HAL_PIXEL_FORMAT_YCBCR_P010}}) {
        SCOPED_TRACE(testing::Message() << "odd crop of format 0x" << std::hex << format);
        sp<GraphicBuffer> target = zel::test::makeTestBuffer(64, 48, format);
        zel::test::fillBuffer(*target, zel::test::noise(64, 48, 29), 0);
        const YuvImage before = zel::test::readPlanes(*target);
        libraryDraw(*rgba, *target, ShaderShape::RgbToYuv, "itu_601", GL_NEAREST, {},
                    crop(7, 3, 41, 37), 32, 32);
        EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*target),
                                           drawnIntoCrop(before, picture, 7, 3, 34, 34), 1, 2));
    }
}

TEST_F(YuvRendering, VariantsAreCachedFollowTheDataspaceAndSeeTheClientsUniforms) {
    const int width = 36;
    const int height = 20;
    const RgbImage image = zel::test::noise(width, height, 31);
    sp<GraphicBuffer> nv12 =
        zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YCBCR_420_888);
    sp<GraphicBuffer> nv21 =
        zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YCRCB_420_SP);
    sp<GraphicBuffer> rgba = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::fillBuffer(*nv12, image, 0);
    zel::test::fillBuffer(*nv21, image, 0);
    // The projection flips rows: the variant must take the client's uniform value.
    Program program(zel::test::libraryVertexShader(true),
                    zel::test::libraryFragmentShader(ShaderShape::ToRgba));
    ASSERT_EQ(program.error(), "");
    program.use();
    const GLfloat flip[16] = {1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    glUniformMatrix4fv(glGetUniformLocation(program.name(), "uProjection"), 1, GL_FALSE, flip);
    ExternalImage nv12Image(display(), *nv12);
    ExternalImage nv21Image(display(), *nv21);
    ExternalImage destination(display(), *rgba);
    ImageFramebuffer framebuffer(destination, width, height);
    Quad quad;
    auto drawAndCheck = [&](const ExternalImage& source, GraphicBuffer& buffer) {
        zel::test::poisonBuffer(*rgba);
        source.bind(GL_TEXTURE0);
        quad.draw();
        glFinish();
        android::ui::Dataspace dataspace;
        android::GraphicBufferMapper::get().getDataspace(buffer.handle, &dataspace);
        const RgbImage decoded =
            zel::test::decode(zel::test::readPlanes(buffer),
                              zel::test::colourSpaceOf(static_cast<int32_t>(dataspace)));
        RgbImage flipped(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                flipped.at(x, y) = decoded.at(x, height - 1 - y);
            }
        }
        return zel::test::imagesMatch(zel::test::readRgba(*rgba), flipped, 1);
    };
    const uint64_t variants = zel::host::gpuCounters().programVariants;
    EXPECT_TRUE(drawAndCheck(nv12Image, *nv12));
    EXPECT_TRUE(drawAndCheck(nv21Image, *nv21));
    EXPECT_TRUE(drawAndCheck(nv12Image, *nv12));
    EXPECT_EQ(zel::host::gpuCounters().programVariants, variants + 2);
    // The dataspace is read at each draw: BT.709 full range needs a variant of its own.
    android::GraphicBufferMapper::get().setDataspace(
        nv12->handle,
        static_cast<android::ui::Dataspace>(zel::test::dataspaceOf({YuvStandard::Bt709, true})));
    EXPECT_TRUE(drawAndCheck(nv12Image, *nv12));
    EXPECT_EQ(zel::host::gpuCounters().programVariants, variants + 3);
    // The client's program is current again after each draw.
    GLint current = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(current, static_cast<GLint>(program.name()));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

// A renderer without a program cache makes a program per frame and deletes it while it is still
// current. It must keep drawing until replaced; then the driver frees it, and the variants made for
// it must go too, or every frame leaks a driver program.
TEST_F(YuvRendering, ProgramsDeletedWhileCurrentTakeTheirVariantsOnceReplaced) {
    const int width = 16;
    const int height = 8;
    const RgbImage image = zel::test::noise(width, height, 7);
    sp<GraphicBuffer> nv12 =
        zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YCBCR_420_888);
    sp<GraphicBuffer> rgba = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::fillBuffer(*nv12, image, 0);
    const RgbImage expected = zel::test::decode(zel::test::readPlanes(*nv12), kBt601);
    ExternalImage source(display(), *nv12);
    ExternalImage destination(display(), *rgba);
    ImageFramebuffer framebuffer(destination, width, height);
    Quad quad;
    // Program names live in the driver; the layer's variants are driver programs too.
    auto liveDriverPrograms = [] {
        const GLuint probe = glCreateProgram();
        int live = 0;
        for (GLuint name = 1; name < probe; ++name) {
            live += glIsProgram(name) == GL_TRUE ? 1 : 0;
        }
        glDeleteProgram(probe);
        return live;
    };
    // Each frame deletes its program while current and draws with it twice: the layer swaps in
    // its variant and back around each draw, which must not end the client's program.
    auto frame = [&] {
        {
            Program program(zel::test::libraryVertexShader(),
                            zel::test::libraryFragmentShader(ShaderShape::ToRgba));
            EXPECT_EQ(program.error(), "");
            program.use();
        }
        bool drawn = true;
        for (int draw = 0; draw < 2; ++draw) {
            zel::test::poisonBuffer(*rgba);
            source.bind(GL_TEXTURE0);
            quad.draw();
            glFinish();
            drawn = zel::test::imagesMatch(zel::test::readRgba(*rgba), expected, 1) && drawn;
        }
        return drawn;
    };
    // The layer's own pass programs are made on first use.
    EXPECT_TRUE(frame());
    glUseProgram(0);
    const int before = liveDriverPrograms();
    const uint64_t variants = zel::host::gpuCounters().programVariants;
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(frame()) << "frame " << i;
    }
    EXPECT_EQ(zel::host::gpuCounters().programVariants, variants + 6);
    glUseProgram(0);
    EXPECT_EQ(liveDriverPrograms(), before);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

}  // namespace
