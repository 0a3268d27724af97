#include "channels/ChannelXls.h"

#include <freexl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "channels/ChannelText.h"
#include "channels/ChannelTextParse.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {

namespace {

using channeltext::ChannelNumberBehind;
using channeltext::ParseDouble;
using channeltext::ToFloat;

class Workbook {
 public:
  explicit Workbook(const char* path) { opened_ = freexl_open(path, &handle_) == FREEXL_OK; }
  ~Workbook() {
    if (handle_) freexl_close(handle_);
  }
  Workbook(const Workbook&) = delete;
  Workbook& operator=(const Workbook&) = delete;

  bool IsOpen() const { return opened_; }
  const void* Handle() const { return handle_; }

  // Selects the worksheet of that name; false when there is none.
  bool SelectSheet(const char* name) {
    unsigned int count = 0;
    if (freexl_get_info(handle_, FREEXL_BIFF_SHEET_COUNT, &count) != FREEXL_OK) return false;
    for (unsigned int i = 0; i < count && i <= 0xFFFF; ++i) {
      const char* sheet = nullptr;
      if (freexl_get_worksheet_name(handle_, static_cast<unsigned short>(i), &sheet) == FREEXL_OK && sheet &&
          EqualsNoCase(sheet, name))
        return freexl_select_active_worksheet(handle_, static_cast<unsigned short>(i)) == FREEXL_OK;
    }
    return false;
  }

  // Text of a cell that holds text, else empty.
  std::string Text(unsigned int row, unsigned short column) const {
    FreeXL_CellValue cell{};
    if (freexl_get_cell_value(handle_, row, column, &cell) != FREEXL_OK) return {};
    if ((cell.type == FREEXL_CELL_TEXT || cell.type == FREEXL_CELL_SST_TEXT) && cell.value.text_value)
      return cell.value.text_value;
    return {};
  }

  // The number a cell holds, read as text would read it; false for an empty
  // cell or one without a number.
  bool Number(unsigned int row, unsigned short column, double* value) const {
    FreeXL_CellValue cell{};
    if (freexl_get_cell_value(handle_, row, column, &cell) != FREEXL_OK) return false;
    switch (cell.type) {
      case FREEXL_CELL_INT: *value = cell.value.int_value; return true;
      case FREEXL_CELL_DOUBLE: *value = cell.value.double_value; return true;
      case FREEXL_CELL_TEXT:
      case FREEXL_CELL_SST_TEXT:
      case FREEXL_CELL_DATE:
      case FREEXL_CELL_DATETIME:
      case FREEXL_CELL_TIME:
        return cell.value.text_value && ParseDouble(cell.value.text_value, value);
      default: return false;
    }
  }

 private:
  const void* handle_ = nullptr;
  bool opened_ = false;
};

struct SheetRow {
  double time;
  unsigned int row;
};

}  // namespace

int ReadChannelXls(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly) {
  Workbook book(path);
  if (!book.IsOpen() || !book.SelectSheet("PGDA1")) return 0;
  unsigned int rowCount = 0;
  unsigned short columnCount = 0;
  if (freexl_worksheet_dimensions(book.Handle(), &rowCount, &columnCount) != FREEXL_OK) return 0;

  // Column names stand in the first row. A channel is fetched by the column
  // named exactly "Channel%d"; a channel named only in another spelling
  // ("Channel03") has no such column and fails the read.
  int timesColumn = -1;
  std::uint32_t mask = 0;
  int channelColumn[kChannelCount];
  std::fill(std::begin(channelColumn), std::end(channelColumn), -1);
  std::vector<std::string> names;
  for (unsigned short c = 0; c < columnCount; ++c) names.push_back(book.Text(0, c));
  for (unsigned short c = 0; c < columnCount; ++c) {
    if (timesColumn < 0 && EqualsNoCase(names[c], "Times")) timesColumn = c;
    const std::int64_t number = ChannelNumberBehind(names[c].c_str());
    if (number >= 0 && number < kChannelCount) mask |= 1u << number;
  }
  if (timesColumn < 0 || mask == 0) return 0;
  int channels = 0;
  for (int i = 0; i < kChannelCount; ++i) {
    if (!(mask & (1u << i))) continue;
    char wanted[16];
    std::snprintf(wanted, sizeof wanted, "Channel%d", i);
    for (unsigned short c = 0; c < columnCount && channelColumn[i] < 0; ++c)
      if (EqualsNoCase(names[c], wanted)) channelColumn[i] = c;
    if (channelColumn[i] < 0) return 0;
    SetNamedChannel(&header->Channels[i], i);
    ++channels;
  }

  std::vector<SheetRow> rows;
  for (unsigned int r = 1; r < rowCount; ++r) {
    double time = 0;
    if (book.Number(r, static_cast<unsigned short>(timesColumn), &time) && std::isfinite(time))
      rows.push_back({time, r});
  }
  if (rows.empty()) return 0;
  std::stable_sort(rows.begin(), rows.end(), [](const SheetRow& a, const SheetRow& b) { return a.time < b.time; });

  header->Size = static_cast<std::uint32_t>(rows.size() * static_cast<std::size_t>(channels));
  const std::int64_t first = MicrosFromSeconds(ToFloat(rows[0].time));
  const std::int64_t second = rows.size() > 1 ? MicrosFromSeconds(ToFloat(rows[1].time)) : 0;
  SetTimeAndRate(header, first, second, static_cast<std::int64_t>(rows.size()), channels);
  if (headerOnly) return 1;

  samples->assign(header->Size, 0);
  std::size_t index = 0;
  for (const SheetRow& row : rows) {
    for (int i = 0; i < kChannelCount; ++i) {
      if (channelColumn[i] < 0) continue;
      double volts = 0;
      if (!book.Number(row.row, static_cast<unsigned short>(channelColumn[i]), &volts)) volts = 0;
      (*samples)[index++] = CodeFromVolts(ToFloat(volts));
    }
  }
  return 1;
}

}  // namespace tarnvel
