// The GPU layer as an Android driver draws with graphic buffers: EGLImages of host buffers sampled
// through samplerExternalOES and rendered into through external textures, with buffer memory as
// the truth (uploads when the CPU changed it, write-back at flush and native fence creation), and
// native fence descriptors that are ready once memory holds the pixels.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <functional>

#include <gtest/gtest.h>
#include <hardware/gralloc.h>
#include <zel/host/Gpu.h>
#include <zel/host/Gralloc.h>
#include <zel/host/Sync.h>

#include "GlDrawing.h"
#include "ReferenceConverter.h"

using android::GraphicBuffer;
using android::sp;
using zel::test::Rgb8;

namespace {

using PixelFunction = std::function<Rgb8(int, int)>;

// Every channel, alpha included, changes along both axes: a flip, shift or lost channel shows.
Rgb8 pattern(int x, int y) {
    return {static_cast<uint8_t>(x * 13 + y * 7 + 1), static_cast<uint8_t>(y * 29 + x * 3 + 50),
            static_cast<uint8_t>((x * y) ^ 0x5A), static_cast<uint8_t>(255 - x - 2 * y)};
}
constexpr Rgb8 kPoison = {0xDE, 0xAD, 0xBE, 0xEF};
Rgb8 poison(int, int) {
    return kPoison;
}

zel::test::RgbImage imageOf(const GraphicBuffer& buffer, const PixelFunction& pixel) {
    zel::test::RgbImage image(static_cast<int>(buffer.getWidth()),
                              static_cast<int>(buffer.getHeight()));
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            image.at(x, y) = pixel(x, y);
        }
    }
    return image;
}
void fill(const sp<GraphicBuffer>& buffer, const PixelFunction& pixel) {
    zel::test::writeRgba(*buffer, imageOf(*buffer, pixel));
}
testing::AssertionResult holds(const sp<GraphicBuffer>& buffer, const PixelFunction& pixel) {
    return zel::test::imagesMatch(zel::test::readRgba(*buffer), imageOf(*buffer, pixel), 0, true);
}

sp<GraphicBuffer> allocate(int width, int height) {
    return zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
}

// Copies the external texture on unit 1 to the framebuffer: texel (x, y) lands on pixel (x, y).
// The comment and the declaration list are there for the layer's sampler rewriting.
const char* const kExternalShader =
    "#version 310 es\n#extension GL_OES_EGL_image_external_essl3 : require\n"
    "precision mediump float;\n// A samplerExternalOES in a comment stays as it is.\n"
    "uniform samplerExternalOES uSource;\nin vec2 vTexCoords;\nout vec4 fragColor;\n"
    "void main() { fragColor = texture(uSource, vTexCoords); }\n";
const char* const kVertexShader100 =
    "attribute vec2 aPosition;\nattribute vec2 aTexCoord;\nvarying vec2 vTexCoord;\n"
    "void main() { vTexCoord = aTexCoord; gl_Position = vec4(aPosition, 0.0, 1.0); }\n";
const char* const kExternalShader100 =
    "#extension GL_OES_EGL_image_external : require\nprecision mediump float;\n"
    "uniform lowp samplerExternalOES uUnused, uSource;\nvarying vec2 vTexCoord;\n"
    "void main() { gl_FragColor = texture2D(uSource, vTexCoord); }\n";

