/*
 * Host gralloc control: the memory layout of host buffers and access to their memory for the GPU
 * layer, plus counters and fault injection for tests.
 *
 * A host buffer is a memfd holding the image (all layers, one after the other) followed by one
 * page of allocation-wide state (dataspace, content generation) that every handle of the
 * allocation shares. Its native handle holds that memfd and the ints the mapper needs; the
 * allocation id in it is shared by every handle imported from the allocation.
 *
 * Layouts, per layer, offsets in bytes from the start of the layer; ceil(n/2) is written n'/2:
 *
 *   packed RGB formats (RGBA_8888 and the other single-plane formats):
 *       rows of width * bpp bytes, row pitch ALIGN(width * bpp, 64) bytes;
 *       stride (pixels) = pitch / bpp. BLOB: one row of `width` bytes, no padding.
 *   8-bit semi-planar: NV12 order (Cb first) for YCbCr_420_888 (0x23), 0x1000, 0x7f000030;
 *       NV21 order (Cr first) for YCrCb_420_SP (0x11), 0x7f000010:
 *       Y plane at 0, pitch P = ALIGN(width, 64), height rows; stride (pixels) = P.
 *       Interleaved chroma plane at P * height, same pitch P, height'/2 rows of width'/2 pairs.
 *   P010 (0x36): as the 8-bit semi-planar NV12 layout with 16-bit little-endian samples (the value
 *       in bits 15..6): Y pitch P = ALIGN(width * 2, 64) bytes, stride (pixels) = P / 2; chroma
 *       plane (Cb,Cr pairs of 4 bytes) at P * height with pitch P, height'/2 rows.
 *   YV12 (0x32315659): Y plane at 0 with pitch YS = ALIGN(width, 16), stride (pixels) = YS; then
 *       the Cr (V) plane at YS * height, then the Cb (U) plane at YS * height + CS * height'/2,
 *       both with pitch CS = ALIGN(YS / 2, 16) and height'/2 rows of width'/2 samples.
 *
 * The layer size is the end of the last plane; layers follow each other at that distance.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>

#include <cutils/native_handle.h>

namespace zel::host {

// One plane of a buffer. Offsets are bytes from the start of the allocation (layer 0).
struct PlaneLayout {
    uint32_t offset = 0;       // first byte of the plane
    uint32_t rowPitch = 0;     // bytes from one row to the next
    uint32_t width = 0;        // samples (or sample pairs, for interleaved chroma) per row
    uint32_t height = 0;       // rows
    uint32_t sampleBytes = 0;  // bytes per sample or per interleaved pair
};

enum class LayoutKind {
    Packed,      // one plane of whole pixels
    SemiPlanar,  // Y plane, then one interleaved chroma plane (NV12, NV21, P010)
    Planar,      // Y plane, then separate Cr and Cb planes (YV12)
};

struct BufferLayout {
    uint32_t format = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t layerCount = 1;
    uint32_t stride = 0;          // pixels, as GraphicBuffer::getStride()
    uint32_t layerSize = 0;       // bytes of one layer
    uint32_t allocationSize = 0;  // bytes of image data, all layers
    LayoutKind kind = LayoutKind::Packed;
    uint32_t bitsPerSample = 8;  // 8, or 10 for P010 (stored in 16-bit containers)
    uint32_t planeCount = 0;     // 1 packed, 2 semi-planar, 3 planar
    // Packed: [0] the pixels. Semi-planar: [0] Y, [1] the chroma pairs. Planar: [0] Y, [1] Cr, [2]
    // Cb.
    PlaneLayout planes[3];
    // The chroma samples of a YUV layout, as android_ycbcr describes them: offsets of the first
    // Cb and Cr byte, row pitch of the chroma planes and bytes between horizontal neighbours.
    uint32_t cbOffset = 0;
    uint32_t crOffset = 0;
    uint32_t chromaPitch = 0;
    uint32_t chromaStep = 0;

    bool isYuv() const { return kind != LayoutKind::Packed; }
};

// The layout the host gives a buffer of this format and size; false for formats the host cannot
// allocate and for zero sizes. layerCount 0 counts as 1.
bool computeBufferLayout(uint32_t format, uint32_t width, uint32_t height, uint32_t layerCount,
                         BufferLayout* outLayout);

// The layout of the buffer behind any handle of a host buffer; false for other handles.
bool getBufferLayout(const native_handle_t* handle, BufferLayout* outLayout);

class Allocation;

// The memory of a host buffer, mapped read-write for as long as this object lives, whatever its
// usage (protected buffers included: this is the GPU's view, not a CPU lock). Works with any
// handle of the allocation, imported or not; valid() is false for other handles.
class BufferMemory {
public:
    explicit BufferMemory(const native_handle_t* handle);
    ~BufferMemory();
    BufferMemory(const BufferMemory&) = delete;
    BufferMemory& operator=(const BufferMemory&) = delete;

    bool valid() const { return mAllocation != nullptr; }
    uint8_t* data() const;  // start of layer 0
    size_t size() const;    // bytes of image data, all layers
    const BufferLayout& layout() const;
    uint64_t bufferId() const;  // the allocation id (bufmeta BUFMETA_GET_BUFFER_ID)
    // Expires when the allocation is freed (its last handle and mapping gone).
    std::weak_ptr<const void> lifetime() const { return mAllocation; }

    // The content generation (see contentGeneration() below), and a bump for writers other than
    // CPU locks (the GPU layer after a write-back); returns the new generation.
    uint64_t contentGeneration() const;
    uint64_t markContentChanged();

private:
    std::shared_ptr<Allocation> mAllocation;
};

// The content generation of an allocation: starts at 1 and grows by one each time a CPU lock that
// included a SW write bit is unlocked (or markContentChanged() is called). 0 for a handle that is
// not a host buffer.
uint64_t contentGeneration(const native_handle_t* handle);

// Allocations whose memory this process holds mapped or owns a handle of.
size_t liveAllocationCount();

// Descriptors held by the handles the host gralloc created and has not yet closed: one per
// GraphicBuffer allocation and one per imported handle.
size_t openBufferFdCount();

// Makes the next `count` bufmeta_query() calls with `code` fail (code -1: any code).
void failBufmetaQuery(int code, int count = 1);

// Cancels any failures failBufmetaQuery() armed.
void clearBufmetaFailures();

// Makes the next `count` CPU unlocks report INVALID_OPERATION. The lock is released and the
// content generation follows as usual: the failure is in the report only, as when a mapper fails
// to flush caches after the fact.
void failUnlock(int count = 1);

}  // namespace zel::host
