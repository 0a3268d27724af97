#include "ui/TarnvelDialog.h"

#include "engine/JobArgs.h"
#include "platform/cordage/Messages.h"
#include "recording/AppPaths.h"
#include "ui/Texts.h"

namespace tarnvel {

std::vector<std::string> NameFiltersOf(std::string_view pairs) {
  std::vector<std::string> filters;
  while (!pairs.empty()) {
    const std::size_t bar = pairs.find('|');
    const std::string_view description = pairs.substr(0, bar);
    std::string_view pattern;
    if (bar == std::string_view::npos) {
      pairs = {};
    } else {
      pairs.remove_prefix(bar + 1);
      const std::size_t end = pairs.find('|');
      pattern = pairs.substr(0, end);
      pairs.remove_prefix(end == std::string_view::npos ? pairs.size() : end + 1);
    }
    if (description.empty()) continue;
    std::string filter(description);
    if (!pattern.empty() && filter.find("(" + std::string(pattern) + ")") == std::string::npos)
      filter += " (" + std::string(pattern) + ")";
    filters.push_back(std::move(filter));
  }
  return filters;
}

TarnvelDialog::TarnvelDialog(FrontEnd& frontEnd, Scheduler::JobFactory factory, ParallelSettings settings,
                             Scheduler::Timing timing)
    : frontEnd_(frontEnd), list_(frontEnd), scheduler_(list_, frontEnd, std::move(factory), settings, timing) {}

TarnvelDialog::~TarnvelDialog() {
  listener_.Stop();
  if (notified_.valid()) notified_.wait();
}

TarnvelDialog::StartAction TarnvelDialog::SetUp(const JobArgument& argument, const std::string& socketPath) {
  scheduler_.StartThread();
  socketPath_ = socketPath;
  Listen();
  switch (argument.kind) {
    case JobArgument::Kind::None: return StartAction::OpenAddDialog;
    case JobArgument::Kind::Path: AddFile(scheduler_, frontEnd_, argument.path, false); break;
    case JobArgument::Kind::TooLong:
      frontEnd_.ShowMessage(kMsgPathTooLong, StyleOf(kMsgPathTooLong), MessageText(kMsgPathTooLong));
      break;
    case JobArgument::Kind::SuiteMarker: break;
  }
  return StartAction::None;
}

void TarnvelDialog::Listen() {
  if (socketPath_.empty()) return;
  socketError_ = listener_.Start(socketPath_, [this](std::uint32_t command, std::span<const std::uint8_t> payload) {
    scheduler_.HandleSuiteCommand(command, payload);
  });
}

OpenFileRequest TarnvelDialog::AddFileRequest() {
  const AppPaths paths;
  OpenFileRequest request;
  request.title = UiText(kTextOpenTitle);
  request.filters = NameFiltersOf(UiText(kTextOpenFilter));
  request.folder = paths.ImageFolder;
  return request;
}

void TarnvelDialog::Add(const std::string& path) { AddFile(scheduler_, frontEnd_, path, true, chooser_); }

void TarnvelDialog::ConfirmOptions(const ParallelSettings& settings) {
  scheduler_.SetParallel(settings);
  WriteParallelSettings(settings);
  // The suite may be slow to answer: the window does not wait for it.
  if (notified_.valid()) notified_.wait();
  notified_ = std::async(std::launch::async, [settings] { NotifySuiteOptions(settings); });
}

void TarnvelDialog::ClearList() {
  if (Buttons().clearList) list_.Clear();
}

std::string TarnvelDialog::MovieOfRow(std::uint32_t row) const {
  if (row >= list_.RowCount()) return {};
  std::string movie;
  MoviePathOf(list_.Row(row).path, movie);
  return movie;
}

bool TarnvelDialog::Close() {
  if (scheduler_.HasPendingJobs()) {
    frontEnd_.Hide();
    return false;
  }
  // No suite command may add a job once the scheduler is gone.
  listener_.Stop();
  if (scheduler_.Close()) return true;
  // A job came in by the socket meanwhile: the program stays, hidden, and
  // hears the suite again.
  Listen();
  return false;
}

}  // namespace tarnvel
