// Host gralloc: buffer layouts as the CPU sees them, handles and imports, metadata, locks.

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <bufmeta.h>
#include <cutils/native_handle.h>
#include <hardware/gralloc.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <zel/host/Gralloc.h>

using android::GraphicBuffer;
using android::GraphicBufferMapper;
using android::sp;

namespace {

constexpr uint64_t kCpuUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

// Descriptors open in the process, as the kernel sees them (the listing's own one included).
size_t openFdCount() {
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(fds), end(fds)));
}

uint64_t query(const native_handle_t* handle, int code) {
    uint64_t value = 0;  // 32-bit answers fill the low half
    EXPECT_EQ(bufmeta_query(handle, code, &value), 0) << "code " << code;
    return value;
}

// The documented rule, written out by hand. Odd sizes catch rounding of chroma planes and row
// alignment; widths that are already aligned catch over-alignment.
struct ExpectedLayout {
    uint32_t format, width, height;
    uint32_t stride;                                       // pixels
    uint32_t yPitch;                                       // bytes (RGBA: row pitch)
    uint32_t cbOffset, crOffset, chromaPitch, chromaStep;  // chromaStep 0: RGBA
    uint32_t size;
    bool p010;
};

const ExpectedLayout kLayouts[] = {
    // RGBA: rows of ALIGN(w * 4, 64) bytes.
    {0x1, 37, 19, 48, 192, 0, 0, 0, 0, 192 * 19, false},
    {0x1, 64, 32, 64, 256, 0, 0, 0, 0, 256 * 32, false},
    // NV21 and its vendor stand-in: Y pitch ALIGN(w, 64); V,U pairs after Y, ceil(h/2) rows.
    {0x11, 37, 19, 64, 64, 1217, 1216, 64, 2, 1216 + 64 * 10, false},
    {0x7f000010, 37, 19, 64, 64, 1217, 1216, 64, 2, 1216 + 64 * 10, false},
    // NV12 layouts: U first.
    {0x23, 37, 19, 64, 64, 1216, 1217, 64, 2, 1216 + 64 * 10, false},
    {0x1000, 37, 19, 64, 64, 1216, 1217, 64, 2, 1216 + 64 * 10, false},
    {0x7f000030, 37, 19, 64, 64, 1216, 1217, 64, 2, 1216 + 64 * 10, false},
    // P010: Y pitch ALIGN(2w, 64) bytes, stride in pixels is half of it.
    {0x36, 37, 19, 64, 128, 2432, 2434, 128, 4, 2432 + 128 * 10, true},
    // YV12: Y pitch ALIGN(w, 16), chroma pitch ALIGN(ypitch / 2, 16), V plane then U plane.
    {0x32315659, 37, 19, 48, 48, 912 + 32 * 10, 912, 32, 1, 912 + 32 * 20, false},
    {0x32315659, 64, 32, 64, 64, 2048 + 32 * 16, 2048, 32, 1, 2048 + 32 * 32, false},
};

void PrintTo(const ExpectedLayout& e, std::ostream* os) {
    *os << "format 0x" << std::hex << e.format << std::dec << " " << e.width << "x" << e.height;
}

// A plane (for RGBA: one channel) as the lock reports it and where the layout puts it.
struct Plane {
    uint8_t* locked;
    size_t lockedPitch, lockedStep;
    size_t rawOffset, rawPitch, rawStep;
    uint32_t width, height;
};

class LayoutTest : public ::testing::TestWithParam<ExpectedLayout> {};

