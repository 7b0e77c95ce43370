// Field encoders of the TVF writers. Each puts one field's bytes into a
// caller's buffer, so record writers can build a whole record in memory and
// hand it to stdio in one call. The file writers (tvf_writer.h) and the
// shapefile converter share them and so write the same bytes.
//
// ASCII: integers "%lx " (lower-case hexadecimal of the 64-bit pattern),
// reals "%lf " (fixed, six decimals). BINARY: 8 bytes little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "map_server/vector/vector_data.h"

namespace vmp {

// Most bytes one integer or real field takes (the longest "%lf" of a
// double is 317 characters, plus its blank).
inline constexpr size_t kTvfMaxFieldBytes = 336;

// Write the field at `out` (room for kTvfMaxFieldBytes) and return its end.
char* EncodeTvfInteger(char* out, TvfFormat format, int64_t value);
char* EncodeTvfReal(char* out, TvfFormat format, double value);

void AppendTvfInteger(std::string& buffer, TvfFormat format, int64_t value);
void AppendTvfReal(std::string& buffer, TvfFormat format, double value);
// A label or S value: its length, its characters up to the first NUL and a
// NUL (ASCII adds a blank); an absent string is -1 alone ("-1 " in ASCII).
void AppendTvfString(std::string& buffer, TvfFormat format, const std::optional<std::string>& text);
void AppendTvfString(std::string& buffer, TvfFormat format, std::string_view text);

}  // namespace vmp
