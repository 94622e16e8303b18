#include "RendererThreaded.h"

#include <pthread.h>
#include <sched.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <system_error>

#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {

namespace {

constexpr int kWorkerPriority = 2;
// Linux and bionic thread names hold 15 characters.
constexpr size_t kMaxThreadName = 15;

Status failedInnerRenderer() {
    ZEL_LOGE("no renderer: its creation failed on the worker thread");
    return RENDER_FAILED;
}

}  // namespace

std::shared_ptr<RendererThreaded> RendererThreaded::create(Factory factory,
                                                           const Renderer::Args& args) {
    if (!factory) {
        ZEL_LOGE("no renderer factory");
        return nullptr;
    }
    try {
        return std::make_shared<RendererThreaded>(std::move(factory), args);
    } catch (const std::system_error& error) {
        ZEL_LOGE("%s", error.what());
        return nullptr;
    }
}

RendererThreaded::RendererThreaded(Factory factory, const Renderer::Args& args) {
    ZEL_TRACE_NAME("RendererThreaded");
    std::lock_guard<std::mutex> lock(mQueueMutex);
    mRendererType = args.rendererType;
    mContextPriority = args.contextPriority;
    mProtection = args.enableProtectedContext ? PROTECTED : UNPROTECTED;
    try {
        mThread = std::thread(&RendererThreaded::threadMain, this, std::move(factory));
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "thread constructor failed");
    }
}

RendererThreaded::~RendererThreaded() {
    ZEL_TRACE_NAME("~RendererThreaded");
    mRunning = false;
    {
        // Taking the lock orders the store against a worker that is about to wait.
        std::lock_guard<std::mutex> lock(mQueueMutex);
    }
    mQueueCond.notify_one();
    // The worker releases the inner renderer before it ends.
    if (mThread.joinable()) {
        mThread.join();
    }
}

void RendererThreaded::threadMain(Factory factory) {
    ZEL_TRACE_FUNC();
    if (setSchedFifo(true, kWorkerPriority) != OK) {
        ZEL_LOGE("Couldn't set SCHED_FIFO");
    }
    mTid = gettid();
    ZEL_LOGD1("mTid = %d", static_cast<int>(mTid));
    ZEL_LOGD1("rendererType = %d, enableProtectedContext = %d, contextPriority = %d", mRendererType,
              mProtection == PROTECTED, mContextPriority);

    Renderer::Args args;
    args.rendererType = mRendererType;
    args.enableProtectedContext = mProtection == PROTECTED;
    args.contextPriority = mContextPriority;
    mRenderer = factory(args);

    if (pthread_setname_np(pthread_self(), mThreadName) != 0) {
        pthread_setname_np(pthread_self(), std::string(mThreadName, kMaxThreadName).c_str());
    }
    {
        std::lock_guard<std::mutex> lock(mInitMutex);
        mInitialized = true;
    }
    mInitCond.notify_all();

    while (mRunning) {
        Task task;
        {
            std::lock_guard<std::mutex> lock(mQueueMutex);
            if (!mTaskQueue.empty()) {
                task = std::move(mTaskQueue.front());
                mTaskQueue.pop_front();
            }
        }
        if (task) {
            task(mRenderer);
        }
        std::unique_lock<std::mutex> lock(mQueueMutex);
        mQueueCond.wait(lock, [this] { return !mRunning || !mTaskQueue.empty(); });
    }
    // The inner renderer goes here, on the thread where its EGL context is current. Torn down on
    // the destroying thread instead, its cached images' textures would be deleted with no context
    // current, and the context, still current on this thread after it ended, would never be
    // freed by EGL.
    mRenderer.reset();
}

Status RendererThreaded::setSchedFifo(bool enable, int priority) {
    sched_param param;
    memset(&param, 0, sizeof(param));
    param.sched_priority = enable ? priority : 0;
    return sched_setscheduler(0, enable ? SCHED_FIFO : SCHED_OTHER, &param) == 0 ? OK : TIMED_OUT;
}

void RendererThreaded::waitUntilInitialized() const {
    std::unique_lock<std::mutex> lock(mInitMutex);
    mInitCond.wait(lock, [this] { return mInitialized; });
}

Status RendererThreaded::runQueued(std::promise<Status>& promise, Task task) {
    std::future<Status> result = promise.get_future();
    {
        // Notifying under the lock: once the task is queued the caller touches no member after
        // the destructor may have taken the lock, so dropping a queued task is safe.
        std::lock_guard<std::mutex> lock(mQueueMutex);
        mTaskQueue.push_back(std::move(task));
        mQueueCond.notify_one();
    }
    return result.get();
}

