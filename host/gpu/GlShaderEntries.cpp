/*
 * Hand-written GL shader and program entry points: shader text goes through the ShaderRewriter
 * (external samplers become sampler2D, GL_EXT_YUV_target built-ins are injected), and linking
 * records where a program's external samplers are and the text of its stages, for the draw-time
 * binding of image textures and the program's YUV variants.
 */
#include <optional>
#include <string>
#include <unordered_map>
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
using zel::hostgpu::DrawCoverage;
using zel::hostgpu::ExternalSampler;
using zel::hostgpu::mesa;
using zel::hostgpu::PositionForm;
using zel::hostgpu::ProgramRecord;
using zel::hostgpu::ProgramVariant;
using zel::hostgpu::RewrittenShader;
using zel::hostgpu::ShaderRewriter;
using zel::hostgpu::ShareGroup;

namespace {

// What the layer needs of a linked program with external samplers: the samplers with the uniform
// locations of every element, and the client's text of the attached shaders. Null when the
// program has no external sampler.
std::unique_ptr<ProgramRecord> recordOf(ShareGroup& group, GLuint program) {
    const zel::hostgpu::MesaFunctions& gl = mesa();
    GLint shaderCount = 0;
    gl.glGetProgramiv(program, GL_ATTACHED_SHADERS, &shaderCount);
    std::vector<GLuint> shaders(static_cast<size_t>(shaderCount));
    if (shaderCount > 0) {
        gl.glGetAttachedShaders(program, shaderCount, nullptr, shaders.data());
    }
    std::unordered_map<std::string, ExternalSampler> declared;
    std::vector<ProgramVariant::Stage> stages;
    for (GLuint shader : shaders) {
        GLint type = 0;
        gl.glGetShaderiv(shader, GL_SHADER_TYPE, &type);
        const ShareGroup::ShaderRecord* record = group.shader(shader);
        if (record == nullptr) {
            // No external sampler: the client's text is what the driver compiled.
            GLint length = 0;
            gl.glGetShaderiv(shader, GL_SHADER_SOURCE_LENGTH, &length);
            std::string source(static_cast<size_t>(length), '\0');
            if (length > 0) {
                gl.glGetShaderSource(shader, length, nullptr, source.data());
                source.resize(source.find('\0') == std::string::npos ? source.size()
                                                                     : source.find('\0'));
            }
            stages.push_back({static_cast<GLenum>(type), std::move(source)});
            continue;
        }
        stages.push_back({static_cast<GLenum>(type), record->source});
        for (const ExternalSampler& sampler : record->samplers) {
            declared.emplace(sampler.name, sampler);
        }
    }
    if (declared.empty()) {
        return nullptr;
    }
    std::vector<ProgramRecord::Sampler> samplers;
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
        auto it = declared.find(base);
        if (it == declared.end()) {
            continue;
        }
        ProgramRecord::Sampler sampler{it->second, {}};
        for (GLint element = 0; element < size; ++element) {
            const std::string elementName =
                size > 1 ? base + "[" + std::to_string(element) + "]" : name;
            const GLint location = gl.glGetUniformLocation(program, elementName.c_str());
            if (location >= 0) {
                sampler.locations.push_back(location);
            }
        }
        samplers.push_back(std::move(sampler));
    }
    if (samplers.empty()) {
        return nullptr;
    }
    return std::make_unique<ProgramRecord>(std::move(samplers), std::move(stages));
}

// Where a linked program's draws go, when its vertex shader proves it and no stage leaves
// fragments out (DrawCoverage).
std::optional<DrawCoverage::Program> coverageOf(const ShareGroup& group, GLuint program,
                                                const std::vector<GLuint>& shaders) {
    if (shaders.size() != 2) {
        return std::nullopt;  // a vertex and a fragment shader, nothing between them
    }
    const PositionForm* form = nullptr;
    for (GLuint shader : shaders) {
        const ShareGroup::ShaderPlacement* placement = group.shaderPlacement(shader);
        if (placement == nullptr || placement->dropsFragments) {
            return std::nullopt;
        }
        if (placement->position) {
            if (form != nullptr) {
                return std::nullopt;
            }
            form = &*placement->position;
        }
    }
    if (form == nullptr) {
        return std::nullopt;
    }
    const zel::hostgpu::MesaFunctions& gl = mesa();
    DrawCoverage::Program coverage;
    coverage.position = gl.glGetAttribLocation(program, form->attribute.c_str());
    if (!form->projection.empty()) {
        coverage.projection = gl.glGetUniformLocation(program, form->projection.c_str());
        if (coverage.projection < 0) {
            return std::nullopt;
        }
    }
    if (coverage.position < 0) {
        return std::nullopt;
    }
    return coverage;
}

}  // namespace

