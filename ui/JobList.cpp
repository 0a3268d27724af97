#include "ui/JobList.h"

#include <cstdio>

#include "platform/cordage/TextField.h"
#include "platform/threads/Event.h"
#include "ui/Texts.h"

namespace tarnvel {

std::string StatusText(std::int32_t status) {
  return status >= 0 && status < 6 ? UiText(kTextStatusWaiting + status) : std::string();
}

std::int32_t StatusImage(std::int32_t status) {
  return status == static_cast<std::int32_t>(RowStatus::ConvertingWithMovie) ? 1 : status;
}

std::string FolderColumnText(std::string_view path) {
  const std::size_t first = LastSeparator(path);
  if (first == std::string_view::npos) return std::string(path);
  const std::size_t second = LastSeparator(path.substr(0, first));
  if (second == std::string_view::npos) return std::string(path);
  const std::size_t third = LastSeparator(path.substr(0, second));
  if (third == std::string_view::npos) return std::string(path);
  return std::string(path.substr(third + 1, first - third - 1));
}

std::string ProgressText(std::int32_t current, std::int32_t total) {
  const std::int32_t whole = total != 0 ? total : 100;
  if (current >= whole) return "100%";
  // 32-bit signed arithmetic as the list always did it, wrap included.
  const auto perMille =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(current) * 1000u) / whole;
  char text[32];
  std::snprintf(text, sizeof text, "%d.%d%%", perMille / 10, perMille % 10);
  return text;
}

std::string ElapsedText(std::uint32_t seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u", seconds / 3600, seconds / 60 % 60, seconds % 60);
  return text;
}

namespace {

void FillCounts(JobRow& r, std::uint32_t startTicks, std::int32_t current, std::int32_t total) {
  r.cells[kImagesColumn] = std::to_string(current) + "/" + std::to_string(total);
  r.cells[kTimeColumn] = ElapsedText((TickCount() - startTicks) / 1000);
  r.cells[kProgressColumn] = ProgressText(current, total);
}

}  // namespace

std::uint32_t JobList::AddRow(std::string_view path) {
  std::uint32_t row;
  {
    std::lock_guard lock(mutex_);
    row = static_cast<std::uint32_t>(rows_.size());
    JobRow& added = rows_.emplace_back();
    added.cells = {FolderColumnText(path), "-", StatusText(0), "-", "00:00:00", "-"};
    added.path = path;
  }
  Changed(row);
  return row;
}

void JobList::SetRowStatus(std::uint32_t row, std::string_view text, std::uint32_t startTicks,
                           std::int32_t state, std::int32_t current, std::int32_t total) {
  if (state < 0 || state > static_cast<std::int32_t>(RowStatus::ConvertingWithMovie)) return;
  const auto status = static_cast<RowStatus>(state);
  {
    std::lock_guard lock(mutex_);
    if (row >= rows_.size()) return;  // cleared meanwhile
    JobRow& r = rows_[row];
    if (IsFinal(r.status)) return;  // a job ends once
    r.status = status;
    r.image = StatusImage(state);
    r.cells[kStatusColumn] = StatusText(state);
    if (status == RowStatus::Abort || status == RowStatus::Error) {
      r.cells[kFileColumn] = r.cells[kImagesColumn] = r.cells[kTimeColumn] = r.cells[kProgressColumn] = "-";
    } else {
      r.cells[kFileColumn] = text;
      FillCounts(r, startTicks, current, total);
    }
  }
  Changed(row);
}

void JobList::SetRowProgress(std::uint32_t row, std::uint32_t startTicks, std::int32_t current,
                             std::int32_t total) {
  {
    std::lock_guard lock(mutex_);
    if (row >= rows_.size() || IsFinal(rows_[row].status)) return;
    FillCounts(rows_[row], startTicks, current, total);
  }
  Changed(row);
}

void JobList::Clear() {
  std::lock_guard lock(mutex_);
  rows_.clear();
}

std::size_t JobList::RowCount() const {
  std::lock_guard lock(mutex_);
  return rows_.size();
}

JobRow JobList::Row(std::uint32_t row) const {
  std::lock_guard lock(mutex_);
  return row < rows_.size() ? rows_[row] : JobRow{};
}

void JobList::Changed(std::uint32_t row) {
  frontEnd_.RunOnMainThread([&] { frontEnd_.RowChanged(row); });
}

}  // namespace tarnvel
