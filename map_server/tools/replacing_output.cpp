#include "map_server/tools/replacing_output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "map_server/vector/tvf_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Large writes: a tool's output is written once, front to back.
constexpr size_t kOutputBufferSize = size_t{1} << 20;

}  // namespace

ReplacingOutput::~ReplacingOutput() { Discard(); }

ReplacingOutput::ReplacingOutput(ReplacingOutput&& other) noexcept
    : file_(std::exchange(other.file_, nullptr)),
      buffer_(std::move(other.buffer_)),
      target_(std::move(other.target_)),
      temporary_(std::move(other.temporary_)) {}

ReplacingOutput& ReplacingOutput::operator=(ReplacingOutput&& other) noexcept {
  if (this != &other) {
    Discard();
    file_ = std::exchange(other.file_, nullptr);
    buffer_ = std::move(other.buffer_);
    target_ = std::move(other.target_);
    temporary_ = std::move(other.temporary_);
  }
  return *this;
}

bool ReplacingOutput::Open(const std::string& target) {
  Discard();
  target_ = target;
  // A device or pipe (/dev/null, /dev/stdout) is written as it is: it must
  // never be replaced by a file.
  struct stat status;
  const bool special = stat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
  if (!special) temporary_ = target + ".tmp" + std::to_string(static_cast<long>(getpid()));
  file_ = std::fopen(special ? target.c_str() : temporary_.c_str(), "wb");
  if (file_ == nullptr) return false;
  if (!buffer_) buffer_ = std::make_unique<char[]>(kOutputBufferSize);
  std::setvbuf(file_, buffer_.get(), _IOFBF, kOutputBufferSize);
  return true;
}

bool ReplacingOutput::OpenTvf(const std::string& target, TvfFormat format) {
  if (!Open(target) || !WriteTvfHeader(file_, format)) {
    Discard();
    Report(kError, "Could not open output file", target);
    return false;
  }
  return true;
}

bool ReplacingOutput::Failed() const { return file_ == nullptr || std::ferror(file_) != 0; }

bool ReplacingOutput::Commit() {
  if (file_ == nullptr) return false;
  bool ok = std::fflush(file_) == 0 && !std::ferror(file_);
  ok = std::fclose(std::exchange(file_, nullptr)) == 0 && ok;
  if (temporary_.empty()) return ok;
  ok = ok && std::rename(temporary_.c_str(), target_.c_str()) == 0;
  if (!ok) std::remove(temporary_.c_str());
  temporary_.clear();
  return ok;
}

void ReplacingOutput::Discard() {
  if (file_ != nullptr) {
    std::fclose(std::exchange(file_, nullptr));
    if (!temporary_.empty()) std::remove(temporary_.c_str());
  }
  temporary_.clear();
}

}  // namespace vmp
