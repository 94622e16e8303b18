// The GPU layer forwards EGL and GLES to Mesa: contexts, surfaces, framebuffers, shaders, draws
// and compute all reach the driver through the layer's exported functions and give exact pixels.
#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl32.h>
#include <gtest/gtest.h>

#include <zel/host/Gpu.h>

namespace {

// Runs a clean-up when the scope ends (GL names, EGL objects).
class ScopeExit {
public:
    explicit ScopeExit(std::function<void()> action) : mAction(std::move(action)) {}
    ~ScopeExit() { mAction(); }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

private:
    std::function<void()> mAction;
};

// An ES 3 context on the default display, chosen through eglChooseConfig, current on the calling
// thread with an optional pbuffer. The display is left initialised.
class ConfigContext {
public:
    ~ConfigContext() {
        if (mContext != EGL_NO_CONTEXT) {
            eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            eglDestroyContext(mDisplay, mContext);
        }
        if (mSurface != EGL_NO_SURFACE) {
            eglDestroySurface(mDisplay, mSurface);
        }
    }

    // pbufferWidth 0: current without a surface.
    testing::AssertionResult open(EGLint pbufferWidth = 0, EGLint pbufferHeight = 0) {
        mDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        if (mDisplay == EGL_NO_DISPLAY) {
            return testing::AssertionFailure() << "eglGetDisplay: EGL_NO_DISPLAY";
        }
        if (!eglInitialize(mDisplay, &mMajor, &mMinor)) {
            return testing::AssertionFailure() << "eglInitialize: 0x" << std::hex << eglGetError();
        }
        // clang-format off
        const EGLint configAttribs[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT,
                                        EGL_SURFACE_TYPE, EGL_PBUFFER_BIT,
                                        EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8,
                                        EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE, 8,
                                        EGL_NONE};
        // clang-format on
        EGLint count = 0;
        if (!eglChooseConfig(mDisplay, configAttribs, &mConfig, 1, &count) || count < 1) {
            return testing::AssertionFailure() << "eglChooseConfig found no ES 3 RGBA8 config";
        }
        const EGLint contextAttribs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_NONE};
        mContext = eglCreateContext(mDisplay, mConfig, EGL_NO_CONTEXT, contextAttribs);
        if (mContext == EGL_NO_CONTEXT) {
            return testing::AssertionFailure()
                   << "eglCreateContext: 0x" << std::hex << eglGetError();
        }
        if (pbufferWidth > 0) {
            const EGLint surfaceAttribs[] = {EGL_WIDTH, pbufferWidth, EGL_HEIGHT, pbufferHeight,
                                             EGL_NONE};
            mSurface = eglCreatePbufferSurface(mDisplay, mConfig, surfaceAttribs);
            if (mSurface == EGL_NO_SURFACE) {
                return testing::AssertionFailure()
                       << "eglCreatePbufferSurface: 0x" << std::hex << eglGetError();
            }
        }
        if (!eglMakeCurrent(mDisplay, mSurface, mSurface, mContext)) {
            return testing::AssertionFailure() << "eglMakeCurrent: 0x" << std::hex << eglGetError();
        }
        return testing::AssertionSuccess();
    }

    EGLDisplay display() const { return mDisplay; }
    EGLSurface surface() const { return mSurface; }
    EGLContext context() const { return mContext; }
    EGLint major() const { return mMajor; }
    EGLint minor() const { return mMinor; }

private:
    EGLDisplay mDisplay = EGL_NO_DISPLAY;
    EGLConfig mConfig = nullptr;
    EGLContext mContext = EGL_NO_CONTEXT;
    EGLSurface mSurface = EGL_NO_SURFACE;
    EGLint mMajor = 0;
    EGLint mMinor = 0;
};

// An RGBA8 texture attached to a framebuffer, bound for drawing and reading.
class TextureTarget {
public:
    TextureTarget(GLsizei width, GLsizei height) : mWidth(width), mHeight(height) {
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
    std::vector<uint8_t> read() const {
        std::vector<uint8_t> pixels(static_cast<size_t>(mWidth) * mHeight * 4, 0xEE);
        glReadPixels(0, 0, mWidth, mHeight, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        return pixels;
    }

private:
    GLsizei mWidth;
    GLsizei mHeight;
    GLuint mTexture = 0;
    GLuint mFramebuffer = 0;
};

// A linked program; 0 with the log in *error on failure.
GLuint buildProgram(const std::vector<std::pair<GLenum, const char*>>& stages, std::string* error) {
    GLuint program = glCreateProgram();
    for (const auto& [type, source] : stages) {
        GLuint shader = glCreateShader(type);
        glShaderSource(shader, 1, &source, nullptr);
        glCompileShader(shader);
        GLint compiled = GL_FALSE;
        glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
        if (!compiled) {
            char log[1024] = {};
            glGetShaderInfoLog(shader, sizeof(log), nullptr, log);
            *error = std::string("compile: ") + log;
            glDeleteShader(shader);
            glDeleteProgram(program);
            return 0;
        }
        glAttachShader(program, shader);
        glDeleteShader(shader);  // freed with the program
    }
    glLinkProgram(program);
    GLint linked = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    if (!linked) {
        char log[1024] = {};
        glGetProgramInfoLog(program, sizeof(log), nullptr, log);
        *error = std::string("link: ") + log;
        glDeleteProgram(program);
        return 0;
    }
    return program;
}

const char* const kVertexShader = R"(#version 300 es
in vec2 aPosition;
void main() {
    gl_Position = vec4(aPosition, 0.0, 1.0);
})";

const char* const kFragmentShader = R"(#version 300 es
precision mediump float;
uniform vec4 uColor;
out vec4 fragColor;
void main() {
    fragColor = uColor;
})";

