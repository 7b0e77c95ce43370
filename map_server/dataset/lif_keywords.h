// The keywords of LIF files: value form, the layer parameter they set, the
// enumeration words and the message for a word that is none of them.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vmp {

enum class LifForm {
  kToken,    // one string token
  kInteger,  // signed 64-bit decimal
  kReal,
  kColor,    // three reals 0..1
  kEnum,     // one of `words`
  kSpecial,  // read by the keyword's own code
};

// What a keyword does beyond (or instead of) setting its parameter.
enum class LifAction {
  kSetParam,
  kLayerType,
  kImageFormat,
  kVectorFormat,
  kNumTilesX,
  kNumTilesY,
  kPosRange,
  kGradientColor,
  kBackgroundColor,
  kTilesSublif,
  kTextAnchor,
  kLabelStyle,
  kMarkerType,
  kInclude,
  kCustomAttr,
  kAttrMap,
  kPixelMap,
  kAttrCond,
};

struct EnumWord {
  const char* word;
  int64_t value;
};

struct LifKeyword {
  const char* keyword;    // ends in "="
  const char* long_name;  // named in "cannot read"; null: the keyword without "="
  LifForm form;
  int param;  // layer parameter set, or -1
  LifAction action;
  std::span<const EnumWord> words;  // kEnum
  const char* invalid;              // kEnum: message for another word

  std::string_view LongName() const;
};

// Every keyword, in the order they are tried.
std::span<const LifKeyword> LifKeywords();

// The keyword `line` starts with, or null.
const LifKeyword* FindLifKeyword(std::string_view line);

// Words of "TEXT ANCHOR=", "LABEL STYLE=" and "MARKER ICON TYPE=".
std::span<const EnumWord> HorizontalAnchorWords();
std::span<const EnumWord> VerticalAnchorWords();
std::span<const EnumWord> LabelStyleFlags();
std::span<const EnumWord> MarkerTypeFlags();
std::span<const EnumWord> MarkerBackgroundFlags();

// The value of `word` in `words` (exact comparison), or false.
bool LookupWord(std::span<const EnumWord> words, std::string_view word, int64_t* value);

}  // namespace vmp
