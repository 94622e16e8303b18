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
#include "GlDrawing.h"
#include "PixelMatch.h"
#include "ReferenceConverter.h"

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
        auto attribute = [display](EGLSyncKHR sync, EGLint name) {
            EGLint value = 0;
            EXPECT_EQ(eglGetSyncAttribKHR(display, sync, name, &value), EGL_TRUE);
            return value;
        };
        auto status = [&](EGLSyncKHR sync) { return attribute(sync, EGL_SYNC_STATUS_KHR); };

        EGLSyncKHR sync = eglCreateSyncKHR(display, EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
        ASSERT_NE(sync, EGL_NO_SYNC_KHR);
        EXPECT_EQ(status(sync), EGL_UNSIGNALED_KHR);
        EXPECT_EQ(attribute(sync, EGL_SYNC_CONDITION_KHR), EGL_SYNC_PRIOR_COMMANDS_COMPLETE_KHR);
        // The core entry answers the same, and refuses nowhere to write the answer to.
        EGLAttrib wide = 0;
        EXPECT_EQ(eglGetSyncAttrib(display, sync, EGL_SYNC_TYPE_KHR, &wide), EGL_TRUE);
        EXPECT_EQ(wide, EGL_SYNC_NATIVE_FENCE_ANDROID);
        EXPECT_EQ(eglGetSyncAttrib(display, sync, EGL_SYNC_TYPE_KHR, nullptr), EGL_FALSE);
        EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
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
        // A sync made of the client's descriptor is satisfied by that fence, not by GPU work.
        EXPECT_EQ(attribute(awaited, EGL_SYNC_CONDITION_KHR),
                  EGL_SYNC_NATIVE_FENCE_SIGNALED_ANDROID);
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

        // Syncs of the driver's own kind pass through to it, through both entry points, and are
        // destroyed there once.
        for (const bool khr : {true, false}) {
            SCOPED_TRACE(khr ? "EGL_KHR_fence_sync" : "EGL 1.5");
            EGLSyncKHR fence = khr ? eglCreateSyncKHR(display, EGL_SYNC_FENCE_KHR, nullptr)
                                   : eglCreateSync(display, EGL_SYNC_FENCE, nullptr);
            ASSERT_NE(fence, EGL_NO_SYNC_KHR);
            glFinish();
            EXPECT_EQ(eglClientWaitSyncKHR(display, fence, 0, 0), EGL_CONDITION_SATISFIED_KHR);
            auto destroy = [&] {
                return khr ? eglDestroySyncKHR(display, fence) : eglDestroySync(display, fence);
            };
            EXPECT_EQ(destroy(), EGL_TRUE);
            EXPECT_EQ(eglGetError(), EGL_SUCCESS);
            EXPECT_EQ(destroy(), EGL_FALSE);
            EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
        }
    }
    zel::host::resetDriverProfile();
}

