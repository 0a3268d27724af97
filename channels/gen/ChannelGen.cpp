#include "channels/gen/ChannelGen.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <numbers>

#include "channels/gen/XlsWriter.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {

namespace {

std::vector<int> EnabledChannels(const ChannelFileHeader& header) {
  std::vector<int> channels;
  for (int i = 0; i < kChannelCount; ++i)
    if (header.Channels[i].Enable) channels.push_back(i);
  return channels;
}

float SignalValue(ChannelSignal signal, std::uint64_t k, std::uint32_t samplesPerFrame, std::uint32_t period,
                  float amplitude, std::uint32_t* noiseState) {
  const std::uint64_t periodSamples = static_cast<std::uint64_t>(period) * samplesPerFrame;
  const double phase = static_cast<double>(k % periodSamples) / static_cast<double>(periodSamples);
  switch (signal) {
    case ChannelSignal::kSine:
      return static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * phase));
    case ChannelSignal::kStep: {
      const std::uint64_t frame = k / samplesPerFrame;
      const std::uint64_t half = std::max<std::uint32_t>(period / 2, 1);
      return (frame / half) % 2 == 0 ? amplitude : -amplitude;
    }
    case ChannelSignal::kRamp:
      return static_cast<float>(-amplitude + 2.0 * amplitude * phase);
    case ChannelSignal::kNoise: {
      std::uint32_t x = *noiseState;
      x ^= x << 13;
      x ^= x >> 17;
      x ^= x << 5;
      *noiseState = x;
      return static_cast<float>(amplitude * (static_cast<double>(x) / 4294967295.0 - 0.5));
    }
  }
  return 0.0f;
}

using FilePtr = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

FilePtr OpenForWriting(const std::string& path, const char* mode) {
  return FilePtr(std::fopen(path.c_str(), mode), std::fclose);
}

bool Finish(FilePtr file) {
  const bool ok = !std::ferror(file.get());
  return std::fclose(file.release()) == 0 && ok;
}

constexpr char kTitle[] = "TITLE=\"Data Acquisition channels\"";

bool WriteBinary(const std::string& path, const ChannelRecording& rec) {
  FilePtr file = OpenForWriting(path, "wb");
  if (!file) return false;
  std::fwrite(&rec.header, sizeof rec.header, 1, file.get());
  std::fwrite(rec.volts.data(), sizeof(float), rec.volts.size(), file.get());
  return Finish(std::move(file));
}

bool WriteAsc(const std::string& path, const ChannelRecording& rec) {
  FilePtr file = OpenForWriting(path, "w");
  if (!file) return false;
  std::FILE* f = file.get();
  const ChannelFileHeader& h = rec.header;
  std::fprintf(f, "%s\n", kTitle);
  std::fprintf(f, "%s%d\n", "SIZE=", static_cast<int>(h.Size));
  std::fprintf(f, "%s%d\n", "RATE=", static_cast<int>(h.Rate));
  std::fprintf(f, "%s%d\n", "T0=", h.T0);
  std::fprintf(f, "%s%d\n", "SAMPLESPERFRM=", static_cast<int>(h.SamplesPerFrame));
  for (int i = 0; i < kChannelCount; ++i) {
    const ChannelEntry& e = h.Channels[i];
    std::fprintf(f, "CHANNEL_%d=%d %s %s %.3f %d\n", i, static_cast<int>(e.Enable), e.Label, e.Units,
                 static_cast<double>(e.ScaleFactor), static_cast<int>(e.Gain));
  }
  for (float v : rec.volts) std::fprintf(f, "%f\n", static_cast<double>(v));
  return Finish(std::move(file));
}

// Writes the rows of a table form: `timeFormat` for the time, then
// `valueFormat` for each channel's value, then `rowEnd`.
void WriteRows(std::FILE* f, const ChannelRecording& rec, std::size_t channels, const char* timeFormat,
               const char* valueFormat, const char* rowEnd) {
  for (std::size_t r = 0; r < rec.times.size(); ++r) {
    std::fprintf(f, timeFormat, rec.times[r]);
    for (std::size_t c = 0; c < channels; ++c)
      std::fprintf(f, valueFormat, static_cast<double>(rec.volts[r * channels + c]));
    std::fputs(rowEnd, f);
  }
}

bool WriteCsv(const std::string& path, const ChannelRecording& rec) {
  FilePtr file = OpenForWriting(path, "w");
  if (!file) return false;
  const std::vector<int> channels = EnabledChannels(rec.header);
  std::fputs("Time", file.get());
  for (int c : channels) std::fprintf(file.get(), ",Channel%d", c);
  std::fputs("\n", file.get());
  WriteRows(file.get(), rec, channels.size(), "%.06f", ",%.06f", "\n");
  return Finish(std::move(file));
}

