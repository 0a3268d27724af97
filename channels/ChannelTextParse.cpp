#include "channels/ChannelTextParse.h"

#include <sys/stat.h>

#include <bit>
#include <charconv>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

#include "channels/ChannelText.h"

namespace tarnvel::channeltext {

LineReader::LineReader(const char* path) : file_(std::fopen(path, "rb")) {
  if (!file_) return;
  struct stat info {};
  if (::fstat(::fileno(file_), &info) == 0 && info.st_size > 0)
    fileBytes_ = static_cast<std::uint64_t>(info.st_size);
}

LineReader::~LineReader() {
  if (file_) std::fclose(file_);
}

bool LineReader::Next() {
  length_ = 0;
  line_[0] = '\0';
  if (!file_) return false;
  int c = getc_unlocked(file_);
  if (c == EOF) return false;
  for (; c != EOF && c != '\n'; c = getc_unlocked(file_)) {
    if (length_ + 1 < kLineBuffer) line_[length_++] = static_cast<char>(c);
  }
  if (length_ > 0 && line_[length_ - 1] == '\r') --length_;
  line_[length_] = '\0';
  return true;
}

bool LineReader::Contains(const char* text) const { return std::strstr(line_, text) != nullptr; }

std::int64_t LineReader::Tell() const { return file_ ? ::ftello(file_) : -1; }

bool LineReader::Seek(std::int64_t position) {
  return file_ && position >= 0 && ::fseeko(file_, position, SEEK_SET) == 0;
}

namespace {

const char* SkipBlanks(const char* text) {
  while (*text == ' ' || *text == '\t') ++text;
  if (*text == '+' && (text[1] != '-' && text[1] != '+')) ++text;
  return text;
}

}  // namespace

bool ParseDouble(const char* text, double* value, const char** end) {
  const char* begin = SkipBlanks(text);
  const char* last = begin + std::strlen(begin);
  double parsed = 0;
  const auto [stop, error] = std::from_chars(begin, last, parsed);
  if (error != std::errc()) return false;
  *value = parsed;
  if (end) *end = stop;
  return true;
}

bool ParseInt(const char* text, std::int64_t* value, const char** end) {
  const char* begin = SkipBlanks(text);
  const char* last = begin + std::strlen(begin);
  std::int64_t parsed = 0;
  const auto [stop, error] = std::from_chars(begin, last, parsed);
  if (error != std::errc()) return false;
  *value = parsed;
  if (end) *end = stop;
  return true;
}

float ToFloat(double value) {
  if (std::isnan(value)) return std::numeric_limits<float>::quiet_NaN();
  if (value > FLT_MAX) return std::numeric_limits<float>::infinity();
  if (value < -FLT_MAX) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

std::int64_t ChannelNumberBehind(const char* text, const char** end) {
  const char* found = std::strstr(text, "Channel");
  if (!found) return -1;
  const char* digits = found + 7;
  if (*digits < '0' || *digits > '9') return -1;
  std::int64_t number = 0;
  const char* last = digits + std::strlen(digits);
  const auto [stop, error] = std::from_chars(digits, last, number);
  if (end) *end = stop;
  if (error != std::errc() || number > std::numeric_limits<int>::max()) return -1;
  return number;
}

bool ColumnTable::AddColumn(std::int64_t channelNumber) {
  int channel = -1;
  if (channelNumber >= 0 && channelNumber < kChannelCount && !(mask_ & (1u << channelNumber))) {
    channel = static_cast<int>(channelNumber);
    mask_ |= 1u << channel;
    ++count_;
  }
  columnChannel_.push_back(channel);
  return channel >= 0;
}

int ColumnTable::Place(int column) const {
  if (column < 0 || column >= Columns()) return -1;
  return PlaceOfChannel(columnChannel_[static_cast<std::size_t>(column)]);
}

int ColumnTable::PlaceOfChannel(std::int64_t number) const {
  if (number < 0 || number >= kChannelCount || !(mask_ & (1u << number))) return -1;
  return std::popcount(mask_ & ((1u << number) - 1u));
}

RowStore::RowStore(ChannelFileHeader* header, ChannelCodes* samples, int channels, std::int64_t rows,
                   bool headerOnly)
    : header_(header), samples_(samples), channels_(channels), rows_(rows), headerOnly_(headerOnly) {}

bool RowStore::Allocate(std::uint64_t fileBytes) {
  if (channels_ <= 0 || rows_ <= 0) return false;
  // Every row takes at least one line, and so at least one byte.
  if (static_cast<std::uint64_t>(rows_) > fileBytes) return false;
  const std::uint64_t size = static_cast<std::uint64_t>(rows_) * static_cast<std::uint64_t>(channels_);
  if (size > std::numeric_limits<std::uint32_t>::max()) return false;
  header_->Size = static_cast<std::uint32_t>(size);
  if (!headerOnly_) samples_->assign(size, 0);
  return true;
}

bool RowStore::BeginRow(float seconds) {
  if (rowsSeen_ >= rows_) return false;
  if (rowsSeen_ == 0) firstTime_ = MicrosFromSeconds(seconds);
  if (rowsSeen_ == 1) secondTime_ = MicrosFromSeconds(seconds);
  ++rowsSeen_;
  return true;
}

void RowStore::SetValue(int place, float volts) {
  if (headerOnly_ || rowsSeen_ == 0 || place < 0 || place >= channels_) return;
  const std::int64_t index = (rowsSeen_ - 1) * channels_ + place;
  (*samples_)[static_cast<std::size_t>(index)] = CodeFromVolts(volts);
}

void RowStore::Finish() { SetTimeAndRate(header_, firstTime_, secondTime_, rowsSeen_, channels_); }

}  // namespace tarnvel::channeltext
