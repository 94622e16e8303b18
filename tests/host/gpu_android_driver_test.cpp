// The GPU layer presents itself as an Android driver: its extension string, the Android config and
// context attributes, reference-counted initialisation, and the driver profiles that make it play
// other drivers (set in code or through ZEL_HOST_DRIVER).
#define EGL_EGLEXT_PROTOTYPES 1
#define GL_GLEXT_PROTOTYPES 1
#include <cstdlib>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl32.h>
#include <gtest/gtest.h>

#include <hardware/gralloc.h>
#include <ui/GraphicBuffer.h>
#include <zel/host/Gpu.h>

namespace {

std::set<std::string> words(const char* text) {
    std::istringstream stream(text != nullptr ? text : "");
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

// The configs eglChooseConfig returns for `attribs`, in its order.
std::vector<EGLConfig> choose(EGLDisplay display, const EGLint* attribs) {
    EGLint count = 0;
    EXPECT_TRUE(eglGetConfigs(display, nullptr, 0, &count));
    std::vector<EGLConfig> configs(static_cast<size_t>(count));
    EXPECT_TRUE(eglChooseConfig(display, attribs, configs.data(), count, &count));
    configs.resize(static_cast<size_t>(count));
    return configs;
}

EGLint attribute(EGLDisplay display, EGLConfig config, EGLint name) {
    EGLint value = -1;
    EXPECT_TRUE(eglGetConfigAttrib(display, config, name, &value)) << std::hex << name;
    return value;
}

// What the library asks for: an RGBA8888 config for a renderable type, recordable, usable for
// windows and pbuffers, and a framebuffer target.
std::vector<EGLConfig> chooseAndroidConfigs(EGLDisplay display, EGLint renderableType) {
    // clang-format off
    const EGLint attribs[] = {EGL_RENDERABLE_TYPE, renderableType, EGL_RECORDABLE_ANDROID, 1,
                              EGL_SURFACE_TYPE, EGL_WINDOW_BIT | EGL_PBUFFER_BIT,
                              EGL_FRAMEBUFFER_TARGET_ANDROID, 1, EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8,
                              EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE, 8, EGL_NONE};
    // clang-format on
    return choose(display, attribs);
}

EGLContext createContext(EGLDisplay display, EGLConfig config, std::vector<EGLint> attribs) {
    attribs.push_back(EGL_NONE);
    return eglCreateContext(display, config, EGL_NO_CONTEXT, attribs.data());
}

class AndroidDriver : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
        mDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    }

    // Initialises the display with `switches` as the driver profile.
    void bringUp(const std::string& switches) {
        ASSERT_TRUE(zel::host::setDriverProfile(switches)) << switches;
        ASSERT_TRUE(eglInitialize(mDisplay, nullptr, nullptr));
    }

    // A new ES 3 context, current without a surface.
    void makeCurrent() {
        EGLContext context =
            createContext(mDisplay, EGL_NO_CONFIG_KHR, {EGL_CONTEXT_CLIENT_VERSION, 3});
        ASSERT_TRUE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, context));
    }

    // Terminates the display for good, whatever the number of initialisations.
    void terminateFully() {
        eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        while (eglQueryString(mDisplay, EGL_VENDOR) != nullptr) {
            ASSERT_TRUE(eglTerminate(mDisplay));
        }
    }

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
};

