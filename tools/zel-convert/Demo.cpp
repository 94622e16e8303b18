#include "Demo.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "Converter.h"
#include "HostHooks.h"
#include "Mesh.h"  // the grid mesh: the library's Mesh has no public header yet
#include "PngCodec.h"
#include "ReferenceConverter.h"
#include "TestPicture.h"
#include "TextPainter.h"

namespace zel::convert {

namespace {

using zel::test::ColourSpace;
using zel::test::RgbImage;
using zel::test::YuvStandard;

constexpr int kWidth = 512;
constexpr int kHeight = 288;
constexpr int kTimedFrames = 5;
constexpr int kColumns = 3;
constexpr int kCaptionHeight = 40;
// Largest code difference the design allows: +-2 for RGB from YUV on general images with
// nearest chroma, +-1 luma and +-2 chroma when rendering YUV.
constexpr int kTolerance = 2;

const ColourSpace kBt601{YuvStandard::Bt601, false};
const ColourSpace kBt709Full{YuvStandard::Bt709, true};
const ColourSpace kBt2020{YuvStandard::Bt2020, false};

enum class Geometry { None, Rotate180, Crop, Grid };

struct DemoCase {
    const char* title;
    const char* file;
    const char* from;
    const char* to;
    ColourSpace space;  // of the YUV side
    Geometry geometry;
};

const DemoCase kCases[] = {
    {"NV21 -> RGBA, BT.601 limited", "nv21-to-rgba", "nv21", "rgba", kBt601, Geometry::None},
    {"RGBA -> NV21, BT.601 limited", "rgba-to-nv21", "rgba", "nv21", kBt601, Geometry::None},
    {"P010 -> RGBA, BT.2020 limited", "p010-to-rgba", "p010le", "rgba", kBt2020, Geometry::None},
    {"YV12 -> RGBA, BT.601 limited", "yv12-to-rgba", "yv12", "rgba", kBt601, Geometry::None},
    {"NV21 -> RGBA, BT.709 full", "nv21-bt709-full", "nv21", "rgba", kBt709Full, Geometry::None},
    {"NV21 -> RGBA, rotated 180", "nv21-rotate-180", "nv21", "rgba", kBt601, Geometry::Rotate180},
    {"NV21 -> RGBA, crop 256x144", "nv21-crop", "nv21", "rgba", kBt601, Geometry::Crop},
    {"NV21 -> RGBA, 16x9 grid mesh", "nv21-grid", "nv21", "rgba", kBt601, Geometry::Grid},
};

const android::Rect kCrop(128, 72, 384, 216);

struct Result {
    RgbImage picture;  // what the destination shows
    double milliseconds = 0;
    int maxError = 0;
};

Frame frameOf(const RgbImage& image) {
    Frame frame(FrameLayout::Rgba, image.width, image.height);
    for (size_t i = 0; i < image.pixels.size(); ++i) {
        const zel::test::Rgb8& p = image.pixels[i];
        const uint8_t bytes[4] = {p.r, p.g, p.b, 255};
        std::memcpy(frame.data() + 4 * i, bytes, 4);
    }
    return frame;
}

RgbImage transformed(const RgbImage& image, Geometry geometry) {
    if (geometry == Geometry::Rotate180) {
        RgbImage out(image.width, image.height);
        for (int y = 0; y < image.height; ++y) {
            for (int x = 0; x < image.width; ++x) {
                out.at(x, y) = image.at(image.width - 1 - x, image.height - 1 - y);
            }
        }
        return out;
    }
    if (geometry == Geometry::Crop) {
        RgbImage out(kCrop.width(), kCrop.height());
        for (int y = 0; y < out.height; ++y) {
            for (int x = 0; x < out.width; ++x) {
                out.at(x, y) = image.at(kCrop.left + x, kCrop.top + y);
            }
        }
        return out;
    }
    return image;
}

ToolError runCase(const DemoCase& demoCase, const RgbImage& picture, int rendererType,
                  Result* result) {
    ConversionSetup setup;
    setup.rendererType = rendererType;
    setup.from = PixelFormat::find(demoCase.from);
    setup.to = PixelFormat::find(demoCase.to);
    setup.sourceWidth = kWidth;
    setup.sourceHeight = kHeight;
    setup.destinationWidth = demoCase.geometry == Geometry::Crop ? kCrop.width() : kWidth;
    setup.destinationHeight = demoCase.geometry == Geometry::Crop ? kCrop.height() : kHeight;
    const int32_t dataspace = zel::test::dataspaceOf(demoCase.space);
    setup.sourceDataspace = dataspace;
    setup.destinationDataspace = dataspace;
    setup.slots = 1;
    if (demoCase.geometry != Geometry::None) {
        auto settings = std::make_shared<kav::zel::BufferSettings>();
        if (demoCase.geometry == Geometry::Rotate180) {
            settings->rotation = 180.0f;
        } else if (demoCase.geometry == Geometry::Crop) {
            settings->crop = kCrop;
        } else {
            settings->mesh = kav::zel::Mesh::buildRect(16, 9);
        }
        setup.settings = settings;
    }
    std::unique_ptr<Converter> converter;
    if (ToolError error = Converter::create(setup, &converter)) {
        return error;
    }
    zel::test::fillBuffer(converter->source(0), picture, dataspace);
    std::vector<double> times;
    for (int i = 0; i <= kTimedFrames; ++i) {
        const auto start = std::chrono::steady_clock::now();
        kav::zel::Status status = converter->submit(0);
        if (status == kav::zel::OK) {
            status = converter->finish(0);
        }
        if (status != kav::zel::OK) {
            return ToolError(ToolError::kConversionFailed,
                             std::string(demoCase.title) +
                                 ": conversion failed: " + Converter::statusName(status));
        }
        if (i > 0) {  // the first frame compiles the program
            times.push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                    .count());
        }
    }
    std::sort(times.begin(), times.end());
    result->milliseconds = times[times.size() / 2];

