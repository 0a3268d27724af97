#include "platform/cordage/TextField.h"

#include <charconv>
#include <cstring>

namespace tarnvel {

bool CopyText(char* dst, std::size_t capacity, std::string_view src) {
  if (capacity == 0) return src.empty();
  const std::size_t n = src.size() < capacity ? src.size() : capacity - 1;
  if (n > 0) std::memcpy(dst, src.data(), n);  // an empty view may carry a null pointer
  dst[n] = '\0';
  return n == src.size();
}

bool LeadingDecimalPattern(std::string_view text, std::uint32_t* pattern) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  bool negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  std::uint64_t magnitude = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
  if (ec != std::errc{} || end == text.data()) return false;
  if (negative ? magnitude > (1ull << 31) : magnitude > 0xFFFFFFFFull) return false;
  *pattern = static_cast<std::uint32_t>(negative ? ~magnitude + 1 : magnitude);
  return true;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    unsigned char x = static_cast<unsigned char>(a[i]);
    unsigned char y = static_cast<unsigned char>(b[i]);
    if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x + 32);
    if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y + 32);
    if (x != y) return false;
  }
  return true;
}

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

std::size_t LastSeparator(std::string_view path) {
  for (std::size_t i = path.size(); i-- > 0;)
    if (IsSeparator(path[i])) return i;
  return std::string_view::npos;
}

std::string_view FolderOf(std::string_view path) {
  const std::size_t cut = LastSeparator(path);
  return cut == std::string_view::npos ? std::string_view{} : path.substr(0, cut);
}

std::string_view LastComponent(std::string_view path) {
  const std::size_t cut = LastSeparator(path);
  return cut == std::string_view::npos ? path : path.substr(cut + 1);
}

std::string JoinPath(std::string_view folder, std::string_view name) {
  std::string out(folder);
  if (!out.empty() && !IsSeparator(out.back())) out += '/';
  out += name;
  return out;
}

}  // namespace tarnvel
