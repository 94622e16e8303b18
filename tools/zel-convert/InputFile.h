/*
 * A file read from the start to the end, or standard input for "-". The first bytes can be
 * looked at before they are read, to tell a stream's kind by its signature.
 */
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "ToolError.h"

namespace zel::convert {

class InputFile {
public:
    static ToolError open(const std::string& path, std::unique_ptr<InputFile>* out);
    // An already open stream (a pipe, or fmemopen'd bytes), closed with the InputFile.
    static std::unique_ptr<InputFile> adopt(std::FILE* file, std::string name);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // The path as the user gave it ("standard input" for "-"), for messages.
    const std::string& name() const { return mName; }
    // Size in bytes of a regular file; -1 for pipes and terminals.
    int64_t size() const { return mSize; }
    // Up to count bytes from the current position, which stays where it is.
    std::vector<uint8_t> peek(size_t count);
    // Reads up to count bytes; returns how many were read (fewer only at the end).
    size_t read(void* into, size_t count);
    // Reads one line without its '\n' (at most limit bytes); false at the end of the input.
    bool readLine(std::string* line, size_t limit);
    // Everything from the current position to the end.
    std::vector<uint8_t> readAll();
    bool failed() const { return std::ferror(mFile) != 0; }

private:
    InputFile(std::FILE* file, std::string name, bool owned);

    std::FILE* mFile = nullptr;
    std::string mName;
    bool mOwned = false;
    int64_t mSize = -1;
    std::vector<uint8_t> mPending;  // bytes peeked and not yet read
};

}  // namespace zel::convert
