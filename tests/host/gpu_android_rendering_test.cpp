// The GPU layer as an Android driver draws with graphic buffers: EGLImages of host buffers sampled
// through samplerExternalOES and rendered into through external textures, with buffer memory as
// the truth (uploads when the CPU changed it, write-back at flush and native fence creation), and
// native fence descriptors that are ready once memory holds the pixels.
#define EGL_EGLEXT_PROTOTYPES 1
#define GL_GLEXT_PROTOTYPES 1
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl32.h>
#include <GLES2/gl2ext.h>
#include <gtest/gtest.h>

#include <hardware/gralloc.h>
#include <ui/GraphicBuffer.h>
#include <zel/host/Gpu.h>
#include <zel/host/Gralloc.h>
#include <zel/host/Sync.h>

using android::GraphicBuffer;
using android::sp;

namespace {

using Pixel = std::array<uint8_t, 4>;  // R, G, B, A as stored

constexpr uint64_t kUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN |
                            GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER;

#ifndef EGL_IMAGE_CROP_LEFT_ANDROID
#define EGL_IMAGE_CROP_LEFT_ANDROID 0x3148
#define EGL_IMAGE_CROP_TOP_ANDROID 0x3149
#define EGL_IMAGE_CROP_RIGHT_ANDROID 0x314A
#define EGL_IMAGE_CROP_BOTTOM_ANDROID 0x314B
#endif

// A non-uniform pattern: every channel changes along both axes, no two neighbours are equal.
Pixel pattern(int x, int y) {
    return {static_cast<uint8_t>(x * 13 + y * 7 + 1), static_cast<uint8_t>(y * 29 + x * 3 + 50),
            static_cast<uint8_t>((x * y) ^ 0x5A), static_cast<uint8_t>(255 - x - 2 * y)};
}

constexpr Pixel kPoison = {0xDE, 0xAD, 0xBE, 0xEF};

sp<GraphicBuffer> allocate(int width, int height, uint64_t usage = kUsage) {
    sp<GraphicBuffer> buffer =
        new GraphicBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888, 1, usage, "gpu-test");
    EXPECT_EQ(buffer->initCheck(), android::NO_ERROR);
    return buffer;
}

void fill(const sp<GraphicBuffer>& buffer, const std::function<Pixel(int, int)>& pixel) {
    void* vaddr = nullptr;
    ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &vaddr), android::NO_ERROR);
    for (uint32_t y = 0; y < buffer->getHeight(); ++y) {
        for (uint32_t x = 0; x < buffer->getWidth(); ++x) {
            const Pixel value = pixel(static_cast<int>(x), static_cast<int>(y));
            memcpy(static_cast<uint8_t*>(vaddr) + (y * buffer->getStride() + x) * 4, value.data(),
                   4);
        }
    }
    ASSERT_EQ(buffer->unlock(), android::NO_ERROR);
}

// The buffer's pixels, read with a CPU lock; row by row, without the stride padding.
std::vector<Pixel> contents(const sp<GraphicBuffer>& buffer) {
    std::vector<Pixel> pixels;
    void* vaddr = nullptr;
    EXPECT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &vaddr), android::NO_ERROR);
    if (vaddr == nullptr) {
        return pixels;
    }
    for (uint32_t y = 0; y < buffer->getHeight(); ++y) {
        for (uint32_t x = 0; x < buffer->getWidth(); ++x) {
            Pixel value;
            memcpy(value.data(), static_cast<uint8_t*>(vaddr) + (y * buffer->getStride() + x) * 4,
                   4);
            pixels.push_back(value);
        }
    }
    EXPECT_EQ(buffer->unlock(), android::NO_ERROR);
    return pixels;
}

// Counts the pixels that differ from `expected` (and prints the first few).
int mismatches(const sp<GraphicBuffer>& buffer, const std::function<Pixel(int, int)>& expected) {
    const std::vector<Pixel> pixels = contents(buffer);
    const int width = static_cast<int>(buffer->getWidth());
    int wrong = 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        const int x = static_cast<int>(i) % width;
        const int y = static_cast<int>(i) / width;
        const Pixel want = expected(x, y);
        if (pixels[i] != want && ++wrong <= 3) {
            ADD_FAILURE() << "pixel " << x << "," << y << " is " << int(pixels[i][0]) << ","
                          << int(pixels[i][1]) << "," << int(pixels[i][2]) << ","
                          << int(pixels[i][3]) << " instead of " << int(want[0]) << ","
                          << int(want[1]) << "," << int(want[2]) << "," << int(want[3]);
        }
    }
    return wrong;
}

