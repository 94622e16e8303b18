/*
 * Prepares the current context for one client call that draws, clears or reads, and undoes the
 * preparation afterwards:
 * - every external sampler of the current program gets, on its texture unit, the texture that
 *   holds the pixels of the image targeted onto the unit's external texture (refreshed from buffer
 *   memory when the buffer changed), with the external texture's sampling state; for a YUV image
 *   that is its Y plane, the other planes go on reserved units, and the program's variant for the
 *   images' kinds is current for the call (with the client program's uniform values); the units'
 *   GL_TEXTURE_2D bindings and the client's program are restored afterwards;
 * - image textures attached to the draw framebuffer are brought up to date first (pixels a draw
 *   does not cover keep the buffer's contents) and marked rendered; a glDrawArrays that provably
 *   writes every pixel of one (DrawCoverage) needs nothing from its memory, and should the draw
 *   fail the texture goes back to what it held;
 * - image textures attached to the read framebuffer are brought up to date.
 * Holds the share group's lock for the whole call.
 */
#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "ContextState.h"
#include "DrawCoverage.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class DrawScope {
public:
    enum Use : unsigned {
        Samples = 1,  // the call runs the current program
        Renders = 2,  // the call writes the draw framebuffer
        Reads = 4,    // the call reads the read framebuffer
        Copies = 8,   // what it reads goes into a texture or framebuffer
    };

    // `context` null (no context of the layer current): does nothing. `draw`: the glDrawArrays
    // about to run, read in the constructor only.
    DrawScope(ContextState* context, unsigned uses, const DrawCoverage::DrawArrays* draw = nullptr);
    ~DrawScope();
    DrawScope(const DrawScope&) = delete;
    DrawScope& operator=(const DrawScope&) = delete;

    // The call breaks a rule of the Khronos texts that the context follows (GL_INVALID_OPERATION
    // is queued): the caller does not run it.
    bool refused() const { return mRefused; }
    // Whether the share group's lock is held for the call (the group has image textures).
    bool holdsLock() const { return mLock.owns_lock(); }

private:
    void bindExternalSamplers();
    // On a context that follows the Khronos texts: whether the call breaks a rule of
    // GL_EXT_YUV_target about YUV render targets and reads.
    bool breaksYuvTargetRules(ContextState& context, unsigned uses) const;
    void prepareAttachments(GLenum binding, bool rendered);
    // Whether the draw about to run writes every pixel of `texture`, attached to the draw
    // framebuffer, and samples no image of its buffer.
    bool drawCovers(ImageTexture& texture);
    // Whether an external sampler of `program` samples an image of the buffer `bufferId`.
    bool samplesBuffer(GLuint program, uint64_t bufferId);
    // Writes back other textures of the buffer of `texture` with pending rendering, so that
    // memory holds it before `texture` is refreshed.
    void writeBackOthers(ImageTexture& texture);
    // Binds `texture` on GL_TEXTURE_2D of `unit`, remembering the binding to restore.
    void bind(GLenum unit, GLuint texture);

    ContextState* mContext = nullptr;
    bool mRefused = false;
    std::unique_lock<std::mutex> mLock;
    GLint mActiveTexture = 0;
    GLuint mProgram = 0;          // the client's program, when a variant replaced it
    bool mVariantActive = false;  // for the call
    // Units whose GL_TEXTURE_2D binding changed, with the binding to restore.
    std::vector<std::pair<GLenum, GLint>> mRestore;
    // Textures this call renders into.
    std::vector<ImageTexture*> mRendered;
    const DrawCoverage::DrawArrays* mDraw = nullptr;  // in the constructor only
    // Textures taken as covered by the draw, with what ImageTexture::uncover needs.
    std::vector<std::pair<ImageTexture*, uint64_t>> mCovered;
};

}  // namespace hostgpu
}  // namespace zel
