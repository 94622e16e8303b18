#include "GLESRenderer.h"

#include <stdio.h>

#include <vector>

#include <GLES3/gl31.h>
#include <system/graphics.h>

#include "DebugSettings.h"
#include "Extensions.h"
#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {

namespace {

constexpr const char kLogFile[] = "src/GLESRenderer";

constexpr int kGlesVersion1_0 = 0x10000;
constexpr int kGlesVersion1_1 = 0x10001;
constexpr int kGlesVersion2_0 = 0x20000;
constexpr int kGlesVersion3_0 = 0x30000;

constexpr int kNoConfig = -2;

EGLint contextPriorityLevel(Renderer::ContextPriority priority) {
    switch (priority) {
        case Renderer::LOW:
            return EGL_CONTEXT_PRIORITY_LOW_IMG;
        case Renderer::MEDIUM:
            return EGL_CONTEXT_PRIORITY_MEDIUM_IMG;
        case Renderer::REALTIME:
            return EGL_CONTEXT_PRIORITY_REALTIME_NV;
        default:
            return EGL_CONTEXT_PRIORITY_HIGH_IMG;
    }
}

// A creation that fails half-way gives back what it made, in the destructor's order, so that a
// caller retrying creation leaks neither contexts nor display references.
void releaseEgl(EGLDisplay display, EGLSurface surface, EGLContext context) {
    if (surface != EGL_NO_SURFACE) {
        eglDestroySurface(display, surface);
        ZEL_CHECK_EGL();
    }
    if (context != EGL_NO_CONTEXT) {
        eglDestroyContext(display, context);
        ZEL_CHECK_EGL();
    }
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    ZEL_CHECK_EGL();
    eglTerminate(display);
    ZEL_CHECK_EGL();
}

}  // namespace

std::shared_ptr<GLESRenderer> GLESRenderer::create(const Renderer::Args& args) {
    loadDebugProperties();
    ZEL_TRACE_FUNC();
    ZEL_LOGD("rendererType = %d, enableProtectedContext = %d, contextPriority = %d",
             args.rendererType, args.enableProtectedContext, args.contextPriority);

    EGLDisplay display = initEglDisplay();
    if (display == EGL_NO_DISPLAY) {
        ZEL_LOGE("can't create display");
        return nullptr;
    }
    EGLConfig config = initEglConfig(display);

    const Protection protection = args.enableProtectedContext ? PROTECTED : UNPROTECTED;
    EGLContext context =
        createEglContext(display, config, EGL_NO_CONTEXT, args.contextPriority, protection);
    if (context == EGL_NO_CONTEXT) {
        ZEL_LOGE("can't create context");
        releaseEgl(display, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        return nullptr;
    }
    EGLSurface surface = createEglSurface(display, config, protection);
    ZEL_LOGD("create EGLContext[%p]", context);

    const EGLBoolean current = eglMakeCurrent(display, surface, surface, context);
    ZEL_CHECK_EGL();
    if (!current) {
        ZEL_LOGE("can't make stub pbuffer current");
        releaseEgl(display, surface, context);
        return nullptr;
    }

    gl::Extensions& extensions = gl::Extensions::getInstance();
    extensions.initWithGLStrings(glGetString(GL_VENDOR), glGetString(GL_RENDERER),
                                 glGetString(GL_VERSION), glGetString(GL_EXTENSIONS));
    const android::String8 version = extensions.getVersion();
    const int versionCode = parseGlesVersion(version.c_str());
    if (versionCode != kGlesVersion3_0) {
        if (versionCode == kGlesVersion1_0 || versionCode == kGlesVersion1_1 ||
            versionCode == kGlesVersion2_0) {
            ZEL_FATAL("requires OpenGL ES 3.0 minimum to run.");
        }
        ZEL_LOGE("OpenGL ES create render failed");
        releaseEgl(display, surface, context);
        return nullptr;
    }

    auto renderer = std::make_shared<GLESRenderer>(display, config, context, surface);
    renderer->mProtectedContext = args.enableProtectedContext;

    ZEL_LOGD("OpenGL ES informations:");
    ZEL_LOGD("vendor : %s, renderer : %s, version : %s", extensions.getVendor().c_str(),
             extensions.getRenderer().c_str(), version.c_str());
    ZEL_LOGD("extensions: %s", extensions.getExtensions().c_str());
    ZEL_LOGD(
        "context priority = %d, context protection = %d, GL_MAX_TEXTURE_SIZE = %zu, "
        "GL_MAX_VIEWPORT_DIMS = %zu",
        args.contextPriority, args.enableProtectedContext,
        static_cast<size_t>(renderer->mMaxTextureSize),
        static_cast<size_t>(
            std::min(renderer->mMaxViewportDims[0], renderer->mMaxViewportDims[1])));
    return renderer;
}

GLESRenderer::GLESRenderer(EGLDisplay display, EGLConfig /*config*/, EGLContext context,
                           EGLSurface stubSurface)
    : mDisplay(display), mContext(context), mStubSurface(stubSurface) {
    ZEL_TRACE_NAME("GLESRenderer");
    mRendererType = kTypeGles;
    mContextPriority = HIGH;
    mProtection = UNPROTECTED;

    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &mMaxTextureSize);
    ZEL_CHECK_GL();
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, mMaxViewportDims);
    ZEL_CHECK_GL();
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    ZEL_CHECK_GL();
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    ZEL_CHECK_GL();
}

