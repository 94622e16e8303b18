// Host gralloc: buffer layouts as the CPU sees them, handles and imports, metadata, locks.

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <bufmeta.h>
#include <cutils/native_handle.h>
#include <hardware/gralloc.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <zel/host/Gralloc.h>
#include <zel/host/Sync.h>

using android::GraphicBuffer;
using android::GraphicBufferMapper;
using android::sp;

namespace {

constexpr uint64_t kCpuUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

size_t openFdCount() {
    size_t count = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (dirent* entry = readdir(dir)) {
        count += entry->d_name[0] != '.';
    }
    closedir(dir);
    return count;
}

uint32_t queryU32(const native_handle_t* handle, int code) {
    uint32_t value = 0;
    EXPECT_EQ(bufmeta_query(handle, code, &value), 0) << "code " << code;
    return value;
}

uint64_t bufmetaId(const native_handle_t* handle) {
    uint64_t id = 0;
    EXPECT_EQ(bufmeta_query(handle, BUFMETA_GET_BUFFER_ID, &id), 0);
    return id;
}

// The raw memory of a handle, mapped independently of the gralloc.
class RawMapping {
public:
    explicit RawMapping(const native_handle_t* handle) {
        struct stat st;
        if (fstat(handle->data[0], &st) == 0) {
            mSize = static_cast<size_t>(st.st_size);
            void* p = mmap(nullptr, mSize, PROT_READ, MAP_SHARED, handle->data[0], 0);
            mData = p == MAP_FAILED ? nullptr : static_cast<const uint8_t*>(p);
        }
    }
    ~RawMapping() {
        if (mData != nullptr) {
            munmap(const_cast<uint8_t*>(mData), mSize);
        }
    }
    const uint8_t* data() const { return mData; }
    size_t size() const { return mSize; }
    uint16_t u16(size_t offset) const {
        return static_cast<uint16_t>(mData[offset] | (mData[offset + 1] << 8));
    }

private:
    const uint8_t* mData = nullptr;
    size_t mSize = 0;
};

// The documented rule, written out by hand for 37x19 (odd on purpose) and 64x32.
struct ExpectedLayout {
    uint32_t format;
    uint32_t width;
    uint32_t height;
    uint32_t stride;  // pixels
    uint32_t yPitch;  // bytes (RGBA: row pitch)
    uint32_t cbOffset;
    uint32_t crOffset;
    uint32_t chromaPitch;
    uint32_t chromaStep;
    uint32_t size;
    bool p010;
};

const ExpectedLayout kLayouts[] = {
    // RGBA: rows of ALIGN(w * 4, 64) bytes.
    {0x1, 37, 19, 48, 192, 0, 0, 0, 0, 192 * 19, false},
    {0x1, 64, 32, 64, 256, 0, 0, 0, 0, 256 * 32, false},
    // NV21: Y pitch ALIGN(w, 64); V,U pairs after the Y plane, ceil(h/2) rows.
    {0x11, 37, 19, 64, 64, 1217, 1216, 64, 2, 1216 + 64 * 10, false},
    {0x11, 64, 32, 64, 64, 2049, 2048, 64, 2, 2048 + 64 * 16, false},
    // NV12 layouts: U first.
    {0x23, 37, 19, 64, 64, 1216, 1217, 64, 2, 1856, false},
    {0x1000, 37, 19, 64, 64, 1216, 1217, 64, 2, 1856, false},
    {0x7f000030, 64, 32, 64, 64, 2048, 2049, 64, 2, 3072, false},
    // Vendor NV21 stand-in.
    {0x7f000010, 37, 19, 64, 64, 1217, 1216, 64, 2, 1856, false},
    // P010: Y pitch ALIGN(2w, 64) bytes, stride in pixels is half of it.
    {0x36, 37, 19, 64, 128, 2432, 2434, 128, 4, 2432 + 128 * 10, true},
    {0x36, 64, 32, 64, 128, 4096, 4098, 128, 4, 4096 + 128 * 16, true},
    // YV12: Y pitch ALIGN(w, 16), chroma pitch ALIGN(ypitch / 2, 16), V plane then U plane.
    {0x32315659, 37, 19, 48, 48, 912 + 32 * 10, 912, 32, 1, 912 + 32 * 20, false},
    {0x32315659, 64, 32, 64, 64, 2048 + 32 * 16, 2048, 32, 1, 2048 + 32 * 32, false},
};

void PrintTo(const ExpectedLayout& e, std::ostream* os) {
    *os << "format 0x" << std::hex << e.format << std::dec << " " << e.width << "x" << e.height;
}

class LayoutTest : public ::testing::TestWithParam<ExpectedLayout> {};

uint8_t pattern(uint32_t plane, uint32_t x, uint32_t y) {
    return static_cast<uint8_t>(plane * 89 + x * 7 + y * 13 + 1);
}

TEST_P(LayoutTest, PlanesLandAtTheDocumentedOffsets) {
    const ExpectedLayout& e = GetParam();
    sp<GraphicBuffer> buffer =
        new GraphicBuffer(e.width, e.height, static_cast<int>(e.format), 1, kCpuUsage, "layout");
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    EXPECT_EQ(buffer->getStride(), e.stride);
    EXPECT_EQ(queryU32(buffer->handle, BUFMETA_GET_STRIDE), e.stride);
    EXPECT_EQ(queryU32(buffer->handle, BUFMETA_GET_ALLOC_SIZE), e.size);

    // The control API describes the same planes to the GPU layer.
    zel::host::BufferLayout layout;
    ASSERT_TRUE(zel::host::getBufferLayout(buffer->handle, &layout));
    EXPECT_EQ(layout.planes[0].offset, 0u);
    EXPECT_EQ(layout.planes[0].rowPitch, e.yPitch);
    EXPECT_EQ(layout.allocationSize, e.size);
    if (e.chromaStep != 0) {
        EXPECT_EQ(layout.cbOffset, e.cbOffset);
        EXPECT_EQ(layout.crOffset, e.crOffset);
        EXPECT_EQ(layout.chromaPitch, e.chromaPitch);
        EXPECT_EQ(layout.chromaStep, e.chromaStep);
    }

    const uint32_t cw = (e.width + 1) / 2;
    const uint32_t ch = (e.height + 1) / 2;
    const uint64_t before = zel::host::contentGeneration(buffer->handle);
    if (e.chromaStep == 0) {
        // RGBA through lock(), addressed with getStride().
        void* vaddr = nullptr;
        ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &vaddr), android::NO_ERROR);
        auto* pixels = static_cast<uint8_t*>(vaddr);
        for (uint32_t y = 0; y < e.height; y++) {
            for (uint32_t x = 0; x < e.width; x++) {
                for (uint32_t c = 0; c < 4; c++) {
                    pixels[(y * buffer->getStride() + x) * 4 + c] = pattern(c, x, y);
                }
            }
        }
    } else {
        // YUV through lockYCbCr(), addressed with what it reports.
        android_ycbcr ycbcr;
        ASSERT_EQ(buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr), android::NO_ERROR);
        EXPECT_EQ(ycbcr.ystride, e.yPitch);
        EXPECT_EQ(ycbcr.cstride, e.chromaPitch);
        EXPECT_EQ(ycbcr.chroma_step, e.chromaStep);
        const size_t sampleBytes = e.p010 ? 2 : 1;
        auto put = [&](void* base, size_t offset, uint8_t value) {
            auto* p = static_cast<uint8_t*>(base) + offset;
            if (e.p010) {
                const uint16_t sample = static_cast<uint16_t>((value * 4 + 3) << 6);
                memcpy(p, &sample, 2);
            } else {
                *p = value;
            }
        };
        for (uint32_t y = 0; y < e.height; y++) {
            for (uint32_t x = 0; x < e.width; x++) {
                put(ycbcr.y, y * ycbcr.ystride + x * sampleBytes, pattern(0, x, y));
            }
        }
        for (uint32_t y = 0; y < ch; y++) {
            for (uint32_t x = 0; x < cw; x++) {
                put(ycbcr.cb, y * ycbcr.cstride + x * ycbcr.chroma_step, pattern(1, x, y));
                put(ycbcr.cr, y * ycbcr.cstride + x * ycbcr.chroma_step, pattern(2, x, y));
            }
        }
    }
    ASSERT_EQ(buffer->unlock(), android::NO_ERROR);
    EXPECT_EQ(zel::host::contentGeneration(buffer->handle), before + 1);

    // Read back through an independent mapping of the memfd, at the hand-computed offsets.
    RawMapping raw(buffer->handle);
    ASSERT_NE(raw.data(), nullptr);
    ASSERT_GE(raw.size(), e.size);
    auto sample = [&](size_t offset) -> int {
        return e.p010 ? (raw.u16(offset) >> 6) : raw.data()[offset];
    };
    auto expected = [&](uint8_t v) -> int { return e.p010 ? v * 4 + 3 : v; };
    if (e.chromaStep == 0) {
        for (uint32_t y = 0; y < e.height; y++) {
            for (uint32_t x = 0; x < e.width; x++) {
                for (uint32_t c = 0; c < 4; c++) {
                    ASSERT_EQ(raw.data()[y * e.yPitch + x * 4 + c], pattern(c, x, y))
                        << x << "," << y << " c" << c;
                }
            }
        }
        return;
    }
    const size_t sampleBytes = e.p010 ? 2 : 1;
    for (uint32_t y = 0; y < e.height; y++) {
        for (uint32_t x = 0; x < e.width; x++) {
            ASSERT_EQ(sample(y * e.yPitch + x * sampleBytes), expected(pattern(0, x, y)))
                << "Y " << x << "," << y;
        }
    }
    for (uint32_t y = 0; y < ch; y++) {
        for (uint32_t x = 0; x < cw; x++) {
            const size_t at = y * e.chromaPitch + x * e.chromaStep;
            ASSERT_EQ(sample(e.cbOffset + at), expected(pattern(1, x, y)))
                << "Cb " << x << "," << y;
            ASSERT_EQ(sample(e.crOffset + at), expected(pattern(2, x, y)))
                << "Cr " << x << "," << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, LayoutTest, ::testing::ValuesIn(kLayouts),
                         [](const ::testing::TestParamInfo<ExpectedLayout>& info) {
                             char name[64];
                             snprintf(name, sizeof(name), "f%x_%ux%u", info.param.format,
                                      info.param.width, info.param.height);
                             return std::string(name);
                         });

TEST(GrallocTest, RefusesWhatItCannotAllocateOrLock) {
    sp<GraphicBuffer> empty = new GraphicBuffer(0, 16, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    EXPECT_EQ(empty->initCheck(), android::BAD_VALUE);
    EXPECT_EQ(empty->handle, nullptr);
    sp<GraphicBuffer> unknown = new GraphicBuffer(16, 16, 0x7777, 1, kCpuUsage);
    EXPECT_EQ(unknown->initCheck(), android::BAD_VALUE);

    sp<GraphicBuffer> buffer = new GraphicBuffer(16, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    void* vaddr = nullptr;
    EXPECT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, android::Rect(0, 0, 17, 8), &vaddr),
              android::BAD_VALUE);
    EXPECT_EQ(buffer->lock(GRALLOC_USAGE_HW_TEXTURE, &vaddr), android::BAD_VALUE);
    android_ycbcr ycbcr;
    EXPECT_EQ(buffer->lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr), android::BAD_VALUE);
    EXPECT_EQ(buffer->unlock(), android::BAD_VALUE);  // not locked
}

