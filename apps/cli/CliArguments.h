// The command line of tarnvel-cli: what to convert and how. The output
// choices (type, depth, bit range, rate, compressor, quality, numbering,
// raw files) are set on the same options model as the desktop's dialog, so
// a set of choices gives the same job whichever way it came. Every value is
// checked before anything is converted.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/JobOverrides.h"

namespace tarnvel {

class ConversionOptionsModel;
class FrontEnd;
class Scheduler;

// Output choices as given; an absent one keeps what the job file and the
// recording's profile say.
struct OutputChoices {
  std::optional<std::string> fileType;  // a number or an extension
  std::optional<std::string> depth;     // bits per pixel
  std::optional<std::string> bitRange;  // upper, middle, lower (or 0, 1, 2)
  std::optional<std::string> rate;      // frames per second, digits only
  std::optional<std::string> codec;     // a compressor's name, handler number or four-character code
  std::optional<std::string> quality;   // 0 to 100
  std::optional<bool> resetNumbering;
  std::optional<bool> deleteRaw;

  // Whether any choice is made: then every job file goes the way of the options dialog.
  bool Any() const;
};

struct CliArguments {
  int parallel = -1;  // -1: the settings decide
  bool listen = false;
  bool save = false;  // keep `parallel` in the settings
  bool help = false;
  std::string destination;  // empty: beside each recording
  OutputChoices choices;
  std::vector<std::string> paths;  // as given
  std::optional<std::int32_t> batchEntry;  // --batch-entry K: that entry of the one batch file in paths
};

// Exit statuses.
constexpr int kExitDone = 0;      // every job ended "Done"
constexpr int kExitFailed = 1;    // a job failed or was aborted, or nothing was converted
constexpr int kExitUsage = 2;     // the command line or one of its values is wrong: nothing was converted

// Parses argv. A wrong flag or a value that is wrong in itself gives a
// message (naming the values allowed) in `error`.
struct CliParse {
  CliArguments arguments;
  std::string error;
};
CliParse ParseCliArguments(int argc, const char* const* argv);

// A path given on the command line made whole: the jobs work from the
// recordings' folders, and cluster tasks from another folder altogether.
std::string WholePath(const std::string& path);

// The text of --help: every option, the file types offered, the exit statuses.
std::string CliHelpText();

// Sets the choices on a model as a user sets the dialog's controls: the
// type first (it rebuilds the depth list), then depth and bit range, the
// check boxes, the rate, and the compressor with its quality through the
// codec choice. A choice that the dialog would not allow (a depth the list
// doesn't offer, a rate or compressor where the control is disabled) gives
// a message naming what is allowed; empty when all applied.
std::string ApplyChoices(const OutputChoices& choices, ConversionOptionsModel& model);

// The overrides of one job file: the options dialog's start values, the
// recording's summary, the choices applied, Convert.
struct ChosenJob {
  JobOverrides overrides;
  std::string error;
};
ChosenJob ChooseJob(const std::string& argsPath, const OutputChoices& choices);

// Checks the choices for every PATH first and adds the jobs only when all
// are right. Returns what is wrong, a line for each PATH; empty when the
// jobs were added.
std::string AddCliJobs(Scheduler& scheduler, FrontEnd& frontEnd, const CliArguments& arguments);

}  // namespace tarnvel
