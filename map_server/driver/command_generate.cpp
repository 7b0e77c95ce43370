#include "map_server/driver/command_generate.h"

#include <cstdio>
#include <cstdlib>

#include "map_server/service/request_execution.h"
#include "map_server/service/service_exception.h"
#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {

OptionTable GenerateOptionTable(GenerateOptions& o) {
  return {
      {"-verbosity", "verbosity", &kav::Messages().verbosity},
      {"-dataset", "dataset", &o.dataset, kPathBufferSize},
      {"-cgi", "", &o.cgi},
      {"-fcgi", "", &o.fcgi},
      {"-iteration-max", "iteration max", &o.iteration_max},
      {"-oGISreq", "openGIS request", &o.ogis_request, kRequestBufferSize},
      {"-output", "output", &o.output},
  };
}

void EnterCgiMode() {
  VmpSetErrorHandler(VmpConsoleHandler);
  kav::KavSetErrorHandler(kav::KavConsoleHandler);
  kav::Messages().cgi = true;
}

bool SetupGenerate(ArgList args, GenerateOptions& o) {
  if (!ParseOptions(args, GenerateOptionTable(o))) return false;
  if (o.fcgi) {
    std::fputs("-fcgi option is not supported on this platform\n", stderr);
    return false;
  }
  if (o.cgi) EnterCgiMode();
  if (!o.dataset) {
    WriteServiceException("Mandatory variable dataset is not set!");
    return false;
  }
  if (o.iteration_max) {
    if (*o.iteration_max < kMinIterationMax) {
      WriteServiceException("iteration_max is too small: min=10000.\n");
      return false;
    }
    kav::Config().vmp_iteration_max = *o.iteration_max;
  }
  if (!o.cgi) {
    if (!o.ogis_request) {
      WriteServiceException("Mandatory variable oGISreq not set in non-CGI mode!");
      return false;
    }
    o.query = *o.ogis_request;
  } else {
    // Only a missing variable counts; an empty query is the parser's to refuse.
    const char* query = std::getenv("QUERY_STRING");
    if (query == nullptr) {
      WriteServiceException("Missing QUERY_STRING environment variable in CGI mode!");
      return false;
    }
    o.query = query;
  }
  return true;
}

int RunGenerate(const GenerateOptions& o) {
  ServeOptions serve;
  serve.dataset = *o.dataset;
  serve.query = o.query;
  serve.output = o.output;
  serve.cgi = o.cgi;
  return ServeMapRequest(serve);
}

}  // namespace vmp