TEST_F(AndroidDriver, FullDriverAdvertisesAndAnswersTheAndroidAttributes) {
    bringUp("");
    const char* extensions = eglQueryString(mDisplay, EGL_EXTENSIONS);
    const std::set<std::string> names = words(extensions);
    for (const char* name :
         {"EGL_ANDROID_image_native_buffer", "EGL_ANDROID_native_fence_sync",
          "EGL_ANDROID_image_crop", "EGL_ANDROID_recordable", "EGL_ANDROID_framebuffer_target",
          "EGL_IMG_context_priority", "EGL_EXT_protected_content",
          // The driver's own.
          "EGL_KHR_image_base", "EGL_KHR_fence_sync", "EGL_KHR_surfaceless_context",
          "EGL_KHR_no_config_context"}) {
        EXPECT_EQ(names.count(name), 1u) << name;
    }
    EXPECT_EQ(std::string(extensions).find("EGL_ANDROID_native_fence_sync"),
              std::string(extensions).rfind("EGL_ANDROID_native_fence_sync"));
    // The same string, at the same address, every time.
    EXPECT_EQ(eglQueryString(mDisplay, EGL_EXTENSIONS), extensions);

    // The library's first choice exists and is an RGBA8888 window config.
    std::vector<EGLConfig> configs = chooseAndroidConfigs(mDisplay, EGL_OPENGL_ES3_BIT);
    ASSERT_FALSE(configs.empty());
    for (EGLConfig config : configs) {
        EXPECT_EQ(attribute(mDisplay, config, EGL_NATIVE_VISUAL_ID), HAL_PIXEL_FORMAT_RGBA_8888);
        EXPECT_EQ(attribute(mDisplay, config, EGL_RECORDABLE_ANDROID), EGL_TRUE);
        EXPECT_EQ(attribute(mDisplay, config, EGL_FRAMEBUFFER_TARGET_ANDROID), EGL_TRUE);
        EXPECT_NE(attribute(mDisplay, config, EGL_SURFACE_TYPE) & EGL_WINDOW_BIT, 0);
        EXPECT_NE(attribute(mDisplay, config, EGL_RENDERABLE_TYPE) & EGL_OPENGL_ES3_BIT, 0);
        EXPECT_EQ(attribute(mDisplay, config, EGL_CONFIG_CAVEAT), EGL_NONE);
    }
    // EGL's default criteria (no list) ask for window configs: there are some, and among them
    // the library's fallback finds native visual 1.
    size_t rgba = 0;
    for (EGLConfig config : choose(mDisplay, nullptr)) {
        rgba += attribute(mDisplay, config, EGL_NATIVE_VISUAL_ID) == HAL_PIXEL_FORMAT_RGBA_8888;
    }
    EXPECT_GT(rgba, 0u);
    // Selection by native visual and recordable goes both ways.
    const EGLint visual565[] = {EGL_NATIVE_VISUAL_ID, HAL_PIXEL_FORMAT_RGB_565, EGL_SURFACE_TYPE,
                                EGL_PBUFFER_BIT, EGL_NONE};
    for (EGLConfig config : choose(mDisplay, visual565)) {
        EXPECT_EQ(attribute(mDisplay, config, EGL_RED_SIZE), 5);
    }
    const EGLint notRecordable[] = {EGL_RECORDABLE_ANDROID, EGL_FALSE, EGL_SURFACE_TYPE,
                                    EGL_PBUFFER_BIT, EGL_NONE};
    for (EGLConfig config : choose(mDisplay, notRecordable)) {
        EXPECT_EQ(attribute(mDisplay, config, EGL_NATIVE_VISUAL_ID), 0);
    }
    // A count-only query and a short array agree with the full answer.
    EGLint count = 0;
    const EGLint es3[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_NONE};
    EXPECT_TRUE(eglChooseConfig(mDisplay, es3, nullptr, 0, &count));
    EXPECT_EQ(static_cast<size_t>(count), choose(mDisplay, es3).size());
    EGLConfig one = nullptr;
    EXPECT_TRUE(eglChooseConfig(mDisplay, es3, &one, 1, &count));
    EXPECT_EQ(count, 1);
    // Invalid configs are the driver's business.
    EGLint value = 0;
    EXPECT_FALSE(eglGetConfigAttrib(mDisplay, reinterpret_cast<EGLConfig>(0x1234),
                                    EGL_RECORDABLE_ANDROID, &value));
    EXPECT_EQ(eglGetError(), EGL_BAD_CONFIG);
    terminateFully();
}

TEST_F(AndroidDriver, TerminateCountsInitializationsAsOnAndroid) {
    bringUp("");
    ASSERT_TRUE(eglInitialize(mDisplay, nullptr, nullptr));
    EGLContext context =
        createContext(mDisplay, EGL_NO_CONFIG_KHR, {EGL_CONTEXT_CLIENT_VERSION, 3});
    ASSERT_NE(context, EGL_NO_CONTEXT);
    const uint64_t alive = zel::host::gpuCounters().contextsAlive;

    // Two initialisations, one termination: the display stays up with its context.
    EXPECT_TRUE(eglTerminate(mDisplay));
    EXPECT_NE(eglQueryString(mDisplay, EGL_VENDOR), nullptr);
    EXPECT_TRUE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, context));
    EXPECT_EQ(zel::host::gpuCounters().contextsAlive, alive);
    EXPECT_TRUE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT));

    // The second one terminates it, and its contexts with it.
    EXPECT_TRUE(eglTerminate(mDisplay));
    EXPECT_EQ(eglQueryString(mDisplay, EGL_VENDOR), nullptr);
    EXPECT_EQ(eglGetError(), EGL_NOT_INITIALIZED);
    EXPECT_EQ(zel::host::gpuCounters().contextsAlive, alive - 1);
    // Terminating a terminated display succeeds and changes nothing.
    EXPECT_TRUE(eglTerminate(mDisplay));
    EXPECT_TRUE(eglInitialize(mDisplay, nullptr, nullptr));
    EXPECT_NE(eglQueryString(mDisplay, EGL_VENDOR), nullptr);
    terminateFully();
}

