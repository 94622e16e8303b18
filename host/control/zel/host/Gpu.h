/*
 * Control of the host GPU layer (libzel_hostgpu) for tests, tools and benchmarks.
 *
 * The layer exports the EGL and OpenGL ES entry points and forwards them to Mesa, loaded privately
 * on first use. The environment variable ZEL_HOST_EGL_LIBRARY names another EGL library to load
 * instead of libEGL.so.1; it is read once, at the first EGL or GL call.
 *
 * On top of Mesa the layer behaves like an Android driver: Android buffers import as EGLImages
 * (EGL_NATIVE_BUFFER_ANDROID) that GL samples through samplerExternalOES and renders into, native
 * fence syncs hand out pollable descriptors, and Android config and context attributes are
 * answered. What that driver offers is chosen by a driver profile (below).
 *
 * Buffer memory is the truth. A draw that samples a buffer whose memory changed since the GPU last
 * saw it uploads it first, and so does a draw into it, unless that draw is a glDrawArrays the layer
 * can prove writes every pixel (see coveredTargets); rendering into a buffer reaches its memory at
 * glFlush, glFinish, eglMakeCurrent of another context, deletion of the texture, and the creation
 * of any sync (a native fence is signalled only after that). A buffer's first row in memory is
 * texture row t = 0 and framebuffer row 0.
 *
 * Images of RGBA_8888 and RGBX_8888 buffers, and of the YUV 4:2:0 formats NV21 (0x11),
 * YCbCr_420_888 (0x23), P010 (0x36), YV12 and the vendor stand-ins 0x1000, 0x7f000030 and
 * 0x7f000010 (layouts in <zel/host/Gralloc.h>), with EGL_ANDROID_image_crop, are supported. GL
 * offers GL_EXT_YUV_target. On YUV images:
 * - samplerExternalOES returns RGB converted with the buffer's dataspace at draw time (its standard
 *   BT.601, BT.709 or BT.2020 and its range; BT.601 limited range when it has none), clamped to
 *   [0,1], alpha 1; the codes are read with the ranges of their bit depth (8 bits: Y 16..235,
 *   C centred on 128 over 224; P010: Y 64..940, C centred on 512 over 896; full range: Y over the
 *   largest code, C centred on 128 or 512); __samplerExternal2DY2YEXT returns the codes (Y, Cb, Cr,
 * 1) normalised by the largest code (255, or 1023 for P010), unconverted and unclamped. Chroma is
 * sited at the centre of its 2x2 block and filtered with the texture's filter. On RGBA images both
 * return the stored RGBA.
 * - rgb_2_yuv and yuv_2_rgb follow the digital ITU formulas on normalised samples, whatever the bit
 *   depth: limited range Y = (219 y + 16) / 255, C = (224 c + 128) / 255; full range Y = y,
 *   C = c + 128 / 255; (Kr, Kb) = (0.299, 0.114) for itu_601, (0.2126, 0.0722) for itu_709,
 *   (0.2627, 0.0593) for itu_2020; nothing is clamped. At 8 bits sampling decodes with the same
 *   formulas; P010 samples are decoded with their 10-bit ranges (above), not these.
 * - Rendering (a layout(yuv) output) writes Y, Cb, Cr into red, green, blue of a full-resolution
 *   intermediate that starts from the buffer's contents, so pixels a draw does not cover keep
 *   them. The write-back packs it: Y per pixel, each chroma sample the average of its 2x2 block
 *   (driver profile chroma-top-left: the block's top-left pixel), P010 as round(v * 1023) << 6.
 * How: the layer rewrites shader text before the driver sees it. External samplers become
 * sampler2D; while a sampler samples a YUV image, the draw runs a variant of the client's program
 * (built once per combination of image layouts and conversions, counted in programVariants) in
 * which the sampler reads per-plane textures (R8/RG8, R16/RG16 for P010) through an injected
 * sampling function, with the client program's uniform values copied in; the planes are bound on
 * the sampler's unit and on the highest texture units, which clients should leave alone. Only
 * texture(sampler, coord) and texture2D(sampler, coord) of non-array samplers sample all planes.
 * The built-ins of GL_EXT_YUV_target are injected as GLSL and the yuv layout qualifier is dropped.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zel {
namespace host {

// A snapshot of the layer's counters.
struct GpuCounters {
    // Cumulative since the start of the process or the last resetGpuCounters().
    uint64_t contextsCreated = 0;      // successful eglCreateContext calls
    uint64_t displaysInitialized = 0;  // successful eglInitialize calls
    uint64_t imagesCreated = 0;        // EGLImages of Android buffers created
    uint64_t shadersCompiled = 0;      // glCompileShader calls
    uint64_t programsLinked = 0;       // glLinkProgram calls
    uint64_t draws = 0;                // glDraw* calls
    uint64_t uploads = 0;              // buffer memory copied into a texture that samples it
    uint64_t writeBacks = 0;           // rendered pixels copied back into buffer memory
    uint64_t fenceFdsCreated = 0;      // descriptors handed out by eglDupNativeFenceFDANDROID
    uint64_t programVariants = 0;      // driver programs built for YUV images (see above)
    // Draws the layer makes beyond the client's own: unpacking a YUV buffer's planes before a
    // draw into it, packing its planes for the write-back.
    uint64_t internalPasses = 0;
    // Render targets a draw was known to cover completely (every pixel written: a quad or
    // triangle over the whole viewport, which covers the target, with no scissor, blending,
    // masking, depth or stencil test and no discard), so that their buffer's changed memory was
    // neither uploaded nor unpacked before it.
    uint64_t coveredTargets = 0;
    // Live objects now: never reset.
    uint64_t contextsAlive = 0;  // created and neither destroyed nor released by eglTerminate
    // EGLImages of Android buffers that still exist: not destroyed, or destroyed while a texture
    // still uses them (as EGL keeps them until then).
    uint64_t imagesAlive = 0;
    // GL buffer objects (glGenBuffers) not yet deleted in a context of the share group that made
    // them, nor gone with its last context. A glDeleteBuffers with no context current, or in
    // another share group, deletes nothing and so leaves them counted.
    uint64_t buffersAlive = 0;
    // Textures, programs and framebuffers that the client generated (glGenTextures,
    // glCreateProgram, glGenFramebuffers) and has not deleted, followed like buffersAlive
    // (framebuffers per context, as they are not shared).
    uint64_t texturesAlive = 0;
    uint64_t programsAlive = 0;
    uint64_t framebuffersAlive = 0;
    // Descriptors from eglDupNativeFenceFDANDROID that the client has not closed yet. Checked
    // when the counters are read: a descriptor counts as closed once its number no longer refers
    // to the same fence (closed, or reused by something else).
    uint64_t fenceFdsOpen = 0;
};

GpuCounters gpuCounters();

// Zeroes the cumulative counters; the live ones keep following what exists.
void resetGpuCounters();

// Queues a GL error on the calling thread; glGetError returns injected errors, oldest first,
// before the driver's own. Stands in for drivers that hold several error flags at once.
void injectGlError(unsigned error);

// True when the EGL driver loads and its surfaceless display initialises: the GPU tests can run.
// Checked once per process; the display is left initialised.
bool gpuAvailable();

// Why gpuAvailable() is false, in a sentence for a skip message; empty when it is true.
std::string gpuUnavailableReason();

/*
 * Driver profiles: what the emulated Android driver offers, so that tests can play the drivers of
 * different phones. The default profile is the phone-driver superset: what the drivers the
 * library is written for accept, which is more than the Khronos texts of their extensions allow
 * (the colour standards itu_709_full_range, itu_2020 and itu_2020_full_range in GL_EXT_YUV_target,
 * __samplerExternal2DY2YEXT sampling RGBA images, RGBA images as external render targets, context
 * priority and protected-content attributes whether or not their extensions are advertised). The
 * switch conformant follows the texts instead.
 *
 * A profile applies to what is created after it is set: a display takes the profile in force when
 * eglInitialize brings it up (its extension string, config list and the image and fence
 * switches stay fixed until it is terminated for good), a context takes it when it is created
 * (context failures, GL_VERSION, make-current failure, chroma-top-left for the write-backs it
 * does).
 *
 * The environment variable ZEL_HOST_DRIVER sets the initial profile: a comma-separated list of the
 * switches below (blanks around names are ignored). Unknown switches are reported once on stderr
 * and ignored.
 *
 *   no-native-fence-sync   the display lacks EGL_ANDROID_native_fence_sync: native fence syncs
 *                          cannot be created (EGL_BAD_ATTRIBUTE)
 *   no-surfaceless         the display lacks EGL_KHR_surfaceless_context
 *   no-config-context      the display lacks EGL_KHR_no_config_context and
 *                          EGL_MESA_configless_context
 *   -NAME                  removes the EGL extension NAME from the extension string
 *   +NAME                  adds the EGL extension NAME to the extension string
 *   gl-version=TEXT        glGetString(GL_VERSION) answers TEXT (e.g. gl-version=OpenGL ES 2.0)
 *   configs-es2            configs offer OpenGL ES 2 only (no EGL_OPENGL_ES3_BIT)
 *   configs-no-android     no config is recordable or a framebuffer target
 *   configs-slow           every config has the caveat EGL_SLOW_CONFIG
 *   fail-es3-context       eglCreateContext refuses client versions 3 and above (EGL_BAD_MATCH)
 *   fail-context           eglCreateContext always fails (EGL_BAD_ALLOC)
 *   fail-make-current      contexts created meanwhile cannot be made current (EGL_BAD_ALLOC)
 *   fail-image             eglCreateImageKHR of Android buffers fails (EGL_BAD_ALLOC)
 *   fail-fence             native fence syncs cannot be created (EGL_BAD_ALLOC)
 *   fail-fence-dup         eglDupNativeFenceFDANDROID fails (EGL_BAD_PARAMETER)
 *   chroma-top-left        rendering into 4:2:0 buffers keeps the top-left sample of each 2x2
 *                          block as its chroma instead of the average
 *   fail-link              glLinkProgram fails (the program loses its shaders first), with the
 *                          driver's own info log
 *   fail-image-attachment  an image texture attached to a framebuffer attaches nothing, so the
 *                          framebuffer is incomplete (missing attachment) and draws into it fail
 *   fail-texture-storage   glTexImage2D and glTexStorage2D raise GL_OUT_OF_MEMORY and allocate
 *                          nothing
 *   no-display             eglGetDisplay answers EGL_NO_DISPLAY (checked at each call)
 *   fence-never-signals    native fences are created (rendering still reaches memory) but never
 *                          signal: a hung GPU
 *   conformant             follow the Khronos texts: GL_EXT_YUV_target offers only itu_601,
 *                          itu_601_full_range and itu_709; a draw that samples an RGBA image
 *                          through __samplerExternal2DY2YEXT fails with GL_INVALID_OPERATION;
 *                          EGL_CONTEXT_PRIORITY_LEVEL_IMG needs EGL_IMG_context_priority (and
 *                          REALTIME EGL_NV_context_priority_realtime), EGL_PROTECTED_CONTENT_EXT
 *                          needs EGL_EXT_protected_content, on a pbuffer also
 *                          EGL_EXT_protected_surface (else EGL_BAD_ATTRIBUTE); a protected image
 *                          of a buffer that is not protected fails with EGL_BAD_ACCESS
 *   fence-delay=MS         native fences of flushed work signal MS milliseconds after the flush
 *                          (a GPU still busy), so that every client fence path meets a fence that
 *                          is not signalled yet
 *
 * In every profile a native fence made for GPU work is unsignalled when made, has a descriptor
 * only after a flush, and is signalled by a thread of the layer once the work is in buffer memory
 * (never before the call that made it returns to a caller who could see it signalled early);
 * eglWaitSyncKHR does not block the calling thread.
 */
