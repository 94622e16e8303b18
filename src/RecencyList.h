/*
 * The order in which the ids of one image cache were last used, for least-recently-used eviction.
 * It holds ids only; the cache's own table holds the images. Not thread-safe: the renderer keeps
 * it beside its cache, under the same lock.
 */
#pragma once

#include <stddef.h>

#include <list>
#include <unordered_map>
#include <vector>

namespace kav {
namespace zel {

class RecencyList {
public:
    // Marks |id| as used just now, adding it when it is new.
    void touch(unsigned long id) {
        const auto entry = mPositions.find(id);
        if (entry != mPositions.end()) {
            mOrder.splice(mOrder.end(), mOrder, entry->second);
            return;
        }
        mPositions.emplace(id, mOrder.insert(mOrder.end(), id));
    }

    void erase(unsigned long id) {
        const auto entry = mPositions.find(id);
        if (entry != mPositions.end()) {
            mOrder.erase(entry->second);
            mPositions.erase(entry);
        }
    }

    // The least recently used id; only valid while the list is not empty.
    unsigned long oldest() const { return mOrder.front(); }

    bool empty() const { return mOrder.empty(); }
    size_t size() const { return mOrder.size(); }
    void clear() {
        mOrder.clear();
        mPositions.clear();
    }

    // Every id, least recently used first.
    std::vector<unsigned long> ids() const { return {mOrder.begin(), mOrder.end()}; }

private:
    std::list<unsigned long> mOrder;  // least recently used at the front
    std::unordered_map<unsigned long, std::list<unsigned long>::iterator> mPositions;
};

}  // namespace zel
}  // namespace kav
