#include "map_server/driver/arg_file.h"

#include <cctype>
#include <cstdio>
#include <memory>

#include "toolkit/message_log.h"

namespace vmp {

namespace {

bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

using FilePtr = std::unique_ptr<FILE, int (*)(FILE*)>;

}  // namespace

std::vector<std::string> SplitArgText(std::string_view text) {
  std::vector<std::string> args;
  size_t pos = 0;
  bool inside_quotes = false;  // continuing a quoted argument past the scan limit
  while (true) {
    if (!inside_quotes) {
      while (pos < text.size() && IsBlank(text[pos])) ++pos;
      if (pos == text.size()) break;
      if (text[pos] == '"') {
        inside_quotes = true;
        ++pos;
      }
    }
    const size_t start = pos;
    std::string arg;
    if (inside_quotes) {
      while (pos < text.size() && text[pos] != '"' && pos - start < kArgScanLimit) ++pos;
      arg.assign(text.substr(start, pos - start));
      if (pos < text.size() && text[pos] == '"') {
        ++pos;
        inside_quotes = false;
      } else if (pos == text.size()) {
        kav::KavError("Missing closing quote in arg-file, argument ends at the end of the file.",
                      kav::kWarning);
        inside_quotes = false;
      }
    } else {
      while (pos < text.size() && !IsBlank(text[pos]) && pos - start < kArgScanLimit) ++pos;
      arg.assign(text.substr(start, pos - start));
    }
    if (arg.size() > kMaxArgLength) {
      arg.resize(kMaxArgLength);
      kav::KavError("Argument is too long, truncated.", kav::kError);
    }
    args.push_back(std::move(arg));
  }
  return args;
}

std::optional<std::vector<std::string>> ReadArgFile(const std::string& path,
                                                    const std::string& program) {
  FilePtr file(std::fopen(path.c_str(), "r"), &std::fclose);
  if (!file) return std::nullopt;
  std::string text;
  char buffer[65536];
  size_t got = 0;
  bool too_long = false;
  while ((got = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
    if (text.size() + got > kMaxArgFileBytes) {
      too_long = true;
      break;
    }
    text.append(buffer, got);
  }
  if (too_long || std::ferror(file.get())) {
    kav::KavError("Error reading arguments.", kav::kError);
    return std::nullopt;
  }
  std::vector<std::string> args{program};
  for (std::string& arg : SplitArgText(text)) args.push_back(std::move(arg));
  return args;
}

}  // namespace vmp
