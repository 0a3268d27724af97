#include "platform/framekit/OutputStream.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace tarnvel::framekit {

OutputStream::~OutputStream() { Close(); }

bool OutputStream::WriteAll(const void* data, std::size_t bytes) {
  const auto* p = static_cast<const std::uint8_t*>(data);
  while (bytes > 0) {
    const ssize_t n = ::write(fd_, p, bytes);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    bytes -= static_cast<std::size_t>(n);
  }
  return true;
}

void OutputStream::Write(const void* data, std::size_t bytes) {
  if (failed_ || fd_ < 0) {
    failed_ = true;
    return;
  }
  position_ += bytes;
  if (buffer_.size() + bytes > kBufferSize) {
    if (!Flush()) return;
    if (bytes >= kBufferSize) {
      if (!WriteAll(data, bytes)) failed_ = true;
      return;
    }
  }
  const auto* p = static_cast<const std::uint8_t*>(data);
  buffer_.insert(buffer_.end(), p, p + bytes);
}

void OutputStream::WriteZeros(std::size_t bytes) {
  static const std::uint8_t zeros[4096] = {};
  while (bytes > 0) {
    const std::size_t n = bytes < sizeof zeros ? bytes : sizeof zeros;
    Write(zeros, n);
    bytes -= n;
  }
}

void OutputStream::WriteAt(std::uint64_t offset, const void* data, std::size_t bytes) {
  if (!Flush()) return;
  const auto* p = static_cast<const std::uint8_t*>(data);
  while (bytes > 0) {
    const ssize_t n = ::pwrite(fd_, p, bytes, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      failed_ = true;
      return;
    }
    p += n;
    offset += static_cast<std::uint64_t>(n);
    bytes -= static_cast<std::size_t>(n);
  }
}

bool OutputStream::Flush() {
  if (failed_ || fd_ < 0) {
    failed_ = true;
    return false;
  }
  if (!buffer_.empty()) {
    if (!WriteAll(buffer_.data(), buffer_.size())) failed_ = true;
    buffer_.clear();
  }
  return !failed_;
}

bool OutputStream::Close() {
  if (fd_ < 0) return !failed_;
  Flush();
  if (::close(fd_) != 0) failed_ = true;
  fd_ = -1;
  return !failed_;
}

}  // namespace tarnvel::framekit
