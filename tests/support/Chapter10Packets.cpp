#include "tests/support/Chapter10Packets.h"

#include <chrono>
#include <cstdio>
#include <set>

namespace tarnvel::test::ch10 {
namespace {

std::uint64_t Le(const std::string& b, std::size_t at, int bytes) {
  std::uint64_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = v << 8 | static_cast<std::uint8_t>(b[at + static_cast<std::size_t>(i)]);
  return v;
}

int Bcd(std::uint64_t v, int shift, int digits) {
  int value = 0;
  for (int d = digits - 1; d >= 0; --d) value = value * 10 + static_cast<int>(v >> (shift + 4 * d) & 0xF);
  return value;
}

// The data checksum in the word size the flags announce (none, 8, 16, 32 bits).
bool DataChecksumHolds(const std::string& file, std::size_t at, std::size_t covered, std::size_t width) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < covered; i += width) sum += Le(file, at + 24 + i, static_cast<int>(width));
  const std::uint64_t mask = width == 4 ? 0xFFFFFFFFull : (1ull << (8 * width)) - 1;
  return (sum & mask) == Le(file, at + 24 + covered, static_cast<int>(width));
}

}  // namespace

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
    if (packetLength % 4 != 0 || packetLength > 524288 || packetLength < 28) {
      problem("packet length");
      break;
    }
    if (at + packetLength > file.size()) break;  // a cut packet ends the file
    Packet p;
    p.channel = static_cast<std::uint16_t>(Le(file, at + 2, 2));
    std::uint8_t* const fields[] = {&p.version, &p.sequence, &p.flags, &p.type};
    for (std::size_t i = 0; i < 4; ++i) *fields[i] = static_cast<std::uint8_t>(file[at + 12 + i]);
    p.time = Le(file, at + 16, 6);
    if (p.flags & 0x80) problem("unexpected secondary header");
    const std::size_t checksumBytes = std::size_t{1} << (p.flags & 3) >> 1;  // 0, 1, 2, 4
    if (24 + dataLength + checksumBytes > packetLength || packetLength - 24 - dataLength - checksumBytes > 3) {
      problem("data length against packet length");
      break;
    }
    p.body = file.substr(at + 24, dataLength);
    const std::size_t covered = packetLength - 24 - checksumBytes;
    if (checksumBytes == 0) problem("no data checksum");
    else if (!DataChecksumHolds(file, at, covered, checksumBytes)) problem("data checksum");
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

std::map<std::string, std::string> TmatsAttributes(const Reading& reading) {
  std::map<std::string, std::string> attributes;
  if (reading.packets.empty() || reading.packets[0].type != 0x01) return attributes;
  const std::string& text = reading.packets[0].body;
  std::size_t at = 4;
  while (at < text.size()) {
    std::size_t end = text.find(';', at);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(at, end - at);
    line.erase(0, line.find_first_not_of("\r\n"));
    if (const std::size_t colon = line.find(':'); colon != std::string::npos)
      attributes[line.substr(0, colon)] = line.substr(colon + 1);
    at = end + 1;
  }
  return attributes;
}

std::vector<std::string> CheckTmatsNamesEveryChannel(const Reading& reading) {
  std::vector<std::string> problems;
  auto attributes = TmatsAttributes(reading);
  if (attributes["G\\DSI-1"].empty() || attributes["G\\DSI-1"] != attributes["R-1\\ID"])
    problems.push_back("the data source does not lead to recorder R-1");
  const std::map<std::string, std::uint8_t> types = {{"TIMEIN", 0x11}, {"IMGIN", 0x48}, {"MSGIN", 0x30}, {"VIDIN", 0x40}};
  std::map<std::uint64_t, std::uint8_t> described;
  const int sources = std::atoi(attributes["R-1\\N"].c_str());
  for (int n = 1; n <= sources; ++n) {
    const std::string k = std::to_string(n);
    const auto type = types.find(attributes["R-1\\CDT-" + k]);
    if (type == types.end() || attributes["R-1\\CHE-" + k] != "T" || attributes["R-1\\TK1-" + k].empty()) {
      problems.push_back("source " + k + " is not an enabled channel of a known type");
      continue;
    }
    described[std::stoull(attributes["R-1\\TK1-" + k])] = type->second;
  }
  std::set<std::uint64_t> reported;
  for (const Packet& p : reading.packets) {
    if (p.channel == 0 || reported.count(p.channel)) continue;
    const auto it = described.find(p.channel);
    if (it == described.end() || it->second != p.type) {
      char text[96];
      std::snprintf(text, sizeof text, "channel %u (data type 0x%02X) is not described as such", p.channel, p.type);
      problems.push_back(text);
      reported.insert(p.channel);
    }
  }
  return problems;
}

