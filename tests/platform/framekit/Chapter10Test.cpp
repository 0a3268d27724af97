// Chapter 10 files read back by a packet reader written here: it checks every
// header, checksum, filler, sequence and time, and rebuilds frames and blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <tuple>

#include "platform/framekit/FrameKit.h"
#include "tests/platform/framekit/FrameKitTestSupport.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

std::uint64_t Le(const std::string& b, std::size_t at, int bytes) {
  std::uint64_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = v << 8 | static_cast<std::uint8_t>(b[at + static_cast<std::size_t>(i)]);
  return v;
}

struct Packet {
  std::uint16_t channel;
  std::uint8_t version, sequence, flags, type;
  std::uint64_t time;
  std::string body;  // channel-specific word and data
};

struct Reading {
  std::vector<Packet> packets;
  std::vector<std::string> problems;
  std::size_t bytesRead = 0;
};

Reading ReadPackets(const std::string& file) {
  Reading r;
  std::size_t at = 0;
  std::map<std::uint16_t, int> lastSequence;
  std::uint64_t lastTime = 0;
  while (at + 24 <= file.size()) {
    auto problem = [&](const std::string& text) { r.problems.push_back("@" + std::to_string(at) + ": " + text); };
    if (Le(file, at, 2) != 0xEB25) {
      problem("no sync");
      break;
    }
    std::uint16_t sum = 0;
    for (std::size_t i = 0; i < 22; i += 2) sum = static_cast<std::uint16_t>(sum + Le(file, at + i, 2));
    if (sum != Le(file, at + 22, 2)) problem("header checksum");
    const std::uint64_t packetLength = Le(file, at + 4, 4), dataLength = Le(file, at + 8, 4);
    if (packetLength % 4 != 0 || packetLength > 524288) problem("packet length");
    if (at + packetLength > file.size()) break;  // a cut packet ends the file
    Packet p;
    p.channel = static_cast<std::uint16_t>(Le(file, at + 2, 2));
    std::uint8_t* const fields[] = {&p.version, &p.sequence, &p.flags, &p.type};
    for (std::size_t i = 0; i < 4; ++i) *fields[i] = static_cast<std::uint8_t>(file[at + 12 + i]);
    p.time = Le(file, at + 16, 6);
    if (p.flags & 0x80) problem("unexpected secondary header");
    const std::size_t checksumBytes = std::size_t{1} << (p.flags & 3) >> 1;  // 0, 1, 2, 4
    if (24 + dataLength + checksumBytes > packetLength || packetLength - 24 - dataLength - checksumBytes > 3)
      problem("data length against packet length");
    p.body = file.substr(at + 24, dataLength);
    // The data checksum over the body and its filler, in the word size announced.
    const std::size_t covered = packetLength - 24 - checksumBytes;
    std::uint64_t dataSum = 0;
    if (checksumBytes == 0) problem("no data checksum");
    for (std::size_t i = 0; checksumBytes > 0 && i < covered; i += checksumBytes)
      dataSum += Le(file, at + 24 + i, int(checksumBytes));
    const std::uint64_t mask = checksumBytes == 4 ? 0xFFFFFFFFull : (1ull << (8 * checksumBytes)) - 1;
    if (checksumBytes > 0 && (dataSum & mask) != Le(file, at + 24 + covered, int(checksumBytes))) problem("data checksum");
    for (std::size_t i = dataLength; i < covered; ++i)
      if (file[at + 24 + i] != 0) problem("filler not zero");
    if (lastSequence.count(p.channel) && p.sequence != static_cast<std::uint8_t>(lastSequence[p.channel] + 1))
      problem("sequence of channel " + std::to_string(p.channel));
    lastSequence[p.channel] = p.sequence;
    if (p.time < lastTime) problem("time goes back");
    lastTime = p.time;
    r.packets.push_back(std::move(p));
    at += packetLength;
    r.bytesRead = at;
  }
  return r;
}

int Bcd(std::uint64_t v, int shift, int digits) {
  int value = 0;
  for (int d = digits - 1; d >= 0; --d) value = value * 10 + static_cast<int>(v >> (shift + 4 * d) & 0xF);
  return value;
}

struct Ch10Frames {
  std::vector<std::string> images, blocks;
  std::vector<std::uint64_t> imageTimes, blockTimes;
  std::vector<std::string> problems;
};

