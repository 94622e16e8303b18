#include "GLESRenderer.h"

#include <stdio.h>

#include <cmath>

#include <vector>

#include <GLES3/gl31.h>
#include <system/graphics.h>

#include <zel/ExternalTexture.h>

#include <bufmeta.h>
#include <sync/sync.h>

#include "BufferChecker.h"
#include "Framebuffer.h"
#include "VertexBuffer.h"
#include "DebugSettings.h"
#include "EglCurrentBinding.h"
#include "EglDisplayUsers.h"
#include "Extensions.h"
#include "Image.h"
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

// Images per cache: enough for any codec's buffer pool, and a bound on the EGLImages held.
constexpr size_t kImageCacheCapacity = 350;

// setConfig(ENABLE) bits.
constexpr uint32_t kEnableMeshCache = 1u << 0;
constexpr uint32_t kEnableProgramCache = 1u << 1;

// Usage bits of CPU reads (0x3) and writes (0x30): such a source is never cached.
constexpr uint32_t kCpuUsageMask = 0x33;

// A viewport extent truncated to an integer and taken modulo 2^32, as the hardware conversion of
// a small negative float does. Converting a negative float straight to an unsigned type is
// undefined; a region or forced size larger than the destination makes such extents.
uint32_t truncateExtent(float extent) {
    if (!(extent > -2147483648.0f && extent < 4294967296.0f)) {
        return 0;  // NaN or out of range: an empty viewport
    }
    return static_cast<uint32_t>(static_cast<int64_t>(extent));
}

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

// The handle to ask bufmeta about: the imported one, else the wrapped buffer's own.
const native_handle* bufferHandleOf(const ExternalTexture& texture) {
    if (texture.getHandle() != nullptr || texture.getGraphicBuffer() == nullptr) {
        return texture.getHandle();
    }
    return texture.getGraphicBuffer()->handle;
}

void destroySurfaceAndContext(EGLDisplay display, EGLSurface surface, EGLContext context) {
    if (surface != EGL_NO_SURFACE) {
        eglDestroySurface(display, surface);
        ZEL_CHECK_EGL();
    }
    if (context != EGL_NO_CONTEXT) {
        eglDestroyContext(display, context);
        ZEL_CHECK_EGL();
    }
}

// A creation that fails half-way gives back only what it made, and leaves the thread and the
// display as it found them. Deliberately not "leave everything as it is", which leaks the
// context, the surface and a use of the display on every failed attempt; and deliberately not a
// full teardown either, which would release the calling thread's context and terminate a
// display that other renderers of this process still draw with.
void abandonCreation(EGLDisplay display, EGLSurface surface, EGLContext context,
                     const EglCurrentBinding& previous) {
    // First off the thread, so that destroying them frees them at once.
    previous.restore();
    destroySurfaceAndContext(display, surface, context);
    EglDisplayUsers::release(display);
}

}  // namespace

std::shared_ptr<GLESRenderer> GLESRenderer::create(const Renderer::Args& args) {
    loadDebugProperties();
    ZEL_TRACE_FUNC();
    ZEL_LOGD("rendererType = %d, enableProtectedContext = %d, contextPriority = %d",
             args.rendererType, args.enableProtectedContext, args.contextPriority);

    // Whatever the caller has current (another renderer's context, say) is put back on failure.
    const EglCurrentBinding previous = EglCurrentBinding::ofThisThread();
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
        abandonCreation(display, EGL_NO_SURFACE, EGL_NO_CONTEXT, previous);
        return nullptr;
    }
    EGLSurface surface = createEglSurface(display, config, protection);
    ZEL_LOGD("create EGLContext[%p]", context);

    const EGLBoolean current = eglMakeCurrent(display, surface, surface, context);
    ZEL_CHECK_EGL();
    if (!current) {
        ZEL_LOGE("can't make stub pbuffer current");
        abandonCreation(display, surface, context, previous);
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
        abandonCreation(display, surface, context, previous);
        return nullptr;
    }

    auto renderer = std::make_shared<GLESRenderer>(display, config, context, surface);
    renderer->mProtectedContext = args.enableProtectedContext;
    renderer->mImageCacheManager->initThread(true);

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
    mImageCacheManager = std::make_unique<ImageCacheManager>(this);

    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &mMaxTextureSize);
    ZEL_CHECK_GL();
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, mMaxViewportDims);
    ZEL_CHECK_GL();
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    ZEL_CHECK_GL();
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    ZEL_CHECK_GL();

    mChooseProgram = std::make_shared<ChooseProgram>();
    mDebugDetect = false;
}

