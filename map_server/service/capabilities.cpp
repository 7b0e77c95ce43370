#include "map_server/service/capabilities.h"

#include "toolkit/environment.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

constexpr const char* kServiceTitle = "KAV Map Server";
constexpr const char* kDefaultAbstract =
    "Map server answering OGC Web Map Service requests (GetMap, GetFeatureInfo, GetCapabilities).";

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (true) {
    size_t bar = text.find('|', start);
    lines.push_back(text.substr(start, bar - start));
    if (bar == std::string::npos) break;
    start = bar + 1;
  }
  return lines;
}

void OnlineResource(XmlWriter& xml, const std::string& address) {
  std::string attributes = "xlink:type=\"simple\" xlink:href=\"" + address + "\"/";
  xml.Empty("OnlineResource", attributes.c_str());
}

void RequestEntry(XmlWriter& xml, const char* request, const char* format,
                  const std::string& address) {
  xml.Open(request);
  xml.TextElement("Format", format);
  xml.Open("DCPType");
  xml.Open("HTTP");
  xml.Open("Get");
  OnlineResource(xml, address);
  xml.Close("Get");
  xml.Close("HTTP");
  xml.Close("DCPType");
  xml.Close(request);
}

}  // namespace

ServiceDescription DeploymentDescription() {
  ServiceDescription d;
  auto abstract = kav::GetEnv("VMP_SERVICE_ABSTRACT");
  d.abstract_lines = abstract ? SplitLines(*abstract) : std::vector<std::string>{kDefaultAbstract};
  auto address = kav::GetEnv("VMP_ONLINE_RESOURCE");
  if (!address) address = kav::CgiScriptAddress();
  d.online_resource = address.value_or("http://localhost/cgi-bin/map_server");
  return d;
}

void WriteLayerListingXml(XmlWriter& xml, const Dataset& dataset) {
  for (const auto& layer : dataset.layers) {
    xml.Open("Layer");
    xml.TextElement("Name", layer->name);
    xml.TextElement("Title", layer->name);
    xml.Close("Layer");
  }
  if (!dataset.aliases) return;
  for (const Alias& alias : *dataset.aliases) {
    xml.Open("Alias");
    xml.TextElement("Name", alias.name);
    xml.TextElement("Value", alias.layers);
    xml.NumberElement("MinZoom", alias.min_zoom);
    xml.NumberElement("MaxZoom", alias.max_zoom);
    xml.Close("Alias");
  }
}

std::string FormatLayerListingText(const Dataset& dataset) {
  std::string out;
  for (const auto& layer : dataset.layers) out += kav::StrPrintf("Layer: <%s>\n", layer->name.c_str());
  if (dataset.aliases) {
    for (const Alias& alias : *dataset.aliases) {
      out += kav::StrPrintf("Alias: name=<%s> value=<%s> min_zoom=%lf max_zoom=%lf\n",
                            alias.name.c_str(), alias.layers.c_str(), alias.min_zoom, alias.max_zoom);
    }
  }
  return out;
}

std::string FormatCapabilitiesXml(const Dataset* dataset, const ServiceDescription& service) {
  std::string out;
  XmlWriter xml(out);
  xml.Open("WMS_Capabilities", "version=\"1.3.0\"");

  xml.Open("Service");
  xml.TextElement("Name", "WMS");
  xml.TextElement("Title", kServiceTitle);
  xml.Open("Abstract");
  for (const std::string& line : service.abstract_lines) xml.TextLine(line);
  xml.Close("Abstract");
  xml.IntegerElement("MaxWidth", 10000);
  xml.IntegerElement("MaxHeight", 10000);
  OnlineResource(xml, service.online_resource);
  xml.Close("Service");

  xml.Open("Capability");
  xml.Open("Request");
  RequestEntry(xml, "GetCapabilities", "text/xml", service.online_resource);
  RequestEntry(xml, "GetMap", "image/jpeg", service.online_resource);
  RequestEntry(xml, "GetSelection", "text/xml", service.online_resource);
  RequestEntry(xml, "GetFeatureInfo", "text/xml", service.online_resource);
  RequestEntry(xml, "GetLocationInfo", "text/xml", service.online_resource);
  xml.Close("Request");
  xml.Open("Exception");
  for (const char* format : {"XML", "INIMAGE", "BLANK"}) xml.TextElement("Format", format);
  xml.Close("Exception");
  xml.Open("Layer");
  xml.TextElement("Title", kServiceTitle);
  for (const char* crs : {"CRS:84", "EPSG:4326", "AUTO:42003,9001", "AUTO2:42003"}) {
    xml.TextElement("CRS", crs);
  }
  xml.Comment("All layers are available in these CRSs");
  if (dataset != nullptr) WriteLayerListingXml(xml, *dataset);
  xml.Close("Layer");
  xml.Close("Capability");

  xml.Close("WMS_Capabilities");
  return out;
}

}  // namespace vmp
