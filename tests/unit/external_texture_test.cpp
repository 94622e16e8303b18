// Textures made through a renderer, graphic buffers wrapped, imported and allocated as external
// textures, and the debug dump and hook of their contents.
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <android/log.h>
#include <bufmeta.h>
#include <hardware/gralloc.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>
#include <zel/host/Gralloc.h>

#include "DumpCounter.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

constexpr uint32_t kGlTexture2D = 0x0DE1;
constexpr uint32_t kGlTextureExternal = 0x8D65;

// Records the texture service calls a Texture makes.
class TextureServiceRenderer : public Renderer {
public:
    Status genTexture(uint32_t* name, uint32_t, uint32_t, uint32_t, uint32_t,
                      const void*) override {
        ++mGenerated;
        if (mFail) {
            return RENDER_FAILED;
        }
        *name = 41;
        return OK;
    }
    Status deleteTexture(const uint32_t* name) override {
        mDeleted.push_back(*name);
        return OK;
    }
    Status blit(const std::vector<Buffer>&, Buffer&, int, AppInside) override { return OK; }
    Status blit(const std::vector<Buffer>&, Buffer&, android::sp<android::Fence>&,
                AppInside) override {
        return OK;
    }
    Status asyncBlit(const std::vector<Buffer>&, Buffer&, void*, AppInside) override { return OK; }
    Status cacheNewImage(unsigned long, Buffer, android::Rect, long) override { return OK; }
    Status releaseCache() override { return OK; }

    bool mFail = false;
    int mGenerated = 0;
    std::vector<uint32_t> mDeleted;
};

uint32_t query(const native_handle* handle, int code) {
    uint32_t value = 0;
    EXPECT_EQ(bufmeta_query(handle, code, &value), 0) << "code " << code;
    return value;
}

uint64_t bufferId(const native_handle* handle) {
    uint64_t id = 0;
    EXPECT_EQ(bufmeta_query(handle, BUFMETA_GET_BUFFER_ID, &id), 0);
    return id;
}

std::vector<uint8_t> pattern(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 7 + 3);
    }
    return bytes;
}

std::vector<uint8_t> contents(const android::sp<android::GraphicBuffer>& buffer, size_t size) {
    void* address = nullptr;
    EXPECT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &address), android::NO_ERROR);
    std::vector<uint8_t> bytes(static_cast<uint8_t*>(address),
                               static_cast<uint8_t*>(address) + size);
    buffer->unlock();
    return bytes;
}

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {});
}

TEST(Texture, NameComesFromTheRendererAndGoesBackOnce) {
    auto service = std::make_shared<TextureServiceRenderer>();
    std::shared_ptr<Renderer> renderer = service;
    {
        Texture texture(renderer, 8, 4, Texture::RGBA, Texture::UNSIGNED_BYTE, nullptr, 0);
        EXPECT_EQ(texture.getTextureName(), 41u);
        EXPECT_EQ(texture.getTextureTarget(), kGlTexture2D);
        EXPECT_EQ(texture.getWidth(), 8u);
        const float matrix[16] = {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
        texture.setMatrix(matrix);
        EXPECT_EQ(texture.getMatrix()[5], 2.0f);
    }
    EXPECT_EQ(service->mDeleted, std::vector<uint32_t>{41});

    // A failed genTexture leaves no name, and nothing is deleted.
    service->mFail = true;
    service->mDeleted.clear();
    { Texture texture(renderer, 8, 4, Texture::RGBA, Texture::UNSIGNED_BYTE, nullptr, 0); }
    EXPECT_EQ(service->mGenerated, 2);
    EXPECT_TRUE(service->mDeleted.empty());
}

TEST(ExternalTexture, BadArgumentsLeaveAnEmptyPlainTexture) {
    ::zel::test::LogCapture logs;
    ExternalTexture fromBuffer(android::sp<android::GraphicBuffer>(nullptr));
    ExternalTexture fromHandle(static_cast<const native_handle*>(nullptr));
    ExternalTexture allocated(0, 16, HAL_PIXEL_FORMAT_RGBA_8888, 0, nullptr, 0);

    for (const ExternalTexture* texture : {&fromBuffer, &fromHandle, &allocated}) {
        EXPECT_EQ(texture->getWidth(), 0u);
        EXPECT_EQ(texture->getHeight(), 0u);
        EXPECT_EQ(texture->getTextureTarget(), kGlTexture2D);
        EXPECT_EQ(texture->getGraphicBuffer(), nullptr);
        EXPECT_EQ(texture->getTextureName(), 0u);
    }
    EXPECT_FALSE(fromBuffer.isImported());
    EXPECT_TRUE(fromHandle.isImported());
    EXPECT_EQ(fromBuffer.getDataspace(), 0);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "ExternalTexture(), invalid parameter ("), 3u)
        << logs.dump();
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "invalid parameter (0,16,(nil),0)"), 1u) << logs.dump();
}

