// Records every VmpError / KavError message while it lives, instead of
// printing them, and restores the previous handlers and log state after.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "toolkit/message_log.h"

namespace vmp::test {

struct CapturedMessage {
  std::string text;  // as handed to the handler ("VmpMap: Error: ..." for VmpError)
  int severity;
  bool from_toolkit;  // KavError rather than VmpError
};

class MessageCapture {
 public:
  MessageCapture();
  ~MessageCapture();
  MessageCapture(const MessageCapture&) = delete;
  MessageCapture& operator=(const MessageCapture&) = delete;

  const std::vector<CapturedMessage>& messages() const { return messages_; }
  // The VmpError texts without the "VmpMap: " prefix, e.g. "Error: Could not be opened: x".
  std::vector<std::string> Texts() const;
  // True when some captured text contains `fragment`.
  bool Contains(std::string_view fragment) const;
  // Number of captured texts containing `fragment`.
  size_t Count(std::string_view fragment) const;
  void Clear() { messages_.clear(); }

 private:
  std::vector<CapturedMessage> messages_;
  kav::MessageHandler previous_vmp_;
  kav::MessageHandler previous_kav_;
  kav::MessageLog saved_;
};

}  // namespace vmp::test
