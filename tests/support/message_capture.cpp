#include "tests/support/message_capture.h"

namespace vmp::test {

MessageCapture::MessageCapture() : saved_(kav::Messages()) {
  // Messages recorded here must not end up in log files of the test's
  // working directory: behave as a CGI process does.
  kav::Messages().cgi = true;
  previous_vmp_ = VmpSetErrorHandler([this](const char* text, int severity) {
    messages_.push_back({text, severity, false});
  });
  previous_kav_ = kav::KavSetErrorHandler([this](const char* text, int severity) {
    messages_.push_back({text, severity, true});
  });
}

MessageCapture::~MessageCapture() {
  VmpSetErrorHandler(std::move(previous_vmp_));
  kav::KavSetErrorHandler(std::move(previous_kav_));
  kav::MessageLog& log = kav::Messages();
  log.verbosity = saved_.verbosity;
  log.debug_code = saved_.debug_code;
  log.error_count = saved_.error_count;
  log.cgi = saved_.cgi;
  log.fcgi = saved_.fcgi;
}

std::vector<std::string> MessageCapture::Texts() const {
  std::vector<std::string> out;
  const std::string prefix = "VmpMap: ";
  for (const CapturedMessage& m : messages_) {
    out.push_back(m.text.compare(0, prefix.size(), prefix) == 0 ? m.text.substr(prefix.size())
                                                                : m.text);
  }
  return out;
}

bool MessageCapture::Contains(std::string_view fragment) const { return Count(fragment) > 0; }

size_t MessageCapture::Count(std::string_view fragment) const {
  size_t n = 0;
  for (const CapturedMessage& m : messages_) {
    if (m.text.find(fragment) != std::string::npos) ++n;
  }
  return n;
}

}  // namespace vmp::test
