/*
 * GL_VERSION strings into the version code that decides whether a renderer may be created. Any
 * string must map to one of the four codes, and only an "OpenGL" string may ever pass as 3.x (the
 * blanks of the form match any run of white space, "OpenGLES  3.2" included, as sscanf does).
 */
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <zel/host/Log.h>

#include "GLESRenderer.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ::zel::host::setLogToStderr(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const int code = kav::zel::GLESRenderer::parseGlesVersion(text.c_str());
    if (code != 0x10000 && code != 0x10001 && code != 0x20000 && code != 0x30000) {
        __builtin_trap();
    }
    if (code == 0x30000 && std::strncmp(text.c_str(), "OpenGL", 6) != 0) {
        __builtin_trap();
    }
    return 0;
}
