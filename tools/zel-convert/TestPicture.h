/*
 * The demo's test picture: colour bars on top, a gradient band, then fine detail (one-pixel
 * lines, a checkerboard, a zone plate) beside text, whose sharp edges show chroma bleeding.
 */
#pragma once

#include "ReferenceConverter.h"
#include "TextPainter.h"

namespace zel::convert {

class TestPicture {
public:
    static zel::test::RgbImage make(int width, int height, const TextPainter& text);
};

}  // namespace zel::convert
