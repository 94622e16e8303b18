/*
 * Per-tag numbering of buffer dumps, kept for the life of the process. Numbers start at 1 and
 * wrap from the largest unsigned value back to 1, never to 0.
 */
#pragma once

#include <string>

namespace kav {
namespace zel {

// The number of the next dump with tag (1 for a new tag).
unsigned int GetDumpCounter(std::string tag);
// Advances the tag's number.
void UpdateDumpCounter(std::string tag);
// Sets the number of the next dump with tag; for tests of the wrap-around.
void SetDumpCounter(std::string tag, unsigned int value);

}  // namespace zel
}  // namespace kav
