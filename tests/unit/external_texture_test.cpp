// Graphic buffers wrapped, imported and allocated as external textures, and the debug dump and
// hook of their contents.
#include <sys/stat.h>
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
#include <zel/host/Gpu.h>
#include <zel/host/Properties.h>
#include <zel/host/Gralloc.h>

#include "DumpCounter.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

using android::GraphicBuffer;
using android::sp;

template <typename T = uint32_t>
T query(const native_handle* handle, int code) {
    T value = 0;
    EXPECT_EQ(bufmeta_query(handle, code, &value), 0) << "code " << code;
    return value;
}

std::vector<uint8_t> pattern(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 7 + 3);
    }
    return bytes;
}

std::vector<uint8_t> contents(const sp<GraphicBuffer>& buffer, size_t size) {
    void* address = nullptr;
    EXPECT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &address), android::NO_ERROR);
    std::vector<uint8_t> bytes(static_cast<uint8_t*>(address),
                               static_cast<uint8_t*>(address) + size);
    buffer->unlock();
    return bytes;
}

uint32_t allocSize(const ExternalTexture& texture) {
    return query(texture.getGraphicBuffer()->handle, BUFMETA_GET_ALLOC_SIZE);
}

TEST(ExternalTexture, BadArgumentsLeaveAnEmptyPlainTexture) {
    ::zel::test::LogCapture logs;
    ExternalTexture fromBuffer(sp<GraphicBuffer>(nullptr));
    ExternalTexture fromHandle(static_cast<const native_handle*>(nullptr));
    ExternalTexture allocated(0, 16, HAL_PIXEL_FORMAT_RGBA_8888, 0, nullptr, 0);
    for (const ExternalTexture* texture : {&fromBuffer, &fromHandle, &allocated}) {
        EXPECT_EQ(texture->getWidth() + texture->getHeight() + texture->getTextureName(), 0u);
        EXPECT_EQ(texture->getTextureTarget(), Texture::kTarget2D);
        EXPECT_EQ(texture->getGraphicBuffer(), nullptr);
    }
    EXPECT_FALSE(fromBuffer.isImported());
    EXPECT_TRUE(fromHandle.isImported());
    EXPECT_EQ(fromBuffer.getDataspace(), 0);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "ExternalTexture(), invalid parameter ("), 3u)
        << logs.dump();
}

TEST(ExternalTexture, WrapsAGraphicBufferWithItsAttributesEvenWhenAQueryFails) {
    sp<GraphicBuffer> buffer =
        new GraphicBuffer(37, 19, HAL_PIXEL_FORMAT_YCBCR_P010, 1, GRALLOC_USAGE_HW_TEXTURE, "test");
    ASSERT_EQ(buffer->initCheck(), android::NO_ERROR);
    android::GraphicBufferMapper::get().setDataspace(buffer->handle, android::ui::Dataspace::BT709);
    ExternalTexture texture(buffer);
    EXPECT_EQ(texture.getWidth(), 37u);
    EXPECT_EQ(texture.getHeight(), 19u);
    EXPECT_EQ(texture.getPixelFormat(), HAL_PIXEL_FORMAT_YCBCR_P010);
    EXPECT_EQ(texture.getTextureTarget(), Texture::kTargetExternal);
    EXPECT_EQ(texture.getGraphicBuffer().get(), buffer.get());
    EXPECT_FALSE(texture.isImported());
    EXPECT_EQ(texture.getHandle(), nullptr);
    EXPECT_EQ(texture.getDataspace(), static_cast<int32_t>(HAL_DATASPACE_BT709));

    // A failed size query leaves that size 0 but still gives an external texture.
    ::zel::test::LogCapture logs;
    ::zel::host::failBufmetaQuery(BUFMETA_GET_WIDTH);
    ExternalTexture failed(buffer);
    ::zel::host::clearBufmetaFailures();
    EXPECT_EQ(failed.getWidth(), 0u);
    EXPECT_EQ(failed.getHeight(), 19u);
    EXPECT_EQ(failed.getTextureTarget(), Texture::kTargetExternal);
}

