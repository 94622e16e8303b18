#include "ImageTexture.h"

#include <utility>

#include "Counters.h"
#include "MesaDriver.h"
#include "SavedGlState.h"
#include "YuvShaderCode.h"

namespace zel {
namespace hostgpu {

namespace {

constexpr GLenum kSamplingParameters[4] = {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER,
                                           GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T};

// A client format and type that glTexImage2D accepts with `internalFormat`.
void clientFormatOf(GLenum internalFormat, GLenum* format, GLenum* type) {
    switch (internalFormat) {
        case GL_R8:
            *format = GL_RED;
            *type = GL_UNSIGNED_BYTE;
            return;
        case GL_RG8:
            *format = GL_RG;
            *type = GL_UNSIGNED_BYTE;
            return;
        case GL_R16_EXT:
            *format = GL_RED;
            *type = GL_UNSIGNED_SHORT;
            return;
        case GL_RG16_EXT:
            *format = GL_RG;
            *type = GL_UNSIGNED_SHORT;
            return;
        case GL_RGB10_A2:
            *format = GL_RGBA;
            *type = GL_UNSIGNED_INT_2_10_10_10_REV;
            return;
        default:
            *format = GL_RGBA;
            *type = GL_UNSIGNED_BYTE;
            return;
    }
}

}  // namespace

ImageTexture::ImageTexture(std::shared_ptr<NativeBufferImage> image) : mImage(std::move(image)) {}

ImageTexture::ImageTexture(std::shared_ptr<NativeBufferImage> image, Storage storage)
    : mImage(std::move(image)),
      mPlanes{storage.planes[0], storage.planes[1], storage.planes[2]},
      mIntermediate(storage.intermediate),
      mReadBack(storage.readBack),
      mLumaBytes(storage.lumaBytes),
      mGeneration(storage.generation),
      mTargetGeneration(storage.targetGeneration) {}

void ImageTexture::retarget(std::shared_ptr<NativeBufferImage> image) {
    const NativeBufferImage& old = *mImage;
    const bool sameStorage =
        &image->format() == &old.format() && image->crop().width == old.crop().width &&
        image->crop().height == old.crop().height && image->planeWidth(1) == old.planeWidth(1) &&
        image->planeHeight(1) == old.planeHeight(1);
    mImage = std::move(image);
    mGeneration = 0;
    mTargetGeneration = 0;
    mDirty = false;
    if (!sameStorage) {
        for (Texture& plane : mPlanes) {
            plane.allocated = false;
        }
        mIntermediate.allocated = false;
        mReadBack.allocated = false;
        mLumaBytes.allocated = false;
    }
}

void ImageTexture::allocate(Texture& texture, GLenum internalFormat, uint32_t width,
                            uint32_t height, bool opaque) {
    const MesaFunctions& gl = mesa();
    if (texture.name == 0) {
        gl.glGenTextures(1, &texture.name);
    }
    SavedGlState saved;
    saved.saveTexture2D();
    saved.saveUnpack();
    GLenum format = GL_RGBA;
    GLenum type = GL_UNSIGNED_BYTE;
    clientFormatOf(internalFormat, &format, &type);
    gl.glBindTexture(GL_TEXTURE_2D, texture.name);
    gl.glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(internalFormat),
                    static_cast<GLsizei>(width), static_cast<GLsizei>(height), 0, format, type,
                    nullptr);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_A, opaque ? GL_ONE : GL_ALPHA);
    // What an external texture starts with.
    const GLint defaults[4] = {GL_LINEAR, GL_LINEAR, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE};
    for (size_t i = 0; i < 4; ++i) {
        gl.glTexParameteri(GL_TEXTURE_2D, kSamplingParameters[i], defaults[i]);
        texture.sampling[i] = defaults[i];
    }
    texture.allocated = true;
}

void ImageTexture::allocatePlanes() {
    const ImageFormat& format = mImage->format();
    for (uint32_t plane = 0; plane < format.planeCount; ++plane) {
        allocate(mPlanes[plane], format.planes[plane].internalFormat, mImage->planeWidth(plane),
                 mImage->planeHeight(plane), format.opaque && !format.isYuv());
    }
    mGeneration = 0;
}

GLuint ImageTexture::planeTexture(uint32_t plane) {
    if (!mPlanes[0].allocated) {
        allocatePlanes();
    }
    return mPlanes[plane].name;
}

GLuint ImageTexture::renderTexture() {
    if (!isYuv()) {
        return planeTexture(0);
    }
    if (!mIntermediate.allocated) {
        allocate(mIntermediate, mImage->format().intermediateFormat(), mImage->crop().width,
                 mImage->crop().height, false);
        mTargetGeneration = 0;
    }
    return mIntermediate.name;
}

