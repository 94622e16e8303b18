#include "ProgramVariant.h"

#include <cstdio>

#include "MesaDriver.h"
#include "YuvPassPrograms.h"
#include "YuvShaderCode.h"

namespace zel {
namespace hostgpu {

namespace {

enum class ValueKind { Float, Matrix, Int, Uint, Unsupported };

// How a uniform of `type` is read and written: its kind and component count.
ValueKind kindOf(GLenum type, int* components) {
    *components = 1;
    switch (type) {
        case GL_FLOAT:
            return ValueKind::Float;
        case GL_FLOAT_VEC2:
            *components = 2;
            return ValueKind::Float;
        case GL_FLOAT_VEC3:
            *components = 3;
            return ValueKind::Float;
        case GL_FLOAT_VEC4:
            *components = 4;
            return ValueKind::Float;
        case GL_FLOAT_MAT2:
        case GL_FLOAT_MAT3:
        case GL_FLOAT_MAT4:
        case GL_FLOAT_MAT2x3:
        case GL_FLOAT_MAT2x4:
        case GL_FLOAT_MAT3x2:
        case GL_FLOAT_MAT3x4:
        case GL_FLOAT_MAT4x2:
        case GL_FLOAT_MAT4x3:
            return ValueKind::Matrix;
        case GL_INT_VEC2:
        case GL_BOOL_VEC2:
            *components = 2;
            return ValueKind::Int;
        case GL_INT_VEC3:
        case GL_BOOL_VEC3:
            *components = 3;
            return ValueKind::Int;
        case GL_INT_VEC4:
        case GL_BOOL_VEC4:
            *components = 4;
            return ValueKind::Int;
        case GL_INT:
        case GL_BOOL:
        case GL_SAMPLER_2D:
        case GL_SAMPLER_3D:
        case GL_SAMPLER_CUBE:
        case GL_SAMPLER_2D_SHADOW:
        case GL_SAMPLER_2D_ARRAY:
        case GL_SAMPLER_2D_ARRAY_SHADOW:
        case GL_SAMPLER_CUBE_SHADOW:
        case GL_SAMPLER_2D_MULTISAMPLE:
        case GL_SAMPLER_EXTERNAL_OES:
        case GL_INT_SAMPLER_2D:
        case GL_INT_SAMPLER_3D:
        case GL_INT_SAMPLER_CUBE:
        case GL_INT_SAMPLER_2D_ARRAY:
        case GL_UNSIGNED_INT_SAMPLER_2D:
        case GL_UNSIGNED_INT_SAMPLER_3D:
        case GL_UNSIGNED_INT_SAMPLER_CUBE:
        case GL_UNSIGNED_INT_SAMPLER_2D_ARRAY:
            return ValueKind::Int;
        case GL_UNSIGNED_INT:
            return ValueKind::Uint;
        case GL_UNSIGNED_INT_VEC2:
            *components = 2;
            return ValueKind::Uint;
        case GL_UNSIGNED_INT_VEC3:
            *components = 3;
            return ValueKind::Uint;
        case GL_UNSIGNED_INT_VEC4:
            *components = 4;
            return ValueKind::Uint;
        default:
            return ValueKind::Unsupported;
    }
}

}  // namespace

GLenum ProgramVariant::planeUnit(uint32_t index, uint32_t plane) {
    return YuvPassPrograms::reservedUnit(3 + 2 * index + (plane - 1));
}

std::unique_ptr<ProgramVariant> ProgramVariant::build(
    GLuint base, const std::vector<Stage>& stages,
    const std::map<std::string, YuvSampling>& yuvSamplers,
    const std::vector<std::string>& samplerOrder) {
    const MesaFunctions& gl = mesa();
    std::unique_ptr<ProgramVariant> variant(new ProgramVariant(gl.glCreateProgram()));
    const GLuint program = variant->mProgram;
    for (const Stage& stage : stages) {
        const RewrittenShader rewritten = ShaderRewriter::rewrite(stage.source, yuvSamplers);
        const GLuint shader = YuvPassPrograms::compileShader(
            stage.type, rewritten.changed ? rewritten.source : stage.source,
            "the YUV variant of a shader");
        if (shader == 0) {
            variant->release();
            return nullptr;
        }
        gl.glAttachShader(program, shader);
        gl.glDeleteShader(shader);
    }
    // The client's attribute locations, whether it chose them or the driver did.
    GLint attributes = 0;
    GLint maxLength = 0;
    gl.glGetProgramiv(base, GL_ACTIVE_ATTRIBUTES, &attributes);
    gl.glGetProgramiv(base, GL_ACTIVE_ATTRIBUTE_MAX_LENGTH, &maxLength);
    std::vector<GLchar> name(static_cast<size_t>(maxLength) + 1);
    for (GLint i = 0; i < attributes; ++i) {
        GLsizei length = 0;
        GLint size = 0;
        GLenum type = 0;
        gl.glGetActiveAttrib(base, static_cast<GLuint>(i), static_cast<GLsizei>(name.size()),
                             &length, &size, &type, name.data());
        const GLint location = gl.glGetAttribLocation(base, name.data());
        if (location >= 0) {
            gl.glBindAttribLocation(program, static_cast<GLuint>(location), name.data());
        }
    }
    gl.glLinkProgram(program);
    GLint linked = GL_FALSE;
    gl.glGetProgramiv(program, GL_LINK_STATUS, &linked);
    if (linked != GL_TRUE) {
        char log[2048] = {};
        gl.glGetProgramInfoLog(program, sizeof(log), nullptr, log);
        fprintf(stderr, "zel host gpu: the YUV variant of a program does not link: %s\n", log);
        variant->release();
        return nullptr;
    }
    for (uint32_t index = 0; index < samplerOrder.size(); ++index) {
        const std::string& sampler = samplerOrder[index];
        for (uint32_t plane = 1; plane <= 2; ++plane) {
            const GLint location = gl.glGetUniformLocation(
                program, YuvShaderCode::planeSampler(sampler, plane).c_str());
            if (location >= 0) {
                gl.glProgramUniform1i(program, location,
                                      static_cast<GLint>(planeUnit(index, plane) - GL_TEXTURE0));
            }
        }
        variant->mChromaTransforms.push_back(
            gl.glGetUniformLocation(program, YuvShaderCode::chromaTransform(sampler).c_str()));
    }
    variant->collectUniforms(base);
    return variant;
}

ProgramVariant::~ProgramVariant() = default;

void ProgramVariant::collectUniforms(GLuint base) {
    const MesaFunctions& gl = mesa();
    GLint count = 0;
    GLint maxLength = 0;
    gl.glGetProgramiv(base, GL_ACTIVE_UNIFORMS, &count);
    gl.glGetProgramiv(base, GL_ACTIVE_UNIFORM_MAX_LENGTH, &maxLength);
    std::vector<GLchar> buffer(static_cast<size_t>(maxLength) + 1);
    for (GLint i = 0; i < count; ++i) {
        const GLuint index = static_cast<GLuint>(i);
        GLsizei length = 0;
        GLint size = 0;
        GLenum type = 0;
        gl.glGetActiveUniform(base, index, static_cast<GLsizei>(buffer.size()), &length, &size,
                              &type, buffer.data());
        GLint block = -1;
        gl.glGetActiveUniformsiv(base, 1, &index, GL_UNIFORM_BLOCK_INDEX, &block);
        int components = 0;
        if (block != -1 || kindOf(type, &components) == ValueKind::Unsupported) {
            continue;
        }
        const std::string name(buffer.data(), static_cast<size_t>(length));
        const bool array = name.size() > 3 && name.compare(name.size() - 3, 3, "[0]") == 0;
        const std::string stem = array ? name.substr(0, name.size() - 3) : name;
        for (GLint element = 0; element < (array ? size : 1); ++element) {
            const std::string elementName =
                array ? stem + "[" + std::to_string(element) + "]" : name;
            const GLint from = gl.glGetUniformLocation(base, elementName.c_str());
            const GLint to = gl.glGetUniformLocation(mProgram, elementName.c_str());
            if (from >= 0 && to >= 0) {
                mUniforms.push_back({from, to, type});
            }
        }
    }
    GLint blocks = 0;
    gl.glGetProgramiv(base, GL_ACTIVE_UNIFORM_BLOCKS, &blocks);
    gl.glGetProgramiv(base, GL_ACTIVE_UNIFORM_BLOCK_MAX_NAME_LENGTH, &maxLength);
    buffer.assign(static_cast<size_t>(maxLength) + 1, 0);
    for (GLint i = 0; i < blocks; ++i) {
        gl.glGetActiveUniformBlockName(base, static_cast<GLuint>(i),
                                       static_cast<GLsizei>(buffer.size()), nullptr, buffer.data());
        const GLuint to = gl.glGetUniformBlockIndex(mProgram, buffer.data());
        if (to != GL_INVALID_INDEX) {
            mBlocks.push_back({static_cast<GLuint>(i), to});
        }
    }
}

void ProgramVariant::activate(GLuint base) const {
    const MesaFunctions& gl = mesa();
    for (const UniformCopy& uniform : mUniforms) {
        int components = 0;
        switch (kindOf(uniform.type, &components)) {
            case ValueKind::Float: {
                GLfloat value[4] = {};
                gl.glGetUniformfv(base, uniform.from, value);
                switch (components) {
                    case 1:
                        gl.glProgramUniform1fv(mProgram, uniform.to, 1, value);
                        break;
                    case 2:
                        gl.glProgramUniform2fv(mProgram, uniform.to, 1, value);
                        break;
                    case 3:
                        gl.glProgramUniform3fv(mProgram, uniform.to, 1, value);
                        break;
                    default:
                        gl.glProgramUniform4fv(mProgram, uniform.to, 1, value);
                        break;
                }
                break;
            }
            case ValueKind::Matrix: {
                GLfloat value[16] = {};
                gl.glGetUniformfv(base, uniform.from, value);
                const GLint to = uniform.to;
                switch (uniform.type) {
                    case GL_FLOAT_MAT2:
                        gl.glProgramUniformMatrix2fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                    case GL_FLOAT_MAT3:
                        gl.glProgramUniformMatrix3fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                    case GL_FLOAT_MAT2x3:
                        gl.glProgramUniformMatrix2x3fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                    case GL_FLOAT_MAT2x4:
                        gl.glProgramUniformMatrix2x4fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                    case GL_FLOAT_MAT3x2:
                        gl.glProgramUniformMatrix3x2fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                    case GL_FLOAT_MAT3x4:
                        gl.glProgramUniformMatrix3x4fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                    case GL_FLOAT_MAT4x2:
                        gl.glProgramUniformMatrix4x2fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                    case GL_FLOAT_MAT4x3:
                        gl.glProgramUniformMatrix4x3fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                    default:
                        gl.glProgramUniformMatrix4fv(mProgram, to, 1, GL_FALSE, value);
                        break;
                }
                break;
            }
            case ValueKind::Int: {
                GLint value[4] = {};
                gl.glGetUniformiv(base, uniform.from, value);
                switch (components) {
                    case 1:
                        gl.glProgramUniform1iv(mProgram, uniform.to, 1, value);
                        break;
                    case 2:
                        gl.glProgramUniform2iv(mProgram, uniform.to, 1, value);
                        break;
                    case 3:
                        gl.glProgramUniform3iv(mProgram, uniform.to, 1, value);
                        break;
                    default:
                        gl.glProgramUniform4iv(mProgram, uniform.to, 1, value);
                        break;
                }
                break;
            }
            case ValueKind::Uint: {
                GLuint value[4] = {};
                gl.glGetUniformuiv(base, uniform.from, value);
                switch (components) {
                    case 1:
                        gl.glProgramUniform1uiv(mProgram, uniform.to, 1, value);
                        break;
                    case 2:
                        gl.glProgramUniform2uiv(mProgram, uniform.to, 1, value);
                        break;
                    case 3:
                        gl.glProgramUniform3uiv(mProgram, uniform.to, 1, value);
                        break;
                    default:
                        gl.glProgramUniform4uiv(mProgram, uniform.to, 1, value);
                        break;
                }
                break;
            }
            case ValueKind::Unsupported:
                break;
        }
    }
    for (const BlockCopy& block : mBlocks) {
        GLint binding = 0;
        gl.glGetActiveUniformBlockiv(base, block.from, GL_UNIFORM_BLOCK_BINDING, &binding);
        gl.glUniformBlockBinding(mProgram, block.to, static_cast<GLuint>(binding));
    }
    gl.glUseProgram(mProgram);
}

void ProgramVariant::setChromaTransform(uint32_t index, const float transform[4]) const {
    if (index < mChromaTransforms.size() && mChromaTransforms[index] >= 0) {
        mesa().glUniform4fv(mChromaTransforms[index], 1, transform);
    }
}

void ProgramVariant::release() {
    if (mProgram != 0) {
        mesa().glDeleteProgram(mProgram);
        mProgram = 0;
    }
}

}  // namespace hostgpu
}  // namespace zel
