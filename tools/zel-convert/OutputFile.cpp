#include "OutputFile.h"

#include <cerrno>
#include <cstring>

namespace zel::convert {

ToolError OutputFile::open(const std::string& path, std::unique_ptr<OutputFile>* out) {
    if (path == "-") {
        out->reset(new OutputFile(stdout, "standard output", false));
        return {};
    }
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return ToolError::badInput("cannot write " + path + ": " + std::strerror(errno));
    }
    out->reset(new OutputFile(file, path, true));
    return {};
}

OutputFile::~OutputFile() {
    if (mOwned) {
        std::fclose(mFile);
    } else {
        std::fflush(mFile);
    }
}

ToolError OutputFile::failure() const {
    return ToolError::badInput("cannot write " + mName + ": " + std::strerror(errno));
}

ToolError OutputFile::write(const void* data, size_t size) {
    if (std::fwrite(data, 1, size, mFile) != size) {
        return failure();
    }
    return {};
}

ToolError OutputFile::flush() {
    if (std::fflush(mFile) != 0) {
        return failure();
    }
    return {};
}

}  // namespace zel::convert
