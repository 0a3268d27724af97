#include "channels/ChannelText.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "channels/ChannelTextParse.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {

using channeltext::ChannelNumberBehind;
using channeltext::ColumnTable;
using channeltext::LineReader;
using channeltext::ParseDouble;
using channeltext::ParseInt;
using channeltext::RowStore;
using channeltext::ToFloat;

constexpr char kTitleText[] = "TITLE=\"Data Acquisition channels\"";

std::int64_t MicrosFromSeconds(float seconds) {
  constexpr double kLimit = 9.2e18;  // inside the 64-bit range
  double micros = 0;
  if (seconds < 0.0f) {
    float scaled = seconds * 1000000.0f;
    float nudged = scaled - 0.1f;
    micros = nudged;
  } else if (seconds > 0.0f) {
    float scaled = seconds * 1000000.0f;
    micros = static_cast<double>(scaled) + 0.1;
  } else {
    return 0;  // zero, and NaN
  }
  if (micros >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (micros <= -kLimit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(micros);
}

void SetTimeAndRate(ChannelFileHeader* header, std::int64_t firstTime, std::int64_t secondTime,
                    std::int64_t rows, int channels) {
  constexpr std::int64_t kMinT0 = std::numeric_limits<std::int32_t>::min();
  constexpr std::int64_t kMaxT0 = std::numeric_limits<std::int32_t>::max();
  header->T0 = static_cast<std::int32_t>(firstTime < kMinT0 ? kMinT0 : firstTime > kMaxT0 ? kMaxT0 : firstTime);
  // A second row at the same time, before the first, or missing, leaves the
  // spacing unknown: 100 samples per second.
  if (rows < 2 || secondTime <= firstTime) {
    header->Rate = 100;
    return;
  }
  // The difference of two clamped 64-bit times may itself overflow.
  const long double span = static_cast<long double>(secondTime) - static_cast<long double>(firstTime);
  const std::int64_t perChannel = span > 1000000.0L ? 0 : 1000000 / static_cast<std::int64_t>(span);
  header->Rate = static_cast<std::uint32_t>(perChannel * channels);
}

void SetNamedChannel(ChannelEntry* entry, int labelNumber) {
  *entry = ChannelEntry{};
  entry->Enable = 1;
  entry->ScaleFactor = 1.0f;
  entry->Gain = 0;
  std::snprintf(entry->Label, sizeof entry->Label, "Channel%d", labelNumber);
  CopyText(entry->Units, "[V]");
}

namespace {

// Splits a line into fields at any of `separators`. With `mergeRuns`, a run of
// separators counts as one and leading ones are dropped.
std::vector<std::string> SplitFields(std::string_view line, const char* separators, bool mergeRuns) {
  std::vector<std::string> fields;
  std::string current;
  bool pending = !mergeRuns;
  for (char c : line) {
    if (std::strchr(separators, c) && c != '\0') {
      if (pending || !current.empty()) fields.push_back(current);
      current.clear();
      pending = !mergeRuns;
    } else {
      current.push_back(c);
      pending = true;
    }
  }
  if (pending && (!mergeRuns || !current.empty())) fields.push_back(current);
  return fields;
}

// Applies the named-channel defaults to every channel the table took.
void NameChannels(ChannelFileHeader* header, const ColumnTable& table) {
  for (int i = 0; i < kChannelCount; ++i)
    if (table.Mask() & (1u << i)) SetNamedChannel(&header->Channels[i], i);
}

// Reads the rows of a form with one row a line: the first field is the time,
// field k + 1 the value of table column k. Lines whose first field is no
// number are passed over unless `everyLineIsRow`.
void ReadRows(LineReader& reader, RowStore& rows, const ColumnTable& table, const char* separators,
              bool mergeRuns, bool everyLineIsRow) {
  while (!rows.HeadComplete() && reader.Next()) {
    const std::vector<std::string> fields = SplitFields(reader.View(), separators, mergeRuns);
    double seconds = 0;
    const bool hasTime = !fields.empty() && ParseDouble(fields[0].c_str(), &seconds);
    if (!hasTime && !everyLineIsRow) continue;
    if (!rows.BeginRow(ToFloat(seconds))) break;
    for (std::size_t k = 1; k < fields.size(); ++k) {
      double volts = 0;
      const int place = table.Place(static_cast<int>(k - 1));
      if (place >= 0 && ParseDouble(fields[k].c_str(), &volts)) rows.SetValue(place, ToFloat(volts));
    }
  }
}

// The integer behind `tag` in the line, or false when tag or number is missing.
bool NumberBehind(const char* line, const char* tag, std::int64_t* value) {
  const char* found = std::strstr(line, tag);
  return found && ParseInt(found + std::strlen(tag), value);
}

// Reads the next line and its number behind `tag`; a missing line or tag fails,
// a missing number reads as 0.
bool HeadLine(LineReader& reader, const char* tag, std::int64_t* value) {
  *value = 0;
  if (!reader.Next() || !reader.Contains(tag)) return false;
  NumberBehind(reader.Line(), tag, value);
  return true;
}

// Copies the word at `text` (up to the next blank) into a field; returns the
// position of that blank or of the end.
const char* TakeWord(const char* text, char* field, std::size_t capacity) {
  const char* end = text;
  while (*end != '\0' && *end != ' ') ++end;
  CopyText(field, capacity, std::string_view(text, static_cast<std::size_t>(end - text)));
  return end;
}

void ParseAscChannel(const char* line, int channel, ChannelEntry* entry) {
  char tag[32];
  std::snprintf(tag, sizeof tag, "CHANNEL_%d=", channel);
  const char* found = std::strstr(line, tag);
  if (!found) return;
  const char* p = found + std::strlen(tag);
  if (*p == '1') entry->Enable = 1;
  if (p[0] == '\0' || p[1] == '\0') {
    entry->ScaleFactor = 1.0f;
    return;
  }
  p += 2;
  p = TakeWord(p, entry->Label, sizeof entry->Label);
  if (*p == ' ') p = TakeWord(p + 1, entry->Units, sizeof entry->Units);
  double scale = 0;
  const char* behind = p;
  if (*p == ' ' && ParseDouble(p + 1, &scale, &behind)) entry->ScaleFactor = ToFloat(scale);
  if (entry->ScaleFactor == 0.0f || !std::isfinite(entry->ScaleFactor)) entry->ScaleFactor = 1.0f;
  std::int64_t gain = 0;
  if (*behind == ' ' && ParseInt(behind + 1, &gain) && gain >= 0 && gain <= 3)
    entry->Gain = static_cast<std::uint32_t>(gain);
}

}  // namespace

int ReadChannelAsc(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly) {
  LineReader reader(path);
  if (!reader.IsOpen()) return 0;
  if (!reader.Next() || !reader.Contains(kTitleText)) return 0;
  constexpr std::int64_t kMaxU32 = std::numeric_limits<std::uint32_t>::max();
  std::int64_t size = 0, rate = 0, t0 = 0, perFrame = 0;
  if (!HeadLine(reader, "SIZE=", &size) || size <= 0 || size > kMaxU32) return 0;
  if (!HeadLine(reader, "RATE=", &rate) || rate <= 0 || rate > kMaxU32) return 0;
  if (!HeadLine(reader, "T0=", &t0) || t0 < std::numeric_limits<std::int32_t>::min() ||
      t0 > std::numeric_limits<std::int32_t>::max())
    return 0;
  if (!HeadLine(reader, "SAMPLESPERFRM=", &perFrame)) return 0;
  if (perFrame <= 0 || perFrame > kMaxU32) perFrame = 1;
  // One sample a line: a file cannot hold more samples than it has bytes.
  if (static_cast<std::uint64_t>(size) > reader.FileBytes()) return 0;
  header->Size = static_cast<std::uint32_t>(size);
  header->Rate = static_cast<std::uint32_t>(rate);
  header->T0 = static_cast<std::int32_t>(t0);
  header->SamplesPerFrame = static_cast<std::uint32_t>(perFrame);

  for (int i = 0; i < kChannelCount; ++i) {
    if (!reader.Next()) return 0;  // the head ends inside the channel lines
    header->Channels[i] = ChannelEntry{};
    ParseAscChannel(reader.Line(), i, &header->Channels[i]);
  }
  if (headerOnly) return 1;

  samples->assign(header->Size, 0);
  for (std::uint32_t n = 0; n < header->Size && reader.Next(); ++n) {
    double volts = 0;
    if (ParseDouble(reader.Line(), &volts)) (*samples)[n] = CodeFromVolts(ToFloat(volts));
  }
  return 1;
}

int ReadChannelCsv(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly) {
  LineReader reader(path);
  if (!reader.IsOpen()) return 0;
  bool heading = false;
  while (!heading && reader.Next()) heading = reader.Contains("Time");
  if (!heading) return 0;

  ColumnTable table;
  const std::vector<std::string> names = SplitFields(reader.View(), ",", false);
  for (std::size_t k = 1; k < names.size(); ++k) table.AddColumn(ChannelNumberBehind(names[k].c_str()));
  if (table.ChannelCount() == 0) return 0;
  NameChannels(header, table);

  const std::int64_t dataStart = reader.Tell();
  std::int64_t rowCount = 0;
  while (reader.Next() && !reader.View().empty()) ++rowCount;
  if (!reader.Seek(dataStart)) return 0;

  RowStore rows(header, samples, table.ChannelCount(), rowCount, headerOnly);
  if (!rows.Allocate(reader.FileBytes())) return 0;
  ReadRows(reader, rows, table, ",", false, true);
  rows.Finish();
  return 1;
}

int ReadChannelPlt(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly) {
  *header = ChannelFileHeader{};
  LineReader reader(path);
  if (!reader.IsOpen()) return 0;
  if (!reader.Next() || !reader.Contains(kTitleText)) return 0;

  ColumnTable table;
  bool variables = false;
  std::int64_t rowCount = 0;
  while (reader.Next()) {
    const char* line = reader.Line();
    if (const char* tag = std::strstr(line, "SAMPLESPERFRM=")) {
      std::int64_t perFrame = 0;
      if (ParseInt(tag + 14, &perFrame) && perFrame >= 0 && perFrame <= std::numeric_limits<std::uint32_t>::max())
        header->SamplesPerFrame = static_cast<std::uint32_t>(perFrame);
    } else if (std::strstr(line, "ZONE")) {
      NumberBehind(line, "I=", &rowCount);
      break;
    } else if (const char* names = std::strstr(line, "VARIABLES"); names && !variables) {
      variables = true;
      const char* equal = std::strchr(names, '=');
      const std::vector<std::string> tokens =
          SplitFields(equal ? std::string_view(equal + 1) : std::string_view(), " ,\t", true);
      for (std::size_t k = 1; k < tokens.size(); ++k) table.AddColumn(ChannelNumberBehind(tokens[k].c_str()));
    }
  }
  if (rowCount <= 0 || table.ChannelCount() == 0) return 0;
  NameChannels(header, table);

  RowStore rows(header, samples, table.ChannelCount(), rowCount, headerOnly);
  if (!rows.Allocate(reader.FileBytes())) return 0;
  ReadRows(reader, rows, table, " ,\t", true, false);
  rows.Finish();
  return 1;
}

int ReadChannelLvm(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly) {
  LineReader reader(path);
  if (!reader.IsOpen()) return 0;
  std::int64_t channelCount = -1, rowCount = -1;
  while ((channelCount < 0 || rowCount < 0) && reader.Next()) {
    const char* tab = std::strchr(reader.Line(), '\t');
    std::int64_t* target = reader.Contains("Channels") ? &channelCount
                           : reader.Contains("Samples") ? &rowCount
                                                        : nullptr;
    if (!target) continue;
    *target = 0;
    if (tab) ParseInt(tab + 1, target);
    if (*target <= 0) return 0;
  }
  if (channelCount <= 0 || rowCount <= 0) return 0;

  bool heading = false;
  while (!heading && reader.Next()) heading = reader.Contains("X_Value");
  if (!heading) return 0;
  ColumnTable table;
  const std::vector<std::string> names = SplitFields(reader.View(), "\t", false);
  std::int64_t named = 0;
  for (std::size_t k = 1; k < names.size() && named < channelCount; ++k) {
    std::int64_t number = -1;
    const char* found = std::strstr(names[k].c_str(), "Channel ");
    if (found) {
      ++named;
      if (!ParseInt(found + 8, &number)) number = -1;
    }
    if (table.AddColumn(number)) SetNamedChannel(&header->Channels[number], static_cast<int>(k - 1));
  }
  if (table.ChannelCount() == 0) return 0;

  RowStore rows(header, samples, table.ChannelCount(), rowCount, headerOnly);
  if (!rows.Allocate(reader.FileBytes())) return 0;
  ReadRows(reader, rows, table, "\t", false, false);
  rows.Finish();
  return 1;
}

int ReadChannelXml(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly) {
  LineReader reader(path);
  if (!reader.IsOpen()) return 0;
  bool found = false;
  while (!found && reader.Next()) found = reader.Contains("<Names>");
  if (!found) return 0;
  ColumnTable table;
  found = false;
  while (!found && reader.Next()) {
    found = reader.Contains("</Names>");
    if (const char* name = std::strstr(reader.Line(), "Name=\"Channel"); name && !found)
      table.AddColumn(ChannelNumberBehind(name));
  }
  found = false;
  while (!found && reader.Next()) found = reader.Contains("<Worksheet ss:Name=\"PGDA1\">");
  found = false;
  while (!found && reader.Next()) found = reader.Contains("<Table");
  std::int64_t rowCount = 0;
  if (found) NumberBehind(reader.Line(), "ss:ExpandedRowCount=\"", &rowCount);
  if (table.ChannelCount() == 0 || rowCount <= 0) return 0;
  NameChannels(header, table);

  RowStore rows(header, samples, table.ChannelCount(), rowCount, headerOnly);
  if (!rows.Allocate(reader.FileBytes())) return 0;
  constexpr char kCellOpen[] = "<Cell><Data ss:Type=\"Number\">";
  while (!rows.HeadComplete() && reader.Next()) {
    const char* cell = std::strstr(reader.Line(), kCellOpen);
    if (!cell) continue;
    double value = 0;
    const bool hasValue = ParseDouble(cell + sizeof kCellOpen - 1, &value);
    if (reader.Contains("<NamedCell ss:Name=\"Time")) {
      if (!rows.BeginRow(ToFloat(value))) break;
    } else if (const char* name = std::strstr(reader.Line(), "<NamedCell ss:Name=\"Channel"); name && hasValue) {
      rows.SetValue(table.PlaceOfChannel(ChannelNumberBehind(name)), ToFloat(value));
    }
  }
  rows.Finish();
  return 1;
}

}  // namespace tarnvel
