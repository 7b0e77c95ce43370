// Feeds arbitrary layer strings (a request's LAYERS value) to layer
// selection over a small dataset with layers and aliases, some of them
// recursive.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/dataset_info_reader.h"
#include "map_server/dataset/lif_reader.h"
#include "map_server/layers/layer_string.h"
#include "toolkit/message_log.h"

namespace {

vmp::Dataset& FuzzDataset() {
  static std::unique_ptr<vmp::Dataset> dataset = [] {
    kav::Messages().cgi = true;  // no log files
    vmp::VmpSetErrorHandler([](const char*, int) {});
    kav::KavSetErrorHandler([](const char*, int) {});
    auto d = vmp::CreateDataset("DefaultDataset", "");
    for (const char* name : {"a", "b", "c"}) {
      vmp::ReadLifText(*d, name, "/nowhere/x.lif",
                       "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=x.tvf\nDEFAULT ON=1\n");
    }
    vmp::ReadDatasetInfoText(*d, "fuzz.sdf",
                             "ALIAS=ab, \"a,b\"\nALIAS=self, \"a,self,b\"\n"
                             "ALIAS=x, \"y,c\"\nALIAS=y, \"x,-a,++b@1==2\"\n"
                             "ALIAS ZOOM RANGE=ab, 1, 4\nALIAS ENABLE BOX=ab, 0, 0, 1, 1\n");
    return d;
  }();
  return *dataset;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vmp::Dataset& dataset = FuzzDataset();
  kav::Messages().verbosity = size > 0 ? data[0] % 2 : 0;
  std::vector<vmp::SelectedLayer> selection;
  vmp::SelectLayers(dataset, std::string_view(reinterpret_cast<const char*>(data), size), selection);
  return 0;
}
