#include "ui/ClusterBatch.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/cordage/TextField.h"
#include "ui/ChildProcess.h"
#include "ui/JobList.h"

namespace tarnvel {
namespace {

constexpr std::string_view kEndPrefix = "tarnvel-cli: entry ";
constexpr std::string_view kEnded = " ended ";
constexpr std::string_view kMessage = ", message ";
// The row statuses a job ends with.
constexpr RowStatus kEndStates[] = {RowStatus::Done, RowStatus::Abort, RowStatus::Error};

bool StartsWith(std::string_view text, std::string_view head) { return text.substr(0, head.size()) == head; }

// Takes a decimal number of 1 to 9 digits off the front of `text`.
std::optional<std::int32_t> TakeNumber(std::string_view& text) {
  std::size_t n = 0;
  std::int32_t value = 0;
  while (n < text.size() && text[n] >= '0' && text[n] <= '9') {
    if (++n > 9) return std::nullopt;
    value = value * 10 + (text[n - 1] - '0');
  }
  if (n == 0) return std::nullopt;
  text.remove_prefix(n);
  return value;
}

std::string OneLine(std::string_view text) {
  std::string line(text);
  for (char& c : line)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  return line;
}

// A log path as an sbatch file pattern: '%' doubled; a backslash would
// switch the patterns off altogether, so it is refused.
bool FilePattern(const std::string& path, std::string& pattern) {
  if (path.find('\\') != std::string::npos) return false;
  for (char c : path) pattern += c == '%' ? "%%" : std::string(1, c);
  return true;
}

// The job id from sbatch --parsable: "1234" or "1234;cluster", one line.
std::optional<std::string> JobIdOf(std::string_view output) {
  const std::size_t end = output.find_first_of(";\r\n");
  const std::string_view id = output.substr(0, end);
  if (!IsJobId(id)) return std::nullopt;
  return std::string(id);
}

// "STATE[, message N][: TEXT]", on one line.
std::string EndText(const EntryEnd& end) {
  std::string text = OneLine(end.state);
  if (end.message != 0) text += std::string(kMessage) + std::to_string(end.message);
  if (!end.text.empty()) text += ": " + OneLine(end.text);
  return text;
}

// The batch file's name less its extension: "night" of "/data/night.bat".
std::string BatchStem(const std::string& batchPath) {
  std::string_view name = LastComponent(batchPath);
  if (const std::size_t dot = name.rfind('.'); dot != std::string_view::npos && dot > 0) name = name.substr(0, dot);
  return std::string(name);
}

}  // namespace

std::string FormatEntryEnd(const EntryEnd& end) {
  return std::string(kEndPrefix) + std::to_string(end.entry) + std::string(kEnded) + EndText(end);
}

std::optional<EntryEnd> ParseEntryEnd(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (!StartsWith(line, kEndPrefix)) return std::nullopt;
  line.remove_prefix(kEndPrefix.size());
  EntryEnd end;
  const auto entry = TakeNumber(line);
  if (!entry || !StartsWith(line, kEnded)) return std::nullopt;
  end.entry = *entry;
  line.remove_prefix(kEnded.size());
  const std::size_t stateEnd = std::min(line.find(','), line.find(':'));
  end.state = line.substr(0, stateEnd);
  if (std::none_of(std::begin(kEndStates), std::end(kEndStates),
                   [&](RowStatus s) { return end.state == StatusText(static_cast<std::int32_t>(s)); }))
    return std::nullopt;
  line.remove_prefix(end.state.size());
  if (StartsWith(line, kMessage)) {
    line.remove_prefix(kMessage.size());
    const auto message = TakeNumber(line);
    if (!message) return std::nullopt;
    end.message = *message;
  }
  if (StartsWith(line, ": ")) {
    end.text = OneLine(line.substr(2));
  } else if (!line.empty()) {
    return std::nullopt;
  }
  return end;
}

std::string TaskLogFolder(const std::string& batchPath) {
  const std::string_view folder = FolderOf(batchPath);
  return JoinPath(folder.empty() && LastSeparator(batchPath) == std::string::npos ? "." : folder,
                  BatchStem(batchPath) + "-logs");
}

std::string TaskLogPath(const std::string& batchPath, std::string_view jobId, std::int32_t entry) {
  return JoinPath(TaskLogFolder(batchPath), std::string(jobId) + "_" + std::to_string(entry) + ".log");
}

std::optional<EntryEnd> ReadEntryEnd(const std::string& logPath, std::int32_t entry) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(logPath, ec)) return std::nullopt;
  std::ifstream in(logPath, std::ios::binary);
  const std::uintmax_t size = std::filesystem::file_size(logPath, ec);
  if (!in || ec) return std::nullopt;
  if (size > kLogTail) in.seekg(static_cast<std::streamoff>(size - kLogTail));
  std::string tail(kLogTail, '\0');
  in.read(tail.data(), static_cast<std::streamsize>(tail.size()));
  tail.resize(static_cast<std::size_t>(in.gcount()));
  std::optional<EntryEnd> last;
  for (std::size_t start = 0; start < tail.size();) {
    const std::size_t stop = std::min(tail.find('\n', start), tail.size());
    if (auto end = ParseEntryEnd(std::string_view(tail).substr(start, stop - start)); end && end->entry == entry)
      last = std::move(end);
    start = stop + 1;
  }
  return last;
}

