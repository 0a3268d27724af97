// Fixed-width text fields and the paths that travel in them.
//
// Records keep the widths the suite gave them (paths of 260 characters, names
// of 128). Everything that fills such a field goes through CopyText, which
// never writes past the field and always leaves it terminated; callers that
// must not lose a character check its result and refuse instead of cutting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarnvel {

constexpr std::size_t kPathField = 260;   // a folder or movie path, terminator included
constexpr std::size_t kFileField = 261;   // a file path, terminator included
constexpr std::size_t kNameField = 128;   // a name, terminator included
constexpr std::size_t kOuterPath = 1024;  // working size of a path that comes from outside

// Copies src into dst[0..capacity) and terminates it. Returns false when src
// did not fit and was cut (dst then holds the first capacity-1 characters).
bool CopyText(char* dst, std::size_t capacity, std::string_view src);

template <std::size_t N>
bool CopyText(char (&dst)[N], std::string_view src) {
  return CopyText(dst, N, src);
}

// The text of a fixed field up to its terminator, or the whole field when it has none.
template <std::size_t N>
std::string_view FieldText(const char (&field)[N]) {
  std::size_t n = 0;
  while (n < N && field[n] != '\0') ++n;
  return {field, n};
}

// The decimal number at the start of `text` (blanks and a sign may come
// first; what follows the digits is ignored) as its 32-bit pattern: "-1" is
// 0xFFFFFFFF. False for no number, or one outside -2^31 .. 2^32-1.
bool LeadingDecimalPattern(std::string_view text, std::uint32_t* pattern);

// ASCII comparison without regard to case.
bool EqualsNoCase(std::string_view a, std::string_view b);

// Paths from outside (argument files, batch files, the command line,
// descriptors) may use either '/' or '\' as separator.
bool IsSeparator(char c);
// Position of the last separator, or npos.
std::size_t LastSeparator(std::string_view path);
// What stands in front of the last separator (empty when there is none).
std::string_view FolderOf(std::string_view path);
// What stands behind the last separator (the whole path when there is none).
std::string_view LastComponent(std::string_view path);
// folder + '/' + name; a folder that already ends in a separator gets none.
std::string JoinPath(std::string_view folder, std::string_view name);

}  // namespace tarnvel
