#include "TextPainter.h"

#include <ft2build.h>
#include FT_FREETYPE_H

namespace zel::convert {

namespace {

const char* const kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/system/fonts/Roboto-Regular.ttf",
};

uint8_t blend(uint8_t under, uint8_t over, int coverage) {
    return static_cast<uint8_t>((under * (255 - coverage) + over * coverage + 127) / 255);
}

}  // namespace

TextPainter::TextPainter(int pixelHeight) {
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library) != 0) {
        return;
    }
    mLibrary = library;
    for (const char* path : kFonts) {
        FT_Face face = nullptr;
        if (FT_New_Face(library, path, 0, &face) == 0) {
            FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(pixelHeight));
            mFace = face;
            break;
        }
    }
}

TextPainter::~TextPainter() {
    if (mFace != nullptr) {
        FT_Done_Face(static_cast<FT_Face>(mFace));
    }
    if (mLibrary != nullptr) {
        FT_Done_FreeType(static_cast<FT_Library>(mLibrary));
    }
}

void TextPainter::draw(zel::test::RgbImage& image, int x, int y, const std::string& text,
                       zel::test::Rgb8 colour) const {
    if (mFace == nullptr) {
        return;
    }
    auto face = static_cast<FT_Face>(mFace);
    int pen = x;
    for (unsigned char c : text) {
        if (FT_Load_Char(face, c, FT_LOAD_RENDER) != 0) {
            continue;
        }
        const FT_GlyphSlot glyph = face->glyph;
        const FT_Bitmap& bitmap = glyph->bitmap;
        for (unsigned row = 0; row < bitmap.rows; ++row) {
            for (unsigned column = 0; column < bitmap.width; ++column) {
                const int px = pen + glyph->bitmap_left + static_cast<int>(column);
                const int py = y - glyph->bitmap_top + static_cast<int>(row);
                if (px < 0 || py < 0 || px >= image.width || py >= image.height) {
                    continue;
                }
                const int coverage = bitmap.buffer[row * bitmap.pitch + column];
                zel::test::Rgb8& p = image.at(px, py);
                p = {blend(p.r, colour.r, coverage), blend(p.g, colour.g, coverage),
                     blend(p.b, colour.b, coverage), 255};
            }
        }
        pen += static_cast<int>(glyph->advance.x >> 6);
    }
}

}  // namespace zel::convert
