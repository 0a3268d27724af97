// The batch file that the suite writes for a batch of recordings: a text file
// in profile form whose section "List" holds one set of output settings, an
// optional destination folder and the job files as "File_%03d" entries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/JobOverrides.h"

namespace tarnvel {

inline constexpr const char* kBatchSignature = "OKN Fathom Bureau Raw Batch File V 1.00";
// Entries of a batch file read at most; a larger "Count" reads this many.
constexpr std::int32_t kMaxBatchEntries = 100000;

struct BatchEntry {
  std::int32_t number = 0;  // n of its key "File_%03d"
  std::string path;         // the job file as written
};

struct BatchFile {
  std::string destination;  // empty: each output beside its recording
  JobOverrides overrides;   // the batch's settings over AddFile's start values
  std::vector<BatchEntry> entries;  // the entries that are not empty, in number order
};

// A path that is taken for a batch file: one that holds ".bat" anywhere, in any case.
bool IsBatchPath(std::string_view path);

// "File_%03d" of an entry number: "File_007", "File_1234".
std::string BatchEntryKey(std::int32_t number);

// Reads a batch file whole. Nothing when its signature is not the batch
// signature (compared without regard to case), which covers a missing or
// unreadable file. The settings keys other than the destination are read
// only when the batch names a file type.
std::optional<BatchFile> ReadBatchFile(const std::string& path);

}  // namespace tarnvel
