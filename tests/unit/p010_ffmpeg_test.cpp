// P010 sources decode with the 10-bit code ranges (limited: Y 64..940, chroma 512 +- 448), not the
// 8-bit ones scaled: the extreme codes give exact black and white, and frames made by FFmpeg,
// converted to RGBA by FFmpeg's swscale (nearest chroma, accurate rounding, bit-exact) and by the
// library's blit, agree within 1 LSB wherever the chroma is flat, so that how each upsamples chroma
// cannot matter. One frame is FFmpeg's test pattern, the other holds every luma code (out-of-range
// ones too) under 4x4 blocks of legal chroma codes (swscale wraps around past them). The FFmpeg
// part is skipped without an ffmpeg on the PATH.
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <zel/Renderer.h>
#include <zel/host/Gpu.h>

#include "Frames.h"
#include "ReferenceConverter.h"

namespace kav {
namespace zel {
namespace {

using namespace ::zel::test;

constexpr int kWidth = 128;
constexpr int kHeight = 96;

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {});
}

// A P010 frame blitted into RGBA by a renderer of its own.
RgbImage blitToRgba(const YuvImage& frame, const ColourSpace& space) {
    Renderer::Args args;
    args.rendererType = Renderer::kTypeGles;
    std::shared_ptr<Renderer> renderer = Renderer::create(args);
    EXPECT_NE(renderer, nullptr);
    auto src = allocateBuffer(frame.width, frame.height, 0x36);
    writePlanes(*src, frame);
    setDataspace(*src, dataspaceOf(space));
    auto dst = allocateBuffer(frame.width, frame.height, 0x1);
    poisonBuffer(*dst);
    Buffer output = bufferOf(dst);
    if (renderer != nullptr) {
        EXPECT_EQ(renderer->blit({bufferOf(src)}, output, 1000, APP_INSIDE_DEFAULT), OK);
    }
    return readRgba(*dst);
}

TEST(P010Range, NominalBlackAndWhiteAreExact) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    for (YuvStandard standard : {YuvStandard::Bt601, YuvStandard::Bt709, YuvStandard::Bt2020}) {
        for (bool full : {false, true}) {
            const ColourSpace space{standard, full};
            SCOPED_TRACE(nameOf(space));
            // White on the left, black on the right, neutral chroma.
            YuvImage frame(16, 4, 10);
            for (int y = 0; y < 4; ++y) {
                for (int x = 0; x < 16; ++x) {
                    frame.lumaAt(x, y) = x < 8 ? (full ? 1023 : 940) : (full ? 0 : 64);
                }
            }
            std::fill(frame.cb.begin(), frame.cb.end(), 512);
            std::fill(frame.cr.begin(), frame.cr.end(), 512);
            RgbImage expected(16, 4);
            for (int y = 0; y < 4; ++y) {
                for (int x = 0; x < 16; ++x) {
                    expected.at(x, y) = x < 8 ? Rgb8{255, 255, 255} : Rgb8{0, 0, 0};
                }
            }
            EXPECT_TRUE(imagesMatch(blitToRgba(frame, space), expected, 0));
        }
    }
}

class P010AgainstFfmpeg : public ::testing::Test {
protected:
    void SetUp() override {
        if (!::zel::host::gpuAvailable()) {
            GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
        }
        if (std::system("ffmpeg -version > /dev/null 2>&1") != 0) {
            GTEST_SKIP() << "no ffmpeg on the PATH";
        }
        char dir[] = "/tmp/zel-p010-ffmpeg-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        mDir = dir;
    }

    void TearDown() override {
        if (!mDir.empty()) {
            std::system(("rm -rf " + mDir).c_str());
        }
    }

    // Runs ffmpeg quietly with `arguments`; its output goes to `name` in the test's directory,
    // whose contents are returned.
    std::vector<uint8_t> ffmpeg(const std::string& arguments, const std::string& name) {
        const std::string path = mDir + "/" + name;
        const std::string command = "ffmpeg -v error -nostdin -y " + arguments + " " + path;
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return readFile(path);
    }

