/*
 * A plain GL texture whose name a renderer makes and deletes through genTexture/deleteTexture, so
 * the GL calls run wherever that renderer runs them (its worker thread for a threaded renderer).
 * ExternalTexture extends it to wrap an Android graphic buffer.
 */
#pragma once

#include <stdint.h>

#include <memory>

namespace kav {
namespace zel {

class Renderer;

class Texture {
public:
    // GL enum values, passed unchanged to genTexture.
    enum Format : uint32_t {
        ALPHA = 0x1906,
        RGB = 0x1907,
        RGBA = 0x1908,
        LUMINANCE = 0x1909,
        RED = 0x1903,
        RG = 0x8227,
    };
    enum DataType : uint32_t {
        UNSIGNED_BYTE = 0x1401,
        UNSIGNED_SHORT = 0x1403,
        FLOAT = 0x1406,
        HALF_FLOAT = 0x140B,
    };
    static constexpr uint32_t kTarget2D = 0x0DE1;        // GL_TEXTURE_2D
    static constexpr uint32_t kTargetExternal = 0x8D65;  // GL_TEXTURE_EXTERNAL_OES

    // Asks renderer for a name of a width x height texture filled from data (may be null). The
    // trailing int is accepted and unused. A failed genTexture leaves the name 0.
    Texture(std::shared_ptr<Renderer>& renderer, uint32_t width, uint32_t height, Format format,
            DataType type, const void* data, int);
    ~Texture();
    Texture(const Texture&) = delete;
    Texture& operator=(const Texture&) = delete;

    uint32_t getTextureName() const { return mTextureName; }
    uint32_t getTextureTarget() const { return mTextureTarget; }
    const float* getMatrix() const { return mMatrix; }
    void setMatrix(const float* matrix);
    uint32_t getWidth() const { return mWidth; }
    uint32_t getHeight() const { return mHeight; }
    Format getFormat() const { return mFormat; }
    DataType getDataType() const { return mDataType; }

protected:
    // The empty texture an ExternalTexture starts from: no renderer, no name, size 0.
    Texture();

    std::shared_ptr<Renderer> mRenderer;
    uint32_t mTextureName = 0;
    Format mFormat = RGBA;
    DataType mDataType = UNSIGNED_BYTE;
    float mMatrix[16] = {};
    uint32_t mWidth = 0;
    uint32_t mHeight = 0;
    uint32_t mTextureTarget = kTarget2D;
};

}  // namespace zel
}  // namespace kav
