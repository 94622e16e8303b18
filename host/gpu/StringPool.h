/*
 * Strings handed to clients as `const char*` (extension strings, version overrides): clients keep
 * such pointers for as long as they like, so each distinct text is kept for the life of the
 * process and the same text always comes back at the same address.
 */
#pragma once

#include <string>

namespace zel {
namespace hostgpu {

class StringPool {
public:
    // The pooled copy of `text`.
    static const char* intern(const std::string& text);
};

}  // namespace hostgpu
}  // namespace zel
