#include "Extensions.h"

#include "ExtensionSet.h"
#include "Log.h"
#include "ScopedTrace.h"

ANDROID_SINGLETON_STATIC_INSTANCE(kav::zel::gl::Extensions)

namespace kav {
namespace zel {
namespace gl {

namespace {

const char* orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

const char* orEmpty(const GLubyte* text) {
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

const char* boolText(bool value) {
    return value ? "true" : "false";
}

// Turns a flag on when the name is present; never turns one off.
void mark(bool& flag, const ExtensionSet& set, const char* name) {
    if (set.hasExtension(name)) {
        flag = true;
    }
}

}  // namespace

void Extensions::initWithEGLStrings(const char* eglVersion, const char* eglExtensions) {
    ZEL_TRACE_FUNC();
    std::lock_guard<std::mutex> lock(mLock);

    mEGLVersion = orEmpty(eglVersion);
    mEGLExtensions = orEmpty(eglExtensions);
    ZEL_LOGD("%s", mEGLExtensions.c_str());

    const ExtensionSet set(mEGLExtensions.c_str());
    if (set.hasExtension("EGL_ANDROIDX_no_config_context") ||
        set.hasExtension("EGL_KHR_no_config_context")) {
        mHasNoConfigContext = true;
    }
    mark(mHasNativeFenceSync, set, "EGL_ANDROID_native_fence_sync");
    mark(mHasFenceSync, set, "EGL_KHR_fence_sync");
    mark(mHasWaitSync, set, "EGL_KHR_wait_sync");
    mark(mHasProtectedContent, set, "EGL_EXT_protected_content");
    mark(mHasContextPriority, set, "EGL_IMG_context_priority");
    mark(mHasSurfacelessContext, set, "EGL_KHR_surfaceless_context");
    mark(mHasRealtimePriority, set, "EGL_NV_context_priority_realtime");
    mark(mHasImageCrop, set, "EGL_ANDROID_image_crop");

    ZEL_LOGD(
        "mHasNoConfigContext: %s, mHasNativeFenceSync:%s, mHasFenceSync: %s, mHasWaitSync: %s, "
        "mHasProtectedContent: %s",
        boolText(mHasNoConfigContext), boolText(mHasNativeFenceSync), boolText(mHasFenceSync),
        boolText(mHasWaitSync), boolText(mHasProtectedContent));
    ZEL_LOGD(
        "mHasContextPriority: %s, mHasSurfacelessContext:%s, mHasRealtimePriority: %s, "
        "mHasImageCrop: %s",
        boolText(mHasContextPriority), boolText(mHasSurfacelessContext),
        boolText(mHasRealtimePriority), boolText(mHasImageCrop));
}

void Extensions::initWithGLStrings(const GLubyte* vendor, const GLubyte* renderer,
                                   const GLubyte* version, const GLubyte* extensions) {
    ZEL_TRACE_FUNC();
    std::lock_guard<std::mutex> lock(mLock);

    mVendor = orEmpty(vendor);
    mRenderer = orEmpty(renderer);
    mVersion = orEmpty(version);
    mExtensions = orEmpty(extensions);

    const ExtensionSet set(mExtensions.c_str());
    mark(mHasProtectedTexture, set, "GL_EXT_protected_textures");
    mark(mHasOESFramebuffer, set, "GL_OES_EGL_image");
    mark(mHasOESTexture, set, "GL_OES_EGL_image_external");
    mark(mHasOESTextureESSL3, set, "GL_OES_EGL_image_external_essl3");
    mark(mHasYUVTarget, set, "GL_EXT_YUV_target");
    mark(mHasChipCullDistance, set, "GL_EXT_clip_cull_distance");

    ZEL_LOGD(
        "mHasProtectedTexture: %s, mHasOESFramebuffer:%s, mHasOESTexture: %s, "
        "mHasOESTextureESSL3: %s, mHasYUVTarget: %s, mHasChipCullDistance: %s",
        boolText(mHasProtectedTexture), boolText(mHasOESFramebuffer), boolText(mHasOESTexture),
        boolText(mHasOESTextureESSL3), boolText(mHasYUVTarget), boolText(mHasChipCullDistance));
}

void Extensions::clearAll() {
    std::lock_guard<std::mutex> lock(mLock);
    for (bool* flag :
         {&mHasProtectedTexture, &mHasOESFramebuffer, &mHasOESTexture, &mHasOESTextureESSL3,
          &mHasYUVTarget, &mHasChipCullDistance, &mHasNoConfigContext, &mHasNativeFenceSync,
          &mHasFenceSync, &mHasWaitSync, &mHasProtectedContent, &mHasContextPriority,
          &mHasSurfacelessContext, &mHasRealtimePriority, &mHasImageCrop}) {
        *flag = false;
    }
    for (android::String8* text :
         {&mVendor, &mRenderer, &mVersion, &mExtensions, &mEGLVersion, &mEGLExtensions}) {
        text->clear();
    }
}

}  // namespace gl
}  // namespace zel
}  // namespace kav
