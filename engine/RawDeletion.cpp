#include "engine/RawDeletion.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/cordage/Folders.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {

bool RawFilesMayGo(const RunFacts& facts, const OutputLedger& outputs) {
  if (!facts.argsRead || !facts.deleteAsked || facts.aborted || facts.statusCode != 0) return false;
  if (facts.framesWanted <= 0 || facts.framesWritten != facts.framesWanted) return false;
  if (!facts.outputsOnDisk || outputs.HasFailure() || outputs.Count() == 0) return false;
  return !outputs.FirstMissing();
}

std::vector<std::string> DeleteRawFiles(const std::string& folder) {
  std::vector<std::string> failed;
  auto remove = [&](const char* name, bool mustExist) {
    if (std::remove(JoinPath(folder, name).c_str()) != 0 && (mustExist || errno != ENOENT)) failed.emplace_back(name);
  };
  for (const char* name : {"args.ini", "rawfile.xml", "rawstats.xml"}) remove(name, false);
  const char* extensions[] = {".RAW", ".CAL", nullptr};
  const int bytes = CgEnumFiles(folder.c_str(), "", extensions, nullptr, 0);
  if (bytes <= 0) return failed;
  std::vector<char> names(static_cast<std::size_t>(bytes));
  const int count = CgEnumFiles(folder.c_str(), "", extensions, names.data(), static_cast<std::uint32_t>(bytes));
  const char* name = names.data();
  for (int i = 0; i < count; ++i, name += std::strlen(name) + 1) remove(name, true);
  return failed;
}

}  // namespace tarnvel
