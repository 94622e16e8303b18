// Driver faults a phone can throw at the renderer, one table grouped by where they strike: at
// creation, in the pass, on its fence, in texture storage. Each gives its Status and its log line
// at its priority, the renderer keeps no more per frame than in a healthy pass, and nothing it
// made outlives it: GPU objects, fence descriptors, descriptors and threads are back where they
// started.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include <gtest/gtest.h>

#include <GLES3/gl31.h>
#include <ui/Fence.h>

#include <zel/Renderer.h>
#include <zel/host/Gpu.h>

#include "ExtensionsTestAccess.h"
#include "Frames.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

using namespace ::zel::test;

constexpr int kSize = 32;

enum class Stage {
    Creation,  // the renderer never comes up
    Pass,      // the conversion pass or its fence
    Storage,   // texture storage for the client
};

struct Fault {
    const char* profile;
    Stage stage;
    Status timed;       // blit with a time-out
    Status fenced;      // blit handing back a Fence
    bool pixelsArrive;  // the destination holds the source afterwards
    int priority;       // of `line`; 0: the fault is silent
    const char* line;
};

const Fault kFaults[] = {
    // Creation: an empty renderer (or, threaded, one whose calls fail), one error line.
    {"fail-context", Stage::Creation, RENDER_FAILED, RENDER_FAILED, false, ANDROID_LOG_ERROR,
     "can't create context"},
    {"no-config-context,no-surfaceless,fail-es3-context", Stage::Creation, RENDER_FAILED,
     RENDER_FAILED, false, ANDROID_LOG_ERROR, "can't create context"},
    {"fail-make-current", Stage::Creation, RENDER_FAILED, RENDER_FAILED, false, ANDROID_LOG_ERROR,
     "can't make stub pbuffer current"},
    // Pass: an image, framebuffer or program the driver refused fails the pass with the
    // driver's line and the pass's own; nothing is drawn and no frame is reported drawn.
    {"fail-image", Stage::Pass, RENDER_FAILED, RENDER_FAILED, false, ANDROID_LOG_ERROR,
     "failed to create EGLImage: 0x3003"},  // EGL_BAD_ALLOC
    {"fail-image-attachment", Stage::Pass, RENDER_FAILED, RENDER_FAILED, false, ANDROID_LOG_ERROR,
     "Frame buffer is not complete. Error 36055"},  // GL_FRAMEBUFFER_INCOMPLETE_MISSING_ATTACHMENT
    {"fail-link", Stage::Pass, RENDER_FAILED, RENDER_FAILED, false, ANDROID_LOG_ERROR,
     "program did not link, nothing drawn"},
    // Fences: the draw lands, only the time-out entry cannot prove it.
    {"no-native-fence-sync", Stage::Pass, TIMED_OUT, OK, true, 0, nullptr},
    {"fail-fence", Stage::Pass, TIMED_OUT, OK, true, ANDROID_LOG_WARN,
     "failed to create EGL native fence sync: 0x3003"},
    {"fail-fence-dup", Stage::Pass, TIMED_OUT, OK, true, ANDROID_LOG_WARN,
     "failed to dup EGL native fence sync: 0x300c"},  // EGL_BAD_PARAMETER
    {"fence-never-signals", Stage::Pass, TIMED_OUT, OK, true, 0, nullptr},
    // Storage: out of memory is logged by the error check; the call's flow is unchanged.
    {"fail-texture-storage", Stage::Storage, OK, OK, true, ANDROID_LOG_ERROR, "glError(0x505)"},
};

// Counts the outcomes of asynchronous blits.
class Outcomes : public Renderer::Listener {
public:
    void onBlitDone(Buffer&, void*) override { report(&mDone); }
    void onBlitError(Status status, void*) override {
        mStatus = status;
        report(&mErrors);
    }
    bool waitFor(int calls) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCalled.wait_for(lock, std::chrono::seconds(10),
                                [&] { return mDone + mErrors >= calls; });
    }
    int mDone = 0;
    int mErrors = 0;
    Status mStatus = OK;

private:
    void report(int* counter) {
        std::lock_guard<std::mutex> lock(mMutex);
        ++*counter;
        mCalled.notify_all();
    }
    std::mutex mMutex;
    std::condition_variable mCalled;
};

std::shared_ptr<Renderer> create(int type) {
    Renderer::Args args;
    args.rendererType = type;
    return Renderer::create(args);
}

const char* typeName(int type) {
    return type == Renderer::kTypeGles ? "direct" : "threaded";
}

// The line shows at its own priority and at no other.
void expectLine(const LogCapture& logs, const Fault& fault) {
    if (fault.line == nullptr) {
        return;
    }
    EXPECT_GE(logs.count(fault.priority, fault.line), 1u) << logs.dump();
    for (int other : {ANDROID_LOG_DEBUG, ANDROID_LOG_INFO, ANDROID_LOG_WARN, ANDROID_LOG_ERROR}) {
        if (other != fault.priority) {
            EXPECT_EQ(logs.count(other, fault.line), 0u) << "priority " << other;
        }
    }
}