const char* const kVertexShader = R"(#version 300 es
in vec2 aPosition;
in vec2 aTexCoord;
out vec2 vTexCoord;
void main() {
    vTexCoord = aTexCoord;
    gl_Position = vec4(aPosition, 0.0, 1.0);
})";

const char* const kExternalShader = R"(#version 300 es
#extension GL_OES_EGL_image_external_essl3 : require
precision mediump float;
// A samplerExternalOES in a comment stays as it is.
uniform samplerExternalOES uSource;
in vec2 vTexCoord;
out vec4 fragColor;
void main() {
    fragColor = texture(uSource, vTexCoord);
})";

const char* const kVertexShader100 = R"(attribute vec2 aPosition;
attribute vec2 aTexCoord;
varying vec2 vTexCoord;
void main() {
    vTexCoord = aTexCoord;
    gl_Position = vec4(aPosition, 0.0, 1.0);
})";

const char* const kExternalShader100 = R"(#extension GL_OES_EGL_image_external : require
precision mediump float;
uniform lowp samplerExternalOES uUnused, uSource;
varying vec2 vTexCoord;
void main() {
    gl_FragColor = texture2D(uSource, vTexCoord);
})";

// A program that copies the external texture on unit 1 to the framebuffer.
class CopyProgram {
public:
    CopyProgram(const char* vertex, const char* fragment) {
        mProgram = glCreateProgram();
        for (auto [type, source] : {std::make_pair(GL_VERTEX_SHADER, vertex),
                                    std::make_pair(GL_FRAGMENT_SHADER, fragment)}) {
            GLuint shader = glCreateShader(type);
            glShaderSource(shader, 1, &source, nullptr);
            glCompileShader(shader);
            GLint compiled = GL_FALSE;
            glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
            if (!compiled) {
                char log[1024] = {};
                glGetShaderInfoLog(shader, sizeof(log), nullptr, log);
                mError += log;
            }
            glAttachShader(mProgram, shader);
            glDeleteShader(shader);
        }
        glLinkProgram(mProgram);
        GLint linked = GL_FALSE;
        glGetProgramiv(mProgram, GL_LINK_STATUS, &linked);
        if (!linked) {
            char log[1024] = {};
            glGetProgramInfoLog(mProgram, sizeof(log), nullptr, log);
            mError += log;
        }
        mPosition = glGetAttribLocation(mProgram, "aPosition");
        mTexCoord = glGetAttribLocation(mProgram, "aTexCoord");
        glUseProgram(mProgram);
        glUniform1i(glGetUniformLocation(mProgram, "uSource"), 1);
        glGenBuffers(1, &mVertices);
    }
    ~CopyProgram() {
        glDeleteBuffers(1, &mVertices);
        glDeleteProgram(mProgram);
    }
    CopyProgram(const CopyProgram&) = delete;
    CopyProgram& operator=(const CopyProgram&) = delete;

    const std::string& error() const { return mError; }

    // Draws the texture's [0, right] x [0, 1] onto NDC [-1, 2 * right - 1] x [-1, 1]: texel
    // (x, y) lands on framebuffer pixel (x, y).
    void draw(float right = 1.0f) {
        const float x1 = 2.0f * right - 1.0f;
        const GLfloat vertices[] = {-1, -1, 0, 0, x1, -1, right, 0, -1, 1, 0, 1, x1, 1, right, 1};
        glUseProgram(mProgram);
        glBindBuffer(GL_ARRAY_BUFFER, mVertices);
        glBufferData(GL_ARRAY_BUFFER, sizeof(vertices), vertices, GL_STREAM_DRAW);
        glVertexAttribPointer(mPosition, 2, GL_FLOAT, GL_FALSE, 16, nullptr);
        glVertexAttribPointer(mTexCoord, 2, GL_FLOAT, GL_FALSE, 16,
                              reinterpret_cast<const void*>(8));
        glEnableVertexAttribArray(mPosition);
        glEnableVertexAttribArray(mTexCoord);
        glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    }

private:
    GLuint mProgram = 0;
    GLuint mVertices = 0;
    GLint mPosition = -1;
    GLint mTexCoord = -1;
    std::string mError;
};

