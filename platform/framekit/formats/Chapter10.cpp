// IRIG 106 Chapter 10 files: a TMATS setup record that names every channel,
// time packets, and per frame a message packet with the frame's 1024-byte
// camera block followed by the image packets that carry its pixels.
// docs/chapter10.md describes the channels and the packet formats chosen;
// every packet has the 24-byte header with its checksum and a 32-bit data
// checksum, and each channel counts its own sequence numbers. The relative
// time counter follows the recording's own clock: the camera's time stamps,
// else the frames' time codes or the recording's start and rate.
#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/clock/WallClock.h"
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/OutputStream.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/Bytes.h"
#include "platform/framekit/formats/Calendar.h"

namespace tarnvel::framekit {
namespace {

static_assert(std::endian::native == std::endian::little, "16-bit samples are stored as they lie in memory");

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint16_t kSync = 0xEB25;
constexpr std::uint8_t kDataTypeVersion = 0x04;  // packets as of IRIG 106-09
constexpr std::uint8_t kTmatsVersion = 0x08;     // the setup record's "106-09"
constexpr std::uint8_t kChecksum32 = 0x03;       // packet flags: 32-bit data checksum, intra-packet times relative

constexpr std::uint16_t kTmatsChannel = 0;
constexpr std::uint16_t kTimeChannel = 1;
constexpr std::uint16_t kImageChannel = 2;
constexpr std::uint16_t kBlockChannel = 3;

constexpr std::uint8_t kComputerGeneratedFormat1 = 0x01;  // the setup record
constexpr std::uint8_t kTimeFormat1 = 0x11;
constexpr std::uint8_t kMessageFormat0 = 0x30;  // the camera blocks
constexpr std::uint8_t kImageFormat0 = 0x48;

constexpr std::size_t kHeaderBytes = 24;
// Packets stay within 512 KiB; an image segment is a multiple of 6 bytes, so
// no pixel of any depth is split between packets.
constexpr std::size_t kMaxSegment = 524160;
constexpr std::uint64_t kTicksPerSecond = 10'000'000;  // relative time counter, 10 MHz
constexpr std::uint64_t kCounterMask = (1ull << 48) - 1;

// Image data format 0, channel-specific word: segment length in bits 0-26,
// intra-packet headers (bit 27, none here), SUM in bits 28-29 (0: less than
// one image, 1: one whole image) and PARTS in bits 30-31 (bit 30: holds the
// image's first segment, bit 31: its last).
constexpr std::uint32_t kImageLengthMask = (1u << 27) - 1;
constexpr std::uint32_t kOneWholeImage = 1u << 28;
constexpr std::uint32_t kFirstSegment = 1u << 30;
constexpr std::uint32_t kLastSegment = 1u << 31;

// The 1024-byte camera block of type 34 holds the camera's time stamp here.
constexpr std::size_t kBlockTimestampAt = 342;
constexpr std::size_t kBlockRateAt = 254;

int Bcd(unsigned value) { return static_cast<int>((value / 10) << 4 | value % 10); }

std::string RateText(double rate) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", rate);
  return text;
}

// A text from outside as a TMATS value: a semicolon would end the attribute
// and a line break split it, so those and other control characters become blanks.
std::string TmatsValue(const char* text) {
  std::string value(text);
  for (char& c : value)
    if (c == ';' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  return value;
}

// Times of frames, in nanoseconds since 1970, stay between 1970 and 2200: in
// that span every sum and difference of them fits the 64-bit counts.
constexpr std::int64_t kLatestNanoseconds = 7'258'118'400'000'000'000;  // 2200-01-01

// The camera's own time stamp of a frame (nanoseconds since 1970), when the
// block holds one between the years 2000 and 2120.
std::optional<std::int64_t> CameraTimestamp(const std::uint8_t* block) {
  if (block == nullptr) return std::nullopt;
  constexpr std::uint64_t kYear2000 = 946'684'800ull * 1'000'000'000ull;
  const auto nanoseconds = GetLE<std::uint64_t>(block + kBlockTimestampAt);
  if (nanoseconds < kYear2000 || nanoseconds > kYear2000 * 4) return std::nullopt;
  return static_cast<std::int64_t>(nanoseconds);
}

// Each frame's absolute time and its place on the relative time counter.
// The first frame decides where times come from for the whole file: the
// camera's time stamps in the blocks, else the capture records (time codes or
// the recording's clock), else this machine's clock at the first frame. A
// frame without a time of its own follows the one before by a frame period;
// the counter never goes back. Counter 0 is the whole second in which the
// first frame was taken, so that the time packets, which tell time to 10 ms,
// fall on whole seconds and a reader derives every frame's time exactly.
class FrameClock {
 public:
  enum class Basis { kCameraStamps, kCaptureRecords, kConversionClock };

  void Start(const FrameData& frame) {
    const std::uint8_t* block = frame.metadata;
    const CaptureInfo* capture = frame.capture;
    if (CameraTimestamp(block)) {
      basis_ = Basis::kCameraStamps;
    } else if (capture != nullptr && capture->timeSource != CaptureTime::kUnknown) {
      basis_ = Basis::kCaptureRecords;
    } else {
      basis_ = Basis::kConversionClock;
    }
    if (!OwnTime(frame)) basis_ = Basis::kConversionClock;  // a capture time outside the span
    // The recording's rate; one that is not a sensible number of frames a second is 25.
    auto sensible = [](double r) { return r >= 0.01 && r <= 1e7; };
    double rate = capture != nullptr ? capture->recordingRate : 0.0;
    if (!sensible(rate) && block != nullptr) rate = GetLE<std::uint32_t>(block + kBlockRateAt);
    if (!sensible(rate)) rate = frame.header->rate;
    rate_ = sensible(rate) ? rate : 25.0;
    lastNs_ = OwnTime(frame).value_or(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          WrittenAt().time_since_epoch())
                                          .count());
    constexpr std::int64_t kSecond = 1'000'000'000;
    originNs_ = lastNs_ / kSecond * kSecond - (lastNs_ % kSecond < 0 ? kSecond : 0);
    lastTicks_ = TicksAfterOrigin(lastNs_);
  }

  // The first frame's ticks come from Start; every later frame's from its time.
  std::uint64_t Ticks(const FrameData& frame) {
    if (frames_++ == 0) return lastTicks_;
    const std::int64_t period = std::llround(1e9 / rate_);
    const std::int64_t ns = OwnTime(frame).value_or(std::min(lastNs_ + period, kLatestNanoseconds));
    lastNs_ = ns;
    if (ns > originNs_) lastTicks_ = std::max(lastTicks_, TicksAfterOrigin(ns));
    return lastTicks_;
  }

  std::int64_t AbsoluteNanoseconds(std::uint64_t ticks) const {
    return originNs_ + static_cast<std::int64_t>(ticks) * 100;
  }
  Basis From() const { return basis_; }
  double Rate() const { return rate_; }

 private:
  std::uint64_t TicksAfterOrigin(std::int64_t ns) const {
    return (static_cast<std::uint64_t>(ns - originNs_) + 50) / 100;
  }

  std::optional<std::int64_t> OwnTime(const FrameData& frame) const {
    if (basis_ == Basis::kCameraStamps) return CameraTimestamp(frame.metadata);
    const CaptureInfo* capture = frame.capture;
    if (basis_ != Basis::kCaptureRecords || capture == nullptr || capture->timeSource == CaptureTime::kUnknown ||
        capture->timeMicroseconds < 0 || capture->timeMicroseconds > kLatestNanoseconds / 1000)
      return std::nullopt;
    return capture->timeMicroseconds * 1000;
  }

  Basis basis_ = Basis::kConversionClock;
  double rate_ = 25.0;
  std::int64_t originNs_ = 0, lastNs_ = 0;
  std::uint64_t lastTicks_ = 0, frames_ = 0;
};

// The 32-bit data checksum: the sum of the body's little-endian 32-bit words,
// the body taken in pieces of any length.
class DataChecksum {
 public:
  void Add(Bytes bytes) {
    std::size_t i = 0;
    for (; i < bytes.size() && filled_ != 0; ++i) AddByte(bytes[i]);
    for (; i + 4 <= bytes.size(); i += 4) sum_ += GetLE<std::uint32_t>(bytes.data() + i);
    for (; i < bytes.size(); ++i) AddByte(bytes[i]);
  }
  // Zero filler completes the last word.
  std::uint32_t Sum() const { return sum_ + word_; }

