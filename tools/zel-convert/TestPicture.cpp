#include "TestPicture.h"

#include <cmath>

namespace zel::convert {

zel::test::RgbImage TestPicture::make(int width, int height, const TextPainter& text) {
    using zel::test::Rgb8;
    zel::test::RgbImage picture(width, height);
    const zel::test::RgbImage bars = zel::test::colourBars(width, height);
    const zel::test::RgbImage ramp = zel::test::gradient(width, height);
    const int barsEnd = height * 3 / 8;
    const int rampEnd = height * 5 / 8;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            Rgb8 pixel;
            if (y < barsEnd) {
                pixel = bars.at(x, y);
            } else if (y < rampEnd) {
                pixel = ramp.at(x, y);
            } else if (x < width / 6) {
                // Alternating one-pixel columns: the finest detail luma can hold.
                const uint8_t v = (x % 2 == 0) ? 255 : 0;
                pixel = {v, v, v, 255};
            } else if (x < width / 3) {
                const uint8_t v = ((x / 2 + y / 2) % 2 == 0) ? 230 : 20;
                pixel = {v, static_cast<uint8_t>(255 - v), 128, 255};
            } else if (x < width / 2) {
                // Zone plate: rings that get finer away from the centre.
                const double cx = x - width * 5.0 / 12.0;
                const double cy = y - (rampEnd + height) / 2.0;
                const auto v =
                    static_cast<uint8_t>(127.5 + 127.5 * std::cos((cx * cx + cy * cy) / 40.0));
                pixel = {v, v, v, 255};
            } else {
                pixel = {250, 250, 245, 255};
            }
            picture.at(x, y) = pixel;
        }
    }
    const int lineHeight = (height - rampEnd) / 3;
    text.draw(picture, width / 2 + 8, rampEnd + lineHeight, "ZEL 0123456789", {0, 0, 0, 255});
    text.draw(picture, width / 2 + 8, rampEnd + 2 * lineHeight, "Red on white", {220, 0, 0, 255});
    text.draw(picture, width / 2 + 8, rampEnd + 3 * lineHeight - 4, "Blue / green",
              {0, 40, 220, 255});
    return picture;
}

}  // namespace zel::convert
