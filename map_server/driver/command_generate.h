// "-generate": the map server, answering one OGC request.
#pragma once

#include <optional>
#include <string>

#include "map_server/driver/command.h"

namespace vmp {

// VmpIterationMax may not be set below this.
inline constexpr double kMinIterationMax = 10000.0;

struct GenerateOptions {
  std::optional<std::string> dataset;
  bool cgi = false;
  bool fcgi = false;
  std::optional<double> iteration_max;
  std::optional<std::string> ogis_request;  // -oGISreq
  std::optional<std::string> output;
  // Set by the checks: the query string to answer (QUERY_STRING in CGI
  // mode, else the -oGISreq text).
  std::string query;
};

OptionTable GenerateOptionTable(GenerateOptions& options);

// Reads the options, then runs the checks in order: -fcgi refused; -cgi
// switches the log to CGI mode; a missing dataset, a too small
// -iteration-max (else stored in VmpIterationMax), a missing request are
// answered as service exceptions.
bool SetupGenerate(ArgList args, GenerateOptions& options);
int RunGenerate(const GenerateOptions& options);

// CGI mode of the log: the console handler installed in both logs, no log
// files.
void EnterCgiMode();

}  // namespace vmp
