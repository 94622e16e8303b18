/*
 * The names of a space-separated extension string, searchable by exact, case-sensitive name.
 */
#pragma once

#include <string>
#include <unordered_set>

namespace kav {
namespace zel {
namespace gl {

class ExtensionSet {
public:
    // Only the space character separates names; empty names are skipped, repeats kept once.
    explicit ExtensionSet(const char* extensions);

    bool hasExtension(const char* name) const;
    size_t size() const { return mExtensions.size(); }

private:
    std::unordered_set<std::string> mExtensions;
};

}  // namespace gl
}  // namespace zel
}  // namespace kav
