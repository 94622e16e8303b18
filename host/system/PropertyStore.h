#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace zel::host {

// The process-wide key/value store behind property_get. Seeded lazily, on first use, from the
// file named by ZEL_HOST_PROPERTIES. Thread-safe.
class PropertyStore {
public:
    static PropertyStore& instance();

    std::optional<std::string> get(const std::string& key);
    void set(const std::string& key, const std::string& value);
    void erase(const std::string& key);
    void clear();
    // Clears the store and seeds it again from the environment.
    void reload();
    // Calls fn for every property in key order, on a copy taken under the lock.
    void forEach(const std::function<void(const std::string&, const std::string&)>& fn);

private:
    PropertyStore() = default;
    // Both expect mMutex held.
    void ensureSeededLocked();
    void seedLocked();

    std::mutex mMutex;
    bool mSeeded = false;
    std::map<std::string, std::string> mValues;
};

}  // namespace zel::host