TEST(GrallocTest, ImportsShareTheAllocationButNotTheObjectId) {
    sp<GraphicBuffer> original =
        new GraphicBuffer(64, 48, HAL_PIXEL_FORMAT_YCBCR_420_888, 1,
                          kCpuUsage | GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_PRIVATE_3, "ids");
    ASSERT_EQ(original->initCheck(), android::NO_ERROR);
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();

    buffer_handle_t first = nullptr;
    buffer_handle_t second = nullptr;
    ASSERT_EQ(mapper.importBufferNoValidate(original->handle, &first), android::NO_ERROR);
    ASSERT_EQ(mapper.importBuffer(first, 64, 48, 1, HAL_PIXEL_FORMAT_YCBCR_420_888, kCpuUsage,
                                  original->getStride(), &second),
              android::NO_ERROR);
    EXPECT_NE(first->data[0], original->handle->data[0]);
    EXPECT_NE(second->data[0], first->data[0]);

    // A description that does not match is refused.
    buffer_handle_t wrong = nullptr;
    EXPECT_EQ(mapper.importBuffer(original->handle, 64, 40, 1, HAL_PIXEL_FORMAT_YCBCR_420_888,
                                  kCpuUsage, 0, &wrong),
              android::BAD_VALUE);

    const uint64_t id = bufmetaId(original->handle);
    EXPECT_EQ(bufmetaId(first), id);
    EXPECT_EQ(bufmetaId(second), id);
    for (buffer_handle_t h : {first, second}) {
        EXPECT_EQ(queryU32(h, BUFMETA_GET_WIDTH), 64u);
        EXPECT_EQ(queryU32(h, BUFMETA_GET_HEIGHT), 48u);
        EXPECT_EQ(queryU32(h, BUFMETA_GET_STRIDE), original->getStride());
        EXPECT_EQ(queryU32(h, BUFMETA_GET_FORMAT), uint32_t{HAL_PIXEL_FORMAT_YCBCR_420_888});
        EXPECT_EQ(queryU32(h, BUFMETA_GET_USAGE), static_cast<uint32_t>(original->getUsage()));
        EXPECT_EQ(queryU32(h, BUFMETA_GET_ALLOC_SIZE),
                  queryU32(original->handle, BUFMETA_GET_ALLOC_SIZE));
        uint64_t layers = 0;
        EXPECT_EQ(mapper.getLayerCount(h, &layers), android::NO_ERROR);
        EXPECT_EQ(layers, 1u);
    }

    sp<GraphicBuffer> a =
        new GraphicBuffer(first, GraphicBuffer::WRAP_HANDLE, 64, 48, HAL_PIXEL_FORMAT_YCBCR_420_888,
                          1, kCpuUsage, original->getStride());
    sp<GraphicBuffer> b =
        new GraphicBuffer(second, GraphicBuffer::WRAP_HANDLE, 64, 48,
                          HAL_PIXEL_FORMAT_YCBCR_420_888, 1, kCpuUsage, original->getStride());
    EXPECT_NE(a->getId(), b->getId());
    EXPECT_NE(a->getId(), original->getId());
    EXPECT_EQ(a->getId() >> 32, static_cast<uint64_t>(getpid()));
    for (const sp<GraphicBuffer>& gb : {original, a, b}) {
        EXPECT_NE(gb->getId(), id);
    }

    // A second allocation has an id of its own.
    sp<GraphicBuffer> other =
        new GraphicBuffer(64, 48, HAL_PIXEL_FORMAT_YCBCR_420_888, 1, kCpuUsage);
    EXPECT_NE(bufmetaId(other->handle), id);

    // The dataspace belongs to the allocation: set through one import, seen by every handle.
    android::ui::Dataspace dataspace;
    ASSERT_EQ(mapper.getDataspace(original->handle, &dataspace), android::NO_ERROR);
    EXPECT_EQ(dataspace, android::ui::Dataspace::UNKNOWN);
    ASSERT_EQ(mapper.setDataspace(second, android::ui::Dataspace::BT2020_ITU_PQ),
              android::NO_ERROR);
    for (buffer_handle_t h : {original->handle, first, second}) {
        ASSERT_EQ(mapper.getDataspace(h, &dataspace), android::NO_ERROR);
        EXPECT_EQ(dataspace, android::ui::Dataspace::BT2020_ITU_PQ);
    }
    ASSERT_EQ(mapper.getDataspace(other->handle, &dataspace), android::NO_ERROR);
    EXPECT_EQ(dataspace, android::ui::Dataspace::UNKNOWN);

    a.clear();
    b.clear();
    EXPECT_EQ(mapper.freeBuffer(first), android::NO_ERROR);
    EXPECT_EQ(mapper.freeBuffer(second), android::NO_ERROR);
}

