// zel-convert end to end: the tool as a user runs it, with FFmpeg at both ends of a pipe, pixels
// checked against the reference converter, buffer dumps replayed, and every kind of bad input.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "PixelMatch.h"
#include "ReferenceConverter.h"

extern char** environ;

namespace {

using zel::test::ColourSpace;
using zel::test::RgbImage;
using zel::test::YuvImage;
using zel::test::YuvStandard;

constexpr int kWidth = 64;
constexpr int kHeight = 48;

struct Outcome {
    int exitCode = -1;
    int pid = -1;
    std::string err;
};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

class ZelConvert : public testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/zel-convert-test-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        mDir = dir;
        mTool = ZEL_TEST_TOOL;
    }
    void TearDown() override { std::system(("rm -rf " + mDir).c_str()); }

    std::string path(const std::string& name) const { return mDir + "/" + name; }

    // Runs a shell command line in the test's directory; "zel-convert" stands for the tool.
    // stderr is kept; the process id is the tool's when the line starts with it.
    Outcome shell(std::string line) const {
        for (size_t at = line.find("zel-convert"); at != std::string::npos;
             at = line.find("zel-convert", at + mTool.size())) {
            line.replace(at, 11, mTool);
        }
        const std::string script =
            "cd " + mDir + " && exec 2>" + path("stderr.txt") + " && exec " + line;
        const char* argv[] = {"/bin/sh", "-c", script.c_str(), nullptr};
        Outcome run;
        pid_t pid = 0;
        if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) !=
            0) {
            return run;
        }
        int status = 0;
        waitpid(pid, &status, 0);
        run.pid = pid;
        run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        run.err = readFile(path("stderr.txt"));
        return run;
    }

    // A short test stream from FFmpeg's own generator.
    void makeY4m(const std::string& name, const std::string& pixelFormat, int frames,
                 const std::string& extra = "") {
        const Outcome run =
            shell("ffmpeg -loglevel error -y -f lavfi -i testsrc2=size=" + std::to_string(kWidth) +
                  "x" + std::to_string(kHeight) + ":rate=25 -frames:v " + std::to_string(frames) +
                  " -pix_fmt " + pixelFormat + " " + extra + " -strict -1 -f yuv4mpegpipe " + name);
        ASSERT_EQ(run.exitCode, 0) << run.err;
    }

    std::string mDir;
    std::string mTool;
};

// Planes of an FFmpeg yuv420p / yuv420p10le raw frame.
YuvImage planesOfI420(const std::string& bytes, size_t offset, int bitDepth) {
    YuvImage image(kWidth, kHeight, bitDepth);
    const size_t sample = bitDepth == 8 ? 1 : 2;
    auto code = [&](size_t index) {
        const size_t at = offset + index * sample;
        return static_cast<uint16_t>(
            sample == 1 ? uint8_t(bytes[at]) : uint8_t(bytes[at]) | uint8_t(bytes[at + 1]) << 8);
    };
    const size_t luma = image.y.size();
    const size_t chroma = image.cb.size();
    for (size_t i = 0; i < luma; ++i) {
        image.y[i] = code(i);
    }
    for (size_t i = 0; i < chroma; ++i) {
        image.cb[i] = code(luma + i);
        image.cr[i] = code(luma + chroma + i);
    }
    return image;
}

RgbImage rgbaOf(const std::string& bytes, size_t offset = 0) {
    RgbImage image(kWidth, kHeight);
    for (size_t i = 0; i < image.pixels.size(); ++i) {
        const size_t at = offset + 4 * i;
        image.pixels[i] = {uint8_t(bytes[at]), uint8_t(bytes[at + 1]), uint8_t(bytes[at + 2]),
                           uint8_t(bytes[at + 3])};
    }
    return image;
}