class AndroidRendering : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
        mStart = zel::host::gpuCounters();
        mDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        ASSERT_TRUE(eglInitialize(mDisplay, nullptr, nullptr));
        ASSERT_TRUE(makeCurrent(false));
    }

    void TearDown() override {
        if (mDisplay == EGL_NO_DISPLAY) {
            return;
        }
        eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        for (EGLContext context : mContexts) {
            eglDestroyContext(mDisplay, context);
        }
        eglTerminate(mDisplay);
    }

    // A new ES 3 context, current without a surface.
    testing::AssertionResult makeCurrent(bool protectedContent) {
        const EGLint attribs[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_PROTECTED_CONTENT_EXT,
                                  protectedContent ? EGL_TRUE : EGL_FALSE, EGL_NONE};
        EGLContext context = eglCreateContext(mDisplay, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attribs);
        if (context == EGL_NO_CONTEXT) {
            return testing::AssertionFailure()
                   << "eglCreateContext: 0x" << std::hex << eglGetError();
        }
        mContexts.push_back(context);
        if (!eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
            return testing::AssertionFailure() << "eglMakeCurrent: 0x" << std::hex << eglGetError();
        }
        return testing::AssertionSuccess();
    }

    EGLImageKHR createImage(const sp<GraphicBuffer>& buffer, std::vector<EGLint> attribs = {}) {
        attribs.insert(attribs.begin(), {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE});
        attribs.push_back(EGL_NONE);
        return eglCreateImageKHR(mDisplay, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                                 static_cast<EGLClientBuffer>(buffer->getNativeBuffer()),
                                 attribs.data());
    }

    // An external texture with `image` targeted onto it, on unit `unit`.
    GLuint externalTexture(EGLImageKHR image, GLenum unit) {
        GLuint texture = 0;
        glGenTextures(1, &texture);
        glActiveTexture(unit);
        glBindTexture(GL_TEXTURE_EXTERNAL_OES, texture);
        glEGLImageTargetTexture2DOES(GL_TEXTURE_EXTERNAL_OES, image);
        glTexParameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glActiveTexture(GL_TEXTURE0);
        return texture;
    }

    // A framebuffer that renders into the image of the external texture `texture`.
    GLuint renderTarget(GLuint texture, int width, int height) {
        GLuint framebuffer = 0;
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_EXTERNAL_OES,
                               texture, 0);
        glViewport(0, 0, width, height);
        return framebuffer;
    }

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
    std::vector<EGLContext> mContexts;
    zel::host::GpuCounters mStart;
};

TEST_F(AndroidRendering, ShaderCopiesOneBufferIntoAnotherExactly) {
    // Odd sizes catch stride mistakes; rows differ, so a flip shows.
    const int width = 37;
    const int height = 19;
    sp<GraphicBuffer> source = allocate(width, height);
    sp<GraphicBuffer> destination = allocate(width, height);
    fill(source, pattern);
    fill(destination, [](int, int) { return kPoison; });

    EGLImageKHR sourceImage = createImage(source);
    EGLImageKHR destinationImage = createImage(destination);
    ASSERT_NE(sourceImage, EGL_NO_IMAGE_KHR) << std::hex << eglGetError();
    ASSERT_NE(destinationImage, EGL_NO_IMAGE_KHR);
    GLuint sourceTexture = externalTexture(sourceImage, GL_TEXTURE1);
    GLuint destinationTexture = externalTexture(destinationImage, GL_TEXTURE2);
    GLuint framebuffer = renderTarget(destinationTexture, width, height);
    EXPECT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), GLenum(GL_FRAMEBUFFER_COMPLETE));

    // Both shading languages, with the external sampler rewritten.
    for (auto [vertex, fragment] : {std::make_pair(kVertexShader, kExternalShader),
                                    std::make_pair(kVertexShader100, kExternalShader100)}) {
        fill(destination, [](int, int) { return kPoison; });
        CopyProgram program(vertex, fragment);
        ASSERT_EQ(program.error(), "");
        program.draw();
        glFinish();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        // Memory row j of the source is memory row j of the destination.
        EXPECT_EQ(mismatches(destination, pattern), 0) << fragment;
    }
    // What the client bound stays bound: the layer's own binding is undone after each draw.
    GLint bound = -1;
    glActiveTexture(GL_TEXTURE1);
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ(bound, 0);
    glGetIntegerv(GL_TEXTURE_BINDING_EXTERNAL_OES, &bound);
    EXPECT_EQ(bound, static_cast<GLint>(sourceTexture));
    glGetIntegerv(GL_ACTIVE_TEXTURE, &bound);
    EXPECT_EQ(bound, GL_TEXTURE1);

    glDeleteFramebuffers(1, &framebuffer);
    glDeleteTextures(1, &sourceTexture);
    glDeleteTextures(1, &destinationTexture);
    EXPECT_TRUE(eglDestroyImageKHR(mDisplay, sourceImage));
    EXPECT_TRUE(eglDestroyImageKHR(mDisplay, destinationImage));
}

