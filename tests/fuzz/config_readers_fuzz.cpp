// Feeds one input to every configuration reader of the map server: as a
// dataset info file, a LIF, an SLF, a threshold file and a redirect file.
// Relative names in the input resolve inside an empty scratch directory.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/dataset_info_reader.h"
#include "map_server/dataset/lif_reader.h"
#include "map_server/dataset/redirect_file.h"
#include "map_server/dataset/slf_reader.h"
#include "map_server/dataset/threshold_file.h"
#include "toolkit/message_log.h"

namespace {

const std::string& ScratchDir() {
  static const std::string dir = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "vmp_fuzz_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    return pattern;
  }();
  return dir;
}

void Silence() {
  static bool done = false;
  if (done) return;
  done = true;
  kav::Messages().cgi = true;  // no log files
  vmp::VmpSetErrorHandler([](const char*, int) {});
  kav::KavSetErrorHandler([](const char*, int) {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Silence();
  std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string& dir = ScratchDir();

  auto dataset = vmp::CreateDataset("DefaultDataset", dir + "/fuzz.sdf");
  vmp::ReadDatasetInfoText(*dataset, dir + "/fuzz.sdf", text);

  auto layer = vmp::ParseLifText(*dataset, "fuzz", dir + "/fuzz.lif", text, false, false);
  if (layer) {
    vmp::ConvertConfig(*layer);
    vmp::PrepareLayerRedirect(*dataset, *layer);
  }

  vmp::SlfNode node;
  if (vmp::MakeSlfRoot(dir + "/fuzz.slf", &node)) vmp::ReadSlfText(node, text);

  vmp::ThresholdTable table;
  vmp::ReadThresholdText(dir + "/fuzz.thr", text, &table);

  std::string prefix;
  vmp::ReadRedirectText(dir + "/fuzz.txt", text, false, &prefix);
  return 0;
}
