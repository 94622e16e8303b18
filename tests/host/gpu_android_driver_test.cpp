// Driver profiles make the GPU layer play other phones' drivers; what each switch does is proven
// by the renderer bring-up, image and fence tests. Here: the ZEL_HOST_DRIVER syntax.
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <zel/host/Gpu.h>

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

}  // namespace
