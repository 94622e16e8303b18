// Extension strings split into names, and the process-wide flags they set.
#include <cstdlib>

#include <gtest/gtest.h>

#include "ExtensionSet.h"
#include "Extensions.h"
#include "ExtensionsTestAccess.h"

namespace kav {
namespace zel {
namespace gl {
namespace {

TEST(ExtensionSet, OnlyTheSpaceSeparatesWholeNames) {
    const ExtensionSet set(" EGL_KHR_fence_sync  EGL_KHR_wait_sync ");
    EXPECT_EQ(set.size(), 2u);
    EXPECT_TRUE(set.hasExtension("EGL_KHR_fence_sync"));
    EXPECT_TRUE(set.hasExtension("EGL_KHR_wait_sync"));
    EXPECT_FALSE(set.hasExtension("EGL_KHR_fence"));
    EXPECT_FALSE(set.hasExtension("egl_khr_fence_sync"));
    EXPECT_FALSE(set.hasExtension(""));

    // Tabs and newlines belong to the name; repeats count once.
    const ExtensionSet odd("A\tB C\nD C A\tB");
    EXPECT_EQ(odd.size(), 3u);
    EXPECT_TRUE(odd.hasExtension("A\tB"));
    EXPECT_TRUE(odd.hasExtension("C\nD"));
    EXPECT_TRUE(odd.hasExtension("C"));
    EXPECT_FALSE(odd.hasExtension("A"));
    EXPECT_FALSE(odd.hasExtension("D"));

    EXPECT_EQ(ExtensionSet("").size(), 0u);
    EXPECT_EQ(ExtensionSet(nullptr).size(), 0u);
}

// Every case starts from the empty registry of a fresh process.
class ExtensionRegistry : public ::testing::Test {
protected:
    void SetUp() override { ExtensionsTestAccess::reset(); }
};

TEST_F(ExtensionRegistry, EglFlagsAreTheUnionOfEveryDisplay) {
    Extensions& extensions = Extensions::getInstance();
    EXPECT_TRUE(Extensions::hasInstance());
    EXPECT_FALSE(extensions.hasSurfacelessContext());
    // Reset forgets the strings too (earlier renderers of this process registered theirs).
    EXPECT_STREQ(extensions.getEGLVersion().c_str(), "");
    EXPECT_STREQ(extensions.getVersion().c_str(), "");

    extensions.initWithEGLStrings(
        "1.4 first", "EGL_KHR_surfaceless_context EGL_KHR_no_config_context EGL_KHR_fence_sync");
    EXPECT_TRUE(extensions.hasSurfacelessContext());
    EXPECT_TRUE(extensions.hasNoConfigContext());
    // What the string does not name starts and stays off.
    for (bool flag : {extensions.hasNativeFenceSync(), extensions.hasWaitSync(),
                      extensions.hasProtectedContent(), extensions.hasContextPriority(),
                      extensions.hasRealtimePriority(), extensions.hasImageCrop()}) {
        EXPECT_FALSE(flag);
    }

    extensions.initWithEGLStrings("1.5 second",
                                  "EGL_ANDROID_native_fence_sync EGL_ANDROID_image_crop");
    // The second display lacks surfaceless contexts, but flags are never cleared.
    EXPECT_TRUE(extensions.hasSurfacelessContext());
    EXPECT_TRUE(extensions.hasNoConfigContext());
    EXPECT_TRUE(extensions.hasFenceSync());
    EXPECT_TRUE(extensions.hasNativeFenceSync());
    EXPECT_TRUE(extensions.hasImageCrop());
    EXPECT_FALSE(extensions.hasWaitSync());
    // Strings describe the latest display.
    EXPECT_STREQ(extensions.getEGLVersion().c_str(), "1.5 second");
    EXPECT_STREQ(extensions.getEGLExtensions().c_str(),
                 "EGL_ANDROID_native_fence_sync EGL_ANDROID_image_crop");
}

// Before any display is registered, in a process of its own (the tests above start from a
// cleared registry, which says nothing of how a process starts).
TEST(ExtensionRegistryDeathTest, AFreshProcessStartsWithEveryFlagOff) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const Extensions& e = Extensions::getInstance();
            const bool any =
                e.hasProtectedTexture() || e.hasOESFramebuffer() || e.hasOESTexture() ||
                e.hasOESTextureESSL3() || e.hasYUVTarget() || e.hasChipCullDistance() ||
                e.hasNoConfigContext() || e.hasNativeFenceSync() || e.hasFenceSync() ||
                e.hasWaitSync() || e.hasProtectedContent() || e.hasContextPriority() ||
                e.hasSurfacelessContext() || e.hasRealtimePriority() || e.hasImageCrop();
            std::exit(any ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ExtensionRegistry, EitherNoConfigNameCounts) {
    Extensions::getInstance().initWithEGLStrings("1.5", "EGL_ANDROIDX_no_config_context");
    EXPECT_TRUE(Extensions::getInstance().hasNoConfigContext());
}

TEST_F(ExtensionRegistry, GlFlagsComeFromTheGlString) {
    Extensions& extensions = Extensions::getInstance();
    const auto text = [](const char* s) { return reinterpret_cast<const GLubyte*>(s); };
    extensions.initWithGLStrings(
        text("Vendor"), text("Renderer"), text("OpenGL ES 3.2"),
        text("GL_OES_EGL_image GL_OES_EGL_image_external_essl3 GL_EXT_YUV_target"));
    EXPECT_TRUE(extensions.hasOESFramebuffer());
    EXPECT_TRUE(extensions.hasOESTextureESSL3());
    EXPECT_TRUE(extensions.hasYUVTarget());
    // "GL_OES_EGL_image_external" is a different name from its essl3 variant.
    EXPECT_FALSE(extensions.hasOESTexture());
    EXPECT_FALSE(extensions.hasChipCullDistance());
    EXPECT_STREQ(extensions.getVersion().c_str(), "OpenGL ES 3.2");
    EXPECT_STREQ(extensions.getVendor().c_str(), "Vendor");
}

}  // namespace
}  // namespace gl
}  // namespace zel
}  // namespace kav
