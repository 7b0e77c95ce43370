// Writing TVF files: the routines every vector tool shares.
//
//   TvfOutput out = OpenTvfOutput(path);          // header in the process-wide encoding
//   if (!out) return false;                        // "Could not open output file" logged
//   TvfFormat format = CurrentTvfOutputFormat();
//   for (...) WriteTvfFeature(out.get(), format, feature);
//   return CloseTvfOutput(std::move(out));
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "map_server/vector/vector_data.h"

namespace vmp {

struct TvfOutputCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using TvfOutput = std::unique_ptr<FILE, TvfOutputCloser>;

// The encoding the tools write: BINARY after "-b", else ASCII.
TvfFormat CurrentTvfOutputFormat();

// Opens `file_name` for binary writing and writes the header in the current
// output encoding. On failure logs "Could not open output file" with the
// name and returns null.
TvfOutput OpenTvfOutput(const std::string& file_name);
// Flushes and closes; false when a write failed on the way.
bool CloseTvfOutput(TvfOutput output);

// "69c 2 0 " (ASCII) or "69c 2 1 " (BINARY).
bool WriteTvfHeader(FILE* out, TvfFormat format);
// One record: prefix, head fields, attribute entries, then the polygon's
// points or the marker's position. Attribute entries of an unknown type are
// left out (and counted out), with "Unsupported data type\n" on standard
// error; a marker type outside 0..2 writes "Unsupported marker type\n" there
// and no type-specific fields. Returns false when the stream reports an error.
bool WriteTvfFeature(FILE* out, TvfFormat format, const Feature& feature);
// Length, characters and their NUL; an absent string is written as -1.
bool WriteTvfString(FILE* out, TvfFormat format, const std::optional<std::string>& text);

}  // namespace vmp