GLESRenderer::~GLESRenderer() {
    ZEL_TRACE_NAME("~GLESRenderer");
    // Another renderer's context may be current on this thread (two renderers on one thread).
    // Our GL names must not be deleted in that context, where the same numbers name its own
    // objects: ours is made current for the teardown (or, should that fail, none is), and the
    // other one is made current again at the end. With our own context current, or none (the
    // threaded proxy's worker has finished), the teardown runs as it is and leaves none current.
    const EglCurrentBinding previous = EglCurrentBinding::ofThisThread();
    const bool otherCurrent =
        previous.context() != EGL_NO_CONTEXT && previous.context() != mContext;
    if (otherCurrent) {
        const EGLBoolean current = eglMakeCurrent(mDisplay, mStubSurface, mStubSurface, mContext);
        ZEL_CHECK_EGL();
        if (!current) {
            eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            ZEL_CHECK_EGL();
        }
    }
    // Cached images, meshes and programs go while their context is still current.
    if (mImageCacheManager->releaseAllCache() != OK) {
        ZEL_LOGE_PLAIN("Image cache release fail!");
    }
    mImageCacheManager.reset();
    mMeshCache.clear();
    mChooseProgram.reset();

    destroySurfaceAndContext(mDisplay, mStubSurface, mContext);
    // The context is released after it was destroyed: EGL frees it once it is no longer current.
    if (otherCurrent) {
        previous.restore();
    } else {
        eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        ZEL_CHECK_EGL();
    }
    EglDisplayUsers::release(mDisplay);
    mDisplay = EGL_NO_DISPLAY;
    if (mDebugDetect) {
        BufferCheckerRelease();
    }
}