// Draws the lower-left half of the viewport (below the diagonal from top-left to bottom-right)
// in one colour.
class TriangleDrawer {
public:
    testing::AssertionResult build() {
        std::string error;
        mProgram = buildProgram(
            {{GL_VERTEX_SHADER, kVertexShader}, {GL_FRAGMENT_SHADER, kFragmentShader}}, &error);
        if (mProgram == 0) {
            return testing::AssertionFailure() << error;
        }
        const GLint position = glGetAttribLocation(mProgram, "aPosition");
        mColor = glGetUniformLocation(mProgram, "uColor");
        if (position < 0 || mColor < 0) {
            return testing::AssertionFailure() << "attribute or uniform not found";
        }
        const GLfloat vertices[] = {-1.0f, -1.0f, 1.0f, -1.0f, -1.0f, 1.0f};
        glGenVertexArrays(1, &mVertexArray);
        glBindVertexArray(mVertexArray);
        glGenBuffers(1, &mBuffer);
        glBindBuffer(GL_ARRAY_BUFFER, mBuffer);
        glBufferData(GL_ARRAY_BUFFER, sizeof(vertices), vertices, GL_STATIC_DRAW);
        glVertexAttribPointer(position, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(position);
        return testing::AssertionSuccess();
    }
    ~TriangleDrawer() {
        glDeleteBuffers(1, &mBuffer);
        glDeleteVertexArrays(1, &mVertexArray);
        glDeleteProgram(mProgram);
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

bool pixelIs(const std::vector<uint8_t>& pixels, int width, int x, int y, const uint8_t rgba[4]) {
    return memcmp(&pixels[(static_cast<size_t>(y) * width + x) * 4], rgba, 4) == 0;
}

class GpuForwarding : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
    }
};

TEST_F(GpuForwarding, DefaultDisplayContextClearsAFramebufferExactly) {
    ConfigContext context;
    ASSERT_TRUE(context.open());
    EXPECT_EQ(context.display(),
              eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    EXPECT_EQ(context.major(), 1);
    EXPECT_GE(context.minor(), 4);
    EXPECT_EQ(eglGetCurrentContext(), context.context());
    EXPECT_EQ(eglGetCurrentDisplay(), context.display());
    const char* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(std::string(version).rfind("OpenGL ES 3.", 0), 0u) << version;

    // Odd sizes catch row-pitch mistakes; the colours are exact in 8 bits.
    const int width = 37;
    const int height = 19;
    TextureTarget target(width, height);
    ASSERT_TRUE(target.complete());
    const uint8_t background[4] = {0x12, 0x34, 0x56, 0x78};
    const uint8_t box[4] = {0xF0, 0x0D, 0xCA, 0xFE};
    clearTo(background);
    glEnable(GL_SCISSOR_TEST);
    glScissor(5, 3, 10, 7);
    clearTo(box);
    glDisable(GL_SCISSOR_TEST);
    const std::vector<uint8_t> pixels = target.read();
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));

    int wrong = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool inBox = x >= 5 && x < 15 && y >= 3 && y < 10;
            wrong += pixelIs(pixels, width, x, y, inBox ? box : background) ? 0 : 1;
        }
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(GpuForwarding, PbufferSurfaceClearsAndReadsBack) {
    ConfigContext context;
    ASSERT_TRUE(context.open(16, 8));
    EGLint width = 0;
    EGLint height = 0;
    EXPECT_TRUE(eglQuerySurface(context.display(), context.surface(), EGL_WIDTH, &width));
    EXPECT_TRUE(eglQuerySurface(context.display(), context.surface(), EGL_HEIGHT, &height));
    EXPECT_EQ(width, 16);
    EXPECT_EQ(height, 8);
    EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW), context.surface());

    const uint8_t colour[4] = {0x01, 0x80, 0xFF, 0xFF};
    glViewport(0, 0, width, height);
    clearTo(colour);
    std::vector<uint8_t> pixels(16 * 8 * 4, 0);
    glReadPixels(0, 0, 16, 8, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    for (int i = 0; i < 16 * 8; ++i) {
        ASSERT_EQ(memcmp(&pixels[i * 4], colour, 4), 0) << "pixel " << i;
    }
}

