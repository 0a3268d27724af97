// Pieces that the text readers of channel files share: a line reader, number
// parsing that ignores the locale, and the table that places each column's
// value at its channel's place in an interleaved instant.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

#include "channels/ChannelData.h"

namespace tarnvel::channeltext {

constexpr std::size_t kLineBuffer = 512;

// Reads a file line by line. A line keeps at most kLineBuffer - 1 characters;
// the rest of a longer line is passed over. "\n" and "\r\n" end a line.
class LineReader {
 public:
  explicit LineReader(const char* path);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool IsOpen() const { return file_ != nullptr; }
  // False at the end of the file (a last line without "\n" still counts).
  bool Next();
  // The current line, terminated; embedded NUL bytes end it early for the
  // C-string searches, which is harmless.
  const char* Line() const { return line_; }
  std::string_view View() const { return {line_, length_}; }
  bool Contains(const char* text) const;

  std::int64_t Tell() const;
  bool Seek(std::int64_t position);
  // Size of the whole file in bytes (0 when unknown).
  std::uint64_t FileBytes() const { return fileBytes_; }

 private:
  std::FILE* file_ = nullptr;
  std::uint64_t fileBytes_ = 0;
  char line_[kLineBuffer] = {};
  std::size_t length_ = 0;
};

// Parses a decimal number at the start of `text` after blanks and tabs (a
// leading '+' allowed). Returns false when none stands there. `end`, when
// not null, receives the first character behind the number.
bool ParseDouble(const char* text, double* value, const char** end = nullptr);
bool ParseInt(const char* text, std::int64_t* value, const char** end = nullptr);
// The float of a parsed double, clamped into the float range.
float ToFloat(double value);
// "Channel" followed directly by a decimal: that number, else -1 (also for
// numbers that do not fit an int).
std::int64_t ChannelNumberBehind(const char* text, const char** end = nullptr);

// Which column of a row holds which channel. Columns are added in file order;
// each names a channel number, or none. Out-of-range and repeated channel
// numbers are passed over. Once all columns are in, Place() gives the index of
// a column's code within an instant.
class ColumnTable {
 public:
  // Returns true when the channel was taken.
  bool AddColumn(std::int64_t channelNumber);
  int ChannelCount() const { return count_; }
  std::uint32_t Mask() const { return mask_; }
  int Columns() const { return static_cast<int>(columnChannel_.size()); }
  // Index within an instant of the channel in `column`, or -1.
  int Place(int column) const;
  // Index within an instant of channel `number`, or -1 when it is not taken.
  int PlaceOfChannel(std::int64_t number) const;

 private:
  std::vector<int> columnChannel_;
  std::uint32_t mask_ = 0;
  int count_ = 0;
};

// The rows of a text form as they are read: the first two times, and the codes.
class RowStore {
 public:
  RowStore(ChannelFileHeader* header, ChannelCodes* samples, int channels, std::int64_t rows,
           bool headerOnly);
  // Sizes the header and the array; false when the count is beyond reason
  // for a file of `fileBytes` bytes.
  bool Allocate(std::uint64_t fileBytes);
  // Starts the next row with its time; false when all rows are in.
  bool BeginRow(float seconds);
  // Stores the value at `place` of the current row.
  void SetValue(int place, float volts);
  // True once only the head is wanted and two rows have been seen.
  bool HeadComplete() const { return headerOnly_ && rowsSeen_ >= 2; }
  // Sets T0 and Rate from what was seen.
  void Finish();

 private:
  ChannelFileHeader* header_;
  ChannelCodes* samples_;
  int channels_;
  std::int64_t rows_;
  bool headerOnly_;
  std::int64_t rowsSeen_ = 0;
  std::int64_t firstTime_ = 0;
  std::int64_t secondTime_ = 0;
};

}  // namespace tarnvel::channeltext
