// The GPU layer forwards EGL and GLES to Mesa: configs, contexts, surfaces, framebuffers, shaders
// and draws all reach the driver through the layer's exported functions and give exact pixels.
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl32.h>
#include <gtest/gtest.h>

#include <zel/host/Gpu.h>

#include "EglContext.h"

namespace {

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
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glDeleteFramebuffers(1, &mFramebuffer);
        glDeleteTextures(1, &mTexture);
    }
    TextureTarget(const TextureTarget&) = delete;
    TextureTarget& operator=(const TextureTarget&) = delete;

    bool complete() const {
        return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    }

private:
    GLuint mTexture = 0;
    GLuint mFramebuffer = 0;
};

// Reads the bound framebuffer back and counts the pixels that differ from expected(x, y), an
// RGBA colour, or nullptr where any colour will do.
template <typename Expected>
int countWrongPixels(int width, int height, Expected expected) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4, 0xEE);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    int wrong = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const uint8_t* rgba = expected(x, y);
            wrong += rgba != nullptr && memcmp(&pixels[(y * width + x) * 4], rgba, 4) != 0;
        }
    }
    return wrong;
}

// Draws the lower-left half of the viewport (below the diagonal from top-left to bottom-right)
// in one colour, from a vertex buffer.
class Triangle {
public:
    Triangle() {
        const char* const vertex = R"(#version 300 es
in vec2 aPosition;
void main() { gl_Position = vec4(aPosition, 0.0, 1.0); })";
        const char* const fragment = R"(#version 300 es
precision mediump float;
uniform vec4 uColor;
out vec4 fragColor;
void main() { fragColor = uColor; })";
        mProgram = glCreateProgram();
        for (const auto& [type, source] :
             {std::pair{GL_VERTEX_SHADER, vertex}, std::pair{GL_FRAGMENT_SHADER, fragment}}) {
            const GLuint shader = glCreateShader(type);
            glShaderSource(shader, 1, &source, nullptr);
            glCompileShader(shader);
            glAttachShader(mProgram, shader);
            glDeleteShader(shader);  // freed with the program
        }
        glLinkProgram(mProgram);
        mColor = glGetUniformLocation(mProgram, "uColor");
        const GLfloat vertices[] = {-1.0f, -1.0f, 1.0f, -1.0f, -1.0f, 1.0f};
        glGenVertexArrays(1, &mVertexArray);
        glBindVertexArray(mVertexArray);
        glGenBuffers(1, &mBuffer);
        glBindBuffer(GL_ARRAY_BUFFER, mBuffer);
        glBufferData(GL_ARRAY_BUFFER, sizeof(vertices), vertices, GL_STATIC_DRAW);
        const GLint position = glGetAttribLocation(mProgram, "aPosition");
        glVertexAttribPointer(position, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(position);
    }
    ~Triangle() {
        glDeleteBuffers(1, &mBuffer);
        glDeleteVertexArrays(1, &mVertexArray);
        glDeleteProgram(mProgram);
    }
    Triangle(const Triangle&) = delete;
    Triangle& operator=(const Triangle&) = delete;

    bool linked() const {
        GLint linked = GL_FALSE;
        glGetProgramiv(mProgram, GL_LINK_STATUS, &linked);
        return linked == GL_TRUE && mColor >= 0;
    }
    void draw(const uint8_t rgba[4]) const {
        glUseProgram(mProgram);
        glUniform4f(mColor, rgba[0] / 255.0f, rgba[1] / 255.0f, rgba[2] / 255.0f, rgba[3] / 255.0f);
        glBindVertexArray(mVertexArray);
        glDrawArrays(GL_TRIANGLES, 0, 3);
    }

private:
    GLuint mProgram = 0;
    GLint mColor = -1;
    GLuint mVertexArray = 0;
    GLuint mBuffer = 0;
};

void clearTo(const uint8_t rgba[4]) {
    glClearColor(rgba[0] / 255.0f, rgba[1] / 255.0f, rgba[2] / 255.0f, rgba[3] / 255.0f);
    glClear(GL_COLOR_BUFFER_BIT);
}

class GpuForwarding : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
    }
};

