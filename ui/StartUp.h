// What happens before the main window exists: the job argument taken off the
// command line, and the language catalogue.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarnvel {

inline constexpr std::string_view kSuiteMarker = "*$$*";
// The command line is parsed in a buffer of this size, terminator included.
inline constexpr std::size_t kCommandLineBuffer = 1024;

// The raw command string as the desktop passes it: the program name, quoted
// when it holds a blank, then each argument in double quotes, except one that
// holds the suite's marker, which stands bare as the suite writes it.
std::string RawCommandLine(int argc, const char* const* argv);

struct JobArgument {
  enum class Kind { None, Path, SuiteMarker, TooLong };
  Kind kind = Kind::None;
  std::string path;  // for Kind::Path
};

// Applies the start-up rules to the raw string: trailing double quotes are
// dropped; the text behind the last remaining quote is the path when it is
// longer than 10 characters; without any quote, the marker anywhere in the
// string asks for suite mode. A string that does not fit the buffer is
// refused as TooLong rather than cut into another path.
JobArgument ParseCommandLine(std::string_view commandLine);

// The eight languages; the number is the index. 0 is the built-in English.
struct Language {
  const char* name;
  const char* suffix;
};
inline constexpr Language kLanguages[8] = {{"English", ".en"}, {"Deutsch", ".de"},  {"Italiano", ".it"},
                                           {"Fran\xe7" "ais", ".fr"}, {"Espa\xf1ol", ".es"}, {"Japanese", ".jp"},
                                           {"Chinese", ".cn"}, {"Russian", ".ru"}};

// "Languages/<stem><suffix>" in the program's folder, the stem being the
// program's file name without its extension (programs here usually have
// none, and then the whole name serves: Languages/tarnvel.de). Nothing for
// language 0 or a number outside the table.
std::optional<std::string> LanguageCataloguePath(std::string_view programPath, int number);

// Loads the catalogue of `number` into the message table (section
// "Messages", by message number) and the text table (section "Strings", by
// text number). The catalogue beside the program comes first; an installed
// program finds it in ../share/tarnvel/Languages. False, with the built-in
// English left in place, when there is none or it holds no text.
bool LoadLanguageCatalogue(std::string_view programPath, int number);

}  // namespace tarnvel
