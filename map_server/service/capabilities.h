// GetCapabilities: the WMS 1.3.0 capabilities document and the plain-text
// layer listing.
#pragma once

#include <string>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/service/xml_writer.h"

namespace vmp {

// Texts of the deployment that the capabilities document carries.
struct ServiceDescription {
  std::vector<std::string> abstract_lines;
  std::string online_resource;  // the address clients send requests to
};

// The deployment's description: "VMP_SERVICE_ABSTRACT" (lines separated by
// "|") and "VMP_ONLINE_RESOURCE"; without the latter, the address of this
// CGI program from SERVER_NAME, SERVER_PORT and SCRIPT_NAME, else
// "http://localhost/cgi-bin/map_server".
ServiceDescription DeploymentDescription();

// The document (without any CGI header). `dataset` may be null: the layer
// listing is then empty.
std::string FormatCapabilitiesXml(const Dataset* dataset, const ServiceDescription& service);

// One "Layer" element (Name, Title) per layer, then one "Alias" element
// (Name, Value, MinZoom, MaxZoom) per alias.
void WriteLayerListingXml(XmlWriter& xml, const Dataset& dataset);

// "Layer: <name>" lines, then "Alias: name=<..> value=<..> min_zoom=.. max_zoom=.." lines.
std::string FormatLayerListingText(const Dataset& dataset);

}  // namespace vmp