TEST_F(AndroidRendering, CropAndPartialDrawsKeepTheirBounds) {
    sp<GraphicBuffer> source = allocate(16, 12);
    fill(source, pattern);
    // The image stands for the crop rectangle (3,2)-(11,8): its t = 0 is the crop's first row.
    EGLImageKHR cropped =
        createImage(source, {EGL_IMAGE_CROP_LEFT_ANDROID, 3, EGL_IMAGE_CROP_TOP_ANDROID, 2,
                             EGL_IMAGE_CROP_RIGHT_ANDROID, 11, EGL_IMAGE_CROP_BOTTOM_ANDROID, 8});
    ASSERT_NE(cropped, EGL_NO_IMAGE_KHR);
    sp<GraphicBuffer> destination = allocate(8, 6);
    fill(destination, [](int, int) { return kPoison; });
    EGLImageKHR destinationImage = createImage(destination);
    GLuint sourceTexture = externalTexture(cropped, GL_TEXTURE1);
    GLuint destinationTexture = externalTexture(destinationImage, GL_TEXTURE2);
    GLuint framebuffer = renderTarget(destinationTexture, 8, 6);
    CopyProgram program(kVertexShader, kExternalShader);
    ASSERT_EQ(program.error(), "");

    // Half the destination: the other half keeps what the CPU wrote.
    program.draw(0.5f);
    glFlush();
    EXPECT_EQ(mismatches(destination,
                         [](int x, int y) { return x < 4 ? pattern(x + 3, y + 2) : kPoison; }),
              0);

    // The CPU changes the left half; a draw of the right half leaves the CPU's pixels alone.
    const Pixel cpu = {1, 2, 3, 4};
    fill(destination, [&](int x, int y) { return x < 4 ? cpu : pattern(x + 3, y + 2); });
    glViewport(4, 0, 8, 6);
    program.draw(0.5f);
    glFinish();
    EXPECT_EQ(
        mismatches(destination, [&](int x, int y) { return x < 4 ? cpu : pattern(x - 1, y + 2); }),
        0);

    glDeleteFramebuffers(1, &framebuffer);
    glDeleteTextures(1, &sourceTexture);
    glDeleteTextures(1, &destinationTexture);
    eglDestroyImageKHR(mDisplay, cropped);
    eglDestroyImageKHR(mDisplay, destinationImage);
}

