/*
 * Host version of Android's <ui/Fence.h> (Android 14 signatures).
 *
 * A Fence owns its descriptor and closes it when destroyed. Ownership is recorded with fdsan, as
 * the unique_fd member of the Android class does on a device: the descriptor is tagged as a
 * unique_fd owned by the Fence, so closing it behind the Fence's back (close(fence->get())) is
 * reported. Fence::merge and flattening are not available on the host.
 */
#pragma once

#include <errno.h>
#include <stdint.h>

#include <android-base/unique_fd.h>
#include <android/fdsan.h>
#include <utils/Errors.h>
#include <utils/LightRefBase.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

namespace android {

class Fence : public LightRefBase<Fence> {
public:
    static const sp<Fence> NO_FENCE;
    static constexpr nsecs_t SIGNAL_TIME_PENDING = INT64_MAX;
    static constexpr nsecs_t SIGNAL_TIME_INVALID = -1;
    static inline bool isValidTimestamp(nsecs_t time) { return time >= 0 && time < INT64_MAX; }

    // Pass to wait() to wait without a time limit.
    enum { TIMEOUT_NEVER = -1 };

    // A fence with no descriptor: treated as already signalled.
    Fence() = default;

    // Takes ownership of the descriptor.
    explicit Fence(int fenceFd);
    explicit Fence(base::unique_fd fenceFd);

    Fence(const Fence& rhs) = delete;
    Fence& operator=(const Fence& rhs) = delete;
    Fence(Fence&& rhs) = delete;
    Fence& operator=(Fence&& rhs) = delete;

    bool isValid() const { return mFenceFd != -1; }

    // NO_ERROR once signalled (at once for an invalid fence), -ETIME when `timeout` milliseconds
    // passed first, another negative errno on error.
    status_t wait(int timeout);

    // Waits without a time limit, logging an error naming `logname` when it takes long.
    status_t waitForever(const char* logname);

    // A new descriptor of the same fence, for the caller to close; -1 with errno on error.
    int dup() const;

    int get() const { return mFenceFd.get(); }

    // When the fence signalled (CLOCK_MONOTONIC ns), SIGNAL_TIME_PENDING, or SIGNAL_TIME_INVALID.
    nsecs_t getSignalTime() const;

    enum class Status {
        Invalid,     // error while checking
        Unsignaled,  // valid, not yet signalled
        Signaled,    // signalled (or no descriptor)
    };

    inline Status getStatus() {
        switch (wait(0)) {
            case NO_ERROR:
                return Status::Signaled;
            case -ETIME:
                return Status::Unsignaled;
            default:
                return Status::Invalid;
        }
    }

private:
    friend class LightRefBase<Fence>;
    ~Fence() = default;

    // Tags the descriptor like a bionic unique_fd: owner type unique_fd, value the holder's
    // address.
    struct FdsanCloser {
        static uint64_t tagOf(void* owner) {
            return android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_UNIQUE_FD,
                                                  reinterpret_cast<uint64_t>(owner));
        }
        static void Tag(int fd, void* oldOwner, void* newOwner) {
            android_fdsan_exchange_owner_tag(fd, tagOf(oldOwner), tagOf(newOwner));
        }
        static void Close(int fd, void* owner) { android_fdsan_close_with_tag(fd, tagOf(owner)); }
    };

    base::unique_fd_impl<FdsanCloser> mFenceFd;
};

}  // namespace android
