// A buffered file written through its descriptor. It remembers the first
// failure, so a writer can check once per frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarnvel::framekit {

class OutputStream {
 public:
  explicit OutputStream(int fd) : fd_(fd) { buffer_.reserve(kBufferSize); }
  ~OutputStream();
  OutputStream(const OutputStream&) = delete;
  OutputStream& operator=(const OutputStream&) = delete;

  void Write(const void* data, std::size_t bytes);
  void WriteZeros(std::size_t bytes);
  template <typename T>
  void WriteValue(T value) { Write(&value, sizeof value); }
  // Writes at an earlier place of the file (after flushing what is buffered).
  void WriteAt(std::uint64_t offset, const void* data, std::size_t bytes);
  bool Flush();
  // Flushes and closes; false when anything failed on the way.
  bool Close();

  std::uint64_t Position() const { return position_; }
  bool Failed() const { return failed_; }

 private:
  static constexpr std::size_t kBufferSize = 1 << 20;
  bool WriteAll(const void* data, std::size_t bytes);

  int fd_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t position_ = 0;
  bool failed_ = false;
};

}  // namespace tarnvel::framekit
