#include "map_server/wms/wms_feature_info.h"

#include "map_server/geometry/map_geometry.h"
#include "map_server/service/query_execution.h"
#include "map_server/wms/wms_xml.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

const std::vector<SelectedFeature>* FeaturesOf(const std::vector<SelectionLayer>& found, const std::string& name) {
  for (const SelectionLayer& layer : found) {
    if (layer.name == name && !layer.selections.empty()) return &layer.selections.front().features;
  }
  return nullptr;
}

bool SameFeature(const SelectedFeature& a, const SelectedFeature& b) {
  return a.id == b.id && a.type == b.type && a.lat == b.lat && a.lon == b.lon;
}

void AddFeatures(std::vector<SelectedFeature>& to, const std::vector<SelectedFeature>* from, int64_t limit) {
  if (from == nullptr) return;
  for (const SelectedFeature& feature : *from) {
    if (static_cast<int64_t>(to.size()) >= limit) return;
    bool known = false;
    for (const SelectedFeature& f : to) known = known || SameFeature(f, feature);
    if (!known) to.push_back(feature);
  }
}

// A name usable as an XML element name: letters, digits, "_", "-" and
// "." (ASCII), starting with a letter or "_"; anything else becomes "_",
// and a name that would start otherwise gets `prefix`.
std::string ElementName(const std::string& name, const char* prefix) {
  std::string out;
  for (char c : name) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    const bool other = (c >= '0' && c <= '9') || c == '-' || c == '.';
    out += letter || other ? c : '_';
  }
  const bool starts_well = !out.empty() && ((out[0] >= 'a' && out[0] <= 'z') || (out[0] >= 'A' && out[0] <= 'Z') ||
                                            out[0] == '_');
  bool reserved = out.size() >= 3 && (out[0] == 'x' || out[0] == 'X') && (out[1] == 'm' || out[1] == 'M') &&
                  (out[2] == 'l' || out[2] == 'L');
  return starts_well && !reserved ? out : prefix + out;
}

const char* TypeLetter(ValueType type) {
  switch (type) {
    case ValueType::kString: return "S";
    case ValueType::kDouble: return "D";
    case ValueType::kGeo: return "G";
    default: return "undefined";
  }
}

std::string ValueText(const TypedValue& value) {
  switch (value.type) {
    case ValueType::kString: return value.text.value_or("undefined");
    case ValueType::kDouble: return FormatNumber(value.numbers[0]);
    case ValueType::kGeo:
      return FormatNumber(value.numbers[0]) + " " + FormatNumber(value.numbers[1]) + " " +
             FormatNumber(value.numbers[2]);
    default: return "undefined";
  }
}

std::string FeatureType(const SelectedFeature& f) { return f.type.value_or("undefined"); }
std::string FeatureId(const SelectedFeature& f) { return f.id.value_or("undefined"); }

std::string FormatText(const std::vector<WmsFeatureLayer>& layers) {
  std::string out = "GetFeatureInfo results\n";
  if (layers.empty()) out += "No features found\n";
  for (const WmsFeatureLayer& layer : layers) {
    out += "Layer '" + layer.name + "'\n";
    for (const SelectedFeature& f : layer.features) {
      out += "  Feature " + FeatureId(f) + " (" + FeatureType(f) + ") at lon " + FormatNumber(f.lon) + ", lat " +
             FormatNumber(f.lat) + "\n";
      for (const SelectedAttribute& a : f.attributes) {
        const bool quoted = a.value.type == ValueType::kString && a.value.text;
        out += "    " + a.name + " = ";
        if (quoted) out += '\'';
        out += ValueText(a.value);
        if (quoted) out += '\'';
        out += '\n';
      }
    }
  }
  return out;
}