class CopyProgram : public zel::test::Program {
public:
    CopyProgram(const std::string& vertex = zel::test::libraryVertexShader(),
                const char* fragment = kExternalShader)
        : Program(vertex, fragment) {
        use();
        glUniform1i(glGetUniformLocation(name(), "uSource"), 1);
    }
    void draw() const {
        use();
        mQuad.draw();
    }

private:
    zel::test::Quad mQuad;
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
        if (mDisplay != EGL_NO_DISPLAY) {
            destroyContexts();
            eglTerminate(mDisplay);
        }
    }

    void destroyContexts() {
        eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        for (EGLContext context : mContexts) {
            eglDestroyContext(mDisplay, context);
        }
        mContexts.clear();
    }

    // A new ES 3 context, current without a surface.
    testing::AssertionResult makeCurrent(bool protectedContent) {
        const EGLint attribs[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_PROTECTED_CONTENT_EXT,
                                  protectedContent ? EGL_TRUE : EGL_FALSE, EGL_NONE};
        mContexts.push_back(eglCreateContext(mDisplay, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attribs));
        if (!eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, mContexts.back())) {
            return testing::AssertionFailure() << "context: 0x" << std::hex << eglGetError();
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

    // An external texture with `image` targeted onto it, bound on `unit`; unit 0 is active after.
    static GLuint externalTexture(EGLImageKHR image, GLenum unit) {
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

    // A framebuffer, bound, that renders into the image of the external texture `texture`.
    static GLuint renderTarget(GLuint texture, int width, int height) {
        GLuint framebuffer = 0;
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_EXTERNAL_OES,
                               texture, 0);
        glViewport(0, 0, width, height);
        EXPECT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), GLenum(GL_FRAMEBUFFER_COMPLETE));
        return framebuffer;
    }

    // Samples `source` on unit 1 and renders into `destination`; returns the source texture.
    GLuint copySetup(const sp<GraphicBuffer>& source, const sp<GraphicBuffer>& destination,
                     std::vector<EGLint> sourceAttribs = {}) {
        EGLImageKHR sourceImage = createImage(source, std::move(sourceAttribs));
        EXPECT_NE(sourceImage, EGL_NO_IMAGE_KHR) << std::hex << eglGetError();
        const GLuint texture = externalTexture(sourceImage, GL_TEXTURE1);
        renderTarget(externalTexture(createImage(destination), GL_TEXTURE2),
                     static_cast<int>(destination->getWidth()),
                     static_cast<int>(destination->getHeight()));
        return texture;
    }

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
    std::vector<EGLContext> mContexts;
    zel::host::GpuCounters mStart;
};

