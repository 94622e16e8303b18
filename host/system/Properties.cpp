// property_get and friends from <cutils/properties.h>, and their control API, over PropertyStore.

#include <cutils/properties.h>
#include <zel/host/Properties.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "PropertyStore.h"

namespace {

using zel::host::PropertyStore;

int copyTruncated(char* out, const std::string& text) {
    size_t length = std::min(text.size(), static_cast<size_t>(PROPERTY_VALUE_MAX - 1));
    std::memcpy(out, text.data(), length);
    out[length] = '\0';
    return static_cast<int>(length);
}

// Android's conversion: strtoimax, base from the prefix, trailing characters ignored.
int64_t getBoundedInt(const char* key, int64_t lower, int64_t upper, int64_t defaultValue) {
    char buffer[PROPERTY_VALUE_MAX];
    if (key == nullptr || property_get(key, buffer, "") == 0) {
        return defaultValue;
    }
    int savedErrno = errno;
    errno = 0;
    char* end = nullptr;
    intmax_t value = std::strtoimax(buffer, &end, 0);
    bool valid = end != buffer && errno != ERANGE && value >= lower && value <= upper;
    errno = savedErrno;
    return valid ? static_cast<int64_t>(value) : defaultValue;
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    std::optional<std::string> stored;
    if (key != nullptr) {
        stored = PropertyStore::instance().get(key);
    }
    if (stored && !stored->empty()) {
        return copyTruncated(value, *stored);
    }
    return copyTruncated(value, default_value != nullptr ? default_value : "");
}

extern "C" int8_t property_get_bool(const char* key, int8_t default_value) {
    char buffer[PROPERTY_VALUE_MAX];
    if (key == nullptr || property_get(key, buffer, "") == 0) {
        return default_value;
    }
    for (const char* word : {"1", "true", "y", "yes", "on"}) {
        if (std::strcmp(buffer, word) == 0) {
            return 1;
        }
    }
    for (const char* word : {"0", "false", "n", "no", "off"}) {
        if (std::strcmp(buffer, word) == 0) {
            return 0;
        }
    }
    return default_value;
}

extern "C" int64_t property_get_int64(const char* key, int64_t default_value) {
    return getBoundedInt(key, INT64_MIN, INT64_MAX, default_value);
}

extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
    return static_cast<int32_t>(getBoundedInt(key, INT32_MIN, INT32_MAX, default_value));
}

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr || *key == '\0') {
        return -1;
    }
    if (value == nullptr) {
        value = "";
    }
    // As on Android, only read-only properties may hold values longer than the limit.
    if (std::strlen(value) >= PROPERTY_VALUE_MAX && std::strncmp(key, "ro.", 3) != 0) {
        return -1;
    }
    PropertyStore::instance().set(key, value);
    return 0;
}

extern "C" int property_list(void (*propfn)(const char* key, const char* value, void* cookie),
                             void* cookie) {
    PropertyStore::instance().forEach([&](const std::string& key, const std::string& value) {
        propfn(key.c_str(), value.c_str(), cookie);
    });
    return 0;
}

namespace zel::host {

void setProperty(const std::string& key, const std::string& value) {
    PropertyStore::instance().set(key, value);
}

void clearProperty(const std::string& key) {
    PropertyStore::instance().erase(key);
}

void clearProperties() {
    PropertyStore::instance().clear();
}

std::optional<std::string> getProperty(const std::string& key) {
    return PropertyStore::instance().get(key);
}

void reloadPropertiesFromEnvironment() {
    PropertyStore::instance().reload();
}

}  // namespace zel::host
