// The GPU layer itself: which functions it exports and hands out by name, which display it
// selects, the EGL error it reports, its counters, and how it fails without a driver.
#define EGL_EGLEXT_PROTOTYPES 1
#define GL_GLEXT_PROTOTYPES 1
#include <dlfcn.h>

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

namespace {

using Function = __eglMustCastToProperFunctionPointerType;

template <typename F>
Function address(F* function) {
    return reinterpret_cast<Function>(function);
}

// The names of host/gpu/exported.list; empty when the source tree is unknown.
std::vector<std::string> exportedList() {
    std::vector<std::string> names;
    const char* sourceDir = getenv("ZEL_TEST_SOURCE_DIR");
    if (sourceDir == nullptr) {
        return names;
    }
    std::ifstream list(std::string(sourceDir) + "/host/gpu/exported.list");
    std::string line;
    while (std::getline(list, line)) {
        line = line.substr(0, line.find('#'));
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (!line.empty()) {
            names.push_back(line);
        }
    }
    return names;
}

class GpuLayer : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
        mDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        ASSERT_TRUE(eglInitialize(mDisplay, nullptr, nullptr));
    }

    EGLContext createContext() {
        const EGLint attribs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_NONE};
        return eglCreateContext(mDisplay, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attribs);
    }

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
};

TEST_F(GpuLayer, ProcAddressHandsOutOnlyTheLayersOwnFunctions) {
    EXPECT_EQ(eglGetProcAddress("glDrawArrays"), address(&glDrawArrays));
    EXPECT_EQ(eglGetProcAddress("eglCreateImageKHR"), address(&eglCreateImageKHR));
    EXPECT_EQ(eglGetProcAddress("glEGLImageTargetTexture2DOES"),
              address(&glEGLImageTargetTexture2DOES));
    EXPECT_EQ(eglGetProcAddress("eglGetProcAddress"), address(&eglGetProcAddress));
    // First and last names of the sorted table, and near misses around real names.
    EXPECT_EQ(eglGetProcAddress("eglBindAPI"), address(&eglBindAPI));
    EXPECT_EQ(eglGetProcAddress("glViewport"), address(&glViewport));
    EXPECT_EQ(eglGetProcAddress("glZelMadeUpFunction"), nullptr);
    EXPECT_EQ(eglGetProcAddress("glDrawArray"), nullptr);
    EXPECT_EQ(eglGetProcAddress("glDrawArraysX"), nullptr);
    EXPECT_EQ(eglGetProcAddress("gldrawarrays"), nullptr);
    EXPECT_EQ(eglGetProcAddress(""), nullptr);
    EXPECT_EQ(eglGetProcAddress(nullptr), nullptr);
    // The driver has these, but handing them out would bypass the layer.
    EXPECT_EQ(eglGetProcAddress("glEGLImageTargetTexStorageEXT"), nullptr);
    EXPECT_EQ(eglGetProcAddress("eglQueryDmaBufFormatsEXT"), nullptr);
}

TEST_F(GpuLayer, EveryListedFunctionResolvesToTheLayerWithTheDriverLoaded) {
    const std::vector<std::string> names = exportedList();
    if (names.empty()) {
        GTEST_SKIP() << "ZEL_TEST_SOURCE_DIR is not set: run through ctest";
    }
    // Mesa and glvnd are loaded by now; none of their symbols may shadow ours.
    void* driver = dlopen("libEGL.so.1", RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(driver, nullptr) << "the driver is not loaded";
    if (driver != nullptr) {
        dlclose(driver);
    }
    Dl_info layer = {};
    ASSERT_TRUE(dladdr(reinterpret_cast<void*>(&eglGetProcAddress), &layer));
    ASSERT_NE(strstr(layer.dli_fname, "libzel_hostgpu.so"), nullptr) << layer.dli_fname;

    int wrong = 0;
    for (const std::string& name : names) {
        void* symbol = dlsym(RTLD_DEFAULT, name.c_str());
        Dl_info info = {};
        const bool inLayer =
            symbol != nullptr && dladdr(symbol, &info) != 0 && info.dli_fbase == layer.dli_fbase;
        const bool handedOut =
            eglGetProcAddress(name.c_str()) == reinterpret_cast<Function>(symbol);
        if (!inLayer || !handedOut) {
            ADD_FAILURE() << name << (inLayer ? "" : " does not resolve into the layer")
                          << (handedOut ? "" : " is not what eglGetProcAddress answers");
            ++wrong;
        }
    }
    EXPECT_EQ(wrong, 0) << "of " << names.size();
}

TEST_F(GpuLayer, DefaultAndAndroidDisplaysAreTheSurfacelessOne) {
    const EGLDisplay surfaceless =
        eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    ASSERT_NE(surfaceless, EGL_NO_DISPLAY);
    EXPECT_EQ(mDisplay, surfaceless);
    EXPECT_EQ(eglGetDisplay(EGL_DEFAULT_DISPLAY), surfaceless);
    EXPECT_EQ(eglGetPlatformDisplay(EGL_PLATFORM_ANDROID_KHR, EGL_DEFAULT_DISPLAY, nullptr),
              surfaceless);
    EXPECT_EQ(eglGetPlatformDisplayEXT(EGL_PLATFORM_ANDROID_KHR, EGL_DEFAULT_DISPLAY, nullptr),
              surfaceless);
    EXPECT_EQ(eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr),
              surfaceless);
    // The display is Mesa's: its strings come straight from the driver.
    const char* vendor = eglQueryString(mDisplay, EGL_VENDOR);
    ASSERT_NE(vendor, nullptr);
    EXPECT_NE(std::string(vendor).find("Mesa"), std::string::npos) << vendor;
}

