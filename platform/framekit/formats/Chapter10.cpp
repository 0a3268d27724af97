// IRIG 106 Chapter 10 files: a TMATS setup record, time packets, and per
// frame one packet with the frame's 1024-byte camera block followed by the
// image packets that carry its pixels. docs/chapter10.md describes the
// channels and the packet formats chosen; every packet has the 24-byte
// header with its checksum and a 32-bit data checksum, and each channel
// counts its own sequence numbers.
#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/OutputStream.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/Bytes.h"

namespace tarnvel::framekit {
namespace {

static_assert(std::endian::native == std::endian::little, "16-bit samples are stored as they lie in memory");

constexpr std::uint16_t kSync = 0xEB25;
constexpr std::uint8_t kDataTypeVersion = 0x04;  // packets as of IRIG 106-09
constexpr std::uint8_t kTmatsVersion = 0x08;     // the setup record's "106-09"
constexpr std::uint8_t kChecksum32 = 0x03;       // packet flags: 32-bit data checksum

constexpr std::uint16_t kTmatsChannel = 0;
constexpr std::uint16_t kTimeChannel = 1;
constexpr std::uint16_t kImageChannel = 2;
constexpr std::uint16_t kBlockChannel = 3;

constexpr std::uint8_t kComputerGeneratedFormat0 = 0x00;  // user-defined: the camera block
constexpr std::uint8_t kComputerGeneratedFormat1 = 0x01;  // the setup record
constexpr std::uint8_t kTimeFormat1 = 0x11;
constexpr std::uint8_t kImageFormat0 = 0x40;

constexpr std::size_t kHeaderBytes = 24;
// Packets stay within 512 KiB; an image segment is a multiple of 6 bytes, so
// no pixel of any depth is split between packets.
constexpr std::size_t kMaxSegment = 524160;
constexpr std::uint64_t kTicksPerSecond = 10'000'000;  // relative time counter, 10 MHz
constexpr std::uint64_t kCounterMask = (1ull << 48) - 1;

std::string RateText(double rate) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", rate);
  return text;
}

int Bcd(int value) { return (value / 10) << 4 | value % 10; }

class Chapter10Writer final : public FrameWriter {
 public:
  explicit Chapter10Writer(int fd) : out_(fd), fd_(fd) {}

  int Write(const FrameData& frame) override {
    const FrameHeader& header = *frame.header;
    if (!started_) {
      Start(header, frame.metadata);
    } else if (header.width != width_ || header.height != height_ || header.bits != bits_ ||
               header.mosaic != mosaic_) {
      return kFkBadArgument;  // one geometry per file
    }
    const std::uint64_t ticks = FrameTicks(frameCount_);
    // A time packet for every second of relative time that begins.
    while (ticks >= nextTimeTicks_) {
      WriteTimePacket(nextTimeTicks_);
      nextTimeTicks_ += kTicksPerSecond;
    }
    if (frame.metadata != nullptr) {
      const std::uint8_t csdw[4] = {};
      WritePacket(kBlockChannel, kComputerGeneratedFormat0, ticks, csdw, frame.metadata, kMetadataBlockSize);
    }
    WriteImage(frame.pixels, ticks);
    ++frameCount_;
    // Each frame reaches the disk whole before the next; after a failure the
    // file is cut back to the last whole frame.
    if (!out_.Flush()) return kFkWriteFailed;
    wholeBytes_ = out_.Position();
    return 0;
  }

  int Finish() override {
    struct stat info {};
    // A file whose folder vanished while it was written is gone with it.
    const bool unlinked = ::fstat(fd_, &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink == 0;
    if (out_.Failed() && S_ISREG(info.st_mode)) {
      [[maybe_unused]] const int cut = ::ftruncate(fd_, static_cast<off_t>(wholeBytes_));
    }
    const bool closed = out_.Close();
    return closed && !unlinked ? 0 : kFkWriteFailed;
  }

 private:
  void Start(const FrameHeader& header, const std::uint8_t* block) {
    started_ = true;
    width_ = header.width;
    height_ = header.height;
    bits_ = header.bits;
    mosaic_ = header.mosaic;
    layout_ = FormatOfDepth(StoredDepth(header));
    rate_ = std::isfinite(header.rate) && header.rate > 0 ? header.rate : 25.0;
    // Absolute time of the first frame: the camera's time stamp (nanoseconds
    // since 1970) when the block has one, else the clock of this machine.
    std::uint64_t nanoseconds = block ? GetLE<std::uint64_t>(block + 342) : 0;
    constexpr std::uint64_t kYear2000 = 946'684'800ull * 1'000'000'000ull;
    if (nanoseconds < kYear2000 || nanoseconds > kYear2000 * 4)
      nanoseconds = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                   std::chrono::system_clock::now().time_since_epoch())
                                                   .count());
    startNanoseconds_ = nanoseconds;
    WriteTmats(header);
  }

