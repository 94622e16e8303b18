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
 * saw it uploads it first; rendering into a buffer reaches its memory at glFlush, glFinish,
 * eglMakeCurrent of another context, deletion of the texture, and the creation of any sync (a
 * native fence is signalled only after that). A buffer's first row in memory is texture row t = 0
 * and framebuffer row 0. Images of RGBA_8888 and RGBX_8888 buffers are supported.
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
    // Live objects now: never reset.
    uint64_t contextsAlive = 0;  // created and neither destroyed nor released by eglTerminate
    // EGLImages of Android buffers that still exist: not destroyed, or destroyed while a texture
    // still uses them (as EGL keeps them until then).
    uint64_t imagesAlive = 0;
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
 * different phones. The default profile is the full driver.
 *
 * A profile applies to what is created after it is set: a display takes the profile in force when
 * eglInitialize brings it up (its extension string, config list and the image and fence
 * switches stay fixed until it is terminated for good), a context takes it when it is created
 * (context failures, GL_VERSION, make-current failure).
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

}  // namespace host
}  // namespace zel
