// tarnvel-cli's commands for a batch spread over a cluster:
//
//   tarnvel-cli --slurm BATCH.bat [--partition P] [--max-tasks N] [--sbatch-arg ARG]...
//   tarnvel-cli --slurm-report JOBID BATCH.bat
//
// and the end line of `tarnvel-cli --batch-entry K BATCH.bat`, the command
// that each task runs.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "ui/AddFile.h"
#include "ui/ConsoleFrontEnd.h"
#include "ui/JobList.h"

namespace tarnvel {

// Runs --slurm or --slurm-report when the command line asks for one and
// returns the exit status; nothing for any other command line.
std::optional<int> RunClusterCommand(int argc, const char* const* argv);

// Writes the end line of a --batch-entry run: the entry's row status, with
// the message of a failure, or why the entry never became a job.
void PrintEntryEnd(std::FILE* out, const std::string& batchPath, std::int32_t entry, EntryAdded added,
                   const JobList& list, const ConsoleFrontEnd& console);

}  // namespace tarnvel
