#include "shp2tvf/dbf_dump.h"

#include <shapefil.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace vmp {

namespace {

struct DbfCloser {
  void operator()(DBFInfo* h) const { DBFClose(h); }
};

struct Field {
  std::string name;
  DBFFieldType type;
  int width;
  int decimals;
};

const char* TypeWord(DBFFieldType type) {
  switch (type) {
    case FTString: return "String";
    case FTInteger: return "Integer";
    case FTDouble: return "Double";
    case FTLogical: return "Logical";
    default: return "Unknown";
  }
}

void PrintUsage(FILE* err) {
  std::fputs("dbfdump [-h] [-r] [-m] xbase_file\n", err);
  std::fputs("        -h: Write header info (field descriptions)\n", err);
  std::fputs("        -r: Write raw field info, numeric values not reformatted\n", err);
  std::fputs("        -m: Multiline, one line per field.\n", err);
}

// A value as listed: raw text, or numbers reformatted with the field's
// decimals; "(NULL)" for an empty number.
std::string FieldText(DBFHandle table, int record, int column, const Field& field, bool raw) {
  const char* text = DBFReadStringAttribute(table, record, column);
  if (text == nullptr) return "";
  if (raw || (field.type != FTInteger && field.type != FTDouble)) return text;
  if (DBFIsAttributeNULL(table, record, column)) return "(NULL)";
  char buffer[512];
  if (field.type == FTInteger) {
    std::snprintf(buffer, sizeof buffer, "%d", DBFReadIntegerAttribute(table, record, column));
  } else {
    std::snprintf(buffer, sizeof buffer, "%.*f", std::clamp(field.decimals, 0, 30),
                  DBFReadDoubleAttribute(table, record, column));
  }
  return buffer;
}

}  // namespace

int DbfDumpMain(const std::vector<std::string>& args, FILE* out, FILE* err) {
  bool header = false, raw = false, multiline = false;
  const std::string* file = nullptr;
  for (const std::string& arg : args) {
    if (arg == "-h") {
      header = true;
    } else if (arg == "-r") {
      raw = true;
    } else if (arg == "-m") {
      multiline = true;
    } else if (file == nullptr && !(arg.size() > 1 && arg[0] == '-')) {
      file = &arg;
    } else {
      PrintUsage(err);
      return 1;
    }
  }
  if (file == nullptr) {
    PrintUsage(err);
    return 1;
  }
  std::unique_ptr<DBFInfo, DbfCloser> table(DBFOpen(file->c_str(), "rb"));
  if (!table) {
    std::fprintf(err, "DBFOpen(\"%s\",\"r\") failed.\n", file->c_str());
    return 1;
  }
  std::fprintf(out, "Attributes for: %s\n", file->c_str());
  const int field_count = DBFGetFieldCount(table.get());
  if (field_count == 0) {
    std::fputs("There are no fields in this table!\n", out);
    return 0;
  }
  std::vector<Field> fields;
  for (int k = 0; k < field_count; ++k) {
    char name[XBASE_FLDNAME_LEN_READ + 1] = {};
    Field f;
    f.type = DBFGetFieldInfo(table.get(), k, name, &f.width, &f.decimals);
    f.name = name;
    fields.push_back(f);
  }
  if (header) {
    for (int k = 0; k < field_count; ++k) {
      const Field& f = fields[k];
      std::fprintf(out, "%4d  %-11s %-8s width %3d  decimals %d\n", k, f.name.c_str(),
                   TypeWord(f.type), f.width, f.decimals);
    }
    std::fputc('\n', out);
  }
  const int records = DBFGetRecordCount(table.get());
  if (!multiline) {
    for (const Field& f : fields) {
      const int width = std::max<int>(f.width, static_cast<int>(f.name.size()));
      std::fprintf(out, "%-*s ", width, f.name.c_str());
    }
    std::fputc('\n', out);
  }
  for (int r = 0; r < records; ++r) {
    for (int k = 0; k < field_count; ++k) {
      const Field& f = fields[k];
      const std::string value = FieldText(table.get(), r, k, f, raw);
      if (multiline) {
        std::fprintf(out, "%s: %s\n", f.name.c_str(), value.c_str());
      } else {
        const int width = std::max<int>(f.width, static_cast<int>(f.name.size()));
        std::fprintf(out, "%-*s ", width, value.c_str());
      }
    }
    std::fputc('\n', out);
  }
  return std::ferror(out) ? 1 : 0;
}

}  // namespace vmp
