// Feeds arbitrary bytes to the image loader as a JPEG, a PNG, a colour TIFF
// and an elevation TIFF file.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "map_server/image/image_loader.h"
#include "map_server/image/image_settings.h"
#include "toolkit/message_log.h"

namespace {

std::string* input_path = nullptr;
std::string* input_dir = nullptr;

void RemoveInput() {
  std::remove(input_path->c_str());
  rmdir(input_dir->c_str());
}

void Setup() {
  // Messages are formatted but go nowhere (no console, no log files); the
  // verbose level runs the libraries' warning and error handlers too.
  kav::Messages().cgi = true;
  kav::Messages().verbosity = 1;
  vmp::VmpSetErrorHandler([](const char*, int) {});
  kav::KavSetErrorHandler([](const char*, int) {});
  // Headers may claim any size; keep decoding within the fuzzer's limits.
  vmp::ImageFiles().max_image_bytes = 16 << 20;
  char dir[] = "/tmp/image_loader_fuzz_XXXXXX";
  if (mkdtemp(dir) == nullptr) std::abort();
  input_dir = new std::string(dir);
  input_path = new std::string(*input_dir + "/input");
  std::atexit(RemoveInput);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (input_path == nullptr) Setup();
  std::FILE* file = std::fopen(input_path->c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  vmp::LoadedImage image;
  vmp::LoadImageFile(*input_path, vmp::kJpegFormat, false, image);
  vmp::LoadImageFile(*input_path, vmp::kPngFormat, false, image);
  vmp::LoadImageFile(*input_path, vmp::kTiffFormat, false, image);
  vmp::LoadImageFile(*input_path, vmp::kTiffFormat, true, image);
  return 0;
}