void ImageTexture::uploadPlanes() {
    const MesaFunctions& gl = mesa();
    const ImageFormat& format = mImage->format();
    SavedGlState saved;
    saved.saveTexture2D();
    saved.saveUnpack();
    for (uint32_t plane = 0; plane < format.planeCount; ++plane) {
        const PlaneFormat& planeFormat = format.planes[plane];
        gl.glBindTexture(GL_TEXTURE_2D, mPlanes[plane].name);
        gl.glPixelStorei(GL_UNPACK_ROW_LENGTH,
                         static_cast<GLint>(mImage->rowPitch(plane) / planeFormat.bytesPerTexel));
        gl.glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, static_cast<GLsizei>(mImage->planeWidth(plane)),
                           static_cast<GLsizei>(mImage->planeHeight(plane)), planeFormat.format,
                           planeFormat.type, mImage->planeData(plane));
    }
    Counters::add(Counter::Uploads);
}

void ImageTexture::refreshForSampling(const PassResources& resources, bool keepPending) {
    if (!mPlanes[0].allocated) {
        allocatePlanes();
    }
    if (mDirty) {
        // A packed texture holds its rendering; a YUV one has it in the intermediate.
        if (!isYuv() || keepPending) {
            return;
        }
        writeBack(resources);
    }
    const uint64_t generation = mImage->contentGeneration();
    if (generation == mGeneration) {
        return;
    }
    uploadPlanes();
    mGeneration = generation;
}

void ImageTexture::refreshForRendering(const PassResources& resources) {
    if (!isYuv()) {
        refreshForSampling(resources);
        return;
    }
    const GLuint intermediate = renderTexture();
    const uint64_t generation = mImage->contentGeneration();
    if (mDirty || generation == mTargetGeneration) {
        return;
    }
    refreshForSampling(resources);
    const ImageFormat& format = mImage->format();
    GLuint planes[3] = {};
    for (uint32_t plane = 0; plane < format.planeCount; ++plane) {
        planes[plane] = mPlanes[plane].name;
    }
    SavedGlState saved;
    saved.savePassState(format.planeCount);
    resources.programs->run(resources, YuvPassPrograms::Pass::Unpack, format.layout, planes,
                            format.planeCount, &intermediate, 1, mImage->crop().width,
                            mImage->crop().height, mImage->crop().left & 1, mImage->crop().top & 1);
    mTargetGeneration = generation;
}

bool ImageTexture::renderingNeedsMemory() const {
    const uint64_t held = isYuv() ? mTargetGeneration : mGeneration;
    return !mDirty && held != mImage->contentGeneration();
}

uint64_t ImageTexture::cover() {
    renderTexture();
    uint64_t& held = isYuv() ? mTargetGeneration : mGeneration;
    const uint64_t previous = held;
    held = mImage->contentGeneration();
    Counters::add(Counter::CoveredTargets);
    return previous;
}

void ImageTexture::uncover(uint64_t previous) {
    (isYuv() ? mTargetGeneration : mGeneration) = previous;
    mDirty = false;
    Counters::add(Counter::CoveredTargets, -1);
}

void ImageTexture::writeBack(const PassResources& resources) {
    const bool allocated = isYuv() ? mIntermediate.allocated : mPlanes[0].allocated;
    if (!mDirty || !allocated) {
        mDirty = false;
        return;
    }
    if (isYuv()) {
        writeBackYuv(resources);
    } else {
        writeBackPacked(resources);
    }
    // The textures hold what memory now holds: no upload needed to use them here (but the Y
    // plane of a YUV image when its bytes were packed elsewhere).
    const uint64_t generation = mImage->markContentChanged();
    mGeneration = isYuv() && mLumaBytes.allocated ? 0 : generation;
    mTargetGeneration = generation;
    mDirty = false;
    Counters::add(Counter::WriteBacks);
}

void ImageTexture::writeBackPacked(const PassResources& resources) {
    const MesaFunctions& gl = mesa();
    const PlaneFormat& format = mImage->format().planes[0];
    SavedGlState saved;
    saved.saveReadFramebuffer();
    saved.savePack();
    gl.glBindFramebuffer(GL_READ_FRAMEBUFFER, resources.framebuffer);
    gl.glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                              mPlanes[0].name, 0);
    gl.glPixelStorei(GL_PACK_ROW_LENGTH,
                     static_cast<GLint>(mImage->rowPitch(0) / format.bytesPerTexel));
    gl.glReadPixels(0, 0, static_cast<GLsizei>(mImage->crop().width),
                    static_cast<GLsizei>(mImage->crop().height), format.format, format.type,
                    mImage->planeData(0));
    // Attached, the texture would stay alive after the client deletes it.
    gl.glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
}

