/*
 * Prepares the current context for one client call that draws, clears or reads, and undoes the
 * preparation afterwards:
 * - every external sampler of the current program gets, on its texture unit, the texture that
 *   holds the pixels of the image targeted onto the unit's external texture (refreshed from buffer
 *   memory when the buffer changed), with the external texture's sampling state; the unit's
 *   GL_TEXTURE_2D binding is restored afterwards;
 * - image textures attached to the draw framebuffer are brought up to date first (pixels a draw
 *   does not cover keep the buffer's contents) and marked rendered;
 * - image textures attached to the read framebuffer are brought up to date.
 * Holds the share group's lock for the whole call.
 */
#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "ContextState.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class DrawScope {
public:
    enum Use : unsigned {
        Samples = 1,  // the call runs the current program
        Renders = 2,  // the call writes the draw framebuffer
        Reads = 4,    // the call reads the read framebuffer
    };

    // `context` null (no context of the layer current): does nothing.
    DrawScope(ContextState* context, unsigned uses);
    ~DrawScope();
    DrawScope(const DrawScope&) = delete;
    DrawScope& operator=(const DrawScope&) = delete;

private:
    void bindExternalSamplers();
    void prepareAttachments(GLenum binding, bool rendered);
    // Brings `texture` up to date, writing back other textures of its buffer with pending
    // rendering first.
    void refresh(ImageTexture& texture);

    ContextState* mContext = nullptr;
    std::unique_lock<std::mutex> mLock;
    GLint mActiveTexture = 0;
    // Units whose GL_TEXTURE_2D binding changed, with the binding to restore.
    std::vector<std::pair<GLenum, GLint>> mRestore;
};

}  // namespace hostgpu
}  // namespace zel
