// Ending a TIFF whose writing failed part-way (a full disk, a file size
// limit): libtiff links a new directory into the chain before the directory
// and its strips are on disk, so the last link can point past the end of the
// file. The chain is walked here and cut after the last directory that lies
// whole in the file with all its strips; a file without one is emptied.
#include <unistd.h>

#include <cstring>
#include <vector>

#include "platform/framekit/formats/TiffCommon.h"

namespace tarnvel::framekit {
namespace {

constexpr std::uint16_t kStripOffsetsTag = 273;
constexpr std::uint16_t kStripByteCountsTag = 279;
constexpr std::uint64_t kMostDirectories = 1u << 20;

class TiffFile {
 public:
  TiffFile(int fd, std::uint64_t size) : fd_(fd), size_(size) {}

  bool ReadHeader() {
    std::uint8_t head[16] = {};
    if (!Read(0, head, 8)) return false;
    if (std::memcmp(head, "II", 2) == 0) {
      little_ = true;
    } else if (std::memcmp(head, "MM", 2) == 0) {
      little_ = false;
    } else {
      return false;
    }
    const std::uint64_t version = Number(head + 2, 2);
    if (version == 43) {
      big_ = true;
      firstLink_ = 8;
      return Read(0, head, 16);
    }
    firstLink_ = 4;
    return version == 42;
  }

  std::uint64_t FirstLink() const { return firstLink_; }
  std::size_t LinkBytes() const { return big_ ? 8 : 4; }
  std::uint64_t ReadLink(std::uint64_t at) {
    std::uint8_t bytes[8] = {};
    return Read(at, bytes, LinkBytes()) ? Number(bytes, LinkBytes()) : 0;
  }

  // Whether the directory at `offset` and all its strips lie in the file;
  // `link` gets the place of its next-directory offset.
  bool WholeDirectory(std::uint64_t offset, std::uint64_t* link) {
    const std::size_t countBytes = big_ ? 8 : 2, entryBytes = big_ ? 20 : 12;
    std::uint8_t countField[8] = {};
    if (offset == 0 || !Read(offset, countField, countBytes)) return false;
    const std::uint64_t count = Number(countField, countBytes);
    if (count == 0 || count > 4096) return false;
    std::vector<std::uint8_t> entries(count * entryBytes);
    if (!Read(offset + countBytes, entries.data(), entries.size())) return false;
    *link = offset + countBytes + entries.size();
    if (*link + LinkBytes() > size_) return false;
    std::vector<std::uint64_t> offsets, counts;
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::uint8_t* entry = &entries[i * entryBytes];
      const auto tag = static_cast<std::uint16_t>(Number(entry, 2));
      if (tag == kStripOffsetsTag && !Values(entry, offsets)) return false;
      if (tag == kStripByteCountsTag && !Values(entry, counts)) return false;
    }
    if (offsets.empty() || offsets.size() != counts.size()) return false;
    for (std::size_t i = 0; i < offsets.size(); ++i)
      if (offsets[i] > size_ || counts[i] > size_ - offsets[i]) return false;
    return true;
  }

  bool WriteLink(std::uint64_t at, std::uint64_t value) {
    std::uint8_t bytes[8];
    for (std::size_t i = 0; i < LinkBytes(); ++i) {
      const std::size_t shift = 8 * (little_ ? i : LinkBytes() - 1 - i);
      bytes[i] = static_cast<std::uint8_t>(value >> shift);
    }
    return ::pwrite(fd_, bytes, LinkBytes(), static_cast<off_t>(at)) == static_cast<ssize_t>(LinkBytes());
  }

 private:
  bool Read(std::uint64_t at, void* data, std::size_t bytes) const {
    if (at > size_ || bytes > size_ - at) return false;
    return ::pread(fd_, data, bytes, static_cast<off_t>(at)) == static_cast<ssize_t>(bytes);
  }

  std::uint64_t Number(const std::uint8_t* p, std::size_t bytes) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i) value |= std::uint64_t{p[little_ ? i : bytes - 1 - i]} << (8 * i);
    return value;
  }

  // The values of a SHORT, LONG or LONG8 entry, inline or behind an offset.
  bool Values(const std::uint8_t* entry, std::vector<std::uint64_t>& out) const {
    const std::uint64_t type = Number(entry + 2, 2);
    const std::size_t width = type == 3 ? 2 : type == 4 ? 4 : type == 16 ? 8 : 0;
    const std::uint64_t count = big_ ? Number(entry + 4, 8) : Number(entry + 4, 4);
    const std::size_t field = big_ ? 8 : 4;
    const std::uint8_t* inlineValue = entry + (big_ ? 12 : 8);
    if (width == 0 || count == 0 || count > size_ / width) return false;
    std::vector<std::uint8_t> bytes(count * width);
    if (bytes.size() <= field)
      std::memcpy(bytes.data(), inlineValue, bytes.size());
    else if (!Read(Number(inlineValue, field), bytes.data(), bytes.size()))
      return false;
    out.resize(count);
    for (std::uint64_t i = 0; i < count; ++i) out[i] = Number(&bytes[i * width], width);
    return true;
  }

  int fd_;
  std::uint64_t size_;
  bool little_ = true, big_ = false;
  std::uint64_t firstLink_ = 4;
};

}  // namespace

bool EndTiffAtLastWholeDirectory(int fd) {
  const off_t end = ::lseek(fd, 0, SEEK_END);
  if (end < 0) return false;
  TiffFile file(fd, static_cast<std::uint64_t>(end));
  if (!file.ReadHeader()) return ::ftruncate(fd, 0) == 0;
  std::uint64_t link = file.FirstLink();
  bool any = false;
  for (std::uint64_t n = 0; n < kMostDirectories; ++n) {
    const std::uint64_t offset = file.ReadLink(link);
    std::uint64_t nextLink = 0;
    if (offset == 0) return true;  // the chain ends as it should
    if (offset <= link || !file.WholeDirectory(offset, &nextLink)) break;
    any = true;
    link = nextLink;
  }
  if (!any) return ::ftruncate(fd, 0) == 0;
  return file.WriteLink(link, 0);
}

}  // namespace tarnvel::framekit
