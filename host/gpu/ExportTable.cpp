#include "ExportTable.h"

#include <algorithm>
#include <cstring>

namespace zel {
namespace hostgpu {

__eglMustCastToProperFunctionPointerType ExportTable::find(const char* name) {
    if (name == nullptr) {
        return nullptr;
    }
    const ExportedFunction* begin = kExportedFunctions;
    const ExportedFunction* end = kExportedFunctions + kExportedFunctionCount;
    const ExportedFunction* found = std::lower_bound(
        begin, end, name,
        [](const ExportedFunction& entry, const char* key) { return strcmp(entry.name, key) < 0; });
    if (found == end || strcmp(found->name, name) != 0) {
        return nullptr;
    }
    return found->address;
}

}  // namespace hostgpu
}  // namespace zel