TEST_P(LayoutTest, PlanesLandAtTheDocumentedOffsets) {
    const ExpectedLayout& e = GetParam();
    sp<GraphicBuffer> buffer =
        new GraphicBuffer(e.width, e.height, static_cast<int>(e.format), 1, kCpuUsage, "layout");
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    EXPECT_EQ(buffer->getStride(), e.stride);
    EXPECT_EQ(query(buffer->handle, BUFMETA_GET_STRIDE), e.stride);
    EXPECT_EQ(query(buffer->handle, BUFMETA_GET_ALLOC_SIZE), e.size);

    // The control API describes the same planes to the GPU layer.
    zel::host::BufferLayout layout;
    ASSERT_TRUE(zel::host::getBufferLayout(buffer->handle, &layout));
    EXPECT_EQ(layout.planes[0].rowPitch, e.yPitch);
    EXPECT_EQ(layout.allocationSize, e.size);
    EXPECT_EQ(layout.cbOffset, e.cbOffset);
    EXPECT_EQ(layout.crOffset, e.crOffset);
    EXPECT_EQ(layout.chromaPitch, e.chromaPitch);
    EXPECT_EQ(layout.chromaStep, e.chromaStep);

    // Write a pattern through the lock, addressed as it reports ...
    const size_t sampleBytes = e.p010 ? 2 : 1;
    std::vector<Plane> planes;
    if (e.chromaStep == 0) {
        void* vaddr = nullptr;
        ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &vaddr), android::NO_ERROR);
        for (size_t c = 0; c < 4; c++) {
            planes.push_back({static_cast<uint8_t*>(vaddr) + c, buffer->getStride() * 4u, 4, c,
                              e.yPitch, 4, e.width, e.height});
        }
    } else {
        android_ycbcr ycbcr;
        ASSERT_EQ(buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr), android::NO_ERROR);
        const uint32_t cw = (e.width + 1) / 2;
        const uint32_t ch = (e.height + 1) / 2;
        planes = {{static_cast<uint8_t*>(ycbcr.y), ycbcr.ystride, sampleBytes, 0, e.yPitch,
                   sampleBytes, e.width, e.height},
                  {static_cast<uint8_t*>(ycbcr.cb), ycbcr.cstride, ycbcr.chroma_step, e.cbOffset,
                   e.chromaPitch, e.chromaStep, cw, ch},
                  {static_cast<uint8_t*>(ycbcr.cr), ycbcr.cstride, ycbcr.chroma_step, e.crOffset,
                   e.chromaPitch, e.chromaStep, cw, ch}};
    }
    // P010 keeps its 10 bits in bits 15..6, little-endian.
    auto value = [&](size_t plane, uint32_t x, uint32_t y) {
        const uint8_t v = static_cast<uint8_t>(plane * 89 + x * 7 + y * 13 + 1);
        return static_cast<uint16_t>(e.p010 ? (v * 4 + 3) << 6 : v);
    };
    for (size_t p = 0; p < planes.size(); p++) {
        for (uint32_t y = 0; y < planes[p].height; y++) {
            for (uint32_t x = 0; x < planes[p].width; x++) {
                const uint16_t v = value(p, x, y);
                memcpy(planes[p].locked + y * planes[p].lockedPitch + x * planes[p].lockedStep, &v,
                       sampleBytes);
            }
        }
    }
    const uint64_t before = zel::host::contentGeneration(buffer->handle);
    ASSERT_EQ(buffer->unlock(), android::NO_ERROR);
    EXPECT_EQ(zel::host::contentGeneration(buffer->handle), before + 1);

    // ... and read it back through an independent mapping of the memfd, at the hand-computed
    // offsets.
    const int fd = buffer->handle->data[0];
    auto unmap = [&e](uint8_t* p) { munmap(p, e.size); };
    std::unique_ptr<uint8_t, decltype(unmap)> raw(
        static_cast<uint8_t*>(mmap(nullptr, e.size, PROT_READ, MAP_SHARED, fd, 0)), unmap);
    ASSERT_NE(raw.get(), MAP_FAILED);
    for (size_t p = 0; p < planes.size(); p++) {
        for (uint32_t y = 0; y < planes[p].height; y++) {
            for (uint32_t x = 0; x < planes[p].width; x++) {
                uint16_t got = 0;
                memcpy(&got,
                       raw.get() + planes[p].rawOffset + y * planes[p].rawPitch +
                           x * planes[p].rawStep,
                       sampleBytes);
                ASSERT_EQ(got, value(p, x, y)) << "plane " << p << " at " << x << "," << y;
            }
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

TEST(GrallocTest, BufmetaRefusesForeignHandlesAndInjectedFailures) {
    sp<GraphicBuffer> buffer = new GraphicBuffer(32, 32, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    uint64_t value = 0;
    EXPECT_NE(bufmeta_query(buffer->handle, 13, &value), 0);
    EXPECT_NE(bufmeta_query(nullptr, BUFMETA_GET_WIDTH, &value), 0);
    native_handle_t* foreign = native_handle_create(1, 11);
    memset(foreign->data, 0, 12 * sizeof(int));
    foreign->data[0] = -1;  // an fd the host never allocated
    EXPECT_NE(bufmeta_query(foreign, BUFMETA_GET_WIDTH, &value), 0);
    native_handle_delete(foreign);

    zel::host::failBufmetaQuery(BUFMETA_GET_BUFFER_ID);
    EXPECT_EQ(query(buffer->handle, BUFMETA_GET_WIDTH), 32u);  // other codes still answer
    EXPECT_NE(bufmeta_query(buffer->handle, BUFMETA_GET_BUFFER_ID, &value), 0);
    EXPECT_EQ(bufmeta_query(buffer->handle, BUFMETA_GET_BUFFER_ID, &value), 0);  // only once
    zel::host::failBufmetaQuery(-1, 2);
    EXPECT_NE(bufmeta_query(buffer->handle, BUFMETA_GET_HEIGHT, &value), 0);
    zel::host::clearBufmetaFailures();
    EXPECT_EQ(bufmeta_query(buffer->handle, BUFMETA_GET_HEIGHT, &value), 0);
}

TEST(GrallocTest, ProtectedBuffersRefuseCpuAccess) {
    const uint64_t usage = kCpuUsage | GRALLOC_USAGE_PROTECTED | GRALLOC_USAGE_HW_TEXTURE;
    sp<GraphicBuffer> secure = new GraphicBuffer(64, 64, HAL_PIXEL_FORMAT_YCRCB_420_SP, 1, usage);
    ASSERT_EQ(secure->initCheck(), android::NO_ERROR);
    void* vaddr = nullptr;
    EXPECT_EQ(secure->lock(GRALLOC_USAGE_SW_READ_OFTEN, &vaddr), android::PERMISSION_DENIED);
    android_ycbcr ycbcr;
    EXPECT_EQ(secure->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr), android::PERMISSION_DENIED);

    // Imports are just as protected; the GPU's view still reaches the memory.
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    buffer_handle_t imported = nullptr;
    ASSERT_EQ(mapper.importBufferNoValidate(secure->handle, &imported), android::NO_ERROR);
    EXPECT_EQ(mapper.lock(imported, GRALLOC_USAGE_SW_READ_OFTEN, android::Rect(64, 64), &vaddr),
              android::PERMISSION_DENIED);
    uint64_t isProtected = 0;
    EXPECT_EQ(mapper.getProtectedContent(imported, &isProtected), android::NO_ERROR);
    EXPECT_EQ(isProtected, 1u);
    zel::host::BufferMemory memory(imported);
    ASSERT_TRUE(memory.valid());
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

    // An injected unlock failure is reported, and the unlock happens all the same.
    zel::host::failUnlock();
    ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_WRITE_RARELY, &vaddr), android::NO_ERROR);
    EXPECT_EQ(buffer->unlock(), android::INVALID_OPERATION);
    EXPECT_EQ(zel::host::contentGeneration(h), 3u);
    EXPECT_EQ(buffer->unlock(), android::BAD_VALUE);  // nothing left locked
    ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &vaddr), android::NO_ERROR);
    EXPECT_EQ(buffer->unlock(), android::NO_ERROR);

    // A write through an import counts for the allocation.
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    buffer_handle_t imported = nullptr;
    ASSERT_EQ(mapper.importBufferNoValidate(h, &imported), android::NO_ERROR);
    ASSERT_EQ(mapper.lock(imported, GRALLOC_USAGE_SW_WRITE_OFTEN, android::Rect(16, 16), &vaddr),
              android::NO_ERROR);
    EXPECT_EQ(mapper.unlock(h), android::BAD_VALUE);  // the lock belongs to the import
    ASSERT_EQ(mapper.unlock(imported), android::NO_ERROR);
    EXPECT_EQ(zel::host::contentGeneration(h), 4u);
    EXPECT_EQ(mapper.freeBuffer(imported), android::NO_ERROR);
}

