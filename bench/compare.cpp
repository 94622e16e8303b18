/*
 * Side-by-side cost of one steady-state frame, in one run: the library's synchronous blit, the
 * floor (a minimal hand-written conversion through the same EGL/GLES driver: upload the planes,
 * one draw per output plane with an equivalent shader, read back) and libyuv on the CPU, for the
 * same pair of formats and frame size. Prints a table of medians and ratios with the machine,
 * LP_NUM_THREADS, the driver's version string and the date.
 *
 *   LP_NUM_THREADS=2 ./build/bin/zel_compare [--frames N] [--size WxH] [--pair NV21->RGBA]
 *                                            [--method ours|floor|libyuv]
 *                                            [--cpu-writes-destination 1]
 *
 * The three take turns frame by frame, so that each sees the same load on a shared machine; each
 * runs on a thread of its own, where its context stays current.
 * --pair and --method restrict the run (bench/callgrind.sh counts instructions that way).
 * --cpu-writes-destination 1 has the CPU write our destination before every frame (in the
 * frame's time), as a decoder recycling its buffers does; the floor never reads its destination.
 */
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <EGL/egl.h>
#include <GLES3/gl3.h>
#include <GLES2/gl2ext.h>
#include <libyuv.h>
#include <ui/GraphicBuffer.h>

#include "BenchPairs.h"

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>

namespace {

using kav::zel::Buffer;
using kav::zel::ExternalTexture;
using kav::zel::Renderer;

using namespace zel_bench;

// One way of converting a frame. `prepare` (not timed) makes the method's context current on the
// thread; `frame` converts one frame; `finish` releases what the method made. No `frame`: the
// method could not be set up.
struct Method {
    std::function<bool()> prepare = [] { return true; };
    std::function<bool()> frame;
    std::function<void()> finish = [] {};
};

// Runs jobs on a thread of its own, one at a time, each call waiting for its job: a method is set
// up, run and finished on one thread, where its context stays current.
class Worker {
public:
    Worker() : mThread([this] { loop(); }) {}
    ~Worker() {
        run(nullptr);
        mThread.join();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // An empty job ends the thread.
    void run(std::function<void()> job) {
        std::unique_lock<std::mutex> lock(mMutex);
        mJob = std::move(job);
        mPending = true;
        mCondition.notify_all();
        mCondition.wait(lock, [this] { return !mPending; });
    }

private:
    void loop() {
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            mCondition.wait(lock, [this] { return mPending; });
            std::function<void()> job = std::move(mJob);
            if (job) {
                lock.unlock();
                job();
                lock.lock();
            }
            mPending = false;
            mCondition.notify_all();
            if (!job) {
                return;
            }
        }
    }

