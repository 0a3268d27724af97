// A reader of IRIG 106 Chapter 10 files written for the tests from the
// public standard's layouts, independent of the library's writer: packet
// headers and checksums, the TMATS attributes, time data format 1, image data
// format 0 and message data format 0.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tarnvel::test::ch10 {

struct Packet {
  std::uint16_t channel = 0;
  std::uint8_t version = 0, sequence = 0, flags = 0, type = 0;
  std::uint64_t time = 0;  // relative time counter, 48 bits
  std::string body;        // channel-specific word and data, without filler
};

struct Reading {
  std::vector<Packet> packets;
  std::vector<std::string> problems;  // every rule a packet breaks, with its file offset
  std::size_t bytesRead = 0;          // up to the end of the last whole packet
};

// Checks sync, header checksum, lengths, the 32-bit data checksum, zero
// filler, sequence numbers per channel and that relative time never goes back.
Reading ReadPackets(const std::string& file);

// The setup record's attributes ("G\106" -> "09"), from the first packet.
std::map<std::string, std::string> TmatsAttributes(const Reading& reading);

// Problems with the setup record against the packets: every channel that
// carries packets (but the setup record's own) must be a data source of the
// recorder with the channel data type of its packets, and no more sources.
std::vector<std::string> CheckTmatsNamesEveryChannel(const Reading& reading);

struct Frames {
  std::vector<std::string> images, blocks;
  std::vector<std::uint64_t> imageTimes, blockTimes;
  std::vector<std::size_t> segmentsPerImage;
  std::vector<std::string> problems;
};

// Images from image data format 0 packets of `channel` (the channel word's
// length in bits 0-26, IPH bit 27, SUM bits 28-29, PARTS bits 30-31), and
// blocks from message data format 0 packets of `blockChannel`.
Frames RebuildFrames(const Reading& reading, std::uint16_t channel = 2, std::uint16_t blockChannel = 3);

struct TimePacket {
  std::uint64_t counter = 0;             // its relative time
  std::int64_t microseconds = 0;         // the absolute time it carries, since 1970 (year from the setup record)
  unsigned source = 0, format = 0;       // channel word bits 0-3 and 4-7
  bool leapYear = false;
};

// Time data format 1 packets in the day-of-year form; the year comes from the
// setup record's G\OD date.
std::vector<TimePacket> TimePackets(const Reading& reading);

// The absolute time of a relative counter value, through the last time
// packet at or before it (microseconds since 1970).
std::int64_t AbsoluteTime(const std::vector<TimePacket>& times, std::uint64_t counter);

}  // namespace tarnvel::test::ch10
