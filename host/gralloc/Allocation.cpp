#define LOG_TAG "ZelGralloc"

#include "Allocation.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include <log/log.h>

namespace zel::host {
namespace {

constexpr uint32_t kRecordMagic = 0x7a656c72;  // 'zelr'
constexpr size_t kPageSize = 4096;

std::atomic<size_t> sLiveCount{0};

}  // namespace

// Lives in the memfd right after the image data (page aligned). Accessed with atomics because
// any process holding a descriptor of the allocation may use it.
struct Allocation::SharedRecord {
    uint32_t magic;
    uint32_t reserved;
    uint64_t bufferId;
    int32_t dataspace;
    uint32_t reserved2;
    uint64_t generation;
};

size_t Allocation::recordOffset(const BufferLayout& layout) {
    return (size_t{layout.allocationSize} + kPageSize - 1) / kPageSize * kPageSize;
}

size_t Allocation::mappedSize(const BufferLayout& layout) {
    return recordOffset(layout) + kPageSize;
}

Allocation::Allocation(void* base, size_t mappedSize, const BufferLayout& layout, uint64_t bufferId)
    : mBase(base),
      mMappedSize(mappedSize),
      mRecord(reinterpret_cast<SharedRecord*>(static_cast<uint8_t*>(base) + recordOffset(layout))),
      mLayout(layout),
      mBufferId(bufferId) {
    sLiveCount.fetch_add(1, std::memory_order_relaxed);
}

Allocation::~Allocation() {
    munmap(mBase, mMappedSize);
    sLiveCount.fetch_sub(1, std::memory_order_relaxed);
}

std::shared_ptr<Allocation> Allocation::create(const BufferLayout& layout, uint64_t bufferId,
                                               const std::string& name, int* outFd) {
    const std::string memfdName = "zel-gralloc:" + name;
    int fd = memfd_create(memfdName.c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) {
        ALOGE("memfd_create failed: %s", strerror(errno));
        return nullptr;
    }
    const size_t total = mappedSize(layout);
    if (ftruncate(fd, static_cast<off_t>(total)) != 0) {
        ALOGE("cannot size a buffer of %zu bytes: %s", total, strerror(errno));
        close(fd);
        return nullptr;
    }
    // The size is part of the handle: nobody may change it afterwards.
    fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL);
    void* base = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (base == MAP_FAILED) {
        ALOGE("cannot map a buffer of %zu bytes: %s", total, strerror(errno));
        close(fd);
        return nullptr;
    }
    std::shared_ptr<Allocation> allocation(new Allocation(base, total, layout, bufferId));
    SharedRecord* record = allocation->mRecord;
    record->bufferId = bufferId;
    record->dataspace = 0;
    record->generation = 1;
    __atomic_store_n(&record->magic, kRecordMagic, __ATOMIC_RELEASE);
    *outFd = fd;
    return allocation;
}

std::shared_ptr<Allocation> Allocation::open(const BufferHandleInfo& info) {
    BufferLayout layout;
    if (!computeBufferLayout(info.format, info.width, info.height, info.layerCount, &layout) ||
        layout.stride != info.stride || layout.allocationSize != info.allocationSize) {
        return nullptr;
    }
    struct stat st;
    const size_t total = mappedSize(layout);
    if (fstat(info.fd, &st) != 0 || static_cast<size_t>(st.st_size) < total) {
        return nullptr;
    }
    void* base = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED, info.fd, 0);
    if (base == MAP_FAILED) {
        return nullptr;
    }
    std::shared_ptr<Allocation> allocation(new Allocation(base, total, layout, info.bufferId));
    const SharedRecord* record = allocation->mRecord;
    if (__atomic_load_n(&record->magic, __ATOMIC_ACQUIRE) != kRecordMagic ||
        record->bufferId != info.bufferId) {
        return nullptr;
    }
    return allocation;
}

int32_t Allocation::dataspace() const {
    return __atomic_load_n(&mRecord->dataspace, __ATOMIC_ACQUIRE);
}

void Allocation::setDataspace(int32_t dataspace) {
    __atomic_store_n(&mRecord->dataspace, dataspace, __ATOMIC_RELEASE);
}

uint64_t Allocation::generation() const {
    return __atomic_load_n(&mRecord->generation, __ATOMIC_ACQUIRE);
}

uint64_t Allocation::bumpGeneration() {
    return __atomic_add_fetch(&mRecord->generation, 1, __ATOMIC_ACQ_REL);
}

size_t Allocation::liveCount() {
    return sLiveCount.load(std::memory_order_relaxed);
}

}  // namespace zel::host