// FFmpeg's stream through the tool into every YUV destination and back into FFmpeg: the codes
// must come back unchanged (a YUV to YUV blit copies them), through every entry point and both
// renderers, frame after frame.
TEST_F(ZelConvert, FfmpegPipeThroughEveryYuvDestinationKeepsTheCodes) {
    makeY4m("in.y4m", "yuv420p", 5);
    ASSERT_EQ(
        shell("ffmpeg -loglevel error -i in.y4m -f rawvideo -pix_fmt yuv420p ref.yuv").exitCode, 0);
    const std::string reference = readFile(path("ref.yuv"));
    for (const char* options : {"-t nv21", "-t nv12 --blit fence", "-t yv12 --blit async",
                                "-f nv21 -t nv12 --renderer threaded --blit async"}) {
        SCOPED_TRACE(options);
        const Outcome run = shell(
            "cat in.y4m | zel-convert - " + std::string(options) +
            " -o - | ffmpeg -loglevel error -y -f yuv4mpegpipe -i - -f rawvideo -pix_fmt yuv420p "
            "out.yuv");
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_TRUE(readFile(path("out.yuv")) == reference) << "the codes changed on the way";
    }
}

// YUV -> RGBA -> YUV through raw files and YUV4MPEG2 streams, each leg against the reference:
// RGBA within 2 of the decoded planes, and YUV within 1 (luma) and 2 (chroma) of the encoded RGBA.
TEST_F(ZelConvert, RoundTripsStayWithinTheReferenceTolerances) {
    struct Leg {
        const char* pixelFormat;  // FFmpeg's, of the stream made
        const char* extra;        // FFmpeg options
        ColourSpace space;
        const char* to;  // YUV destination of the way back
    };
    const Leg legs[] = {
        {"yuv420p", "", {YuvStandard::Bt601, false}, "nv21"},
        {"yuv420p", "-color_range pc", {YuvStandard::Bt601, true}, "nv12"},
        {"yuv420p10le", "", {YuvStandard::Bt601, false}, "p010le"},
    };
    for (const Leg& leg : legs) {
        SCOPED_TRACE(leg.pixelFormat + std::string(" ") + leg.extra);
        makeY4m("in.y4m", leg.pixelFormat, 2, leg.extra);
        const Outcome toRgba = shell("zel-convert in.y4m -o rgba.raw");
        ASSERT_EQ(toRgba.exitCode, 0) << toRgba.err;
        ASSERT_EQ(shell("ffmpeg -loglevel error -y -i in.y4m -f rawvideo -pix_fmt " +
                        std::string(leg.pixelFormat) + " planes.yuv")
                      .exitCode,
                  0);
        const int depth = std::string(leg.pixelFormat) == "yuv420p" ? 8 : 10;
        const std::string planes = readFile(path("planes.yuv"));
        const std::string rgba = readFile(path("rgba.raw"));
        ASSERT_EQ(rgba.size(), 2u * kWidth * kHeight * 4);
        const size_t frameBytes = planes.size() / 2;
        for (size_t frame = 0; frame < 2; ++frame) {
            EXPECT_TRUE(zel::test::imagesMatch(
                rgbaOf(rgba, frame * kWidth * kHeight * 4),
                zel::test::decode(planesOfI420(planes, frame * frameBytes, depth), leg.space), 2));
        }

        // Back: the RGBA frames as raw input, into a YUV4MPEG2 stream in the same colour space.
        const std::string range = leg.space.fullRange ? "full" : "limited";
        const Outcome back =
            shell("zel-convert -s " + std::to_string(kWidth) + "x" + std::to_string(kHeight) +
                  " -f rgba rgba.raw -t " + leg.to + " --dst-range " + range + " -o back.y4m");
        ASSERT_EQ(back.exitCode, 0) << back.err;
        const std::string header = readFile(path("back.y4m")).substr(0, 80);
        EXPECT_NE(header.find(leg.space.fullRange ? "XCOLORRANGE=FULL" : "XCOLORRANGE=LIMITED"),
                  std::string::npos)
            << header;
        ASSERT_EQ(shell("ffmpeg -loglevel error -y -i back.y4m -f rawvideo -pix_fmt " +
                        std::string(leg.pixelFormat) + " back.yuv")
                      .exitCode,
                  0);
        const std::string backPlanes = readFile(path("back.yuv"));
        ASSERT_EQ(backPlanes.size(), planes.size());
        const int scale = depth == 8 ? 1 : 4;
        EXPECT_TRUE(zel::test::planesMatch(
            planesOfI420(backPlanes, frameBytes, depth),
            zel::test::encode(rgbaOf(rgba, kWidth * kHeight * 4), leg.space, depth), scale,
            2 * scale));
    }
}