TEST_F(AndroidRendering, UploadsOnlyWhatChangedAndWritesBackOnlyWhatWasRendered) {
    const int size = 8;
    sp<GraphicBuffer> first = allocate(size, size);
    sp<GraphicBuffer> second = allocate(size, size);
    fill(first, pattern);
    fill(second, poison);
    EGLImageKHR firstImage = createImage(first);
    EGLImageKHR secondImage = createImage(second);
    // Textures that sample each buffer on unit 1, and one that renders into each.
    const GLuint sampleFirst = externalTexture(firstImage, GL_TEXTURE1);
    const GLuint sampleSecond = externalTexture(secondImage, GL_TEXTURE1);
    const GLuint renderFirst = externalTexture(firstImage, GL_TEXTURE2);
    const GLuint renderSecond = externalTexture(secondImage, GL_TEXTURE2);
    const GLuint toSecond = renderTarget(renderSecond, size, size);
    const GLuint toFirst = renderTarget(renderFirst, size, size);
    CopyProgram program;
    ASSERT_EQ(program.error(), "");
    zel::host::resetGpuCounters();
    auto counters = [] { return zel::host::gpuCounters(); };
    const PixelFunction transposed = [](int x, int y) { return pattern(y, x); };

    // first -> second: the source gets its buffer's contents once; the target none, as the
    // quad covers it.
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, sampleFirst);
    glBindFramebuffer(GL_FRAMEBUFFER, toSecond);
    program.draw();
    EXPECT_EQ(counters().uploads, 1u);
    // Targeting the same image again, as on every bind of the library, keeps what is uploaded.
    glEGLImageTargetTexture2DOES(GL_TEXTURE_EXTERNAL_OES, firstImage);
    program.draw();
    EXPECT_EQ(counters().uploads, 1u);
    EXPECT_EQ(counters().draws, 2u);
    EXPECT_EQ(counters().writeBacks, 0u);
    glFlush();
    EXPECT_EQ(counters().writeBacks, 1u);
    glFlush();  // nothing new to write back
    EXPECT_EQ(counters().writeBacks, 1u);

    // The CPU changes the first buffer: the next draw uploads it again, and only it.
    fill(first, transposed);
    program.draw();
    EXPECT_EQ(counters().uploads, 2u);
    glFinish();
    EXPECT_TRUE(holds(second, transposed));

    // second -> first: the texture that sampled `second` has never seen its new contents (one
    // upload), nor has renderFirst seen the CPU's; the texture that rendered into `second` needs
    // none after its own write-back.
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, sampleSecond);
    glBindFramebuffer(GL_FRAMEBUFFER, toFirst);
    const uint64_t before = counters().uploads;
    glViewport(-size / 2, 0, size, size);
    program.draw();
    EXPECT_EQ(counters().uploads, before + 2);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, renderSecond);
    program.draw();
    EXPECT_EQ(counters().uploads, before + 2);
    glFinish();
    EXPECT_TRUE(holds(first, [](int x, int y) { return pattern(y, x < 4 ? x + 4 : x); }));

    // Rendering that is not written back yet is seen by other textures of the same buffer:
    // sampling `first` through another texture writes it back first.
    glClearColor(0.0f, 1.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, sampleFirst);
    glBindFramebuffer(GL_FRAMEBUFFER, toSecond);
    glViewport(0, 0, size, size);
    program.draw();
    glFinish();
    const PixelFunction green = [](int, int) { return Rgb8{0, 255, 0, 255}; };
    EXPECT_TRUE(holds(second, green));
    EXPECT_TRUE(holds(first, green));

    // A fresh image and texture of `second` for each frame, the old texture deleted, as the
    // library does with destinations: the GPU copy stays with the allocation, so rendering into
    // the new texture uploads nothing while memory is unchanged and keeps the pixels the draw
    // does not cover; once the CPU writes the buffer the next texture of it uploads again.
    fill(first, pattern);
    GLuint destination = renderSecond;
    for (const bool cpuWrote : {false, true}) {
        const PixelFunction& right = cpuWrote ? PixelFunction(poison) : green;
        const PixelFunction leftHalf = [&](int x, int y) {
            return x < size / 2 ? pattern(2 * x + 1, y) : right(x, y);  // squeezed, nearest
        };
        if (cpuWrote) {
            fill(second, poison);
        }
        glDeleteTextures(1, &destination);
        destination = externalTexture(createImage(second), GL_TEXTURE2);
        const uint64_t uploads = counters().uploads;
        glBindFramebuffer(GL_FRAMEBUFFER, renderTarget(destination, size / 2, size));
        glActiveTexture(GL_TEXTURE1);
        glBindTexture(GL_TEXTURE_EXTERNAL_OES, sampleFirst);
        program.draw();
        // The source once (the CPU wrote it), the destination only after the CPU wrote it.
        EXPECT_EQ(counters().uploads, uploads + (cpuWrote ? 2 : 1)) << cpuWrote;
        glFinish();
        EXPECT_TRUE(holds(second, leftHalf)) << cpuWrote;
        fill(first, pattern);
    }
}