// Every entry point on one faulty driver; each blit of a pass leaves no more behind than the
// first one did.
void runPasses(Renderer& renderer, int type, const Fault& fault, const LogCapture& logs) {
    auto sourceBuffer = allocateBuffer(kSize, kSize, 0x1);
    const RgbImage picture = gradient(kSize, kSize);
    writeRgba(*sourceBuffer, picture);
    const std::vector<Buffer> inputs{bufferOf(sourceBuffer)};
    auto target = allocateBuffer(kSize, kSize, 0x1);
    poisonBuffer(*target);
    const Rgb8 poison = readRgba(*target).at(0, 0);
    Buffer output = bufferOf(target);

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(renderer.blit(inputs, output, 50, APP_INSIDE_DEFAULT), fault.timed);
    // A fence that never signals costs the time-out, never a hang.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    if (fault.pixelsArrive) {
        EXPECT_TRUE(imagesMatch(readRgba(*target), picture, 0));
    } else {
        const Rgb8 centre = readRgba(*target).at(kSize / 2, kSize / 2);
        EXPECT_TRUE(centre.r == poison.r && centre.g == poison.g && centre.b == poison.b);
    }
    expectLine(logs, fault);
    if (fault.timed != OK && fault.timed != TIMED_OUT) {
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "blit failed"), 1u) << logs.dump();
    }
    const LiveResources afterFirst = LiveResources::now();

    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(renderer.blit(inputs, output, 50, APP_INSIDE_DEFAULT), fault.timed);
        android::sp<android::Fence> fence;
        EXPECT_EQ(renderer.blit(inputs, output, fence, APP_INSIDE_DEFAULT), fault.fenced);
        if (fault.fenced == OK) {
            ASSERT_NE(fence, nullptr);
            // A fence that exists signals exactly when the time-out entry succeeds; without one
            // the time-out entry has nothing to wait on.
            if (fence->isValid()) {
                EXPECT_EQ(fence->wait(20) == android::OK, fault.timed == OK);
            } else {
                EXPECT_EQ(fault.timed, TIMED_OUT);
            }
        }
    }
    EXPECT_EQ(LiveResources::now(), afterFirst);

    // The listener hears the pass's outcome; the threaded proxy answers before the pass runs.
    android::sp<Outcomes> outcomes = new Outcomes();
    ASSERT_EQ(renderer.setListener(outcomes), OK);
    EXPECT_EQ(renderer.asyncBlit(inputs, output, nullptr, APP_INSIDE_DEFAULT),
              type == Renderer::kTypeGles ? fault.fenced : OK);
    ASSERT_TRUE(outcomes->waitFor(1));
    EXPECT_EQ(outcomes->mDone, fault.fenced == OK ? 1 : 0);
    EXPECT_EQ(outcomes->mStatus, fault.fenced);
}

TEST(FaultInjection, EachDriverFaultGivesItsStatusAndLineAndLeavesNothingBehind) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    // The driver keeps process-wide state (and threads) after its first context.
    ASSERT_TRUE(blitsCorrectly(*create(Renderer::kTypeGles)));
    ASSERT_TRUE(blitsCorrectly(*create(Renderer::kTypeGlesThreaded)));
    for (const Fault& fault : kFaults) {
        for (int type : {Renderer::kTypeGles, Renderer::kTypeGlesThreaded}) {
            SCOPED_TRACE(std::string(fault.profile) + ", " + typeName(type));
            // The extension registry keeps every flag it once saw: start as a fresh process.
            gl::ExtensionsTestAccess::reset();
            ASSERT_TRUE(::zel::host::setDriverProfile(fault.profile));
            const LiveResources before = LiveResources::now();
            {
                LogCapture logs;
                std::shared_ptr<Renderer> renderer = create(type);
                switch (fault.stage) {
                    case Stage::Creation: {
                        if (type == Renderer::kTypeGles) {
                            EXPECT_EQ(renderer, nullptr);
                        } else {
                            // The proxy exists; every call fails instead of crashing.
                            ASSERT_NE(renderer, nullptr);
                            EXPECT_FALSE(blitsCorrectly(*renderer));
                        }
                        EXPECT_EQ(logs.count(fault.priority, fault.line), 1u) << logs.dump();
                        EXPECT_EQ(logs.count(ANDROID_LOG_WARN, fault.line), 0u);
                        break;
                    }
                    case Stage::Pass:
                        ASSERT_NE(renderer, nullptr);
                        runPasses(*renderer, type, fault, logs);
                        break;
                    case Stage::Storage: {
                        ASSERT_NE(renderer, nullptr);
                        const uint8_t texels[4 * 4 * 4] = {};
                        uint32_t name = 0;
                        EXPECT_EQ(
                            renderer->genTexture(&name, 4, 4, GL_RGBA, GL_UNSIGNED_BYTE, texels),
                            fault.timed);
                        EXPECT_NE(name, 0u);
                        expectLine(logs, fault);
                        EXPECT_EQ(renderer->deleteTexture(&name), OK);
                        // The pass itself allocates no texture storage.
                        EXPECT_TRUE(blitsCorrectly(*renderer));
                        break;
                    }
                }
            }
            EXPECT_EQ(LiveResources::now(), before);
        }
    }
    ::zel::host::resetDriverProfile();
}

// No EGL display at all: the renderer cannot exist, and says so before the process goes.
TEST(FaultInjectionDeathTest, NoDisplayAbortsWithTheDriversCode) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            ::zel::host::setDriverProfile("no-display");
            create(Renderer::kTypeGles);
        },
        "failed to initialize EGL. EGL error=0x3008");  // EGL_BAD_DISPLAY
}

}  // namespace
}  // namespace zel
}  // namespace kav