    std::mutex mMutex;
    std::condition_variable mCondition;
    std::function<void()> mJob;
    bool mPending = false;
    std::thread mThread;  // last: starts once the rest is made
};

// The median time of `frames` frames of each method, in ms (-1 where a method failed or was not
// asked for). Each method lives on a thread of its own (no context switches), and the methods
// take turns frame by frame, so that each sees the same load on a shared machine; each is warmed
// (programs, images, driver state) by one untimed frame first.
std::vector<double> interleavedMedians(const std::vector<std::function<Method()>>& makers,
                                       int frames) {
    const size_t count = makers.size();
    std::vector<std::unique_ptr<Worker>> workers;
    std::vector<Method> methods(count);
    std::vector<bool> ok(count, false);
    std::vector<std::vector<double>> times(count);
    for (size_t m = 0; m < count; ++m) {
        workers.push_back(std::make_unique<Worker>());
        if (makers[m]) {
            workers[m]->run([&, m] {
                methods[m] = makers[m]();
                ok[m] = methods[m].frame && methods[m].prepare() && methods[m].frame();
            });
        }
    }
    for (int i = 0; i < frames; ++i) {
        for (size_t m = 0; m < count; ++m) {
            if (!ok[m]) {
                continue;
            }
            workers[m]->run([&, m] {
                if (!(ok[m] = methods[m].prepare())) {
                    return;
                }
                const auto start = std::chrono::steady_clock::now();
                ok[m] = methods[m].frame();
                times[m].push_back(std::chrono::duration<double, std::milli>(
                                       std::chrono::steady_clock::now() - start)
                                       .count());
            });
        }
    }
    std::vector<double> medians(count, -1.0);
    for (size_t m = 0; m < count; ++m) {
        if (methods[m].frame) {
            workers[m]->run([&, m] { methods[m].finish(); });
        }
        if (ok[m] && !times[m].empty()) {
            std::vector<double>& t = times[m];
            std::nth_element(t.begin(), t.begin() + t.size() / 2, t.end());
            medians[m] = t[t.size() / 2];
        }
    }
    return medians;
}

// --- the library -------------------------------------------------------------------------------

android::sp<android::GraphicBuffer> allocate(int32_t format, uint32_t width, uint32_t height) {
    android::sp<android::GraphicBuffer> buffer =
        new android::GraphicBuffer(width, height, format, 1, kGpuUsage, "zel-compare");
    void* pixels = nullptr;
    if (buffer->lock(0x33, &pixels) == android::OK && pixels != nullptr) {
        unsigned char* bytes = static_cast<unsigned char*>(pixels);
        for (size_t i = 0; i < size_t(width) * height; ++i) {
            bytes[i] = static_cast<unsigned char>(i * 7);
        }
        buffer->unlock();
    }
    return buffer;
}

Method oursMethod(const Pair& pair, uint32_t width, uint32_t height, bool cpuWritesDestination) {
    struct State {
        std::shared_ptr<Renderer> renderer;
        std::vector<Buffer> inputs;
        android::sp<android::GraphicBuffer> destination;
        Buffer output;
        EGLDisplay display = EGL_NO_DISPLAY;
        EGLSurface surface = EGL_NO_SURFACE;
        EGLContext context = EGL_NO_CONTEXT;
    };
    auto state = std::make_shared<State>();
    Renderer::Args args;
    args.rendererType = 1;
    state->renderer = Renderer::create(args);
    if (state->renderer == nullptr) {
        return {};
    }
    // The GLES renderer works in the context it made current on this thread.
    state->display = eglGetCurrentDisplay();
    state->surface = eglGetCurrentSurface(EGL_DRAW);
    state->context = eglGetCurrentContext();
    uint32_t enable = 3;
    state->renderer->setConfig(Renderer::ENABLE, &enable);
    state->inputs = {
        {std::make_shared<ExternalTexture>(allocate(pair.src, width, height)), nullptr}};
    state->destination = allocate(pair.dst, width, height);
    state->output = {std::make_shared<ExternalTexture>(state->destination), nullptr};
    Method method;
    method.prepare = [state] {
        return eglMakeCurrent(state->display, state->surface, state->surface, state->context) ==
               EGL_TRUE;
    };
    method.frame = [state, cpuWritesDestination] {
        if (cpuWritesDestination) {
            touch(state->destination);
        }
        return state->renderer->blit(state->inputs, state->output, -1,
                                     kav::zel::APP_INSIDE_DEFAULT) == kav::zel::OK;
    };
    method.finish = [state] {
        state->output = {};
        state->inputs.clear();
        state->renderer.reset();
    };
    return method;
}

// --- the floor ---------------------------------------------------------------------------------

const char* const kVertex = R"(#version 300 es
out vec2 t;
void main() {
    vec2 p = vec2(float((gl_VertexID << 1) & 2), float(gl_VertexID & 2));
    t = p;
    gl_Position = vec4(p * 2.0 - 1.0, 0.0, 1.0);
})";

// BT.601 limited range, as the library's default for these buffers.
const char* const kToRgb = R"(
vec4 rgb(float y, float u, float v) {
    y = 1.164384 * (y - 0.062745);
    u -= 0.501961;
    v -= 0.501961;
    return vec4(y + 1.596027 * v, y - 0.391762 * u - 0.812968 * v, y + 2.017232 * u, 1.0);
})";

const char* const kFromRgb = R"(
vec3 yuv(vec3 c) {
    return vec3(dot(c, vec3(0.256788, 0.504129, 0.097906)) + 0.062745,
                dot(c, vec3(-0.148223, -0.290993, 0.439216)) + 0.501961,
                dot(c, vec3(0.439216, -0.367788, -0.071427)) + 0.501961);
})";

std::string fragment(const char* body) {
    return std::string(
               "#version 300 es\nprecision highp float;\nin vec2 t;\nout vec4 o;\n"
               "uniform sampler2D s0, s1, s2;\n") +
           kToRgb + kFromRgb + "\nvoid main() {\n" + body + "\n}\n";
}

class GlFloor {
public:
    bool init() {
        mDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        if (mDisplay == EGL_NO_DISPLAY || !eglInitialize(mDisplay, nullptr, nullptr)) {
            return false;
        }
        const EGLint configAttributes[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        if (!eglChooseConfig(mDisplay, configAttributes, &config, 1, &count) || count == 0) {
            return false;
        }
        const EGLint contextAttributes[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
        mContext = eglCreateContext(mDisplay, config, EGL_NO_CONTEXT, contextAttributes);
        return mContext != EGL_NO_CONTEXT && makeCurrent();
    }
    ~GlFloor() {
        if (mContext != EGL_NO_CONTEXT) {
            eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            eglDestroyContext(mDisplay, mContext);
        }
    }
    bool makeCurrent() {
        return eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, mContext) == EGL_TRUE;
    }
    void release() { eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT); }

