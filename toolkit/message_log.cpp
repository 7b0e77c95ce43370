#include "toolkit/message_log.h"

#include <cmath>
#include <cstdio>

#include "toolkit/environment.h"
#include "toolkit/global_config.h"
#include "toolkit/strings.h"

namespace kav {

namespace {

constexpr size_t kFieldLimit = 1024;

void AppendToFile(const std::string& path, const std::string& text) {
  FILE* file = std::fopen(path.c_str(), "a+");
  if (file == nullptr) return;  // logging never fails visibly
  std::fwrite(text.data(), 1, text.size(), file);
  std::fclose(file);
}

std::string InDirectory(const std::optional<std::string>& dir, const char* name) {
  if (!dir) return name;
  std::string path = *dir;
  if (!path.empty() && path.back() != '/' && path.back() != '\\') path += '/';
  return path + name;
}

}  // namespace

MessageLog& Messages() {
  static MessageLog log;
  return log;
}

const char* SeverityWord(int severity) {
  static const char* const kWords[] = {"Internal Error", "Error", "Warning", "Info", "Status"};
  if (severity < 0 || severity > 4) return nullptr;
  return kWords[severity];
}

void KavConsoleHandler(const char* text, int severity) {
  std::fprintf(stderr, "%s\n", text);
  std::fflush(stderr);
}

MessageHandler KavSetErrorHandler(MessageHandler handler) {
  MessageHandler previous = std::move(Messages().kav_handler);
  Messages().kav_handler = std::move(handler);
  return previous;
}

void KavError(const char* message, int severity, int line, const char* file) {
  MessageLog& log = Messages();
  const char* prefix = "";
  if (severity == kInternalError) prefix = "Internal Error: ";
  else if (severity == kWarning) prefix = "Warning: ";
  else if (severity == kInfo) prefix = "Info: ";
  std::string text = std::string(prefix) + (message ? message : "null");

  bool custom = static_cast<bool>(log.kav_handler);
  if (custom) log.kav_handler(text.c_str(), severity);
  else KavConsoleHandler(text.c_str(), severity);

  if (log.cgi || log.fcgi) return;
  if (custom && severity != kInternalError) return;
  std::optional<std::string> dir = GetVersionedEnv("KAV_LOG_DIR");
  if (!dir) dir = Config().toolkit_dir;
  if (!dir) dir = GetVersionedEnv("KAV_DIR");
  std::string entry = file ? StrPrintf("\nFile %s, line %d: %s\n", file, line, text.c_str())
                           : StrPrintf("\n%s\n", text.c_str());
  AppendToFile(InDirectory(dir, "kav_error.log"), entry);
}

}  // namespace kav

namespace vmp {

using kav::Cut;
using kav::Messages;

std::string FormatMessageText(const char* message, const char* detail, const double* number,
                              int severity) {
  const char* word = kav::SeverityWord(severity);
  std::string text(Cut(word ? word : "Unknown", kav::kFieldLimit));
  text += ": ";
  text += Cut(message ? message : "null", kav::kFieldLimit);
  if (detail != nullptr) {
    text += ": ";
    text += Cut(detail, kav::kFieldLimit);
  }
  if (number != nullptr) {
    double value = *number;
    // Integral values print as integers; the range test keeps the
    // conversion defined for huge values, infinities and NaN.
    bool integral = std::isfinite(value) && value >= -9.2233720368547758e18 &&
                    value < 9.2233720368547758e18 &&
                    static_cast<double>(static_cast<int64_t>(value)) == value;
    text += integral ? kav::StrPrintf(": %ld", static_cast<long>(value))
                     : kav::StrPrintf(": %lf", value);
  }
  return text;
}

void VmpConsoleHandler(const char* text, int severity) {
  if (severity < 0 || severity > 4) return;
  std::fprintf(stderr, "%s\n", text);
  std::fflush(stderr);
}

kav::MessageHandler VmpSetErrorHandler(kav::MessageHandler handler) {
  kav::MessageHandler previous = std::move(Messages().vmp_handler);
  Messages().vmp_handler = std::move(handler);
  return previous;
}

void VmpError(const char* message, const char* detail, const double* number, int severity) {
  kav::MessageLog& log = Messages();
  if (severity == kInternalError || severity == kError) ++log.error_count;

  std::string plain = FormatMessageText(message, detail, number, severity);
  std::string prefixed = "VmpMap: " + plain;

  bool custom = static_cast<bool>(log.vmp_handler);
  if (custom) log.vmp_handler(prefixed.c_str(), severity);
  else VmpConsoleHandler(prefixed.c_str(), severity);

  bool write_file = severity != kStatus && !log.cgi && !log.fcgi &&
                    !(custom && severity != kInternalError);
  if (write_file) {
    std::optional<std::string> dir = kav::GetVersionedEnv("VMP_LOG_DIR");
    if (!dir) dir = kav::GetVersionedEnv("KAV_LOG_DIR");
    if (!dir) dir = kav::GetVersionedEnv("KAV_DIR");
    kav::AppendToFile(kav::InDirectory(dir, "vmp_error.log"), prefixed + "\n");
  }

  if (log.image_errors) log.image_errors->push_back(std::move(plain));
}

void Report(int severity, std::string_view message) {
  std::string m(message);
  VmpError(m.c_str(), nullptr, nullptr, severity);
}

void Report(int severity, std::string_view message, std::string_view detail) {
  std::string m(message), d(detail);
  VmpError(m.c_str(), d.c_str(), nullptr, severity);
}

void ReportNumber(int severity, std::string_view message, double number) {
  std::string m(message);
  VmpError(m.c_str(), nullptr, &number, severity);
}

void ReportNumber(int severity, std::string_view message, std::string_view detail, double number) {
  std::string m(message), d(detail);
  VmpError(m.c_str(), d.c_str(), &number, severity);
}

}  // namespace vmp