TEST_F(GpuForwarding, ChosenConfigContextClearsPbufferAndFramebufferExactly) {
    // The default and the Android display are the surfaceless one the layer selects.
    const EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    EXPECT_EQ(display,
              eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    EXPECT_EQ(display,
              eglGetPlatformDisplay(EGL_PLATFORM_ANDROID_KHR, EGL_DEFAULT_DISPLAY, nullptr));
    ASSERT_TRUE(eglInitialize(display, nullptr, nullptr));
    // clang-format off
    const EGLint configAttribs[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_SURFACE_TYPE,
                                    EGL_PBUFFER_BIT, EGL_RED_SIZE, 8, EGL_ALPHA_SIZE, 8, EGL_NONE};
    // clang-format on
    EGLConfig config = nullptr;
    EGLint count = 0;
    ASSERT_TRUE(eglChooseConfig(display, configAttribs, &config, 1, &count) && count == 1);
    auto destroyContext = [display](EGLContext object) {
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        eglDestroyContext(display, object);
    };
    auto destroySurface = [display](EGLSurface object) { eglDestroySurface(display, object); };
    const EGLint contextAttribs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_NONE};
    std::unique_ptr<void, decltype(destroyContext)> context(
        eglCreateContext(display, config, EGL_NO_CONTEXT, contextAttribs), destroyContext);
    const EGLint surfaceAttribs[] = {EGL_WIDTH, 16, EGL_HEIGHT, 8, EGL_NONE};
    std::unique_ptr<void, decltype(destroySurface)> pbuffer(
        eglCreatePbufferSurface(display, config, surfaceAttribs), destroySurface);
    ASSERT_TRUE(eglMakeCurrent(display, pbuffer.get(), pbuffer.get(), context.get()));
    const char* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(std::string(version).rfind("OpenGL ES 3.", 0), 0u) << version;

    // The pbuffer itself, then a texture framebuffer of odd size to catch row-pitch mistakes;
    // the colours are exact in 8 bits.
    const uint8_t colour[4] = {0x01, 0x80, 0xFF, 0xFF};
    glViewport(0, 0, 16, 8);
    clearTo(colour);
    EXPECT_EQ(countWrongPixels(16, 8, [&](int, int) { return colour; }), 0);
    TextureTarget target(37, 19);
    ASSERT_TRUE(target.complete());
    const uint8_t background[4] = {0x12, 0x34, 0x56, 0x78};
    const uint8_t box[4] = {0xF0, 0x0D, 0xCA, 0xFE};
    clearTo(background);
    glEnable(GL_SCISSOR_TEST);
    glScissor(5, 3, 10, 7);
    clearTo(box);
    glDisable(GL_SCISSOR_TEST);
    EXPECT_EQ(countWrongPixels(37, 19,
                               [&](int x, int y) {
                                   return x >= 5 && x < 15 && y >= 3 && y < 10 ? box : background;
                               }),
              0);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

TEST_F(GpuForwarding, TwoThreadsDrawTrianglesWithTheirOwnContextsAtOnce) {
    constexpr int kThreads = 2;
    constexpr int kFrames = 30;
    std::atomic<int> ready{0};
    std::atomic<int> wrong[kThreads] = {};
    auto work = [&](int index) {
        zel::test::EglContext context;
        const int size = 24 + index * 8;
        TextureTarget target(size, size);
        Triangle triangle;
        if (!context.ok() || !target.complete() || !triangle.linked()) {
            wrong[index] = -1;
        }
        // Start drawing together, so that the contexts really are in use at the same time.
        ++ready;
        while (ready.load() < kThreads) {
            std::this_thread::yield();
        }
        for (int frame = 0; frame < kFrames && wrong[index] == 0; ++frame) {
            const uint8_t background[4] = {static_cast<uint8_t>(index * 100), 0x10,
                                           static_cast<uint8_t>(frame), 0xFF};
            const uint8_t ink[4] = {static_cast<uint8_t>(frame * 8), static_cast<uint8_t>(index),
                                    0xA0, 0xFF};
            clearTo(background);
            triangle.draw(ink);
            // Pixel centres with x + y < size - 1 are inside, x + y > size - 1 outside; the
            // diagonal itself follows the rasteriser's tie rule, so it is not checked.
            wrong[index] += countWrongPixels(size, size, [&](int x, int y) {
                return x + y == size - 1 ? nullptr : x + y < size - 1 ? ink : background;
            });
        }
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    for (int i = 0; i < kThreads; ++i) {
        EXPECT_EQ(wrong[i].load(), 0) << "thread " << i << " (-1: no context, target or program)";
    }
}

}  // namespace