TEST_F(AndroidDriver, ConfigProfilesHideEs3AndroidAttributesOrSpeed) {
    // ES 2 only: the library's ES 3 choice finds nothing, its ES 2 choice does, and such a config
    // refuses an ES 3 context.
    bringUp("configs-es2");
    EXPECT_TRUE(chooseAndroidConfigs(mDisplay, EGL_OPENGL_ES3_BIT).empty());
    std::vector<EGLConfig> es2 = chooseAndroidConfigs(mDisplay, EGL_OPENGL_ES2_BIT);
    ASSERT_FALSE(es2.empty());
    EXPECT_EQ(attribute(mDisplay, es2[0], EGL_RENDERABLE_TYPE) & EGL_OPENGL_ES3_BIT, 0);
    EXPECT_EQ(createContext(mDisplay, es2[0], {EGL_CONTEXT_CLIENT_VERSION, 3}), EGL_NO_CONTEXT);
    EXPECT_EQ(eglGetError(), EGL_BAD_MATCH);
    EXPECT_NE(createContext(mDisplay, es2[0], {EGL_CONTEXT_CLIENT_VERSION, 2}), EGL_NO_CONTEXT);
    terminateFully();

    // No Android attributes: neither renderable type matches; the fallback by visual still does.
    bringUp("configs-no-android");
    EXPECT_TRUE(chooseAndroidConfigs(mDisplay, EGL_OPENGL_ES3_BIT).empty());
    EXPECT_TRUE(chooseAndroidConfigs(mDisplay, EGL_OPENGL_ES2_BIT).empty());
    bool visualFound = false;
    for (EGLConfig config : choose(mDisplay, nullptr)) {
        visualFound |=
            attribute(mDisplay, config, EGL_NATIVE_VISUAL_ID) == HAL_PIXEL_FORMAT_RGBA_8888;
        EXPECT_EQ(attribute(mDisplay, config, EGL_RECORDABLE_ANDROID), EGL_FALSE);
    }
    EXPECT_TRUE(visualFound);
    terminateFully();

    // Slow configs are still chosen, and say so.
    bringUp("configs-slow");
    std::vector<EGLConfig> slow = chooseAndroidConfigs(mDisplay, EGL_OPENGL_ES3_BIT);
    ASSERT_FALSE(slow.empty());
    EXPECT_EQ(attribute(mDisplay, slow[0], EGL_CONFIG_CAVEAT), EGL_SLOW_CONFIG);
    terminateFully();
}

TEST_F(AndroidDriver, ContextProfilesFailCreationOrMakeCurrentAndOverrideTheVersion) {
    // A driver that refuses ES 3 contexts: the library's retry with version 2 works.
    bringUp("fail-es3-context");
    EXPECT_EQ(createContext(mDisplay, EGL_NO_CONFIG_KHR, {EGL_CONTEXT_CLIENT_VERSION, 3}),
              EGL_NO_CONTEXT);
    EXPECT_EQ(eglGetError(), EGL_BAD_MATCH);
    EGLContext es2 = createContext(mDisplay, EGL_NO_CONFIG_KHR, {EGL_CONTEXT_CLIENT_VERSION, 2});
    EXPECT_NE(es2, EGL_NO_CONTEXT);

    // Contexts take the profile in force when they are created.
    ASSERT_TRUE(zel::host::setDriverProfile("gl-version=OpenGL ES 2.0 Zel,fail-make-current"));
    EGLContext overridden =
        createContext(mDisplay, EGL_NO_CONFIG_KHR, {EGL_CONTEXT_CLIENT_VERSION, 3});
    ASSERT_NE(overridden, EGL_NO_CONTEXT);
    EXPECT_FALSE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, overridden));
    EXPECT_EQ(eglGetError(), EGL_BAD_ALLOC);
    ASSERT_TRUE(eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, es2));
    const std::string driverVersion = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    EXPECT_EQ(driverVersion.rfind("OpenGL ES 3.", 0), 0u) << driverVersion;

    ASSERT_TRUE(zel::host::setDriverProfile("gl-version=OpenGL ES 2.0 Zel"));
    makeCurrent();
    EXPECT_STREQ(reinterpret_cast<const char*>(glGetString(GL_VERSION)), "OpenGL ES 2.0 Zel");
    EXPECT_NE(glGetString(GL_RENDERER), nullptr);

    ASSERT_TRUE(zel::host::setDriverProfile("fail-context"));
    EXPECT_EQ(createContext(mDisplay, EGL_NO_CONFIG_KHR, {EGL_CONTEXT_CLIENT_VERSION, 2}),
              EGL_NO_CONTEXT);
    EXPECT_EQ(eglGetError(), EGL_BAD_ALLOC);
    terminateFully();
}

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