extern "C" {

GL_APICALL GLuint GL_APIENTRY glCreateShader(GLenum type) {
    const GLuint shader = mesa().glCreateShader(type);
    ContextState* context = CurrentContext::get();
    if (context != nullptr && shader != 0) {
        // The name may have served a deleted shader.
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().releaseFreed(shader);
        context->shareGroup().setShader(shader, {});
        context->shareGroup().setShaderPlacement(shader, {});
    }
    return shader;
}

GL_APICALL GLuint GL_APIENTRY glCreateProgram(void) {
    const GLuint program = mesa().glCreateProgram();
    ContextState* context = CurrentContext::get();
    if (context != nullptr && program != 0) {
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().releaseFreed(program);
        context->shareGroup().setProgram(program, nullptr);
        context->shareGroup().setCoverage(program, nullptr);
        context->shareGroup().programs().add(program);
    }
    return program;
}

GL_APICALL void GL_APIENTRY glDeleteProgram(GLuint program) {
    ContextState* context = CurrentContext::get();
    if (context != nullptr && program != 0) {
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        // Counted as gone: the name is the client's no more, even while it stays current.
        context->shareGroup().programs().forget(program);
        GLint current = 0;
        mesa().glGetIntegerv(GL_CURRENT_PROGRAM, &current);
        if (static_cast<GLuint>(current) == program) {
            // A current program lives on until the client replaces it. The layer's own passes
            // switch programs in between; had the driver been told, the first of them would end
            // the program, so the driver is told when the client moves on (glUseProgram).
            context->deferProgramDeletion(program);
            return;
        }
        mesa().glDeleteProgram(program);
        context->shareGroup().deleted(program);
        return;
    }
    mesa().glDeleteProgram(program);
}

GL_APICALL void GL_APIENTRY glDeleteShader(GLuint shader) {
    mesa().glDeleteShader(shader);
    ContextState* context = CurrentContext::get();
    if (context != nullptr && shader != 0) {
        // An attached shader lives on until it is detached, and its record with it.
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().deleted(shader);
    }
}

GL_APICALL void GL_APIENTRY glUseProgram(GLuint program) {
    mesa().glUseProgram(program);
    ContextState* context = CurrentContext::get();
    if (context == nullptr || context->deferredProgram() == 0) {
        return;
    }
    GLint current = 0;
    mesa().glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    if (static_cast<GLuint>(current) == context->deferredProgram()) {
        return;  // still in use (the switch failed, or the client chose it again)
    }
    std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
    const GLuint deleted = context->deferredProgram();
    context->deferProgramDeletion(0);
    mesa().glDeleteProgram(deleted);
    context->shareGroup().deleted(deleted);
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
    RewrittenShader rewritten =
        ShaderRewriter::rewrite(source, {}, context->attributes().conformant);
    const GLchar* text = rewritten.changed ? rewritten.source.c_str() : source.c_str();
    mesa().glShaderSource(shader, 1, &text, nullptr);
    ShareGroup::ShaderPlacement placement{PositionForm::of(source),
                                          PositionForm::dropsFragments(source)};
    std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
    context->shareGroup().setYuvOutput(shader, rewritten.yuvOutput);
    ShareGroup::ShaderRecord record;
    record.samplers = std::move(rewritten.externalSamplers);
    if (!record.samplers.empty()) {
        record.source = std::move(source);
    }
    context->shareGroup().setShader(shader, std::move(record));
    context->shareGroup().setShaderPlacement(shader, std::move(placement));
}

GL_APICALL void GL_APIENTRY glCompileShader(GLuint shader) {
    Counters::add(Counter::ShadersCompiled);
    mesa().glCompileShader(shader);
}

GL_APICALL void GL_APIENTRY glLinkProgram(GLuint program) {
    Counters::add(Counter::ProgramsLinked);
    const zel::hostgpu::MesaFunctions& gl = mesa();
    ContextState* context = CurrentContext::get();
    if (context != nullptr && context->attributes().failLink &&
        gl.glIsProgram(program) == GL_TRUE) {
        // A program without shaders fails to link, with the driver's own info log.
        GLuint shaders[8] = {};
        GLsizei count = 0;
        gl.glGetAttachedShaders(program, 8, &count, shaders);
        for (GLsizei i = 0; i < count; ++i) {
            gl.glDetachShader(program, shaders[i]);
        }
    }
    gl.glLinkProgram(program);
    if (context == nullptr || gl.glIsProgram(program) != GL_TRUE) {
        return;
    }
    GLint linked = GL_FALSE;
    gl.glGetProgramiv(program, GL_LINK_STATUS, &linked);
    ShareGroup& group = context->shareGroup();
    GLint shaderCount = 0;
    gl.glGetProgramiv(program, GL_ATTACHED_SHADERS, &shaderCount);
    std::vector<GLuint> shaders(static_cast<size_t>(std::max(shaderCount, 0)));
    if (shaderCount > 0) {
        gl.glGetAttachedShaders(program, shaderCount, nullptr, shaders.data());
    }
    std::lock_guard<std::mutex> lock(group.mutex());
    group.linkYuvOutput(program, shaders);
    group.setProgram(program, linked == GL_TRUE ? recordOf(group, program) : nullptr);
    const std::optional<DrawCoverage::Program> coverage =
        linked == GL_TRUE ? coverageOf(group, program, shaders) : std::nullopt;
    group.setCoverage(program, coverage ? &*coverage : nullptr);
}

}  // extern "C"
