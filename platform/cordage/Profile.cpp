#include "platform/cordage/Profile.h"

#include <sys/stat.h>

#include <atomic>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

std::string Lower(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return out;
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

// One parsed file: lower-cased section name -> lower-cased key -> value.
using Section = std::unordered_map<std::string, std::string>;
using Parsed = std::unordered_map<std::string, Section>;

std::atomic<std::uint64_t> g_parseCount{0};

Parsed Parse(std::string_view text) {
  Parsed parsed;
  WalkProfileText(text, {[&](std::string_view name) { parsed.try_emplace(Lower(name)); },
                         [&](std::string_view section, std::string_view key, std::string_view value) {
                           parsed[Lower(section)].try_emplace(Lower(key), value);
                         }});
  ++g_parseCount;
  return parsed;
}

struct Stamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  bool operator==(const Stamp& o) const {
    return device == o.device && inode == o.inode && size == o.size &&
           modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec;
  }
};

struct CacheEntry {
  Stamp stamp;
  std::shared_ptr<const Parsed> parsed;
  std::uint64_t lastUse = 0;
};

// Bounded so that a long batch of recordings does not keep every profile alive.
constexpr std::size_t kCacheEntries = 64;

class ProfileCache {
 public:
  std::shared_ptr<const Parsed> Get(const char* path) {
    struct stat st {};
    if (path == nullptr || ::stat(path, &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
    const Stamp stamp{st.st_dev, st.st_ino, st.st_size, st.st_mtim};
    {
      std::lock_guard lock(mutex_);
      auto it = entries_.find(path);
      if (it != entries_.end() && it->second.stamp == stamp) {
        it->second.lastUse = ++useClock_;
        return it->second.parsed;
      }
    }
    // Parse outside the lock: other files stay readable meanwhile.
    auto parsed = std::make_shared<const Parsed>(Load(path, st.st_size));
    std::lock_guard lock(mutex_);
    if (entries_.size() >= kCacheEntries && !entries_.contains(path)) EvictOldest();
    entries_[path] = CacheEntry{stamp, parsed, ++useClock_};
    return parsed;
  }

 private:
  static Parsed Load(const char* path, off_t size) {
    if (size < 0 || static_cast<std::uint64_t>(size) > kMaxProfileBytes) return Parse({});
    std::ifstream in(path, std::ios::binary);
    std::string text(static_cast<std::size_t>(size), '\0');
    in.read(text.data(), size);
    text.resize(static_cast<std::size_t>(in.gcount()));
    return Parse(text);
  }

  void EvictOldest() {
    auto oldest = entries_.begin();
    for (auto it = entries_.begin(); it != entries_.end(); ++it)
      if (it->second.lastUse < oldest->second.lastUse) oldest = it;
    if (oldest != entries_.end()) entries_.erase(oldest);
  }

  std::mutex mutex_;
  std::unordered_map<std::string, CacheEntry> entries_;
  std::uint64_t useClock_ = 0;
};

ProfileCache& Cache() {
  static ProfileCache cache;
  return cache;
}

// The value of section/key, or nullptr. The returned holder keeps it alive.
struct Found {
  std::shared_ptr<const Parsed> file;
  const std::string* value = nullptr;
};

Found Lookup(const char* section, const char* key, const char* path) {
  Found found{Cache().Get(path), nullptr};
  if (!found.file || section == nullptr || key == nullptr) return found;
  auto s = found.file->find(Lower(section));
  if (s == found.file->end()) return found;
  auto k = s->second.find(Lower(key));
  if (k != s->second.end()) found.value = &k->second;
  return found;
}

}  // namespace

bool CgReadProfileString(const char* section, const char* key, const char* defaultText, char* out,
                         std::uint32_t outSize, const char* path) {
  Found found = Lookup(section, key, path);
  if (out != nullptr && outSize > 0)
    CopyText(out, outSize, found.value ? std::string_view(*found.value)
                                       : std::string_view(defaultText ? defaultText : ""));
  return found.value != nullptr;
}

bool CgProfileHasSection(const char* section, const char* path) {
  const std::shared_ptr<const Parsed> file = Cache().Get(path);
  return file && section != nullptr && file->contains(Lower(section));
}

bool CgReadProfileInteger(const char* section, const char* key, std::int32_t defaultValue,
                          std::uint32_t* out, const char* path) {
  Found found = Lookup(section, key, path);
  std::uint32_t value = static_cast<std::uint32_t>(defaultValue);
  const bool parsed = found.value && LeadingDecimalPattern(*found.value, &value);
  if (!parsed) value = static_cast<std::uint32_t>(defaultValue);
  if (out) *out = value;
  return parsed;
}

bool CgReadProfileInteger(const char* section, const char* key, std::int32_t defaultValue,
                          std::int32_t* out, const char* path) {
  std::uint32_t pattern = 0;
  const bool parsed = CgReadProfileInteger(section, key, defaultValue, &pattern, path);
  if (out) *out = static_cast<std::int32_t>(pattern);
  return parsed;
}

bool CgReadProfileFloat(const char* section, const char* key, float defaultValue, float* out,
                        const char* path) {
  Found found = Lookup(section, key, path);
  float value = defaultValue;
  bool parsed = false;
  if (found.value) {
    std::string_view text = Trim(*found.value);
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    float v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec == std::errc{} && end != text.data() && std::isfinite(v)) {
      value = v;
      parsed = true;
    }
  }
  if (out) *out = value;
  return parsed;
}

void WalkProfileText(std::string_view text, const ProfileVisitor& visitor) {
  std::string_view section;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    line = Trim(line);
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[') {
      const std::size_t close = line.rfind(']');
      section = Trim(line.substr(1, close == std::string_view::npos ? line.npos : close - 1));
      if (visitor.section) visitor.section(section);
      continue;
    }
    const std::size_t eq = line.find('=');
    if (eq == std::string_view::npos) continue;
    const std::string_view key = Trim(line.substr(0, eq));
    if (!key.empty() && visitor.entry) visitor.entry(section, key, Trim(line.substr(eq + 1)));
  }
}

std::uint64_t ProfileParseCount() { return g_parseCount.load(); }

}  // namespace tarnvel
