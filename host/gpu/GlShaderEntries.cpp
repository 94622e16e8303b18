/*
 * Hand-written GL shader and program entry points: shader text goes through the ShaderRewriter
 * (external samplers become sampler2D), and linking records where a program's external samplers
 * are, for the draw-time binding of image textures.
 */
#include <string>
#include <unordered_set>
#include <vector>

#include "ContextState.h"
#include "Counters.h"
#include "CurrentContext.h"
#include "MesaDriver.h"
#include "ShaderRewriter.h"

using zel::hostgpu::ContextState;
using zel::hostgpu::Counter;
using zel::hostgpu::Counters;
using zel::hostgpu::CurrentContext;
using zel::hostgpu::mesa;
using zel::hostgpu::RewrittenShader;
using zel::hostgpu::ShaderRewriter;
using zel::hostgpu::ShareGroup;

namespace {

// The uniform locations of the external samplers of a linked program (every element of arrays).
std::vector<GLint> externalLocations(ShareGroup& group, GLuint program) {
    const zel::hostgpu::MesaFunctions& gl = mesa();
    std::unordered_set<std::string> names;
    GLint shaderCount = 0;
    gl.glGetProgramiv(program, GL_ATTACHED_SHADERS, &shaderCount);
    std::vector<GLuint> shaders(static_cast<size_t>(shaderCount));
    if (shaderCount > 0) {
        gl.glGetAttachedShaders(program, shaderCount, nullptr, shaders.data());
    }
    for (GLuint shader : shaders) {
        if (const std::vector<std::string>* external = group.shaderExternals(shader)) {
            names.insert(external->begin(), external->end());
        }
    }
    std::vector<GLint> locations;
    if (names.empty()) {
        return locations;
    }
    GLint uniformCount = 0;
    GLint maxLength = 0;
    gl.glGetProgramiv(program, GL_ACTIVE_UNIFORMS, &uniformCount);
    gl.glGetProgramiv(program, GL_ACTIVE_UNIFORM_MAX_LENGTH, &maxLength);
    std::vector<GLchar> buffer(static_cast<size_t>(maxLength) + 1);
    for (GLint i = 0; i < uniformCount; ++i) {
        GLsizei length = 0;
        GLint size = 0;
        GLenum type = 0;
        gl.glGetActiveUniform(program, static_cast<GLuint>(i), static_cast<GLsizei>(buffer.size()),
                              &length, &size, &type, buffer.data());
        std::string name(buffer.data(), static_cast<size_t>(length));
        if (type != GL_SAMPLER_2D) {
            continue;
        }
        // Arrays are listed as "name[0]".
        const std::string base = name.substr(0, name.find('['));
        if (names.count(base) == 0) {
            continue;
        }
        for (GLint element = 0; element < size; ++element) {
            const std::string elementName =
                size > 1 ? base + "[" + std::to_string(element) + "]" : name;
            const GLint location = gl.glGetUniformLocation(program, elementName.c_str());
            if (location >= 0) {
                locations.push_back(location);
            }
        }
    }
    return locations;
}

}  // namespace

extern "C" {

GL_APICALL GLuint GL_APIENTRY glCreateShader(GLenum type) {
    const GLuint shader = mesa().glCreateShader(type);
    ContextState* context = CurrentContext::get();
    if (context != nullptr && shader != 0) {
        // The name may have served a deleted shader.
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().setShaderExternals(shader, {});
    }
    return shader;
}

GL_APICALL GLuint GL_APIENTRY glCreateProgram(void) {
    const GLuint program = mesa().glCreateProgram();
    ContextState* context = CurrentContext::get();
    if (context != nullptr && program != 0) {
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().setProgramExternals(program, {});
    }
    return program;
}

GL_APICALL void GL_APIENTRY glShaderSource(GLuint shader, GLsizei count,
                                           const GLchar* const* string, const GLint* length) {
    ContextState* context = CurrentContext::get();
    if (context == nullptr || count <= 0 || string == nullptr) {
        mesa().glShaderSource(shader, count, string, length);
        return;
    }
    std::string source;
    for (GLsizei i = 0; i < count; ++i) {
        if (string[i] == nullptr) {
            // Invalid: the driver reports it.
            mesa().glShaderSource(shader, count, string, length);
            return;
        }
        if (length != nullptr && length[i] >= 0) {
            source.append(string[i], static_cast<size_t>(length[i]));
        } else {
            source.append(string[i]);
        }
    }
    RewrittenShader rewritten = ShaderRewriter::rewrite(source);
    const GLchar* text = rewritten.changed ? rewritten.source.c_str() : source.c_str();
    mesa().glShaderSource(shader, 1, &text, nullptr);
    std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
    context->shareGroup().setShaderExternals(shader, std::move(rewritten.externalSamplers));
}

GL_APICALL void GL_APIENTRY glCompileShader(GLuint shader) {
    Counters::add(Counter::ShadersCompiled);
    mesa().glCompileShader(shader);
}

GL_APICALL void GL_APIENTRY glLinkProgram(GLuint program) {
    Counters::add(Counter::ProgramsLinked);
    const zel::hostgpu::MesaFunctions& gl = mesa();
    gl.glLinkProgram(program);
    ContextState* context = CurrentContext::get();
    if (context == nullptr || gl.glIsProgram(program) != GL_TRUE) {
        return;
    }
    GLint linked = GL_FALSE;
    gl.glGetProgramiv(program, GL_LINK_STATUS, &linked);
    ShareGroup& group = context->shareGroup();
    std::lock_guard<std::mutex> lock(group.mutex());
    group.setProgramExternals(
        program, linked == GL_TRUE ? externalLocations(group, program) : std::vector<GLint>());
}

}  // extern "C"
