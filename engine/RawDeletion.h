// The one rule by which a job deletes the raw files of its recording, and the
// deletion itself. The raw files are often the only copy of a test that
// cannot be repeated: every doubt keeps them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/OutputLedger.h"

namespace tarnvel {

// What a run achieved, as far as the rule asks.
struct RunFacts {
  bool argsRead = false;     // the argument file was an argument file and all its values were taken
  bool deleteAsked = false;  // the argument file (or the batch or dialog over it) asks for deletion
  bool aborted = false;
  std::int32_t statusCode = 0;     // the job's failure, 0 for none
  std::int32_t framesWanted = 0;   // the frames of the range
  std::int32_t framesWritten = 0;  // frames that reached their output without error
  bool outputsOnDisk = false;      // the job flushed its outputs to the disk
};

// Raw files go only when the argument file was read and asks for it, the run
// was neither aborted nor failed, every frame of a non-empty range was
// written, and every output (main files, companion movie, time sidecar,
// profile copies) was closed without error, is still where it was written
// and was flushed to the disk. Anything else keeps every raw byte.
bool RawFilesMayGo(const RunFacts& facts, const OutputLedger& outputs);

// Deletes a recording's raw files: args.ini, rawfile.xml and rawstats.xml,
// and every .RAW and .CAL file of the folder; nothing else, not the folder.
// Returns the names that could not be deleted (a missing descriptor is no
// failure).
std::vector<std::string> DeleteRawFiles(const std::string& folder);

}  // namespace tarnvel