TEST_F(AndroidRendering, UploadsOnlyWhatChangedAndWritesBackOnlyWhatWasRendered) {
    const int size = 8;
    sp<GraphicBuffer> first = allocate(size, size);
    sp<GraphicBuffer> second = allocate(size, size);
    fill(first, pattern);
    fill(second, [](int, int) { return kPoison; });
    EGLImageKHR firstImage = createImage(first);
    EGLImageKHR secondImage = createImage(second);
    // Textures that sample each buffer on unit 1, and one that renders into each.
    GLuint sampleFirst = externalTexture(firstImage, GL_TEXTURE1);
    GLuint sampleSecond = externalTexture(secondImage, GL_TEXTURE1);
    GLuint renderFirst = externalTexture(firstImage, GL_TEXTURE2);
    GLuint renderSecond = externalTexture(secondImage, GL_TEXTURE2);
    GLuint toSecond = renderTarget(renderSecond, size, size);
    GLuint toFirst = renderTarget(renderFirst, size, size);
    CopyProgram program(kVertexShader, kExternalShader);
    ASSERT_EQ(program.error(), "");
    zel::host::resetGpuCounters();
    auto counters = [] { return zel::host::gpuCounters(); };

    // first -> second: the source and the target each get their buffer's contents once.
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, sampleFirst);
    glBindFramebuffer(GL_FRAMEBUFFER, toSecond);
    program.draw();
    EXPECT_EQ(counters().uploads, 2u);
    // Targeting the same image again, as on every bind of the library, keeps what is uploaded.
    glEGLImageTargetTexture2DOES(GL_TEXTURE_EXTERNAL_OES, firstImage);
    program.draw();
    EXPECT_EQ(counters().uploads, 2u);
    EXPECT_EQ(counters().draws, 2u);
    EXPECT_EQ(counters().writeBacks, 0u);
    glFlush();
    EXPECT_EQ(counters().writeBacks, 1u);
    glFlush();  // nothing new to write back
    EXPECT_EQ(counters().writeBacks, 1u);

    // The CPU changes the first buffer: the next draw uploads it again, and only it.
    fill(first, [](int x, int y) { return pattern(y, x); });
    program.draw();
    EXPECT_EQ(counters().uploads, 3u);
    glFinish();
    EXPECT_EQ(mismatches(second, [](int x, int y) { return pattern(y, x); }), 0);

    // second -> first: the texture that sampled `second` has never seen its new contents (one
    // upload); the texture that rendered into `second` needs none after its own write-back.
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, sampleSecond);
    glBindFramebuffer(GL_FRAMEBUFFER, toFirst);
    const uint64_t before = counters().uploads;
    program.draw(0.5f);
    EXPECT_EQ(counters().uploads, before + 2);  // sampleSecond, and renderFirst's new contents
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, renderSecond);
    program.draw(0.5f);
    EXPECT_EQ(counters().uploads, before + 2);
    glFinish();
    EXPECT_EQ(mismatches(first, [](int x, int y) { return pattern(y, x); }), 0);

    // Rendering that is not written back yet is seen by other textures of the same buffer:
    // sampling `first` through another texture writes it back first.
    glBindFramebuffer(GL_FRAMEBUFFER, toFirst);
    glViewport(0, 0, size, size);
    glClearColor(0.0f, 1.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, sampleFirst);
    glBindFramebuffer(GL_FRAMEBUFFER, toSecond);
    program.draw();
    glFinish();
    EXPECT_EQ(mismatches(second, [](int, int) { return Pixel{0, 255, 0, 255}; }), 0);
    EXPECT_EQ(mismatches(first, [](int, int) { return Pixel{0, 255, 0, 255}; }), 0);

    GLuint framebuffers[] = {toFirst, toSecond};
    glDeleteFramebuffers(2, framebuffers);
    GLuint textures[] = {sampleFirst, sampleSecond, renderFirst, renderSecond};
    glDeleteTextures(4, textures);
    eglDestroyImageKHR(mDisplay, firstImage);
    eglDestroyImageKHR(mDisplay, secondImage);
}

