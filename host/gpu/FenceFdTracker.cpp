#include "FenceFdTracker.h"

#include <algorithm>
#include <climits>

#include <zel/host/Sync.h>

namespace zel {
namespace hostgpu {

FenceFdTracker& FenceFdTracker::instance() {
    // Never destroyed: descriptors may still be handed out while the process exits.
    static FenceFdTracker* const tracker = new FenceFdTracker();
    return *tracker;
}

bool FenceFdTracker::stillOpen(const Entry& entry) {
    const int64_t identity = host::fenceIdentity(entry.fd);
    if (identity < 0) {
        return false;  // closed, or reused by something that is not a fence
    }
    // Without fence ids, a fence that was pending when handed out may have been signalled since.
    return identity == entry.identity || entry.identity == INT64_MAX;
}

void FenceFdTracker::pruneLocked() {
    mEntries.erase(std::remove_if(mEntries.begin(), mEntries.end(),
                                  [](const Entry& entry) { return !stillOpen(entry); }),
                   mEntries.end());
    // Pruning reads /proc for every entry: do it again only once the list has doubled.
    mPruneAt = std::max<size_t>(64, mEntries.size() * 2);
}

void FenceFdTracker::handedOut(int fd) {
    std::lock_guard<std::mutex> lock(mMutex);
    // A number reused by a new descriptor belongs to the new one.
    mEntries.erase(std::remove_if(mEntries.begin(), mEntries.end(),
                                  [fd](const Entry& entry) { return entry.fd == fd; }),
                   mEntries.end());
    mEntries.push_back({fd, host::fenceIdentity(fd)});
    if (mEntries.size() >= mPruneAt) {
        pruneLocked();
    }
}

uint64_t FenceFdTracker::openCount() {
    std::lock_guard<std::mutex> lock(mMutex);
    pruneLocked();
    return mEntries.size();
}

}  // namespace hostgpu
}  // namespace zel
