// Readers of the five text forms of a channel file (.ASC, .CSV, .PLT, .LVM,
// .XML) and the rules they share.
//
// All read by lines; a line keeps at most 511 characters, the rest of a longer
// line is passed over (it never turns into further lines). CR LF and LF both
// end a line. Numbers are read without regard to the locale.
//
// Shared rules:
// - A channel that a form names gets Enable 1, ScaleFactor 1.0, Gain 0,
//   Label "Channel%d" and Units "[V]". A channel number outside 0..15, or one
//   named a second time, is passed over with its column.
// - Codes go into the array in ascending channel order within an instant,
//   whatever the column order of the file.
// - Times are seconds; T0 is the first row's time, Rate the channel count
//   times the whole samples per second between the first two rows (100 when
//   there is no second row or it does not lie after the first).
// - A value that is missing from its row, and every code behind the end of a
//   file shorter than it claims, stays 0.
// - A count that the file's bytes could not possibly hold is refused, so a
//   small hostile file cannot make the reader allocate gigabytes.
#pragma once

#include <cstdint>

#include "channels/ChannelData.h"

namespace tarnvel {

// Each returns 1 or 0; `samples` is filled unless headerOnly (it may then be null).
// The header is expected cleared; the .PLT reader clears it itself.
int ReadChannelAsc(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly);
int ReadChannelCsv(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly);
int ReadChannelPlt(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly);
int ReadChannelLvm(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly);
int ReadChannelXml(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly);

// Seconds -> whole microseconds: below 0 trunc(t * 1e6 - 0.1) in single
// precision; above 0 trunc(double(float(t * 1e6)) + 0.1); 0 gives 0.
// Results beyond 64 bits clamp.
std::int64_t MicrosFromSeconds(float seconds);

// Sets T0 (clamped to 32 bits) and Rate from the first two row times in
// microseconds; `rows` is how many rows were seen (a second time counts only
// when rows >= 2).
void SetTimeAndRate(ChannelFileHeader* header, std::int64_t firstTime, std::int64_t secondTime,
                    std::int64_t rows, int channels);

// Gives the entry the defaults of a channel that a text form names,
// labelled "Channel%d" of `labelNumber`.
void SetNamedChannel(ChannelEntry* entry, int labelNumber);

}  // namespace tarnvel
