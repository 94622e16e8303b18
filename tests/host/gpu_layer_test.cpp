// The GPU layer itself: which functions it exports and hands out by name, the EGL error it
// reports, its counters, how it fails without a driver, and how it forwards EGL and GLES to Mesa
// (displays, pbuffers, contexts on several threads at once) with exact pixels.
#define EGL_EGLEXT_PROTOTYPES 1
#define GL_GLEXT_PROTOTYPES 1
#include <dlfcn.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl32.h>
#include <GLES2/gl2ext.h>
#include <gtest/gtest.h>

#include <zel/host/Gpu.h>

#include "EglContext.h"
#include "GlDrawing.h"

namespace {

using Function = __eglMustCastToProperFunctionPointerType;

template <typename F>
Function address(F* function) {
    return reinterpret_cast<Function>(function);
}

// Counts the pixels of the bound framebuffer that are not `inside` within the box (left, bottom,
// width, height) and `outside` elsewhere.
int countWrongPixels(int width, int height, const uint8_t* inside, const uint8_t* outside,
                     const std::array<int, 4>& box) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4, 0xEE);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    int wrong = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool in =
                x >= box[0] && x < box[0] + box[2] && y >= box[1] && y < box[1] + box[3];
            wrong += memcmp(&pixels[(y * width + x) * 4], in ? inside : outside, 4) != 0;
        }
    }
    return wrong;
}

void clearTo(const uint8_t rgba[4]) {
    glClearColor(rgba[0] / 255.0f, rgba[1] / 255.0f, rgba[2] / 255.0f, rgba[3] / 255.0f);
    glClear(GL_COLOR_BUFFER_BIT);
}

// An RGBA8 texture attached to a framebuffer, bound for drawing and reading.
class TextureTarget {
public:
    TextureTarget(GLsizei width, GLsizei height) {
        glGenTextures(1, &mTexture);
        glBindTexture(GL_TEXTURE_2D, mTexture);
        glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, width, height);
        glGenFramebuffers(1, &mFramebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, mFramebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, mTexture, 0);
        glViewport(0, 0, width, height);
    }
    ~TextureTarget() {
        glDeleteFramebuffers(1, &mFramebuffer);
        glDeleteTextures(1, &mTexture);
    }
    bool complete() const {
        return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    }

private:
    GLuint mTexture = 0;
    GLuint mFramebuffer = 0;
};

class GpuLayer : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
        mDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        ASSERT_TRUE(eglInitialize(mDisplay, nullptr, nullptr));
    }

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
};
using GpuForwarding = GpuLayer;

TEST_F(GpuLayer, EveryExportedFunctionIsTheLayersOwnAndNothingElseIsHandedOut) {
    EXPECT_EQ(eglGetProcAddress("glEGLImageTargetTexture2DOES"),
              address(&glEGLImageTargetTexture2DOES));
    for (const char* unknown : {"glZelMadeUpFunction", "glDrawArray", "glDrawArraysX", ""}) {
        EXPECT_EQ(eglGetProcAddress(unknown), nullptr) << unknown;
    }
    EXPECT_EQ(eglGetProcAddress(nullptr), nullptr);
    // The driver has these, but handing them out would bypass the layer.
    EXPECT_EQ(eglGetProcAddress("glEGLImageTargetTexStorageEXT"), nullptr);
    EXPECT_EQ(eglGetProcAddress("eglQueryDmaBufFormatsEXT"), nullptr);

    // With Mesa and glvnd loaded by now, none of their symbols may shadow ours.
    const char* sourceDir = getenv("ZEL_TEST_SOURCE_DIR");
    if (sourceDir == nullptr) {
        GTEST_SKIP() << "ZEL_TEST_SOURCE_DIR is not set: run through ctest";
    }
    Dl_info layer = {};
    ASSERT_TRUE(dladdr(reinterpret_cast<void*>(&eglGetProcAddress), &layer));
    ASSERT_NE(strstr(layer.dli_fname, "libzel_hostgpu.so"), nullptr) << layer.dli_fname;
    std::ifstream list(std::string(sourceDir) + "/host/gpu/exported.list");
    int checked = 0;
    for (std::string name; std::getline(list, name);) {
        name = name.substr(0, name.find('#'));
        name.erase(name.find_last_not_of(" \t\r") + 1);
        if (name.empty()) {
            continue;
        }
        void* symbol = dlsym(RTLD_DEFAULT, name.c_str());
        Dl_info info = {};
        EXPECT_TRUE(symbol != nullptr && dladdr(symbol, &info) && info.dli_fbase == layer.dli_fbase)
            << name << " does not resolve into the layer";
        EXPECT_EQ(eglGetProcAddress(name.c_str()), reinterpret_cast<Function>(symbol)) << name;
        ++checked;
    }
    EXPECT_GT(checked, 100);
}