TEST_F(GpuLayer, EglErrorComesFromTheLastCallWhetherLayerOrDriver) {
    const auto notADisplay = reinterpret_cast<EGLNativeDisplayType>(0x1234);
    const auto bogusDisplay = reinterpret_cast<EGLDisplay>(0xBAD0);

    // Raised by the layer: reported once.
    EXPECT_EQ(eglGetDisplay(notADisplay), EGL_NO_DISPLAY);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    EXPECT_EQ(eglGetError(), EGL_SUCCESS);

    // Raised by the driver.
    EXPECT_FALSE(eglInitialize(bogusDisplay, nullptr, nullptr));
    EXPECT_EQ(eglGetError(), EGL_BAD_DISPLAY);
    EXPECT_EQ(eglGetError(), EGL_SUCCESS);

    // A later successful call hides the layer's error ...
    EXPECT_EQ(eglGetDisplay(notADisplay), EGL_NO_DISPLAY);
    EXPECT_NE(eglQueryString(mDisplay, EGL_VERSION), nullptr);
    EXPECT_EQ(eglGetError(), EGL_SUCCESS);

    // ... and a later layer error hides the driver's, which does not come back afterwards.
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

TEST_F(GpuLayer, CountersFollowContextsAndDisplays) {
    using zel::host::gpuCounters;
    const zel::host::GpuCounters start = gpuCounters();
    EXPECT_GE(start.displaysInitialized, 1u);  // SetUp's

    EXPECT_TRUE(eglInitialize(mDisplay, nullptr, nullptr));
    EXPECT_EQ(gpuCounters().displaysInitialized, start.displaysInitialized + 1);

    EGLContext contexts[3];
    for (EGLContext& context : contexts) {
        context = createContext();
        ASSERT_NE(context, EGL_NO_CONTEXT);
    }
    // A context the driver refuses is not counted.
    const EGLint impossible[] = {EGL_CONTEXT_MAJOR_VERSION, 9, EGL_NONE};
    EXPECT_EQ(eglCreateContext(mDisplay, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, impossible),
              EGL_NO_CONTEXT);
    EXPECT_EQ(gpuCounters().contextsCreated, start.contextsCreated + 3);
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive + 3);

    // Destroyed once, counted once; a current context counts until destroyed.
    EXPECT_TRUE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, contexts[0]));
    EXPECT_TRUE(eglDestroyContext(mDisplay, contexts[1]));
    EXPECT_FALSE(eglDestroyContext(mDisplay, contexts[1]));
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive + 2);

    // Resetting clears what was counted, not what is alive.
    zel::host::resetGpuCounters();
    EXPECT_EQ(gpuCounters().contextsCreated, 0u);
    EXPECT_EQ(gpuCounters().displaysInitialized, 0u);
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive + 2);

    EXPECT_TRUE(eglDestroyContext(mDisplay, contexts[2]));
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive + 1);
    // Terminating releases the rest, the current one included.
    EXPECT_TRUE(eglTerminate(mDisplay));
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive);
    EXPECT_TRUE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT));
    EXPECT_EQ(gpuCounters().contextsAlive, start.contextsAlive);
    EXPECT_EQ(gpuCounters().contextsCreated, 0u);
}

// Every check runs in a fresh process (a death test), where the driver has not been loaded yet.
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
    check(eglGetError() == EGL_SUCCESS, "the error is reported once");
    EGLint major = -1;
    check(!eglInitialize(display, &major, nullptr) && major == -1, "eglInitialize fails");
    check(eglCreateContext(display, nullptr, EGL_NO_CONTEXT, nullptr) == EGL_NO_CONTEXT,
          "eglCreateContext fails");
    check(eglQueryString(display, EGL_EXTENSIONS) == nullptr, "eglQueryString gives null");
    check(eglGetCurrentContext() == EGL_NO_CONTEXT, "no current context");
    check(eglCreateSyncKHR(display, EGL_SYNC_FENCE_KHR, nullptr) == EGL_NO_SYNC_KHR,
          "eglCreateSyncKHR fails");
    check(eglDupNativeFenceFDANDROID(display, EGL_NO_SYNC_KHR) == EGL_NO_NATIVE_FENCE_FD_ANDROID,
          "eglDupNativeFenceFDANDROID gives no fd");
    check(eglTerminate(display) == EGL_FALSE, "eglTerminate fails");

    glClearColor(1.0f, 0.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    check(glGetString(GL_VERSION) == nullptr, "glGetString gives null");
    check(glGetError() == GL_NO_ERROR, "glGetError gives GL_NO_ERROR");
    check(glGetUniformLocation(0, "u") == -1, "glGetUniformLocation gives -1");
    check(glCreateShader(GL_VERTEX_SHADER) == 0, "glCreateShader gives 0");
    check(glClientWaitSync(nullptr, 0, 0) == GL_WAIT_FAILED, "glClientWaitSync fails");

    // Lookups still answer with the layer's own functions.
    check(eglGetProcAddress("glClear") == address(&glClear), "eglGetProcAddress still works");
    check(!zel::host::gpuAvailable(), "gpuAvailable is false");
    check(zel::host::gpuUnavailableReason().find("libzel-no-such-egl.so.1") != std::string::npos,
          "the reason names the library");
    check(zel::host::gpuCounters().contextsCreated == 0, "nothing counted");
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

}  // namespace