template <typename Result, typename Call>
Result RendererThreaded::callDirect(Result fallback, Call call) {
    waitUntilInitialized();
    std::lock_guard<std::mutex> lock(mQueueMutex);
    if (!mRenderer) {
        failedInnerRenderer();
        return fallback;
    }
    return call(*mRenderer);
}

Protection RendererThreaded::getProtection() {
    return callDirect(mProtection, [](Renderer& inner) { return inner.getProtection(); });
}

Renderer::ContextPriority RendererThreaded::getContextPriority() {
    return callDirect(mContextPriority, [](Renderer& inner) { return inner.getContextPriority(); });
}

Status RendererThreaded::setProtection(Protection protection) {
    return callDirect(RENDER_FAILED,
                      [=](Renderer& inner) { return inner.setProtection(protection); });
}

Status RendererThreaded::setContextPriority(ContextPriority priority) {
    return callDirect(RENDER_FAILED,
                      [=](Renderer& inner) { return inner.setContextPriority(priority); });
}

Status RendererThreaded::setConfig(Config key, void* value) {
    return callDirect(RENDER_FAILED, [=](Renderer& inner) { return inner.setConfig(key, value); });
}

Status RendererThreaded::setListener(const android::wp<Listener>& listener) {
    ZEL_TRACE_FUNC();
    return callDirect(RENDER_FAILED, [&](Renderer& inner) { return inner.setListener(listener); });
}

Status RendererThreaded::genTexture(uint32_t* texName, uint32_t width, uint32_t height,
                                    uint32_t format, uint32_t type, const void* data) {
    ZEL_TRACE_FUNC();
    std::promise<Status> promise;
    std::promise<Status>* done = &promise;
    return runQueued(promise, [=](std::shared_ptr<Renderer> inner) {
        done->set_value(inner ? inner->genTexture(texName, width, height, format, type, data)
                              : failedInnerRenderer());
    });
}

Status RendererThreaded::deleteTexture(const uint32_t* texName) {
    ZEL_TRACE_FUNC();
    std::promise<Status> promise;
    std::promise<Status>* done = &promise;
    return runQueued(promise, [&texName, done](std::shared_ptr<Renderer> inner) {
        done->set_value(inner ? inner->deleteTexture(texName) : failedInnerRenderer());
    });
}

Status RendererThreaded::blit(const std::vector<Buffer>& inputs, Buffer& output, int timeout,
                              AppInside appId) {
    ZEL_TRACE_FUNC();
    std::promise<Status> promise;
    std::promise<Status>* done = &promise;
    return runQueued(promise,
                     [&inputs, &output, timeout, appId, done](std::shared_ptr<Renderer> inner) {
                         done->set_value(inner ? inner->blit(inputs, output, timeout, appId)
                                               : failedInnerRenderer());
                     });
}

Status RendererThreaded::blit(const std::vector<Buffer>& inputs, Buffer& output,
                              android::sp<android::Fence>& fence, AppInside appId) {
    ZEL_TRACE_FUNC();
    std::promise<Status> promise;
    std::promise<Status>* done = &promise;
    return runQueued(promise, [&inputs, &output, &fence, appId,
                               done](std::shared_ptr<Renderer> inner) {
        done->set_value(inner ? inner->blit(inputs, output, fence, appId) : failedInnerRenderer());
    });
}

Status RendererThreaded::asyncBlit(const std::vector<Buffer>& inputs, Buffer& output, void* data,
                                   AppInside appId) {
    ZEL_TRACE_FUNC();
    std::promise<Status> promise;
    std::promise<Status>* started = &promise;
    // The caller goes on as soon as the worker takes the task up; inputs and output are read
    // through the caller's references, so the caller keeps them alive until the listener hears.
    runQueued(promise, [&inputs, &output, data, appId, started](std::shared_ptr<Renderer> inner) {
        started->set_value(OK);
        if (inner) {
            inner->asyncBlit(inputs, output, data, appId);
        } else {
            failedInnerRenderer();
        }
    });
    return OK;
}

Status RendererThreaded::cacheNewImage(unsigned long id, Buffer buffer, android::Rect crop,
                                       long cacheType) {
    ZEL_LOGI("buffer key: %lu, get settings: %d, crop: %d, cacheType: %ld", id,
             buffer.settings ? 1 : 0, crop != android::Rect::INVALID_RECT ? 1 : 0, cacheType);
    return OK;
}

Status RendererThreaded::releaseCache() {
    return OK;
}

}  // namespace zel
}  // namespace kav
