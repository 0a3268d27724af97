// Feeds arbitrary bytes to the readers of a cluster batch: as a batch file
// (its settings and entries) and as a task's log (its end line). An end line
// that is read back must write out to a line that reads back the same.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ui/BatchFile.h"
#include "ui/ClusterBatch.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/tarnvel-fuzz-batch-" + std::to_string(::getpid()) + ".bat";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  if (const auto batch = tarnvel::ReadBatchFile(path))
    for (const auto& entry : batch->entries)
      if (entry.path.empty() || entry.number < 0) std::abort();
  for (std::int32_t entry : {0, 3, 99999}) {
    const auto end = tarnvel::ReadEntryEnd(path, entry);
    if (!end) continue;
    const auto again = tarnvel::ParseEntryEnd(tarnvel::FormatEntryEnd(*end));
    if (!again || again->entry != end->entry || again->state != end->state || again->message != end->message ||
        again->text != end->text)
      std::abort();
  }
  return 0;
}