 private:
  void AddByte(std::uint8_t b) {
    word_ |= std::uint32_t{b} << (8 * filled_);
    if (++filled_ == 4) sum_ += word_, word_ = 0, filled_ = 0;
  }

  std::uint32_t sum_ = 0, word_ = 0;
  int filled_ = 0;
};

class Chapter10Writer final : public FrameWriter {
 public:
  explicit Chapter10Writer(int fd) : out_(fd), fd_(fd) {}

  int Write(const FrameData& frame) override {
    const FrameHeader& header = *frame.header;
    if (!started_) {
      Start(frame);
    } else if (header.width != width_ || header.height != height_ || header.bits != bits_ ||
               header.mosaic != mosaic_) {
      return kFkBadArgument;  // one geometry per file
    }
    const std::uint64_t ticks = clock_.Ticks(frame);
    // A time packet at the whole second of counter time that begins with or
    // before the frame, once for every second that holds frames.
    if (ticks >= nextTimeTicks_) {
      const std::uint64_t second = ticks / kTicksPerSecond * kTicksPerSecond;
      WriteTimePacket(second);
      nextTimeTicks_ = second + kTicksPerSecond;
    }
    if (frame.metadata != nullptr) WriteBlock(frame.metadata, ticks);
    WriteImage(frame.pixels, ticks);
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
  void Start(const FrameData& frame) {
    const FrameHeader& header = *frame.header;
    started_ = true;
    width_ = header.width;
    height_ = header.height;
    bits_ = header.bits;
    mosaic_ = header.mosaic;
    mosaicOrder_ = header.mosaicOrder;
    layout_ = FormatOfDepth(StoredDepth(header));
    clock_.Start(frame);
    WriteTmats(frame.capture);
  }

  // The time source of the time packets: the recording's clock came from
  // outside this program (external); this machine's clock is internal.
  bool TimeFromRecording() const { return clock_.From() != FrameClock::Basis::kConversionClock; }

  std::string ImageChannelText() const {
    const char* kind = layout_.channels == 3 ? "colour, blue-green-red" : mosaic_ ? "sensor mosaic" : "grey";
    return "Channel 2 images " + std::to_string(width_) + " x " + std::to_string(height_) + ", " +
           std::to_string(layout_.channelBits) + " bits a sample in " + std::to_string(layout_.sampleBytes * 8) +
           "-bit little-endian samples, " + kind + (mosaic_ ? " order " + std::to_string(mosaicOrder_) : "") +
           ", rows top to bottom, recorded at " + RateText(clock_.Rate()) + " frames a second";
  }

  // The setup record: the program, the date of the first frame, one data
  // source (the camera) and every channel of the file with its type.
  void WriteTmats(const CaptureInfo* capture) {
    const CalendarDate first = CalendarOf(clock_.AbsoluteNanoseconds(0) / 1000);  // the first frame's second
    char date[16];
    std::snprintf(date, sizeof date, "%02u-%02u-%04d", first.month, first.day, first.year);
    std::string text;
    auto line = [&text](const std::string& attribute) { text += attribute + ";\r\n"; };
    line("G\\PN:Tarnvel conversion");
    line("G\\106:09");
    line(std::string("G\\OD:") + date);
    line("G\\DSI\\N:1");
    line("G\\DSI-1:Camera");
    line("G\\DST-1:STO");
    line("G\\COM:" + ImageChannelText());
    line("G\\COM:Channel 3 the 1024-byte camera block of each frame, one message at the relative time of its image");
    line("R-1\\ID:Camera");
    if (capture != nullptr && capture->model[0] != '\0') line("R-1\\RI2:" + TmatsValue(capture->model));
    if (capture != nullptr && capture->serial[0] != '\0') line("R-1\\RI9:" + TmatsValue(capture->serial));
    line("R-1\\N:3");
    const char* const channels[3][2] = {{"Time", "TIMEIN"}, {"Frames", "IMGIN"}, {"CameraBlocks", "MSGIN"}};
    for (int n = 1; n <= 3; ++n) {
      const std::string index = std::to_string(n);
      line("R-1\\TK1-" + index + ":" + index);
      line("R-1\\DSI-" + index + ":" + channels[n - 1][0]);
      line("R-1\\CHE-" + index + ":T");
      line("R-1\\CDT-" + index + ":" + channels[n - 1][1]);
    }
    std::uint8_t csdw[4] = {};
    csdw[0] = kTmatsVersion;  // bit 9 clear: ASCII attributes
    WritePacket(kTmatsChannel, kComputerGeneratedFormat1, 0, csdw,
                {Bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size())});
  }