    GLuint program(const char* body) {
        const std::string text = fragment(body);
        GLuint shaders[2] = {compile(GL_VERTEX_SHADER, kVertex),
                             compile(GL_FRAGMENT_SHADER, text.c_str())};
        GLuint program = glCreateProgram();
        glAttachShader(program, shaders[0]);
        glAttachShader(program, shaders[1]);
        glLinkProgram(program);
        GLint linked = 0;
        glGetProgramiv(program, GL_LINK_STATUS, &linked);
        if (!linked) {
            char log[512] = {};
            glGetProgramInfoLog(program, sizeof(log), nullptr, log);
            std::fprintf(stderr, "floor: link failed: %s\n", log);
        }
        glUseProgram(program);
        for (int i = 0; i < 3; ++i) {
            const std::string name = "s" + std::to_string(i);
            glUniform1i(glGetUniformLocation(program, name.c_str()), i);
        }
        return program;
    }

    static GLuint texture(GLenum internalFormat, uint32_t width, uint32_t height) {
        GLuint name = 0;
        glGenTextures(1, &name);
        glBindTexture(GL_TEXTURE_2D, name);
        glTexStorage2D(GL_TEXTURE_2D, 1, internalFormat, static_cast<GLsizei>(width),
                       static_cast<GLsizei>(height));
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        return name;
    }

    std::string version() const {
        const GLubyte* text = glGetString(GL_VERSION);
        return text != nullptr ? reinterpret_cast<const char*>(text) : "unknown";
    }

private:
    static GLuint compile(GLenum type, const char* text) {
        GLuint shader = glCreateShader(type);
        glShaderSource(shader, 1, &text, nullptr);
        glCompileShader(shader);
        GLint compiled = 0;
        glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
        if (!compiled) {
            char log[512] = {};
            glGetShaderInfoLog(shader, sizeof(log), nullptr, log);
            std::fprintf(stderr, "floor: compile failed: %s\n", log);
        }
        return shader;
    }

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
    EGLContext mContext = EGL_NO_CONTEXT;
};

// One plane in CPU memory and the texture that holds it on the GPU.
struct Plane {
    GLuint texture = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    GLenum format = GL_RED;
    GLenum type = GL_UNSIGNED_BYTE;
    uint32_t bytesPerTexel = 1;
    std::vector<uint8_t> memory;
};

Plane makePlane(GLenum internalFormat, GLenum format, GLenum type, uint32_t bytesPerTexel,
                uint32_t width, uint32_t height) {
    Plane plane;
    plane.texture = GlFloor::texture(internalFormat, width, height);
    plane.width = width;
    plane.height = height;
    plane.format = format;
    plane.type = type;
    plane.bytesPerTexel = bytesPerTexel;
    plane.memory.resize(size_t(width) * height * bytesPerTexel);
    for (size_t i = 0; i < plane.memory.size(); ++i) {
        plane.memory[i] = static_cast<uint8_t>(i * 7);
    }
    return plane;
}

// The planes of a format at `width` x `height`.
std::vector<Plane> planesOf(int32_t format, uint32_t width, uint32_t height) {
    std::vector<Plane> planes;
    const uint32_t cw = (width + 1) / 2;
    const uint32_t ch = (height + 1) / 2;
    switch (format) {
        case kRgba:
            planes.push_back(makePlane(GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4, width, height));
            break;
        case kNv21:
            planes.push_back(makePlane(GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1, width, height));
            planes.push_back(makePlane(GL_RG8, GL_RG, GL_UNSIGNED_BYTE, 2, cw, ch));
            break;
        case kP010:
            planes.push_back(makePlane(GL_R16_EXT, GL_RED, GL_UNSIGNED_SHORT, 2, width, height));
            planes.push_back(makePlane(GL_RG16_EXT, GL_RG, GL_UNSIGNED_SHORT, 4, cw, ch));
            break;
        case kYv12:
            planes.push_back(makePlane(GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1, width, height));
            planes.push_back(makePlane(GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1, cw, ch));
            planes.push_back(makePlane(GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1, cw, ch));
            break;
        default:
            break;
    }
    return planes;
}