EGLDisplay GLESRenderer::initEglDisplay() {
    ZEL_TRACE_FUNC();
    EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    ZEL_CHECK_EGL();
    // Initialised by its first user only; releaseEglDisplay gives this use back.
    if (!EglDisplayUsers::acquire(display)) {
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

void GLESRenderer::releaseEglDisplay(EGLDisplay display) {
    EglDisplayUsers::release(display);
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

void GLESRenderer::setViewportAndProjection(android::FloatRect& viewport,
                                            android::FloatRect& clip) {
    ZEL_TRACE_NAME("setViewportAndProjection");
    mVpWidth = truncateExtent(viewport.right - viewport.left);
    mVpHeight = truncateExtent(viewport.bottom - viewport.top);
    ZEL_LOGD("mVpWidth = %u, mVpHeight = %u", mVpWidth, mVpHeight);
    glViewport(static_cast<GLint>(viewport.left), static_cast<GLint>(viewport.top),
               static_cast<GLsizei>(mVpWidth), static_cast<GLsizei>(mVpHeight));
    ZEL_CHECK_GL();
    ZEL_LOGD("clip.left = %f, clip.right = %f, clip.bottom = %f, clip.top = %f", clip.left,
             clip.right, clip.bottom, clip.top);

    // Orthographic, near plane 0 and far plane 1. The pass's clip has top -1 and bottom 1, so
    // the y axis comes out flipped.
    android::mat4& m = mDescription.mProjectionMatrix;
    m = android::mat4(0.0f);
    m[0][0] = 2.0f / (clip.right - clip.left);
    m[1][1] = 2.0f / (clip.top - clip.bottom);
    m[2][2] = -2.0f;
    m[3][0] = -(clip.left + clip.right) / (clip.right - clip.left);
    m[3][1] = -(clip.top + clip.bottom) / (clip.top - clip.bottom);
    m[3][2] = -1.0f;
    m[3][3] = 1.0f;
}

bool GLESRenderer::drawMesh(const Mesh* mesh) {
    ZEL_TRACE_NAME("drawMesh");
    if (mesh == nullptr) {
        ZEL_LOGE("%s: mesh is nullptr", __func__);
        return false;
    }
    if (mChooseProgram == nullptr) {
        ZEL_LOGE("%s: mChooseProgram is nullptr", __func__);
        return false;
    }
    std::shared_ptr<gl::Program> program;
    {
        ZEL_TRACE_NAME("getProgram");
        program = mChooseProgram->getProgram(mDescription);
    }
    if (program == nullptr) {
        ZEL_LOGE("get program failed");
        return false;
    }
    // A frame that was not drawn must never be reported as drawn: a program that did not link
    // (it may sit in the program cache) is refused on every draw, where binding it would draw
    // nothing and leave the destination as it was.
    if (!program->isLinked()) {
        ZEL_LOGE("program did not link, nothing drawn: %s", program->getFailureLog().c_str());
        return false;
    }

    // Attribute pointers are offsets into the buffer object when the mesh has one, else
    // addresses in the mesh's own vertices.
    const gl::VertexBuffer* buffer = mesh->mVertexBuffer.get();
    const bool indices = mDescription.mHasIndices;
    if (buffer != nullptr) {
        buffer->bind(false);
        if (indices) {
            buffer->bind(true);
        }
    }
    const GLsizei stride = static_cast<GLsizei>(mesh->mStride * sizeof(float));
    {
        ZEL_TRACE_NAME("set Postion Attrib");
        glEnableVertexAttribArray(0);
        ZEL_CHECK_GL();
        const void* position = buffer != nullptr ? nullptr : mesh->mVertices.data();
        glVertexAttribPointer(0, static_cast<GLint>(mesh->mVertexSize), GL_FLOAT, GL_FALSE, stride,
                              position);
        ZEL_CHECK_GL();
    }
    if (mDescription.mHasTexCoords) {
        ZEL_TRACE_NAME("set texture coordinate Attrib");
        glEnableVertexAttribArray(1);
        ZEL_CHECK_GL();
        // With a buffer object the offset is the texture-coordinate size, which equals the
        // position size in the 2 + 2 layout of every mesh.
        const void* texCoords =
            buffer != nullptr
                ? reinterpret_cast<const void*>(mesh->mTexCoordSize * sizeof(float))
                : static_cast<const void*>(mesh->mVertices.data() + mesh->mVertexSize);
        glVertexAttribPointer(1, static_cast<GLint>(mesh->mTexCoordSize), GL_FLOAT, GL_FALSE,
                              stride, texCoords);
        ZEL_CHECK_GL();
    }
    if (buffer != nullptr) {
        // The attribute pointers keep the vertex buffer; the indices are read from client memory.
        buffer->unbind(false);
        if (indices) {
            buffer->unbind(true);
        }
    }
    {
        ZEL_TRACE_NAME("program use");
        program->use();
        program->setUniforms(mDescription);
    }
    if (indices) {
        ZEL_TRACE_NAME("glDrawElements");
        glDrawElements(mesh->mPrimitive, static_cast<GLsizei>(mesh->mIndexCount), GL_UNSIGNED_INT,
                       mesh->mIndices.data());
        ZEL_CHECK_GL();
    } else {
        glDrawArrays(mesh->mPrimitive, 0, static_cast<GLsizei>(mesh->mVertexCount));
        ZEL_CHECK_GL();
    }
    return true;
}

// One pass: the source (cached by buffer id unless the CPU uses it) is drawn into a fresh EGLImage
// of the destination; |fence|, when given, receives the pass's native fence.
Status GLESRenderer::convert(const Buffer& src, Buffer& dst, android::base::unique_fd* fence) {
    ZEL_TRACE_NAME("convert");
    if (src.texture == nullptr || dst.texture == nullptr) {
        ZEL_LOGE("%s buffer has no texture", src.texture == nullptr ? "src" : "dst");
        return BAD_VALUE;
    }
    ExternalTexture& srcTexture = *src.texture;
    ExternalTexture& dstTexture = *dst.texture;
    if (!Description::supportFormat(srcTexture.getPixelFormat())) {
        ZEL_LOGE("src supportFormat not support");
        return UNSUPPORTED_FORMAT;
    }
    if (!Description::supportFormat(dstTexture.getPixelFormat())) {
        ZEL_LOGE("dst supportFormat not support");
        return UNSUPPORTED_FORMAT;
    }
    const BufferSettings* settings = src.settings.get();
    if (!checkRequest(srcTexture, dstTexture, settings)) {
        return BAD_VALUE;
    }
    const android::Rect crop = settings != nullptr ? settings->crop : android::Rect::INVALID_RECT;

    // Made on every pass; the cached path leaves it unused.
    // An image or a framebuffer that the driver refused leaves nothing to sample or nothing to
    // draw into. The pass stops there with RENDER_FAILED: going on would draw nothing and still
    // report the frame as drawn, and the caller would show whatever the destination held before.
    Image srcImage(mDisplay, 0);
    if (!isSourceCacheable(srcTexture)) {
        if (!srcImage.setNativeWindowBuffer(srcTexture.getGraphicBuffer()->getNativeBuffer(), crop,
                                            mProtectedContext) ||
            !srcImage.bindTextureImage(GL_TEXTURE0)) {
            ZEL_LOGE("no image of the source buffer, nothing drawn");
            return RENDER_FAILED;
        }
    } else if (!bindCachedSource(src, crop)) {
        return RENDER_FAILED;
    }

    // The destination gets a fresh EGLImage every pass, never cropped, never cached.
    Image dstImage(mDisplay, 0);
    if (!dstImage.setNativeWindowBuffer(dstTexture.getGraphicBuffer()->getNativeBuffer(),
                                        android::Rect::INVALID_RECT, mProtectedContext) ||
        !dstImage.bindTextureImage(GL_TEXTURE2)) {
        ZEL_LOGE("no image of the destination buffer, nothing drawn");
        return RENDER_FAILED;
    }

    if (debugDump()) {
        createBufferChecker();
        ZEL_LOGD1("mDebugDetect %d", mDebugDetect ? 1 : 0);
        srcTexture.DumpBuffer("in");
    }

    gl::Framebuffer framebuffer;
    const bool plainTarget = dstTexture.getPixelFormat() == HAL_PIXEL_FORMAT_RGBA_8888 &&
                             !mChooseProgram->driverTakesPhoneSuperset();
    framebuffer.bindTextureImageAsFramebuffer(dstImage, plainTarget);
    if (framebuffer.getStatus() != GL_FRAMEBUFFER_COMPLETE) {
        ZEL_LOGE("destination framebuffer incomplete, nothing drawn");
        return RENDER_FAILED;
    }

    std::shared_ptr<Mesh> mesh = selectMesh(settings);

    uint32_t width = dstTexture.getWidth();
    uint32_t height = dstTexture.getHeight();
    if (settings != nullptr && settings->forceWidth != 0 && settings->forceHeight != 0) {
        ZEL_LOGD("User set force dst buffer size width:%d, height:%d", settings->forceWidth,
                 settings->forceHeight);
        width = static_cast<uint32_t>(settings->forceWidth);
        height = static_cast<uint32_t>(settings->forceHeight);
    }
    mDescription.mHasProjection = false;
    android::FloatRect viewport(0.0f, 0.0f, static_cast<float>(width), static_cast<float>(height));
    android::FloatRect clip(-1.0f, -1.0f, 1.0f, 1.0f);
    setViewportAndProjection(viewport, clip);
    if (settings != nullptr) {
        applySourceTransform(*settings, srcTexture);
    }

    mDescription.setFmtType(srcTexture.getPixelFormat(), dstTexture.getPixelFormat());
    if (mDescription.mFmtType == Description::kFmtRgbaToYuv) {
        mDescription.setDatasapce(static_cast<android_dataspace_t>(dstTexture.getDataspace()));
    }
    mDescription.mCacheProgram = (mEnable & kEnableProgramCache) != 0;

    Status result = OK;
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer.getFramebuffer());
    ZEL_CHECK_GL();
    const bool drawn = drawMesh(mesh.get());
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    ZEL_CHECK_GL();
    if (!drawn) {
        ZEL_LOGE("drawMesh failed");
        result = RENDER_FAILED;
    } else {
        if (debugDump()) {
            glFinish();
            ZEL_CHECK_GL();
            const std::string path = dstTexture.DumpBuffer("out");
            if (mDebugDetect) {
                BufferCheckerRun(path.c_str(), dstTexture.getWidth(), dstTexture.getHeight(),
                                 dstTexture.getPixelFormat(),
                                 static_cast<Dataspace>(dstTexture.getDataspace()));
            }
        }
        if (fence != nullptr) {
            *fence = flush();
        }
    }
    // A client mesh's buffers live for this pass only (the next pass uploads it again anyway):
    // deleted here, on the GL thread, in the context that made them. Left in the mesh, they would
    // be deleted wherever the client drops it, usually on its own thread with no context current
    // (a leak in this context) or with another one current (deleting that context's buffers).
    if (settings != nullptr && settings->mesh != nullptr) {
        mesh->mVertexBuffer.reset();
    }
    // Locals go in reverse order: mesh reference, framebuffer, destination, then source image.
    mesh.reset();
    return result;
}

bool GLESRenderer::checkRequest(const ExternalTexture& srcTexture,
                                const ExternalTexture& dstTexture,
                                const BufferSettings* settings) const {
    const auto beyondTextureLimit = [this](const ExternalTexture& texture) {
        return texture.getWidth() > static_cast<uint32_t>(mMaxTextureSize) ||
               texture.getHeight() > static_cast<uint32_t>(mMaxTextureSize);
    };
    for (const ExternalTexture* texture : {&srcTexture, &dstTexture}) {
        if (beyondTextureLimit(*texture)) {
            ZEL_LOGE("%s buffer %ux%u beyond GL_MAX_TEXTURE_SIZE %d",
                     texture == &srcTexture ? "src" : "dst", texture->getWidth(),
                     texture->getHeight(), mMaxTextureSize);
            return false;
        }
    }
    // Secure content never reaches memory the CPU can read.
    const android::sp<android::GraphicBuffer>& srcBuffer = srcTexture.getGraphicBuffer();
    const android::sp<android::GraphicBuffer>& dstBuffer = dstTexture.getGraphicBuffer();
    if (srcBuffer != nullptr && dstBuffer != nullptr &&
        (srcBuffer->getUsage() & android::GraphicBuffer::USAGE_PROTECTED) != 0 &&
        (dstBuffer->getUsage() & android::GraphicBuffer::USAGE_PROTECTED) == 0) {
        ZEL_LOGE("protected src into unprotected dst refused");
        return false;
    }
    if (settings == nullptr) {
        return true;
    }
    // A crop that is sent at all (right >= left, bottom >= top) must lie within the buffer.
    const android::Rect& crop = settings->crop;
    if (crop.right >= crop.left && crop.bottom >= crop.top &&
        (crop.left < 0 || crop.top < 0 ||
         crop.right > static_cast<int32_t>(srcTexture.getWidth()) ||
         crop.bottom > static_cast<int32_t>(srcTexture.getHeight()))) {
        ZEL_LOGE("src crop (%d,%d,%d,%d) outside the %ux%u buffer", crop.left, crop.top, crop.right,
                 crop.bottom, srcTexture.getWidth(), srcTexture.getHeight());
        return false;
    }
    if (!std::isfinite(settings->rotation)) {
        ZEL_LOGE("rotation %f is not a number of degrees", settings->rotation);
        return false;
    }
    if (settings->forceWidth != 0 && settings->forceHeight != 0 &&
        (settings->forceWidth < 0 || settings->forceHeight < 0 ||
         settings->forceWidth > mMaxViewportDims[0] ||
         settings->forceHeight > mMaxViewportDims[1])) {
        ZEL_LOGE("forced size %dx%d outside GL_MAX_VIEWPORT_DIMS %dx%d", settings->forceWidth,
                 settings->forceHeight, mMaxViewportDims[0], mMaxViewportDims[1]);
        return false;
    }
    const Mesh* mesh = settings->mesh.get();
    if (mesh == nullptr) {
        return true;
    }
    // The draw reads mVertexCount vertices of mStride floats, and mIndexCount indices.
    if (mesh->mVertexCount == 0 || mesh->mStride < mesh->mVertexSize + mesh->mTexCoordSize ||
        mesh->mVertices.size() < mesh->mVertexCount * mesh->mStride) {
        ZEL_LOGE("client mesh: %zu vertices of stride %zu in %zu floats", mesh->mVertexCount,
                 mesh->mStride, mesh->mVertices.size());
        return false;
    }
    if (mesh->mIndexCount > mesh->mIndices.size()) {
        ZEL_LOGE("client mesh: %zu indices in a list of %zu", mesh->mIndexCount,
                 mesh->mIndices.size());
        return false;
    }
    for (size_t i = 0; i < mesh->mIndexCount; ++i) {
        if (mesh->mIndices[i] >= mesh->mVertexCount) {
            ZEL_LOGE("client mesh: index %u out of range of %zu vertices", mesh->mIndices[i],
                     mesh->mVertexCount);
            return false;
        }
    }
    return true;
}

bool GLESRenderer::isSourceCacheable(const ExternalTexture& srcTexture) {
    uint32_t usage = 0;
    const int error = bufmeta_query(bufferHandleOf(srcTexture), BUFMETA_GET_USAGE, &usage);
    if (error != 0) {
        ZEL_LOGE(
            "bufmeta_query: BUFMETA_GET_USAGE failed with err: %d, default disable src buffer "
            "cache",
            error);
        return false;
    }
    if ((usage & kCpuUsageMask) != 0) {
        ZEL_LOGD("Source buffer has sw read, write uasge, disable src buffer cache, usage:%ld",
                 static_cast<long>(usage));
        return false;
    }
    return true;
}

bool GLESRenderer::bindCachedSource(const Buffer& src, const android::Rect& crop) {
    const ExternalTexture& srcTexture = *src.texture;
    uint64_t id = 0;
    if (srcTexture.isImported()) {
        // Every import of one allocation shares this id; GraphicBuffer ids are per object.
        const int error = bufmeta_query(srcTexture.getHandle(), BUFMETA_GET_BUFFER_ID, &id);
        if (error != 0) {
            ZEL_LOGE_PLAIN("get SRC bufmeta id fail, err: %d, handle:%p", error,
                           srcTexture.getHandle());
        }
    } else {
        id = srcTexture.getGraphicBuffer()->getId();
    }

    bool cached = false;
    {
        std::lock_guard<std::mutex> lock(mImageCacheMutex);
        cached = mSrcImageCache.count(id) != 0;
    }
    if (!cached) {
        ZEL_LOGD("src Add buffer id: %lu", static_cast<unsigned long>(id));
        mImageCacheManager->cache(id, src, crop, 0);
    }

    std::lock_guard<std::mutex> lock(mImageCacheMutex);
    const auto entry = mSrcImageCache.find(id);
    if (entry == mSrcImageCache.end()) {
        ZEL_LOGE_PLAIN("cache still not found");
        return false;
    }
    ZEL_LOGD("src find buffer id: %lu", static_cast<unsigned long>(entry->second->getBufferId()));
    if (!entry->second->bindTextureImage(GL_TEXTURE0)) {
        // The import failed when the image was cached: drop it so that the next pass of this
        // buffer tries again instead of failing for as long as the entry lives.
        ZEL_LOGE("cached source image has no EGLImage, nothing drawn");
        mSrcImageCache.erase(entry);
        mSrcImageRecency.erase(id);
        return false;
    }
    mSrcImageRecency.touch(id);
    return true;
}

std::shared_ptr<Mesh> GLESRenderer::selectMesh(const BufferSettings* settings) {
    mDescription.mUseVertexBuffer = false;
    mDescription.mHasIndices = false;
    mDescription.mHasTexCoords = false;

    if (settings != nullptr && settings->mesh != nullptr) {
        // A client mesh is uploaded again on every pass, into buffers that live for the pass.
        std::shared_ptr<Mesh> mesh = settings->mesh;
        mDescription.mHasTexCoords = true;
        mDescription.mUseVertexBuffer = true;
        mDescription.mHasIndices = mesh->mIndexCount != 0;
        auto vertexBuffer = std::make_shared<gl::VertexBuffer>();
        vertexBuffer->allocateBuffers(mesh->mVertices.data(),
                                      static_cast<unsigned int>(mesh->mVertices.size()), false);
        if (mDescription.mHasIndices) {
            vertexBuffer->allocateBuffers(mesh->mIndices.data(),
                                          static_cast<unsigned int>(mesh->mIndices.size()), true);
        }
        mesh->mVertexBuffer = std::move(vertexBuffer);
        return mesh;
    }
    if ((mEnable & kEnableMeshCache) != 0) {
        std::shared_ptr<Mesh>& cached = mMeshCache[Mesh::buildRectHash()];
        if (cached == nullptr) {
            cached = Mesh::buildRect();
        } else {
            ZEL_LOGD("cache mesh");
        }
        return cached;
    }
    mMeshCache.clear();
    return Mesh::buildRect();
}

void GLESRenderer::applySourceTransform(const BufferSettings& settings,
                                        const ExternalTexture& srcTexture) {
    if (!mDescription.mHasProjection) {
        mDescription.mProjectionMatrix = android::mat4();
    }
    const android::Rect& region = settings.region;
    const android::Rect& none = android::Rect::INVALID_RECT;
    if (region.left != none.left || region.top != none.top || region.right != none.right ||
        region.bottom != none.bottom) {
        const float w = static_cast<float>(srcTexture.getWidth());
        const float h = static_cast<float>(srcTexture.getHeight());
        android::mat4 translate;
        translate[3][0] = static_cast<float>(region.left) / w;
        translate[3][1] = static_cast<float>(region.top) / h;
        android::mat4 scale;
        scale[0][0] = static_cast<float>(region.right - region.left) / w;
        // Scaled by the width as well, the way clients have always set regions.
        scale[1][1] = static_cast<float>(region.bottom - region.top) / w;
        mDescription.mProjectionMatrix = mDescription.mProjectionMatrix * translate * scale;
        mDescription.mHasProjection = true;
    }
    if (settings.rotation != 0.0f) {
        const float radians = settings.rotation * 3.1415927f / 180.0f;
        mDescription.mProjectionMatrix =
            mDescription.mProjectionMatrix *
            android::mat4::rotate(radians, android::vec3(0.0f, 0.0f, 1.0f));
        mDescription.mHasProjection = true;
    }
}

namespace {

// A buffer the pass can bind: a texture that wraps a graphic buffer with a handle. A texture
// made with size 0, or around a null buffer or handle, has none.
bool hasGraphicBuffer(const Buffer& buffer, const char* role) {
    const ExternalTexture* texture = buffer.texture.get();
    if (texture == nullptr) {
        ZEL_LOGE("%s buffer has no texture", role);
        return false;
    }
    const android::sp<android::GraphicBuffer>& graphicBuffer = texture->getGraphicBuffer();
    if (graphicBuffer == nullptr || graphicBuffer->getNativeBuffer()->handle == nullptr) {
        ZEL_LOGE("%s texture has no graphic buffer", role);
        return false;
    }
    return true;
}

}  // namespace

Status GLESRenderer::blit(const std::vector<Buffer>& inputs, Buffer& output,
                          android::base::unique_fd* fence, AppInside appId) {
    ZEL_TRACE_NAME("blit");
    const int32_t count = static_cast<int32_t>(inputs.size());
    ZEL_LOGD("sources buffer size = %d", count);
    if (count > 2) {
        return UNSUPPORTED_FORMAT;
    }
    mAppId = appId;
    mDescription.mAppId = appId;
    ZEL_LOGD("blit appId = %d", appId);
    if (appId != APP_INSIDE_DEFAULT || count == 2) {
        return UNSUPPORTED_FORMAT;
    }
    mDescription.mDualSource = count != 1;
    if (mDescription.mDualSource) {
        // No source: nothing to wait on and nothing to draw.
        return OK;
    }
    if (!hasGraphicBuffer(inputs[0], "src") || !hasGraphicBuffer(output, "dst")) {
        return BAD_VALUE;
    }
    wait(inputs[0]);
    ZEL_TRACE_NAME("convert_source0");
    return convert(inputs[0], output, fence);
}

Status GLESRenderer::blit(const std::vector<Buffer>& inputs, Buffer& output, int timeout,
                          AppInside appId) {
    android::base::unique_fd fence;
    const Status result = blit(inputs, output, &fence, appId);
    if (result != OK) {
        ZEL_LOGE("blit failed");
        return result;
    }
    // Without a native fence there is nothing to wait on, and no way to report success.
    return sync_wait(fence.get(), timeout) < 0 ? TIMED_OUT : OK;
}

Status GLESRenderer::blit(const std::vector<Buffer>& inputs, Buffer& output,
                          android::sp<android::Fence>& fence, AppInside appId) {
    android::base::unique_fd fd;
    const Status result = blit(inputs, output, &fd, appId);
    if (result != OK) {
        ZEL_LOGE("blit failed");
        return result;
    }
    fence = new android::Fence(std::move(fd));
    return OK;
}

Status GLESRenderer::asyncBlit(const std::vector<Buffer>& inputs, Buffer& output, void* data,
                               AppInside appId) {
    ZEL_TRACE_NAME("asyncBlit");
    const android::sp<Listener> listener = promoteListener();
    android::base::unique_fd fd;
    const Status result = blit(inputs, output, &fd, appId);
    if (result != OK) {
        ZEL_LOGE("blit failed");
        if (listener != nullptr) {
            listener->onBlitError(result, data);
        }
        return result;
    }
    android::sp<android::Fence> fence = new android::Fence(std::move(fd));
    char traceName[40];
    if (snprintf(traceName, sizeof(traceName), "use_fence_%p", fence.get()) < 0) {
        ZEL_LOGE("trace sprintf fence fail");
    }
    {
        ScopedTrace trace(traceName);
        output.texture->setFence(fence);
    }
    if (listener != nullptr) {
        listener->onBlitDone(output, data);
    }
    return result;
}

void GLESRenderer::wait(const Buffer& buffer) {
    ZEL_TRACE_NAME("wait");
    auto waitOn = [](const ExternalTexture* texture) {
        if (texture != nullptr && texture->getFence() != nullptr) {
            texture->getFence()->wait(-1);
        }
    };
    waitOn(buffer.texture.get());
    if (buffer.settings == nullptr) {
        return;
    }
    for (const std::shared_ptr<Texture>& aux :
         {buffer.settings->auxTexture0, buffer.settings->auxTexture1}) {
        if (aux != nullptr && aux->getTextureTarget() == GL_TEXTURE_EXTERNAL_OES) {
            waitOn(static_cast<const ExternalTexture*>(aux.get()));
        }
    }
}

android::base::unique_fd GLESRenderer::flush() {
    if (!gl::Extensions::getInstance().hasNativeFenceSync()) {
        return android::base::unique_fd();
    }
    EGLSyncKHR sync = eglCreateSyncKHR(mDisplay, EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
    const EGLint createError = ZEL_CHECK_EGL_CODE();
    if (sync == EGL_NO_SYNC_KHR) {
        ZEL_LOGW_PLAIN("failed to create EGL native fence sync: %#x", createError);
        return android::base::unique_fd();
    }
    glFlush();
    ZEL_CHECK_GL();
    android::base::unique_fd fd(eglDupNativeFenceFDANDROID(mDisplay, sync));
    // Read before the sync is destroyed, which would replace it with its own result.
    const EGLint dupError = fd.get() == -1 ? eglGetError() : EGL_SUCCESS;
    eglDestroySyncKHR(mDisplay, sync);
    if (fd.get() == -1) {
        ZEL_LOGW_PLAIN("failed to dup EGL native fence sync: %#x", dupError);
    }
    return fd;
}

Status GLESRenderer::cacheNewImage(unsigned long id, Buffer buffer, android::Rect crop,
                                   long cacheType) {
    if (cacheType == 1 && !mDstCacheEnabled) {
        return OK;
    }
    // Imported outside the lock. An image whose EGLImage could not be made is cached all the
    // same; binding it later fails and says so.
    auto image = std::make_shared<Image>(mDisplay, id);
    ANativeWindowBuffer* nativeBuffer = nullptr;
    if (buffer.texture != nullptr && buffer.texture->getGraphicBuffer() != nullptr) {
        nativeBuffer = buffer.texture->getGraphicBuffer()->getNativeBuffer();
    }
    image->setNativeWindowBuffer(nativeBuffer, crop, mProtectedContext);

    std::lock_guard<std::mutex> lock(mImageCacheMutex);
    auto& cache = cacheType == 0 ? mSrcImageCache : mDstImageCache;
    RecencyList& recency = cacheType == 0 ? mSrcImageRecency : mDstImageRecency;
    // An id already cached keeps its first image; the new one is dropped at once. Either way the
    // id was just asked for, so it counts as used.
    cache.emplace(id, std::move(image));
    recency.touch(id);
    if (cache.size() > kImageCacheCapacity) {
        // Evicting the least recently used entry. Erasing the table's first entry instead could
        // evict the image just inserted (a new node often heads the iteration order), and the
        // pass that asked for it would then find nothing. The evicted image lives on while a
        // pass still holds it.
        const unsigned long victim = recency.oldest();
        recency.erase(victim);
        cache.erase(victim);
    }
    return OK;
}

Status GLESRenderer::releaseCache() {
    std::lock_guard<std::mutex> lock(mImageCacheMutex);
    // Every image is destroyed here, in cache order, while the maps are still whole.
    for (auto& [id, image] : mSrcImageCache) {
        image.reset();
        ZEL_LOGD("release src image: %lu", id);
    }
    for (auto& [id, image] : mDstImageCache) {
        image.reset();
        ZEL_LOGD("release dst image: %lu", id);
    }
    if (!mSrcImageCache.empty()) {
        mSrcImageCache.clear();
    }
    if (!mDstImageCache.empty()) {
        mDstImageCache.clear();
    }
    mSrcImageRecency.clear();
    mDstImageRecency.clear();
    return OK;
}

std::shared_ptr<Image> GLESRenderer::findCachedImage(unsigned long id, long cacheType) {
    std::lock_guard<std::mutex> lock(mImageCacheMutex);
    const auto& cache = cacheType == 0 ? mSrcImageCache : mDstImageCache;
    const auto entry = cache.find(id);
    return entry != cache.end() ? entry->second : nullptr;
}

std::vector<unsigned long> GLESRenderer::cachedImageIds(long cacheType) {
    std::lock_guard<std::mutex> lock(mImageCacheMutex);
    return (cacheType == 0 ? mSrcImageRecency : mDstImageRecency).ids();
}

bool GLESRenderer::createBufferChecker() {
    mDebugDetect = BufferCheckerCreate() == 0;
    return mDebugDetect;
}

}  // namespace zel
}  // namespace kav
