/*
 * What the layer knows about one EGL context beyond what the driver sees: the attributes it
 * answers itself (priority, protection), the driver profile switches that apply to the context
 * (GL_VERSION, make-current failure, chroma of write-backs), its share group, and which of its
 * framebuffers have image textures attached (framebuffers are not shared between contexts).
 *
 * The per-framebuffer records are only touched on the thread where the context is current.
 */
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <vector>

#include "KhronosApi.h"
#include "LiveNames.h"
#include "NativeFence.h"
#include "ShareGroup.h"

namespace zel {
namespace hostgpu {

struct ContextAttributes {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLint clientVersion = 1;
    EGLint priority = EGL_CONTEXT_PRIORITY_MEDIUM_IMG;
    bool isProtected = false;
    const char* glVersion = nullptr;  // GL_VERSION override; null: the driver's
    bool failMakeCurrent = false;
    bool chromaTopLeft = false;  // write-backs into 4:2:0 buffers keep the top-left chroma sample
    bool failLink = false;       // programs fail to link
    bool failImageAttachment = false;        // image textures never become colour attachments
    bool failTextureStorage = false;         // texture storage runs out of memory
    std::chrono::nanoseconds fenceDelay{0};  // how long the GPU takes to complete flushed work
    bool conformant = false;  // the Khronos texts' rules rather than the phone-driver superset
    bool fenceNeverSignals = false;  // a hung GPU: flushed work reaches memory, fences never signal
};

class ContextState {
public:
    ContextState(const ContextAttributes& attributes, std::shared_ptr<ShareGroup> shareGroup);
    ContextState(const ContextState&) = delete;
    ContextState& operator=(const ContextState&) = delete;

    const ContextAttributes& attributes() const { return mAttributes; }
    EGLDisplay display() const { return mAttributes.display; }
    ShareGroup& shareGroup() const { return *mShareGroup; }
    const std::shared_ptr<ShareGroup>& sharedGroup() const { return mShareGroup; }

    // The framebuffer and vertex array of this context that the layer uses for its own passes and
    // read-backs, with the group's pass programs; made on first use (current context needed) and
    // released by the driver with the context.
    const PassResources& passResources();
    // Writes every image texture of the share group with pending rendering back into its buffer
    // (the context must be current); returns how many.
    size_t writeBackAll();

    // Fences and the GPU timeline. The host GPU executes each call when it is made; what a real
    // GPU does later, the layer does at the flush: the work reaches buffer memory there, and the
    // native fences made since the last flush get their descriptor, signalled by the completion
    // thread after the profile's fence delay.
    // A native fence for the work submitted so far; it signals after the next flush.
    void addUnflushedFence(std::shared_ptr<NativeFence> fence);
    // glFlush: completes the work into memory and submits the fences made since the last flush.
    void flush();
    // glFinish: a flush that returns once its fences have signalled.
    void finish();
    // eglWaitSyncKHR: work submitted from now on waits for `fence` on the GPU. The host GPU runs
    // draws on the calling thread, so a draw waits there (waitForServerWaits); a flush with no
    // draw in between hands the wait to the completion thread and does not block.
    void addServerWait(std::shared_ptr<NativeFence> fence);
    void waitForServerWaits();

    // Attachment points of framebuffers that hold a client texture with an image.
    void setAttachment(GLuint framebuffer, GLenum attachment, GLuint clientTexture);
    void clearAttachment(GLuint framebuffer, GLenum attachment);
    void forgetFramebuffer(GLuint framebuffer);
    void forgetTexture(GLuint clientTexture);
    bool hasAttachments() const { return !mAttachments.empty(); }
    // The client textures attached to `framebuffer`.
    std::vector<GLuint> attachedTextures(GLuint framebuffer) const;
    // The client texture with an image at `attachment` of `framebuffer`, or 0.
    GLuint attachedTexture(GLuint framebuffer, GLenum attachment) const;

    // A program the client deleted while it was current here: the driver deletes it once the
    // client makes another program current (0: none).
    void deferProgramDeletion(GLuint program) { mDeferredProgram = program; }
    GLuint deferredProgram() const { return mDeferredProgram; }

    // The client's framebuffers (not shared between contexts), for the live counter. Touched
    // only where the context is current.
    LiveNames& framebuffers() { return mFramebuffers; }

private:
    const ContextAttributes mAttributes;
    const std::shared_ptr<ShareGroup> mShareGroup;
    PassResources mPassResources;
    std::map<GLuint, std::map<GLenum, GLuint>> mAttachments;
    GLuint mDeferredProgram = 0;
    LiveNames mFramebuffers{Counter::FramebuffersAlive};
    std::vector<std::shared_ptr<NativeFence>> mUnflushedFences;
    std::vector<std::shared_ptr<NativeFence>> mServerWaits;
    std::shared_ptr<NativeFence> mLastSubmitted;
};

}  // namespace hostgpu
}  // namespace zel
