// The profile reader: sections of Key=value lines, as the suite's programs
// write `_config.pgv`, `args.ini` and batch files.
//
// Nothing in Tarnvel writes a profile. Every read takes its default when the
// file, the section or the key is missing, so callers tell a missing profile
// by a sentinel key. Each file is parsed once and kept, keyed by path and
// stamped with its size and modification time; a changed file is parsed anew.
// Reads are safe from several threads.
//
// Form accepted: "[Section]" lines and "Key=value" lines ending in LF or CRLF;
// blanks round names and round the equal sign are dropped; names compare
// without regard to ASCII case; lines starting with ';' or '#' and lines
// without '=' are passed over; a key that stands twice in a section, or in a
// section that opens twice, counts with its first value. A file larger than
// kMaxProfileBytes reads as an empty one.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace tarnvel {

constexpr std::uint64_t kMaxProfileBytes = 64ull << 20;

// Copies the value, cut to outSize - 1 characters and terminated, or the
// default when missing. Returns true when the key was found.
bool CgReadProfileString(const char* section, const char* key, const char* defaultText, char* out,
                         std::uint32_t outSize, const char* path);

// Stores the decimal value as its 32-bit pattern: "-1" read into an unsigned
// word gives 4294967295. A value without a leading decimal number, or one
// outside -2^31 .. 2^32-1, takes the default. Trailing text after the number
// is ignored ("12 px" is 12).
bool CgReadProfileInteger(const char* section, const char* key, std::int32_t defaultValue,
                          std::int32_t* out, const char* path);
bool CgReadProfileInteger(const char* section, const char* key, std::int32_t defaultValue,
                          std::uint32_t* out, const char* path);

// Whether the file can be read as a profile and holds the section (an empty
// section counts).
bool CgProfileHasSection(const char* section, const char* path);

// Stores the value as a single float ("%.15f" as the suite writes it). A value
// that is not a finite number takes the default.
bool CgReadProfileFloat(const char* section, const char* key, float defaultValue, float* out,
                        const char* path);

// Walks profile text in the form above and calls `entry` for every key line
// with its trimmed section, key and value, in file order; `section` is called
// for every section line. Other stores of the same form (the registry files)
// share this one parser.
struct ProfileVisitor {
  std::function<void(std::string_view name)> section;
  std::function<void(std::string_view section, std::string_view key, std::string_view value)> entry;
};
void WalkProfileText(std::string_view text, const ProfileVisitor& visitor);

// How many times a profile file has been parsed since the process started;
// the benchmarks and tests show with it that the cache works.
std::uint64_t ProfileParseCount();

}  // namespace tarnvel