// A conversion with dumping on writes its source and destination; replaying either with the tool
// gives the destination's pixels again.
TEST_F(ZelConvert, ReplayingTheLibrarysDumpsGivesTheSamePixels) {
    makeY4m("in.y4m", "yuv420p", 1);
    ASSERT_EQ(shell("ffmpeg -loglevel error -i in.y4m -f rawvideo -pix_fmt nv21 in.nv21").exitCode,
              0);
    const std::string size = std::to_string(kWidth) + "x" + std::to_string(kHeight);
    const Outcome run =
        shell("zel-convert -D vendor.kav.c2.zel.dump=1 -s " + size + " -f nv21 in.nv21 -o out.raw");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::string dumps = ZEL_TEST_DUMP_DIR + std::to_string(run.pid) + "_";
    const std::string names = "_W_" + std::to_string(kWidth) + "_H_" + std::to_string(kHeight);
    const Outcome listed = shell("ls " + dumps + "*" + names + "_P_17_in#1.raw " + dumps + "*" +
                                 names + "_P_1_out#1.raw > dumps.txt");
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    std::ifstream list(path("dumps.txt"));
    std::string inDump, outDump;
    ASSERT_TRUE(std::getline(list, inDump) && std::getline(list, outDump));
    const std::string expected = readFile(path("out.raw"));
    ASSERT_EQ(expected.size(), size_t(kWidth) * kHeight * 4);
    for (const std::string& dump : {inDump, outDump}) {
        SCOPED_TRACE(dump);
        const Outcome replay = shell("zel-convert '" + dump + "' -o replay.raw");
        ASSERT_EQ(replay.exitCode, 0) << replay.err;
        EXPECT_TRUE(readFile(path("replay.raw")) == expected);
    }
    // Straight to a picture, as a user would look at it.
    EXPECT_EQ(shell("zel-convert '" + inDump + "' -o out.png").exitCode, 0);
    std::remove(inDump.c_str());
    std::remove(outDump.c_str());
}

