/*
 * A client texture with an Android-buffer EGLImage targeted onto it, in one share group: the
 * driver texture (GL_TEXTURE_2D, the size of the image's crop rectangle) that holds the image's
 * pixels on the GPU. Sampling the client texture samples it; attaching the client texture to a
 * framebuffer renders into it.
 *
 * Buffer memory is the truth. The texture is refreshed from memory when the buffer's content
 * generation moved since it last matched (an upload); after rendering it is "dirty" until its
 * pixels are written back into memory, which then gets a new generation that this texture already
 * holds. Row 0 of memory (of the crop) is texture row t = 0 and framebuffer row 0 both ways.
 *
 * The driver texture belongs to the share group: the group deletes it with the client texture,
 * or the driver releases it with the group's last context. Every GL call needs a context of the
 * group current on the calling thread, and the group's lock held.
 */
#pragma once

#include <cstdint>
#include <memory>

#include "KhronosApi.h"
#include "NativeBufferImage.h"

namespace zel {
namespace hostgpu {

class ImageTexture {
public:
    explicit ImageTexture(std::shared_ptr<NativeBufferImage> image);
    ImageTexture(const ImageTexture&) = delete;
    ImageTexture& operator=(const ImageTexture&) = delete;

    const NativeBufferImage& image() const { return *mImage; }
    const std::shared_ptr<NativeBufferImage>& sharedImage() const { return mImage; }
    // Stands for another image from now on; the driver texture keeps its name (framebuffers that
    // have it attached keep working) and gets new storage when the size changes.
    void retarget(std::shared_ptr<NativeBufferImage> image);

    // The driver texture, made (with storage) on first use.
    GLuint texture();
    // Uploads the buffer's memory unless the texture already holds its current contents or holds
    // rendering that is not written back yet.
    void refresh();
    // Rendering went into the texture.
    void markRendered() { mDirty = true; }
    bool dirty() const { return mDirty; }
    // Copies the texture into buffer memory through `framebuffer` (a framebuffer of the current
    // context that the layer owns) and gives the buffer a new content generation.
    void writeBack(GLuint framebuffer);
    // Sampling state for the driver texture, from the client texture; bound on GL_TEXTURE_2D of
    // the active unit by the caller.
    void applySampling(const GLint parameters[4]);

    // Hands over the driver texture name (0 when none was made) for deletion.
    GLuint releaseTexture();

private:
    void allocate();

    std::shared_ptr<NativeBufferImage> mImage;
    GLuint mTexture = 0;
    bool mAllocated = false;
    uint32_t mWidth = 0;
    uint32_t mHeight = 0;
    uint64_t mGeneration = 0;  // of the buffer contents the texture holds; 0: none yet
    bool mDirty = false;
    GLint mSampling[4] = {};  // min filter, mag filter, wrap s, wrap t last applied
};

}  // namespace hostgpu
}  // namespace zel