std::string FormatXml(const std::vector<WmsFeatureLayer>& layers) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<FeatureInfoResponse>\n";
  for (const WmsFeatureLayer& layer : layers) {
    out += "  <Layer name=\"" + XmlEscape(layer.name) + "\">\n";
    for (const SelectedFeature& f : layer.features) {
      out += "    <Feature id=\"" + XmlEscape(FeatureId(f)) + "\" type=\"" + XmlEscape(FeatureType(f)) +
             "\" lon=\"" + FormatNumber(f.lon) + "\" lat=\"" + FormatNumber(f.lat) + "\">\n";
      for (const SelectedAttribute& a : f.attributes) {
        out += "      <Attribute name=\"" + XmlEscape(a.name) + "\" type=\"" + TypeLetter(a.value.type) + "\">" +
               XmlEscape(ValueText(a.value)) + "</Attribute>\n";
      }
      out += "    </Feature>\n";
    }
    out += "  </Layer>\n";
  }
  return out + "</FeatureInfoResponse>\n";
}

std::string FormatGml(const std::vector<WmsFeatureLayer>& layers) {
  std::string out =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<gml:FeatureCollection xmlns:gml=\"http://www.opengis.net/gml\" xmlns:vmp=\"urn:x-vmp:wms:features\">\n";
  for (const WmsFeatureLayer& layer : layers) {
    const std::string element = "vmp:" + ElementName(layer.name, "layer_");
    for (const SelectedFeature& f : layer.features) {
      out += "  <gml:featureMember>\n";
      out += "    <" + element + " fid=\"" + XmlEscape(layer.name + "." + FeatureId(f)) + "\">\n";
      for (const SelectedAttribute& a : f.attributes) {
        const std::string name = "vmp:" + ElementName(a.name, "attr_");
        out += "      <" + name + ">" + XmlEscape(ValueText(a.value)) + "</" + name + ">\n";
      }
      out += "      <vmp:location><gml:Point srsName=\"EPSG:4326\"><gml:coordinates>" + FormatNumber(f.lon) + "," +
             FormatNumber(f.lat) + "</gml:coordinates></gml:Point></vmp:location>\n";
      out += "    </" + element + ">\n  </gml:featureMember>\n";
    }
  }
  return out + "</gml:FeatureCollection>\n";
}

}  // namespace

std::vector<WmsFeatureLayer> FeaturesAtPixel(MapRequest& map, double i, double j, int64_t per_layer) {
  const std::vector<SelectionLayer> on_pixel = SelectFeatures(map, i, j, 0.0);
  const std::vector<SelectionLayer> around = SelectFeatures(map, i, j, kDefaultSearchRadius);
  std::vector<WmsFeatureLayer> layers;
  auto add_layer = [&](const std::string& name) {
    for (const WmsFeatureLayer& l : layers) {
      if (l.name == name) return;
    }
    WmsFeatureLayer layer{name, {}};
    AddFeatures(layer.features, FeaturesOf(on_pixel, name), per_layer);
    AddFeatures(layer.features, FeaturesOf(around, name), per_layer);
    if (!layer.features.empty()) layers.push_back(std::move(layer));
  };
  // Selection order; then the fallback layers, which answer under their own names.
  for (const SelectedLayer& l : map.layers) add_layer(l.name);
  for (const SelectionLayer& l : on_pixel) add_layer(l.name);
  for (const SelectionLayer& l : around) add_layer(l.name);
  return layers;
}

const char* InfoContentType(WmsInfoFormat format) {
  switch (format) {
    case WmsInfoFormat::kXml: return "text/xml";
    case WmsInfoFormat::kGml: return "application/vnd.ogc.gml";
    default: return "text/plain";
  }
}

std::string FormatFeatureInfo(WmsInfoFormat format, const std::vector<WmsFeatureLayer>& layers) {
  switch (format) {
    case WmsInfoFormat::kXml: return FormatXml(layers);
    case WmsInfoFormat::kGml: return FormatGml(layers);
    default: return FormatText(layers);
  }
}

}  // namespace vmp
