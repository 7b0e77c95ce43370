// The one message log of the process.
//
// Every module of the map server and of the data tools reports through
// VmpError (or the Report helpers below); the toolkit side reports through
// KavError. Both hand their text to a replaceable handler, append to a log
// file outside CGI mode, and VmpError also counts errors and collects every
// message in ImageErrors once the map service has started.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kav {

enum Severity : int {
  kInternalError = 0,
  kError = 1,
  kWarning = 2,
  kInfo = 3,
  kStatus = 4,
};

// Receives the finished message text and its severity.
using MessageHandler = std::function<void(const char* text, int severity)>;

// Process-wide state of the log. Set up by the driver before any work.
struct MessageLog {
  int64_t verbosity = 0;    // positive: more status lines; -2 and less: timing lines
  int64_t debug_code = 0;   // diagnostic code moved out of a verbosity >= 1000
  int64_t error_count = 0;  // messages of severity 0 and 1 since last cleared
  bool console = true;      // print to standard error (always so in this program)
  bool cgi = false;         // serving a CGI request: no log files
  bool fcgi = false;        // never set on this platform
  MessageHandler vmp_handler;  // empty: the console handler
  MessageHandler kav_handler;  // empty: the toolkit's console handler
  // Created when the map service first starts; every VmpError message is
  // appended to it from then on.
  std::optional<std::vector<std::string>> image_errors;
};

MessageLog& Messages();

// The toolkit's reporting function; `file` may be null.
void KavError(const char* message, int severity, int line = 0, const char* file = nullptr);
// Installs a toolkit handler (empty restores the default); returns the old one.
MessageHandler KavSetErrorHandler(MessageHandler handler);
// The toolkit's default handler: the text and a line end on standard error.
void KavConsoleHandler(const char* text, int severity);

// Word printed for a severity ("Internal Error" ... "Status"), or null.
const char* SeverityWord(int severity);

}  // namespace kav

namespace vmp {

using kav::kError;
using kav::kInfo;
using kav::kInternalError;
using kav::kStatus;
using kav::kWarning;

// The map server's reporting function: `message` may be null (printed
// "null"), `detail` and `number` are optional.
void VmpError(const char* message, const char* detail, const double* number, int severity);
// Installs a handler (empty restores the console handler); returns the old one.
kav::MessageHandler VmpSetErrorHandler(kav::MessageHandler handler);
// The default handler: severities 0 to 4 go to standard error with a line end.
void VmpConsoleHandler(const char* text, int severity);

// Everyday forms of VmpError.
void Report(int severity, std::string_view message);
void Report(int severity, std::string_view message, std::string_view detail);
void ReportNumber(int severity, std::string_view message, double number);
void ReportNumber(int severity, std::string_view message, std::string_view detail, double number);

// The plain text VmpError builds (without the "VmpMap: " prefix).
std::string FormatMessageText(const char* message, const char* detail, const double* number,
                              int severity);

inline int64_t Verbosity() { return kav::Messages().verbosity; }

}  // namespace vmp