void ImageTexture::writeBackYuv(const PassResources& resources) {
    const MesaFunctions& gl = mesa();
    const ImageFormat& format = mImage->format();
    const bool p010 = format.layout == ImageLayout::P010;
    if (!mPlanes[0].allocated) {
        allocatePlanes();
    }
    const uint32_t width = mImage->crop().width;
    const uint32_t height = mImage->crop().height;
    const uint32_t chromaWidth = mImage->planeWidth(1);
    const uint32_t chromaHeight = mImage->planeHeight(1);
    if (p010 && !mReadBack.allocated) {
        allocate(mReadBack, GL_RGBA8, chromaWidth, chromaHeight, false);
    }
    // Luma goes straight into its memory bytes when whole texels cover the rows: a fraction of
    // the fragments of a pass into the Y plane.
    const uint32_t lumaPerTexel = YuvShaderCode::lumaSamplesPerByteTexel(format.layout);
    const bool lumaBytes = width % lumaPerTexel == 0;
    if (lumaBytes && !mLumaBytes.allocated) {
        allocate(mLumaBytes, GL_RGBA8, width / lumaPerTexel, height, false);
    }
    SavedGlState saved;
    saved.saveReadFramebuffer();
    saved.savePack();
    saved.savePassState(1);

    // Pack: Y per pixel, then the chroma planes.
    YuvPassPrograms& programs = *resources.programs;
    const GLuint source = mIntermediate.name;
    if (lumaBytes) {
        programs.run(resources, YuvPassPrograms::Pass::PackLumaBytes, format.layout, &source, 1,
                     &mLumaBytes.name, 1, width / lumaPerTexel, height, 0, 0);
    } else {
        programs.run(resources, YuvPassPrograms::Pass::PackLuma, format.layout, &source, 1,
                     &mPlanes[0].name, 1, width, height, 0, 0);
    }
    const GLuint chroma[2] = {mPlanes[1].name, p010 ? mReadBack.name : mPlanes[2].name};
    programs.run(resources, YuvPassPrograms::Pass::PackChroma, format.layout, &source, 1, chroma,
                 format.layout == ImageLayout::Yv12 || p010 ? 2 : 1, chromaWidth, chromaHeight,
                 mImage->crop().left & 1, mImage->crop().top & 1);

    // Read the planes back into memory, each through colour attachment 0.
    struct ReadBack {
        GLuint texture;
        uint32_t plane;
        uint32_t width;  // texels
        GLenum format;
        GLenum type;
        uint32_t bytesPerTexel;
    };
    ReadBack reads[3];
    uint32_t readCount = 0;
    if (lumaBytes) {
        reads[readCount++] = {mLumaBytes.name,  0, width / lumaPerTexel, GL_RGBA,
                              GL_UNSIGNED_BYTE, 4};
    } else {
        const PlaneFormat& luma = format.planes[0];
        reads[readCount++] = {mPlanes[0].name, 0,         width,
                              luma.format,     luma.type, luma.bytesPerTexel};
    }
    if (p010) {
        reads[readCount++] = {mReadBack.name, 1, chromaWidth, GL_RGBA, GL_UNSIGNED_BYTE, 4};
    } else {
        for (uint32_t plane = 1; plane < format.planeCount; ++plane) {
            const PlaneFormat& planeFormat = format.planes[plane];
            reads[readCount++] = {mPlanes[plane].name, plane,
                                  chromaWidth,         planeFormat.format,
                                  planeFormat.type,    planeFormat.bytesPerTexel};
        }
    }
    gl.glBindFramebuffer(GL_READ_FRAMEBUFFER, resources.framebuffer);
    for (uint32_t i = 0; i < readCount; ++i) {
        const ReadBack& read = reads[i];
        gl.glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                                  read.texture, 0);
        gl.glPixelStorei(GL_PACK_ROW_LENGTH,
                         static_cast<GLint>(mImage->rowPitch(read.plane) / read.bytesPerTexel));
        gl.glReadPixels(0, 0, static_cast<GLsizei>(read.width),
                        static_cast<GLsizei>(mImage->planeHeight(read.plane)), read.format,
                        read.type, mImage->planeData(read.plane));
    }
    gl.glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
}

void ImageTexture::applySampling(uint32_t plane, const GLint parameters[4]) {
    const MesaFunctions& gl = mesa();
    Texture& texture = mPlanes[plane];
    for (size_t i = 0; i < 4; ++i) {
        if (texture.sampling[i] != parameters[i]) {
            gl.glTexParameteri(GL_TEXTURE_2D, kSamplingParameters[i], parameters[i]);
            texture.sampling[i] = parameters[i];
        }
    }
}

ImageTexture::Storage ImageTexture::releaseStorage() {
    Storage storage;
    for (uint32_t plane = 0; plane < 3; ++plane) {
        storage.planes[plane] = std::exchange(mPlanes[plane], Texture());
    }
    storage.intermediate = std::exchange(mIntermediate, Texture());
    storage.readBack = std::exchange(mReadBack, Texture());
    storage.lumaBytes = std::exchange(mLumaBytes, Texture());
    storage.generation = std::exchange(mGeneration, 0);
    storage.targetGeneration = std::exchange(mTargetGeneration, 0);
    return storage;
}

std::vector<GLuint> ImageTexture::Storage::names() const {
    std::vector<GLuint> names;
    for (const Texture* texture :
         {&planes[0], &planes[1], &planes[2], &intermediate, &readBack, &lumaBytes}) {
        if (texture->name != 0) {
            names.push_back(texture->name);
        }
    }
    return names;
}

}  // namespace hostgpu
}  // namespace zel
