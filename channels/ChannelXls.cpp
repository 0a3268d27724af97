#include "channels/ChannelXls.h"

#include <fcntl.h>
#include <freexl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
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

int ReadWorkbook(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly) {
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

// The most a workbook can give: 65,535 rows of 16 channels.
constexpr std::size_t kMaxReplyBytes = sizeof(ChannelFileHeader) + 4 + 65536u * kChannelCount * 2;
constexpr auto kReadTimeLimit = std::chrono::seconds(60);

bool WriteAll(int fd, const void* data, std::size_t size) {
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// Runs in the child: reads the workbook and sends header, count and codes.
[[noreturn]] void ReadInChild(int fd, const char* path, bool headerOnly) {
  ChannelFileHeader header{};
  ChannelCodes codes;
  const int ok = ReadWorkbook(path, &header, &codes, headerOnly);
  const std::uint32_t count = static_cast<std::uint32_t>(codes.size());
  const bool sent = ok && WriteAll(fd, &header, sizeof header) && WriteAll(fd, &count, sizeof count) &&
                    WriteAll(fd, codes.data(), codes.size() * sizeof(std::uint16_t));
  ::_exit(sent ? 0 : 1);
}

// Collects the child's reply up to its end, within the time limit; false on
// timeout or a reply beyond the largest possible one.
bool ReadReply(int fd, std::string* reply) {
  const auto deadline = std::chrono::steady_clock::now() + kReadTimeLimit;
  char buffer[65536];
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd wait{fd, POLLIN, 0};
    const int ready = ::poll(&wait, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    reply->append(buffer, static_cast<std::size_t>(n));
    if (reply->size() > kMaxReplyBytes) return false;
  }
}

}  // namespace

// FreeXL has been seen to write past its own stack buffers on damaged
// workbooks. The workbook is therefore parsed in a child process of its own:
// whatever a hostile file does there, the converter only sees a failed read.
int ReadChannelXls(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return 0;
  const pid_t child = ::fork();
  if (child < 0) {
    ::close(fds[0]);
    ::close(fds[1]);
    return 0;
  }
  if (child == 0) {
    ::close(fds[0]);
    ReadInChild(fds[1], path, headerOnly);
  }
  ::close(fds[1]);
  std::string reply;
  const bool complete = ReadReply(fds[0], &reply);
  ::close(fds[0]);
  if (!complete) ::kill(child, SIGKILL);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!complete || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return 0;

  std::uint32_t count = 0;
  if (reply.size() < sizeof *header + sizeof count) return 0;
  std::memcpy(header, reply.data(), sizeof *header);
  std::memcpy(&count, reply.data() + sizeof *header, sizeof count);
  if (reply.size() != sizeof *header + sizeof count + std::size_t{count} * sizeof(std::uint16_t) ||
      count != (headerOnly ? 0 : header->Size)) {
    *header = ChannelFileHeader{};
    return 0;
  }
  if (!headerOnly) {
    samples->resize(count);
    std::memcpy(samples->data(), reply.data() + sizeof *header + sizeof count, std::size_t{count} * sizeof(std::uint16_t));
  }
  return 1;
}

}  // namespace tarnvel
