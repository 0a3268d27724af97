// The small writer of the time sidecar: one element a line, four blanks a
// level, no declaration and no escaping (names and values are the program's
// own numbers and tags).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace tarnvel {

class CXmlFileWriter {
 public:
  CXmlFileWriter() = default;
  virtual ~CXmlFileWriter();
  CXmlFileWriter(const CXmlFileWriter&) = delete;
  CXmlFileWriter& operator=(const CXmlFileWriter&) = delete;

  // Clears the indentation and opens the file for writing; true when open.
  bool Open(const char* path);
  // Closes the file if open. True when everything written since the open
  // reached the file (a full disk shows here), or when nothing was open.
  bool Close();
  bool IsOpen() const { return file_ != nullptr; }

  void OpenElement(std::string_view name);
  void CloseElement(std::string_view name);
  void WriteValue(std::string_view name, std::string_view text);
  void WriteValue(std::string_view name, std::int32_t value);

 private:
  void Line(std::string_view text);

  std::FILE* file_ = nullptr;
  std::string indent_;
  bool failed_ = false;  // a write since the open failed
};

}  // namespace tarnvel
