#include "ImageTexture.h"

#include "Counters.h"
#include "MesaDriver.h"
#include "SavedGlState.h"

namespace zel {
namespace hostgpu {

namespace {
constexpr GLenum kSamplingParameters[4] = {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER,
                                           GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T};
}  // namespace

ImageTexture::ImageTexture(std::shared_ptr<NativeBufferImage> image) : mImage(std::move(image)) {}

void ImageTexture::retarget(std::shared_ptr<NativeBufferImage> image) {
    const bool sameStorage = image->crop().width == mWidth && image->crop().height == mHeight &&
                             image->format().internalFormat == mImage->format().internalFormat &&
                             image->format().opaque == mImage->format().opaque;
    mImage = std::move(image);
    mGeneration = 0;
    mDirty = false;
    if (!sameStorage) {
        mAllocated = false;
    }
}

GLuint ImageTexture::texture() {
    if (!mAllocated) {
        allocate();
    }
    return mTexture;
}

void ImageTexture::allocate() {
    const MesaFunctions& gl = mesa();
    if (mTexture == 0) {
        gl.glGenTextures(1, &mTexture);
    }
    const ImageFormat& format = mImage->format();
    mWidth = mImage->crop().width;
    mHeight = mImage->crop().height;
    SavedGlState saved;
    saved.saveTexture2D();
    saved.saveUnpack();
    gl.glBindTexture(GL_TEXTURE_2D, mTexture);
    gl.glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(format.internalFormat),
                    static_cast<GLsizei>(mWidth), static_cast<GLsizei>(mHeight), 0, format.format,
                    format.type, nullptr);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_A, format.opaque ? GL_ONE : GL_ALPHA);
    // What an external texture starts with.
    const GLint defaults[4] = {GL_LINEAR, GL_LINEAR, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE};
    for (size_t i = 0; i < 4; ++i) {
        gl.glTexParameteri(GL_TEXTURE_2D, kSamplingParameters[i], defaults[i]);
        mSampling[i] = defaults[i];
    }
    mAllocated = true;
    mGeneration = 0;
}

void ImageTexture::refresh() {
    if (!mAllocated) {
        allocate();
    }
    const uint64_t generation = mImage->contentGeneration();
    if (mDirty || generation == mGeneration) {
        return;
    }
    const MesaFunctions& gl = mesa();
    const ImageFormat& format = mImage->format();
    SavedGlState saved;
    saved.saveTexture2D();
    saved.saveUnpack();
    gl.glBindTexture(GL_TEXTURE_2D, mTexture);
    gl.glPixelStorei(GL_UNPACK_ROW_LENGTH,
                     static_cast<GLint>(mImage->rowPitch(0) / format.bytesPerPixel));
    gl.glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, static_cast<GLsizei>(mWidth),
                       static_cast<GLsizei>(mHeight), format.format, format.type,
                       mImage->planeData(0));
    mGeneration = generation;
    Counters::add(Counter::Uploads);
}

void ImageTexture::writeBack(GLuint framebuffer) {
    if (!mDirty || !mAllocated) {
        mDirty = false;
        return;
    }
    const MesaFunctions& gl = mesa();
    const ImageFormat& format = mImage->format();
    SavedGlState saved;
    saved.saveReadFramebuffer();
    saved.savePack();
    gl.glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
    gl.glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, mTexture,
                              0);
    gl.glPixelStorei(GL_PACK_ROW_LENGTH,
                     static_cast<GLint>(mImage->rowPitch(0) / format.bytesPerPixel));
    gl.glReadPixels(0, 0, static_cast<GLsizei>(mWidth), static_cast<GLsizei>(mHeight),
                    format.format, format.type, mImage->planeData(0));
    // Attached, the texture would stay alive after the client deletes it.
    gl.glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
    // The texture holds what memory now holds: no upload needed to sample it here.
    mGeneration = mImage->markContentChanged();
    mDirty = false;
    Counters::add(Counter::WriteBacks);
}

void ImageTexture::applySampling(const GLint parameters[4]) {
    const MesaFunctions& gl = mesa();
    for (size_t i = 0; i < 4; ++i) {
        if (mSampling[i] != parameters[i]) {
            gl.glTexParameteri(GL_TEXTURE_2D, kSamplingParameters[i], parameters[i]);
            mSampling[i] = parameters[i];
        }
    }
}

GLuint ImageTexture::releaseTexture() {
    const GLuint texture = mTexture;
    mTexture = 0;
    mAllocated = false;
    return texture;
}

}  // namespace hostgpu
}  // namespace zel
