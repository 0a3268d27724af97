#include "channels/ChannelData.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>

#include "channels/ChannelText.h"
#include "channels/ChannelXls.h"

namespace tarnvel {

static_assert(std::endian::native == std::endian::little,
              "the binary channel form is read in place as little-endian");

namespace {

constexpr const char* kChannelTypeTable[kChannelTypeTableSize] = {".ASC", ".DAT", ".ASC", ".PLT",
                                                                   ".LVM", ".XML", ".XLS", ".CSV"};

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

int ReadAny(const char* path, int* type, ChannelFileHeader* header, ChannelCodes* samples,
            bool headerOnly) {
  *header = ChannelFileHeader{};
  if (samples) samples->clear();
  const int form = ChannelTypeOf(path);
  if (type) *type = form;
  int ok = 0;
  switch (form) {
    case kChannelTypeAsc: ok = ReadChannelAsc(path, header, samples, headerOnly); break;
    case kChannelTypePlt: ok = ReadChannelPlt(path, header, samples, headerOnly); break;
    case kChannelTypeLvm: ok = ReadChannelLvm(path, header, samples, headerOnly); break;
    case kChannelTypeXml: ok = ReadChannelXml(path, header, samples, headerOnly); break;
    case kChannelTypeXls: ok = ReadChannelXls(path, header, samples, headerOnly); break;
    case kChannelTypeCsv: ok = ReadChannelCsv(path, header, samples, headerOnly); break;
    default: ok = ReadChannelBinary(path, header, samples, headerOnly); break;
  }
  if (!ok) {
    *header = ChannelFileHeader{};
    if (samples) ChannelCodes().swap(*samples);
  }
  return ok;
}

}  // namespace

std::uint16_t CodeFromVolts(float volts) {
  // One operation per statement keeps every step in single precision.
  float millivolts = volts * 1000.0f;
  float shifted = millivolts + 10000.0f;
  float scaled = 65535.0f * shifted;
  float code = scaled / 20000.0f;
  if (!(code >= 0.0f)) return 0;  // also NaN
  if (code >= 65535.0f) return 65535;
  return static_cast<std::uint16_t>(code);
}

float VoltsFromCode(std::uint16_t code) {
  if (code == kZeroVoltsCode) return 0.0f;  // the scale's middle lies half a step above it
  float scaled = static_cast<float>(code) * 20000.0f;
  float millivolts = scaled / 65535.0f;
  float centred = millivolts - 10000.0f;
  float nudged = centred + 0.0001f;
  return nudged / 1000.0f;
}

void ChannelExtension(char* text, int type) {
  if (type < 0 || type >= kChannelTypeTableSize) return;
  std::memcpy(text, kChannelTypeTable[type], 5);
}

int ChannelTypeOf(const char* path) {
  // An upper-case copy of the path's first 259 characters, as a path field holds.
  char upper[260];
  std::size_t n = 0;
  for (; path[n] != '\0' && n + 1 < sizeof upper; ++n)
    upper[n] = static_cast<char>(std::toupper(static_cast<unsigned char>(path[n])));
  upper[n] = '\0';
  for (int type = 1; type < kChannelTypeTableSize; ++type)
    if (std::strstr(upper, kChannelTypeTable[type])) return type;
  return kChannelTypeBinary;
}

int ReadChannelBinary(const char* path, ChannelFileHeader* header, ChannelCodes* samples,
                      bool headerOnly) {
  FilePtr file(std::fopen(path, "rb"));
  if (!file) return 0;
  if (std::fread(header, sizeof *header, 1, file.get()) != 1) return 0;
  if (std::strncmp(header->Magic, kChannelMagic, sizeof header->Magic) != 0) return 0;
  // A file that holds fewer samples than its head claims is refused, in the
  // head-only read as well, so that both reads agree on every file.
  if (std::fseek(file.get(), 0, SEEK_END) != 0) return 0;
  const long bytes = std::ftell(file.get());
  if (bytes < static_cast<long>(sizeof *header)) return 0;
  const std::uint64_t held = (static_cast<std::uint64_t>(bytes) - sizeof *header) / sizeof(float);
  if (held < header->Size) return 0;
  if (headerOnly) return 1;
  if (std::fseek(file.get(), sizeof *header, SEEK_SET) != 0) return 0;

  samples->assign(header->Size, 0);
  float block[4096];
  std::uint32_t done = 0;
  while (done < header->Size) {
    const std::size_t want = std::min<std::size_t>(header->Size - done, std::size(block));
    if (std::fread(block, sizeof(float), want, file.get()) != want) {
      ChannelCodes().swap(*samples);
      return 0;
    }
    for (std::size_t i = 0; i < want; ++i) (*samples)[done + i] = CodeFromVolts(block[i]);
    done += static_cast<std::uint32_t>(want);
  }
  return 1;
}

int ReadChannelData(const char* path, int* type, ChannelFileHeader* header, ChannelCodes* samples) {
  return ReadAny(path, type, header, samples, false);
}

int ReadChannelHeader(const char* path, int* type, ChannelFileHeader* header) {
  return ReadAny(path, type, header, nullptr, true);
}

std::uint32_t ChannelData::EnabledMask() const {
  std::uint32_t mask = 0;
  for (int i = 0; i < kChannelCount; ++i)
    if (header.Channels[i].Enable) mask |= 1u << i;
  return mask;
}

int ChannelData::EnabledCount() const { return std::popcount(EnabledMask()); }

double ChannelData::DurationSeconds() const {
  return header.Rate ? static_cast<double>(header.Size) / header.Rate : 0.0;
}

bool ChannelData::CodeAt(std::int64_t index, std::uint16_t* code) const {
  if (index < 0 || index >= static_cast<std::int64_t>(codes.size())) return false;
  *code = codes[static_cast<std::size_t>(index)];
  return true;
}

int LoadChannelData(const char* path, ChannelData* data) {
  const int ok = ReadChannelData(path, &data->type, &data->header, &data->codes);
  if (!ok) data->type = ChannelTypeOf(path);
  return ok;
}

float ChannelValueAt(const ChannelData& data, std::int64_t frame) {
  std::uint16_t code = 0;
  if (!data.CodeAt(frame * static_cast<std::int64_t>(data.header.SamplesPerFrame), &code)) return 0.0f;
  const float volts = VoltsFromCode(code);
  const float scale = data.header.Channels[0].ScaleFactor;
  const float value = scale != 0.0f ? volts * scale : volts;
  return value == 0.0f ? 0.0f : value;  // 0 V times a negative scale is 0, not -0
}

float ChannelValueAt(const char* path, int frame) {
  ChannelData data;
  if (!LoadChannelData(path, &data)) return 0.0f;
  return ChannelValueAt(data, frame);
}

}  // namespace tarnvel
