/*
 * Pixel comparisons for tests: the reference converter's images and planes compared within a
 * tolerance, failing with the count and the first few differences.
 */
#pragma once

#include <gtest/gtest.h>

#include "ReferenceConverter.h"

namespace zel {
namespace test {

testing::AssertionResult imagesMatch(const RgbImage& actual, const RgbImage& expected,
                                     int tolerance, bool compareAlpha = false);
testing::AssertionResult planesMatch(const YuvImage& actual, const YuvImage& expected,
                                     int lumaTolerance, int chromaTolerance);

}  // namespace test
}  // namespace zel
