// The rows of the job list: one per job added in this run, never moved,
// cleared only all at once. Toolkit-free: a front end draws them.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "engine/ConversionJob.h"
#include "ui/FrontEnd.h"

namespace tarnvel {

// Column order: Folder, File, Status, Images, Time, Progress.
enum Column : std::size_t { kFolderColumn, kFileColumn, kStatusColumn, kImagesColumn, kTimeColumn, kProgressColumn };

struct JobRow {
  RowStatus status = RowStatus::Waiting;
  std::array<std::string, 6> cells;
  std::int32_t image = 0;
  std::string path;  // the row's own copy of the job's path; outlives the job
};

// The texts (in the loaded language) and images of the statuses; an unknown
// status gives nothing.
std::string StatusText(std::int32_t status);
std::int32_t StatusImage(std::int32_t status);

// Column 0: the last two folder names of the path ("rec/cam1" for
// /data/rec/cam1/args.ini); the whole path when it has fewer than three separators.
std::string FolderColumnText(std::string_view path);
// Column 5: "%d.%d%%" of frames done per mille of the total, truncated; "100%" when done.
std::string ProgressText(std::int32_t current, std::int32_t total);
// Column 4: "%02d:%02d:%02d", the hours as wide as they need.
std::string ElapsedText(std::uint32_t seconds);

class JobList {
 public:
  explicit JobList(FrontEnd& frontEnd) : frontEnd_(frontEnd) {}

  // Appends a "Waiting" row for the path and returns its number.
  std::uint32_t AddRow(std::string_view path);
  // A row that shows a final status (Done, Abort, Error) keeps it: later
  // status changes and progress of that row are passed over.
  void SetRowStatus(std::uint32_t row, std::string_view text, std::uint32_t startTicks, std::int32_t state,
                    std::int32_t current, std::int32_t total);
  void SetRowStatus(std::uint32_t row, RowStatus status) { SetRowStatus(row, "", 0, static_cast<std::int32_t>(status), 1, 1); }
  void SetRowProgress(std::uint32_t row, std::uint32_t startTicks, std::int32_t current, std::int32_t total);
  // Clear List: all rows go; numbers start again at 0.
  void Clear();

  std::size_t RowCount() const;
  JobRow Row(std::uint32_t row) const;

 private:
  void Changed(std::uint32_t row);

  FrontEnd& frontEnd_;
  mutable std::mutex mutex_;
  std::vector<JobRow> rows_;
};

}  // namespace tarnvel