GLESRenderer::~GLESRenderer() {
    ZEL_TRACE_NAME("~GLESRenderer");
    // The context is released after it was destroyed: EGL frees it once it is no longer current.
    releaseEgl(mDisplay, mStubSurface, mContext);
    mDisplay = EGL_NO_DISPLAY;
}

EGLDisplay GLESRenderer::initEglDisplay() {
    ZEL_TRACE_FUNC();
    EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    ZEL_CHECK_EGL();
    if (!eglInitialize(display, nullptr, nullptr)) {
        ZEL_FATAL("failed to initialize EGL. EGL error=0x%x", eglGetError());
    }
    ZEL_CHECK_EGL();
    const char* version = eglQueryString(display, EGL_VERSION);
    ZEL_CHECK_EGL();
    if (version == nullptr) {
        ZEL_FATAL("eglQueryString(EGL_VERSION) failed");
    }
    const char* extensions = eglQueryString(display, EGL_EXTENSIONS);
    ZEL_CHECK_EGL();
    if (extensions == nullptr) {
        ZEL_FATAL("eglQueryString(EGL_EXTENSIONS) failed");
    }
    gl::Extensions::getInstance().initWithEGLStrings(version, extensions);
    return display;
}

EGLConfig GLESRenderer::initEglConfig(EGLDisplay display) {
    ZEL_TRACE_FUNC();
    if (gl::Extensions::getInstance().hasNoConfigContext()) {
        return EGL_NO_CONFIG_KHR;
    }
    ZEL_TRACE_NAME("initEglConfig");
    return chooseEglConfig(display, HAL_PIXEL_FORMAT_RGBA_8888, true);
}