// Image data format 0: the channel word holds the segment length (bits 0-22),
// whether the packet holds a whole image (bits 24-25) and which part (26-27).
Ch10Frames Rebuild(const Reading& r) {
  Ch10Frames f;
  std::string building;
  for (const Packet& p : r.packets) {
    if (p.channel == 3) {
      EXPECT_EQ(p.type, 0x00);
      f.blocks.push_back(p.body.substr(4));
      f.blockTimes.push_back(p.time);
    }
    if (p.channel != 2) continue;
    EXPECT_EQ(p.type, 0x40);
    const std::uint64_t word = Le(p.body, 0, 4);
    const std::string segment = p.body.substr(4);
    if ((word & 0x7FFFFF) != segment.size()) f.problems.push_back("segment length");
    const int sum = static_cast<int>(word >> 24 & 3), part = static_cast<int>(word >> 26 & 3);
    if (sum == 1 && part == 0) {
      f.images.push_back(segment);
      f.imageTimes.push_back(p.time);
    } else if (sum == 0 && part == 1) {
      building = segment;
      f.imageTimes.push_back(p.time);
    } else if (sum == 0 && part == 2) {
      building += segment;
    } else if (sum == 0 && part == 3) {
      f.images.push_back(building + segment);
    } else {
      f.problems.push_back("image parts");
    }
  }
  return f;
}

std::string GevsBlock(std::uint32_t frame, std::uint64_t timestamp) {
  std::string b(1024, '\0');
  std::memcpy(b.data(), "OKN_GEVS", 8);
  for (int i = 0; i < 8; ++i) b[342 + i] = static_cast<char>(timestamp >> (8 * i));
  for (int i = 0; i < 4; ++i) b[350 + i] = static_cast<char>(frame >> (8 * i));
  return b;
}

struct Recording {
  std::uint32_t width, height, bits;
  bool mosaic;
  float rate;
  std::uint32_t frames;
  bool blocks = true;  // the camera's block with every frame
};

test::FrameSpec Spec(const Recording& s) { return {s.width, s.height, s.bits, s.mosaic, s.mosaic ? 2u : 0u, s.rate}; }
std::string Pixels(const Recording& s, std::uint32_t frame) {
  const auto pixels = test::PatternFrame(Spec(s), frame);
  return {pixels.begin(), pixels.end()};
}

// 2024-03-01 12:34:56.789 UTC, in nanoseconds since 1970.
constexpr std::uint64_t kStart = 1709296496789000000ull;

int WriteCh10(const std::string& path, const Recording& s) {
  FrameHandle handle = nullptr;
  if (const int opened = OpenOutput(path.c_str(), 1, &handle); opened != 0) return opened;
  const FrameHeader header = test::MakeHeader(Spec(s));
  int result = 0;
  for (std::uint32_t i = 0; i < s.frames && result == 0; ++i) {
    const std::string pixels = Pixels(s, i);
    const std::string block = GevsBlock(i, kStart + i * 1000);
    result = WriteFrame(handle, i, s.frames, &header, s.blocks ? block.data() : nullptr, pixels.data());
  }
  const int closed = CloseOutput(handle);
  return result != 0 ? result : closed;
}

