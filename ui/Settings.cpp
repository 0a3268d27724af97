#include "ui/Settings.h"

#include <cstring>

#include "platform/suitelink/SuiteLink.h"

namespace tarnvel {

std::int32_t ReadLanguageId() {
  for (auto [root, path] : {std::pair{RegistryRoot::CurrentUser, kCurrentSettingsKey},
                            std::pair{RegistryRoot::LocalMachine, kOlderSettingsKey}}) {
    const auto key = RegistryKey::Open(root, path);
    if (!key) continue;
    const auto value = key->ReadWord("Language");
    if (value && static_cast<std::int32_t>(*value) != -1) return static_cast<std::int32_t>(*value);
  }
  return 0;
}

std::optional<RegistryKey> OpenSettingsKey() {
  if (auto current = RegistryKey::Open(RegistryRoot::CurrentUser, kCurrentSettingsKey);
      current && current->Has("UseJumboPackets"))
    return current;
  return RegistryKey::Open(RegistryRoot::LocalMachine, kOlderSettingsKey);
}

ParallelSettings ReadParallelSettings() {
  ParallelSettings settings;
  const auto key = OpenSettingsKey();
  if (!key) return settings;
  if (auto v = key->ReadWord("MultiThreadRawConversion")) settings.enabled = static_cast<std::int32_t>(*v);
  if (auto v = key->ReadWord("MultiThreadMaxRawFiles")) settings.maximum = static_cast<std::int32_t>(*v);
  if (settings.maximum < kFewestParallelJobs) settings.maximum = kFewestParallelJobs;
  return settings;
}

bool ParallelSettingsValid(const ParallelSettings& settings) {
  return (settings.enabled == 0 || settings.enabled == 1) && settings.maximum >= kFewestParallelJobs &&
         settings.maximum <= kMostParallelJobs;
}

bool WriteParallelSettings(const ParallelSettings& settings) {
  auto key = RegistryKey::Open(RegistryRoot::CurrentUser, kCurrentSettingsKey);
  if (!key) return false;
  const bool enabled = key->WriteWord("MultiThreadRawConversion", static_cast<std::uint32_t>(settings.enabled));
  return key->WriteWord("MultiThreadMaxRawFiles", static_cast<std::uint32_t>(settings.maximum)) && enabled;
}

bool NotifySuiteOptions(const ParallelSettings& settings) {
  std::uint8_t payload[8];
  std::memcpy(payload, &settings.enabled, 4);
  std::memcpy(payload + 4, &settings.maximum, 4);
  return SendSuiteMessage(SuiteSocketPath(), 2, payload).has_value();
}

}  // namespace tarnvel
