// Loading TVF vector files into a VectorData.
//
// The loader reads either encoding (the header says which), from a file,
// from the standard output of a filter command, or from a shapefile that is
// first converted into a temporary file. Loading a vector tile is on the
// path of every vector map request, so all reading goes through the
// buffered TvfInput.
//
// Bad input never allocates beyond what the input can actually hold: counts
// are trusted for one up-front allocation only as far as the remaining bytes
// can fill it, and arrays grow as data arrives beyond that.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "map_server/vector/tvf_input.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

// Where LoadTvfFile reads from: decided by the name (".shp" at the end is
// a shapefile, anything else TVF), a TVF file, or a shapefile.
enum class TvfSource : int { kByName = 0, kTvf = 1, kShapefile = 2 };

// Whether a load keeps the features' attributes. Drawing without attribute
// conditions needs only the geometry: kSkip reads past the attribute
// entries (checking them as usual) without storing them, and marks the data
// with `attributes_skipped`.
enum class TvfAttributes : int { kRead = 0, kSkip = 1 };

// Loads `file_name` into `data` (emptied first) and returns success, which
// is also `!data.error`. With a non-empty `filter_command` the source kind
// is ignored: the command is run with the quoted file name put in place of
// its first "%" (or appended after a blank) and its standard output is read.
// With `quiet`, failures set the error flag but log nothing except a bad
// header's own message and "Can't create tmpfile!". A failed load keeps the
// features read before the failure.
bool LoadTvfFile(const std::string& file_name, TvfSource source, VectorData& data,
                 std::string_view filter_command = {}, bool quiet = false,
                 TvfAttributes attributes = TvfAttributes::kRead);

// Reads header and records from `input` into `data` (emptied first), with
// the same flags and messages as LoadTvfFile; `name` is used in messages.
bool LoadTvfStream(TvfInput& input, const std::string& name, VectorData& data, bool quiet,
                   TvfAttributes attributes = TvfAttributes::kRead);

// The command line LoadTvfFile runs for a filter command.
std::string BuildFilterCommandLine(std::string_view command, std::string_view file_name);

// Runs the shapefile converter on `shapefile`, writing TVF into `out` (the
// loader's temporary file). This is the one place the loader reaches the
// converter.
bool ConvertShapefileToTvfStream(const std::string& shapefile, FILE* out);

// Field readers, shared with the tools.
//
// The ASCII point reader: white space, an optional sign, digits with an
// optional point and fraction, an optional exponent, then a blank, tab,
// line break or the end. Any other character fails.
bool ParseTvfNumber(TvfInput& input, double* out);
// An integer: "%lx" in ASCII, 8 bytes little-endian in BINARY.
bool ReadTvfInteger(TvfInput& input, TvfFormat format, int64_t* out);
// A real: "%lf" in ASCII, 8 bytes little-endian in BINARY.
bool ReadTvfReal(TvfInput& input, TvfFormat format, double* out);
// A label or S value. `out` null skips the string; an absent string ("-1")
// stores nullopt and succeeds. A length above 1024 fails with
// "String is too long (length > 1024)" (not logged when `quiet`).
bool ReadTvfString(TvfInput& input, TvfFormat format, std::optional<std::string>* out,
                   bool quiet = false);

}  // namespace vmp
