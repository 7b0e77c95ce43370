#include "map_server/dataset/config_reader.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "toolkit/message_log.h"

namespace vmp {

namespace {

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

char EscapedChar(char c) {
  switch (c) {
    case 'a': return '\a';
    case 'b': return '\b';
    case 'f': return '\f';
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    case 'v': return '\v';
    case '0': return '\0';
    default: return c;  // \\, \" and any other character stand for themselves
  }
}

}  // namespace

std::string_view SkipSeparators(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (IsBlank(text[i]) || text[i] == ',')) ++i;
  return text.substr(i);
}

bool LoadConfigFile(const std::string& path, ConfigFile* file) {
  file->path = path;
  file->text.clear();
  file->read_error = false;
  struct stat info {};
  if (path.empty() || ::stat(path.c_str(), &info) != 0) return false;
  if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) return false;
  FilePtr in(std::fopen(path.c_str(), "rb"));
  if (!in) return false;
  char buffer[1 << 16];
  for (;;) {
    size_t n = std::fread(buffer, 1, sizeof buffer, in.get());
    if (file->text.size() + n > kMaxConfigFileSize) {
      file->read_error = true;
      break;
    }
    file->text.append(buffer, n);
    if (n < sizeof buffer) {
      if (std::ferror(in.get())) file->read_error = true;
      break;
    }
  }
  return true;
}

void ConfigContext::AfterMessage() const {
  if (!included_file.empty()) vmp::Report(kError, "In included file", included_file);
}

void ConfigContext::Report(int severity, std::string_view message) const {
  vmp::Report(severity, message);
  AfterMessage();
}

void ConfigContext::Report(int severity, std::string_view message,
                           std::string_view detail) const {
  vmp::Report(severity, message, detail);
  AfterMessage();
}

void ConfigContext::CannotRead(std::string_view long_name) const {
  ReportPrefixed(kError, "cannot read", long_name);
}

void ConfigContext::ReportPrefixed(int severity, std::string_view message,
                                   std::string_view detail) const {
  std::string text = file;
  text += ": ";
  text += message;
  Report(severity, text, detail);
}

bool LineReader::Next(std::string_view* line) {
  while (!rest_.empty()) {
    size_t end = rest_.find('\n');
    std::string_view raw = rest_.substr(0, end);
    rest_ = end == std::string_view::npos ? std::string_view() : rest_.substr(end + 1);
    if (!raw.empty() && raw.back() == '\r') raw.remove_suffix(1);
    if (raw.size() > kMaxConfigLine) {
      context_.Report(kWarning, "Line is too long, truncated!", context_.file);
      raw = raw.substr(0, kMaxConfigLine);
    }
    if (raw.empty() || raw.front() == '#') continue;
    raw = SkipBlanks(raw);
    if (raw.empty()) continue;
    *line = raw;
    return true;
  }
  return false;
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view SkipBlanks(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && IsBlank(text[i])) ++i;
  return text.substr(i);
}

std::string_view TrimBlanks(std::string_view text) {
  text = SkipBlanks(text);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool MatchKeyword(std::string_view line, std::string_view keyword, std::string_view* value) {
  if (line.substr(0, keyword.size()) != keyword) return false;
  *value = line.substr(keyword.size());
  return true;
}

std::string_view KeywordOf(std::string_view line) {
  size_t eq = line.find('=');
  return eq == std::string_view::npos ? std::string_view() : line.substr(0, eq + 1);
}

bool ReadToken(std::string_view* cursor, std::string* token, const ConfigContext& context) {
  std::string_view text = SkipBlanks(*cursor);
  if (!text.empty() && text.front() == ',') text = SkipBlanks(text.substr(1));
  token->clear();
  if (text.empty()) {
    *cursor = text;
    return false;
  }
  bool too_long = false;
  auto append = [&](char c) {
    if (token->size() < kMaxConfigToken) token->push_back(c);
    else too_long = true;
  };
  size_t i = 0;
  if (text.front() == '"') {
    // A missing closing quote ends the token at the end of the line.
    for (i = 1; i < text.size() && text[i] != '"'; ++i) {
      if (text[i] == '\\' && i + 1 < text.size()) append(EscapedChar(text[++i]));
      else append(text[i]);
    }
    if (i < text.size()) ++i;  // the closing quote
  } else {
    for (; i < text.size() && !IsBlank(text[i]) && text[i] != ','; ++i) append(text[i]);
  }
  *cursor = text.substr(i);
  if (too_long) context.Report(kWarning, "String is too long, truncated!", *token);
  return true;
}

bool ReadWords(std::string_view* cursor, std::string* value, const ConfigContext& context) {
  std::string_view text = SkipBlanks(*cursor);
  if (!text.empty() && text.front() == '"') return ReadToken(cursor, value, context);
  text = TrimBlanks(text);
  *cursor = std::string_view();
  if (text.empty()) return false;
  value->assign(text.substr(0, kMaxConfigToken));
  if (text.size() > kMaxConfigToken) {
    context.Report(kWarning, "String is too long, truncated!", *value);
  }
  return true;
}

bool ReadInteger(std::string_view* cursor, int64_t* value) {
  std::string_view text = SkipBlanks(*cursor);
  size_t i = 0;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  size_t digits_start = i;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
  if (i == digits_start) return false;
  std::string number(text.substr(0, i));
  errno = 0;
  *value = std::strtoll(number.c_str(), nullptr, 10);  // clamps out-of-range values
  *cursor = text.substr(i);
  return true;
}

bool ReadReal(std::string_view* cursor, double* value) {
  std::string_view text = SkipBlanks(*cursor);
  // Numbers are short; the copy gives strtod the terminated text it needs.
  std::string number(text.substr(0, 512));
  char* end = nullptr;
  double parsed = std::strtod(number.c_str(), &end);
  size_t used = static_cast<size_t>(end - number.c_str());
  if (used == 0) return false;
  *value = parsed;
  *cursor = text.substr(used);
  return true;
}

int ReadReals(std::string_view* cursor, double* values, int count) {
  int read = 0;
  std::string_view text = *cursor;
  while (read < count) {
    if (read > 0) text = SkipSeparators(text);
    if (!ReadReal(&text, &values[read])) break;
    ++read;
  }
  *cursor = text;
  return read;
}

bool ReadColor(std::string_view* cursor, Rgb* color) {
  double c[3];
  std::string_view text = *cursor;
  if (ReadReals(&text, c, 3) != 3) return false;
  *color = Rgb{c[0], c[1], c[2]};
  *cursor = text;
  return true;
}

}  // namespace vmp
