// The program's settings in the registry, with the search order between the
// suite's current key (current user) and its older key (local machine).
#pragma once

#include <cstdint>
#include <optional>

#include "platform/registry/Registry.h"

namespace tarnvel {

struct ParallelSettings {
  std::int32_t enabled = 0;
  std::int32_t maximum = 4;
};

// "Language" from the current key, else from the older key; -1 counts as not
// found; 0 when nothing is found.
std::int32_t ReadLanguageId();

// The key that holds the network and parallel settings: the current key when
// it holds "UseJumboPackets" (the sign that it was migrated), else the older key.
std::optional<RegistryKey> OpenSettingsKey();

// The values the Options dialog offers: enabled 0 or 1, maximum 2 to 12.
constexpr std::int32_t kFewestParallelJobs = 2;
constexpr std::int32_t kMostParallelJobs = 12;
bool ParallelSettingsValid(const ParallelSettings& settings);

// Enabled 0 and maximum 4 unless stored; a maximum below 2 reads as 2. The
// scheduler never runs more than 12 jobs at once, whatever is stored.
ParallelSettings ReadParallelSettings();

// Always into the current key; nothing happens when it does not exist.
// True when both values were written.
bool WriteParallelSettings(const ParallelSettings& settings);

// Tells the suite's main window the new parallel settings (command 2 with
// the two words); false when no suite window listens.
bool NotifySuiteOptions(const ParallelSettings& settings);

}  // namespace tarnvel