TEST(Chapter10, EveryPacketChecksOutAndCarriesTheFramesAndBlocks) {
  test::TempDir dir;
  const Recording recordings[] = {
      {64, 48, 8, false, 25.0f, 60},      // grey, several time packets
      {640, 480, 16, false, 1000.0f, 3},  // 16-bit, more than one packet a frame
      {100, 80, 36, true, 30.0f, 4},      // a colour source's mosaic, 12 bits a sample
      {33, 17, 24, false, 7.0f, 3},       // processed colour, odd sizes
      {8, 8, 8, false, 2000.0f, 600},     // sequence numbers wrap
      {16, 16, 12, false, 50.0f, 3, false},  // no camera blocks
  };
  for (const Recording& s : recordings) {
    SCOPED_TRACE(std::to_string(s.width) + "x" + std::to_string(s.height) + "x" + std::to_string(s.bits));
    const std::string path = dir.File("rec.ch10");
    ASSERT_EQ(WriteCh10(path, s), 0);
    const std::string file = test::ReadFile(path);
    const Reading r = ReadPackets(file);
    EXPECT_TRUE(r.problems.empty()) << r.problems.front();
    EXPECT_EQ(r.bytesRead, file.size()) << "the file is whole packets";
    ASSERT_GE(r.packets.size(), 3u);
    // First the setup record, on channel 0, in ASCII.
    const Packet& tmats = r.packets[0];
    EXPECT_TRUE(tmats.channel == 0 && tmats.type == 0x01 && (Le(tmats.body, 0, 4) & 0x100) == 0);
    for (const std::string& field : {std::string("G\\106:09;"), std::string("R-1\\CDT-2:IMGIN;"),
                                     std::to_string(s.width) + " x " + std::to_string(s.height)})
      EXPECT_NE(tmats.body.find(field), std::string::npos) << field;
    for (const Packet& p : r.packets) EXPECT_EQ(p.version, 0x04);
    // Time packets: the first at relative time 0 with the camera's time of the
    // first frame, then one for each second of relative time.
    std::vector<const Packet*> times;
    for (const Packet& p : r.packets)
      if (p.channel == 1) times.push_back(&p);
    const double seconds = (s.frames - 1) / static_cast<double>(s.rate);
    ASSERT_EQ(times.size(), static_cast<std::size_t>(seconds) + 1);
    for (std::size_t k = 0; k < times.size(); ++k) {
      const Packet& t = *times[k];
      EXPECT_EQ(t.type, 0x11);
      EXPECT_EQ(t.time, k * 10'000'000ull);
      if (!s.blocks) continue;  // no camera time to carry
      // Bits 4-9: the recorder's clock (3), a leap year (2024), the day-of-year form (0).
      EXPECT_EQ(Le(t.body, 0, 4) >> 4 & 0x3F, 0x13u);
      const std::uint64_t w0 = Le(t.body, 4, 2), w1 = Le(t.body, 6, 2), w2 = Le(t.body, 8, 2);
      // Tens and hundreds of milliseconds, seconds, minutes, hours, day 61 (1 March 2024).
      EXPECT_EQ(std::tuple(Bcd(w0, 0, 2), Bcd(w0, 8, 2), Bcd(w1, 0, 2), Bcd(w1, 8, 2), Bcd(w2, 0, 3)),
                std::tuple(78, static_cast<int>((56 + k) % 60), 34 + static_cast<int>((56 + k) / 60), 12, 61));
    }
    // Frames and blocks, each at the relative time of its frame.
    const Ch10Frames f = Rebuild(r);
    EXPECT_TRUE(f.problems.empty());
    ASSERT_EQ(f.images.size(), s.frames);
    ASSERT_EQ(f.blocks.size(), s.blocks ? s.frames : 0u);
    for (std::uint32_t i = 0; i < s.frames; ++i) {
      const std::uint64_t expected = static_cast<std::uint64_t>(std::llround(i * 1e7 / s.rate));
      EXPECT_TRUE(f.images[i] == Pixels(s, i) && f.imageTimes[i] == expected) << "frame " << i;
      EXPECT_TRUE(!s.blocks || (f.blocks[i] == GevsBlock(i, kStart + i * 1000) && f.blockTimes[i] == expected))
          << "block " << i;
    }
  }
}

// Refused frames (another geometry, a depth the type does not take) leave no trace;
// a full disk ends with a failure and whole packets before it.
TEST(Chapter10, BadCallsAndAFullDiskLeaveAValidFile) {
  test::TempDir dir;
  FrameHandle handle = nullptr;
  ASSERT_EQ(OpenOutput(dir.File("two.ch10").c_str(), 1, &handle), 0);
  FrameHeader header = test::MakeHeader({8, 8, 8}), wider = header, deep = header;
  wider.width = 16;
  deep.bits = 20;
  const std::string pixels(16 * 16 * 2, '\x11');
  EXPECT_EQ(WriteFrame(handle, 0, 3, &header, nullptr, pixels.data()), 0);
  EXPECT_EQ(WriteFrame(handle, 1, 3, &wider, nullptr, pixels.data()), kFkBadArgument);
  EXPECT_EQ(WriteFrame(handle, 1, 3, &deep, nullptr, pixels.data()), kFkUnsupportedDepth);
  EXPECT_EQ(CloseOutput(handle), 0);
  EXPECT_TRUE(ReadPackets(test::ReadFile(dir.File("two.ch10"))).problems.empty());

  const Recording recording{256, 256, 16, false, 25.0f, 20};
  const std::string path = dir.File("cut.ch10");
  EXPECT_EQ(test::WriteWithSizeLimit(5 * 256 * 256 * 2 + 5000, [&] { return WriteCh10(path, recording); }),
            kFkWriteFailed);
  const std::string file = test::ReadFile(path);
  const Reading r = ReadPackets(file);
  EXPECT_TRUE(r.problems.empty());
  EXPECT_EQ(r.bytesRead, file.size()) << "cut back to the last whole frame";
  const Ch10Frames f = Rebuild(r);
  EXPECT_TRUE(f.problems.empty());
  EXPECT_GE(f.images.size(), 4u);
  EXPECT_EQ(f.blocks.size(), f.images.size());
  for (std::size_t i = 0; i < f.images.size(); ++i) EXPECT_EQ(f.images[i], Pixels(recording, std::uint32_t(i)));
}

}  // namespace
}  // namespace tarnvel