TEST_F(GpuLayer, EglErrorComesFromTheLastCallWhetherLayerOrDriver) {
    const auto notADisplay = reinterpret_cast<EGLNativeDisplayType>(0x1234);
    const auto bogusDisplay = reinterpret_cast<EGLDisplay>(0xBAD0);
    EXPECT_FALSE(eglInitialize(bogusDisplay, nullptr, nullptr));  // raised by the driver
    EXPECT_EQ(eglGetError(), EGL_BAD_DISPLAY);
    // A later layer error hides the driver's, is reported once, and the driver's does not come
    // back afterwards.
    EXPECT_FALSE(eglInitialize(bogusDisplay, nullptr, nullptr));
    EXPECT_EQ(eglGetDisplay(notADisplay), EGL_NO_DISPLAY);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    EXPECT_EQ(eglGetError(), EGL_SUCCESS);

    // Errors belong to the thread that caused them.
    EXPECT_EQ(eglGetDisplay(notADisplay), EGL_NO_DISPLAY);
    EGLint otherThread = 0;
    std::thread([&] { otherThread = eglGetError(); }).join();
    EXPECT_EQ(otherThread, EGL_SUCCESS);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
}

TEST_F(GpuLayer, CountersReturnToWhereTheyStarted) {
    using zel::host::gpuCounters;
    const zel::host::GpuCounters start = gpuCounters();
    EXPECT_TRUE(eglInitialize(mDisplay, nullptr, nullptr));
    EXPECT_EQ(gpuCounters().displaysInitialized, start.displaysInitialized + 1);
    const EGLint attribs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_NONE};
    EGLContext contexts[3];
    for (EGLContext& context : contexts) {
        context = eglCreateContext(mDisplay, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attribs);
        ASSERT_NE(context, EGL_NO_CONTEXT);
    }
    // A context the driver refuses is not counted.
    const EGLint impossible[] = {EGL_CONTEXT_MAJOR_VERSION, 9, EGL_NONE};
    EXPECT_EQ(eglCreateContext(mDisplay, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, impossible),
              EGL_NO_CONTEXT);
    EXPECT_EQ(gpuCounters().contextsCreated, start.contextsCreated + 3);

    // Destroyed once, counted once; the current one counts until destroyed too.
    EXPECT_TRUE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, contexts[0]));
    EXPECT_TRUE(eglDestroyContext(mDisplay, contexts[1]));
    EXPECT_FALSE(eglDestroyContext(mDisplay, contexts[1]));
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive + 2);

    // Resetting clears what was counted, not what is alive.
    zel::host::resetGpuCounters();
    EXPECT_EQ(gpuCounters().contextsCreated, 0u);
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive + 2);
    EXPECT_TRUE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT));
    EXPECT_TRUE(eglDestroyContext(mDisplay, contexts[0]));
    EXPECT_TRUE(eglDestroyContext(mDisplay, contexts[2]));
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive);
}

