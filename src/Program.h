/*
 * One linked GL program built from a vertex and a fragment shader text. Made by
 * ChooseProgram::getProgram and shared between the program cache and the draw. A failed compile
 * or link is logged and leaves an empty shell (isLinked() false, program name 0, the logs kept in
 * getFailureLog()) whose use() binds program 0. Every call runs on the thread that holds the
 * renderer's GL context.
 */
#pragma once

#include <string>

#include <GLES3/gl31.h>

namespace kav {
namespace zel {

class Description;

namespace gl {

class Program {
public:
    // Builds, links and leaves the program current. The description is not read.
    Program(const std::string& vertexShader, const std::string& fragmentShader,
            const Description& desc);
    ~Program();

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    Program(Program&&) = delete;
    Program& operator=(Program&&) = delete;

    // Compiles one shader; its name, or 0 after logging the source and the compiler's log (also
    // appended to |failureLog| when given).
    static GLuint buildShader(const char* source, GLenum type, std::string* failureLog = nullptr);

    void use();
    GLint getAttrib(const char* name) const;
    GLint getUniform(const char* name) const;
    // Uploads the projection matrix when the description has one; otherwise makes no GL call.
    void setUniforms(const Description& desc);

    bool isLinked() const { return mLinked; }
    // Why the program did not link: the compiler's and the linker's logs; empty once linked.
    const std::string& getFailureLog() const { return mFailureLog; }
    GLuint getProgram() const { return mProgram; }
    // -1 when the vertex shader has no projection uniform.
    GLint getProjectionLoc() const { return mProjectionLoc; }

private:
    bool mLinked = false;
    GLuint mProgram = 0;
    // Both shaders are deleted once linked; the names are kept as a record only.
    GLuint mVertexShader = 0;
    GLuint mFragmentShader = 0;
    GLint mProjectionLoc = 0;
    std::string mFailureLog;
};

}  // namespace gl
}  // namespace zel
}  // namespace kav