  // Time data format 1: the recording's clock (or this machine's), day-of-year
  // form, to the millisecond.
  void WriteTimePacket(std::uint64_t ticks) {
    const CalendarDate t = CalendarOf(clock_.AbsoluteNanoseconds(ticks) / 1000);
    const bool leap = (t.year % 4 == 0 && t.year % 100 != 0) || t.year % 400 == 0;
    const unsigned milliseconds = t.microsecond / 1000;
    std::uint8_t csdw[4] = {};
    csdw[0] = static_cast<std::uint8_t>(0x3 << 4 | (TimeFromRecording() ? 1 : 0));  // a clock's time; external or internal
    csdw[1] = leap ? 0x01 : 0x00;  // leap year; date as day of year
    std::uint8_t body[6];
    PutLE<std::uint16_t>(body, static_cast<std::uint16_t>(Bcd(milliseconds / 10 % 10) | Bcd(milliseconds / 100) << 4 |
                                                           Bcd(t.second) << 8));
    PutLE<std::uint16_t>(body + 2, static_cast<std::uint16_t>(Bcd(t.minute) | Bcd(t.hour) << 8));
    PutLE<std::uint16_t>(body + 4, static_cast<std::uint16_t>(Bcd(t.dayOfYear % 100) | (t.dayOfYear / 100) << 8));
    WritePacket(kTimeChannel, kTimeFormat1, ticks, csdw, {Bytes(body)});
  }

