// An output file that replaces its target only when it is complete.
//
// The bytes go to a temporary file beside the target ("<name>.tmp<pid>");
// Commit flushes, closes and renames it over the target, so a run that fails
// half-way (a write error, a broken input, a fatal stop) leaves any earlier
// file of that name untouched, and an output that is also one of the inputs
// is read whole before it is replaced. Dropping the object without a commit
// removes the temporary file.
//
// A target that exists and is not a regular file (a device such as
// /dev/null, a pipe) is written directly instead.
//
// The replaced file is a new file: a symbolic link at the target is replaced
// by a plain file rather than written through, and the target's permissions
// are those of a new file.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "map_server/vector/vector_data.h"

namespace vmp {

class ReplacingOutput {
 public:
  ReplacingOutput() = default;
  ~ReplacingOutput();
  ReplacingOutput(const ReplacingOutput&) = delete;
  ReplacingOutput& operator=(const ReplacingOutput&) = delete;
  ReplacingOutput(ReplacingOutput&& other) noexcept;
  ReplacingOutput& operator=(ReplacingOutput&& other) noexcept;

  // Opens the temporary file for `target` with a large stdio buffer. Logs
  // nothing; false when it cannot be created.
  bool Open(const std::string& target);
  // Open, then the TVF header in `format`; on failure logs "Could not open
  // output file" with the target's name.
  bool OpenTvf(const std::string& target, TvfFormat format);

  FILE* get() const { return file_; }
  bool is_open() const { return file_ != nullptr; }
  const std::string& target() const { return target_; }
  // True when a write has failed so far.
  bool Failed() const;

  // Flushes, closes and renames the file over the target; false (and the
  // temporary file removed) when any write, the close or the rename failed.
  bool Commit();
  // Closes and removes the temporary file.
  void Discard();

 private:
  FILE* file_ = nullptr;
  std::unique_ptr<char[]> buffer_;  // stdio buffer of file_
  std::string target_;
  std::string temporary_;
};

}  // namespace vmp
