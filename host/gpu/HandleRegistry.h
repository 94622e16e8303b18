/*
 * EGL objects the layer makes itself (images of Android buffers, native fence syncs), by the
 * handle clients hold: the object's address. Ending a handle (destroy, or termination of the
 * display) drops the registry's reference; whoever else holds the object keeps it.
 */
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

template <typename Object>
class HandleRegistry {
public:
    static HandleRegistry& instance() {
        // Never destroyed: handles may still be ended while the process exits.
        static HandleRegistry* const registry = new HandleRegistry();
        return *registry;
    }

    void* add(std::shared_ptr<Object> object) {
        void* handle = object.get();
        std::lock_guard<std::mutex> lock(mMutex);
        mObjects[handle] = std::move(object);
        return handle;
    }

    // The object behind a handle; null when the handle is not one of these objects.
    std::shared_ptr<Object> find(const void* handle) const {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mObjects.find(handle);
        return it == mObjects.end() ? nullptr : it->second;
    }

    // False when the handle is not one of these objects.
    bool remove(const void* handle) {
        std::shared_ptr<Object> removed;  // released after the lock
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mObjects.find(handle);
        if (it == mObjects.end()) {
            return false;
        }
        removed = std::move(it->second);
        mObjects.erase(it);
        return true;
    }

    void removeDisplay(EGLDisplay display) {
        std::vector<std::shared_ptr<Object>> removed;  // released after the lock
        std::lock_guard<std::mutex> lock(mMutex);
        for (auto it = mObjects.begin(); it != mObjects.end();) {
            if (it->second->display() == display) {
                removed.push_back(std::move(it->second));
                it = mObjects.erase(it);
            } else {
                ++it;
            }
        }
    }

private:
    HandleRegistry() = default;

    mutable std::mutex mMutex;
    std::unordered_map<const void*, std::shared_ptr<Object>> mObjects;
};

}  // namespace hostgpu
}  // namespace zel
