// A standard GetMap or GetFeatureInfo map put into the server's own terms:
// the request type and the map parameters by name, as the native query
// parser produces them, so that the same pipeline draws and queries it.
//
// The axis conventions map onto each other exactly: a 1.3.0 EPSG:4326 box
// (latitude first) is read as the native CRS:84 box is, and a CRS:84 or
// 1.1.1 EPSG:4326 box (longitude first) as the native EPSG:4326 box is.
// AUTO:42003 and AUTO2:42003 become the orthographic projection around
// their centre, the box in metres.
//
// Two differences from the native reading make the image the box the
// standard describes: the map is stretched to the box (Stretch 1, no
// square-pixel correction), and the box's edges are the outer edges of the
// edge pixels (the native extent runs between the centres of the edge
// pixels, so it is the box shrunk by one pixel: extent x (W - 1) / W). A side
// of one pixel, which the renderer does not draw, is rendered three pixels
// wide around it and the middle one kept.
#pragma once

#include <cstdint>

#include "map_server/service/ogc_request.h"
#include "map_server/wms/wms_request.h"

namespace vmp {

struct NativeView {
  // kGetMap, or kGetSelection (features under a pixel) for GetFeatureInfo,
  // with "Projection", "CenterLon", "CenterLat", "HExtent", "VExtent",
  // "Width", "Height", "Stretch", "Background" (and "LocationI",
  // "LocationJ" for GetFeatureInfo).
  ParsedRequest request;
  int64_t render_width = 0;
  int64_t render_height = 0;
  // Where the requested image starts inside the rendered one.
  int64_t offset_x = 0;
  int64_t offset_y = 0;
};

NativeView TranslateView(const WmsRequest& request);

}  // namespace vmp
