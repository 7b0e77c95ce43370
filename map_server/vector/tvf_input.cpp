#include "map_server/vector/tvf_input.h"

#include <sys/stat.h>

#include <algorithm>

namespace vmp {

TvfInput::TvfInput(FILE* file) : file_(file) {
  buffer_ = std::make_unique_for_overwrite<char[]>(kBufferSize);
  begin_ = pos_ = end_ = buffer_.get();
  struct stat info {};
  if (file_ != nullptr && fstat(fileno(file_), &info) == 0 && S_ISREG(info.st_mode)) {
    long start = std::ftell(file_);
    if (start >= 0 && info.st_size >= start) {
      total_ = static_cast<uint64_t>(info.st_size) - static_cast<uint64_t>(start);
    }
  }
}

TvfInput::TvfInput(std::string_view bytes) {
  const char* data = bytes.data() != nullptr ? bytes.data() : "";
  begin_ = pos_ = data;
  end_ = data + bytes.size();
  total_ = bytes.size();
}

bool TvfInput::Refill() {
  if (file_ == nullptr || failed_) return false;
  consumed_before_ += static_cast<uint64_t>(end_ - begin_);
  size_t got = std::fread(buffer_.get(), 1, kBufferSize, file_);
  begin_ = pos_ = buffer_.get();
  end_ = begin_ + got;
  if (got == 0) {
    if (std::ferror(file_)) failed_ = true;
    return false;
  }
  return true;
}

size_t TvfInput::ReadSlow(char* out, size_t size) {
  size_t done = 0;
  while (done < size) {
    if (pos_ == end_ && !Refill()) break;
    size_t n = std::min(size - done, static_cast<size_t>(end_ - pos_));
    std::memcpy(out + done, pos_, n);
    pos_ += n;
    done += n;
  }
  return done;
}

const char* TvfInput::ContiguousSlow(size_t size) {
  if (file_ == nullptr || failed_ || size > kBufferSize) return nullptr;
  // Move what is left to the front of the buffer and fill up behind it.
  const size_t left = static_cast<size_t>(end_ - pos_);
  consumed_before_ += static_cast<uint64_t>(pos_ - begin_);
  std::memmove(buffer_.get(), pos_, left);
  begin_ = pos_ = buffer_.get();
  end_ = begin_ + left;
  while (static_cast<size_t>(end_ - begin_) < size) {
    const size_t got = std::fread(buffer_.get() + (end_ - begin_), 1, kBufferSize - static_cast<size_t>(end_ - begin_), file_);
    if (got == 0) {
      if (std::ferror(file_)) failed_ = true;
      return nullptr;
    }
    end_ += got;
  }
  return pos_;
}

size_t TvfInput::SkipSlow(size_t size) {
  size_t done = 0;
  while (done < size) {
    if (pos_ == end_ && !Refill()) break;
    size_t n = std::min(size - done, static_cast<size_t>(end_ - pos_));
    pos_ += n;
    done += n;
  }
  return done;
}

std::optional<uint64_t> TvfInput::RemainingBytes() const {
  if (!total_) return std::nullopt;
  uint64_t position = Position();
  return position >= *total_ ? 0 : *total_ - position;
}

}  // namespace vmp
