#include "map_server/rendering/icon_cache.h"

#include "map_server/image/image_loader.h"
#include "map_server/util/paths.h"

namespace vmp {

const LoadedImage* IconCache::Get(std::string_view dir, std::string_view name) {
  if (name.empty()) return nullptr;
  if (last_ < entries_.size() && entries_[last_].name == name && entries_[last_].dir == dir) {
    return entries_[last_].image.get();
  }
  for (size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i].name == name && entries_[i].dir == dir) {
      last_ = i;
      return entries_[i].image.get();
    }
  }
  Entry entry{std::string(dir), std::string(name), std::make_unique<LoadedImage>()};
  const std::string path = ResolvePath(dir, ToNativePath(name));
  if (!LoadImageFile(path, kImageFormatFromName, false, *entry.image) || entry.image->elevation) {
    entry.image.reset();
  }
  entries_.push_back(std::move(entry));
  last_ = entries_.size() - 1;
  return entries_.back().image.get();
}

}  // namespace vmp
