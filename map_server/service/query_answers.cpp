#include "map_server/service/query_answers.h"

#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/rendering/tile_sampler.h"
#include "map_server/service/xml_writer.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

const char* Header(const AnswerFormat& format) {
  if (!format.cgi) return "";
  return format.xml ? "Content-Type: text/xml\n\n" : "Content-Type: text/plain\n\n";
}

const char* Or(const std::optional<std::string>& text) { return text ? text->c_str() : "undefined"; }

const char* TypeWord(ValueType type) {
  switch (type) {
    case ValueType::kString: return "S";
    case ValueType::kDouble: return "D";
    case ValueType::kGeo: return "G";
    default: return "undefined";
  }
}

void AttributeXml(XmlWriter& xml, const SelectedAttribute& a) {
  xml.Open("Attribute");
  xml.TextElement("Name", a.name);
  xml.TextElement("Type", TypeWord(a.value.type));
  switch (a.value.type) {
    case ValueType::kString: xml.TextElement("ValueS", Or(a.value.text)); break;
    case ValueType::kDouble: xml.NumberElement("ValueD", a.value.numbers[0]); break;
    case ValueType::kGeo:
      xml.Open("ValueG");
      xml.NumberElement("X", a.value.numbers[0]);
      xml.NumberElement("Y", a.value.numbers[1]);
      xml.NumberElement("X", a.value.numbers[2]);  // the third value is tagged X as well
      xml.Close("ValueG");
      break;
    default: break;
  }
  xml.Close("Attribute");
}

std::string AttributeText(const SelectedAttribute& a) {
  const char* name = a.name.c_str();
  const auto& n = a.value.numbers;
  switch (a.value.type) {
    case ValueType::kString: return kav::StrPrintf("S attribute <%s> = <%s>\n", name, Or(a.value.text));
    case ValueType::kDouble: return kav::StrPrintf("D attribute <%s> = <%lf>\n", name, n[0]);
    case ValueType::kGeo: return kav::StrPrintf("G attribute <%s> = <%lf %lf %lf>\n", name, n[0], n[1], n[2]);
    default: return kav::StrPrintf("U Attribute <%s> = <undefined>\n", name);
  }
}

std::string SelectionXml(std::span<const SelectionLayer> layers) {
  std::string out;
  XmlWriter xml(out);
  xml.Open("VmpSelectionData");
  for (const SelectionLayer& layer : layers) {
    xml.Open("Layer");
    xml.TextElement("Name", layer.name);
    for (const Selection& selection : layer.selections) {
      xml.Open("Selection");
      xml.TextElement("SelectionType", Or(selection.type));
      for (const SelectedFeature& f : selection.features) {
        xml.Open("Feature");
        xml.TextElement("FeatureType", Or(f.type));
        xml.TextElement("FeatureID", Or(f.id));
        xml.Open("Location");
        xml.NumberElement("Lat", f.lat);
        xml.NumberElement("Lon", f.lon);
        xml.Close("Location");
        xml.Open("Attributes");
        xml.IntegerElement("NumAttributes", static_cast<long>(f.attributes.size()));
        for (const SelectedAttribute& a : f.attributes) AttributeXml(xml, a);
        xml.Close("Attributes");
        xml.Close("Feature");
      }
      xml.Close("Selection");
    }
    xml.Close("Layer");
  }
  xml.Close("VmpSelectionData");
  return out;
}

std::string SelectionText(std::span<const SelectionLayer> layers) {
  std::string out = "VmpSelectionData\n";
  for (const SelectionLayer& layer : layers) {
    out += kav::StrPrintf("Layer: <%s>\n", layer.name.c_str());
    for (const Selection& selection : layer.selections) {
      out += "  Selection\n";
      out += kav::StrPrintf("    SelectionType: <%s>\n", Or(selection.type));
      for (const SelectedFeature& f : selection.features) {
        out += "    Feature\n";
        out += kav::StrPrintf("      FeatureType: <%s>\n", Or(f.type));
        out += kav::StrPrintf("      FeatureID: <%s>\n", Or(f.id));
        out += kav::StrPrintf("      Location: <%lf %lf>\n", f.lon, f.lat);
        out += "      Attributes\n";
        out += kav::StrPrintf("        NumAttributes: <%ld>\n", static_cast<long>(f.attributes.size()));
        for (const SelectedAttribute& a : f.attributes) out += "        " + AttributeText(a);
        out += "      Attributes End\n";
        out += "    Feature End\n";
      }
      out += "  Selection End\n";
    }
    out += "Layer End\n";
  }
  out += "VmpSelectionData End\n";
  return out;
}

}  // namespace

std::string FormatLatLonAnswer(const AnswerFormat& format, bool on_map, double lat, double lon) {
  if (!on_map) lat = lon = kInvalidCoordinate;
  const char* exception = on_map ? "None" : "OutsideException";
  std::string out = Header(format);
  if (!format.xml) return out + kav::StrPrintf("QueryException=%s\nLat=%lf\nLon=%lf\n", exception, lat, lon);
  XmlWriter xml(out);
  xml.Open("VmpLatLonData");
  xml.TextElement("QueryException", exception);
  xml.NumberElement("Lat", lat);
  xml.NumberElement("Lon", lon);
  xml.Close("VmpLatLonData");
  return out;
}

std::string FormatElevationAnswer(const AnswerFormat& format, std::optional<double> elevation) {
  const char* exception = elevation ? "None" : "NoDataException";
  const double value = elevation.value_or(kNoElevation);
  std::string out = Header(format);
  if (!format.xml) return out + kav::StrPrintf("QueryException=%s\nElevation=%lf\n", exception, value);
  XmlWriter xml(out);
  xml.Open("VmpElevationData");
  xml.TextElement("QueryException", exception);
  xml.NumberElement("Elevation", value);
  xml.Close("VmpElevationData");
  return out;
}

std::string FormatSelectionAnswer(const AnswerFormat& format, std::span<const SelectionLayer> layers) {
  return Header(format) + (format.xml ? SelectionXml(layers) : SelectionText(layers));
}

void WriteAnswer(std::FILE* out, const std::string& answer) {
  std::fwrite(answer.data(), 1, answer.size(), out);
  std::fflush(out);
}

LatLonPoint FeatureInfoLocation(const MapGeometry& g, double i, double j) {
  const double row = g.projection == kOrthographicProjection ? static_cast<double>(g.height) - j - 1.0 : j;
  return PixelToLatLon(g, i, row);
}

bool LocationOnMap(const MapGeometry& g, double lat, double lon) {
  if (!std::isfinite(lat) || !std::isfinite(lon)) return false;
  const bool orthographic = g.projection == kOrthographicProjection;
  for (double shift : {0.0, 360.0, -360.0}) {
    const PixelPoint p = LatLonToPixel(g, lat, lon + shift);
    if (!(p.z >= 0.0)) {
      if (orthographic) return false;
      continue;
    }
    if (p.x >= g.min_x_d - 0.5 && p.x < g.max_x_d + 0.5 && p.y >= g.min_y_d - 0.5 && p.y < g.max_y_d + 0.5) {
      return true;
    }
    if (orthographic) return false;
  }
  return false;
}

}  // namespace vmp
