#include "StringPool.h"

#include <mutex>
#include <unordered_set>

namespace zel {
namespace hostgpu {

const char* StringPool::intern(const std::string& text) {
    // Never destroyed: pointers into it may be used until the process ends. Node-based, so the
    // strings never move.
    static std::mutex* const mutex = new std::mutex();
    static std::unordered_set<std::string>* const pool = new std::unordered_set<std::string>();
    std::lock_guard<std::mutex> lock(*mutex);
    return pool->insert(text).first->c_str();
}

}  // namespace hostgpu
}  // namespace zel