TEST(GrallocTest, BufmetaRefusesBadQueriesAndInjectedFailures) {
    sp<GraphicBuffer> buffer = new GraphicBuffer(32, 32, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    uint64_t value = 0;
    EXPECT_NE(bufmeta_query(buffer->handle, 13, &value), 0);
    EXPECT_NE(bufmeta_query(nullptr, BUFMETA_GET_WIDTH, &value), 0);
    EXPECT_NE(bufmeta_query(buffer->handle, BUFMETA_GET_WIDTH, nullptr), 0);
    native_handle_t* foreign = native_handle_create(1, 11);
    for (int i = 0; i < 12; i++) {
        foreign->data[i] = i == 0 ? -1 : 0;
    }
    EXPECT_NE(bufmeta_query(foreign, BUFMETA_GET_WIDTH, &value), 0);
    native_handle_delete(foreign);

    zel::host::failBufmetaQuery(BUFMETA_GET_BUFFER_ID);
    EXPECT_EQ(queryU32(buffer->handle, BUFMETA_GET_WIDTH), 32u);  // other codes still answer
    EXPECT_NE(bufmeta_query(buffer->handle, BUFMETA_GET_BUFFER_ID, &value), 0);
    EXPECT_EQ(bufmeta_query(buffer->handle, BUFMETA_GET_BUFFER_ID, &value), 0);  // only once

    zel::host::failBufmetaQuery(-1, 2);
    EXPECT_NE(bufmeta_query(buffer->handle, BUFMETA_GET_HEIGHT, &value), 0);
    zel::host::clearBufmetaFailures();
    EXPECT_EQ(bufmeta_query(buffer->handle, BUFMETA_GET_HEIGHT, &value), 0);

    // The mapper refuses foreign handles the same way.
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    native_handle_t* empty = native_handle_create(0, 0);
    buffer_handle_t imported = nullptr;
    EXPECT_EQ(mapper.importBufferNoValidate(empty, &imported), android::BAD_VALUE);
    EXPECT_EQ(mapper.getBufferId(empty, &value), android::BAD_VALUE);
    android::ui::Dataspace dataspace;
    EXPECT_EQ(mapper.getDataspace(empty, &dataspace), android::BAD_VALUE);
    EXPECT_EQ(mapper.freeBuffer(empty), android::BAD_VALUE);
    native_handle_delete(empty);
}

TEST(GrallocTest, ProtectedBuffersRefuseCpuAccess) {
    const uint64_t usage = kCpuUsage | GRALLOC_USAGE_PROTECTED | GRALLOC_USAGE_HW_TEXTURE;
    sp<GraphicBuffer> secure = new GraphicBuffer(64, 64, HAL_PIXEL_FORMAT_YCRCB_420_SP, 1, usage);
    ASSERT_EQ(secure->initCheck(), android::NO_ERROR);
    void* vaddr = nullptr;
    EXPECT_EQ(secure->lock(GRALLOC_USAGE_SW_READ_OFTEN, &vaddr), android::PERMISSION_DENIED);
    android_ycbcr ycbcr;
    EXPECT_EQ(secure->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr), android::PERMISSION_DENIED);

    // Imports are just as protected.
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    buffer_handle_t imported = nullptr;
    ASSERT_EQ(mapper.importBufferNoValidate(secure->handle, &imported), android::NO_ERROR);
    EXPECT_EQ(mapper.lock(imported, GRALLOC_USAGE_SW_READ_OFTEN, android::Rect(64, 64), &vaddr),
              android::PERMISSION_DENIED);
    uint64_t isProtected = 0;
    EXPECT_EQ(mapper.getProtectedContent(imported, &isProtected), android::NO_ERROR);
    EXPECT_EQ(isProtected, 1u);
    EXPECT_EQ(zel::host::contentGeneration(imported), 1u);

    // The GPU's view still reaches the memory.
    zel::host::BufferMemory memory(imported);
    ASSERT_TRUE(memory.valid());
    EXPECT_EQ(memory.size(), 64u * 64 * 3 / 2);
    memory.data()[0] = 0x5a;
    EXPECT_EQ(memory.markContentChanged(), 2u);
    EXPECT_EQ(mapper.freeBuffer(imported), android::NO_ERROR);
}

