// Writes profile files the way the suite's acquisition software writes them:
// "[%s]" section lines, "%s=%d" integers (unsigned words with the top bit set
// as negative numbers), "%s=%.15f" floats, "%s=%s" texts, CRLF line ends, and
// keys written in two passes with the same values.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace tarnvel::test {

class SuiteProfile {
 public:
  SuiteProfile& Section(const std::string& name) {
    entries_.push_back({"[" + name + "]", true});
    return *this;
  }
  SuiteProfile& Int(const std::string& key, std::int64_t value) {
    char text[32];
    std::snprintf(text, sizeof text, "%d", static_cast<std::int32_t>(static_cast<std::uint32_t>(value)));
    return Line(key + "=" + text);
  }
  SuiteProfile& Float(const std::string& key, double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.15f", value);
    return Line(key + "=" + text);
  }
  SuiteProfile& Text(const std::string& key, const std::string& value) { return Line(key + "=" + value); }

  // The whole file; with twoPasses every key line of a section stands twice,
  // the second pass after the first one's end, as the suite writes "Acquisition".
  std::string Render(bool twoPasses = true) const {
    std::string out;
    std::vector<std::string> pass;
    auto flush = [&] {
      if (twoPasses)
        for (const std::string& line : pass) out += line + "\r\n";
      pass.clear();
    };
    for (const auto& [line, isSection] : entries_) {
      if (isSection) flush();
      out += line + "\r\n";
      if (!isSection) pass.push_back(line);
    }
    flush();
    return out;
  }

 private:
  SuiteProfile& Line(std::string line) {
    entries_.push_back({std::move(line), false});
    return *this;
  }
  std::vector<std::pair<std::string, bool>> entries_;
};

}  // namespace tarnvel::test
