// One host buffer allocation as this process sees it: the memfd's memory mapped for its whole
// lifetime, and the allocation-wide record that follows the image data in the memfd (dataspace
// and content generation), so that every handle and every process sees the same values.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <string>

#include <zel/host/Gralloc.h>

#include "BufferHandle.h"

namespace zel::host {

class Allocation {
public:
    // A new memfd for `layout`; its descriptor goes to *outFd (the caller's to close).
    static std::shared_ptr<Allocation> create(const BufferLayout& layout, uint64_t bufferId,
                                              const std::string& name, int* outFd);

    // Maps the memfd of an existing handle (the descriptor stays the handle's). nullptr when the
    // descriptor is not a host buffer of the described size.
    static std::shared_ptr<Allocation> open(const BufferHandleInfo& info);

    ~Allocation();
    Allocation(const Allocation&) = delete;
    Allocation& operator=(const Allocation&) = delete;

    uint8_t* data() const { return static_cast<uint8_t*>(mBase); }
    size_t size() const { return mLayout.allocationSize; }
    const BufferLayout& layout() const { return mLayout; }
    uint64_t bufferId() const { return mBufferId; }

    int32_t dataspace() const;
    void setDataspace(int32_t dataspace);
    uint64_t generation() const;
    uint64_t bumpGeneration();

    // Allocation objects alive in this process.
    static size_t liveCount();

private:
    struct SharedRecord;

    Allocation(void* base, size_t mappedSize, const BufferLayout& layout, uint64_t bufferId);

    static size_t recordOffset(const BufferLayout& layout);
    static size_t mappedSize(const BufferLayout& layout);

    void* mBase;
    size_t mMappedSize;
    SharedRecord* mRecord;
    BufferLayout mLayout;
    uint64_t mBufferId;
};

}  // namespace zel::host
