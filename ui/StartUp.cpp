#include "ui/StartUp.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "platform/cordage/Messages.h"
#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"
#include "ui/Texts.h"

namespace tarnvel {

std::string RawCommandLine(int argc, const char* const* argv) {
  std::string line;
  for (int i = 0; i < argc; ++i) {
    const std::string_view arg = argv[i] ? argv[i] : "";
    if (i > 0) line += ' ';
    const bool quote = i == 0 ? arg.find(' ') != std::string_view::npos
                              : arg.find(kSuiteMarker) == std::string_view::npos;
    if (quote) line += '"';
    line += arg;
    if (quote) line += '"';
  }
  return line;
}

JobArgument ParseCommandLine(std::string_view commandLine) {
  if (commandLine.size() >= kCommandLineBuffer) return {JobArgument::Kind::TooLong, {}};
  while (!commandLine.empty() && commandLine.back() == '"') commandLine.remove_suffix(1);
  const std::size_t quote = commandLine.rfind('"');
  if (quote != std::string_view::npos) {
    const std::string_view behind = commandLine.substr(quote + 1);
    if (behind.size() > 10) return {JobArgument::Kind::Path, std::string(behind)};
    return {};
  }
  if (commandLine.find(kSuiteMarker) != std::string_view::npos)
    return {JobArgument::Kind::SuiteMarker, std::string(kSuiteMarker)};
  return {};
}

std::optional<std::string> LanguageCataloguePath(std::string_view programPath, int number) {
  if (number <= 0 || number >= static_cast<int>(std::size(kLanguages))) return std::nullopt;
  std::string_view stem = LastComponent(programPath);
  if (const std::size_t dot = stem.rfind('.'); dot != std::string_view::npos && dot > 0) stem = stem.substr(0, dot);
  return JoinPath(JoinPath(FolderOf(programPath), "Languages"), std::string(stem) + kLanguages[number].suffix);
}

namespace {

// A text number of a catalogue: decimal digits only, at most six of them.
std::optional<int> CatalogueNumber(std::string_view key) {
  if (key.empty() || key.size() > 6) return std::nullopt;
  int n = 0;
  for (char c : key) {
    if (c < '0' || c > '9') return std::nullopt;
    n = n * 10 + (c - '0');
  }
  return n;
}

// A regular file of at most the profile limit; anything else (a folder, a
// pipe that would block the start, a huge file) counts as no catalogue.
std::optional<std::string> ReadSmallFile(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error) || std::filesystem::file_size(path, error) > kMaxProfileBytes ||
      error)
    return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

bool LoadLanguageCatalogue(std::string_view programPath, int number) {
  const auto beside = LanguageCataloguePath(programPath, number);
  if (!beside) return false;
  const std::string installed =
      JoinPath(JoinPath(FolderOf(programPath), "../share/tarnvel/Languages"), LastComponent(*beside));
  std::optional<std::string> text = ReadSmallFile(*beside);
  if (!text) text = ReadSmallFile(installed);
  if (!text) return false;
  std::map<int, std::string> messages, strings;
  WalkProfileText(*text, {nullptr, [&](std::string_view section, std::string_view key, std::string_view value) {
                            const auto n = CatalogueNumber(key);
                            if (!n) return;
                            if (EqualsNoCase(section, "Messages")) messages.try_emplace(*n, value);
                            if (EqualsNoCase(section, "Strings")) strings.try_emplace(*n, value);
                          }});
  if (messages.empty() && strings.empty()) return false;
  SetMessageCatalogue(std::move(messages));
  SetStringCatalogue(std::move(strings));
  return true;
}

}  // namespace tarnvel
