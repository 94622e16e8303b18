/*
 * A client texture with an Android-buffer EGLImage targeted onto it, in one share group: the
 * driver textures that hold the image's pixels on the GPU (the size of the image's crop
 * rectangle). Sampling the client texture samples them; attaching the client texture to a
 * framebuffer renders into the image.
 *
 * Packed RGB images are one texture, sampled and rendered into. YUV images are one texture per
 * plane of their memory layout (ImageFormat), sampled through the function the shader rewriter
 * injects, plus a full-resolution intermediate (Y, Cb, Cr in red, green, blue) that rendering goes
 * to; it starts from the buffer's contents (so pixels a draw does not cover keep them), and the
 * write-back packs it into the planes (chroma: the average of each 2x2 block, or its top-left
 * sample) and copies them into memory.
 *
 * Buffer memory is the truth. A texture is refreshed from memory when the buffer's content
 * generation moved since it last matched (an upload); after rendering the image is "dirty" until
 * its pixels are written back into memory, which then gets a new generation that this texture
 * already holds. Row 0 of memory (of the crop) is texture row t = 0 and framebuffer row 0 both
 * ways.
 *
 * The driver textures belong to the share group: the group deletes them with the client texture,
 * or the driver releases them with the group's last context. Every GL call needs a context of the
 * group current on the calling thread, and the group's lock held.
 */
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "KhronosApi.h"
#include "NativeBufferImage.h"
#include "YuvPassPrograms.h"

namespace zel {
namespace hostgpu {

class ImageTexture {
public:
    struct Texture {
        GLuint name = 0;
        bool allocated = false;
        GLint sampling[4] = {};  // min filter, mag filter, wrap s, wrap t last applied
    };
    // The driver textures of an image and the content generations they hold. GL storage belongs
    // to the allocation: when the client deletes its texture the storage is kept (ShareGroup) and
    // handed to the next texture of an image of the same allocation, crop and format, which then
    // needs no new storage (a driver clears fresh storage) and no upload while memory is
    // unchanged.
    struct Storage {
        Texture planes[3];
        Texture intermediate;
        Texture readBack;
        Texture lumaBytes;
        uint64_t generation = 0;
        uint64_t targetGeneration = 0;
        std::vector<GLuint> names() const;
    };

    explicit ImageTexture(std::shared_ptr<NativeBufferImage> image);
    // Takes over storage left by an earlier texture of an image with the same allocation, crop
    // and format (no rendering pending in it).
    ImageTexture(std::shared_ptr<NativeBufferImage> image, Storage storage);
    ImageTexture(const ImageTexture&) = delete;
    ImageTexture& operator=(const ImageTexture&) = delete;

    const NativeBufferImage& image() const { return *mImage; }
    const std::shared_ptr<NativeBufferImage>& sharedImage() const { return mImage; }
    bool isYuv() const { return mImage->format().isYuv(); }
    // Stands for another image from now on; the driver textures keep their names (framebuffers
    // that have one attached keep working) and get new storage when the size or format changes.
    void retarget(std::shared_ptr<NativeBufferImage> image);

    // The texture that rendering into the image goes to (attached to client framebuffers): the
    // packed texture, or the YUV intermediate. Made (with storage) on first use.
    GLuint renderTexture();
    // The texture holding plane `plane` (0 for packed images), made on first use.
    GLuint planeTexture(uint32_t plane);
    uint32_t planeCount() const { return mImage->format().planeCount; }

    // Brings the plane textures to the buffer's current contents (an upload when memory changed).
    // A YUV image with rendering pending is written back first unless `keepPending` (it is being
    // rendered into by the same call); a packed one holds its rendering already.
    void refreshForSampling(const PassResources& resources, bool keepPending = false);
    // Brings the render texture to the buffer's current contents, unless it holds rendering not
    // written back yet.
    void refreshForRendering(const PassResources& resources);
    // Whether bringing the render texture to the buffer's contents would read buffer memory (an
    // upload, and for YUV images an unpack into the intermediate).
    bool renderingNeedsMemory() const;
    // The draw about to run writes every pixel of the render texture: it is taken as holding the
    // buffer's current contents, with no upload and no unpack. Returns what uncover() needs should
    // the draw not run after all.
    uint64_t cover();
    // The covering draw did not run: the render texture holds what it held before cover().
    void uncover(uint64_t previous);
    // Rendering went into the render texture.
    void markRendered() { mDirty = true; }
    bool dirty() const { return mDirty; }
    // Copies the rendering into buffer memory (through the resources' framebuffer) and gives the
    // buffer a new content generation, which the plane textures hold afterwards.
    void writeBack(const PassResources& resources);
    // Sampling state for the texture of plane `plane`, from the client texture; the caller binds
    // it on GL_TEXTURE_2D of the active unit.
    void applySampling(uint32_t plane, const GLint parameters[4]);

    // Hands over the driver textures made so far and the generations they hold (write back any
    // pending rendering first).
    Storage releaseStorage();

private:
    void allocate(Texture& texture, GLenum internalFormat, uint32_t width, uint32_t height,
                  bool opaque);
    void allocatePlanes();
    void uploadPlanes();
    void writeBackPacked(const PassResources& resources);
    void writeBackYuv(const PassResources& resources);

    std::shared_ptr<NativeBufferImage> mImage;
    Texture mPlanes[3];
    Texture mIntermediate;           // YUV only
    Texture mReadBack;               // P010 only: the chroma plane's bytes, for the read-back
    Texture mLumaBytes;              // the Y plane's bytes, for the read-back of suitable widths
    uint64_t mGeneration = 0;        // of the buffer contents the planes hold; 0: none yet
    uint64_t mTargetGeneration = 0;  // of those the YUV intermediate holds; 0: none yet
    bool mDirty = false;
};

}  // namespace hostgpu
}  // namespace zel
