/*
 * YUV4MPEG2 streams into zel-convert's reader: the stream header, then frame headers and frame
 * bytes until the input ends or the reader refuses it. Whatever the bytes, the reader either
 * fails with a message or hands out frames of the size its header promised.
 */
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "Frame.h"
#include "InputFile.h"
#include "Y4mReader.h"

using zel::convert::Frame;
using zel::convert::FrameReader;
using zel::convert::InputFile;
using zel::convert::ToolError;
using zel::convert::Y4mReader;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;  // fmemopen refuses an empty buffer
    }
    std::vector<uint8_t> bytes(data, data + size);
    std::FILE* stream = fmemopen(bytes.data(), bytes.size(), "rb");
    if (stream == nullptr) {
        return 0;
    }
    std::unique_ptr<FrameReader> reader;
    if (Y4mReader::open(InputFile::adopt(stream, "fuzz.y4m"), &reader)) {
        return 0;
    }
    if (reader->width() <= 0 || reader->height() <= 0 || reader->format() == nullptr) {
        __builtin_trap();
    }
    Frame frame;
    for (int i = 0; i < 4; ++i) {
        bool done = false;
        if (reader->read(frame, &done) || done) {
            break;
        }
        if (frame.width() != reader->width() || frame.height() != reader->height() ||
            frame.size() != Frame::sizeOf(reader->layout(), reader->width(), reader->height())) {
            __builtin_trap();
        }
    }
    return 0;
}
