#include "RawWriter.h"

namespace zel::convert {

RawWriter::RawWriter(std::unique_ptr<OutputFile> file, FrameLayout layout)
    : mFile(std::move(file)) {
    mLayout = layout;
}

ToolError RawWriter::write(const Frame& frame) {
    return mFile->write(frame.data(), frame.size());
}

}  // namespace zel::convert