TEST_F(ZelConvert, BadInputGivesOneLineAndExitCodeTwoWithNoPartialFrame) {
    makeY4m("two.y4m", "yuv420p", 2);
    makeY4m("444.y4m", "yuv444p", 1);
    const std::string stream = readFile(path("two.y4m"));
    writeFile(path("cut.y4m"), stream.substr(0, stream.size() - 100));
    writeFile(path("short.nv21"), std::string(1000, '\x10'));
    writeFile(path("odd.nv21"), std::string(63 * 48 + 2 * 32 * 24, '\x10'));
    // Sizes no int holds, or that no file here could: refused before any frame is allocated.
    writeFile(path("1_2_W_99999999999_H_2_P_17_x#0.raw"), std::string(12, '\x10'));
    writeFile(path("1_2_W_65536_H_65536_P_1_x#0.raw"), std::string(12, '\x10'));
    writeFile(path("huge.y4m"), "YUV4MPEG2 W2147483647 H65536 C420\nFRAME\n");
    struct Case {
        const char* arguments;
        int exitCode;
        const char* message;
    };
    const Case cases[] = {
        {"-s 64x48 -f nv99 short.nv21 -o out.raw", 2, "unknown pixel format 'nv99'"},
        {"-s 64x48 -f nv21 short.nv21 -o out.raw", 2,
         "1000 bytes is not a whole number of 64x48 nv21 frames (4608 bytes each)"},
        {"cut.y4m -t nv21 -o out.raw", 2, "cut.y4m: frame 2 is truncated"},
        {"-s 63x48 -f nv21 odd.nv21 -o out.raw", 2, "63x48: nv21 needs an even width and height"},
        {"missing.y4m -o out.raw", 2, "cannot read missing.y4m: No such file or directory"},
        {"two.y4m -o no/such/dir/out.raw", 2, "cannot write no/such/dir/out.raw"},
        {"444.y4m -o out.raw", 2, "YUV4MPEG2 chroma layout C444 is not supported"},
        {"huge.y4m -o out.raw", 2, "frame size 2147483647x65536 is too large"},
        {"'1_2_W_99999999999_H_2_P_17_x#0.raw' -o out.raw", 2, "raw input needs -s WxH"},
        {"'1_2_W_65536_H_65536_P_1_x#0.raw' -o out.raw", 2,
         "12 bytes do not hold a 65536x65536 rgba buffer"},
        {"two.y4m", 2, "no output"},
        {"two.y4m -t rgba -o out.y4m", 2, "YUV4MPEG2 output needs a YUV destination"},
        {"two.y4m --grid 1x4 -o out.raw", 2, "--grid needs at least 2x2 vertices"},
        {"two.y4m --bogus -o out.raw", 2, "--bogus"},
        {"two.y4m -o out.png", 2, "holds one picture"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        std::remove(path("out.raw").c_str());
        const Outcome run = shell(std::string("zel-convert ") + c.arguments);
        EXPECT_EQ(run.exitCode, c.exitCode);
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        // One line of the tool's own, the last (the library's log lines may come before it).
        const size_t line = run.err.rfind("zel-convert: ");
        EXPECT_EQ(run.err.find("zel-convert: "), line) << run.err;
        EXPECT_EQ(run.err.find('\n', line), run.err.size() - 1) << run.err;
    }
    // The stream cut inside frame 2 leaves frame 1 whole and nothing of frame 2.
    shell("zel-convert cut.y4m -t nv21 -o out.raw");
    EXPECT_EQ(readFile(path("out.raw")).size(), size_t(kWidth) * kHeight * 3 / 2);
}

TEST_F(ZelConvert, FailedConversionGivesExitCodeOneWithTheStatusName) {
    makeY4m("in.y4m", "yuv420p", 1);
    // Without native fences the time-out entry point cannot see the GPU finish.
    const Outcome run = shell(
        "env ZEL_HOST_DRIVER=no-native-fence-sync ZEL_HOST_LOG=quiet "
        "zel-convert in.y4m --blit sync -o out.raw");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("frame 1: conversion failed: TIMED_OUT"), std::string::npos) << run.err;
    EXPECT_TRUE(readFile(path("out.raw")).empty());
}

// --stats, --trace and --list-formats say what they promise; the demo ends with its pictures and
// a table whose errors are within the tolerance (it fails otherwise).
TEST_F(ZelConvert, StatsTraceFormatListAndDemo) {
    makeY4m("in.y4m", "yuv420p", 3);
    const Outcome run = shell(
        "env ZEL_HOST_LOG=quiet zel-convert in.y4m --blit fence --stats "
        "--trace trace.json -o out.raw");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("zel-convert: 3 frames"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("frames per second"), std::string::npos);
    EXPECT_NE(run.err.find("GPU per frame          images"), std::string::npos);
    const std::string trace = readFile(path("trace.json"));
    EXPECT_EQ(trace.rfind("{\"traceEvents\":[", 0), 0u);
    EXPECT_NE(trace.find("\"zel-convert blit\""), std::string::npos);
    EXPECT_NE(trace.find("\"convert_source0\""), std::string::npos) << "no library section";

    ASSERT_EQ(shell("zel-convert --list-formats > formats.txt").exitCode, 0);
    const std::string formats = readFile(path("formats.txt"));
    EXPECT_NE(formats.find("nv21           0x11         nv21"), std::string::npos) << formats;
    EXPECT_NE(formats.find("p010le         0x36         p010le"), std::string::npos);
    EXPECT_NE(formats.find("yv12           0x32315659   -"), std::string::npos);

    const Outcome demo = shell("env ZEL_HOST_LOG=quiet zel-convert --demo demo > table.txt");
    ASSERT_EQ(demo.exitCode, 0) << demo.err << readFile(path("table.txt"));
    for (const char* picture : {"contact-sheet.png", "source.png", "rgba-to-nv21.png",
                                "p010-to-rgba.png", "nv21-grid.png"}) {
        EXPECT_GT(readFile(path("demo/") + picture).size(), 1000u) << picture;
    }
    EXPECT_NE(readFile(path("table.txt")).find("YV12 -> RGBA"), std::string::npos);
}

}  // namespace
