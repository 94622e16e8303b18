// Driver profiles make the GPU layer play other phones' drivers; what each switch does is proven
// by the renderer bring-up, image and fence tests. Here: the ZEL_HOST_DRIVER syntax.
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl3.h>
#include <gtest/gtest.h>
#include <sync/sync.h>
#include <unistd.h>

#include <zel/host/Gpu.h>
#include <zel/host/Sync.h>

#include "EglContext.h"

namespace {

TEST(AndroidDriverProfile, SwitchesParseFromTheEnvironmentSyntax) {
    // Blanks around switches and empty switches are ignored; an unknown switch is named, and the
    // known ones after it still apply.
    zel::host::DriverProfile profile;
    std::string error;
    EXPECT_FALSE(zel::host::parseDriverProfile(
        " configs-es2 , gl-version=OpenGL ES 3.2 build 7,,-EGL_KHR_fence_sync,+EGL_X,bogus,"
        "fail-image",
        &profile, &error));
    EXPECT_EQ(error, "bogus");
    EXPECT_TRUE(profile.es2OnlyConfigs && profile.failImageCreation);
    EXPECT_EQ(profile.glVersion, "OpenGL ES 3.2 build 7");
    EXPECT_EQ(profile.removedEglExtensions, std::vector<std::string>{"EGL_KHR_fence_sync"});
    EXPECT_EQ(profile.addedEglExtensions, std::vector<std::string>{"EGL_X"});
    EXPECT_FALSE(profile.failAllContexts || profile.slowConfigs);

    // The fence delay takes whole milliseconds.
    EXPECT_TRUE(zel::host::parseDriverProfile("fence-delay=7", &profile));
    EXPECT_EQ(profile.fenceDelayMs, 7u);
    EXPECT_FALSE(zel::host::parseDriverProfile("fence-delay=5ms", &profile));
    EXPECT_FALSE(zel::host::parseDriverProfile("fence-delay=", &profile));

    // An unknown switch sets nothing.
    EXPECT_FALSE(zel::host::setDriverProfile("fail-fence,nonsense"));
    EXPECT_FALSE(zel::host::driverProfile().failFenceCreation);

    // ZEL_HOST_DRIVER is the profile to go back to.
    setenv("ZEL_HOST_DRIVER", "configs-slow,no-native-fence-sync", 1);
    zel::host::resetDriverProfile();
    EXPECT_TRUE(zel::host::driverProfile().slowConfigs);
    EXPECT_EQ(zel::host::driverProfile().removedEglExtensions,
              std::vector<std::string>{"EGL_ANDROID_native_fence_sync"});
    unsetenv("ZEL_HOST_DRIVER");
    zel::host::resetDriverProfile();
    EXPECT_FALSE(zel::host::driverProfile().slowConfigs);
}

// Native fences behave like a GPU's in every profile: pending when made, a descriptor only after a
// flush, signalled later by the layer, time-outs in nanoseconds, server waits that do not block.
TEST(AndroidDriverProfile, NativeFencesFollowTheGpuTimeline) {
    if (!zel::host::gpuAvailable()) {
        GTEST_SKIP() << zel::host::gpuUnavailableReason();
    }
    using Clock = std::chrono::steady_clock;
    constexpr auto kDelay = std::chrono::milliseconds(80);
    ASSERT_TRUE(zel::host::setDriverProfile("fence-delay=80"));
    {
        zel::test::EglContext context;
        ASSERT_TRUE(context.ok()) << context.failure();
        const EGLDisplay display = context.display();
        auto status = [display](EGLSyncKHR sync) {
            EGLint value = 0;
            eglGetSyncAttribKHR(display, sync, EGL_SYNC_STATUS_KHR, &value);
            return value;
        };

        EGLSyncKHR sync = eglCreateSyncKHR(display, EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
        ASSERT_NE(sync, EGL_NO_SYNC_KHR);
        EXPECT_EQ(status(sync), EGL_UNSIGNALED_KHR);
        // No descriptor before the flush.
        EXPECT_EQ(eglDupNativeFenceFDANDROID(display, sync), EGL_NO_NATIVE_FENCE_FD_ANDROID);
        EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
        glFlush();
        const Clock::time_point flushed = Clock::now();
        const int fd = eglDupNativeFenceFDANDROID(display, sync);
        ASSERT_GE(fd, 0);
        EXPECT_LT(sync_wait(fd, 0), 0);
        // A time-out of one millisecond, in nanoseconds, expires long before the GPU is done.
        EXPECT_EQ(eglClientWaitSyncKHR(display, sync, 0, 1000000), EGL_TIMEOUT_EXPIRED_KHR);
        EXPECT_LT(Clock::now() - flushed, kDelay);
        EXPECT_EQ(eglClientWaitSyncKHR(display, sync, 0, EGL_FOREVER_KHR),
                  EGL_CONDITION_SATISFIED_KHR);
        EXPECT_GE(Clock::now() - flushed, kDelay);
        EXPECT_EQ(sync_wait(fd, 0), 0);
        EXPECT_EQ(status(sync), EGL_SIGNALED_KHR);
        close(fd);
        eglDestroySyncKHR(display, sync);

        // A server wait returns at once; fences made after it wait for the awaited one.
        const int producer = zel::host::createFenceFd(false);
        const EGLint attributes[] = {EGL_SYNC_NATIVE_FENCE_FD_ANDROID, producer, EGL_NONE};
        EGLSyncKHR awaited = eglCreateSyncKHR(display, EGL_SYNC_NATIVE_FENCE_ANDROID, attributes);
        ASSERT_NE(awaited, EGL_NO_SYNC_KHR);
        const int producerCopy = eglDupNativeFenceFDANDROID(display, awaited);
        const Clock::time_point waited = Clock::now();
        EXPECT_EQ(eglWaitSyncKHR(display, awaited, 0), EGL_TRUE);
        EXPECT_LT(Clock::now() - waited, kDelay);
        sync = eglCreateSyncKHR(display, EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
        // The flush bit of a client wait flushes.
        EXPECT_EQ(eglClientWaitSyncKHR(display, sync, EGL_SYNC_FLUSH_COMMANDS_BIT_KHR, 0),
                  EGL_TIMEOUT_EXPIRED_KHR);
        const int later = eglDupNativeFenceFDANDROID(display, sync);
        ASSERT_GE(later, 0);
        EXPECT_LT(sync_wait(later, 2 * kDelay.count()), 0);
        zel::host::signalFenceFd(producerCopy);
        EXPECT_EQ(sync_wait(later, 10 * kDelay.count()), 0);
        close(later);
        close(producerCopy);
        eglDestroySyncKHR(display, sync);
        eglDestroySyncKHR(display, awaited);

        // glFinish returns with the fences it flushed signalled.
        sync = eglCreateSyncKHR(display, EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
        glFinish();
        EXPECT_EQ(status(sync), EGL_SIGNALED_KHR);
        eglDestroySyncKHR(display, sync);
    }
    zel::host::resetDriverProfile();
}

}  // namespace
