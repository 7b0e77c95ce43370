#include "map_server/tools/tvf_converter.h"

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

#include "map_server/tools/directory_walk.h"
#include "map_server/util/paths.h"
#include "map_server/vector/attr_match.h"
#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr const char* kCannotReplace = "Can't replace original TVF file, skipping ";

enum class WriteResult { kWritten, kNotCreated, kFailed };

WriteResult WriteFeatures(const std::string& path, const VectorData& data) {
  TvfOutput out = OpenTvfOutput(path);
  if (!out) return WriteResult::kNotCreated;
  const TvfFormat format = CurrentTvfOutputFormat();
  bool ok = true;
  for (const auto& feature : data.features) {
    if (!WriteTvfFeature(out.get(), format, *feature)) {
      ok = false;
      break;
    }
  }
  ok = CloseTvfOutput(std::move(out)) && ok;
  return ok ? WriteResult::kWritten : WriteResult::kFailed;
}

// The new file gets the original's permissions (best effort).
void CopyPermissions(const std::string& from, const std::string& to) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::file_status status = fs::status(from, ec);
  if (!ec) fs::permissions(to, status.permissions(), ec);
}

class TvfTreeConverter {
 public:
  TvfTreeConverter(const std::string& pattern, int64_t progress, const ConverterFileOps& ops)
      : pattern_(pattern), progress_(progress), ops_(ops) {}

  void Walk(const std::string& dir) {
    std::vector<DirectoryItem> items;
    if (!visits_.Enter(dir)) return;
    if (!ListDirectory(dir, &items)) {
      failed_ = true;
      return;
    }
    for (const DirectoryItem& item : items) {
      const std::string path = JoinPath(dir, item.name);
      if (item.is_directory) {
        Walk(path);
        continue;
      }
      if (IsConverterBackupName(item.name) || !WildcardMatch(pattern_, item.name)) continue;
      ++count_;
      if (progress_ > 0 && count_ % progress_ == 0) {
        std::printf("Convering file #%lld\n", static_cast<long long>(count_));
      }
      if (!ConvertTvfFile(path, ops_)) failed_ = true;
    }
  }

  int64_t count() const { return count_; }
  bool failed() const { return failed_; }

 private:
  const std::string& pattern_;
  int64_t progress_;
  const ConverterFileOps& ops_;
  DirectoryVisits visits_;
  int64_t count_ = 0;
  bool failed_ = false;
};

}  // namespace

ConverterFileOps SystemFileOps() {
  return {[](const std::string& from, const std::string& to) {
            return std::rename(from.c_str(), to.c_str()) == 0;
          },
          [](const std::string& path) { return std::remove(path.c_str()) == 0; }};
}

bool ConvertTvfFile(const std::string& path, const ConverterFileOps& ops) {
  if (Verbosity() >= 1) Report(kInfo, "Converting TVF file", path);
  VectorData data;
  if (!LoadTvfFile(path, TvfSource::kTvf, data)) {
    Report(kError, "Error reading TVF file, skipping", path);
    return false;
  }
  const std::string new_file = path + ".vmp_new_bak";
  const std::string backup = path + ".vmp_orig_bak";
  std::error_code ec;
  if (std::filesystem::exists(std::filesystem::symlink_status(backup, ec))) {
    // It may be the only copy left by an earlier run that was stopped.
    Report(kWarning, kCannotReplace, path);
    Report(kWarning, "Backup file exists already", backup);
    return false;
  }
  if (Verbosity() >= 2) Report(kInfo, "Writing new tmp TVF file", new_file);
  const WriteResult written = WriteFeatures(new_file, data);
  if (written != WriteResult::kWritten) {
    Report(kWarning, "Error writing TVF file, skipping ", path);
    if (written == WriteResult::kFailed) ops.remove(new_file);
    return false;
  }
  CopyPermissions(path, new_file);
  if (!ops.rename(path, backup)) {
    Report(kWarning, kCannotReplace, path);
    ops.remove(new_file);
    return false;
  }
  if (!ops.rename(new_file, path)) {
    Report(kWarning, kCannotReplace, path);
    if (ops.rename(backup, path)) {
      ops.remove(new_file);
    } else {
      Report(kError, "Original TVF file kept as", backup);
    }
    return false;
  }
  if (!ops.remove(backup)) Report(kWarning, "Could not remove the backup file", backup);
  return true;
}

bool ConvertTvfTree(const std::string& dir, const std::string& pattern, int64_t progress,
                    int64_t* processed, const ConverterFileOps& ops) {
  TvfTreeConverter converter(pattern, progress, ops);
  converter.Walk(dir);
  std::fflush(stdout);
  *processed = converter.count();
  return !converter.failed();
}

}  // namespace vmp
