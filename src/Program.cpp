#include "Program.h"

#include <string.h>

#include <vector>

#include <math/mat4.h>

#include "Description.h"
#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {
namespace gl {

namespace {

constexpr const char kLogFile[] = "src/Program";

constexpr size_t kShaderLogSize = 512;

}  // namespace

GLuint Program::buildShader(const char* source, GLenum type, std::string* failureLog) {
    GLuint shader = glCreateShader(type);
    ZEL_CHECK_GL();
    glShaderSource(shader, 1, &source, nullptr);
    ZEL_CHECK_GL();
    glCompileShader(shader);
    ZEL_CHECK_GL();
    GLint status = 0;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &status);
    ZEL_CHECK_GL();
    if (status == GL_TRUE) {
        return shader;
    }
    char log[kShaderLogSize];
    memset(log, 0, sizeof(log));
    glGetShaderInfoLog(shader, static_cast<GLsizei>(sizeof(log)), nullptr, log);
    ZEL_CHECK_GL();
    ZEL_LOGE("Error while compiling shader: \n%s\n%s", source, log);
    if (failureLog != nullptr) {
        failureLog->append(log);
    }
    glDeleteShader(shader);
    ZEL_CHECK_GL();
    return 0;
}

Program::Program(const std::string& vertexShader, const std::string& fragmentShader,
                 const Description& /*desc*/) {
    GLuint vs;
    GLuint fs;
    GLuint program;
    {
        ZEL_TRACE_NAME("buildShader");
        vs = buildShader(vertexShader.c_str(), GL_VERTEX_SHADER, &mFailureLog);
    }
    {
        ZEL_TRACE_NAME("buildShader");
        fs = buildShader(fragmentShader.c_str(), GL_FRAGMENT_SHADER, &mFailureLog);
    }
    // A shader that failed to compile is name 0: attaching and linking go on and then fail.
    {
        ZEL_TRACE_NAME("glCreateProgram");
        program = glCreateProgram();
        ZEL_CHECK_GL();
    }
    {
        ZEL_TRACE_NAME("glAttachShader");
        glAttachShader(program, vs);
        ZEL_CHECK_GL();
    }
    {
        ZEL_TRACE_NAME("glAttachShader");
        glAttachShader(program, fs);
        ZEL_CHECK_GL();
    }
    {
        ZEL_TRACE_NAME("glLinkProgram");
        glLinkProgram(program);
        ZEL_CHECK_GL();
    }
    GLint status = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &status);
    ZEL_CHECK_GL();

    if (status == GL_TRUE) {
        mProgram = program;
        mVertexShader = vs;
        mFragmentShader = fs;
        mLinked = true;
        glDeleteShader(vs);
        ZEL_CHECK_GL();
        glDeleteShader(fs);
        ZEL_CHECK_GL();
        mProjectionLoc = glGetUniformLocation(program, "uProjection");
        ZEL_CHECK_GL();
        glUseProgram(program);
        ZEL_CHECK_GL();
        const android::mat4 identity;
        glUniformMatrix4fv(mProjectionLoc, 1, GL_FALSE, identity.asArray());
        ZEL_CHECK_GL();
        glEnableVertexAttribArray(0);
        ZEL_CHECK_GL();
        return;
    }

    ZEL_LOGE("Error while linking shaders:");
    GLint length = 0;
    glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
    ZEL_CHECK_GL();
    if (length > 1) {
        std::vector<char> log(static_cast<size_t>(length), '\0');
        glGetProgramInfoLog(program, length, nullptr, log.data());
        ZEL_CHECK_GL();
        ZEL_LOGE("%s", log.data());
        mFailureLog.append(log.data());
    }
    if (mFailureLog.empty()) {
        mFailureLog = "the driver gave no log";
    }
    glDetachShader(program, vs);
    ZEL_CHECK_GL();
    glDetachShader(program, fs);
    ZEL_CHECK_GL();
    glDeleteShader(vs);
    ZEL_CHECK_GL();
    glDeleteShader(fs);
    ZEL_CHECK_GL();
    glDeleteProgram(program);
    ZEL_CHECK_GL();
}

Program::~Program() {
    glDeleteProgram(mProgram);
    ZEL_CHECK_GL();
}

void Program::use() {
    glUseProgram(mProgram);
    ZEL_CHECK_GL();
}

GLint Program::getAttrib(const char* name) const {
    const GLint location = glGetAttribLocation(mProgram, name);
    ZEL_CHECK_GL();
    return location;
}

GLint Program::getUniform(const char* name) const {
    const GLint location = glGetUniformLocation(mProgram, name);
    ZEL_CHECK_GL();
    return location;
}

void Program::setUniforms(const Description& desc) {
    ZEL_TRACE_NAME("setUniforms");
    if (desc.mHasProjection) {
        glUniformMatrix4fv(mProjectionLoc, 1, GL_FALSE, desc.mProjectionMatrix.asArray());
        ZEL_CHECK_GL();
    }
}

}  // namespace gl
}  // namespace zel
}  // namespace kav
