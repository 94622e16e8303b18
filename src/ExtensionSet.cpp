#include "ExtensionSet.h"

#include <string.h>

namespace kav {
namespace zel {
namespace gl {

ExtensionSet::ExtensionSet(const char* extensions) {
    mExtensions.max_load_factor(1.0f);
    if (extensions == nullptr) {
        return;
    }
    const char* token = extensions;
    while (*token != '\0') {
        const char* end = strchr(token, ' ');
        if (end == nullptr) {
            end = token + strlen(token);
        }
        if (end != token) {
            mExtensions.emplace(token, static_cast<size_t>(end - token));
        }
        token = (*end == ' ') ? end + 1 : end;
    }
}

bool ExtensionSet::hasExtension(const char* name) const {
    return name != nullptr && mExtensions.count(name) != 0;
}

}  // namespace gl
}  // namespace zel
}  // namespace kav
