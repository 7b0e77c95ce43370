#include "map_server/wms/wms_capabilities.h"

#include "map_server/service/xml_writer.h"
#include "map_server/wms/wms_xml.h"

namespace vmp {

namespace {

const char* const kXlinkNamespace = "http://www.w3.org/1999/xlink";

class CapabilitiesWriter {
 public:
  CapabilitiesWriter(WmsVersion version, const WmsServiceInfo& service, std::string& out)
      : v130_(version == WmsVersion::k130), service_(service), xml_(out) {}

  void Write(const std::vector<WmsLayer>& layers) {
    std::string root_attributes = v130_ ? "version=\"1.3.0\"" : "version=\"1.1.1\"";
    if (service_.update_sequence) {
      root_attributes += " updateSequence=\"" + XmlEscape(*service_.update_sequence) + '"';
    }
    if (v130_) {
      root_attributes += std::string(" xmlns=\"http://www.opengis.net/wms\" xmlns:xlink=\"") + kXlinkNamespace +
                         "\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\""
                         "http://www.opengis.net/wms http://schemas.opengis.net/wms/1.3.0/capabilities_1_3_0.xsd\"";
    } else {
      xml_.TextLine("<!DOCTYPE WMT_MS_Capabilities SYSTEM "
                    "\"http://schemas.opengis.net/wms/1.1.1/WMS_MS_Capabilities.dtd\">");
    }
    const char* root = v130_ ? "WMS_Capabilities" : "WMT_MS_Capabilities";
    xml_.Open(root, root_attributes.c_str());
    WriteService();
    xml_.Open("Capability");
    WriteRequests();
    xml_.Open("Exception");
    for (const char* format : v130_ ? kExceptions130 : kExceptions111) xml_.TextElement("Format", format);
    xml_.Close("Exception");
    WriteLayers(layers);
    xml_.Close("Capability");
    xml_.Close(root);
  }

 private:
  static constexpr const char* kExceptions130[3] = {"XML", "INIMAGE", "BLANK"};
  static constexpr const char* kExceptions111[3] = {
      "application/vnd.ogc.se_xml", "application/vnd.ogc.se_inimage", "application/vnd.ogc.se_blank"};

  void OnlineResource() {
    std::string attributes;
    // 1.1.1 declares the xlink namespace on each OnlineResource, as its DTD does.
    if (!v130_) attributes = std::string("xmlns:xlink=\"") + kXlinkNamespace + "\" ";
    attributes += "xlink:type=\"simple\" xlink:href=\"" + XmlEscape(service_.online_resource) + "\"/";
    xml_.Empty("OnlineResource", attributes.c_str());
  }

  void WriteService() {
    xml_.Open("Service");
    xml_.TextElement("Name", v130_ ? "WMS" : "OGC:WMS");
    xml_.TextElement("Title", XmlEscape(service_.title));
    std::string abstract;
    for (const std::string& line : service_.abstract_lines) {
      if (!abstract.empty()) abstract += '\n';
      abstract += line;
    }
    if (!abstract.empty()) xml_.TextElement("Abstract", XmlEscape(abstract));
    OnlineResource();
    if (v130_) {
      xml_.IntegerElement("MaxWidth", static_cast<long>(service_.limits.max_width));
      xml_.IntegerElement("MaxHeight", static_cast<long>(service_.limits.max_height));
    }
    xml_.Close("Service");
  }

  void Operation(const char* name, std::initializer_list<const char*> formats) {
    xml_.Open(name);
    for (const char* format : formats) xml_.TextElement("Format", format);
    xml_.Open("DCPType");
    xml_.Open("HTTP");
    xml_.Open("Get");
    OnlineResource();
    xml_.Close("Get");
    xml_.Close("HTTP");
    xml_.Close("DCPType");
    xml_.Close(name);
  }

  void WriteRequests() {
    xml_.Open("Request");
    Operation("GetCapabilities", {v130_ ? "text/xml" : "application/vnd.ogc.wms_xml"});
    Operation("GetMap", {"image/jpeg", "image/png"});
    Operation("GetFeatureInfo", {"text/plain", "text/xml", "application/vnd.ogc.gml"});
    xml_.Close("Request");
  }

  void Bounds(const Box& b) {
    const std::string w = FormatNumber(b.min_lon), e = FormatNumber(b.max_lon);
    const std::string s = FormatNumber(b.min_lat), n = FormatNumber(b.max_lat);
    if (v130_) {
      xml_.Open("EX_GeographicBoundingBox");
      xml_.TextElement("westBoundLongitude", w);
      xml_.TextElement("eastBoundLongitude", e);
      xml_.TextElement("southBoundLatitude", s);
      xml_.TextElement("northBoundLatitude", n);
      xml_.Close("EX_GeographicBoundingBox");
      BoundingBox("CRS=\"CRS:84\"", w, s, e, n);
      BoundingBox("CRS=\"EPSG:4326\"", s, w, n, e);  // latitude first
    } else {
      const std::string box = "minx=\"" + w + "\" miny=\"" + s + "\" maxx=\"" + e + "\" maxy=\"" + n + "\"/";
      xml_.Empty("LatLonBoundingBox", box.c_str());
      BoundingBox("SRS=\"EPSG:4326\"", w, s, e, n);
    }
  }

  void BoundingBox(const char* crs, const std::string& minx, const std::string& miny, const std::string& maxx,
            const std::string& maxy) {
    const std::string attributes = std::string(crs) + " minx=\"" + minx + "\" miny=\"" + miny + "\" maxx=\"" +
                                   maxx + "\" maxy=\"" + maxy + "\"/";
    xml_.Empty("BoundingBox", attributes.c_str());
  }

  void WriteLayers(const std::vector<WmsLayer>& layers) {
    xml_.Open("Layer");
    xml_.TextElement("Title", XmlEscape(service_.title));
    const char* crs_element = v130_ ? "CRS" : "SRS";
    static constexpr const char* kCrs130[3] = {"CRS:84", "EPSG:4326", "AUTO2:42003"};
    static constexpr const char* kSrs111[3] = {"EPSG:4326", "CRS:84", "AUTO:42003"};
    for (const char* crs : v130_ ? kCrs130 : kSrs111) xml_.TextElement(crs_element, crs);
    Bounds(UnionExtent(layers));
    for (const WmsLayer& layer : layers) {
      xml_.Open("Layer", layer.queryable ? "queryable=\"1\"" : nullptr);
      xml_.TextElement("Name", XmlEscape(layer.name));
      xml_.TextElement("Title", XmlEscape(layer.name));
      if (layer.alias != nullptr) {
        xml_.TextElement("Abstract", XmlEscape("Group of layers: " + layer.alias->layers));
      }
      Bounds(layer.extent);
      xml_.Close("Layer");
    }
    xml_.Close("Layer");
  }

  bool v130_;
  const WmsServiceInfo& service_;
  XmlWriter xml_;
};

}  // namespace

std::string FormatWmsCapabilities(WmsVersion version, const WmsServiceInfo& service,
                                  const std::vector<WmsLayer>& layers) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  CapabilitiesWriter(version, service, out).Write(layers);
  return out;
}

}  // namespace vmp