// A draw known to write every pixel of its target needs nothing from the target's memory: the
// CPU's scribbles are neither uploaded nor kept. Every draw that leaves a pixel out (viewport,
// scissor, colour mask, blending, a smaller shape, discard, a mesh the layer does not read)
// still starts from memory, and what it leaves out keeps the CPU's contents.
TEST_F(AndroidRendering, DrawsCoveringTheirTargetNeedNothingFromItsMemory) {
    const int width = 9;  // odd: the last column's pixel centre is half a pixel from the edge
    const int height = 7;
    sp<GraphicBuffer> source = allocate(width, height);
    sp<GraphicBuffer> destination = allocate(width, height);
    fill(source, pattern);
    const GLuint sampled = copySetup(source, destination);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, sampled);
    CopyProgram program;
    CopyProgram projected(zel::test::libraryVertexShader(true));
    CopyProgram discarding(zel::test::libraryVertexShader(),
                           "#version 310 es\n#extension GL_OES_EGL_image_external_essl3 : require\n"
                           "precision mediump float;\nuniform samplerExternalOES uSource;\n"
                           "in vec2 vTexCoords;\nout vec4 fragColor;\nvoid main() {\n"
                           "    if (vTexCoords.x < 0.0) discard;\n"
                           "    fragColor = texture(uSource, vTexCoords);\n}\n");
    // A local of main hides the attribute: the quad is halved.
    CopyProgram hiding(
        "#version 310 es\nlayout(location = 0) in vec2 aPosition;\n"
        "out vec2 vTexCoords;\nvoid main(void) {\n"
        "    vTexCoords = (aPosition + 1.0) * 0.5;\n"
        "    vec2 aPosition = aPosition * 0.5;\n"
        "    gl_Position = vec4(aPosition, 0.0, 1.0);\n}\n");
    ASSERT_EQ(program.error() + projected.error() + discarding.error() + hiding.error(), "");
    program.draw();  // the source's upload, out of the way
    glFinish();

    // x, y of the library's rectangle: two triangles from client memory.
    const GLfloat rectangle[] = {-1, 1, -1, -1, 1, -1, -1, 1, 1, -1, 1, 1};
    auto drawArrays = [](const CopyProgram& with, GLenum mode, const GLfloat* xy, GLsizei count) {
        with.use();
        glBindVertexArray(0);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, xy);
        glEnableVertexAttribArray(0);
        glDrawArrays(mode, 0, count);
        glDisableVertexAttribArray(0);
    };
    auto withProjection = [&](std::initializer_list<GLfloat> columns) {
        projected.use();
        glUniformMatrix4fv(glGetUniformLocation(projected.name(), "uProjection"), 1, GL_FALSE,
                           std::vector<GLfloat>(columns).data());
        projected.draw();
    };
    // The last column's centre (x = 8.5) lies outside a quad that ends at 8.4.
    const GLfloat shortRight = 2.0f * 8.4f / width - 1.0f;
    const GLfloat shortQuad[] = {-1, -1, shortRight, -1, -1, 1, shortRight, 1};
    const GLuint indices[] = {0, 1, 2, 3};
    const PixelFunction mirrored = [&](int x, int y) { return pattern(width - 1 - x, y); };
    const PixelFunction halved = [&](int x, int y) {
        // Window x 2.25..6.75 and y 1.75..5.25 hold the pixel centres 2..6 and 2..4.
        const bool inside = x >= 2 && x <= 6 && y >= 2 && y <= 4;
        return inside ? pattern(2 * x - 4, 2 * y - 3) : kPoison;
    };
    const PixelFunction lastColumnKept = [&](int x, int y) {
        return x == width - 1 ? kPoison : pattern(x, y);
    };

    struct Case {
        const char* name;
        std::function<void()> draw;
        bool covers;
        PixelFunction expected;
    };
    const Case cases[] = {
        {"strip from a buffer object", [&] { program.draw(); }, true, pattern},
        {"the library's triangles", [&] { drawArrays(program, GL_TRIANGLES, rectangle, 6); }, true,
         pattern},
        {"a projection with z on the near plane",
         [&] {
             withProjection({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -2, 0, 0, 0, -1, 1});
         },
         true, pattern},
        {"a mirroring projection",
         [&] {
             withProjection({-1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
         },
         true, mirrored},
        // After a draw that left other pixels on the GPU, so that a wrong "covered" shows.
        {"a local hiding the position attribute", [&] { hiding.draw(); }, false, halved},
        {"a scissor box holding the target",
         [&] {
             glEnable(GL_SCISSOR_TEST);
             glScissor(-1, 0, width + 1, height);
             program.draw();
             glDisable(GL_SCISSOR_TEST);
         },
         true, pattern},
        {"a quad short of the last pixel centre",
         [&] { drawArrays(program, GL_TRIANGLE_STRIP, shortQuad, 4); }, false, lastColumnKept},
        {"a projection halving the quad",
         [&] {
             withProjection({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 2});
         },
         false, halved},
        {"a viewport off the first column",
         [&] {
             glViewport(1, 0, width, height);
             program.draw();
             glViewport(0, 0, width, height);
         },
         false, [&](int x, int y) { return x == 0 ? kPoison : pattern(x - 1, y); }},
        {"a scissor box without the last row",
         [&] {
             glEnable(GL_SCISSOR_TEST);
             glScissor(0, 0, width, height - 1);
             program.draw();
             glDisable(GL_SCISSOR_TEST);
         },
         false, [&](int x, int y) { return y == height - 1 ? kPoison : pattern(x, y); }},
        {"alpha masked",
         [&] {
             glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_FALSE);
             program.draw();
             glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
         },
         false,
         [&](int x, int y) {
             Rgb8 pixel = pattern(x, y);
             pixel.a = kPoison.a;
             return pixel;
         }},
        {"blending",
         [&] {
             glEnable(GL_BLEND);
             glBlendFunc(GL_ZERO, GL_ONE);
             program.draw();
             glDisable(GL_BLEND);
         },
         false, poison},
        {"one triangle of the quad",
         [&] { drawArrays(program, GL_TRIANGLE_STRIP, rectangle + 2, 3); }, false, nullptr},
        {"a fragment shader that may discard", [&] { discarding.draw(); }, false, pattern},
        {"indexed",
         [&] {
             program.use();
             glBindVertexArray(0);
             glBindBuffer(GL_ARRAY_BUFFER, 0);
             const GLfloat strip[] = {-1, -1, 1, -1, -1, 1, 1, 1};
             glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, strip);
             glEnableVertexAttribArray(0);
             glDrawElements(GL_TRIANGLE_STRIP, 4, GL_UNSIGNED_INT, indices);
             glDisableVertexAttribArray(0);
         },
         false, pattern},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fill(destination, poison);  // the CPU scribbles on the destination between draws
        const zel::host::GpuCounters before = zel::host::gpuCounters();
        c.draw();
        const zel::host::GpuCounters after = zel::host::gpuCounters();
        EXPECT_EQ(after.uploads - before.uploads, c.covers ? 0u : 1u);
        EXPECT_EQ(after.coveredTargets - before.coveredTargets, c.covers ? 1u : 0u);
        glFinish();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        if (c.expected != nullptr) {
            EXPECT_TRUE(holds(destination, c.expected));
        } else {
            // Lower left half drawn, the far corner kept.
            zel::test::RgbImage actual = zel::test::readRgba(*destination);
            auto same = [](const Rgb8& a, const Rgb8& b) {
                return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a;
            };
            EXPECT_TRUE(same(actual.at(0, 0), pattern(0, 0)));
            EXPECT_TRUE(same(actual.at(width - 1, height - 1), kPoison));
        }
    }
}