bool WritePlt(const std::string& path, const ChannelRecording& rec) {
  FilePtr file = OpenForWriting(path, "w");
  if (!file) return false;
  std::FILE* f = file.get();
  const std::vector<int> channels = EnabledChannels(rec.header);
  std::fprintf(f, "%s\n", kTitle);
  std::fprintf(f, "%s%d\n", "SAMPLESPERFRM=", static_cast<int>(rec.header.SamplesPerFrame));
  std::fputs("VARIABLES= \"T\"", f);
  for (int c : channels) std::fprintf(f, " \"Channel%d\"", c);
  std::fputs("\n", f);
  std::fprintf(f, "ZONE I=%d, J=%d, F=POINT\n", static_cast<int>(rec.times.size()), static_cast<int>(channels.size()));
  WriteRows(f, rec, channels.size(), "%f", ", %f", "\n");
  return Finish(std::move(file));
}

bool WriteLvm(const std::string& path, const ChannelRecording& rec) {
  FilePtr file = OpenForWriting(path, "w");
  if (!file) return false;
  std::FILE* f = file.get();
  const std::vector<int> channels = EnabledChannels(rec.header);
  const double step = rec.times.size() > 1 ? rec.times[1] - rec.times[0] : 0.0;
  std::fputs("LabVIEW Measurement\t\nWriter_Version\t2\nReader_Version\t2\nSeparator\tTab\n"
             "Decimal_Separator\t.\nMulti_Headings\tNo\nX_Columns\tOne\nTime_Pref\tRelative\n"
             "Operator\ttarnvel\n***End_Of_Header***\t\n\n",
             f);
  std::fprintf(f, "Channels\t%d\n", static_cast<int>(channels.size()));
  std::fputs("Samples", f);
  for (std::size_t c = 0; c < channels.size(); ++c) std::fprintf(f, "\t%d", static_cast<int>(rec.times.size()));
  std::fputs("\nX_Dimension", f);
  for (std::size_t c = 0; c < channels.size(); ++c) std::fputs("\tTime", f);
  std::fputs("\nX0", f);
  for (std::size_t c = 0; c < channels.size(); ++c)
    std::fprintf(f, "\t%f", rec.times.empty() ? 0.0 : rec.times[0]);
  std::fputs("\nDelta_X", f);
  for (std::size_t c = 0; c < channels.size(); ++c) std::fprintf(f, "\t%f", step);
  std::fputs("\n***End_Of_Header***\t\nX_Value", f);
  for (int c : channels) std::fprintf(f, "\tChannel %02d [V]", c);
  std::fputs("\tComment\n", f);
  WriteRows(f, rec, channels.size(), "%f\t", "%f\t", "\n");
  return Finish(std::move(file));
}

bool WriteXml(const std::string& path, const ChannelRecording& rec) {
  FilePtr file = OpenForWriting(path, "w");
  if (!file) return false;
  std::FILE* f = file.get();
  const std::vector<int> channels = EnabledChannels(rec.header);
  std::fputs("<?xml version=\"1.0\"?>\n"
             "<Workbook xmlns=\"urn:schemas-microsoft-com:office:spreadsheet\"\n"
             " xmlns:o=\"urn:schemas-microsoft-com:office:office\"\n"
             " xmlns:x=\"urn:schemas-microsoft-com:office:excel\"\n"
             " xmlns:ss=\"urn:schemas-microsoft-com:office:spreadsheet\">\n"
             " <Names>\n"
             "  <NamedRange ss:Name=\"Time\" ss:RefersTo=\"=PGDA1!C1\"/>\n",
             f);
  for (std::size_t c = 0; c < channels.size(); ++c)
    std::fprintf(f, "  <NamedRange ss:Name=\"Channel%d\" ss:RefersTo=\"=PGDA1!C%d\"/>\n", channels[c],
                 static_cast<int>(c + 2));
  std::fputs(" </Names>\n <Worksheet ss:Name=\"PGDA1\">\n", f);
  std::fprintf(f, "  <Table ss:ExpandedColumnCount=\"%d\" ss:ExpandedRowCount=\"%d\" x:FullColumns=\"1\" x:FullRows=\"1\">\n",
               static_cast<int>(channels.size() + 1), static_cast<int>(rec.times.size()));
  for (std::size_t r = 0; r < rec.times.size(); ++r) {
    std::fputs("   <Row>\n", f);
    std::fprintf(f, "    <Cell><Data ss:Type=\"Number\">%f</Data><NamedCell ss:Name=\"Time\"/></Cell>\n", rec.times[r]);
    for (std::size_t c = 0; c < channels.size(); ++c)
      std::fprintf(f, "    <Cell><Data ss:Type=\"Number\">%f</Data><NamedCell ss:Name=\"Channel%d\"/></Cell>\n",
                   static_cast<double>(rec.volts[r * channels.size() + c]), channels[c]);
    std::fputs("   </Row>\n", f);
  }
  std::fputs("  </Table>\n </Worksheet>\n</Workbook>\n", f);
  return Finish(std::move(file));
}