TEST(GrallocTest, OnlyWritingLocksBumpTheContentGeneration) {
    sp<GraphicBuffer> buffer = new GraphicBuffer(16, 16, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    const native_handle_t* h = buffer->handle;
    EXPECT_EQ(zel::host::contentGeneration(h), 1u);

    void* vaddr = nullptr;
    ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &vaddr), android::NO_ERROR);
    ASSERT_EQ(buffer->unlock(), android::NO_ERROR);
    EXPECT_EQ(zel::host::contentGeneration(h), 1u);

    // Nested locks: the outer one writes, the inner one only reads.
    ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_WRITE_RARELY, &vaddr), android::NO_ERROR);
    ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_RARELY, &vaddr), android::NO_ERROR);
    ASSERT_EQ(buffer->unlock(), android::NO_ERROR);
    EXPECT_EQ(zel::host::contentGeneration(h), 1u);
    ASSERT_EQ(buffer->unlock(), android::NO_ERROR);
    EXPECT_EQ(zel::host::contentGeneration(h), 2u);
    EXPECT_EQ(buffer->unlock(), android::BAD_VALUE);

    // A write through an import counts for the allocation.
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    buffer_handle_t imported = nullptr;
    ASSERT_EQ(mapper.importBufferNoValidate(h, &imported), android::NO_ERROR);
    ASSERT_EQ(mapper.lock(imported, GRALLOC_USAGE_SW_WRITE_OFTEN, android::Rect(16, 16), &vaddr),
              android::NO_ERROR);
    EXPECT_EQ(mapper.unlock(h), android::BAD_VALUE);  // the lock belongs to the import
    ASSERT_EQ(mapper.unlock(imported), android::NO_ERROR);
    EXPECT_EQ(zel::host::contentGeneration(h), 3u);
    zel::host::BufferMemory memory(h);
    EXPECT_EQ(memory.contentGeneration(), 3u);
    EXPECT_EQ(mapper.freeBuffer(imported), android::NO_ERROR);
}

