// The per-draw description: the formats the programs handle, the conversion type of a format
// pair, and the colour standard and range of a destination dataspace.
#include <initializer_list>

#include <gtest/gtest.h>

#include <system/graphics.h>

#include "Description.h"

namespace kav::zel {
namespace {

TEST(Description, SupportsTheYuvFormatsAndRgba8888Only) {
    for (int format : std::initializer_list<int>{1, 0x11, 0x23, 0x36, 0x32315659, 0x1000,
                                                 0x7f000010, 0x7f000030}) {
        EXPECT_TRUE(Description::supportFormat(format)) << std::hex << format;
    }
    // Other RGB formats are refused on purpose; the small-format mask ends at 54.
    for (int format : std::initializer_list<int>{0, 2, 4, 5, 43, 55, 63, 64, 0xfff, 0x1001,
                                                 0x7f000020, -1, -63, INT32_MIN + 1}) {
        EXPECT_FALSE(Description::supportFormat(format)) << std::hex << format;
    }
}

TEST(Description, FormatPairGivesTheConversionType) {
    Description desc;
    const int cases[][3] = {
        {1, 1, 0}, {0x11, 1, 0}, {1, 0x23, 2}, {0x23, 0x36, 1}, {0x32315659, 0x1000, 1}};
    for (const auto& c : cases) {
        desc.setFmtType(c[0], c[1]);
        EXPECT_EQ(desc.mFmtType, c[2]) << c[0] << " -> " << c[1];
    }
}

TEST(Description, DataspaceGivesStandardAndRange) {
    const uint32_t bt709 = HAL_DATASPACE_STANDARD_BT709;
    const struct {
        uint32_t dataspace;
        int32_t standard;
        bool fullRange;
    } cases[] = {{HAL_DATASPACE_V0_BT709, 1, false},
                 {HAL_DATASPACE_V0_JFIF, 2, true},
                 {HAL_DATASPACE_BT2020_PQ, 3, true},
                 // An unspecified or extended range counts as full.
                 {bt709, 1, true},
                 {bt709 | HAL_DATASPACE_RANGE_EXTENDED, 1, true}};
    for (const auto& c : cases) {
        Description desc;
        desc.setDatasapce(static_cast<android_dataspace_t>(c.dataspace));
        EXPECT_EQ(desc.mStandard, c.standard) << std::hex << c.dataspace;
        EXPECT_EQ(desc.mFullRange, c.fullRange) << std::hex << c.dataspace;
    }
    // An unknown standard (BT601_525 too) keeps what an earlier pass set.
    Description desc;
    desc.setDatasapce(HAL_DATASPACE_BT2020_PQ);
    desc.setDatasapce(HAL_DATASPACE_V0_BT601_525);
    EXPECT_EQ(desc.mStandard, 3);
    EXPECT_TRUE(desc.mFullRange);
}

}  // namespace
}  // namespace kav::zel
