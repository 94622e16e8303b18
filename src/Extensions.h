/*
 * The process-wide record of what the EGL display and the GLES implementation offer: their
 * identification strings and one flag per extension the library cares about. Every GLES renderer
 * fills it twice during creation, from the EGL strings and then from the GL strings. Flags are
 * only ever set, so they are the union of every display and context seen; strings describe the
 * most recent one. All members are guarded by mLock; readers get copies.
 */
#pragma once

#include <mutex>

#include <GLES3/gl31.h>
#include <utils/Singleton.h>
#include <utils/String8.h>

namespace kav {
namespace zel {
namespace gl {

class Extensions : public android::Singleton<Extensions> {
public:
    void initWithEGLStrings(const char* eglVersion, const char* eglExtensions);
    void initWithGLStrings(const GLubyte* vendor, const GLubyte* renderer, const GLubyte* version,
                           const GLubyte* extensions);

    bool hasProtectedTexture() const { return read(mHasProtectedTexture); }
    bool hasOESFramebuffer() const { return read(mHasOESFramebuffer); }
    bool hasOESTexture() const { return read(mHasOESTexture); }
    bool hasOESTextureESSL3() const { return read(mHasOESTextureESSL3); }
    bool hasYUVTarget() const { return read(mHasYUVTarget); }
    bool hasChipCullDistance() const { return read(mHasChipCullDistance); }
    bool hasNoConfigContext() const { return read(mHasNoConfigContext); }
    bool hasNativeFenceSync() const { return read(mHasNativeFenceSync); }
    bool hasFenceSync() const { return read(mHasFenceSync); }
    bool hasWaitSync() const { return read(mHasWaitSync); }
    bool hasProtectedContent() const { return read(mHasProtectedContent); }
    bool hasContextPriority() const { return read(mHasContextPriority); }
    bool hasSurfacelessContext() const { return read(mHasSurfacelessContext); }
    bool hasRealtimePriority() const { return read(mHasRealtimePriority); }
    bool hasImageCrop() const { return read(mHasImageCrop); }

    android::String8 getVendor() const { return read(mVendor); }
    android::String8 getRenderer() const { return read(mRenderer); }
    android::String8 getVersion() const { return read(mVersion); }
    android::String8 getExtensions() const { return read(mExtensions); }
    android::String8 getEGLVersion() const { return read(mEGLVersion); }
    android::String8 getEGLExtensions() const { return read(mEGLExtensions); }

private:
    friend class android::Singleton<Extensions>;
    // Test code only: lets each test case start from the registry of a fresh process. The
    // library itself never clears a flag.
    friend class ExtensionsTestAccess;
    Extensions() = default;

    // Every flag false and every string empty, as at creation.
    void clearAll();

    template <typename T>
    T read(const T& member) const {
        std::lock_guard<std::mutex> lock(mLock);
        return member;
    }

    bool mHasProtectedTexture = false;
    bool mHasOESFramebuffer = false;
    bool mHasOESTexture = false;
    bool mHasOESTextureESSL3 = false;
    bool mHasYUVTarget = false;
    bool mHasChipCullDistance = false;
    bool mHasNoConfigContext = false;
    bool mHasNativeFenceSync = false;
    bool mHasFenceSync = false;
    bool mHasWaitSync = false;
    bool mHasProtectedContent = false;
    bool mHasContextPriority = false;
    bool mHasSurfacelessContext = false;
    bool mHasRealtimePriority = false;
    bool mHasImageCrop = false;
    android::String8 mVendor;
    android::String8 mRenderer;
    android::String8 mVersion;
    android::String8 mExtensions;
    android::String8 mEGLVersion;
    android::String8 mEGLExtensions;
    mutable std::mutex mLock;
};

}  // namespace gl
}  // namespace zel
}  // namespace kav