// What the phone-driver superset takes and the Khronos texts refuse, on both profiles.
TEST(AndroidDriverProfile, ConformantKeepsToTheKhronosTexts) {
    if (!zel::host::gpuAvailable()) {
        GTEST_SKIP() << zel::host::gpuUnavailableReason();
    }
    using namespace zel::test;
    for (const bool conformant : {false, true}) {
        SCOPED_TRACE(conformant ? "conformant" : "phone-driver superset");
        ASSERT_TRUE(zel::host::setDriverProfile(conformant ? "conformant" : ""));
        EglContext context;
        ASSERT_TRUE(context.ok()) << context.failure();
        const EGLDisplay display = context.display();
        const GLenum refused = conformant ? GL_INVALID_OPERATION : GL_NO_ERROR;

        // GL_EXT_YUV_target names three colour standards.
        Program beyond(libraryVertexShader(),
                       libraryFragmentShader(ShaderShape::RgbToYuv, "itu_2020"));
        EXPECT_EQ(beyond.error().empty(), !conformant);
        Program named(libraryVertexShader(),
                      libraryFragmentShader(ShaderShape::RgbToYuv, "itu_709"));
        EXPECT_TRUE(named.error().empty()) << named.error();

        // Shader rules the superset lets pass.
        auto replaced = [](std::string text, const std::string& from, const std::string& to) {
            return text.replace(text.find(from), from.size(), to);
        };
        const std::string toRgba = libraryFragmentShader(ShaderShape::ToRgba);
        const std::string rgbToYuv = libraryFragmentShader(ShaderShape::RgbToYuv, "itu_709");
        const std::string loose[] = {
            replaced(rgbToYuv, "layout(yuv)", "layout(location = 0, yuv)"),
            replaced(rgbToYuv, "itu_709", "2"),
            replaced(toRgba, "#extension GL_OES_EGL_image_external_essl3 : require\n", ""),
            replaced(toRgba, "texture(uTexture0, vTexCoords)",
                     "textureLod(uTexture0, vTexCoords, 0.0)"),
        };
        for (const std::string& fragment : loose) {
            Program program(libraryVertexShader(), fragment);
            EXPECT_EQ(program.error().empty(), !conformant) << fragment;
        }

        // External textures are render targets for YUV images only.
        android::sp<android::GraphicBuffer> rgba = makeTestBuffer(8, 8, 0x1);
        android::sp<android::GraphicBuffer> yuv = makeTestBuffer(8, 8, 0x23);
        ExternalImage rgbaImage(display, *rgba);
        ExternalImage yuvImage(display, *yuv);
        ASSERT_TRUE(rgbaImage.ok() && yuvImage.ok());
        GLuint framebuffer = 0;
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        while (glGetError() != GL_NO_ERROR) {
        }
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_EXTERNAL_OES,
                               rgbaImage.texture(), 0);
        EXPECT_EQ(glGetError(), refused);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glDeleteFramebuffers(1, &framebuffer);

        // A YUV sampler samples YUV images only: the draw is refused and writes nothing, not
        // even where it would have covered the CPU's contents.
        {
            const YuvImage written = encode(noise(8, 8, 3), {YuvStandard::Bt601, false}, 8);
            writePlanes(*yuv, written);
            {
                ImageFramebuffer target(yuvImage, 8, 8);
                Program raw(libraryVertexShader(), libraryFragmentShader(ShaderShape::YuvToYuv));
                ASSERT_TRUE(raw.error().empty()) << raw.error();
                rgbaImage.bind(GL_TEXTURE0);
                raw.use();
                Quad quad;
                while (glGetError() != GL_NO_ERROR) {
                }
                quad.draw();
                EXPECT_EQ(glGetError(), refused);
                glFinish();
            }
            if (conformant) {
                EXPECT_TRUE(planesMatch(readPlanes(*yuv), written, 0, 0));
            }
        }

        // Draw-time rules of YUV targets: only a yuv output goes there and it goes nowhere else,
        // without blending or a colour mask; a YUV target is never copied from.
        {
            android::sp<android::GraphicBuffer> plain = makeTestBuffer(8, 8, 0x1);
            ExternalImage plainImage(display, *plain);
            Program yuvOut(libraryVertexShader(),
                           replaced(rgbToYuv, "__samplerExternal2DY2YEXT", "samplerExternalOES"));
            Program plainOut(libraryVertexShader(), toRgba);
            ASSERT_TRUE(yuvOut.error().empty() && plainOut.error().empty());
            rgbaImage.bind(GL_TEXTURE0);
            Quad quad;
            auto drawError = [&](const Program& program, const ExternalImage& target,
                                 auto&& setUp) {
                ImageFramebuffer framebuffer(target, 8, 8);
                program.use();
                setUp();
                while (glGetError() != GL_NO_ERROR) {
                }
                quad.draw();
                const GLenum error = glGetError();
                glDisable(GL_BLEND);
                glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
                return error;
            };
            auto nothing = [] {};
            EXPECT_EQ(drawError(yuvOut, yuvImage, nothing), GL_NO_ERROR);
            EXPECT_EQ(drawError(plainOut, yuvImage, nothing), refused);
            GLuint plain2D = 0;
            glGenTextures(1, &plain2D);
            glBindTexture(GL_TEXTURE_2D, plain2D);
            const EGLImageKHR plainEgl =
                eglCreateImageKHR(display, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                                  static_cast<EGLClientBuffer>(plain->getNativeBuffer()), nullptr);
            glEGLImageTargetTexture2DOES(GL_TEXTURE_2D, static_cast<GLeglImageOES>(plainEgl));
            EXPECT_EQ(glGetError(), GL_NO_ERROR);
            GLuint target2D = 0;
            glGenFramebuffers(1, &target2D);
            glBindFramebuffer(GL_FRAMEBUFFER, target2D);
            glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, plain2D, 0);
            EXPECT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), GLenum(GL_FRAMEBUFFER_COMPLETE));
            yuvOut.use();
            quad.draw();
            EXPECT_EQ(glGetError(), refused);
            glBindFramebuffer(GL_FRAMEBUFFER, 0);
            glDeleteFramebuffers(1, &target2D);
            glDeleteTextures(1, &plain2D);
            eglDestroyImageKHR(display, plainEgl);
            EXPECT_EQ(drawError(yuvOut, yuvImage, [] { glEnable(GL_BLEND); }), refused);
            EXPECT_EQ(drawError(yuvOut, yuvImage,
                                [] { glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_TRUE); }),
                      refused);
            ImageFramebuffer source(yuvImage, 8, 8);
            GLuint copy = 0;
            glGenTextures(1, &copy);
            glBindTexture(GL_TEXTURE_2D, copy);
            glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, 8, 8);
            while (glGetError() != GL_NO_ERROR) {
            }
            glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, 8, 8);
            EXPECT_EQ(glGetError(), refused);
            glDeleteTextures(1, &copy);
        }

        // Attributes need their extensions advertised.
        const EGLint configAttributes[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT,
                                           EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        ASSERT_TRUE(eglChooseConfig(display, configAttributes, &config, 1, &count) && count == 1);
        const EGLint realtime[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_CONTEXT_PRIORITY_LEVEL_IMG,
                                   EGL_CONTEXT_PRIORITY_REALTIME_NV, EGL_NONE};
        const EGLContext realtimeContext =
            eglCreateContext(display, config, EGL_NO_CONTEXT, realtime);
        EXPECT_EQ(realtimeContext == EGL_NO_CONTEXT, conformant);
        EXPECT_EQ(eglGetError(), conformant ? EGL_BAD_ATTRIBUTE : EGL_SUCCESS);
        eglDestroyContext(display, realtimeContext);
        const EGLint protectedPbuffer[] = {
            EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_PROTECTED_CONTENT_EXT, EGL_TRUE, EGL_NONE};
        const EGLSurface surface = eglCreatePbufferSurface(display, config, protectedPbuffer);
        EXPECT_EQ(surface == EGL_NO_SURFACE, conformant);
        EXPECT_EQ(eglGetError(), conformant ? EGL_BAD_ATTRIBUTE : EGL_SUCCESS);
        eglDestroySurface(display, surface);
        const EGLint protectedImage[] = {EGL_PROTECTED_CONTENT_EXT, EGL_TRUE, EGL_NONE};
        const EGLImageKHR image = eglCreateImageKHR(
            display, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
            static_cast<EGLClientBuffer>(rgba->getNativeBuffer()), protectedImage);
        EXPECT_EQ(image == EGL_NO_IMAGE_KHR, conformant);
        EXPECT_EQ(eglGetError(), conformant ? EGL_BAD_ACCESS : EGL_SUCCESS);
        eglDestroyImageKHR(display, image);
    }
    zel::host::resetDriverProfile();
}

}  // namespace