TEST(GrallocTest, FreeingTwiceIsRefusedAndNothingLeaks) {
    const size_t fdsBefore = openFdCount();
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    {
        sp<GraphicBuffer> buffer =
            new GraphicBuffer(128, 64, HAL_PIXEL_FORMAT_YCBCR_P010, 1, kCpuUsage);
        ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
        EXPECT_EQ(zel::host::liveAllocationCount(), 1u);

        std::vector<buffer_handle_t> imports(3);
        for (buffer_handle_t& imported : imports) {
            ASSERT_EQ(mapper.importBufferNoValidate(buffer->handle, &imported), android::NO_ERROR);
        }
        EXPECT_EQ(zel::host::openBufferFdCount(), 4u);
        EXPECT_EQ(openFdCount(), fdsBefore + 4);

        // The allocation's own handle was never imported: refused, and still usable afterwards.
        EXPECT_EQ(mapper.freeBuffer(buffer->handle), android::BAD_VALUE);
        EXPECT_EQ(mapper.freeBuffer(nullptr), android::BAD_VALUE);
        EXPECT_EQ(queryU32(buffer->handle, BUFMETA_GET_WIDTH), 128u);

        EXPECT_EQ(mapper.freeBuffer(imports[0]), android::NO_ERROR);
        EXPECT_EQ(mapper.freeBuffer(imports[0]), android::BAD_VALUE);
        EXPECT_EQ(openFdCount(), fdsBefore + 3);

        // CLONE_HANDLE leaves the caller's handle alone; TAKE_UNREGISTERED_HANDLE consumes it;
        // TAKE_HANDLE frees an import when the GraphicBuffer goes.
        native_handle_t* raw = native_handle_clone(buffer->handle);
        sp<GraphicBuffer> clone =
            new GraphicBuffer(raw, GraphicBuffer::CLONE_HANDLE, 128, 64,
                              HAL_PIXEL_FORMAT_YCBCR_P010, 1, kCpuUsage, buffer->getStride());
        ASSERT_EQ(clone->initCheck(), android::NO_ERROR);
        EXPECT_NE(clone->handle, raw);
        sp<GraphicBuffer> taken =
            new GraphicBuffer(raw, GraphicBuffer::TAKE_UNREGISTERED_HANDLE, 128, 64,
                              HAL_PIXEL_FORMAT_YCBCR_P010, 1, kCpuUsage, buffer->getStride());
        ASSERT_EQ(taken->initCheck(), android::NO_ERROR);
        sp<GraphicBuffer> owner =
            new GraphicBuffer(imports[1], GraphicBuffer::TAKE_HANDLE, 128, 64,
                              HAL_PIXEL_FORMAT_YCBCR_P010, 1, kCpuUsage, buffer->getStride());
        EXPECT_EQ(bufmetaId(taken->handle), bufmetaId(buffer->handle));
        clone.clear();
        taken.clear();
        owner.clear();
        EXPECT_EQ(mapper.freeBuffer(imports[1]), android::BAD_VALUE);  // the GraphicBuffer did
        EXPECT_EQ(mapper.freeBuffer(imports[2]), android::NO_ERROR);
        EXPECT_EQ(zel::host::openBufferFdCount(), 1u);
    }
    EXPECT_EQ(zel::host::liveAllocationCount(), 0u);
    EXPECT_EQ(zel::host::openBufferFdCount(), 0u);
    EXPECT_EQ(openFdCount(), fdsBefore);
}

