// The GPU layer converts YUV buffers as an Android driver with GL_EXT_YUV_target does, checked
// against the reference converter for every host YUV format and every standard and range, with
// the three shader shapes the library generates: YUV sampled into RGBA through samplerExternalOES,
// RGBA rendered into YUV through rgb_2_yuv and a layout(yuv) output, and YUV copied to YUV through
// __samplerExternal2DY2YEXT.
#include <random>
#include <string>
#include <tuple>

#include <gtest/gtest.h>
#include <hardware/gralloc.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>
#include <zel/host/Gpu.h>

#include "EglContext.h"
#include "GlDrawing.h"
#include "ReferenceConverter.h"

using android::GraphicBuffer;
using android::sp;
using zel::test::ColourSpace;
using zel::test::ExternalImage;
using zel::test::ImageFramebuffer;
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

// The oracle itself: the documented examples, exact inverses, 4:2:0 at odd sizes, dataspaces and
// the P010 memory format.
TEST(YuvReferenceConverter, FollowsTheDocumentedFormulasAndLayouts) {
    const ColourSpace bt601 = {YuvStandard::Bt601, false};
    const zel::test::Yuv red601 = zel::test::yuvFromRgb(bt601, {1, 0, 0});
    EXPECT_EQ(zel::test::codeOf(red601.y, 8), 81);
    EXPECT_EQ(zel::test::codeOf(red601.cb, 8), 90);
    EXPECT_EQ(zel::test::codeOf(red601.cr, 8), 240);
    const zel::test::Yuv red709 = zel::test::yuvFromRgb({YuvStandard::Bt709, true}, {1, 0, 0});
    EXPECT_EQ(zel::test::codeOf(red709.y, 8), 54);
    EXPECT_EQ(zel::test::codeOf(red709.cb, 8), 99);
    EXPECT_GT(red709.cr, 1.0);  // unclamped; 255 as a code
    EXPECT_EQ(zel::test::codeOf(red709.cr, 8), 255);
    for (const ColourSpace& space : kColourSpaces) {
        for (double r : {0.0, 0.3, 1.0}) {
            for (double b : {0.0, 0.6, 1.0}) {
                const zel::test::Rgb rgb =
                    zel::test::rgbFromYuv(space, zel::test::yuvFromRgb(space, {r, 0.5, b}));
                EXPECT_NEAR(rgb.r, r, 1e-12);
                EXPECT_NEAR(rgb.g, 0.5, 1e-12);
                EXPECT_NEAR(rgb.b, b, 1e-12);
            }
        }
        EXPECT_EQ(zel::test::nameOf(zel::test::colourSpaceOf(zel::test::dataspaceOf(space))),
                  zel::test::nameOf(space));
    }
    EXPECT_EQ(zel::test::nameOf(zel::test::colourSpaceOf(0)), "Bt601Limited");
    EXPECT_EQ(zel::test::nameOf(zel::test::colourSpaceOf(HAL_DATASPACE_JFIF)), "Bt601Full");
    EXPECT_EQ(zel::test::nameOf(zel::test::colourSpaceOf(HAL_DATASPACE_BT709)), "Bt709Limited");
    EXPECT_EQ(zel::test::nameOf(zel::test::colourSpaceOf(HAL_DATASPACE_DISPLAY_P3)), "Bt601Full");

    // 3x3: the last chroma column and row average the pixels that exist.
    RgbImage image(3, 3);
    for (int i = 0; i < 9; ++i) {
        const uint8_t value = static_cast<uint8_t>(i * 30);
        image.pixels[static_cast<size_t>(i)] = {value, 0, 0, 255};
    }
    const ColourSpace full = {YuvStandard::Bt601, true};
    const YuvImage average = zel::test::encode(image, full, 8);
    const YuvImage topLeft = zel::test::encode(image, full, 8, zel::test::ChromaSiting::TopLeft);
    ASSERT_EQ(average.chromaWidth(), 2);
    auto crOf = [&](double red) { return zel::test::yuvFromRgb(full, {red / 255.0, 0, 0}).cr; };
    EXPECT_EQ(average.crAt(1, 0), zel::test::codeOf((crOf(60) + crOf(150)) / 2, 8));
    EXPECT_EQ(average.crAt(1, 1), zel::test::codeOf(crOf(240), 8));
    EXPECT_EQ(topLeft.crAt(0, 0), zel::test::codeOf(crOf(0), 8));

    // P010 memory: code << 6, little-endian, through the mapper's chroma description.
    sp<GraphicBuffer> p010 = zel::test::makeTestBuffer(5, 3, HAL_PIXEL_FORMAT_YCBCR_P010);
    YuvImage codes(5, 3, 10);
    codes.lumaAt(0, 0) = 0x3FF;
    codes.lumaAt(4, 2) = 0x155;
    codes.cbAt(2, 1) = 0x201;
    codes.crAt(2, 1) = 0x002;
    zel::test::writePlanes(*p010, codes);
    EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*p010), codes, 0, 0));
    EXPECT_TRUE(zel::test::p010LowBitsClear(*p010));
    android_ycbcr planes = {};
    ASSERT_EQ(p010->lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &planes), android::NO_ERROR);
    const auto* y = static_cast<const uint8_t*>(planes.y);
    EXPECT_EQ(y[0] | y[1] << 8, 0x3FF << 6);
    const auto* cr =
        static_cast<const uint8_t*>(planes.cr) + planes.cstride + 2 * planes.chroma_step;
    EXPECT_EQ(cr[0] | cr[1] << 8, 0x002 << 6);
    p010->unlock();
}

