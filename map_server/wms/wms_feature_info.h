// GetFeatureInfo: the features under a pixel, found by the selection
// machinery of the native GetSelection, and their answer as plain text, XML
// or GML.
#pragma once

#include <string>
#include <vector>

#include "map_server/dataset/map_request.h"
#include "map_server/service/query_answers.h"
#include "map_server/wms/wms_request.h"

namespace vmp {

struct WmsFeatureLayer {
  std::string name;
  std::vector<SelectedFeature> features;
};

// The features of the map's selected layers at pixel (i, j) (column and
// image row of the rendered map): first those drawn on the pixel itself,
// then those the native selection finds around it (its search box, the size
// of the default marker, so that point features are hit near their
// symbol), at most `per_layer` for each layer. Layers come in selection
// order; layers without a feature there are left out.
std::vector<WmsFeatureLayer> FeaturesAtPixel(MapRequest& map, double i, double j, int64_t per_layer);

// "text/plain", "text/xml" or "application/vnd.ogc.gml".
const char* InfoContentType(WmsInfoFormat format);

std::string FormatFeatureInfo(WmsInfoFormat format, const std::vector<WmsFeatureLayer>& layers);

}  // namespace vmp
