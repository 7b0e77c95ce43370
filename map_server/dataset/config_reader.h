// The token reader and line rules shared by every configuration file of the
// map server: the dataset info file, LIF files, SLF files, redirect files
// and threshold files.
//
// Line rules: a line holds at most 1023 characters (a longer line is cut
// there, reported once with "Line is too long, truncated!", and the rest of
// it is dropped); a line whose first character is "#" is a comment; leading
// white space is skipped; a line that is then empty is skipped.
//
// Files are read whole into memory first, so every reader works the same on
// a file and on a memory buffer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "map_server/dataset/param_tables.h"

namespace vmp {

inline constexpr size_t kMaxConfigLine = 1023;
inline constexpr size_t kMaxConfigToken = 1024;
// Larger files are not configuration files; reading stops there.
inline constexpr size_t kMaxConfigFileSize = 64u << 20;

// A configuration file read into memory.
struct ConfigFile {
  std::string path;
  std::string text;
  // Reading stopped before the end of the file (an I/O error, or a file
  // over kMaxConfigFileSize); `text` holds what was read.
  bool read_error = false;
};

// Opens `path` for binary reading and reads it whole. Returns false (without
// a message; each reader words its own) when the file cannot be opened.
// Only regular files (and directories, whose read fails) are opened, so a
// device or a pipe named in a configuration file never blocks or floods.
bool LoadConfigFile(const std::string& path, ConfigFile* file);

// Where the messages of one configuration reader go. Inside an included file
// every message is followed by "In included file" with the included name.
struct ConfigContext {
  std::string file;           // named in "cannot read" and similar messages
  std::string included_file;  // non-empty while reading an included file

  void Report(int severity, std::string_view message) const;
  void Report(int severity, std::string_view message, std::string_view detail) const;
  // "<file>: cannot read" with the keyword's long name as detail.
  void CannotRead(std::string_view long_name) const;
  // "<file>: <message>" with a detail (the path-prefixed form).
  void ReportPrefixed(int severity, std::string_view message, std::string_view detail) const;

 private:
  void AfterMessage() const;
};

// Splits a text into the lines that carry content, applying the line rules.
class LineReader {
 public:
  LineReader(std::string_view text, const ConfigContext& context)
      : rest_(text), context_(context) {}

  // The next content line without its leading white space and line end.
  bool Next(std::string_view* line);

 private:
  std::string_view rest_;
  const ConfigContext& context_;
};

bool IsBlank(char c);
std::string_view SkipBlanks(std::string_view text);
std::string_view TrimBlanks(std::string_view text);
// Skips white space and commas (the separators between values).
std::string_view SkipSeparators(std::string_view text);

// When `line` starts with `keyword` (which ends in "="), sets `value` to the
// text after it.
bool MatchKeyword(std::string_view line, std::string_view keyword, std::string_view* value);
// The line's text up to and including its first "=" ("" when it has none).
// Keywords all end in their only "=", so this is the one keyword a line can
// match.
std::string_view KeywordOf(std::string_view line);

// Reads one string token from the front of `cursor` and advances it. Leading
// white space and one leading comma are skipped; a token in double quotes
// may hold blanks and commas and knows backslash escapes; otherwise the token
// ends at white space or a comma. Tokens over 1024 characters are cut with
// "String is too long, truncated!". False when no token is there.
bool ReadToken(std::string_view* cursor, std::string* token, const ConfigContext& context);

// Reads an enumeration or flag value: a quoted token, or else the rest of the
// line without surrounding white space (so "FILL AND EDGE" is one value).
bool ReadWords(std::string_view* cursor, std::string* value, const ConfigContext& context);

// A signed 64-bit decimal number, as "%lld" reads it (out-of-range values
// clamp). Leading white space is skipped.
bool ReadInteger(std::string_view* cursor, int64_t* value);
// A real number, as "%lf" reads it.
bool ReadReal(std::string_view* cursor, double* value);
// Up to `count` reals separated by white space or commas; returns how many
// were read.
int ReadReals(std::string_view* cursor, double* values, int count);
// Three reals (red, green, blue) separated by white space or commas.
bool ReadColor(std::string_view* cursor, Rgb* color);

}  // namespace vmp