TEST(GrallocTest, FreeingTwiceIsRefusedAndNothingLeaks) {
    const size_t fdsBefore = openFdCount();
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    {
        sp<GraphicBuffer> buffer =
            new GraphicBuffer(128, 64, HAL_PIXEL_FORMAT_YCBCR_P010, 1, kCpuUsage);
        ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
        std::vector<buffer_handle_t> imports(3);
        for (buffer_handle_t& imported : imports) {
            ASSERT_EQ(mapper.importBufferNoValidate(buffer->handle, &imported), android::NO_ERROR);
        }
        EXPECT_EQ(openFdCount(), fdsBefore + 4);

        // The allocation's own handle was never imported: refused, and still usable afterwards.
        EXPECT_EQ(mapper.freeBuffer(buffer->handle), android::BAD_VALUE);
        EXPECT_EQ(query(buffer->handle, BUFMETA_GET_WIDTH), 128u);
        EXPECT_EQ(mapper.freeBuffer(imports[0]), android::NO_ERROR);
        EXPECT_EQ(mapper.freeBuffer(imports[0]), android::BAD_VALUE);
        EXPECT_EQ(openFdCount(), fdsBefore + 3);

        // CLONE_HANDLE leaves the caller's handle alone; TAKE_UNREGISTERED_HANDLE consumes it;
        // TAKE_HANDLE frees an import when the GraphicBuffer goes.
        auto wrap = [&](const native_handle_t* h, GraphicBuffer::HandleWrapMethod method) {
            return sp<GraphicBuffer>(new GraphicBuffer(h, method, 128, 64,
                                                       HAL_PIXEL_FORMAT_YCBCR_P010, 1, kCpuUsage,
                                                       buffer->getStride()));
        };
        native_handle_t* raw = native_handle_clone(buffer->handle);
        sp<GraphicBuffer> clone = wrap(raw, GraphicBuffer::CLONE_HANDLE);
        ASSERT_EQ(clone->initCheck(), android::NO_ERROR);
        EXPECT_NE(clone->handle, raw);
        sp<GraphicBuffer> taken = wrap(raw, GraphicBuffer::TAKE_UNREGISTERED_HANDLE);
        ASSERT_EQ(taken->initCheck(), android::NO_ERROR);
        sp<GraphicBuffer> owner = wrap(imports[1], GraphicBuffer::TAKE_HANDLE);
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
    EXPECT_EQ(GraphicBuffer::from(native), buffer);
    // What an EGLImage does: hold the buffer through the native object's reference hooks.
    native->common.incRef(&native->common);
    buffer.clear();
    EXPECT_EQ(query(native->handle, BUFMETA_GET_HEIGHT), 4u);
    native->common.decRef(&native->common);
    EXPECT_EQ(zel::host::liveAllocationCount(), 0u);
    EXPECT_EQ(zel::host::openBufferFdCount(), 0u);
}

}  // namespace
