#include "map_server/tools/tvf_merge.h"

#include "map_server/tools/replacing_output.h"
#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

bool MergeTvfFiles(const std::vector<std::string>& files, const std::string& output,
                   std::string_view filter_command, FILE* summary) {
  if (files.empty()) return false;
  const TvfFormat format = CurrentTvfOutputFormat();
  ReplacingOutput out;
  if (!out.OpenTvf(output, format)) return false;

  long objects = 0;
  long files_read = 0;
  bool all_read = true;
  for (const std::string& file : files) {
    // One input in memory at a time.
    VectorData data;
    if (!LoadTvfFile(file, TvfSource::kByName, data, filter_command)) {
      Report(kError, "Error reading TVF file, skipping", file);
      all_read = false;
      continue;
    }
    ++files_read;
    for (const auto& feature : data.features) {
      if (out.Failed() || !WriteTvfFeature(out.get(), format, *feature)) {
        Report(kError, "Error writing output file", output);
        return false;
      }
      ++objects;
    }
  }
  if (!out.Commit()) {
    Report(kError, "Error writing output file", output);
    return false;
  }
  if (!all_read) Report(kError, "Errors processing some files");
  std::fprintf(summary, "Merged %ld objects in %ld files.\n", objects, files_read);
  std::fflush(summary);
  return all_read;
}

}  // namespace vmp
