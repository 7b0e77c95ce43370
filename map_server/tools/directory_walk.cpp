#include "map_server/tools/directory_walk.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace fs = std::filesystem;

bool ListDirectory(const std::string& dir, std::vector<DirectoryItem>* items) {
  items->clear();
  std::error_code ec;
  fs::directory_iterator it(dir, ec);
  if (ec) {
    Report(kError, "Could not be opened", dir);
    return false;
  }
  for (const fs::directory_iterator end; it != end; it.increment(ec)) {
    std::error_code status_ec;
    const fs::file_status status = it->status(status_ec);  // follows links
    if (status_ec) continue;                                // a broken link
    if (fs::is_directory(status)) {
      items->push_back({it->path().filename().string(), true});
    } else if (fs::is_regular_file(status)) {
      items->push_back({it->path().filename().string(), false});
    }
  }
  if (ec) {
    Report(kError, "Could not be opened", dir);
    return false;
  }
  std::sort(items->begin(), items->end(),
            [](const DirectoryItem& a, const DirectoryItem& b) { return a.name < b.name; });
  return true;
}

bool DirectoryVisits::Enter(const std::string& dir) {
  std::error_code ec;
  fs::path key = fs::canonical(dir, ec);
  if (ec) key = fs::absolute(dir, ec).lexically_normal();
  if (entered_.insert(key.string()).second) return true;
  Report(kWarning, "Directory reached twice through links, skipping", dir);
  return false;
}

bool IsConverterBackupName(std::string_view name) {
  return kav::EndsWith(name, ".vmp_new_bak") || kav::EndsWith(name, ".vmp_orig_bak");
}

}  // namespace vmp
