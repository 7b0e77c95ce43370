// The standard WMS endpoint: one request answered per run, over the dataset
// the deployment names, through the same map service, layer selection,
// renderer and encoders as the native map server mode.
//
// Configuration, from the environment (a web server passes it to the CGI
// program, e.g. lighttpd's setenv.add-environment):
//   VMP_WMS_DATASET          dataset info file (required)
//   VMP_WMS_TITLE            service and root layer title ("KAV Map Server")
//   VMP_WMS_ABSTRACT         description, lines separated by "|" (else
//                            VMP_SERVICE_ABSTRACT, else one line)
//   VMP_WMS_ONLINE_RESOURCE  address clients send requests to (else the
//                            CGI address from SERVER_NAME, SERVER_PORT,
//                            SCRIPT_NAME and HTTPS, else
//                            "http://localhost/cgi-bin/wms")
//   VMP_WMS_MAX_SIZE         MaxWidth and MaxHeight, 1..10000 (4096)
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "map_server/wms/wms_capabilities.h"

namespace vmp {

struct WmsConfig {
  std::string dataset;
  WmsServiceInfo service;  // its update_sequence is filled per request
};

// The configuration described above; problems are reported and defaults used.
WmsConfig WmsConfigFromEnvironment();

// An address ready for parameters: "?" appended, or "&" when it already
// holds a query.
std::string RequestAddress(std::string_view address);

struct WmsAnswer {
  std::string content_type;
  std::string body;
  bool exception = false;  // an exception report or image
};

// Answers `query`, starting the map service for it and shutting it down
// afterwards.
WmsAnswer AnswerWmsRequest(std::string_view query, const WmsConfig& config);

}  // namespace vmp
