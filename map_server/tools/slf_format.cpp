#include "map_server/tools/slf_format.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "map_server/dataset/config_reader.h"
#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

void SlfBox::Include(const SlfBox& other) {
  min_lon = std::min(min_lon, other.min_lon);
  max_lon = std::max(max_lon, other.max_lon);
  min_lat = std::min(min_lat, other.min_lat);
  max_lat = std::max(max_lat, other.max_lat);
}

std::string SlfToken(std::string_view name) {
  const bool plain = !name.empty() && name.find_first_of(" \t\r\n\v\f,\"\\") == std::string_view::npos;
  if (plain) return std::string(name);
  std::string token = "\"";
  for (char c : name) {
    switch (c) {
      case '"': token += "\\\""; break;
      case '\\': token += "\\\\"; break;
      case '\n': token += "\\n"; break;
      case '\r': token += "\\r"; break;
      default: token += c;
    }
  }
  token += '"';
  return token;
}

std::string BoxLines(double min_lat, double max_lat, double min_lon, double max_lon) {
  return kav::StrPrintf("MIN LAT=%lf\nMAX LAT=%lf\nMIN LON=%lf\nMAX LON=%lf\n", min_lat, max_lat,
                        min_lon, max_lon);
}

std::string ChildBoxText(const SlfBox& box) {
  return kav::StrPrintf("   BBOX= %lf %lf %lf %lf", box.min_lon, box.min_lat, box.max_lon,
                        box.max_lat);
}

namespace {

bool HasOverlongLine(std::string_view text) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    if (end - start > kMaxConfigLine) return true;
    start = end + 1;
  }
  return false;
}

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

bool WriteGeneratedFile(const std::string& path, std::string_view text,
                        std::string_view open_failure, std::string_view write_failure,
                        const std::function<void()>& after_open) {
  if (HasOverlongLine(text)) {
    Report(kError, write_failure, path);
    return false;
  }
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
  if (!file) {
    Report(kError, open_failure, path);
    return false;
  }
  if (after_open) after_open();
  const bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
  const bool closed = std::fclose(file.release()) == 0;
  if (!written || !closed) {
    Report(kError, write_failure, path);
    return false;
  }
  return true;
}

}  // namespace vmp