TEST_F(AndroidRendering, ImagesHoldTheirBufferAndEveryLiveCounterReturnsToZero) {
    const size_t allocations = zel::host::liveAllocationCount();
    {
        sp<GraphicBuffer> source = allocate(4, 4);
        sp<GraphicBuffer> destination = allocate(4, 4);
        fill(source, pattern);
        EGLImageKHR sourceImage = createImage(source);
        EGLImageKHR destinationImage = createImage(destination);
        ASSERT_NE(destinationImage, EGL_NO_IMAGE_KHR);
        EXPECT_EQ(zel::host::gpuCounters().imagesAlive, 2u);
        EXPECT_EQ(zel::host::gpuCounters().imagesCreated, mStart.imagesCreated + 2);
        // The images keep their buffers after the client drops them ...
        source.clear();
        destination.clear();
        EXPECT_EQ(zel::host::liveAllocationCount(), allocations + 2);

        GLuint sourceTexture = externalTexture(sourceImage, GL_TEXTURE1);
        GLuint destinationTexture = externalTexture(destinationImage, GL_TEXTURE2);
        GLuint framebuffer = renderTarget(destinationTexture, 4, 4);
        CopyProgram program(kVertexShader, kExternalShader);
        program.draw();
        EGLSyncKHR sync = eglCreateSyncKHR(mDisplay, EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
        ASSERT_NE(sync, EGL_NO_SYNC_KHR);
        const int fd = eglDupNativeFenceFDANDROID(mDisplay, sync);
        EXPECT_GE(fd, 0);
        EXPECT_TRUE(eglDestroySyncKHR(mDisplay, sync));
        EXPECT_EQ(zel::host::gpuCounters().fenceFdsOpen, 1u);
        close(fd);

        // ... and a texture keeps its image after the image is destroyed, as EGL does.
        EXPECT_TRUE(eglDestroyImageKHR(mDisplay, sourceImage));
        EXPECT_FALSE(eglDestroyImageKHR(mDisplay, sourceImage));
        EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
        EXPECT_TRUE(eglDestroyImageKHR(mDisplay, destinationImage));
        EXPECT_EQ(zel::host::gpuCounters().imagesAlive, 2u);
        program.draw();  // still samples and renders
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        glDeleteTextures(1, &sourceTexture);
        EXPECT_EQ(zel::host::gpuCounters().imagesAlive, 1u);
        glDeleteFramebuffers(1, &framebuffer);
        // Deleting a texture with rendering pending writes it back first.
        const uint64_t writeBacks = zel::host::gpuCounters().writeBacks;
        glDeleteTextures(1, &destinationTexture);
        EXPECT_EQ(zel::host::gpuCounters().writeBacks, writeBacks + 1);
    }
    const zel::host::GpuCounters end = zel::host::gpuCounters();
    EXPECT_EQ(end.imagesAlive, 0u);
    EXPECT_EQ(end.fenceFdsOpen, 0u);
    EXPECT_EQ(zel::host::liveAllocationCount(), allocations);

    // A context that goes with its textures still holding images releases them.
    sp<GraphicBuffer> buffer = allocate(4, 4);
    EGLImageKHR image = createImage(buffer);
    externalTexture(image, GL_TEXTURE1);
    eglDestroyImageKHR(mDisplay, image);
    EXPECT_EQ(zel::host::gpuCounters().imagesAlive, 1u);
    eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    for (EGLContext context : mContexts) {
        eglDestroyContext(mDisplay, context);
    }
    mContexts.clear();
    EXPECT_EQ(zel::host::gpuCounters().imagesAlive, 0u);
    EXPECT_EQ(zel::host::gpuCounters().contextsAlive, mStart.contextsAlive);
}

TEST_F(AndroidRendering, ProtectedBuffersOnlyGoIntoProtectedImagesAndContexts) {
    sp<GraphicBuffer> secure = allocate(4, 4, GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_PROTECTED);
    EXPECT_EQ(createImage(secure), EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_ACCESS);
    EXPECT_EQ(createImage(secure, {EGL_PROTECTED_CONTENT_EXT, EGL_FALSE}), EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_ACCESS);

    EGLImageKHR image = createImage(secure, {EGL_PROTECTED_CONTENT_EXT, EGL_TRUE});
    ASSERT_NE(image, EGL_NO_IMAGE_KHR);
    // The current context is not protected: the image does not go in.
    GLuint texture = externalTexture(image, GL_TEXTURE1);
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_OPERATION));
    glDeleteTextures(1, &texture);

    ASSERT_TRUE(makeCurrent(true));
    texture = externalTexture(image, GL_TEXTURE1);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    // A protected context also takes ordinary buffers as protected images.
    sp<GraphicBuffer> ordinary = allocate(4, 4);
    EGLImageKHR ordinaryImage = createImage(ordinary, {EGL_PROTECTED_CONTENT_EXT, EGL_TRUE});
    EXPECT_NE(ordinaryImage, EGL_NO_IMAGE_KHR);
    glDeleteTextures(1, &texture);
    eglDestroyImageKHR(mDisplay, image);
    eglDestroyImageKHR(mDisplay, ordinaryImage);
}