TEST_F(AndroidRendering, ProtectedBuffersOnlyGoIntoProtectedImagesAndContexts) {
    sp<GraphicBuffer> secure = new GraphicBuffer(
        4, 4, HAL_PIXEL_FORMAT_RGBA_8888, 1, GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_PROTECTED);
    for (const auto& attribs : {std::vector<EGLint>{}, {EGL_PROTECTED_CONTENT_EXT, EGL_FALSE}}) {
        EXPECT_EQ(createImage(secure, attribs), EGL_NO_IMAGE_KHR);
        EXPECT_EQ(eglGetError(), EGL_BAD_ACCESS);
    }
    EGLImageKHR image = createImage(secure, {EGL_PROTECTED_CONTENT_EXT, EGL_TRUE});
    ASSERT_NE(image, EGL_NO_IMAGE_KHR);
    // The current context is not protected: the image does not go in.
    externalTexture(image, GL_TEXTURE1);
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_OPERATION));

    ASSERT_TRUE(makeCurrent(true));
    externalTexture(image, GL_TEXTURE1);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    // A protected context also takes ordinary buffers as protected images.
    EXPECT_NE(createImage(allocate(4, 4), {EGL_PROTECTED_CONTENT_EXT, EGL_TRUE}), EGL_NO_IMAGE_KHR);
}

