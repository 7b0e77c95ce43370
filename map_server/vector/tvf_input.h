// Buffered byte input for the TVF reader: a large buffer refilled from a
// FILE* (file, pipe or temporary file alike) or a view of bytes in memory.
// The parsers work on the buffer directly; there are no per-byte stdio calls.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

namespace vmp {

class TvfInput {
 public:
  static constexpr int kEnd = -1;
  static constexpr size_t kBufferSize = size_t{1} << 18;

  // Reads from `file` (not owned, left open) from its current position.
  explicit TvfInput(FILE* file);
  // Reads the given bytes (not copied: they must outlive the input).
  explicit TvfInput(std::string_view bytes);
  TvfInput(const TvfInput&) = delete;
  TvfInput& operator=(const TvfInput&) = delete;

  // The next byte (0..255) without taking it, or kEnd.
  int Peek() {
    if (pos_ == end_ && !Refill()) return kEnd;
    return static_cast<unsigned char>(*pos_);
  }
  // Takes the byte that Peek returned (only after Peek gave a byte).
  void Advance() { ++pos_; }
  // The next byte, taken, or kEnd.
  int Get() {
    if (pos_ == end_ && !Refill()) return kEnd;
    return static_cast<unsigned char>(*pos_++);
  }
  // Takes up to `size` bytes into `out`; returns how many were taken.
  size_t Read(void* out, size_t size) {
    if (static_cast<size_t>(end_ - pos_) >= size) {
      std::memcpy(out, pos_, size);
      pos_ += size;
      return size;
    }
    return ReadSlow(static_cast<char*>(out), size);
  }
  // The next `size` bytes (at most kBufferSize) in one piece, without
  // taking them, or null when fewer remain. Take them with Consume.
  const char* Contiguous(size_t size) {
    if (static_cast<size_t>(end_ - pos_) >= size) return pos_;
    return ContiguousSlow(size);
  }
  // The bytes read ahead and not yet taken (empty at the end of the
  // buffer); take them with Consume.
  std::string_view Buffered() const { return {pos_, static_cast<size_t>(end_ - pos_)}; }
  // Takes `size` bytes that Contiguous or Buffered made available.
  void Consume(size_t size) { pos_ += size; }
  // Skips size bytes; returns how many were skipped.
  size_t Skip(size_t size) {
    if (static_cast<size_t>(end_ - pos_) >= size) {
      pos_ += size;
      return size;
    }
    return SkipSlow(size);
  }
  // Skips blanks, tabs, line breaks, vertical tabs and form feeds.
  void SkipSpace() {
    for (;;) {
      int c = Peek();
      if (c != ' ' && c != '\t' && c != '\n' && c != '\r' && c != '\v' && c != '\f') return;
      Advance();
    }
  }
  // True when no byte is left.
  bool AtEnd() { return Peek() == kEnd; }
  // A read error of the underlying stream (not end of input).
  bool Failed() const { return failed_; }

  // Bytes still to come when the source size is known (regular files and
  // memory), else nullopt (pipes). Used to size arrays only as far as the
  // input can fill them.
  std::optional<uint64_t> RemainingBytes() const;
  // Bytes taken so far.
  uint64_t Position() const { return consumed_before_ + static_cast<uint64_t>(pos_ - begin_); }

 private:
  bool Refill();
  size_t ReadSlow(char* out, size_t size);
  size_t SkipSlow(size_t size);
  const char* ContiguousSlow(size_t size);

  FILE* file_ = nullptr;
  std::unique_ptr<char[]> buffer_;
  const char* begin_ = nullptr;
  const char* pos_ = nullptr;
  const char* end_ = nullptr;
  uint64_t consumed_before_ = 0;  // bytes before begin_
  std::optional<uint64_t> total_;  // bytes from the start position to the end
  bool failed_ = false;
};

}  // namespace vmp