TEST_F(AndroidRendering, ImageCreationChecksItsArguments) {
    sp<GraphicBuffer> buffer = allocate(4, 4);
    const EGLint none[] = {EGL_NONE};
    auto* native = static_cast<EGLClientBuffer>(buffer->getNativeBuffer());
    // A context with EGL_NATIVE_BUFFER_ANDROID.
    EXPECT_EQ(eglCreateImageKHR(mDisplay, mContexts[0], EGL_NATIVE_BUFFER_ANDROID, native, none),
              EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_CONTEXT);
    // Not a buffer, an unknown attribute, a format the layer cannot import.
    ANativeWindowBuffer notABuffer;
    notABuffer.common.magic = 0;
    EXPECT_EQ(
        eglCreateImageKHR(mDisplay, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID, &notABuffer, none),
        EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    EXPECT_EQ(createImage(buffer, {EGL_WIDTH, 4}), EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    sp<GraphicBuffer> blob = new GraphicBuffer(64, 1, HAL_PIXEL_FORMAT_BLOB, 1, kUsage);
    EXPECT_EQ(createImage(blob), EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    // Other targets without a context never reach the driver.
    EXPECT_EQ(eglCreateImageKHR(mDisplay, EGL_NO_CONTEXT, EGL_GL_TEXTURE_2D_KHR,
                                reinterpret_cast<EGLClientBuffer>(1), none),
              EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_CONTEXT);
    // The driver's own images still work.
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, 4, 4);
    EGLImageKHR driverImage =
        eglCreateImageKHR(mDisplay, mContexts[0], EGL_GL_TEXTURE_2D_KHR,
                          reinterpret_cast<EGLClientBuffer>(static_cast<uintptr_t>(texture)), none);
    EXPECT_NE(driverImage, EGL_NO_IMAGE_KHR);
    EXPECT_TRUE(eglDestroyImageKHR(mDisplay, driverImage));
    glDeleteTextures(1, &texture);
    EXPECT_EQ(zel::host::gpuCounters().imagesCreated, mStart.imagesCreated);
}

TEST_F(AndroidRendering, NativeFenceIsReadyOnlyOnceMemoryHoldsThePixels) {
    const int size = 16;
    sp<GraphicBuffer> source = allocate(size, size);
    sp<GraphicBuffer> destination = allocate(size, size);
    fill(source, pattern);
    fill(destination, [](int, int) { return kPoison; });
    EGLImageKHR sourceImage = createImage(source);
    EGLImageKHR destinationImage = createImage(destination);
    GLuint sourceTexture = externalTexture(sourceImage, GL_TEXTURE1);
    GLuint destinationTexture = externalTexture(destinationImage, GL_TEXTURE2);
    GLuint framebuffer = renderTarget(destinationTexture, size, size);
    CopyProgram program(kVertexShader, kExternalShader);
    ASSERT_EQ(program.error(), "");
    program.draw();

    // Fence, dup, destroy, then wait on the descriptor alone: no flush or finish by the client,
    // so only the fence itself can have put the pixels in memory.
    const uint64_t generation = zel::host::contentGeneration(destination->handle);
    const EGLint attribs[] = {EGL_SYNC_NATIVE_FENCE_FD_ANDROID, EGL_NO_NATIVE_FENCE_FD_ANDROID,
                              EGL_NONE};
    EGLSyncKHR sync = eglCreateSyncKHR(mDisplay, EGL_SYNC_NATIVE_FENCE_ANDROID, attribs);
    ASSERT_NE(sync, EGL_NO_SYNC_KHR) << std::hex << eglGetError();
    const int fd = eglDupNativeFenceFDANDROID(mDisplay, sync);
    ASSERT_GE(fd, 0);
    EGLint value = 0;
    EXPECT_TRUE(eglGetSyncAttribKHR(mDisplay, sync, EGL_SYNC_TYPE_KHR, &value));
    EXPECT_EQ(value, EGL_SYNC_NATIVE_FENCE_ANDROID);
    EXPECT_TRUE(eglGetSyncAttribKHR(mDisplay, sync, EGL_SYNC_CONDITION_KHR, &value));
    EXPECT_EQ(value, EGL_SYNC_PRIOR_COMMANDS_COMPLETE_KHR);
    EXPECT_FALSE(eglGetSyncAttribKHR(mDisplay, sync, EGL_SYNC_NATIVE_FENCE_FD_ANDROID, &value));
    EXPECT_EQ(eglGetError(), EGL_BAD_ATTRIBUTE);
    EXPECT_EQ(eglClientWaitSyncKHR(mDisplay, sync, 0, EGL_FOREVER_KHR),
              EGL_CONDITION_SATISFIED_KHR);
    EXPECT_TRUE(eglDestroySyncKHR(mDisplay, sync));

    struct pollfd ready = {fd, POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 5000), 1);
    // Ready means written: the rendering is in memory, with a new content generation.
    EXPECT_GT(zel::host::contentGeneration(destination->handle), generation);
    EXPECT_EQ(mismatches(destination, pattern), 0);
    EXPECT_NE(zel::host::fenceSignalTime(fd), INT64_MAX);

    // Descriptors count as open until the client closes them, even when numbers come back.
    EXPECT_EQ(zel::host::gpuCounters().fenceFdsCreated, mStart.fenceFdsCreated + 1);
    EXPECT_EQ(zel::host::gpuCounters().fenceFdsOpen, 1u);
    close(fd);
    EXPECT_EQ(zel::host::gpuCounters().fenceFdsOpen, 0u);
    int fds[2];
    for (int& each : fds) {
        // As the library does it: fence, flush, dup.
        program.draw();
        sync = eglCreateSyncKHR(mDisplay, EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
        glFlush();
        each = eglDupNativeFenceFDANDROID(mDisplay, sync);
        eglDestroySyncKHR(mDisplay, sync);
    }
    EXPECT_EQ(zel::host::gpuCounters().fenceFdsOpen, 2u);
    close(fds[0]);
    EXPECT_EQ(zel::host::gpuCounters().fenceFdsOpen, 1u);
    close(fds[1]);
    EXPECT_EQ(zel::host::gpuCounters().fenceFdsOpen, 0u);

    // A fence handed in by the client: the sync owns it and follows its state.
    const int client = zel::host::createFenceFd(false);
    const int keep = dup(client);
    const EGLint wrap[] = {EGL_SYNC_NATIVE_FENCE_FD_ANDROID, client, EGL_NONE};
    sync = eglCreateSyncKHR(mDisplay, EGL_SYNC_NATIVE_FENCE_ANDROID, wrap);
    ASSERT_NE(sync, EGL_NO_SYNC_KHR);
    EXPECT_TRUE(eglGetSyncAttribKHR(mDisplay, sync, EGL_SYNC_STATUS_KHR, &value));
    EXPECT_EQ(value, EGL_UNSIGNALED_KHR);
    EXPECT_TRUE(eglGetSyncAttribKHR(mDisplay, sync, EGL_SYNC_CONDITION_KHR, &value));
    EXPECT_EQ(value, EGL_SYNC_NATIVE_FENCE_SIGNALED_ANDROID);
    EXPECT_EQ(eglClientWaitSyncKHR(mDisplay, sync, 0, 1000000), EGL_TIMEOUT_EXPIRED_KHR);
    zel::host::signalFenceFd(keep);
    EXPECT_EQ(eglClientWaitSyncKHR(mDisplay, sync, 0, 0), EGL_CONDITION_SATISFIED_KHR);
    EXPECT_TRUE(eglDestroySyncKHR(mDisplay, sync));
    EXPECT_EQ(fcntl(client, F_GETFD), -1);  // closed with the sync
    close(keep);

    // The driver's own fences keep working, and are not native fences.
    sync = eglCreateSyncKHR(mDisplay, EGL_SYNC_FENCE_KHR, nullptr);
    ASSERT_NE(sync, EGL_NO_SYNC_KHR);
    EXPECT_EQ(
        eglClientWaitSyncKHR(mDisplay, sync, EGL_SYNC_FLUSH_COMMANDS_BIT_KHR, EGL_FOREVER_KHR),
        EGL_CONDITION_SATISFIED_KHR);
    EXPECT_EQ(eglDupNativeFenceFDANDROID(mDisplay, sync), EGL_NO_NATIVE_FENCE_FD_ANDROID);
    EXPECT_TRUE(eglDestroySyncKHR(mDisplay, sync));

    // Native fences need a current context.
    eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    EXPECT_EQ(eglCreateSyncKHR(mDisplay, EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr), EGL_NO_SYNC_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_MATCH);
    eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, mContexts[0]);

    glDeleteFramebuffers(1, &framebuffer);
    glDeleteTextures(1, &sourceTexture);
    glDeleteTextures(1, &destinationTexture);
    eglDestroyImageKHR(mDisplay, sourceImage);
    eglDestroyImageKHR(mDisplay, destinationImage);
}

}  // namespace