bool IsJobId(std::string_view text) {
  return !text.empty() && text.size() <= 20 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::optional<std::int32_t> ParseEntryNumber(std::string_view text) {
  const auto number = TakeNumber(text);
  if (!number || !text.empty() || *number >= kMaxBatchEntries) return std::nullopt;
  return number;
}

std::string ArraySpec(const std::vector<std::int32_t>& entries, int maxTasks) {
  std::string spec;
  for (std::size_t i = 0; i < entries.size();) {
    std::size_t j = i;
    while (j + 1 < entries.size() && entries[j + 1] == entries[j] + 1) ++j;
    if (!spec.empty()) spec += ',';
    spec += std::to_string(entries[i]);
    if (j > i) spec += "-" + std::to_string(entries[j]);
    i = j + 1;
  }
  if (maxTasks > 0) spec += "%" + std::to_string(maxTasks);
  return spec;
}

std::optional<std::string> RefusedSbatchArgument(std::string_view arg) {
  for (std::string_view option : {"--array", "--output", "--error", "--wrap"})
    if (arg == option || StartsWith(arg, std::string(option) + "=")) return std::string(option);
  for (std::string_view option : {"-a", "-o", "-e"})
    if (StartsWith(arg, option)) return std::string(option);
  return std::nullopt;
}

std::string ShellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string TaskScript(const ArraySubmission& submission) {
  return "#!/bin/sh\nexec " + ShellQuoted(submission.cliPath) + " --batch-entry \"$SLURM_ARRAY_TASK_ID\" " +
         ShellQuoted(submission.batchPath) + "\n";
}

bool SbatchArguments(const ArraySubmission& submission, const std::string& scriptPath,
                     std::vector<std::string>& args, std::string& error) {
  const std::string logFolder = TaskLogFolder(submission.batchPath);
  std::string pattern;
  if (!FilePattern(logFolder, pattern)) {
    error = "the log folder " + logFolder + " holds a backslash, which sbatch takes for the end of its file patterns";
    return false;
  }
  args = {"sbatch", "--parsable", "--array=" + ArraySpec(submission.entries, submission.maxTasks),
          "--job-name=tarnvel-" + BatchStem(submission.batchPath), "--output=" + pattern + "/%A_%a.log", "--chdir=" + logFolder};
  if (!submission.partition.empty()) args.push_back("--partition=" + submission.partition);
  args.insert(args.end(), submission.sbatchArgs.begin(), submission.sbatchArgs.end());
  args.push_back(scriptPath);
  return true;
}

std::optional<std::string> SubmitArray(const ArraySubmission& submission, std::string& error) {
  const char* tmp = std::getenv("TMPDIR");
  std::string scriptPath = JoinPath(tmp && *tmp ? tmp : "/tmp", "tarnvel-task-XXXXXX");
  const int fd = ::mkstemp(scriptPath.data());
  if (fd < 0) return error = "cannot write the task script in " + std::string(FolderOf(scriptPath)), std::nullopt;
  const std::string script = TaskScript(submission);
  const bool written = ::write(fd, script.data(), script.size()) == static_cast<ssize_t>(script.size());
  ::close(fd);
  std::vector<std::string> args;
  std::optional<std::string> jobId;
  if (!written) {
    error = "cannot write the task script " + scriptPath;
  } else if (SbatchArguments(submission, scriptPath, args, error)) {
    const ProgramRun run = RunProgram(args);
    if (run.spawnError != 0) {
      error = "sbatch cannot be run: " + std::string(std::strerror(run.spawnError));
    } else if (run.status != 0) {
      error = "sbatch refused the array (exit status " + std::to_string(run.status) + ")";
    } else if (!(jobId = JobIdOf(run.output))) {
      error = "sbatch answered without a job id: " + OneLine(run.output.substr(0, 200));
    }
  }
  std::remove(scriptPath.c_str());  // sbatch keeps its own copy of a script it took
  return jobId;
}

std::vector<EntryReport> ReadArrayReport(const BatchFile& batch, const std::string& batchPath, std::string_view jobId) {
  std::vector<EntryReport> reports;
  for (const BatchEntry& entry : batch.entries) {
    EntryReport report;
    report.entry = entry;
    report.logPath = TaskLogPath(batchPath, jobId, entry.number);
    std::error_code ec;
    report.logFound = std::filesystem::exists(report.logPath, ec);
    report.end = ReadEntryEnd(report.logPath, entry.number);
    reports.push_back(std::move(report));
  }
  return reports;
}

std::string ReportLine(const EntryReport& report) {
  std::string line = "entry " + std::to_string(report.entry.number) + " (" + OneLine(report.entry.path) + "): ";
  if (report.end) {
    line += EndText(*report.end);
  } else if (report.logFound) {
    line += "not ended: still running, or its task was stopped before it could end (see " + OneLine(report.logPath) + ")";
  } else {
    line += "no log: its task has not started (see squeue), or the job id or batch is not the one submitted";
  }
  return line;
}

}  // namespace tarnvel