  std::uint64_t FrameTicks(std::uint64_t frame) const {
    return static_cast<std::uint64_t>(std::llround(static_cast<double>(frame) * kTicksPerSecond / rate_));
  }

  void WriteTmats(const FrameHeader& header) {
    const std::uint64_t seconds = startNanoseconds_ / 1'000'000'000ull;
    const std::time_t when = static_cast<std::time_t>(seconds);
    std::tm utc{};
    gmtime_r(&when, &utc);
    char date[32];
    std::snprintf(date, sizeof date, "%02d-%02d-%04d", utc.tm_mon + 1, utc.tm_mday, utc.tm_year + 1900);
    const char* kind = layout_.channels == 3 ? "colour, blue-green-red"
                       : mosaic_           ? "sensor mosaic"
                                           : "grey";
    std::string text;
    auto line = [&text](const std::string& attribute) { text += attribute + ";\r\n"; };
    line("G\\PN:Tarnvel conversion");
    line("G\\106:09");
    line(std::string("G\\OD:") + date);
    line("G\\DSI\\N:1");
    line("G\\DSI-1:Camera");
    line("G\\DST-1:STO");
    line("G\\COM:Channel 2 images " + std::to_string(width_) + " x " + std::to_string(height_) + ", " +
         std::to_string(layout_.channelBits) + " bits a sample in " + std::to_string(layout_.sampleBytes * 8) +
         "-bit little-endian samples, " + kind + (mosaic_ ? " order " + std::to_string(header.mosaicOrder) : "") +
         ", rows top to bottom, " + RateText(rate_) + " frames a second");
    line("G\\COM:Channel 3 the 1024-byte camera block of each frame, at the relative time of its image");
    line("R-1\\ID:Camera");
    line("R-1\\N:2");
    line("R-1\\TK1-1:1");
    line("R-1\\CHE-1:T");
    line("R-1\\DSI-1:Time");
    line("R-1\\CDT-1:TIMIN");
    line("R-1\\TK1-2:2");
    line("R-1\\CHE-2:T");
    line("R-1\\DSI-2:Frames");
    line("R-1\\CDT-2:IMGIN");
    std::uint8_t csdw[4] = {};
    csdw[0] = kTmatsVersion;  // bit 8 clear: ASCII attributes
    WritePacket(kTmatsChannel, kComputerGeneratedFormat1, 0, csdw,
                reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  }

  // Time data format 1: internal clock, day-of-year form, to the millisecond.
  void WriteTimePacket(std::uint64_t ticks) {
    const std::uint64_t nanoseconds = startNanoseconds_ + ticks * 100;
    const std::time_t when = static_cast<std::time_t>(nanoseconds / 1'000'000'000ull);
    const int milliseconds = static_cast<int>(nanoseconds / 1'000'000ull % 1000);
    std::tm utc{};
    gmtime_r(&when, &utc);
    const int year = utc.tm_year + 1900;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    std::uint8_t csdw[4] = {};
    csdw[0] = 0x3 << 4;              // time format: the recorder's own clock; source internal
    csdw[1] = leap ? 0x01 : 0x00;    // leap year; date as day of year
    const int day = utc.tm_yday + 1;
    std::uint8_t body[6];
    PutLE<std::uint16_t>(body, static_cast<std::uint16_t>(Bcd(milliseconds / 10 % 10) | Bcd(milliseconds / 100) << 4 |
                                                           Bcd(utc.tm_sec) << 8));
    PutLE<std::uint16_t>(body + 2, static_cast<std::uint16_t>(Bcd(utc.tm_min) | Bcd(utc.tm_hour) << 8));
    PutLE<std::uint16_t>(body + 4, static_cast<std::uint16_t>(Bcd(day % 100) | (day / 100) << 8));
    WritePacket(kTimeChannel, kTimeFormat1, ticks, csdw, body, sizeof body);
  }

  // Image data format 0: one packet holds the whole image, or the image is cut
  // into parts (first, middle, last), each a whole number of pixels.
  void WriteImage(const std::uint8_t* pixels, std::uint64_t ticks) {
    const std::size_t bytes = std::size_t{width_} * height_ * layout_.bytesPerPixel;
    const std::size_t parts = std::max<std::size_t>(1, (bytes + kMaxSegment - 1) / kMaxSegment);
    for (std::size_t part = 0; part < parts; ++part) {
      const std::size_t offset = part * kMaxSegment;
      const std::size_t length = std::min(kMaxSegment, bytes - offset);
      std::uint32_t sum = 1;  // one complete image
      std::uint32_t position = 0;
      if (parts > 1) {
        sum = 0;  // less than one image
        position = part == 0 ? 1 : part + 1 == parts ? 3 : 2;
      }
      const std::uint32_t word = static_cast<std::uint32_t>(length) | sum << 24 | position << 26;
      std::uint8_t csdw[4];
      PutLE(csdw, word);
      WritePacket(kImageChannel, kImageFormat0, ticks, csdw, pixels + offset, length);
    }
  }

  void WritePacket(std::uint16_t channel, std::uint8_t dataType, std::uint64_t ticks, const std::uint8_t (&csdw)[4],
                   const std::uint8_t* data, std::size_t length) {
    const std::size_t dataLength = 4 + length;
    const std::size_t filler = (4 - dataLength % 4) % 4;
    const std::size_t packetLength = kHeaderBytes + dataLength + filler + 4;
    std::uint8_t header[kHeaderBytes] = {};
    PutLE<std::uint16_t>(header, kSync);
    PutLE<std::uint16_t>(header + 2, channel);
    PutLE<std::uint32_t>(header + 4, static_cast<std::uint32_t>(packetLength));
    PutLE<std::uint32_t>(header + 8, static_cast<std::uint32_t>(dataLength));
    header[12] = kDataTypeVersion;
    header[13] = sequence_[channel]++;
    header[14] = kChecksum32;
    header[15] = dataType;
    PutLE<std::uint64_t>(header + 16, ticks & kCounterMask);  // 48 bits; bytes 22 and 23 follow
    std::uint16_t headerSum = 0;
    for (std::size_t i = 0; i < 22; i += 2) headerSum = static_cast<std::uint16_t>(headerSum + GetLE<std::uint16_t>(header + i));
    PutLE<std::uint16_t>(header + 22, headerSum);
    // The data checksum: 32-bit words of the body and its zero filler, summed.
    std::uint32_t dataSum = GetLE<std::uint32_t>(csdw);
    std::size_t i = 0;
    for (; i + 4 <= length; i += 4) dataSum += GetLE<std::uint32_t>(data + i);
    std::uint8_t tail[4] = {};
    std::memcpy(tail, data + i, length - i);
    dataSum += GetLE<std::uint32_t>(tail);
    out_.Write(header, sizeof header);
    out_.Write(csdw, 4);
    out_.Write(data, length);
    out_.WriteZeros(filler);
    out_.WriteValue<std::uint32_t>(dataSum);
  }

  OutputStream out_;
  int fd_;
  bool started_ = false;
  std::uint32_t width_ = 0, height_ = 0, bits_ = 0, mosaic_ = 0;
  PixelFormat layout_;
  double rate_ = 25.0;
  std::uint64_t startNanoseconds_ = 0;
  std::uint64_t frameCount_ = 0;
  std::uint64_t nextTimeTicks_ = 0;
  std::uint64_t wholeBytes_ = 0;  // the file up to the last frame written whole
  std::uint8_t sequence_[4] = {};
};

}  // namespace

std::unique_ptr<FrameWriter> CreateChapter10Writer(int fd, const std::string&, const FileTypeRow&, int*) {
  return std::make_unique<Chapter10Writer>(fd);
}

}  // namespace tarnvel::framekit
