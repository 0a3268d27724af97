#include "ui/StartUp.h"

#include <fstream>
#include <map>
#include <sstream>

#include "platform/cordage/Messages.h"
#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"

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

bool LoadLanguageCatalogue(std::string_view programPath, int number) {
  const auto path = LanguageCataloguePath(programPath, number);
  if (!path) return false;
  std::ifstream in(*path, std::ios::binary);
  if (!in) return false;
  std::ostringstream text;
  text << in.rdbuf();
  std::map<int, std::string> texts;
  WalkProfileText(text.str(), {nullptr, [&](std::string_view section, std::string_view key, std::string_view value) {
                                 if (!EqualsNoCase(section, "Messages")) return;
                                 int n = 0;
                                 for (char c : key) {
                                   if (c < '0' || c > '9' || n > 100000) return;
                                   n = n * 10 + (c - '0');
                                 }
                                 texts.try_emplace(n, value);
                               }});
  if (texts.empty()) return false;
  SetMessageCatalogue(std::move(texts));
  return true;
}

}  // namespace tarnvel