EGLConfig GLESRenderer::chooseEglConfig(EGLDisplay display, int format, bool logConfig) {
    ZEL_TRACE_FUNC();
    EGLConfig config = EGL_NO_CONFIG_KHR;
    if (selectEGLConfig(display, format, EGL_OPENGL_ES3_BIT_KHR, &config) != 0 &&
        selectEGLConfig(display, format, EGL_OPENGL_ES2_BIT, &config) != 0) {
        ZEL_LOGE("no suitable EGLConfig found, trying a simpler query");
        if (selectEGLConfig(display, format, 0, &config) != 0) {
            ZEL_FATAL("no suitable EGLConfig found, giving up");
        }
    }
    if (logConfig) {
        EGLint sizes[4] = {0, 0, 0, 0};
        const EGLint attributes[4] = {EGL_RED_SIZE, EGL_GREEN_SIZE, EGL_BLUE_SIZE, EGL_ALPHA_SIZE};
        for (int i = 0; i < 4; ++i) {
            eglGetConfigAttrib(display, config, attributes[i], &sizes[i]);
            ZEL_CHECK_EGL();
        }
        const char* clientApis = eglQueryString(display, EGL_CLIENT_APIS);
        ZEL_LOGI("EGL information:");
        ZEL_LOGI("vendor    : %s", eglQueryString(display, EGL_VENDOR));
        ZEL_LOGI("version   : %s", eglQueryString(display, EGL_VERSION));
        ZEL_LOGI("extensions: %s", eglQueryString(display, EGL_EXTENSIONS));
        ZEL_LOGI("Client API: %s", clientApis != nullptr ? clientApis : "Not Supported");
        ZEL_LOGI("EGLSurface: %d-%d-%d-%d, config=%p", sizes[0], sizes[1], sizes[2], sizes[3],
                 config);
    }
    return config;
}

int GLESRenderer::selectEGLConfig(EGLDisplay display, EGLint format, EGLint renderableType,
                                  EGLConfig* config) {
    ZEL_TRACE_FUNC();
    int result;
    if (renderableType != 0) {
        const bool tenBit = format == HAL_PIXEL_FORMAT_RGBA_1010102;
        const EGLint colorBits = tenBit ? 10 : 8;
        const EGLint attributes[] = {EGL_RENDERABLE_TYPE,
                                     renderableType,
                                     EGL_RECORDABLE_ANDROID,
                                     1,
                                     EGL_SURFACE_TYPE,
                                     EGL_WINDOW_BIT | EGL_PBUFFER_BIT,
                                     EGL_FRAMEBUFFER_TARGET_ANDROID,
                                     1,
                                     EGL_RED_SIZE,
                                     colorBits,
                                     EGL_GREEN_SIZE,
                                     colorBits,
                                     EGL_BLUE_SIZE,
                                     colorBits,
                                     EGL_ALPHA_SIZE,
                                     tenBit ? 2 : 8,
                                     EGL_NONE};
        result = selectConfigForAttribute(display, attributes, EGL_NONE, EGL_NONE, config);
    } else {
        result = selectConfigForAttribute(display, nullptr, EGL_NATIVE_VISUAL_ID, format, config);
    }
    if (result == 0) {
        EGLint caveat = 0;
        const EGLBoolean queried = eglGetConfigAttrib(display, *config, EGL_CONFIG_CAVEAT, &caveat);
        ZEL_CHECK_EGL();
        if (caveat == EGL_SLOW_CONFIG) {
            ZEL_LOGW_PLAIN("EGL_SLOW_CONFIG selected!");
            if (queried) {
                ZEL_LOGE("EGL_SLOW_CONFIG selected!");
            }
        }
    }
    return result;
}

int GLESRenderer::selectConfigForAttribute(EGLDisplay display, const EGLint attrs[],
                                           EGLint attribute, EGLint wanted, EGLConfig* outConfig) {
    ZEL_TRACE_FUNC();
    EGLint numConfigs = -1;
    eglGetConfigs(display, nullptr, 0, &numConfigs);
    ZEL_CHECK_EGL();
    if (numConfigs < 0) {
        return kNoConfig;
    }
    std::vector<EGLConfig> configs(static_cast<size_t>(numConfigs), EGL_NO_CONFIG_KHR);
    EGLint found = 0;
    eglChooseConfig(display, attrs, configs.data(), numConfigs, &found);
    ZEL_CHECK_EGL();
    configs.resize(static_cast<size_t>(std::max(found, 0)));
    if (configs.empty()) {
        return kNoConfig;
    }
    if (attribute == EGL_NONE) {
        *outConfig = configs.front();
        return 0;
    }
    for (EGLConfig config : configs) {
        EGLint value = 0;
        eglGetConfigAttrib(display, config, attribute, &value);
        ZEL_CHECK_EGL();
        if (value == wanted) {
            *outConfig = config;
            return 0;
        }
    }
    return kNoConfig;
}

