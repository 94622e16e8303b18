#include "PropertyStore.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace zel::host {

PropertyStore& PropertyStore::instance() {
    static PropertyStore store;
    return store;
}

std::optional<std::string> PropertyStore::get(const std::string& key) {
    std::lock_guard<std::mutex> lock(mMutex);
    ensureSeededLocked();
    auto it = mValues.find(key);
    if (it == mValues.end()) {
        return std::nullopt;
    }
    return it->second;
}

void PropertyStore::set(const std::string& key, const std::string& value) {
    std::lock_guard<std::mutex> lock(mMutex);
    ensureSeededLocked();
    mValues[key] = value;
}

void PropertyStore::erase(const std::string& key) {
    std::lock_guard<std::mutex> lock(mMutex);
    ensureSeededLocked();
    mValues.erase(key);
}

void PropertyStore::clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mSeeded = true;
    mValues.clear();
}

void PropertyStore::reload() {
    std::lock_guard<std::mutex> lock(mMutex);
    mValues.clear();
    seedLocked();
}

void PropertyStore::forEach(const std::function<void(const std::string&, const std::string&)>& fn) {
    std::map<std::string, std::string> copy;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        ensureSeededLocked();
        copy = mValues;
    }
    for (const auto& [key, value] : copy) {
        fn(key, value);
    }
}

void PropertyStore::ensureSeededLocked() {
    if (!mSeeded) {
        seedLocked();
    }
}

void PropertyStore::seedLocked() {
    mSeeded = true;
    const char* path = std::getenv("ZEL_HOST_PROPERTIES");
    if (path == nullptr || *path == '\0') {
        return;
    }
    std::ifstream file(path);
    if (!file) {
        std::fprintf(stderr, "zel_host: cannot read ZEL_HOST_PROPERTIES file '%s'; ignored\n",
                     path);
        return;
    }
    std::string line;
    while (std::getline(file, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        size_t eq = line.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::fprintf(stderr, "zel_host: %s: skipping malformed line '%s'\n", path,
                         line.c_str());
            continue;
        }
        mValues[line.substr(0, eq)] = line.substr(eq + 1);
    }
}

}  // namespace zel::host
