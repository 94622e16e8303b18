// The Renderer base class and factory: what a client sees before any GPU work happens.
#include <gtest/gtest.h>

#include <zel/Renderer.h>
#include <zel/host/Log.h>

namespace kav {
namespace zel {
namespace {

// The smallest concrete renderer: only the pure operations, so the base bodies stay visible.
class BareRenderer : public Renderer {
public:
    Status blit(const std::vector<Buffer>&, Buffer&, int, AppInside) override { return OK; }
    Status blit(const std::vector<Buffer>&, Buffer&, android::sp<android::Fence>&,
                AppInside) override {
        return OK;
    }
    Status asyncBlit(const std::vector<Buffer>&, Buffer&, void*, AppInside) override { return OK; }
    Status cacheNewImage(unsigned long, Buffer, android::Rect, long) override { return OK; }
    Status releaseCache() override { return OK; }

    using Renderer::promoteListener;
};

class Listener : public Renderer::Listener {
public:
    void onBlitDone(Buffer&, void*) override {}
    void onBlitError(Status, void*) override {}
};

TEST(RendererFactory, UnknownAndNotYetBuiltTypesYieldNothing) {
    ::zel::host::setLogCapture(true);
    ::zel::host::clearCapturedLogs();
    for (int32_t type : {0, 3, -1, 1000}) {
        Renderer::Args args;
        args.rendererType = type;
        EXPECT_EQ(Renderer::create(args), nullptr) << "type " << type;
    }
    // An unknown type is not an error worth a log line.
    EXPECT_TRUE(::zel::host::capturedLogs().empty());
}

TEST(RendererBase, OptionalOperationsAreNotImplemented) {
    BareRenderer renderer;
    uint32_t name = 0;
    uint32_t mask = 3;
    EXPECT_EQ(renderer.setConfig(Renderer::ENABLE, &mask), NOT_IMPLEMENTED);
    EXPECT_EQ(renderer.genTexture(&name, 4, 4, 0x1908, 0x1401, nullptr), NOT_IMPLEMENTED);
    EXPECT_EQ(renderer.deleteTexture(&name), NOT_IMPLEMENTED);
}

TEST(RendererBase, ListenerIsHeldWeakly) {
    BareRenderer renderer;
    EXPECT_EQ(renderer.promoteListener(), nullptr);

    android::sp<Listener> listener = new Listener();
    EXPECT_EQ(renderer.setListener(listener), OK);
    EXPECT_EQ(renderer.promoteListener().get(), listener.get());

    // The renderer must not keep the client's listener alive.
    android::wp<Listener> weak = listener;
    listener.clear();
    EXPECT_EQ(weak.promote(), nullptr);
    EXPECT_EQ(renderer.promoteListener(), nullptr);

    android::sp<Listener> second = new Listener();
    renderer.setListener(second);
    EXPECT_EQ(renderer.setListener(android::wp<Renderer::Listener>()), OK);
    EXPECT_EQ(renderer.promoteListener(), nullptr);
}

}  // namespace
}  // namespace zel
}  // namespace kav
