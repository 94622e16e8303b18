/*
 * glReadPixels and glReadnPixels of a YUV render target. GL_EXT_YUV_target has the read convert
 * the target's YUV to RGBA with the colour standard of the target, for GL_RGBA and
 * GL_UNSIGNED_BYTE only: the values are decoded from the buffer's planes with the conversion its
 * dataspace asks for, the one sampling the image through samplerExternalOES applies (chroma of a
 * pixel: the sample of its 2x2 block). Rendering still pending in the target is written back
 * first, so the read sees the planes as stored. Pixels outside the target are left as they are;
 * the pack state (row length, skipped rows and pixels, alignment, a pixel pack buffer) is honoured.
 * A protected target is never read into client memory.
 */
#pragma once

#include "ContextState.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class YuvTargetReader {
public:
    // With the share group's lock held. When the read buffer of the current read framebuffer is a
    // YUV image, performs the read (or queues its GL error) and returns true; otherwise false, and
    // the driver reads. `bufSize` < 0: unbounded (glReadPixels).
    static bool read(ContextState& context, GLint x, GLint y, GLsizei width, GLsizei height,
                     GLenum format, GLenum type, GLsizei bufSize, void* pixels);
};

}  // namespace hostgpu
}  // namespace zel
