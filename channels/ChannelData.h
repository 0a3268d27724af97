// Analogue channel data: the head record of a channel file, the 16-bit codes
// that every form is read into, and the dispatch over the seven file forms.
//
// A code covers -10 V .. +10 V: 0 is -10 V, 65535 is +10 V. The conversions
// run in single precision, step by step, so that every build gives the same
// code for the same volts. Samples are interleaved: one code per enabled
// channel in ascending channel order, then the next instant.
//
// All readers return 1 on success and 0 on failure and hold no state outside
// their arguments; parallel jobs may read at the same time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnvel {

constexpr int kChannelCount = 16;

// Setup of one channel, in the layout that the binary channel file and the
// channel settings share.
struct ChannelEntry {
  std::uint32_t Enable;
  char Label[128];
  char Units[32];
  float ScaleFactor;
  std::uint32_t Gain;
};
static_assert(sizeof(ChannelEntry) == 172);
static_assert(offsetof(ChannelEntry, Label) == 4);
static_assert(offsetof(ChannelEntry, Units) == 132);
static_assert(offsetof(ChannelEntry, ScaleFactor) == 164);
static_assert(offsetof(ChannelEntry, Gain) == 168);

// Head of a channel file; the binary form stores it as it stands here
// (little-endian), followed by Size single-precision samples in volts.
// Rate, Size and SamplesPerFrame count over all enabled channels together.
struct ChannelFileHeader {
  char Magic[8];                  // "OKN_BIN" in the binary form
  std::uint32_t Rate;             // samples per second
  std::uint32_t Size;             // samples in the file
  std::int32_t T0;                // time of the first sample in microseconds
  std::uint32_t SamplesPerFrame;  // samples per image frame; 0: unknown
  ChannelEntry Channels[kChannelCount];
};
static_assert(sizeof(ChannelFileHeader) == 2776);
static_assert(offsetof(ChannelFileHeader, Rate) == 8);
static_assert(offsetof(ChannelFileHeader, Size) == 12);
static_assert(offsetof(ChannelFileHeader, T0) == 16);
static_assert(offsetof(ChannelFileHeader, SamplesPerFrame) == 20);
static_assert(offsetof(ChannelFileHeader, Channels) == 24);

constexpr char kChannelMagic[] = "OKN_BIN";

// The interleaved codes of a channel file, Size of them.
using ChannelCodes = std::vector<std::uint16_t>;

// File-type numbers of the channel forms (the job's channel file type picks
// one of them as the extension of the channel path).
enum ChannelFileType : int {
  kChannelTypeDefault = 0,  // ".ASC", only as a job's extension
  kChannelTypeBinary = 1,   // ".DAT"
  kChannelTypeAsc = 2,
  kChannelTypePlt = 3,
  kChannelTypeLvm = 4,
  kChannelTypeXml = 5,
  kChannelTypeXls = 6,
  kChannelTypeCsv = 7,
};
constexpr int kChannelTypeTableSize = 8;

// volts -> code: trunc(65535 * (volts * 1000 + 10000) / 20000) in single
// precision. Volts beyond the range clamp to 0 or 65535; NaN gives 0.
std::uint16_t CodeFromVolts(float volts);
// The code of 0 V.
constexpr std::uint16_t kZeroVoltsCode = 32767;
// code -> volts: exactly 0.0 for kZeroVoltsCode, else
// (code * 20000 / 65535 - 10000 + 0.0001) / 1000 in single precision.
float VoltsFromCode(std::uint16_t code);

// Copies the extension of `type` (".DAT" etc.) into text, which must hold 5
// characters; a type outside 0..7 leaves text alone.
void ChannelExtension(char* text, int type);
// The form of a channel file by the extensions that occur anywhere in its path,
// without regard to case, tested in type order 1..7; none gives 1 (binary).
int ChannelTypeOf(const char* path);

// Reads the head and all codes. `type`, when not null, receives the form.
// `header` is cleared first; on failure it is left cleared and `samples` empty.
int ReadChannelData(const char* path, int* type, ChannelFileHeader* header, ChannelCodes* samples);
// The same without the codes; reading stops as soon as the head is complete.
int ReadChannelHeader(const char* path, int* type, ChannelFileHeader* header);

// The binary form: the head as stored, then Size floats. A file whose magic
// differs, or that holds fewer samples than Size says, is refused.
int ReadChannelBinary(const char* path, ChannelFileHeader* header, ChannelCodes* samples,
                      bool headerOnly);

// A channel file read once and kept for the length of a job: the frame step
// draws its plot and shows channel values from it, frame after frame.
struct ChannelData {
  ChannelFileHeader header{};
  ChannelCodes codes;
  int type = kChannelTypeBinary;

  // Bit i set: channel i is enabled.
  std::uint32_t EnabledMask() const;
  int EnabledCount() const;
  // Seconds the samples span: Size / Rate, both counted over all channels.
  double DurationSeconds() const;
  // The code of sample `index`, or false when the index lies outside the data.
  bool CodeAt(std::int64_t index, std::uint16_t* code) const;
};

// Fills `data` from the file; returns 1, or 0 with `data` emptied.
int LoadChannelData(const char* path, ChannelData* data);

// The value for the overlay: the code at frame * SamplesPerFrame, in volts,
// times channel 0's ScaleFactor when that is not 0. A frame whose sample lies
// outside the data, or an unreadable file, gives 0.0.
float ChannelValueAt(const ChannelData& data, std::int64_t frame);
float ChannelValueAt(const char* path, int frame);

}  // namespace tarnvel