EGLContext GLESRenderer::createEglContext(EGLDisplay display, EGLConfig config,
                                          EGLContext shareContext,
                                          std::optional<Renderer::ContextPriority> priority,
                                          Protection protection) {
    ZEL_TRACE_FUNC();
    EGLint version = 3;
    if (config != EGL_NO_CONFIG_KHR) {
        EGLint renderableType = 0;
        if (!eglGetConfigAttrib(display, config, EGL_RENDERABLE_TYPE, &renderableType)) {
            ZEL_LOGE("can't query EGLConfig RENDERABLE_TYPE");
            return EGL_NO_CONTEXT;
        }
        if (renderableType & EGL_OPENGL_ES3_BIT_KHR) {
            version = 3;
        } else if (renderableType & EGL_OPENGL_ES2_BIT) {
            version = 2;
        } else if (renderableType & EGL_OPENGL_ES_BIT) {
            version = 1;
        } else {
            ZEL_LOGE("no supported EGL_RENDERABLE_TYPEs");
            return EGL_NO_CONTEXT;
        }
    }

    std::vector<EGLint> attributes = {EGL_CONTEXT_CLIENT_VERSION, version};
    if (priority.has_value()) {
        // Sent whether or not the display advertises context priorities.
        attributes.push_back(EGL_CONTEXT_PRIORITY_LEVEL_IMG);
        attributes.push_back(contextPriorityLevel(*priority));
    }
    if (protection == PROTECTED) {
        attributes.push_back(EGL_PROTECTED_CONTENT_EXT);
        attributes.push_back(EGL_TRUE);
    }
    attributes.push_back(EGL_NONE);

    EGLContext context = eglCreateContext(display, config, shareContext, attributes.data());
    ZEL_CHECK_EGL();
    if (context == EGL_NO_CONTEXT && config == EGL_NO_CONFIG_KHR && version == 3) {
        attributes[1] = 2;
        context = eglCreateContext(display, EGL_NO_CONFIG_KHR, shareContext, attributes.data());
        ZEL_CHECK_EGL();
    }
    return context;
}

EGLSurface GLESRenderer::createEglSurface(EGLDisplay display, EGLConfig config,
                                          Protection protection) {
    ZEL_TRACE_FUNC();
    if (gl::Extensions::getInstance().hasSurfacelessContext()) {
        return EGL_NO_SURFACE;
    }
    ZEL_TRACE_NAME("createEglSurface");
    EGLSurface surface =
        createStubEglPbufferSurface(display, config, HAL_PIXEL_FORMAT_RGBA_8888, protection);
    if (surface == EGL_NO_SURFACE) {
        ZEL_LOGE("can't create stub pbuffer");
    }
    return surface;
}

EGLSurface GLESRenderer::createStubEglPbufferSurface(EGLDisplay display, EGLConfig config,
                                                     int hwcFormat, Protection protection) {
    ZEL_TRACE_FUNC();
    if (config == EGL_NO_CONFIG_KHR) {
        config = chooseEglConfig(display, hwcFormat, true);
    }
    std::vector<EGLint> attributes = {EGL_WIDTH, 1, EGL_HEIGHT, 1};
    if (protection == PROTECTED) {
        attributes.push_back(EGL_PROTECTED_CONTENT_EXT);
        attributes.push_back(1);
    }
    attributes.push_back(EGL_NONE);
    EGLSurface surface = eglCreatePbufferSurface(display, config, attributes.data());
    ZEL_CHECK_EGL();
    return surface;
}

