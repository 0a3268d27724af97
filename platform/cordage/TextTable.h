// A table of numbered texts: built-in ones, any of which a language
// catalogue may replace. Safe to read from several threads.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tarnvel {

class TextTable {
 public:
  explicit TextTable(std::map<int, std::string> builtIn) : builtIn_(std::move(builtIn)) {}

  // The catalogue's text, else (also for an empty one) the built-in one;
  // nothing for an unknown number.
  std::optional<std::string> Find(int number) const {
    {
      std::lock_guard lock(mutex_);
      if (auto it = catalogue_.find(number); it != catalogue_.end() && !it->second.empty()) return it->second;
    }
    if (auto it = builtIn_.find(number); it != builtIn_.end()) return it->second;
    return std::nullopt;
  }

  // Every number with a built-in text, in ascending order.
  std::vector<int> Numbers() const {
    std::vector<int> numbers;
    for (const auto& entry : builtIn_) numbers.push_back(entry.first);
    return numbers;
  }

  // Replaces the texts of the given numbers; the others keep their built-in text.
  void SetCatalogue(std::map<int, std::string> texts) {
    std::lock_guard lock(mutex_);
    catalogue_ = std::move(texts);
  }

 private:
  const std::map<int, std::string> builtIn_;
  mutable std::mutex mutex_;
  std::map<int, std::string> catalogue_;
};

}  // namespace tarnvel
