// The registry: a file-backed store with the two roots of the suite's
// settings. Each root is one text file of sections named by key path
// ("[Software\OKN\FathomBureau\Settings]") holding "Name=value" lines.
//
//   current user:  $TARNVEL_USER_REGISTRY, else $XDG_CONFIG_HOME/tarnvel/user.reg
//                  (XDG_CONFIG_HOME defaulting to ~/.config)
//   local machine: $TARNVEL_MACHINE_REGISTRY, else /etc/tarnvel/machine.reg
//
// A missing file or section is a key that does not exist; keys are never
// created, only opened. Key paths and value names compare without regard to
// case. A 32-bit value is stored as a decimal number; a text value as its text.
// Writes rewrite the whole file through a temporary file renamed into place,
// so a reader never sees half a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnvel {

enum class RegistryRoot { CurrentUser, LocalMachine };

// The suite's keys: the current one under the current user, the older one
// under the local machine.
inline constexpr const char* kCurrentSettingsKey = "Software\\OKN\\FathomBureau\\Settings";
inline constexpr const char* kOlderSettingsKey = "Software\\OKN\\Kestrelite\\CurrentVersion";

// The file that holds a root, as the environment names it.
std::string RegistryFileOf(RegistryRoot root);

class RegistryKey {
 public:
  // The key, or nothing when its root file or section does not exist.
  static std::optional<RegistryKey> Open(RegistryRoot root, std::string_view keyPath);

  // A value that holds text (any value does).
  std::optional<std::string> ReadText(std::string_view name) const;
  // A value that holds a decimal number in 32 bits ("-1" is 0xFFFFFFFF).
  std::optional<std::uint32_t> ReadWord(std::string_view name) const;
  bool Has(std::string_view name) const { return Find(name) != nullptr; }

  // Writes into the key's file at once. False when the file cannot be written
  // or the key has vanished meanwhile; the key's own view is updated either way.
  bool WriteWord(std::string_view name, std::uint32_t value);
  bool WriteText(std::string_view name, std::string_view value);

 private:
  RegistryKey(std::string file, std::string keyPath) : file_(std::move(file)), keyPath_(std::move(keyPath)) {}
  const std::string* Find(std::string_view name) const;
  bool Write(std::string_view name, std::string value);

  std::string file_;
  std::string keyPath_;
  std::vector<std::pair<std::string, std::string>> values_;
};

}  // namespace tarnvel
