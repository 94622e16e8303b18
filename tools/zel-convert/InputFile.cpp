#include "InputFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zel::convert {

InputFile::InputFile(std::FILE* file, std::string name, bool owned)
    : mFile(file), mName(std::move(name)), mOwned(owned) {
    struct stat info = {};
    if (fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode)) {
        mSize = info.st_size;
    }
}

InputFile::~InputFile() {
    if (mOwned) {
        std::fclose(mFile);
    }
}

ToolError InputFile::open(const std::string& path, std::unique_ptr<InputFile>* out) {
    if (path == "-") {
        out->reset(new InputFile(stdin, "standard input", false));
        return {};
    }
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return ToolError::badInput("cannot read " + path + ": " + std::strerror(errno));
    }
    struct stat info = {};
    if (fstat(fileno(file), &info) == 0 && S_ISDIR(info.st_mode)) {
        std::fclose(file);
        return ToolError::badInput("cannot read " + path + ": it is a directory");
    }
    out->reset(new InputFile(file, path, true));
    return {};
}

std::unique_ptr<InputFile> InputFile::adopt(std::FILE* file, std::string name) {
    return std::unique_ptr<InputFile>(new InputFile(file, std::move(name), true));
}

std::vector<uint8_t> InputFile::peek(size_t count) {
    if (mPending.size() < count) {
        const size_t had = mPending.size();
        mPending.resize(count);
        mPending.resize(had + std::fread(mPending.data() + had, 1, count - had, mFile));
    }
    return std::vector<uint8_t>(mPending.begin(),
                                mPending.begin() + std::min(count, mPending.size()));
}

size_t InputFile::read(void* into, size_t count) {
    auto* bytes = static_cast<uint8_t*>(into);
    const size_t fromPending = std::min(count, mPending.size());
    std::copy_n(mPending.begin(), fromPending, bytes);
    mPending.erase(mPending.begin(), mPending.begin() + fromPending);
    size_t done = fromPending;
    while (done < count) {
        const size_t got = std::fread(bytes + done, 1, count - done, mFile);
        if (got == 0) {
            break;
        }
        done += got;
    }
    return done;
}

std::vector<uint8_t> InputFile::readAll() {
    std::vector<uint8_t> bytes;
    uint8_t chunk[1 << 16];
    size_t got = 0;
    while ((got = read(chunk, sizeof(chunk))) > 0) {
        bytes.insert(bytes.end(), chunk, chunk + got);
    }
    return bytes;
}

bool InputFile::readLine(std::string* line, size_t limit) {
    line->clear();
    uint8_t byte = 0;
    while (line->size() < limit) {
        if (read(&byte, 1) != 1) {
            return !line->empty();
        }
        if (byte == '\n') {
            return true;
        }
        line->push_back(static_cast<char>(byte));
    }
    return true;
}

}  // namespace zel::convert