    if (setup.to->isYuv()) {
        const zel::test::YuvImage planes = zel::test::readPlanes(converter->destination(0));
        const zel::test::YuvImage expected =
            zel::test::encode(picture, demoCase.space, setup.to->bitDepth());
        result->maxError = zel::test::maxDifference(planes, expected);
        result->picture = zel::test::decode(planes, demoCase.space);
        return {};
    }
    RgbImage source = picture;
    if (setup.from->isYuv()) {
        source = zel::test::decode(zel::test::readPlanes(converter->source(0)), demoCase.space);
    }
    result->picture = zel::test::readRgba(converter->destination(0));
    result->maxError =
        zel::test::maxDifference(result->picture, transformed(source, demoCase.geometry));
    return {};
}

// Half-size copy of image (2x2 averages), placed at (left, top) of sheet.
void placeTile(RgbImage& sheet, const RgbImage& image, int left, int top) {
    for (int y = 0; y + 1 < image.height; y += 2) {
        for (int x = 0; x + 1 < image.width; x += 2) {
            auto average = [&](uint8_t zel::test::Rgb8::*channel) {
                return static_cast<uint8_t>((image.at(x, y).*channel + image.at(x + 1, y).*channel +
                                             image.at(x, y + 1).*channel +
                                             image.at(x + 1, y + 1).*channel + 2) /
                                            4);
            };
            sheet.at(left + x / 2, top + y / 2) = {average(&zel::test::Rgb8::r),
                                                   average(&zel::test::Rgb8::g),
                                                   average(&zel::test::Rgb8::b), 255};
        }
    }
}

}  // namespace

ToolError Demo::run() {
    const std::string dir = mOptions.demoDir;
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
        return ToolError::badInput("cannot make " + dir + ": " + std::strerror(errno));
    }
    for (const auto& [key, value] : mOptions.properties) {
        if (ToolError error = HostHooks::setProperty(key, value)) {
            return error;
        }
    }
    const TextPainter pictureText(kHeight / 10);
    const TextPainter captionText(14);
    const RgbImage picture = TestPicture::make(kWidth, kHeight, pictureText);
    if (ToolError error = PngCodec::write(frameOf(picture), dir + "/source.png")) {
        return error;
    }

    const int tileWidth = kWidth / 2 + 8;
    const int tileHeight = kHeight / 2 + kCaptionHeight;
    const int tiles = 1 + static_cast<int>(std::size(kCases));
    const int rows = (tiles + kColumns - 1) / kColumns;
    RgbImage sheet(kColumns * tileWidth + 8, rows * tileHeight + 8);
    std::fill(sheet.pixels.begin(), sheet.pixels.end(), zel::test::Rgb8{40, 40, 44, 255});
    const zel::test::Rgb8 white{235, 235, 235, 255};
    placeTile(sheet, picture, 8, 8);
    captionText.draw(sheet, 8, 8 + kHeight / 2 + 17, "source (RGBA)", white);

    std::printf("%-32s %10s %10s\n", "pair", "ms/frame", "max error");
    int worst = 0;
    int tile = 1;
    for (const DemoCase& demoCase : kCases) {
        Result result;
        if (ToolError error = runCase(demoCase, picture, mOptions.rendererType, &result)) {
            return error;
        }
        worst = std::max(worst, result.maxError);
        std::printf("%-32s %10.2f %10d\n", demoCase.title, result.milliseconds, result.maxError);
        std::fflush(stdout);
        const std::string path = dir + "/" + demoCase.file + ".png";
        if (ToolError error = PngCodec::write(frameOf(result.picture), path)) {
            return error;
        }
        const int left = 8 + (tile % kColumns) * tileWidth;
        const int top = 8 + (tile / kColumns) * tileHeight;
        placeTile(sheet, result.picture, left, top);
        char caption[96];
        std::snprintf(caption, sizeof(caption), "%.2f ms, max error %d", result.milliseconds,
                      result.maxError);
        captionText.draw(sheet, left, top + kHeight / 2 + 17, demoCase.title, white);
        captionText.draw(sheet, left, top + kHeight / 2 + 34, caption, white);
        ++tile;
    }
    if (ToolError error = PngCodec::write(frameOf(sheet), dir + "/contact-sheet.png")) {
        return error;
    }
    std::printf("%d pictures and contact-sheet.png in %s; largest error %d (tolerance %d)\n", tiles,
                dir.c_str(), worst, kTolerance);
    if (worst > kTolerance) {
        return ToolError(ToolError::kConversionFailed,
                         "the demo's conversions differ from the reference by more than the "
                         "tolerance");
    }
    return {};
}

}  // namespace zel::convert