TEST(ExternalTexture, WrapsAGraphicBufferWithItsGrallocAttributes) {
    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
        37, 19, HAL_PIXEL_FORMAT_YCBCR_P010, 1, GRALLOC_USAGE_HW_TEXTURE, "test");
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    android::GraphicBufferMapper::get().setDataspace(buffer->handle, android::ui::Dataspace::BT709);

    ExternalTexture texture(buffer);
    EXPECT_EQ(texture.getWidth(), 37u);
    EXPECT_EQ(texture.getHeight(), 19u);
    EXPECT_EQ(texture.getPixelFormat(), HAL_PIXEL_FORMAT_YCBCR_P010);
    EXPECT_EQ(texture.getTextureTarget(), kGlTextureExternal);
    EXPECT_EQ(texture.getGraphicBuffer().get(), buffer.get());
    EXPECT_FALSE(texture.isImported());
    EXPECT_EQ(texture.getHandle(), nullptr);
    EXPECT_EQ(texture.getDataspace(), static_cast<int32_t>(HAL_DATASPACE_BT709));
}

TEST(ExternalTexture, FailedSizeQueryStillGivesAnExternalTexture) {
    ::zel::test::LogCapture logs;
    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
        16, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, GRALLOC_USAGE_HW_TEXTURE, "test");
    ::zel::host::failBufmetaQuery(BUFMETA_GET_WIDTH);
    ExternalTexture texture(buffer);
    ::zel::host::clearBufmetaFailures();
    EXPECT_EQ(texture.getWidth(), 0u);
    EXPECT_EQ(texture.getHeight(), 8u);
    EXPECT_EQ(texture.getTextureTarget(), kGlTextureExternal);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "width <"), 1u) << logs.dump();
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "bufmeta_query: BUFMETA_GET_WIDTH failed with err"), 1u)
        << logs.dump();
}

TEST(ExternalTexture, ImportedHandleSharesTheAllocationAndIsFreedOnce) {
    const size_t fdsBefore = ::zel::host::openBufferFdCount();
    android::sp<android::GraphicBuffer> original = new android::GraphicBuffer(
        64, 32, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1,
        GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_SW_WRITE_OFTEN, "producer");
    ASSERT_EQ(original->initCheck(), android::NO_ERROR);
    {
        ::zel::test::LogCapture logs;
        ExternalTexture texture(original->handle);
        ASSERT_NE(texture.getHandle(), nullptr);
        EXPECT_NE(texture.getHandle(), original->handle);
        EXPECT_TRUE(texture.isImported());
        EXPECT_EQ(texture.getWidth(), 64u);
        EXPECT_EQ(texture.getPixelFormat(), HAL_PIXEL_FORMAT_YCrCb_420_SP);
        EXPECT_EQ(texture.getTextureTarget(), kGlTextureExternal);

        // One allocation: the import answers the same buffer id, while the wrapper is a
        // GraphicBuffer of its own.
        EXPECT_EQ(bufferId(texture.getHandle()), bufferId(original->handle));
        const android::sp<android::GraphicBuffer>& wrapper = texture.getGraphicBuffer();
        ASSERT_NE(wrapper, nullptr);
        EXPECT_EQ(wrapper->handle, texture.getHandle());
        EXPECT_NE(wrapper->getId(), original->getId());
        EXPECT_EQ(wrapper->getStride(), original->getStride());
        EXPECT_EQ(::zel::host::openBufferFdCount(), fdsBefore + 2);
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
    }
    // The import is gone, exactly once (a second free would log an error), and the producer's
    // buffer is untouched.
    EXPECT_EQ(::zel::host::openBufferFdCount(), fdsBefore + 1);
    EXPECT_EQ(original->initCheck(), android::NO_ERROR);
    original.clear();
    EXPECT_EQ(::zel::host::openBufferFdCount(), fdsBefore);
}

TEST(ExternalTexture, AllocatesWithTheSelectedUsageAndCopiesDataThatFits) {
    const size_t liveBefore = ::zel::host::liveAllocationCount();
    {
        ExternalTexture gpuOnly(16, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, nullptr, 0);
        ASSERT_NE(gpuOnly.getGraphicBuffer(), nullptr);
        EXPECT_EQ(query(gpuOnly.getGraphicBuffer()->handle, BUFMETA_GET_USAGE), 0x300u);
        EXPECT_EQ(gpuOnly.getTextureTarget(), kGlTextureExternal);

        const uint32_t size = 16 * 8 * 4;
        std::vector<uint8_t> data = pattern(size);
        ExternalTexture filled(16, 8, HAL_PIXEL_FORMAT_RGBA_8888, 0, data.data(), size);
        ASSERT_NE(filled.getGraphicBuffer(), nullptr);
        EXPECT_EQ(query(filled.getGraphicBuffer()->handle, BUFMETA_GET_USAGE), 0x333u);
        EXPECT_EQ(contents(filled.getGraphicBuffer(), size), data);

        // More data than the allocation holds: nothing is copied.
        const uint32_t alloc = query(filled.getGraphicBuffer()->handle, BUFMETA_GET_ALLOC_SIZE);
        std::vector<uint8_t> tooMuch = pattern(alloc + 1);
        ExternalTexture untouched(16, 8, HAL_PIXEL_FORMAT_RGBA_8888, 2, tooMuch.data(),
                                  static_cast<int>(tooMuch.size()));
        EXPECT_EQ(contents(untouched.getGraphicBuffer(), size), std::vector<uint8_t>(size, 0));
        EXPECT_EQ(::zel::host::liveAllocationCount(), liveBefore + 3);
    }
    EXPECT_EQ(::zel::host::liveAllocationCount(), liveBefore);
}