TEST(ExternalTexture, ImportedHandleSharesTheAllocationAndIsFreedOnce) {
    const size_t fdsBefore = ::zel::host::openBufferFdCount();
    sp<GraphicBuffer> original =
        new GraphicBuffer(64, 32, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1,
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
        EXPECT_EQ(texture.getTextureTarget(), Texture::kTargetExternal);
        // One allocation (the same buffer id), wrapped in a GraphicBuffer of its own.
        EXPECT_EQ(query<uint64_t>(texture.getHandle(), BUFMETA_GET_BUFFER_ID),
                  query<uint64_t>(original->handle, BUFMETA_GET_BUFFER_ID));
        const sp<GraphicBuffer>& wrapper = texture.getGraphicBuffer();
        ASSERT_NE(wrapper, nullptr);
        EXPECT_EQ(wrapper->handle, texture.getHandle());
        EXPECT_NE(wrapper->getId(), original->getId());
        EXPECT_EQ(wrapper->getStride(), original->getStride());
        EXPECT_EQ(::zel::host::openBufferFdCount(), fdsBefore + 2);
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
    }
    // The import is freed exactly once (a second free would log an error); the producer's
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
        EXPECT_EQ(gpuOnly.getTextureTarget(), Texture::kTargetExternal);

        const uint32_t size = 16 * 8 * 4;
        std::vector<uint8_t> data = pattern(size);
        ExternalTexture filled(16, 8, HAL_PIXEL_FORMAT_RGBA_8888, 0, data.data(), size);
        ASSERT_NE(filled.getGraphicBuffer(), nullptr);
        EXPECT_EQ(query(filled.getGraphicBuffer()->handle, BUFMETA_GET_USAGE), 0x333u);
        EXPECT_EQ(contents(filled.getGraphicBuffer(), size), data);

        // More data than the allocation holds: nothing is copied.
        std::vector<uint8_t> tooMuch = pattern(allocSize(filled) + 1);
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

TEST_F(BufferDump, WritesTheWholeAllocationUnderARunningNumberPerTag) {
    const uint32_t size = 20 * 6 * 4;
    std::vector<uint8_t> data = pattern(size);
    ExternalTexture texture(20, 6, HAL_PIXEL_FORMAT_RGBA_8888, 0, data.data(), size);
    const std::vector<uint8_t> memory = contents(texture.getGraphicBuffer(), allocSize(texture));
    // Rows are padded to 64 bytes, so the file is larger than the pixels alone.
    EXPECT_GT(memory.size(), size);

    mCreated = {texture.DumpBuffer("in"), texture.DumpBuffer("in"), texture.DumpBuffer("out")};
    EXPECT_EQ(mCreated[0], expectedPath(texture, "in", 1));
    EXPECT_EQ(mCreated[1], expectedPath(texture, "in", 2));
    EXPECT_EQ(mCreated[2], expectedPath(texture, "out", 1));
    for (const std::string& path : mCreated) {
        std::ifstream file(path, std::ios::binary);
        EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {}), memory) << path;
    }
}

TEST_F(BufferDump, RendererDumpsBothBuffersOfAPassWithTheDestinationAsDrawn) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    ::zel::host::setProperty("vendor.kav.c2.zel.dump", "1");
    std::shared_ptr<Renderer> renderer = Renderer::create(Renderer::Args{Renderer::kTypeGles});
    ::zel::host::clearProperty("vendor.kav.c2.zel.dump");
    ASSERT_NE(renderer, nullptr);
    const uint32_t size = 16 * 8 * 4;
    std::vector<uint8_t> data = pattern(size);
    Buffer source{
        std::make_shared<ExternalTexture>(16, 8, HAL_PIXEL_FORMAT_RGBA_8888, 0, data.data(), size),
        nullptr};
    Buffer target{
        std::make_shared<ExternalTexture>(16, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, nullptr, 0),
        nullptr};
    const std::vector<uint8_t> blank = contents(target.texture->getGraphicBuffer(), size);
    const unsigned int in = GetDumpCounter("in");
    const unsigned int out = GetDumpCounter("out");
    ASSERT_EQ(renderer->blit({source}, target, 1000, APP_INSIDE_DEFAULT), OK);
    mCreated = {expectedPath(*source.texture, "in", in), expectedPath(*target.texture, "out", out)};
    const std::vector<uint8_t> drawn =
        contents(target.texture->getGraphicBuffer(), allocSize(*target.texture));
    ASSERT_NE(std::vector<uint8_t>(drawn.begin(), drawn.begin() + size), blank);
    // The destination is dumped once the draw has reached its memory, not before.
    std::ifstream inFile(mCreated[0], std::ios::binary);
    EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(inFile), {}),
              contents(source.texture->getGraphicBuffer(), allocSize(*source.texture)));
    std::ifstream outFile(mCreated[1], std::ios::binary);
    EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(outFile), {}), drawn);
}

// Creation with data, the dump and the hook each say so when the mapper fails an unlock.
TEST_F(BufferDump, FailedUnlocksAreErrors) {
    ::zel::test::LogCapture logs;
    const uint32_t size = 8 * 4 * 4;
    std::vector<uint8_t> data = pattern(size);
    ::zel::host::failUnlock();
    ExternalTexture texture(8, 4, HAL_PIXEL_FORMAT_RGBA_8888, 0, data.data(), size);
    EXPECT_EQ(contents(texture.getGraphicBuffer(), size), data);
    ::zel::host::failUnlock();
    mCreated = {texture.DumpBuffer("in")};
    ::zel::host::failUnlock();
    texture.HookBuffer(7);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "GraphicBuffer unlock failed: "), 3u) << logs.dump();
    EXPECT_EQ(logs.count(ANDROID_LOG_WARN, "GraphicBuffer unlock failed: "), 0u);
}

TEST(DumpCounter, WrapsToOneNeverZero) {
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
    ExternalTexture texture(new GraphicBuffer(8, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1,
                                              GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_PROTECTED,
                                              "secure"));
    const std::string path = texture.DumpBuffer("secure");
    EXPECT_EQ(path, expectedPath(texture, "secure", 1));
    EXPECT_EQ(access(path.c_str(), F_OK), -1);
    EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "GraphicBuffer lock failed"), 1u) << logs.dump();
}

TEST(BufferHook, FillsTheAllocationWithTheLowByte) {
    ExternalTexture texture(10, 4, HAL_PIXEL_FORMAT_YCrCb_420_SP, 0, nullptr, 0);
    texture.HookBuffer(0x1ff);
    const uint32_t alloc = allocSize(texture);
    EXPECT_EQ(contents(texture.getGraphicBuffer(), alloc), std::vector<uint8_t>(alloc, 0xff));
}

}  // namespace
}  // namespace zel
}  // namespace kav