bool WriteXls(const std::string& path, const ChannelRecording& rec) {
  const std::vector<int> channels = EnabledChannels(rec.header);
  if (rec.times.size() > 65535) return false;
  XlsSheet sheet{"PGDA1", {}};
  sheet.rows.reserve(rec.times.size() + 1);
  std::vector<XlsCell> heading{XlsCell::Text("Times")};
  for (int c : channels) heading.push_back(XlsCell::Text("Channel" + std::to_string(c)));
  sheet.rows.push_back(std::move(heading));
  for (std::size_t r = 0; r < rec.times.size(); ++r) {
    std::vector<XlsCell> row{XlsCell::Number(rec.times[r])};
    for (std::size_t c = 0; c < channels.size(); ++c)
      row.push_back(XlsCell::Number(rec.volts[r * channels.size() + c]));
    sheet.rows.push_back(std::move(row));
  }
  return WriteXlsWorkbook(path, {sheet});
}

}  // namespace

ChannelRecording MakeChannelRecording(const ChannelPlan& plan) {
  ChannelRecording rec;
  const int count = std::popcount(plan.channelMask & 0xFFFFu);
  const std::uint64_t instants = static_cast<std::uint64_t>(plan.frameCount) * plan.samplesPerFrame;
  const double perChannelRate = plan.frameRate * plan.samplesPerFrame;
  if (count == 0 || instants == 0 || !(perChannelRate > 0) ||
      instants * count > std::numeric_limits<std::uint32_t>::max() ||
      perChannelRate * count > std::numeric_limits<std::uint32_t>::max())
    return rec;

  ChannelFileHeader& h = rec.header;
  std::memcpy(h.Magic, kChannelMagic, sizeof kChannelMagic);
  h.Rate = static_cast<std::uint32_t>(std::lround(perChannelRate)) * static_cast<std::uint32_t>(count);
  h.Size = static_cast<std::uint32_t>(instants * count);
  h.T0 = static_cast<std::int32_t>(std::llround(plan.startSeconds * 1e6));
  h.SamplesPerFrame = plan.samplesPerFrame * static_cast<std::uint32_t>(count);
  for (int i = 0; i < kChannelCount; ++i) {
    ChannelEntry& e = h.Channels[i];
    e.Enable = (plan.channelMask >> i) & 1u;
    std::snprintf(e.Label, sizeof e.Label, "Channel%d", i);
    CopyText(e.Units, "[V]");
    e.ScaleFactor = 1.0f;
    e.Gain = 0;
  }

  const float amplitude = std::clamp(plan.amplitude, 0.0f, 10.0f);
  const std::uint32_t period = plan.periodFrames ? std::max<std::uint32_t>(plan.periodFrames, 2)
                                                 : std::max<std::uint32_t>(plan.frameCount / 2, 2);
  std::uint32_t noise[kChannelCount];
  for (int i = 0; i < kChannelCount; ++i) noise[i] = (plan.seed | 1u) * 2654435761u + static_cast<std::uint32_t>(i) * 40503u + 1u;

  rec.times.resize(instants);
  rec.volts.reserve(h.Size);
  for (std::uint64_t k = 0; k < instants; ++k) {
    rec.times[k] = plan.startSeconds + static_cast<double>(k) / perChannelRate;
    for (int i = 0; i < kChannelCount; ++i)
      if (h.Channels[i].Enable)
        rec.volts.push_back(SignalValue(plan.signals[i], k, plan.samplesPerFrame, period, amplitude, &noise[i]));
  }
  return rec;
}

bool WriteChannelFile(const std::string& path, int type, const ChannelRecording& recording) {
  if (recording.header.Size == 0 || recording.volts.size() != recording.header.Size) return false;
  switch (type) {
    case kChannelTypeBinary: return WriteBinary(path, recording);
    case kChannelTypeDefault:
    case kChannelTypeAsc: return WriteAsc(path, recording);
    case kChannelTypePlt: return WritePlt(path, recording);
    case kChannelTypeLvm: return WriteLvm(path, recording);
    case kChannelTypeXml: return WriteXml(path, recording);
    case kChannelTypeXls: return WriteXls(path, recording);
    case kChannelTypeCsv: return WriteCsv(path, recording);
    default: return false;
  }
}

std::string ChannelFilePath(std::string_view folder, std::string_view baseName, int type) {
  char extension[8] = "";
  ChannelExtension(extension, type);
  return JoinPath(folder, std::string(baseName) + extension);
}

}  // namespace tarnvel