class BufferDump : public ::testing::Test {
protected:
    static std::string expectedPath(const ExternalTexture& texture, const std::string& tag,
                                    unsigned int number) {
        return std::string(ZEL_TEST_DUMP_DIR) + std::to_string(getpid()) + "_" +
               std::to_string(gettid()) + "_W_" + std::to_string(texture.getWidth()) + "_H_" +
               std::to_string(texture.getHeight()) + "_P_" +
               std::to_string(texture.getPixelFormat()) + "_" + tag + "#" + std::to_string(number) +
               ".raw";
    }
    void TearDown() override {
        for (const std::string& path : mCreated) {
            unlink(path.c_str());
            rmdir(path.c_str());
        }
    }
    std::vector<std::string> mCreated;
};

TEST_F(BufferDump, WritesTheWholeAllocationUnderARunningNumber) {
    const uint32_t size = 20 * 6 * 4;
    std::vector<uint8_t> data = pattern(size);
    ExternalTexture texture(20, 6, HAL_PIXEL_FORMAT_RGBA_8888, 0, data.data(), size);
    const uint32_t alloc = query(texture.getGraphicBuffer()->handle, BUFMETA_GET_ALLOC_SIZE);
    const std::vector<uint8_t> memory = contents(texture.getGraphicBuffer(), alloc);

    const std::string first = texture.DumpBuffer("in");
    const std::string second = texture.DumpBuffer("in");
    const std::string other = texture.DumpBuffer("out");
    mCreated = {first, second, other};
    EXPECT_EQ(first, expectedPath(texture, "in", 1));
    EXPECT_EQ(second, expectedPath(texture, "in", 2));
    EXPECT_EQ(other, expectedPath(texture, "out", 1));
    EXPECT_EQ(readFile(first), memory);
    EXPECT_EQ(readFile(second), memory);
    // Rows are padded to 64 bytes, so the file is larger than the pixels alone.
    EXPECT_GT(memory.size(), size);
}

TEST(DumpCounter, WrapsToOneNeverZero) {
    EXPECT_EQ(GetDumpCounter("fresh"), 1u);
    UpdateDumpCounter("fresh");
    EXPECT_EQ(GetDumpCounter("fresh"), 2u);
    SetDumpCounter("wrap", 4294967295u);
    EXPECT_EQ(GetDumpCounter("wrap"), 4294967295u);
    UpdateDumpCounter("wrap");
    EXPECT_EQ(GetDumpCounter("wrap"), 1u);
    // An update of an unknown tag starts it from 0, so its next dump is number 1.
    UpdateDumpCounter("unseen");
    EXPECT_EQ(GetDumpCounter("unseen"), 1u);
}

TEST_F(BufferDump, AFileThatCannotBeOpenedLeavesTheBufferLocked) {
    ::zel::test::LogCapture logs;
    ExternalTexture texture(8, 8, HAL_PIXEL_FORMAT_RGBA_8888, 0, nullptr, 0);
    // A directory where the file should go makes the open fail.
    const std::string blocked = expectedPath(texture, "blocked", 1);
    ASSERT_EQ(mkdir(blocked.c_str(), 0755), 0);
    mCreated = {blocked};

    EXPECT_EQ(texture.DumpBuffer("blocked"), blocked);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "fail to open:" + blocked), 1u) << logs.dump();
    EXPECT_EQ(texture.getGraphicBuffer()->unlock(), android::NO_ERROR);
    EXPECT_EQ(GetDumpCounter("blocked"), 2u);
}

TEST_F(BufferDump, ProtectedBufferIsNotReadButNamed) {
    ::zel::test::LogCapture logs;
    android::sp<android::GraphicBuffer> secure =
        new android::GraphicBuffer(8, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1,
                                   GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_PROTECTED, "secure");
    ExternalTexture texture(secure);
    const std::string path = texture.DumpBuffer("secure");
    EXPECT_EQ(path, expectedPath(texture, "secure", 1));
    EXPECT_EQ(access(path.c_str(), F_OK), -1);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "GraphicBuffer lock failed"), 1u) << logs.dump();
}

TEST(BufferHook, FillsTheAllocationWithTheLowByte) {
    ExternalTexture texture(10, 4, HAL_PIXEL_FORMAT_YCrCb_420_SP, 0, nullptr, 0);
    texture.HookBuffer(0x1ff);
    const uint32_t alloc = query(texture.getGraphicBuffer()->handle, BUFMETA_GET_ALLOC_SIZE);
    EXPECT_EQ(contents(texture.getGraphicBuffer(), alloc), std::vector<uint8_t>(alloc, 0xff));
}

}  // namespace
}  // namespace zel
}  // namespace kav
