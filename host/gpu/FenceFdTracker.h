/*
 * The fence descriptors handed to clients by eglDupNativeFenceFDANDROID, to count those still
 * open. The layer never sees the client close them, so each descriptor is recorded with the
 * identity of its fence and counts as closed once its number no longer refers to that fence.
 */
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace zel {
namespace hostgpu {

class FenceFdTracker {
public:
    static FenceFdTracker& instance();

    void handedOut(int fd);
    uint64_t openCount();

private:
    struct Entry {
        int fd;
        int64_t identity;  // host::fenceIdentity() when handed out
    };

    FenceFdTracker() = default;
    static bool stillOpen(const Entry& entry);
    void pruneLocked();

    std::mutex mMutex;
    std::vector<Entry> mEntries;
    size_t mPruneAt = 64;
};

}  // namespace hostgpu
}  // namespace zel