    // The P010 frame of the lavfi source `source`, as FFmpeg writes it (p010le), kept as
    // frame.p010 for the conversions.
    YuvImage makeFrame(const std::string& source) {
        const std::vector<uint8_t> bytes = ffmpeg(
            "-f lavfi -i \"" + source + "\" -frames:v 1 -pix_fmt p010le -f rawvideo", "frame.p010");
        YuvImage frame(kWidth, kHeight, 10);
        const size_t lumaSize = static_cast<size_t>(kWidth) * kHeight;
        EXPECT_EQ(bytes.size(), lumaSize * 3);
        if (bytes.size() != lumaSize * 3) {
            return frame;
        }
        auto code = [&](size_t sample) {
            return static_cast<uint16_t>((bytes[2 * sample] | (bytes[2 * sample + 1] << 8)) >> 6);
        };
        for (size_t i = 0; i < lumaSize; ++i) {
            frame.y[i] = code(i);
        }
        for (size_t i = 0; i < frame.cb.size(); ++i) {
            frame.cb[i] = code(lumaSize + 2 * i);
            frame.cr[i] = code(lumaSize + 2 * i + 1);
        }
        return frame;
    }

    // frame.p010 as RGBA by swscale, reading it with `matrix` ("bt709", "bt2020") and `range`.
    RgbImage ffmpegRgba(const char* matrix, bool fullRange) {
        const std::string range = fullRange ? "pc" : "tv";
        const std::vector<uint8_t> bytes = ffmpeg(
            "-f rawvideo -pix_fmt p010le -s " + std::to_string(kWidth) + "x" +
                std::to_string(kHeight) + " -i " + mDir +
                "/frame.p010 -vf scale=in_color_matrix=" + matrix + ":in_range=" + range +
                ":out_range=pc:flags=neighbor+accurate_rnd+full_chroma_int+bitexact,format=rgba "
                "-f rawvideo",
            "frame.rgba");
        RgbImage image(kWidth, kHeight);
        EXPECT_EQ(bytes.size(), image.pixels.size() * 4);
        for (size_t i = 0; i < image.pixels.size() && 4 * i + 3 < bytes.size(); ++i) {
            image.pixels[i] = {bytes[4 * i], bytes[4 * i + 1], bytes[4 * i + 2], bytes[4 * i + 3]};
        }
        return image;
    }

    std::string mDir;
};

// Keeps the pixels whose chroma sample equals its eight neighbours (elsewhere `poison`), in both
// images, so that only the colour conversion is compared.
void keepFlatChroma(const YuvImage& frame, RgbImage& a, RgbImage& b, size_t* kept) {
    *kept = 0;
    auto flat = [&](int i, int j) {
        for (int dj = -1; dj <= 1; ++dj) {
            for (int di = -1; di <= 1; ++di) {
                const int ni = std::clamp(i + di, 0, frame.chromaWidth() - 1);
                const int nj = std::clamp(j + dj, 0, frame.chromaHeight() - 1);
                if (frame.cbAt(ni, nj) != frame.cbAt(i, j) ||
                    frame.crAt(ni, nj) != frame.crAt(i, j)) {
                    return false;
                }
            }
        }
        return true;
    };
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            if (flat(x / 2, y / 2)) {
                ++*kept;
            } else {
                a.at(x, y) = b.at(x, y) = Rgb8{};
            }
        }
    }
}

TEST_F(P010AgainstFfmpeg, FlatChromaAgreesWithin1Lsb) {
    const struct {
        const char* name;
        const char* source;
    } frames[] = {
        {"testsrc2", "testsrc2=size=128x96:rate=1"},
        {"every code",
         "nullsrc=s=128x96,format=yuv420p10le,geq=lum='mod(X*7+Y*13,1024)'"
         ":cb='64+mod(floor(X/4)*97+floor(Y/4)*61,897)'"
         ":cr='64+mod(floor(X/4)*53+floor(Y/4)*151+300,897)'"},
    };
    const struct {
        const char* matrix;
        ColourSpace space;
    } spaces[] = {{"bt2020", {YuvStandard::Bt2020, false}},
                  {"bt709", {YuvStandard::Bt709, false}},
                  {"bt2020", {YuvStandard::Bt2020, true}}};
    for (const auto& f : frames) {
        const YuvImage frame = makeFrame(f.source);
        for (const auto& s : spaces) {
            SCOPED_TRACE(testing::Message() << f.name << " " << nameOf(s.space));
            RgbImage expected = ffmpegRgba(s.matrix, s.space.fullRange);
            RgbImage actual = blitToRgba(frame, s.space);
            size_t kept = 0;
            keepFlatChroma(frame, actual, expected, &kept);
            EXPECT_GT(kept, frame.y.size() / 4);
            EXPECT_TRUE(imagesMatch(actual, expected, 1));
        }
    }
}

}  // namespace
}  // namespace zel
}  // namespace kav
