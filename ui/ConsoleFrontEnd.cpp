#include "ui/ConsoleFrontEnd.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdlib>

#include "platform/cordage/Messages.h"

namespace tarnvel {
namespace {

// "12/100" into its two numbers; false for "-" and anything else.
bool Counts(const std::string& images, std::int32_t* done, std::int32_t* total) {
  return std::sscanf(images.c_str(), "%" SCNd32 "/%" SCNd32, done, total) == 2;
}

}  // namespace

ConsoleFrontEnd::ConsoleFrontEnd(std::FILE* out, std::FILE* err, bool terminal)
    : out_(out), err_(err), terminal_(terminal) {}

void ConsoleFrontEnd::RunOnMainThread(const std::function<void()>& work) {
  std::lock_guard lock(mutex_);
  work();
}

std::string ConsoleFrontEnd::Bar(std::int32_t done, std::int32_t total, int width) {
  const int filled = total > 0 ? static_cast<int>(static_cast<long long>(std::clamp(done, 0, total)) * width / total) : 0;
  return "[" + std::string(static_cast<std::size_t>(filled), '#') + std::string(static_cast<std::size_t>(width - filled), '.') + "]";
}

std::string ConsoleFrontEnd::RateAndTimeLeft(std::int32_t done, std::int32_t total, double seconds) {
  if (done <= 0 || seconds < 0.2) return "";  // too early for a steady rate
  const double rate = done / seconds;
  const long left = std::lround(std::max(0, total - done) / rate);
  char text[64];
  std::snprintf(text, sizeof text, "%.1f fps, %ld:%02ld left", rate, left / 60, left % 60);
  return text;
}

void ConsoleFrontEnd::RowChanged(std::uint32_t rowIndex) {
  std::lock_guard lock(mutex_);
  if (list_ == nullptr) return;
  const JobRow row = list_->Row(rowIndex);
  Seen& seen = seen_[rowIndex];
  const std::string& status = row.cells[kStatusColumn];
  const bool statusChanged = status != seen.status;
  const bool converting = row.status == RowStatus::Converting || row.status == RowStatus::ConvertingWithMovie;
  if (statusChanged && converting) seen.started = std::chrono::steady_clock::now();
  std::int32_t done = 0, total = 0;
  const bool counted = Counts(row.cells[kImagesColumn], &done, &total);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - seen.started).count();
  const std::string name = row.cells[kFolderColumn] + (row.cells[kFileColumn] == "-" ? "" : " -> " + row.cells[kFileColumn]);
  if (terminal_) {
    std::string line = "job " + std::to_string(rowIndex + 1) + " " + name + "  " + status;
    if (counted) line += "  " + Bar(done, total, 24) + " " + row.cells[kImagesColumn] + " " + row.cells[kProgressColumn] + "  " + RateAndTimeLeft(done, total, seconds);
    const bool ended = IsFinal(row.status);
    std::fprintf(out_, "\r\033[K%s%s", line.c_str(), ended ? "\n" : "");
    lineOpen_ = !ended;
  } else {
    const int tenth = counted && total > 0 ? static_cast<int>(static_cast<long long>(done) * 10 / total) : -1;
    if (statusChanged || tenth != seen.tenth) {
      std::fprintf(out_, "job %u %s: %s %s %s %s\n", rowIndex + 1, name.c_str(), status.c_str(),
                   row.cells[kImagesColumn].c_str(), row.cells[kProgressColumn].c_str(),
                   counted ? RateAndTimeLeft(done, total, seconds).c_str() : "");
    }
    seen.tenth = tenth;
  }
  seen.status = status;
  std::fflush(out_);
}

void ConsoleFrontEnd::SetBusy(bool) {}

int ConsoleFrontEnd::ShowMessage(int number, int style, const std::string& text) {
  std::lock_guard lock(mutex_);
  if (lineOpen_) std::fputc('\n', out_), lineOpen_ = false;
  const char* kind = number < 1000 ? "error" : number < 2000 ? "warning" : "message";
  std::fprintf(err_, "tarnvel-cli: %s %d: %s\n", kind, number, text.c_str());
  std::fflush(err_);
  const bool question = (style & 0xF) == 4;
  if (!question && SeverityOf(number) != Severity::Information) lastProblem_ = Shown{number, text};
  // Nobody to ask: a question (Abort) is answered yes, since the user asked for it.
  return question ? kAnswerYes : kAnswerOk;
}

void ConsoleFrontEnd::RequestClose() {
  std::lock_guard lock(mutex_);
  closeRequested_ = true;
}

std::optional<ConsoleFrontEnd::Shown> ConsoleFrontEnd::LastProblem() const {
  std::lock_guard lock(mutex_);
  return lastProblem_;
}

bool ConsoleFrontEnd::CloseRequested() const {
  std::lock_guard lock(mutex_);
  return closeRequested_;
}

}  // namespace tarnvel