int GLESRenderer::parseGlesVersion(const char* str) {
    int major = 0;
    int minor = 0;
    if (str == nullptr || (sscanf(str, "OpenGL ES-CM %d.%d", &major, &minor) != 2 &&
                           sscanf(str, "OpenGL ES %d.%d", &major, &minor) != 2)) {
        ZEL_LOGE("Unable to parse GL_VERSION string: \"%s\"", str != nullptr ? str : "");
        return kGlesVersion1_0;
    }
    switch (major) {
        case 1:
            return minor == 0 ? kGlesVersion1_0 : kGlesVersion1_1;
        case 2:
            return kGlesVersion2_0;
        case 3:
            return kGlesVersion3_0;
        default:
            ZEL_LOGE("Unrecognized OpenGL ES version: %d.%d", major, minor);
            return kGlesVersion1_0;
    }
}

Status GLESRenderer::setConfig(Renderer::Config key, void* value) {
    ZEL_TRACE_FUNC();
    if (key != ENABLE || value == nullptr) {
        return BAD_VALUE;
    }
    mEnable = *static_cast<const uint32_t*>(value);
    ZEL_LOGD("mEnable = 0x%08X", mEnable);
    return OK;
}

Status GLESRenderer::genTexture(uint32_t* texName, uint32_t width, uint32_t height, uint32_t format,
                                uint32_t type, const void* data) {
    ZEL_TRACE_FUNC();
    if (texName == nullptr || width == 0 || height == 0 || data == nullptr) {
        return BAD_VALUE;
    }
    glGenTextures(1, texName);
    ZEL_CHECK_GL();
    glBindTexture(GL_TEXTURE_2D, *texName);
    ZEL_CHECK_GL();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    ZEL_CHECK_GL();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    ZEL_CHECK_GL();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    ZEL_CHECK_GL();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    ZEL_CHECK_GL();

    ZEL_TRACE_NAME("glTexImage2D");
    GLenum externalFormat;
    switch (format) {
        case GL_RGBA16F:
        case GL_RGBA:
            externalFormat = GL_RGBA;
            break;
        case GL_R8:
            externalFormat = GL_RED;
            break;
        default:
            // The name stays allocated and bound; the caller frees it with deleteTexture.
            ZEL_LOGE("format is not support");
            return UNSUPPORTED_FORMAT;
    }
    glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(format), static_cast<GLsizei>(width),
                 static_cast<GLsizei>(height), 0, externalFormat, type, data);
    ZEL_CHECK_GL();
    return OK;
}

Status GLESRenderer::deleteTexture(const uint32_t* texName) {
    ZEL_TRACE_FUNC();
    glDeleteTextures(1, texName);
    ZEL_CHECK_GL();
    return OK;
}

// The conversion pass is not wired yet: every blit reports that nothing was rendered.
Status GLESRenderer::blit(const std::vector<Buffer>& /*inputs*/, Buffer& /*output*/,
                          int /*timeout*/, AppInside appId) {
    mAppId = appId;
    ZEL_LOGE("no conversion pass available");
    return RENDER_FAILED;
}

Status GLESRenderer::blit(const std::vector<Buffer>& /*inputs*/, Buffer& /*output*/,
                          android::sp<android::Fence>& /*fence*/, AppInside appId) {
    mAppId = appId;
    ZEL_LOGE("no conversion pass available");
    return RENDER_FAILED;
}

Status GLESRenderer::asyncBlit(const std::vector<Buffer>& /*inputs*/, Buffer& /*output*/,
                               void* data, AppInside appId) {
    mAppId = appId;
    ZEL_LOGE("no conversion pass available");
    if (android::sp<Listener> listener = promoteListener()) {
        listener->onBlitError(RENDER_FAILED, data);
    }
    return RENDER_FAILED;
}

Status GLESRenderer::cacheNewImage(unsigned long /*id*/, Buffer /*buffer*/, android::Rect /*crop*/,
                                   long /*cacheType*/) {
    return NOT_IMPLEMENTED;
}

Status GLESRenderer::releaseCache() {
    return OK;
}

}  // namespace zel
}  // namespace kav
