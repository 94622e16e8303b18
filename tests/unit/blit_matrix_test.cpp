// End-to-end frames: every supported source format into every supported destination format,
// through the public blit with a time-out, against the reference converter. Destinations are
// poisoned first so that pixels the blit did not write show up.
#include <cstdio>

#include <gtest/gtest.h>

#include <zel/Renderer.h>
#include <zel/host/Gpu.h>

#include "Frames.h"
#include "LogCapture.h"
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

// One blit of the case on a new renderer: its status, and whether the destination then matches
// the reference (false as well when the status is not OK).
struct Outcome {
    Status status = OK;
    testing::AssertionResult matches = testing::AssertionFailure();
};

Outcome blitCase(const Case& c) {
    constexpr int kWidth = 64, kHeight = 48;
    Outcome outcome;
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    std::shared_ptr<Renderer> renderer = Renderer::create(args);
    if (renderer == nullptr) {
        outcome.status = RENDER_FAILED;
        return outcome;
    }
    const RgbImage picture = pictureFor(c.index, kWidth, kHeight);
    const ColourSpace srcSpace = kSpaces[(c.index / 3) % 6];
    auto src = allocateBuffer(kWidth, kHeight, c.src);
    const RgbImage sampled = fillSource(*src, picture, srcSpace);
    auto dst = allocateBuffer(kWidth, kHeight, c.dst);
    poisonBuffer(*dst);
    setDataspace(*dst, dataspaceOf(c.dstSpace));

    Buffer output = bufferOf(dst);
    outcome.status = renderer->blit({bufferOf(src)}, output, 1000, APP_INSIDE_DEFAULT);
    if (outcome.status != OK) {
        return outcome;
    }
    if (!isYuvFormat(c.dst)) {
        // RGBA out: the source as the sampler converts it (YUV by its own dataspace).
        outcome.matches = imagesMatch(readRgba(*dst), sampled, isYuvFormat(c.src) ? 2 : 0);
        return outcome;
    }
    const YuvImage actual = readPlanes(*dst);
    if (isYuvFormat(c.src)) {
        // YUV to YUV copies the codes, whatever the dataspaces say.
        outcome.matches = planesMatch(actual, toDepth(readPlanes(*src), bitDepthOf(c.dst)), 1, 2);
    } else {
        // RGBA into YUV converts with the destination's colour space.
        outcome.matches = planesMatch(actual, encode(picture, c.dstSpace, bitDepthOf(c.dst)), 1, 2);
    }
    if (outcome.matches && c.dst == 0x36) {
        outcome.matches = p010LowBitsClear(*dst)
                              ? testing::AssertionSuccess()
                              : testing::AssertionFailure() << "P010 low bits set";
    }
    return outcome;
}

class BlitMatrix : public ::testing::TestWithParam<Case> {};

TEST_P(BlitMatrix, MatchesTheReference) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    const Outcome outcome = blitCase(GetParam());
    ASSERT_EQ(outcome.status, OK);
    EXPECT_TRUE(outcome.matches);
}

// What the library does differently on a driver without the phone-driver superset.
std::string portableForm(const Case& c) {
    if (!isYuvFormat(c.dst)) {
        return " (RGBA destination as a GL_TEXTURE_2D render target)";
    }
    const bool beyondText = c.dstSpace.standard == YuvStandard::Bt2020 ||
                            (c.dstSpace.standard == YuvStandard::Bt709 && c.dstSpace.fullRange);
    return beyondText ? " (samplerExternalOES source, explicit matrix)"
                      : " (samplerExternalOES source)";
}

// Each kind of pair and colour standard on the phone-driver superset and on a driver that keeps to
// the Khronos texts: the library converts correctly or fails cleanly, never OK with wrong pixels.
// Prints the table as Markdown: what the library does on each profile.
TEST(BlitMatrixProfiles, ConvertCorrectlyOrFailCleanlyOnEachProfile) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    struct Profile {
        const char* name;
        const char* switches;
    };
    const Profile profiles[] = {{"phone-driver superset", ""}, {"conformant", "conformant"}};
    std::string table = "| src -> dst | colour standard |";
    for (const Profile& profile : profiles) {
        table += std::string(" ") + profile.name + " |";
    }
    table += "\n|---|---|---|---|\n";
    int index = 0;
    for (const int32_t src : {0x1, 0x23}) {
        for (const int32_t dst : {0x1, 0x23}) {
            // Only RGBA into YUV depends on the destination's colour standard.
            const size_t spaces = isYuvFormat(dst) && !isYuvFormat(src) ? 6 : 1;
            for (size_t space = 0; space < spaces; ++space) {
                const Case c{src, dst, kSpaces[space], index++};
                char pair[64];
                snprintf(pair, sizeof(pair), "%s -> %s", isYuvFormat(src) ? "YUV" : "RGBA",
                         isYuvFormat(dst) ? "YUV" : "RGBA");
                table += std::string("| ") + pair + " | " +
                         (isYuvFormat(dst) && !isYuvFormat(src) ? nameOf(c.dstSpace) : "any") +
                         " |";
                for (const Profile& profile : profiles) {
                    SCOPED_TRACE(std::string(profile.name) + " " + pair + " " + nameOf(c.dstSpace));
                    ASSERT_TRUE(::zel::host::setDriverProfile(profile.switches));
                    LogCapture logs;
                    const Outcome outcome = blitCase(c);
                    const bool portable = logs.count(ANDROID_LOG_INFO, "portable") > 0;
                    // The phone-driver superset never needs the portable forms; RGBA into YUV
                    // on a driver that keeps to the texts always does.
                    const bool conformant = profile.switches[0] != '\0';
                    if (!conformant || (isYuvFormat(dst) && !isYuvFormat(src))) {
                        EXPECT_EQ(portable, conformant);
                    }
                    std::string cell;
                    if (outcome.status == OK) {
                        EXPECT_TRUE(outcome.matches);
                        cell = outcome.matches ? "OK, correct" : "OK, WRONG PIXELS";
                        cell += portable ? portableForm(c) : " (as written for phones)";
                    } else {
                        // A clean failure names itself in an error line.
                        EXPECT_GT(logs.count(ANDROID_LOG_ERROR, ""), 0u);
                        cell = "fails: status " + std::to_string(outcome.status);
                    }
                    table += " " + cell + " |";
                }
                table += "\n";
            }
        }
    }
    ::zel::host::resetDriverProfile();
    printf("%s", table.c_str());
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
