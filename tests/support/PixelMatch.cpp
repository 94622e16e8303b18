#include "PixelMatch.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace zel {
namespace test {

testing::AssertionResult imagesMatch(const RgbImage& actual, const RgbImage& expected,
                                     int tolerance, bool compareAlpha) {
    if (actual.width != expected.width || actual.height != expected.height) {
        return testing::AssertionFailure()
               << "size " << actual.width << "x" << actual.height << " instead of "
               << expected.width << "x" << expected.height;
    }
    std::ostringstream details;
    int wrong = 0;
    int worst = 0;
    for (int y = 0; y < actual.height; ++y) {
        for (int x = 0; x < actual.width; ++x) {
            const Rgb8& a = actual.at(x, y);
            const Rgb8& e = expected.at(x, y);
            int difference =
                std::max({std::abs(a.r - e.r), std::abs(a.g - e.g), std::abs(a.b - e.b)});
            if (compareAlpha) {
                difference = std::max(difference, std::abs(a.a - e.a));
            }
            worst = std::max(worst, difference);
            if (difference > tolerance && ++wrong <= 5) {
                details << "\n  (" << x << "," << y << ") is " << int(a.r) << "," << int(a.g) << ","
                        << int(a.b) << "," << int(a.a) << " instead of " << int(e.r) << ","
                        << int(e.g) << "," << int(e.b) << "," << int(e.a);
            }
        }
    }
    if (wrong == 0) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << wrong << " pixels differ by more than " << tolerance
                                       << " (worst " << worst << ")" << details.str();
}

testing::AssertionResult planesMatch(const YuvImage& actual, const YuvImage& expected,
                                     int lumaTolerance, int chromaTolerance) {
    if (actual.width != expected.width || actual.height != expected.height ||
        actual.bitDepth != expected.bitDepth) {
        return testing::AssertionFailure()
               << "planes of " << actual.width << "x" << actual.height << " (" << actual.bitDepth
               << " bit) instead of " << expected.width << "x" << expected.height << " ("
               << expected.bitDepth << " bit)";
    }
    std::ostringstream details;
    int wrong = 0;
    auto check = [&](const char* plane, int x, int y, int a, int e, int tolerance) {
        if (std::abs(a - e) > tolerance && ++wrong <= 5) {
            details << "\n  " << plane << "(" << x << "," << y << ") is " << a << " instead of "
                    << e;
        }
    };
    for (int y = 0; y < actual.height; ++y) {
        for (int x = 0; x < actual.width; ++x) {
            check("Y", x, y, actual.lumaAt(x, y), expected.lumaAt(x, y), lumaTolerance);
        }
    }
    for (int j = 0; j < actual.chromaHeight(); ++j) {
        for (int i = 0; i < actual.chromaWidth(); ++i) {
            check("Cb", i, j, actual.cbAt(i, j), expected.cbAt(i, j), chromaTolerance);
            check("Cr", i, j, actual.crAt(i, j), expected.crAt(i, j), chromaTolerance);
        }
    }
    if (wrong == 0) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << wrong << " samples differ by more than the tolerance" << details.str();
}

}  // namespace test
}  // namespace zel
