// Marker icons (MarkerIconFile), each file loaded once per process.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/image/image_record.h"

namespace vmp {

class IconCache {
 public:
  // The icon `name` (a PNG, JPEG or TIFF file; "\" or "/" separators;
  // relative names resolve against `dir`, the layer file's directory),
  // loaded on first use. Null for an empty name, and for a file that cannot
  // be loaded: the loader reports it the first time, later uses are quiet.
  const LoadedImage* Get(std::string_view dir, std::string_view name);

  size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    std::string dir;
    std::string name;
    std::unique_ptr<LoadedImage> image;  // null: the file could not be loaded
  };
  std::vector<Entry> entries_;
  size_t last_ = 0;  // the entry found last: features of a layer mostly share one icon
};

}  // namespace vmp
