#include <zel/Texture.h>

#include <string.h>

#include <zel/Renderer.h>

#include "ScopedTrace.h"

namespace kav {
namespace zel {

Texture::Texture() = default;

Texture::Texture(std::shared_ptr<Renderer>& renderer, uint32_t width, uint32_t height,
                 Format format, DataType type, const void* data, int)
    : mRenderer(renderer), mFormat(format), mDataType(type), mWidth(width), mHeight(height) {
    ZEL_TRACE_FUNC();
    if (mRenderer) {
        ZEL_TRACE_NAME("genTexture");
        // A failure leaves mTextureName at 0, which the destructor and users check.
        mRenderer->genTexture(&mTextureName, width, height, format, type, data);
    }
}

Texture::~Texture() {
    ZEL_TRACE_NAME("~Texture");
    if (mTextureName != 0 && mRenderer) {
        mRenderer->deleteTexture(&mTextureName);
    }
    mRenderer.reset();
}

void Texture::setMatrix(const float* matrix) {
    if (matrix != nullptr) {
        memcpy(mMatrix, matrix, sizeof(mMatrix));
    }
}

}  // namespace zel
}  // namespace kav
