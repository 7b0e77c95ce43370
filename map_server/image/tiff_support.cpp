#include "map_server/image/tiff_support.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstring>

#include "map_server/image/image_settings.h"
#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

// File procedures over a stdio stream opened by the caller.
std::FILE* FileOf(thandle_t handle) { return static_cast<std::FILE*>(handle); }

tmsize_t ReadProc(thandle_t handle, void* buffer, tmsize_t size) {
  if (size <= 0) return 0;
  return static_cast<tmsize_t>(std::fread(buffer, 1, static_cast<size_t>(size), FileOf(handle)));
}

tmsize_t NoWriteProc(thandle_t, void*, tmsize_t) { return 0; }

toff_t SeekProc(thandle_t handle, toff_t offset, int whence) {
  // libtiff passes offsets as unsigned; a huge one is an invalid position.
  if (offset > static_cast<toff_t>(INT64_MAX)) return static_cast<toff_t>(-1);
  if (fseeko(FileOf(handle), static_cast<off_t>(offset), whence) != 0)
    return static_cast<toff_t>(-1);
  const off_t position = ftello(FileOf(handle));
  return position < 0 ? static_cast<toff_t>(-1) : static_cast<toff_t>(position);
}

int NoCloseProc(thandle_t) { return 0; }

toff_t SizeProc(thandle_t handle) {
  struct stat status;
  if (fstat(fileno(FileOf(handle)), &status) != 0) return 0;
  return static_cast<toff_t>(status.st_size);
}

int NoMapProc(thandle_t, void**, toff_t*) { return 0; }
void NoUnmapProc(thandle_t, void*, toff_t) {}

int ErrorHandler(TIFF*, void* user_data, const char* module, const char* format, va_list args) {
  auto* messages = static_cast<TiffMessages*>(user_data);
  if (messages != nullptr && messages->first_error[0] == '\0') {
    std::vsnprintf(messages->first_error, sizeof(messages->first_error), format, args);
  }
  return 1;  // handled: libtiff's process-wide handler stays quiet
}

void ReportTiffWarning(const char* module, const char* format, va_list args) {
  if (Verbosity() < 1) return;
  std::string text = kav::StrVPrintf(format, args);
  if (module != nullptr) text = std::string(module) + ": " + text;
  kav::KavError(text.c_str(), kWarning);
}

int WarningHandler(TIFF*, void*, const char* module, const char* format, va_list args) {
  ReportTiffWarning(module, format, args);
  return 1;
}

void ProcessWarningHandler(const char* module, const char* format, va_list args) {
  ReportTiffWarning(module, format, args);
}

// Options of one open: our handlers, and (reading) a cap on any single
// allocation libtiff makes for the file.
struct OpenOptions {
  TIFFOpenOptions* options;
  OpenOptions(TiffMessages* messages, bool reading) : options(TIFFOpenOptionsAlloc()) {
    if (options == nullptr) return;
    TIFFOpenOptionsSetErrorHandlerExtR(options, ErrorHandler, messages);
    TIFFOpenOptionsSetWarningHandlerExtR(options, WarningHandler, messages);
    const int64_t limit = ImageFiles().max_image_bytes;
    if (reading && limit > 0)
      TIFFOpenOptionsSetMaxSingleMemAlloc(options, static_cast<tmsize_t>(limit));
  }
  ~OpenOptions() {
    if (options != nullptr) TIFFOpenOptionsFree(options);
  }
};

}  // namespace

void InstallTiffWarningHandlerOnce() {
  ImageFileSettings& settings = ImageFiles();
  if (settings.tiff_warning_handler_installed || !settings.own_tiff_warning_handler) return;
  TIFFSetWarningHandler(ProcessWarningHandler);
  settings.tiff_warning_handler_installed = true;
}

TIFF* OpenTiffForReading(std::FILE* file, const std::string& path, TiffMessages* messages) {
  InstallTiffWarningHandlerOnce();
  OpenOptions options(messages, true);
  // "m": no memory mapping, the stream procedures do the reading.
  return TIFFClientOpenExt(path.c_str(), "rm", file, ReadProc, NoWriteProc, SeekProc, NoCloseProc,
                           SizeProc, NoMapProc, NoUnmapProc, options.options);
}

TIFF* OpenTiffForWriting(const std::string& path, TiffMessages* messages) {
  InstallTiffWarningHandlerOnce();
  OpenOptions options(messages, false);
  return TIFFOpenExt(path.c_str(), "w", options.options);
}

}  // namespace vmp
