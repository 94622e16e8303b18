// The GPU layer itself: which functions it exports and hands out by name, the EGL error it
// reports, its counters, how it fails without a driver, and how it forwards EGL and GLES to Mesa
// (displays, pbuffers, contexts on several threads at once) with exact pixels.
#define EGL_EGLEXT_PROTOTYPES 1
#define GL_GLEXT_PROTOTYPES 1
#include <dlfcn.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
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
#include <zel/host/Sync.h>

#include "EglContext.h"
#include "GlDrawing.h"

namespace {

using Function = __eglMustCastToProperFunctionPointerType;

template <typename F>
Function address(F* function) {
    return reinterpret_cast<Function>(function);
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

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
};

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

// A sync made of a client's native fence: its time-outs are nanoseconds, and a wait ends when the
// fence signals. A time-out read in another unit waits far too long (and sees the signal) or
// not at all.
TEST_F(GpuLayer, ClientFenceSyncWaitsItsTimeOutInNanoseconds) {
    const int fd = zel::host::createFenceFd(false);
    ASSERT_GE(fd, 0);
    const EGLint attribs[] = {EGL_SYNC_NATIVE_FENCE_FD_ANDROID, fd, EGL_NONE};
    EGLSyncKHR sync = eglCreateSyncKHR(mDisplay, EGL_SYNC_NATIVE_FENCE_ANDROID, attribs);
    ASSERT_NE(sync, EGL_NO_SYNC_KHR);
    std::thread signaller([fd] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        zel::host::signalFenceFd(fd);
    });
    using Clock = std::chrono::steady_clock;
    const auto waitFor = [&](EGLTimeKHR timeout, double* seconds) {
        const Clock::time_point start = Clock::now();
        const EGLint result = eglClientWaitSyncKHR(mDisplay, sync, 0, timeout);
        *seconds = std::chrono::duration<double>(Clock::now() - start).count();
        return result;
    };
    double seconds = 0;
    EXPECT_EQ(waitFor(0, &seconds), EGL_TIMEOUT_EXPIRED_KHR);
    EXPECT_LT(seconds, 0.1);
    EXPECT_EQ(waitFor(200'000'000, &seconds), EGL_TIMEOUT_EXPIRED_KHR);  // 200 ms
    EXPECT_GE(seconds, 0.18);
    EXPECT_LT(seconds, 1.0);
    // A signal caught during the unbounded wait does not end it.
    struct sigaction quiet = {}, previous = {};
    quiet.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &quiet, &previous), 0);
    std::thread interrupter([waiter = pthread_self()] {
        std::this_thread::sleep_for(std::chrono::milliseconds(800));
        pthread_kill(waiter, SIGUSR1);
    });
    EXPECT_EQ(waitFor(EGL_FOREVER_KHR, &seconds), EGL_CONDITION_SATISFIED_KHR);
    interrupter.join();
    signaller.join();
    sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(waitFor(0, &seconds), EGL_CONDITION_SATISFIED_KHR);
    EXPECT_TRUE(eglDestroySyncKHR(mDisplay, sync));
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

}  // namespace