Frames RebuildFrames(const Reading& reading, std::uint16_t channel, std::uint16_t blockChannel) {
  Frames f;
  std::string building;
  std::size_t segments = 0;
  for (const Packet& p : reading.packets) {
    if (p.channel == blockChannel) {
      const std::uint64_t word = Le(p.body, 0, 4);
      if (p.type != 0x30 || (word & 0xFFFF) != 1 || (word >> 16 & 3) != 0 || p.body.size() < 16) {
        f.problems.push_back("block packet is not one complete message");
        continue;
      }
      const std::uint64_t header = Le(p.body, 12, 4);
      if (Le(p.body, 4, 6) != p.time || (header & 0xFFFF) != p.body.size() - 16 || (header >> 30) != 0)
        f.problems.push_back("block message header");
      f.blocks.push_back(p.body.substr(16));
      f.blockTimes.push_back(p.time);
    }
    if (p.channel != channel) continue;
    if (p.type != 0x48) f.problems.push_back("image packet of data type " + std::to_string(p.type));
    const std::uint64_t word = Le(p.body, 0, 4);
    const std::string segment = p.body.substr(4);
    if ((word & 0x7FFFFFF) != segment.size()) f.problems.push_back("segment length");
    if (word >> 27 & 1) f.problems.push_back("intra-packet headers announced");
    const int sum = static_cast<int>(word >> 28 & 3), parts = static_cast<int>(word >> 30 & 3);
    const bool first = parts & 1, last = parts & 2;
    if (sum == 1 && first && last) {
      f.images.push_back(segment);
      f.imageTimes.push_back(p.time);
      f.segmentsPerImage.push_back(1);
    } else if (sum == 0 && first && !last) {
      building = segment, segments = 1;
      f.imageTimes.push_back(p.time);
    } else if (sum == 0 && !first && segments > 0) {
      building += segment, ++segments;
      if (!last) continue;
      f.images.push_back(building);
      f.segmentsPerImage.push_back(segments);
      segments = 0;
    } else {
      f.problems.push_back("image parts: SUM " + std::to_string(sum) + " PARTS " + std::to_string(parts));
    }
  }
  return f;
}

std::vector<TimePacket> TimePackets(const Reading& reading) {
  using namespace std::chrono;
  auto attributes = TmatsAttributes(reading);
  int month = 0, day = 0, year = 0;
  std::sscanf(attributes["G\\OD"].c_str(), "%d-%d-%d", &month, &day, &year);
  std::vector<TimePacket> times;
  for (const Packet& p : reading.packets) {
    if (p.type != 0x11 || p.body.size() < 10) continue;
    const std::uint64_t word = Le(p.body, 0, 4), w0 = Le(p.body, 4, 2), w1 = Le(p.body, 6, 2), w2 = Le(p.body, 8, 2);
    TimePacket t;
    t.counter = p.time;
    t.source = word & 0xF;
    t.format = word >> 4 & 0xF;
    t.leapYear = word >> 8 & 1;
    const int dayOfYear = Bcd(w2, 0, 3), milliseconds = Bcd(w0, 0, 2) * 10;
    const sys_days date = sys_days{std::chrono::year{year} / January / 1} + days{dayOfYear - 1};
    const auto inDay = hours{Bcd(w1, 8, 2)} + minutes{Bcd(w1, 0, 2)} + seconds{Bcd(w0, 8, 2)} + std::chrono::milliseconds{milliseconds};
    t.microseconds = duration_cast<microseconds>(date.time_since_epoch() + inDay).count();
    times.push_back(t);
  }
  return times;
}

std::int64_t AbsoluteTime(const std::vector<TimePacket>& times, std::uint64_t counter) {
  const TimePacket* base = nullptr;
  for (const TimePacket& t : times)
    if (t.counter <= counter) base = &t;
  if (base == nullptr) return 0;
  return base->microseconds + static_cast<std::int64_t>(counter - base->counter) / 10;
}

}  // namespace tarnvel::test::ch10
