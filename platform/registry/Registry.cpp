#include "platform/registry/Registry.h"

#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>

#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

// Registry files are small; anything larger is not ours.
constexpr std::size_t kMaxRegistryBytes = 4u << 20;

// Serialises read-modify-write cycles of this process.
std::mutex g_writeMutex;

std::optional<std::string> ReadWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string text;
  char chunk[65536];
  while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
    text.append(chunk, static_cast<std::size_t>(in.gcount()));
    if (text.size() > kMaxRegistryBytes) return std::nullopt;
  }
  return text;
}

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? std::string(v) : std::string();
}

}  // namespace

std::string RegistryFileOf(RegistryRoot root) {
  if (root == RegistryRoot::LocalMachine) {
    const std::string named = Env("TARNVEL_MACHINE_REGISTRY");
    return named.empty() ? "/etc/tarnvel/machine.reg" : named;
  }
  const std::string named = Env("TARNVEL_USER_REGISTRY");
  if (!named.empty()) return named;
  std::string config = Env("XDG_CONFIG_HOME");
  if (config.empty()) config = JoinPath(Env("HOME"), ".config");
  return JoinPath(JoinPath(config, "tarnvel"), "user.reg");
}

std::optional<RegistryKey> RegistryKey::Open(RegistryRoot root, std::string_view keyPath) {
  const std::string file = RegistryFileOf(root);
  const auto text = ReadWhole(file);
  if (!text) return std::nullopt;
  RegistryKey key(file, std::string(keyPath));
  bool found = false;
  WalkProfileText(*text, {[&](std::string_view section) { found = found || EqualsNoCase(section, keyPath); },
                          [&](std::string_view section, std::string_view name, std::string_view value) {
                            if (EqualsNoCase(section, keyPath) && !key.Find(name))
                              key.values_.emplace_back(name, value);
                          }});
  if (!found) return std::nullopt;
  return key;
}

const std::string* RegistryKey::Find(std::string_view name) const {
  for (const auto& [n, v] : values_)
    if (EqualsNoCase(n, name)) return &v;
  return nullptr;
}

std::optional<std::string> RegistryKey::ReadText(std::string_view name) const {
  const std::string* v = Find(name);
  return v ? std::optional<std::string>(*v) : std::nullopt;
}

std::optional<std::uint32_t> RegistryKey::ReadWord(std::string_view name) const {
  const std::string* v = Find(name);
  if (!v || v->empty()) return std::nullopt;
  std::string_view text = *v;
  const bool negative = text.front() == '-';
  if (negative) text.remove_prefix(1);
  std::uint64_t magnitude = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
  if (ec != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  if (negative ? magnitude > (1ull << 31) : magnitude > 0xFFFFFFFFull) return std::nullopt;
  return static_cast<std::uint32_t>(negative ? ~magnitude + 1 : magnitude);
}

bool RegistryKey::WriteWord(std::string_view name, std::uint32_t value) {
  return Write(name, std::to_string(static_cast<std::int32_t>(value)));
}

bool RegistryKey::WriteText(std::string_view name, std::string_view value) {
  // A line break would end the value and start a line of its own.
  if (value.find_first_of("\r\n") != std::string_view::npos) return false;
  return Write(name, std::string(value));
}

bool RegistryKey::Write(std::string_view name, std::string value) {
  if (name.empty() || name.find_first_of("=\r\n[") != std::string_view::npos) return false;
  std::lock_guard lock(g_writeMutex);
  const auto text = ReadWhole(file_);
  if (!text) return false;
  // Rebuild the file line by line: the key's section gets the value in place
  // of its old line, or at its end; everything else stays as it was.
  std::ostringstream out;
  bool inKey = false, written = false, keySeen = false;
  std::string_view rest = *text;
  auto finishSection = [&] {
    if (inKey && !written) {
      out << name << '=' << value << '\n';
      written = true;
    }
  };
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end + 1);
    std::string_view bare = line;
    if (!bare.empty() && bare.back() == '\r') bare.remove_suffix(1);
    std::string_view trimmed = bare;
    while (!trimmed.empty() && (trimmed.front() == ' ' || trimmed.front() == '\t')) trimmed.remove_prefix(1);
    if (!trimmed.empty() && trimmed.front() == '[') {
      finishSection();
      bool thisKey = false;
      WalkProfileText(trimmed, {[&](std::string_view s) { thisKey = EqualsNoCase(s, keyPath_); }, nullptr});
      inKey = thisKey && !written;
      keySeen = keySeen || thisKey;
    } else if (inKey) {
      bool sameName = false;
      WalkProfileText(trimmed, {nullptr, [&](std::string_view, std::string_view n, std::string_view) {
                                  sameName = EqualsNoCase(n, name);
                                }});
      if (sameName) {
        if (!written) out << name << '=' << value << '\n';
        written = true;
        continue;
      }
    }
    out << bare << '\n';
  }
  finishSection();
  if (!keySeen) return false;

  const std::string temp = file_ + ".tmp" + std::to_string(::getpid());
  {
    std::ofstream tmp(temp, std::ios::binary | std::ios::trunc);
    tmp << out.str();
    tmp.flush();
    if (!tmp) {
      std::remove(temp.c_str());
      return false;
    }
  }
  if (std::rename(temp.c_str(), file_.c_str()) != 0) {
    std::remove(temp.c_str());
    return false;
  }
  for (auto& [n, v] : values_)
    if (EqualsNoCase(n, name)) {
      v = std::move(value);
      return true;
    }
  values_.emplace_back(name, std::move(value));
  return true;
}

}  // namespace tarnvel