TEST(GrallocTest, NativeBufferReferenceKeepsTheBufferAlive) {
    sp<GraphicBuffer> buffer = new GraphicBuffer(8, 4, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    ANativeWindowBuffer* native = buffer->getNativeBuffer();
    EXPECT_EQ(native->common.magic, static_cast<int>(ANDROID_NATIVE_BUFFER_MAGIC));
    EXPECT_EQ(native->width, 8);
    EXPECT_EQ(native->stride, 16);
    EXPECT_EQ(native->format, HAL_PIXEL_FORMAT_RGBA_8888);
    EXPECT_EQ(native->handle, buffer->handle);
    EXPECT_EQ(GraphicBuffer::from(native), buffer);

    // What an EGLImage does: hold the buffer through the native object's reference hooks.
    native->common.incRef(&native->common);
    buffer.clear();
    EXPECT_EQ(queryU32(native->handle, BUFMETA_GET_HEIGHT), 4u);
    EXPECT_EQ(zel::host::liveAllocationCount(), 1u);
    native->common.decRef(&native->common);
    EXPECT_EQ(zel::host::liveAllocationCount(), 0u);
    EXPECT_EQ(zel::host::openBufferFdCount(), 0u);
}

TEST(GrallocTest, AsyncLockWaitsForItsFence) {
    sp<GraphicBuffer> buffer = new GraphicBuffer(8, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    const int fence = zel::host::createFenceFd();
    const int signal = dup(fence);
    std::thread signaller([signal] {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        zel::host::signalFenceFd(signal);
    });
    const auto start = std::chrono::steady_clock::now();
    void* vaddr = nullptr;
    ASSERT_EQ(buffer->lockAsync(GRALLOC_USAGE_SW_READ_OFTEN, &vaddr, fence), android::NO_ERROR);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(35));
    signaller.join();
    EXPECT_EQ(fcntl(fence, F_GETFD), -1);  // the lock took the fence
    int releaseFence = 0;
    EXPECT_EQ(buffer->unlockAsync(&releaseFence), android::NO_ERROR);
    EXPECT_EQ(releaseFence, -1);
    close(signal);
}

TEST(GrallocTest, LayersFollowEachOther) {
    zel::host::BufferLayout one;
    zel::host::BufferLayout three;
    ASSERT_TRUE(zel::host::computeBufferLayout(HAL_PIXEL_FORMAT_YV12, 30, 10, 1, &one));
    ASSERT_TRUE(zel::host::computeBufferLayout(HAL_PIXEL_FORMAT_YV12, 30, 10, 3, &three));
    EXPECT_EQ(three.layerSize, one.allocationSize);
    EXPECT_EQ(three.allocationSize, 3 * one.allocationSize);
    sp<GraphicBuffer> buffer = new GraphicBuffer(30, 10, HAL_PIXEL_FORMAT_YV12, 3, kCpuUsage);
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    EXPECT_EQ(buffer->getLayerCount(), 3u);
    EXPECT_EQ(queryU32(buffer->handle, BUFMETA_GET_ALLOC_SIZE), three.allocationSize);
}

}  // namespace
