// The standard WMS endpoint as a CGI program: the request from QUERY_STRING,
// the answer with its Content-Type header on standard output. Run by hand,
// "wms -query 'SERVICE=WMS&REQUEST=...'" writes the bare answer instead.
// Configuration: map_server/wms/wms_service.h.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "map_server/wms/wms_service.h"
#include "toolkit/message_log.h"

int main(int argc, char** argv) {
  // Messages go to standard error (the web server's error log), never to
  // log files beside the program.
  kav::Messages().console = true;
  kav::Messages().cgi = true;
  vmp::VmpSetErrorHandler(vmp::VmpConsoleHandler);
  kav::KavSetErrorHandler(kav::KavConsoleHandler);

  const bool by_hand = argc == 3 && std::strcmp(argv[1], "-query") == 0;
  if (argc > 1 && !by_hand) {
    std::fputs("usage: wms [-query 'KEY=VALUE&...']  (as a CGI program: QUERY_STRING)\n", stderr);
    return 1;
  }
  const char* query = by_hand ? argv[2] : std::getenv("QUERY_STRING");
  const vmp::WmsAnswer answer = vmp::AnswerWmsRequest(query != nullptr ? query : "", vmp::WmsConfigFromEnvironment());
  if (!by_hand) {
    std::printf("Content-Type: %s\r\nContent-Length: %zu\r\n\r\n", answer.content_type.c_str(), answer.body.size());
  }
  std::fwrite(answer.body.data(), 1, answer.body.size(), stdout);
  std::fflush(stdout);
  return answer.exception ? 1 : 0;
}
