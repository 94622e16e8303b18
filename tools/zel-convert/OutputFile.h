/*
 * A file written from the start, or standard output for "-".
 */
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "ToolError.h"

namespace zel::convert {

class OutputFile {
public:
    static ToolError open(const std::string& path, std::unique_ptr<OutputFile>* out);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Writes all of it, or fails naming the file.
    ToolError write(const void* data, size_t size);
    ToolError flush();

private:
    OutputFile(std::FILE* file, std::string name, bool owned)
        : mFile(file), mName(std::move(name)), mOwned(owned) {}
    ToolError failure() const;

    std::FILE* mFile = nullptr;
    std::string mName;
    bool mOwned = false;
};

}  // namespace zel::convert
