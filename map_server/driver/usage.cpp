#include "map_server/driver/usage.h"

#include "toolkit/strings.h"

namespace vmp {

namespace {

// One line of a mode's group: an option with its value and what it does, or
// (option null) a sub-heading.
struct UsageLine {
  const char* option;
  const char* text;
};

struct UsageGroup {
  const char* mode_line;
  std::initializer_list<UsageLine> lines;
};

const char* const kHeader =
    "Usage: \n"
    "-version                  prints version information\n"
    "-arg-file file            filename to read command line args from\n"
    "-verbosity n              sets the verbosity level\n"
    "-progress n               reports progress every n files\n";

constexpr UsageLine kVectorOutputLines[] = {
    {"-a", "ASCII output (default)"},
    {"-b", "binary output"},
    {"-filter file", "filter command used to load the input"},
};

constexpr UsageLine kExtentLines[] = {
    {"-min-lat n", "minimum lattitude"},
    {"-max-lat n", "maximum lattitude"},
    {"-min-lon n", "minimum longitude"},
    {"-max-lon n", "maximum longitude"},
};

constexpr UsageLine kWrapLines[] = {
    {"-pos-range", "wraps longitudes at 0..360"},
    {"-neg-range", "wraps longitudes at -180..180"},
    {"-custom-range", "wraps longitudes at -min-wlon..-max-wlon"},
    {"-no-range", "no longitude wrapping (default)"},
    {"-min-wlon n", "minimum world longitude for -custom-range"},
    {"-max-wlon n", "maximum world longitude for -custom-range"},
};

std::string OptionLine(const UsageLine& line) {
  if (line.option == nullptr) return kav::StrPrintf("       %s\n", line.text);
  return kav::StrPrintf("          %-15s %s\n", line.option, line.text);
}

template <size_t N>
void AppendLines(std::string& text, const UsageLine (&lines)[N]) {
  for (const UsageLine& line : lines) text += OptionLine(line);
}

void AppendGroup(std::string& text, const UsageGroup& group) {
  text += "\n";
  text += group.mode_line;
  for (const UsageLine& line : group.lines) text += OptionLine(line);
}

}  // namespace

std::string UsageText() {
  std::string text = kHeader;

  AppendGroup(text, {"-generate [options]       command line map generation\n",
                     {
                         {"-verbosity n", "sets the verbosity level"},
                         {"-dataset file", "dataset file to use"},
                         {"-cgi", "CGI mode: the request comes from QUERY_STRING"},
                         {"-fcgi", "FastCGI mode (not supported on this platform)"},
                         {"-iteration-max", "Sets VmpIterationMax global configuration variable."},
                         {"-oGISreq req", "openGIS request (non-CGI mode)"},
                         {"-output file", "response file (non-CGI mode), - for standard output"},
                     }});

  AppendGroup(text, {"-tile     [options]       tiling utility\n",
                     {
                         {"-image", "tiles an image (first option)"},
                         {"-vector", "tiles vector data (first option)"},
                         {"-filename file", "input file"},
                         {"-template name", "output name template: first % column, second % row"},
                         {"-num-x-tiles n", "number of tile columns"},
                         {"-num-y-tiles n", "number of tile rows"},
                         {nullptr, "-image mode only:"},
                         {"-elevation", "16-bit elevation data (TIFF input and output)"},
                         {nullptr, "-vector mode only:"},
                     }});
  AppendLines(text, kVectorOutputLines);
  text += OptionLine({"-world-extent", "square tiling of the world"});
  text += OptionLine({"-tvf-extent", "tiling of the input file's extent"});
  AppendLines(text, kExtentLines);
  AppendLines(text, kWrapLines);

  AppendGroup(text, {"-split    [options]       vector data splitting\n",
                     {
                         {"-filename file", "input file"},
                         {"-output file", "output file, or output name template with -bbox"},
                     }});
  AppendLines(text, kVectorOutputLines);
  text += OptionLine({"-attr cond", "keeps matching features, e.g. \"@1>=1000 && @1<2000\"; repeatable"});
  text += OptionLine({"-invert-attr", "keeps the features that do not match"});
  text += OptionLine({"-num-points n", "cuts polylines into pieces of at most n points"});
  text += OptionLine({"-bbox", "cuts a rectangle, or a grid of tiles, out of the input"});
  text += OptionLine({"-num-x-tiles n", "tile columns for -bbox (default 1)"});
  text += OptionLine({"-num-y-tiles n", "tile rows for -bbox (default 1)"});
  text += OptionLine({"-world-extent", "-bbox covers the world"});
  text += OptionLine({"-tvf-extent", "-bbox covers the input file's extent"});
  AppendLines(text, kExtentLines);
  AppendLines(text, kWrapLines);

  AppendGroup(text, {"-merge    [options] files...   merges vector data files\n",
                     {
                         {"-output file", "merged file (required)"},
                         {"-a", "ASCII output (default)"},
                         {"-b", "binary output"},
                         {"-filter file", "filter command used to load the files"},
                     }});

  AppendGroup(text, {"-tvf-info [options] files...   prints bounding box of vector data files\n",
                     {}});

  AppendGroup(text, {"-convert  [options]       directory traversing tvf converter\n",
                     {
                         {"-verbosity n", "sets the verbosity level"},
                         {"-progress n", "reports progress every n files"},
                         {"-a", "converts to ASCII (default)"},
                         {"-b", "converts to binary"},
                         {"-path dir", "directory to process"},
                         {"-pattern text", "file name pattern (* and ?)"},
                     }});

  AppendGroup(text, {"-slim     [options]       slimming utility\n",
                     {
                         {"-verbosity n", "sets the verbosity level"},
                         {"-filename file", "file to slim"},
                         {"-output file", "output file"},
                         {"-resolution n", "resolution to slim to (grid spacing)"},
                         {"-a", "ASCII output (default)"},
                         {"-b", "binary output"},
                     }});

  AppendGroup(text, {"-shp2tvf  [options] <list>  shapefile conversion utility\n",
                     {
                         {"-verbose", "verbose output"},
                         {"-verbosity n", "sets the verbosity level"},
                         {"-progress n", "reports progress every n files"},
                         {"-suppress-warnings", "no warnings about skipped shapes"},
                         {"-a", "ASCII output (default)"},
                         {"-b", "binary output"},
                         {"-r", "converts directories recursively"},
                         {"-output file", "output file (one input only)"},
                         {"-pattern text", "file name pattern in directories (* and ?)"},
                         {"-no-attrs", "writes no attributes"},
                         {"-all-attrs", "writes every attribute (default)"},
                         {"-attr n", "writes attribute n of the table; repeatable"},
                         {"-marker-label-attr n", "string attribute holding point labels"},
                         {"-close-polygons", "coverts polylines to polygons by adding closing segment"},
                         {"-validate", "validates the winding of polygons"},
                         {"-filter", "writes the first input to standard output"},
                         {"-show-attrs", "lists a table's attributes: -show-attrs [-h] [-r] [-m] file"},
                     }});

  AppendGroup(text, {"-slf      [options]       Sub-lif (.slf) generator for directory tree based datasets\n",
                     {
                         {"-image", "image tile tree (first option)"},
                         {"-vector", "vector tile tree (first option)"},
                         {"-path dir", "top directory of the tree"},
                         {"-pattern text", "data file name pattern (* and ?)"},
                         {"-out-slf-name file", "name of the generated sub-LIF files (.slf added)"},
                         {"-out-lif-name file", "name of a generated LIF file"},
                         {"-suppress-bbox", "no inlined BBOX for included sub-LIF files"},
                         {"-a", "ASCII TVF save mode (default)"},
                         {"-b", "binary TVF save mode"},
                         {nullptr, "-vector mode only:"},
                         {"-single-layer", "one layer for the whole tree"},
                         {"-multi-layer", "one layer per data file name"},
                     }});
  return text;
}

void PrintUsage(FILE* out) {
  const std::string text = UsageText();
  std::fwrite(text.data(), 1, text.size(), out);
}

}  // namespace vmp
