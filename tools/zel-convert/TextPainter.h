/*
 * Draws lines of text into RGB images with FreeType, in a sans-serif font of the system (DejaVu
 * Sans on Debian, Roboto on a phone). Without a font it draws nothing.
 */
#pragma once

#include <string>

#include "ReferenceConverter.h"

namespace zel::convert {

class TextPainter {
public:
    explicit TextPainter(int pixelHeight);
    ~TextPainter();
    TextPainter(const TextPainter&) = delete;
    TextPainter& operator=(const TextPainter&) = delete;

    bool hasFont() const { return mFace != nullptr; }
    // Draws text with its baseline at y, starting at x, blending colour by the glyphs' coverage.
    void draw(zel::test::RgbImage& image, int x, int y, const std::string& text,
              zel::test::Rgb8 colour) const;

private:
    void* mLibrary = nullptr;  // FT_Library
    void* mFace = nullptr;     // FT_Face
};

}  // namespace zel::convert