class YuvConversionTest : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
        mContext = std::make_unique<zel::test::EglContext>();
        ASSERT_TRUE(mContext->ok()) << mContext->failure();
    }

    // Draws `source` over the whole of `destination` with the library's shader of `shape`.
    void draw(GraphicBuffer& source, GraphicBuffer& destination, ShaderShape shape,
              const char* constant = "itu_601", GLenum filter = GL_NEAREST) {
        Program program(zel::test::libraryVertexShader(),
                        zel::test::libraryFragmentShader(shape, constant));
        ASSERT_EQ(program.error(), "");
        ExternalImage sourceImage(mContext->display(), source);
        ExternalImage destinationImage(mContext->display(), destination);
        ASSERT_TRUE(sourceImage.ok() && destinationImage.ok());
        sourceImage.bind(GL_TEXTURE0, filter);
        ImageFramebuffer framebuffer(destinationImage, static_cast<int>(destination.getWidth()),
                                     static_cast<int>(destination.getHeight()));
        program.use();
        Quad().draw();
        glFinish();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }

    std::unique_ptr<zel::test::EglContext> mContext;
};

class YuvFormatAndColourSpace
    : public YuvConversionTest,
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
        draw(*source, *destination, ShaderShape::ToRgba);
        EXPECT_TRUE(zel::test::imagesMatch(zel::test::readRgba(*destination),
                                           zel::test::decode(planes, space), 1, true));

        // Linear: chroma interpolated between sample centres, clamped at the edges. The driver
        // filters 8-bit planes to 8 bits, which the conversion magnifies by up to 2.3.
        zel::test::poisonBuffer(*destination);
        draw(*source, *destination, ShaderShape::ToRgba, "", GL_LINEAR);
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
        draw(*source, *destination, ShaderShape::RgbToYuv, zel::test::yuvConstantOf(space));
        const int bitDepth = zel::test::bitDepthOf(format.hal);
        EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*destination),
                                           zel::test::encode(image, space, bitDepth), 1, 2));
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

class YuvFormat : public YuvConversionTest, public testing::WithParamInterface<Format> {};

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
            draw(*from, *to, ShaderShape::YuvToYuv);
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
    draw(*source, *destination, ShaderShape::YuvToYuv);
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

}  // namespace