TEST_F(GpuForwarding, ShaderProgramDrawsATriangle) {
    ConfigContext context;
    ASSERT_TRUE(context.open());
    const int size = 64;
    TextureTarget target(size, size);
    ASSERT_TRUE(target.complete());
    TriangleDrawer triangle;
    ASSERT_TRUE(triangle.build());

    const uint8_t background[4] = {0x00, 0x00, 0x40, 0xFF};
    const uint8_t ink[4] = {0xC8, 0x64, 0x19, 0xFF};
    clearTo(background);
    triangle.draw(ink);
    const std::vector<uint8_t> pixels = target.read();
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));

    // Pixel centres with x + y < size - 1 are inside, x + y > size - 1 outside; the diagonal
    // itself follows the rasteriser's tie rule, so it is not checked.
    int inside = 0;
    int outside = 0;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            if (x + y < size - 1) {
                inside += pixelIs(pixels, size, x, y, ink) ? 1 : 0;
            } else if (x + y > size - 1) {
                outside += pixelIs(pixels, size, x, y, background) ? 1 : 0;
            }
        }
    }
    EXPECT_EQ(inside, size * (size - 1) / 2);
    EXPECT_EQ(outside, size * (size - 1) / 2);
}

TEST_F(GpuForwarding, ComputeShaderFillsAStorageBuffer) {
    ConfigContext context;
    ASSERT_TRUE(context.open());
    const char* const compute = R"(#version 310 es
layout(local_size_x = 64) in;
layout(std430, binding = 3) buffer Values { uint values[]; };
void main() {
    uint i = gl_GlobalInvocationID.x;
    values[i] = i * i + 7u;
})";
    std::string error;
    GLuint program = buildProgram({{GL_COMPUTE_SHADER, compute}}, &error);
    ASSERT_NE(program, 0u) << error;
    ScopeExit deleteProgram([program] { glDeleteProgram(program); });

    const GLuint count = 256;
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    ScopeExit deleteBuffer([&buffer] { glDeleteBuffers(1, &buffer); });
    glBindBuffer(GL_SHADER_STORAGE_BUFFER, buffer);
    std::vector<GLuint> poison(count, 0xDEADBEEF);
    glBufferData(GL_SHADER_STORAGE_BUFFER, count * sizeof(GLuint), poison.data(), GL_DYNAMIC_READ);
    glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 3, buffer);
    glUseProgram(program);
    glDispatchCompute(count / 64, 1, 1);
    glMemoryBarrier(GL_BUFFER_UPDATE_BARRIER_BIT);

    const auto* values = static_cast<const GLuint*>(
        glMapBufferRange(GL_SHADER_STORAGE_BUFFER, 0, count * sizeof(GLuint), GL_MAP_READ_BIT));
    ASSERT_NE(values, nullptr);
    int wrong = 0;
    for (GLuint i = 0; i < count; ++i) {
        wrong += values[i] == i * i + 7 ? 0 : 1;
    }
    EXPECT_TRUE(glUnmapBuffer(GL_SHADER_STORAGE_BUFFER));
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

TEST_F(GpuForwarding, TwoThreadsDrawWithTheirOwnContextsAtOnce) {
    // The display is initialised once here so that neither thread terminates it under the other.
    EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    ASSERT_TRUE(eglInitialize(display, nullptr, nullptr));

    constexpr int kThreads = 2;
    constexpr int kFrames = 30;
    std::atomic<int> ready{0};
    std::atomic<int> failures[kThreads] = {};
    std::string setupErrors[kThreads];

    auto work = [&](int index) {
        ConfigContext context;
        testing::AssertionResult opened = context.open();
        TextureTarget target(24 + index * 8, 24 + index * 8);
        TriangleDrawer triangle;
        testing::AssertionResult built =
            opened ? triangle.build() : testing::AssertionFailure() << "no context";
        if (!opened || !built || !target.complete()) {
            setupErrors[index] = !opened ? opened.message() : built.message();
            failures[index] = kFrames;
        }
        // Start drawing together, so that the contexts really are in use at the same time.
        ++ready;
        while (ready.load() < kThreads) {
            std::this_thread::yield();
        }
        if (failures[index] != 0) {
            return;
        }
        const int size = 24 + index * 8;
        for (int frame = 0; frame < kFrames; ++frame) {
            const uint8_t background[4] = {static_cast<uint8_t>(index * 100), 0x10,
                                           static_cast<uint8_t>(frame), 0xFF};
            const uint8_t ink[4] = {static_cast<uint8_t>(frame * 8), static_cast<uint8_t>(index),
                                    0xA0, 0xFF};
            clearTo(background);
            triangle.draw(ink);
            const std::vector<uint8_t> pixels = target.read();
            if (!pixelIs(pixels, size, 1, 1, ink) ||
                !pixelIs(pixels, size, size - 2, size - 2, background)) {
                ++failures[index];
            }
        }
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    for (int i = 0; i < kThreads; ++i) {
        EXPECT_EQ(failures[i].load(), 0) << "thread " << i << " " << setupErrors[i];
    }
}

}  // namespace
