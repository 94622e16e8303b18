#include "DriverProfileStore.h"

#include <cstdio>
#include <cstdlib>

namespace zel {
namespace hostgpu {

namespace {

constexpr const char* kProfileVariable = "ZEL_HOST_DRIVER";

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return "";
    }
    const size_t last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

// Applies one switch; false when it is unknown.
bool apply(const std::string& name, host::DriverProfile* profile) {
    static const std::pair<const char*, bool host::DriverProfile::*> kFlags[] = {
        {"configs-es2", &host::DriverProfile::es2OnlyConfigs},
        {"configs-no-android", &host::DriverProfile::noAndroidConfigAttributes},
        {"configs-slow", &host::DriverProfile::slowConfigs},
        {"fail-es3-context", &host::DriverProfile::failEs3Contexts},
        {"fail-context", &host::DriverProfile::failAllContexts},
        {"fail-make-current", &host::DriverProfile::failMakeCurrent},
        {"fail-image", &host::DriverProfile::failImageCreation},
        {"fail-fence", &host::DriverProfile::failFenceCreation},
        {"fail-fence-dup", &host::DriverProfile::failFenceDup},
        {"chroma-top-left", &host::DriverProfile::chromaTopLeftSample},
        {"fail-link", &host::DriverProfile::failLink},
        {"fail-image-attachment", &host::DriverProfile::failImageAttachment},
        {"fail-texture-storage", &host::DriverProfile::failTextureStorage},
        {"fence-never-signals", &host::DriverProfile::fenceNeverSignals},
        {"no-display", &host::DriverProfile::noDisplay},
        {"conformant", &host::DriverProfile::conformant},
    };
    for (const auto& [flagName, member] : kFlags) {
        if (name == flagName) {
            profile->*member = true;
            return true;
        }
    }
    auto removeExtension = [profile](const char* extension) {
        profile->removedEglExtensions.push_back(extension);
    };
    if (name == "no-native-fence-sync") {
        removeExtension("EGL_ANDROID_native_fence_sync");
    } else if (name == "no-surfaceless") {
        removeExtension("EGL_KHR_surfaceless_context");
    } else if (name == "no-config-context") {
        removeExtension("EGL_KHR_no_config_context");
        removeExtension("EGL_MESA_configless_context");
    } else if (name.size() > 1 && name[0] == '-') {
        profile->removedEglExtensions.push_back(name.substr(1));
    } else if (name.size() > 1 && name[0] == '+') {
        profile->addedEglExtensions.push_back(name.substr(1));
    } else if (name.rfind("gl-version=", 0) == 0) {
        profile->glVersion = name.substr(11);
    } else if (name.rfind("fence-delay=", 0) == 0) {
        const std::string value = name.substr(12);
        char* end = nullptr;
        const unsigned long ms = strtoul(value.c_str(), &end, 10);
        if (value.empty() || *end != '\0' || ms > 60000) {
            return false;
        }
        profile->fenceDelayMs = static_cast<unsigned>(ms);
    } else {
        return false;
    }
    return true;
}

}  // namespace

DriverProfileStore& DriverProfileStore::instance() {
    // Never destroyed: contexts may still be created while the process exits.
    static DriverProfileStore* const store = new DriverProfileStore();
    return *store;
}

DriverProfileStore::DriverProfileStore() : mProfile(fromEnvironment()) {}

host::DriverProfile DriverProfileStore::fromEnvironment() {
    host::DriverProfile profile;
    const char* switches = getenv(kProfileVariable);
    if (switches == nullptr) {
        return profile;
    }
    std::string error;
    if (!parse(switches, &profile, &error)) {
        fprintf(stderr, "zel-hostgpu: %s: unknown switch \"%s\" ignored\n", kProfileVariable,
                error.c_str());
    }
    return profile;
}

host::DriverProfile DriverProfileStore::current() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mProfile;
}

void DriverProfileStore::set(const host::DriverProfile& profile) {
    std::lock_guard<std::mutex> lock(mMutex);
    mProfile = profile;
}

void DriverProfileStore::reset() {
    host::DriverProfile profile = fromEnvironment();
    std::lock_guard<std::mutex> lock(mMutex);
    mProfile = profile;
}

bool DriverProfileStore::parse(const std::string& switches, host::DriverProfile* outProfile,
                               std::string* outError) {
    bool known = true;
    size_t start = 0;
    while (start <= switches.size()) {
        size_t end = switches.find(',', start);
        if (end == std::string::npos) {
            end = switches.size();
        }
        const std::string name = trimmed(switches.substr(start, end - start));
        if (!name.empty() && !apply(name, outProfile)) {
            if (known && outError != nullptr) {
                *outError = name;
            }
            known = false;
        }
        start = end + 1;
    }
    return known;
}

}  // namespace hostgpu
}  // namespace zel
