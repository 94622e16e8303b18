/*
 * Loading of the debug switches from system properties. Called at the start of every GLES
 * renderer creation; nothing else reads the properties.
 */
#pragma once

#include <stdint.h>

#include <zel/Debug.h>

namespace kav {
namespace zel {

// System properties behind ZEL_debug_level, ZEL_debug_dump and ZEL_debug_trace.
constexpr const char kLogLevelProperty[] = "vendor.kav.c2.enable.zel.log";
constexpr const char kDumpProperty[] = "vendor.kav.c2.zel.dump";
constexpr const char kSystraceProperty[] = "vendor.kav.c2.zel.systrace";

// Reloads all three globals. Text that atoi reads as 0 turns a switch off.
void loadDebugProperties();

// The switches stay plain exported variables, since their types are part of the library's
// interface, but any renderer's creation may reload them while other threads log, trace or dump.
// Inside the library every access is a relaxed atomic one, so a reload is well defined: a reader
// sees the old value or the new one, and a stale value only changes what gets logged.
inline int32_t debugLevel() {
    return __atomic_load_n(&ZEL_debug_level, __ATOMIC_RELAXED);
}
inline bool debugTrace() {
    return __atomic_load_n(&ZEL_debug_trace, __ATOMIC_RELAXED);
}
inline bool debugDump() {
    return __atomic_load_n(&ZEL_debug_dump, __ATOMIC_RELAXED);
}

}  // namespace zel
}  // namespace kav