TEST_F(AndroidRendering, ImageCreationRefusesBadArgumentsAndLeavesDriverImagesAlone) {
    sp<GraphicBuffer> buffer = allocate(4, 4);
    const EGLint none[] = {EGL_NONE};
    ANativeWindowBuffer notABuffer;
    notABuffer.common.magic = 0;
    sp<GraphicBuffer> blob = zel::test::makeTestBuffer(64, 1, HAL_PIXEL_FORMAT_BLOB);
    // A context with EGL_NATIVE_BUFFER_ANDROID; not a buffer; an unknown attribute; a format the
    // layer cannot import; another target without a context (never reaches the driver).
    EXPECT_EQ(eglCreateImageKHR(mDisplay, mContexts[0], EGL_NATIVE_BUFFER_ANDROID,
                                buffer->getNativeBuffer(), none),
              EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_CONTEXT);
    EXPECT_EQ(
        eglCreateImageKHR(mDisplay, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID, &notABuffer, none),
        EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    EXPECT_EQ(createImage(buffer, {EGL_WIDTH, 4}), EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    EXPECT_EQ(createImage(blob), EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    EXPECT_EQ(eglCreateImageKHR(mDisplay, EGL_NO_CONTEXT, EGL_GL_TEXTURE_2D_KHR,
                                reinterpret_cast<EGLClientBuffer>(1), none),
              EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_BAD_CONTEXT);
    // The driver's own images still work, uncounted.
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, 4, 4);
    EGLImageKHR driverImage =
        eglCreateImageKHR(mDisplay, mContexts[0], EGL_GL_TEXTURE_2D_KHR,
                          reinterpret_cast<EGLClientBuffer>(static_cast<uintptr_t>(texture)), none);
    EXPECT_NE(driverImage, EGL_NO_IMAGE_KHR);
    EXPECT_TRUE(eglDestroyImageKHR(mDisplay, driverImage));
    EXPECT_EQ(zel::host::gpuCounters().imagesCreated, mStart.imagesCreated);

    // The EGL 1.5 entry points sort images the same way.
    const EGLAttrib noAttribs[] = {EGL_NONE};
    EXPECT_EQ(eglCreateImage(mDisplay, mContexts[0], EGL_NATIVE_BUFFER_ANDROID,
                             buffer->getNativeBuffer(), noAttribs),
              EGL_NO_IMAGE);
    EXPECT_EQ(eglGetError(), EGL_BAD_CONTEXT);
    EGLImage image = eglCreateImage(
        mDisplay, mContexts[0], EGL_GL_TEXTURE_2D,
        reinterpret_cast<EGLClientBuffer>(static_cast<uintptr_t>(texture)), noAttribs);
    EXPECT_NE(image, EGL_NO_IMAGE);
    EXPECT_TRUE(eglDestroyImage(mDisplay, image));
    EXPECT_EQ(zel::host::gpuCounters().imagesCreated, mStart.imagesCreated);
    image = eglCreateImage(mDisplay, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                           buffer->getNativeBuffer(), noAttribs);
    EXPECT_NE(image, EGL_NO_IMAGE);
    EXPECT_EQ(zel::host::gpuCounters().imagesCreated, mStart.imagesCreated + 1);
    EXPECT_TRUE(eglDestroyImage(mDisplay, image));
    EXPECT_FALSE(eglDestroyImage(mDisplay, image));
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    glDeleteTextures(1, &texture);
}

}  // namespace
