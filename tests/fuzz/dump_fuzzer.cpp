/*
 * Buffer dumps into zel-convert's reader. The input is a file name, a newline, and the file's
 * bytes: the name gives size, format and tag, the byte count the row pitch. A name that parses
 * must be a ".raw" name with a positive-or-zero size; the reader either refuses the dump with a
 * message or yields one picture of the named size.
 */
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "DumpReader.h"
#include "Frame.h"
#include "InputFile.h"

using zel::convert::DumpName;
using zel::convert::DumpReader;
using zel::convert::Frame;
using zel::convert::FrameReader;
using zel::convert::InputFile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto* end = static_cast<const uint8_t*>(std::memchr(data, '\n', size));
    const size_t nameLength = end == nullptr ? size : static_cast<size_t>(end - data);
    const std::string name(reinterpret_cast<const char*>(data), nameLength);
    DumpName parsed;
    if (!DumpReader::parseName(name, &parsed)) {
        return 0;
    }
    if (name.size() < 4 || name.compare(name.size() - 4, 4, ".raw") != 0 || parsed.width < 0 ||
        parsed.height < 0) {
        __builtin_trap();
    }
    std::vector<uint8_t> bytes(data + nameLength, data + size);
    bytes.push_back(0);  // fmemopen refuses an empty buffer; the first byte is the newline
    std::FILE* stream = fmemopen(bytes.data() + 1, bytes.size() - 1, "rb");
    if (stream == nullptr) {
        return 0;
    }
    std::unique_ptr<FrameReader> reader;
    if (DumpReader::open(InputFile::adopt(stream, name), parsed, &reader)) {
        return 0;
    }
    Frame frame;
    bool done = false;
    if (reader->read(frame, &done) || done || frame.width() != parsed.width ||
        frame.height() != parsed.height) {
        __builtin_trap();
    }
    return 0;
}