// The fragment shader body that produces output plane `plane` of `pair`.
const char* floorShader(const Pair& pair, size_t plane) {
    if (pair.dst == kRgba) {
        switch (pair.src) {
            case kNv21:
                return "vec2 vu = texture(s1, t).rg; o = rgb(texture(s0, t).r, vu.g, vu.r);";
            case kP010:
                return "const float k = 65535.0 / 65472.0; vec2 uv = texture(s1, t).rg * k;"
                       " o = rgb(texture(s0, t).r * k, uv.r, uv.g);";
            case kYv12:  // Cr plane first
                return "o = rgb(texture(s0, t).r, texture(s2, t).r, texture(s1, t).r);";
            default:
                return "o = texture(s0, t);";
        }
    }
    if (pair.src == kRgba) {
        // One bilinear sample at the centre of each 2x2 block averages it.
        return plane == 0 ? "o = vec4(yuv(texture(s0, t).rgb).x);"
                          : "vec3 c = yuv(texture(s0, t).rgb); o = vec4(c.z, c.y, 0.0, 1.0);";
    }
    return plane == 0 ? "o = texture(s0, t);" : "o = texture(s1, t);";
}

Method floorMethod(GlFloor& gl, const Pair& pair, uint32_t width, uint32_t height) {
    if (!gl.makeCurrent()) {
        return {};
    }
    struct State {
        std::vector<Plane> sources;
        std::vector<Plane> targets;
        std::vector<GLuint> programs;
        GLuint framebuffer = 0;
        GLuint vertexArray = 0;
    };
    auto state = std::make_shared<State>();
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    state->sources = planesOf(pair.src, width, height);
    state->targets = planesOf(pair.dst, width, height);
    for (size_t i = 0; i < state->targets.size(); ++i) {
        state->programs.push_back(gl.program(floorShader(pair, i)));
    }
    glGenFramebuffers(1, &state->framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, state->framebuffer);
    glGenVertexArrays(1, &state->vertexArray);
    glBindVertexArray(state->vertexArray);

    Method method;
    method.prepare = [&gl] { return gl.makeCurrent(); };
    method.frame = [state] {
        for (size_t i = 0; i < state->sources.size(); ++i) {
            const Plane& plane = state->sources[i];
            glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(i));
            glBindTexture(GL_TEXTURE_2D, plane.texture);
            glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, static_cast<GLsizei>(plane.width),
                            static_cast<GLsizei>(plane.height), plane.format, plane.type,
                            plane.memory.data());
        }
        for (size_t i = 0; i < state->targets.size(); ++i) {
            Plane& plane = state->targets[i];
            glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                                   plane.texture, 0);
            glViewport(0, 0, static_cast<GLsizei>(plane.width), static_cast<GLsizei>(plane.height));
            glUseProgram(state->programs[i]);
            glDrawArrays(GL_TRIANGLES, 0, 3);
            glReadPixels(0, 0, static_cast<GLsizei>(plane.width),
                         static_cast<GLsizei>(plane.height), plane.format, plane.type,
                         plane.memory.data());
        }
        return glGetError() == GL_NO_ERROR;
    };
    method.finish = [&gl, state] {
        if (!gl.makeCurrent()) {
            return;
        }
        glDeleteVertexArrays(1, &state->vertexArray);
        glDeleteFramebuffers(1, &state->framebuffer);
        for (GLuint program : state->programs) {
            glDeleteProgram(program);
        }
        for (const std::vector<Plane>* planes : {&state->sources, &state->targets}) {
            for (const Plane& plane : *planes) {
                glDeleteTextures(1, &plane.texture);
            }
        }
        gl.release();
    };
    return method;
}

// --- libyuv ------------------------------------------------------------------------------------

