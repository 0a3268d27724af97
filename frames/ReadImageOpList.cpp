#include "frames/ReadImageOpList.h"

#include <cctype>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>

#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

constexpr const char* kSection = "ImgOpList";

// One decimal at `p` (after blanks), saturated to 32 bits. Returns false
// when no digit follows the optional sign.
bool ParseOne(const char*& p, std::int32_t& value) {
  const char* q = p;
  while (*q && std::isspace(static_cast<unsigned char>(*q))) ++q;
  bool negative = false;
  if (*q == '+' || *q == '-') negative = *q++ == '-';
  if (!std::isdigit(static_cast<unsigned char>(*q))) return false;
  std::int64_t v = 0;
  while (std::isdigit(static_cast<unsigned char>(*q))) {
    if (v <= std::int64_t{1} << 32) v = v * 10 + (*q - '0');
    ++q;
  }
  if (negative) v = -v;
  if (v > std::numeric_limits<std::int32_t>::max()) v = std::numeric_limits<std::int32_t>::max();
  if (v < std::numeric_limits<std::int32_t>::min()) v = std::numeric_limits<std::int32_t>::min();
  value = static_cast<std::int32_t>(v);
  p = q;
  return true;
}

std::string Key(const char* stem, int index) {
  char key[48];
  std::snprintf(key, sizeof key, "%s_%02d", stem, index);
  return key;
}

// The coefficient text split at blanks; each piece gives its leading
// decimal, or 0 when it has none.
void ReadCoefficients(const char* text, ConvolutionFilter& filter) {
  const std::int64_t wanted =
      std::min<std::int64_t>(std::max<std::int64_t>(static_cast<std::int64_t>(filter.sizeX) * filter.sizeY, 0),
                             static_cast<std::int64_t>(kFilterCoefficients));
  const char* p = text;
  for (std::int64_t n = 0; n < wanted;) {
    while (*p == ' ' || *p == '\t') ++p;
    if (!*p) break;
    const char* token = p;
    std::int32_t value = 0;
    if (!ParseOne(token, value)) value = 0;
    filter.coefficients[n++] = value;
    while (*p && *p != ' ' && *p != '\t') ++p;
  }
}

}  // namespace

std::size_t ParseDecimals(const char* text, std::int32_t* values, std::size_t capacity) {
  std::size_t n = 0;
  const char* p = text;
  while (n < capacity && ParseOne(p, values[n])) ++n;
  return n;
}

int ReadImageOpList(const char* folder, CImageOpList& list) {
  const std::string path = JoinPath(folder ? folder : "", "_config.pgv");
  std::int32_t count = 0;
  CgReadProfileInteger(kSection, "Count", 0, &count, path.c_str());
  const std::int32_t items = std::min(std::max(count, 0), kMaxImageOps);
  for (std::int32_t index = 0; index < items; ++index) {
    auto item = std::make_unique<ImageOpItem>();
    CgReadProfileString(kSection, Key("ItemStr", index).c_str(), "", item->name, sizeof item->name, path.c_str());
    char text[1024];
    CgReadProfileString(kSection, Key("ItemVal", index).c_str(), "", text, 512, path.c_str());
    std::int32_t values[4] = {};
    ParseDecimals(text, values, 4);
    item->code = values[0];
    item->value1 = values[1];
    item->value2 = values[2];
    item->value3 = values[3];
    if (item->code == ImgOpUserFilter) {
      auto filter = std::make_unique<ConvolutionFilter>();
      *filter = ConvolutionFilter{};
      CgReadProfileString(kSection, Key("ItemFltName", index).c_str(), "", filter->name, sizeof filter->name,
                          path.c_str());
      CgReadProfileString(kSection, Key("ItemFltVal", index).c_str(), "", text, 512, path.c_str());
      std::int32_t head[5] = {};
      ParseDecimals(text, head, 5);
      filter->divisor = head[0];
      filter->sizeX = head[1];
      filter->sizeY = head[2];
      filter->anchorX = head[3];
      filter->anchorY = head[4];
      CgReadProfileString(kSection, Key("ItemFltCoef", index).c_str(), "", text, sizeof text, path.c_str());
      ReadCoefficients(text, *filter);
      item->filter = std::move(filter);
    }
    list.AddTail(std::move(item));
  }
  return count != 0 ? 1 : 0;
}

}  // namespace tarnvel
