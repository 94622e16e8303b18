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
 * --pair and --method restrict the run (bench/callgrind.sh counts instructions that way).
 * --cpu-writes-destination 1 has the CPU write our destination before every frame (in the
 * frame's time), as a decoder recycling its buffers does; the floor never reads its destination.
 */
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
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

double medianMs(int frames, const std::function<bool()>& frame) {
    if (!frame()) {  // warm: programs, images, driver state
        return -1.0;
    }
    std::vector<double> times;
    for (int i = 0; i < frames; ++i) {
        const auto start = std::chrono::steady_clock::now();
        if (!frame()) {
            return -1.0;
        }
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count());
    }
    std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
    return times[times.size() / 2];
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

double oursMs(const Pair& pair, uint32_t width, uint32_t height, int frames,
              bool cpuWritesDestination) {
    Renderer::Args args;
    args.rendererType = 1;
    std::shared_ptr<Renderer> renderer = Renderer::create(args);
    if (renderer == nullptr) {
        return -1.0;
    }
    uint32_t enable = 3;
    renderer->setConfig(Renderer::ENABLE, &enable);
    const std::vector<Buffer> inputs{
        {std::make_shared<ExternalTexture>(allocate(pair.src, width, height)), nullptr}};
    const android::sp<android::GraphicBuffer> destination = allocate(pair.dst, width, height);
    Buffer output{std::make_shared<ExternalTexture>(destination), nullptr};
    return medianMs(frames, [&] {
        if (cpuWritesDestination) {
            touch(destination);
        }
        return renderer->blit(inputs, output, -1, kav::zel::APP_INSIDE_DEFAULT) == kav::zel::OK;
    });
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

double floorMs(GlFloor& gl, const Pair& pair, uint32_t width, uint32_t height, int frames) {
    if (!gl.makeCurrent()) {
        return -1.0;
    }
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    std::vector<Plane> sources = planesOf(pair.src, width, height);
    std::vector<Plane> targets = planesOf(pair.dst, width, height);
    std::vector<GLuint> programs;
    for (size_t i = 0; i < targets.size(); ++i) {
        programs.push_back(gl.program(floorShader(pair, i)));
    }
    GLuint framebuffer = 0;
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    GLuint vertexArray = 0;
    glGenVertexArrays(1, &vertexArray);
    glBindVertexArray(vertexArray);

    const double ms = medianMs(frames, [&] {
        for (size_t i = 0; i < sources.size(); ++i) {
            const Plane& plane = sources[i];
            glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(i));
            glBindTexture(GL_TEXTURE_2D, plane.texture);
            glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, static_cast<GLsizei>(plane.width),
                            static_cast<GLsizei>(plane.height), plane.format, plane.type,
                            plane.memory.data());
        }
        for (size_t i = 0; i < targets.size(); ++i) {
            Plane& plane = targets[i];
            glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                                   plane.texture, 0);
            glViewport(0, 0, static_cast<GLsizei>(plane.width), static_cast<GLsizei>(plane.height));
            glUseProgram(programs[i]);
            glDrawArrays(GL_TRIANGLES, 0, 3);
            glReadPixels(0, 0, static_cast<GLsizei>(plane.width),
                         static_cast<GLsizei>(plane.height), plane.format, plane.type,
                         plane.memory.data());
        }
        return glGetError() == GL_NO_ERROR;
    });

    glDeleteVertexArrays(1, &vertexArray);
    glDeleteFramebuffers(1, &framebuffer);
    for (GLuint program : programs) {
        glDeleteProgram(program);
    }
    for (const std::vector<Plane>* planes : {&sources, &targets}) {
        for (const Plane& plane : *planes) {
            glDeleteTextures(1, &plane.texture);
        }
    }
    return ms;
}

// --- libyuv ------------------------------------------------------------------------------------

double libyuvMs(const Pair& pair, uint32_t width, uint32_t height, int frames) {
    const int w = static_cast<int>(width);
    const int h = static_cast<int>(height);
    const int cw = (w + 1) / 2;
    const int ch = (h + 1) / 2;
    std::vector<uint8_t> src(size_t(w) * h * 4, 0x5a);
    std::vector<uint8_t> dst(size_t(w) * h * 4);
    uint8_t* s = src.data();
    uint8_t* d = dst.data();
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
    return medianMs(frames, [&] { return convert() == 0; });
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
    std::printf("| pair | ours (ms) | floor (ms) | libyuv (ms) | ours/floor | ours/libyuv |\n");
    std::printf("|---|---|---|---|---|---|\n");
    const auto wanted = [&](const char* method) {
        return onlyMethod.empty() || onlyMethod == method;
    };
    for (const Pair& pair : kPairs) {
        if (!onlyPair.empty() && onlyPair != pair.name) {
            continue;
        }
        const double ours =
            wanted("ours") ? oursMs(pair, width, height, frames, cpuWritesDestination) : -1.0;
        const double floor = wanted("floor") ? floorMs(gl, pair, width, height, frames) : -1.0;
        const double cpu = wanted("libyuv") ? libyuvMs(pair, width, height, frames) : -1.0;
        std::printf("| %s | %s | %s | %s | %s | %s |\n", pair.name, ms(ours).c_str(),
                    ms(floor).c_str(), ms(cpu).c_str(), ratio(ours, floor).c_str(),
                    ratio(ours, cpu).c_str());
        std::fflush(stdout);
    }
    return 0;
}