  // Message data format 0: one complete message, the block, behind its
  // intra-packet header (the frame's relative time, length, subchannel 0).
  void WriteBlock(const std::uint8_t* block, std::uint64_t ticks) {
    std::uint8_t csdw[4] = {};
    PutLE<std::uint32_t>(csdw, 1);  // one message, complete
    std::uint8_t intraHeader[12] = {};
    PutLE<std::uint64_t>(intraHeader, ticks & kCounterMask);
    PutLE<std::uint32_t>(intraHeader + 8, static_cast<std::uint32_t>(kMetadataBlockSize));
    WritePacket(kBlockChannel, kMessageFormat0, ticks, csdw, {Bytes(intraHeader), Bytes(block, kMetadataBlockSize)});
  }

  // Image data format 0: one packet holds the whole image, or the image is
  // cut into segments of whole pixels, the first and last marked as such.
  void WriteImage(const std::uint8_t* pixels, std::uint64_t ticks) {
    const std::size_t bytes = std::size_t{width_} * height_ * layout_.bytesPerPixel;
    const std::size_t parts = std::max<std::size_t>(1, (bytes + kMaxSegment - 1) / kMaxSegment);
    for (std::size_t part = 0; part < parts; ++part) {
      const std::size_t offset = part * kMaxSegment;
      const std::size_t length = std::min(kMaxSegment, bytes - offset);
      std::uint32_t word = static_cast<std::uint32_t>(length) & kImageLengthMask;
      if (parts == 1) word |= kOneWholeImage;
      if (part == 0) word |= kFirstSegment;
      if (part + 1 == parts) word |= kLastSegment;
      std::uint8_t csdw[4];
      PutLE(csdw, word);
      WritePacket(kImageChannel, kImageFormat0, ticks, csdw, {Bytes(pixels + offset, length)});
    }
  }

  void WritePacket(std::uint16_t channel, std::uint8_t dataType, std::uint64_t ticks, const std::uint8_t (&csdw)[4],
                   std::initializer_list<Bytes> body) {
    std::size_t dataLength = 4;
    DataChecksum sum;
    sum.Add(Bytes(csdw));
    for (const Bytes piece : body) dataLength += piece.size(), sum.Add(piece);
    const std::size_t filler = (4 - dataLength % 4) % 4;
    std::uint8_t header[kHeaderBytes] = {};
    PutLE<std::uint16_t>(header, kSync);
    PutLE<std::uint16_t>(header + 2, channel);
    PutLE<std::uint32_t>(header + 4, static_cast<std::uint32_t>(kHeaderBytes + dataLength + filler + 4));
    PutLE<std::uint32_t>(header + 8, static_cast<std::uint32_t>(dataLength));
    header[12] = kDataTypeVersion;
    header[13] = sequence_[channel]++;
    header[14] = kChecksum32;
    header[15] = dataType;
    PutLE<std::uint64_t>(header + 16, ticks & kCounterMask);  // 48 bits; bytes 22 and 23 follow
    std::uint16_t headerSum = 0;
    for (std::size_t i = 0; i < 22; i += 2) headerSum = static_cast<std::uint16_t>(headerSum + GetLE<std::uint16_t>(header + i));
    PutLE<std::uint16_t>(header + 22, headerSum);
    out_.Write(header, sizeof header);
    out_.Write(csdw, 4);
    for (const Bytes piece : body) out_.Write(piece.data(), piece.size());
    out_.WriteZeros(filler);
    out_.WriteValue<std::uint32_t>(sum.Sum());
  }

  OutputStream out_;
  int fd_;
  bool started_ = false;
  std::uint32_t width_ = 0, height_ = 0, bits_ = 0, mosaic_ = 0, mosaicOrder_ = 0;
  PixelFormat layout_;
  FrameClock clock_;
  std::uint64_t nextTimeTicks_ = 0;
  std::uint64_t wholeBytes_ = 0;  // the file up to the last frame written whole
  std::uint8_t sequence_[4] = {};
};

}  // namespace

std::unique_ptr<FrameWriter> CreateChapter10Writer(const WriterStart& start, int*) {
  return std::make_unique<Chapter10Writer>(start.fd);
}

}  // namespace tarnvel::framekit