struct DriverProfile {
    std::vector<std::string> removedEglExtensions;
    std::vector<std::string> addedEglExtensions;  // a removed name is never added
    std::string glVersion;                        // empty: the driver's own
    bool es2OnlyConfigs = false;
    bool noAndroidConfigAttributes = false;
    bool slowConfigs = false;
    bool failEs3Contexts = false;
    bool failAllContexts = false;
    bool failMakeCurrent = false;
    bool failImageCreation = false;
    bool failFenceCreation = false;
    bool failFenceDup = false;
    bool chromaTopLeftSample = false;
    bool failLink = false;
    bool failImageAttachment = false;
    bool failTextureStorage = false;
    bool fenceNeverSignals = false;
    bool noDisplay = false;
    unsigned fenceDelayMs = 0;
    bool conformant = false;
};

// Parses ZEL_HOST_DRIVER syntax into a profile (starting from the default one). False, with the
// offending switch in *outError, when a switch is unknown; the known ones are still applied.
bool parseDriverProfile(const std::string& switches, DriverProfile* outProfile,
                        std::string* outError = nullptr);

// Sets the profile for what is created from now on.
void setDriverProfile(const DriverProfile& profile);
// The same, from ZEL_HOST_DRIVER syntax; false (and nothing set) when a switch is unknown.
bool setDriverProfile(const std::string& switches);

// The profile in force.
DriverProfile driverProfile();

// Back to the profile of ZEL_HOST_DRIVER (the full driver when it is not set).
void resetDriverProfile();

// Blocks until every native fence of work flushed so far has been signalled (the GPU is idle).
void waitGpuIdle();

}  // namespace host
}  // namespace zel
