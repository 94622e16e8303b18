#include "YuvPassPrograms.h"

#include <cstdio>
#include <string>

#include "Counters.h"
#include "MesaDriver.h"
#include "YuvShaderCode.h"

namespace zel {
namespace hostgpu {

GLuint YuvPassPrograms::compileShader(GLenum type, const std::string& source, const char* what) {
    const MesaFunctions& gl = mesa();
    const GLuint shader = gl.glCreateShader(type);
    const GLchar* text = source.c_str();
    gl.glShaderSource(shader, 1, &text, nullptr);
    gl.glCompileShader(shader);
    GLint compiled = GL_FALSE;
    gl.glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
    if (compiled != GL_TRUE) {
        char log[2048] = {};
        gl.glGetShaderInfoLog(shader, sizeof(log), nullptr, log);
        fprintf(stderr, "zel host gpu: %s does not compile: %s\n", what, log);
        gl.glDeleteShader(shader);
        return 0;
    }
    return shader;
}

GLenum YuvPassPrograms::reservedUnit(uint32_t index) {
    static const GLint units = [] {
        GLint count = 0;
        mesa().glGetIntegerv(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS, &count);
        return count;
    }();
    return GL_TEXTURE0 + static_cast<GLenum>(units - 1) - index;
}

YuvPassPrograms::Program YuvPassPrograms::build(Pass pass, ImageLayout layout, bool topLeft) {
    const MesaFunctions& gl = mesa();
    std::string fragment;
    switch (pass) {
        case Pass::Unpack:
            fragment = YuvShaderCode::unpackShader(layout);
            break;
        case Pass::PackLuma:
            fragment = YuvShaderCode::packLumaShader(layout);
            break;
        case Pass::PackLumaBytes:
            fragment = YuvShaderCode::packLumaBytesShader(layout);
            break;
        case Pass::PackChroma:
            fragment = YuvShaderCode::packChromaShader(layout, topLeft);
            break;
    }
    Program result;
    result.name = gl.glCreateProgram();
    const GLuint shaders[2] = {
        compileShader(GL_VERTEX_SHADER, YuvShaderCode::passVertexShader(), "a YUV pass shader"),
        compileShader(GL_FRAGMENT_SHADER, fragment, "a YUV pass shader")};
    for (GLuint shader : shaders) {
        if (shader != 0) {
            gl.glAttachShader(result.name, shader);
            gl.glDeleteShader(shader);
        }
    }
    gl.glLinkProgram(result.name);
    GLint linked = GL_FALSE;
    gl.glGetProgramiv(result.name, GL_LINK_STATUS, &linked);
    if (linked != GL_TRUE) {
        char log[1024] = {};
        gl.glGetProgramInfoLog(result.name, sizeof(log), nullptr, log);
        fprintf(stderr, "zel host gpu: a YUV pass program does not link: %s\n", log);
        gl.glDeleteProgram(result.name);
        result.name = 0;
        return result;
    }
    const char* const inputs[] = {"uPlane0", "uPlane1", "uPlane2", "uSource"};
    for (const char* input : inputs) {
        const GLint location = gl.glGetUniformLocation(result.name, input);
        if (location >= 0) {
            const uint32_t index = input[1] == 'S' ? 0 : static_cast<uint32_t>(input[6] - '0');
            gl.glProgramUniform1i(result.name, location,
                                  static_cast<GLint>(reservedUnit(index) - GL_TEXTURE0));
        }
    }
    result.parity = gl.glGetUniformLocation(result.name, "uParity");
    return result;
}

const YuvPassPrograms::Program& YuvPassPrograms::program(Pass pass, ImageLayout layout,
                                                         bool topLeft) {
    const uint32_t key = static_cast<uint32_t>(pass) << 16 | static_cast<uint32_t>(layout) << 8 |
                         (pass == Pass::PackChroma && topLeft ? 1u : 0u);
    auto it = mPrograms.find(key);
    if (it == mPrograms.end()) {
        it = mPrograms.emplace(key, build(pass, layout, topLeft)).first;
    }
    return it->second;
}

bool YuvPassPrograms::run(const PassResources& resources, Pass pass, ImageLayout layout,
                          const GLuint* inputs, uint32_t inputCount, const GLuint* outputs,
                          uint32_t outputCount, uint32_t width, uint32_t height, uint32_t parityX,
                          uint32_t parityY) {
    const Program& chosen = program(pass, layout, resources.chromaTopLeft);
    if (chosen.name == 0) {
        return false;
    }
    const MesaFunctions& gl = mesa();
    for (uint32_t i = 0; i < inputCount; ++i) {
        gl.glActiveTexture(reservedUnit(i));
        gl.glBindTexture(GL_TEXTURE_2D, inputs[i]);
    }
    gl.glBindFramebuffer(GL_DRAW_FRAMEBUFFER, resources.framebuffer);
    GLenum drawBuffers[2] = {GL_NONE, GL_NONE};
    for (uint32_t i = 0; i < outputCount; ++i) {
        gl.glFramebufferTexture2D(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0 + i, GL_TEXTURE_2D,
                                  outputs[i], 0);
        drawBuffers[i] = GL_COLOR_ATTACHMENT0 + i;
    }
    gl.glDrawBuffers(static_cast<GLsizei>(outputCount), drawBuffers);
    gl.glUseProgram(chosen.name);
    if (chosen.parity >= 0) {
        gl.glUniform2i(chosen.parity, static_cast<GLint>(parityX), static_cast<GLint>(parityY));
    }
    gl.glBindVertexArray(resources.vertexArray);
    gl.glViewport(0, 0, static_cast<GLsizei>(width), static_cast<GLsizei>(height));
    gl.glDrawArrays(GL_TRIANGLES, 0, 3);
    Counters::add(Counter::InternalPasses);
    for (uint32_t i = 0; i < outputCount; ++i) {
        gl.glFramebufferTexture2D(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0 + i, GL_TEXTURE_2D, 0,
                                  0);
    }
    return true;
}

}  // namespace hostgpu
}  // namespace zel
