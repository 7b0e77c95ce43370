// Threshold files: tables that map attribute values to drawing values for
// the attribute and pixel maps of a LIF.
//
//   INPUT DATA TYPE=VMP_D
//   OUTPUT DATA TYPE=VMP_G
//   0.0     0.0, 0.0, 1.0
//   100.0   0.0, 1.0, 0.0
//
// Type words: "VMP_S" string, "VMP_D" real, "VMP_G" colour (three reals).
// "DATA TYPE=" is accepted and its word checked; it does not set either
// type. Each other line is one threshold: the input value, then the output
// value read from where the input ended.
#pragma once

#include <string>
#include <string_view>

#include "map_server/vector/typed_value.h"

namespace vmp {

// The value type of a type word, or kNone.
ValueType ValueTypeOfWord(std::string_view word);

// Reads a threshold file into `table` (cleared first). Lines that fail are
// reported and dropped; a read that stops before the end of the file
// discards the whole table. Returns false when the file cannot be opened or
// its reading stopped early.
bool ReadThresholdFile(const std::string& path, ThresholdTable* table);

// The same from memory; `path` names the file in messages.
bool ReadThresholdText(std::string_view path, std::string_view text, ThresholdTable* table);

}  // namespace vmp