// Runs in a fresh process (a death test), where the driver has not been loaded yet.
void checkEverythingFailsCleanly() {
    int failures = 0;
    auto check = [&](bool ok, const char* what) {
        if (!ok) {
            fprintf(stderr, "FAILED: %s\n", what);
            ++failures;
        }
    };
    setenv("ZEL_HOST_EGL_LIBRARY", "libzel-no-such-egl.so.1", 1);

    EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    check(display == EGL_NO_DISPLAY, "eglGetDisplay gives EGL_NO_DISPLAY");
    check(eglGetError() == EGL_NOT_INITIALIZED, "eglGetError gives EGL_NOT_INITIALIZED");
    EGLint major = -1;
    check(!eglInitialize(display, &major, nullptr) && major == -1, "eglInitialize fails");
    check(eglQueryString(display, EGL_EXTENSIONS) == nullptr, "eglQueryString gives null");
    check(eglDupNativeFenceFDANDROID(display, EGL_NO_SYNC_KHR) == EGL_NO_NATIVE_FENCE_FD_ANDROID,
          "eglDupNativeFenceFDANDROID gives no fd");
    glClear(GL_COLOR_BUFFER_BIT);  // must not crash
    check(glGetString(GL_VERSION) == nullptr, "glGetString gives null");
    check(glGetError() == GL_NO_ERROR, "glGetError gives GL_NO_ERROR");
    // Lookups still answer with the layer's own functions.
    check(eglGetProcAddress("glClear") == address(&glClear), "eglGetProcAddress still works");
    check(!zel::host::gpuAvailable(), "gpuAvailable is false");
    check(zel::host::gpuUnavailableReason().find("libzel-no-such-egl.so.1") != std::string::npos,
          "the reason names the library");
    fflush(stderr);
    _exit(failures == 0 ? 0 : 1);
}

TEST(GpuLayerWithoutDriver, EveryCallFailsWithItsErrorValueAndSaysWhyOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The single line on stderr, and no other complaint from the checks.
    EXPECT_EXIT(checkEverythingFailsCleanly(), testing::ExitedWithCode(0),
                "^zel-hostgpu: cannot load the EGL driver libzel-no-such-egl.so.1: [^\n]*; every "
                "EGL and GLES call will fail\n$");
}

TEST_F(GpuForwarding, AndroidAndSurfacelessDisplaysAreOneAndItsPbufferClearsExactly) {
    // The default and the Android display are the surfaceless one the layer selects.
    const EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    EXPECT_EQ(display,
              eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    EXPECT_EQ(display,
              eglGetPlatformDisplay(EGL_PLATFORM_ANDROID_KHR, EGL_DEFAULT_DISPLAY, nullptr));
    // clang-format off
    const EGLint configAttribs[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_SURFACE_TYPE,
                                    EGL_PBUFFER_BIT, EGL_RED_SIZE, 8, EGL_ALPHA_SIZE, 8, EGL_NONE};
    // clang-format on
    EGLConfig config = nullptr;
    EGLint count = 0;
    ASSERT_TRUE(eglChooseConfig(display, configAttribs, &config, 1, &count) && count == 1);
    const EGLint contextAttribs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_NONE};
    EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, contextAttribs);
    const EGLint surfaceAttribs[] = {EGL_WIDTH, 16, EGL_HEIGHT, 8, EGL_NONE};
    EGLSurface pbuffer = eglCreatePbufferSurface(display, config, surfaceAttribs);
    ASSERT_TRUE(eglMakeCurrent(display, pbuffer, pbuffer, context));
    const char* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(std::string(version).rfind("OpenGL ES 3.", 0), 0u) << version;

    // The pbuffer itself takes the clear; the colour is exact in 8 bits.
    const uint8_t colour[4] = {0x01, 0x80, 0xFF, 0xFF};
    glViewport(0, 0, 16, 8);
    clearTo(colour);
    EXPECT_EQ(countWrongPixels(16, 8, colour, colour, {0, 0, 0, 0}), 0);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    EXPECT_TRUE(eglDestroySurface(display, pbuffer));
    EXPECT_TRUE(eglDestroyContext(display, context));
}

}  // namespace