Method libyuvMethod(const Pair& pair, uint32_t width, uint32_t height) {
    const int w = static_cast<int>(width);
    const int h = static_cast<int>(height);
    const int cw = (w + 1) / 2;
    const int ch = (h + 1) / 2;
    auto memory = std::make_shared<std::vector<uint8_t>>(size_t(w) * h * 8, 0x5a);
    uint8_t* s = memory->data();
    uint8_t* d = s + size_t(w) * h * 4;
    uint8_t* sChroma = s + size_t(w) * h * (pair.src == kP010 ? 2 : 1);
    uint8_t* dChroma = d + size_t(w) * h;
    std::function<int()> convert;
    if (pair.src == kNv21 && pair.dst == kRgba) {
        convert = [=] { return libyuv::NV21ToABGR(s, w, sChroma, 2 * cw, d, 4 * w, w, h); };
    } else if (pair.src == kRgba && pair.dst == kNv21) {
        convert = [=] { return libyuv::ABGRToNV21(s, 4 * w, d, w, dChroma, 2 * cw, w, h); };
    } else if (pair.src == kP010 && pair.dst == kRgba) {
        // libyuv has no P010 to ABGR; ARGB order costs the same.
        const uint16_t* y = reinterpret_cast<const uint16_t*>(s);
        const uint16_t* uv = reinterpret_cast<const uint16_t*>(sChroma);
        convert = [=] {
            return libyuv::P010ToARGBMatrix(y, w, uv, 2 * cw, d, 4 * w, &libyuv::kYuvI601Constants,
                                            w, h);
        };
    } else if (pair.src == kYv12 && pair.dst == kRgba) {
        uint8_t* v = sChroma;
        uint8_t* u = v + size_t(cw) * ch;
        convert = [=] { return libyuv::I420ToABGR(s, w, u, cw, v, cw, d, 4 * w, w, h); };
    } else {
        convert = [=] {
            libyuv::CopyPlane(s, w, d, w, w, h);
            libyuv::CopyPlane(sChroma, 2 * cw, dChroma, 2 * cw, 2 * cw, ch);
            return 0;
        };
    }
    Method method;
    method.frame = [memory, convert] { return convert() == 0; };
    return method;
}

// --- the table ---------------------------------------------------------------------------------

std::string machine() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line;
    std::string model = "unknown CPU";
    while (std::getline(cpuinfo, line)) {
        if (line.rfind("model name", 0) == 0) {
            model = line.substr(line.find(':') + 2);
            break;
        }
    }
    return model + ", " + std::to_string(std::thread::hardware_concurrency()) + " cores";
}

std::string ratio(double value, double base) {
    if (value < 0 || base <= 0) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof(text), "%.2fx", value / base);
    return text;
}

std::string ms(double value) {
    if (value < 0) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f", value);
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    int frames = 30;
    uint32_t width = 1920;
    uint32_t height = 1080;
    std::string onlyPair;
    std::string onlyMethod;
    bool cpuWritesDestination = false;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--frames") == 0) {
            frames = std::max(1, std::atoi(argv[i + 1]));
        } else if (std::strcmp(argv[i], "--size") == 0) {
            std::sscanf(argv[i + 1], "%ux%u", &width, &height);
        } else if (std::strcmp(argv[i], "--pair") == 0) {
            onlyPair = argv[i + 1];
        } else if (std::strcmp(argv[i], "--method") == 0) {
            onlyMethod = argv[i + 1];
        } else if (std::strcmp(argv[i], "--cpu-writes-destination") == 0) {
            cpuWritesDestination = std::atoi(argv[i + 1]) != 0;
        }
    }
    GlFloor gl;
    if (!gl.init()) {
        std::fprintf(stderr, "zel_compare: no ES 3 context\n");
        return 1;
    }
    char date[32];
    const std::time_t now = std::time(nullptr);
    std::strftime(date, sizeof(date), "%Y-%m-%d %H:%M UTC", std::gmtime(&now));
    const char* threads = std::getenv("LP_NUM_THREADS");
    std::printf("%s; LP_NUM_THREADS=%s; %s; %s; %ux%u, median of %d frames%s\n\n",
                machine().c_str(), threads != nullptr ? threads : "unset", gl.version().c_str(),
                date, width, height, frames,
                cpuWritesDestination ? "; the CPU writes our destination before every frame" : "");
    gl.release();  // the floor's context is made current on its own thread
    std::printf("| pair | ours (ms) | floor (ms) | libyuv (ms) | ours/floor | ours/libyuv |\n");
    std::printf("|---|---|---|---|---|---|\n");
    const auto wanted = [&](const char* method) {
        return onlyMethod.empty() || onlyMethod == method;
    };
    for (const Pair& pair : kPairs) {
        if (!onlyPair.empty() && onlyPair != pair.name) {
            continue;
        }
        std::vector<std::function<Method()>> makers(3);
        if (wanted("ours")) {
            makers[0] = [&] { return oursMethod(pair, width, height, cpuWritesDestination); };
        }
        if (wanted("floor")) {
            makers[1] = [&] { return floorMethod(gl, pair, width, height); };
        }
        if (wanted("libyuv")) {
            makers[2] = [&] { return libyuvMethod(pair, width, height); };
        }
        const std::vector<double> medians = interleavedMedians(makers, frames);
        const double ours = medians[0];
        const double floor = medians[1];
        const double cpu = medians[2];
        std::printf("| %s | %s | %s | %s | %s | %s |\n", pair.name, ms(ours).c_str(),
                    ms(floor).c_str(), ms(cpu).c_str(), ratio(ours, floor).c_str(),
                    ratio(ours, cpu).c_str());
        std::fflush(stdout);
    }
    return 0;
}
