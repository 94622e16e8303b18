// End-to-end frames: every supported source format into every supported destination format,
// through the public blit with a time-out, against the reference converter. Destinations are
// poisoned first so that pixels the blit did not write show up.
#include <gtest/gtest.h>

#include <zel/Renderer.h>
#include <zel/host/Gpu.h>

#include "Frames.h"
#include "ReferenceConverter.h"

namespace kav {
namespace zel {
namespace {

using namespace ::zel::test;

constexpr int32_t kFormats[] = {0x1, 0x11, 0x23, 0x36, 0x32315659, 0x1000, 0x7f000010, 0x7f000030};

const ColourSpace kSpaces[] = {{YuvStandard::Bt601, false},  {YuvStandard::Bt601, true},
                               {YuvStandard::Bt709, false},  {YuvStandard::Bt709, true},
                               {YuvStandard::Bt2020, false}, {YuvStandard::Bt2020, true}};

struct Case {
    int32_t src;
    int32_t dst;
    ColourSpace dstSpace;  // only for a YUV destination
    int index;             // picks the picture and the source's colour space
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << std::hex << "src 0x" << c.src << " dst 0x" << c.dst << std::dec;
    if (isYuvFormat(c.dst)) {
        *out << " " << nameOf(c.dstSpace);
    }
}

std::vector<Case> allCases() {
    std::vector<Case> cases;
    int index = 0;
    for (int32_t src : kFormats) {
        for (int32_t dst : kFormats) {
            if (!isYuvFormat(dst)) {
                cases.push_back({src, dst, {}, index++});
                continue;
            }
            for (const ColourSpace& space : kSpaces) {
                cases.push_back({src, dst, space, index++});
            }
        }
    }
    return cases;
}

RgbImage pictureFor(int index, int width, int height) {
    switch (index % 3) {
        case 0:
            return colourBars(width, height);
        case 1:
            return gradient(width, height);
        default:
            return noise(width, height, static_cast<uint32_t>(index));
    }
}

// Codes of one bit depth in another, through the normalised value both stand for.
YuvImage toDepth(const YuvImage& image, int bitDepth) {
    YuvImage out(image.width, image.height, bitDepth);
    const double from = (1 << image.bitDepth) - 1;
    auto convert = [&](const std::vector<uint16_t>& in, std::vector<uint16_t>& to) {
        for (size_t i = 0; i < in.size(); ++i) {
            to[i] = codeOf(in[i] / from, bitDepth);
        }
    };
    convert(image.y, out.y);
    convert(image.cb, out.cb);
    convert(image.cr, out.cr);
    return out;
}

class BlitMatrix : public ::testing::TestWithParam<Case> {};

TEST_P(BlitMatrix, MatchesTheReference) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    const Case& c = GetParam();
    constexpr int kWidth = 64, kHeight = 48;
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    std::shared_ptr<Renderer> renderer = Renderer::create(args);
    ASSERT_NE(renderer, nullptr);

    const RgbImage picture = pictureFor(c.index, kWidth, kHeight);
    const ColourSpace srcSpace = kSpaces[(c.index / 3) % 6];
    auto src = allocateBuffer(kWidth, kHeight, c.src);
    const RgbImage sampled = fillSource(*src, picture, srcSpace);
    auto dst = allocateBuffer(kWidth, kHeight, c.dst);
    poisonBuffer(*dst);
    setDataspace(*dst, dataspaceOf(c.dstSpace));

    Buffer output = bufferOf(dst);
    ASSERT_EQ(renderer->blit({bufferOf(src)}, output, 1000, APP_INSIDE_DEFAULT), OK);

    if (!isYuvFormat(c.dst)) {
        // RGBA out: the source as the sampler converts it (YUV by its own dataspace).
        EXPECT_TRUE(imagesMatch(readRgba(*dst), sampled, isYuvFormat(c.src) ? 2 : 0));
        return;
    }
    const YuvImage actual = readPlanes(*dst);
    if (isYuvFormat(c.src)) {
        // YUV to YUV copies the codes, whatever the dataspaces say.
        EXPECT_TRUE(planesMatch(actual, toDepth(readPlanes(*src), bitDepthOf(c.dst)), 1, 2));
    } else {
        // RGBA into YUV converts with the destination's colour space.
        EXPECT_TRUE(planesMatch(actual, encode(picture, c.dstSpace, bitDepthOf(c.dst)), 1, 2));
    }
    if (c.dst == 0x36) {
        EXPECT_TRUE(p010LowBitsClear(*dst));
    }
}

std::string caseName(const ::testing::TestParamInfo<Case>& info) {
    const Case& c = info.param;
    char name[64];
    snprintf(name, sizeof(name), "src%x_dst%x", c.src, c.dst);
    std::string text = name;
    if (isYuvFormat(c.dst)) {
        text += "_" + nameOf(c.dstSpace);
    }
    return text;
}

INSTANTIATE_TEST_SUITE_P(Formats, BlitMatrix, ::testing::ValuesIn(allCases()), caseName);

}  // namespace
}  // namespace zel
}  // namespace kav
