#include "apps/cli/CliArguments.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string_view>

#include "engine/OutputNaming.h"
#include "platform/cordage/TextField.h"
#include "platform/cordage/Messages.h"
#include "ui/AddFile.h"
#include "ui/ClusterBatch.h"
#include "ui/CodecChoice.h"
#include "ui/ConversionOptions.h"

namespace tarnvel {
namespace {

std::optional<std::int64_t> WholeNumber(std::string_view text) {
  if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) return {};
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return {};
  return value;
}

std::string Join(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
  return text;
}

std::string OfferedTypesText() {
  std::vector<std::string> items;
  for (const FileTypeChoice& type : OfferedFileTypes()) items.push_back(type.extension + " (" + std::to_string(type.number) + ")");
  return Join(items);
}

// A file type by its number or its extension (with or without the dot).
std::optional<FileTypeChoice> FindOfferedType(std::string_view text) {
  if (!text.empty() && text.front() == '.') text.remove_prefix(1);
  const auto number = WholeNumber(text);
  for (const FileTypeChoice& type : OfferedFileTypes())
    if ((number && *number == type.number) || (!number && EqualsNoCase(type.extension, text))) return type;
  return {};
}

std::optional<std::int32_t> BitRangeOf(std::string_view text) {
  static constexpr const char* kNames[] = {"upper", "middle", "lower"};
  for (std::int32_t range = 0; range < 3; ++range)
    if (EqualsNoCase(text, kNames[range]) || text == std::to_string(range)) return range;
  return {};
}

// The handler as its four characters when they are all printable, else as a number.
std::string HandlerText(std::uint32_t handler) {
  std::string code;
  for (int i = 0; i < 4; ++i) code += static_cast<char>(handler >> (8 * i) & 0xFF);
  const bool printable = std::all_of(code.begin(), code.end(), [](char c) { return c >= ' ' && c <= '~'; });
  return printable ? code : std::to_string(handler);
}

std::string CompressorsText(const CodecChoiceModel& codecs) {
  std::vector<std::string> items;
  for (std::size_t i = 0; i < codecs.Names().size(); ++i)
    items.push_back("\"" + codecs.Names()[i] + "\" (" + HandlerText(codecs.TableEntry(i).handler) + ")");
  return Join(items);
}

// A compressor by its name, its handler number, or its four-character code
// (shorter codes are padded with blanks, "DIB" for "DIB ").
int FindCompressor(const CodecChoiceModel& codecs, std::string_view text) {
  const auto& names = codecs.Names();
  for (std::size_t i = 0; i < names.size(); ++i)
    if (EqualsNoCase(names[i], text)) return static_cast<int>(i);
  const auto number = WholeNumber(text);
  std::string code(text);
  if (code.size() < 4) code.resize(4, ' ');
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::uint32_t handler = codecs.TableEntry(i).handler;
    if (number ? *number == handler : EqualsNoCase(HandlerText(handler), code)) return static_cast<int>(i);
  }
  return -1;
}

std::string DepthsText(const ConversionOptionsModel& model) {
  std::vector<std::string> items;
  for (const DepthChoice& depth : model.Depths()) items.push_back(depth.text);
  return Join(items);
}

std::string WhatIsConverted(const ConversionOptionsModel& model) {
  const std::string type = model.FileTypes().empty() ? "" : model.FileTypes()[model.FileTypeIndex()].text;
  if (model.SourceDepth() == 0) return "a recording that cannot be opened, as " + type;
  return "a " + std::to_string(model.SourceDepth()) + "-bit recording, as " + type;
}

std::string ApplyDepth(const OutputChoices& choices, ConversionOptionsModel& model) {
  const DepthChoice& preset = model.Depths()[model.DepthIndex()];
  // Values that are no numbers or ranges match no entry.
  const std::int32_t depth = choices.depth ? static_cast<std::int32_t>(WholeNumber(*choices.depth).value_or(-1)) : preset.depth;
  const std::int32_t range = choices.bitRange ? BitRangeOf(*choices.bitRange).value_or(-1) : 0;
  const auto& depths = model.Depths();
  for (std::size_t i = 0; i < depths.size(); ++i)
    if (depths[i].depth == depth && depths[i].bitRange == range) {
      model.SelectDepth(i);
      return "";
    }
  const std::string asked = choices.bitRange ? std::to_string(depth) + " bit, range " + *choices.bitRange : std::to_string(depth) + " bit";
  return "output depth " + asked + " is not offered for " + WhatIsConverted(model) + "; offered: " + DepthsText(model) +
         " (--depth BITS, --bit-range upper|middle|lower)";
}

std::string ApplyCompressor(const OutputChoices& choices, ConversionOptionsModel& model) {
  const std::string type = model.FileTypes()[model.FileTypeIndex()].text;
  if (!model.CodecEnabled()) return "--codec and --quality: " + type + " has no compressor choice";
  CodecChoiceModel codecs(model.FileType(), model.CodecEntryForType());
  if (codecs.Names().empty()) return "--codec and --quality: no compressor is listed for " + type;
  if (choices.codec) {
    const int index = FindCompressor(codecs, *choices.codec);
    if (index < 0) return "--codec " + *choices.codec + ": not a compressor of " + type + "; listed: " + CompressorsText(codecs);
    codecs.Select(index);
  }
  if (choices.quality) {
    if (!codecs.SliderEnabled())
      return "--quality: the compressor \"" + codecs.Names()[codecs.Index()] + "\" of " + type + " has no quality setting";
    const auto quality = WholeNumber(*choices.quality);
    if (!quality || *quality > CodecChoiceModel::kSliderMaximum) return "--quality " + *choices.quality + ": a whole number from 0 to 100";
    codecs.SliderMoved(static_cast<int>(*quality));
  }
  codecs.Confirm();
  model.TakeCodecEntry(codecs.Selected());
  return "";
}

// Takes the value of an option: "--name VALUE" or "--name=VALUE".
struct OptionReader {
  int argc;
  const char* const* argv;
  int& i;
  std::string error;

  std::optional<std::string> Value(std::string_view arg, std::string_view name) {
    if (arg == name) {
      if (i + 1 >= argc) {
        error = std::string(name) + " needs a value";
        return {};
      }
      return std::string(argv[++i]);
    }
    if (arg.size() > name.size() && arg.substr(0, name.size()) == name && arg[name.size()] == '=')
      return std::string(arg.substr(name.size() + 1));
    return {};
  }
};

// Checks a value that is wrong whatever the recording; empty when it is fine.
std::string CheckValue(std::string_view name, std::string& value) {
  if (name == "--type") {
    const auto type = FindOfferedType(value);
    if (!type) return "--type " + value + ": not a file type offered; offered: " + OfferedTypesText();
    value = std::to_string(type->number);
  } else if (name == "--depth") {
    const auto depth = WholeNumber(value);
    if (!depth || *depth < 1 || *depth > 48) return "--depth " + value + ": bits per pixel, a number such as 8, 12, 24 or 36";
  } else if (name == "--bit-range") {
    if (!BitRangeOf(value)) return "--bit-range " + value + ": one of upper, middle, lower (or 0, 1, 2)";
  } else if (name == "--rate") {
    const auto rate = WholeNumber(value);
    if (!rate || *rate > INT32_MAX) return "--rate " + value + ": frames per second, digits only, 0 to 2147483647 (0 gives 5)";
  } else if (name == "--quality") {
    const auto quality = WholeNumber(value);
    if (!quality || *quality > 100) return "--quality " + value + ": a whole number from 0 to 100";
  } else if (name == "--codec") {
    if (value.empty()) return "--codec needs a compressor's name, handler number or four-character code";
  } else if (name == "--dest") {
    if (value.empty()) return "--dest needs a folder";
    value = WholePath(value);
    if (value.size() >= kPathField) return "--dest " + value + ": a folder path takes at most " + std::to_string(kPathField - 1) + " characters";
  } else if (name == "--batch-entry") {
    if (!ParseEntryNumber(value)) return "--batch-entry " + value + ": an entry number of the batch file, 0 to " + std::to_string(kMaxBatchEntries - 1);
  } else if (name == "--parallel") {
    const auto n = WholeNumber(value);
    if (!n || *n < 1 || *n > 12) return "--parallel " + value + ": a number of jobs from 1 to 12";
  }
  return "";
}

// --batch-entry: one entry of one batch file, with the batch's own settings.
std::string TakeBatchEntry(CliArguments& a, const std::string& entry, bool choices) {
  a.batchEntry = ParseEntryNumber(entry);
  if (a.paths.size() != 1 || !IsBatchPath(a.paths.front())) return "--batch-entry converts an entry of one batch file: give one BATCH.bat";
  if (a.listen) return "--batch-entry and --listen do not go together";
  if (choices) return "--batch-entry: a batch file carries its own output settings and destination";
  return "";
}

}  // namespace

std::string WholePath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path whole = std::filesystem::absolute(path, error);
  return error ? path : whole.string();
}

bool OutputChoices::Any() const {
  return fileType || depth || bitRange || rate || codec || quality || resetNumbering || deleteRaw;
}

CliParse ParseCliArguments(int argc, const char* const* argv) {
  CliParse parse;
  CliArguments& a = parse.arguments;
  OutputChoices& c = a.choices;
  std::optional<std::string> parallel, batchEntry;
  const std::pair<const char*, std::optional<std::string>*> valued[] = {
      {"--type", &c.fileType}, {"--depth", &c.depth},       {"--bit-range", &c.bitRange},   {"--rate", &c.rate},
      {"--codec", &c.codec},   {"--quality", &c.quality}, {"--parallel", &parallel}, {"--batch-entry", &batchEntry}};
  const std::pair<const char*, std::optional<bool>*> switches[] = {{"--reset-numbering", &c.resetNumbering},
                                                                   {"--delete-raw", &c.deleteRaw}};
  bool pathsOnly = false;
  std::optional<std::string> destination;
  for (int i = 1; i < argc && parse.error.empty(); ++i) {
    const std::string_view arg = argv[i];
    if (pathsOnly || arg.size() < 2 || arg[0] != '-') {
      a.paths.push_back(WholePath(argv[i]));
      continue;
    }
    OptionReader reader{argc, argv, i, {}};
    bool known = false;
    for (auto& [name, target] : valued) {
      if (std::optional<std::string> value = reader.Value(arg, name)) {
        parse.error = CheckValue(name, *value);
        *target = std::move(*value);
        known = true;
      }
    }
    if (auto value = reader.Value(arg, "--dest")) {
      parse.error = CheckValue("--dest", *value);
      destination = std::move(*value);
      known = true;
    }
    for (auto& [name, target] : switches) {
      if (arg == name) *target = true, known = true;
      if (arg == "--no-" + std::string(name + 2)) *target = false, known = true;
    }
    if (arg == "--keep-raw") c.deleteRaw = false, known = true;
    if (arg == "--listen") a.listen = known = true;
    if (arg == "--save") a.save = known = true;
    if (arg == "--help" || arg == "-h") a.help = known = true;
    if (arg == "--") pathsOnly = known = true;
    if (!reader.error.empty()) parse.error = reader.error;
    else if (!known) parse.error = "unknown option " + std::string(arg);
  }
  if (!parse.error.empty() || a.help) return parse;
  if (parallel) a.parallel = static_cast<int>(*WholeNumber(*parallel));
  if (destination) a.destination = *destination;
  if (a.save && !parallel) parse.error = "--save keeps the count of --parallel N, and none is given";
  else if (a.paths.empty() && !a.listen && !a.save) parse.error = "no PATH to convert";
  else if (a.paths.empty() && (c.Any() || destination))
    parse.error = "the output choices and --dest apply to the PATH arguments, and none is given";
  else if (batchEntry) parse.error = TakeBatchEntry(a, *batchEntry, c.Any() || destination);
  return parse;
}

std::string ApplyChoices(const OutputChoices& choices, ConversionOptionsModel& model) {
  if (choices.fileType) {
    const auto& types = model.FileTypes();
    const auto type = FindOfferedType(*choices.fileType);
    for (std::size_t i = 0; type && i < types.size(); ++i)
      if (types[i].number == type->number) model.SelectFileType(i);
    if (!type || model.FileType() != type->number) return "--type " + *choices.fileType + ": not a file type offered; offered: " + OfferedTypesText();
  }
  if (choices.depth || choices.bitRange)
    if (std::string error = ApplyDepth(choices, model); !error.empty()) return error;
  if (choices.resetNumbering) model.SetResetNumbering(*choices.resetNumbering);
  if (choices.deleteRaw) model.SetDeleteRaw(*choices.deleteRaw);
  if (choices.rate) {
    if (!model.RateEnabled()) return "--rate: " + model.FileTypes()[model.FileTypeIndex()].text + " has no playback rate";
    model.SetRateField(*choices.rate);
  }
  if (choices.codec || choices.quality) return ApplyCompressor(choices, model);
  return "";
}

std::string CliHelpText() {
  std::string text = R"(usage: tarnvel-cli [OPTION]... PATH...
       tarnvel-cli --listen [OPTION]... [PATH]...
       tarnvel-cli --batch-entry K BATCH.bat
       tarnvel-cli --slurm BATCH.bat [--partition P] [--max-tasks N] [--sbatch-arg ARG]...
       tarnvel-cli --slurm-report JOBID BATCH.bat

Converts recordings. Each PATH is a recording's argument file (args.ini) or
a batch file (.bat). Without output choices a job converts as its argument
file and the recording's profile say; with any of them, every argument file
goes the way of the desktop's "Raw Conversion Options": its values start as
the dialog shows them and the choices set its controls.

Output choices (for argument files; a batch file carries its own):
  --type TYPE         file type, by number or extension (see below)
  --depth BITS        output depth in bits per pixel, as the depth list of
                      the recording and type offers it: 8 to 12 for a mono
                      recording (8 only where the type is not deep), 24 to
                      36 for a colour one, never deeper than the recording
  --bit-range RANGE   which 8 bits an 8-bit (or 24-bit colour) output keeps
                      of a deeper recording: upper (default), middle, lower
  --rate FPS          playback rate of a movie, digits only; 0 gives 5.
                      Only for types with a playback rate
  --codec CODEC       compressor, by its name, handler number or
                      four-character code (MJPG, H264, ...). Only for types
                      with a compressor choice: @CODEC_TYPES@
  --quality PERCENT   compression quality, 0 to 100, where the chosen
                      compressor has one
  --reset-numbering   output frame numbers count from 0
  --no-reset-numbering  they count from the recording's frame numbers
  --delete-raw        delete the raw files after a conversion without error
  --keep-raw, --no-delete-raw  keep them
  --dest FOLDER       write the output into FOLDER/<recording folder name>
                      instead of beside each recording, with the profile
                      files copied along

Running:
  --parallel N        run up to N jobs at once (1 to 12); else the settings
  --save              keep --parallel N in the settings for later runs and
                      the desktop program (1 turns parallel conversion off);
                      without a PATH nothing else is done
  --listen            also take the suite's commands on the converter's
                      socket, and stay until a close command finds no job
  -h, --help          show this text
  --                  every argument after it is a PATH

Batches on a cluster (one task per entry of a batch file):
  --batch-entry K     convert entry K (File_K) of the one BATCH.bat given,
                      exactly as a run of the whole batch would, and end
                      with the line "tarnvel-cli: entry K ended STATE
                      [, message N][: TEXT]"; for any scheduler that runs
                      one command per index
  --slurm BATCH.bat   submit the batch as one Slurm job array through
                      sbatch, a task per entry running --batch-entry; prints
                      the job id. Logs go to <batch name>-logs beside it
  --partition P       the array's Slurm partition
  --max-tasks N       at most N of its tasks at once
  --sbatch-arg ARG    one more argument for sbatch, as given (repeatable;
                      not --array, --output, --error or --wrap)
  --slurm-report JOBID BATCH.bat
                      how each entry ended, from the tasks' logs; exit
                      status 0 only when every entry ended "Done"

An option's value may also follow an equal sign (--type=png). When an option
is given twice the last one counts. A value that is wrong, or that the
options dialog would not allow for a recording (a depth it doesn't list, a
rate or compressor the type has no control for), is named with the values
allowed, and nothing is converted.

File types:
)";
  std::vector<std::string> codecTypes;
  for (const FileTypeChoice& type : OfferedFileTypes())
    if (CodecButtonEnabled(type.number)) codecTypes.push_back(type.extension);
  text.replace(text.find("@CODEC_TYPES@"), 13, Join(codecTypes));
  for (const FileTypeChoice& type : OfferedFileTypes()) {
    std::string number = std::to_string(type.number);
    text += "  " + number + std::string(4 - std::min<std::size_t>(number.size(), 3), ' ') + type.extension +
            std::string(6 - std::min<std::size_t>(type.extension.size(), 5), ' ') + type.text + "\n";
  }
  text += R"(
Exit status:
  0  every job ended "Done"
  1  a job failed or was aborted, or nothing was converted
  2  the command line or one of its values is wrong; nothing was converted

Ctrl-C asks once; a second Ctrl-C aborts all jobs, which close their
outputs and keep the raw files. SIGTERM aborts all jobs at once.
)";
  return text;
}

ChosenJob ChooseJob(const std::string& argsPath, const OutputChoices& choices) {
  const OptionsStart start = ReadOptionsStart(argsPath);
  ConversionOptionsModel model(start, ReadRecordingSummary(RecordingFolderOf(argsPath), start.firstFrame, start.frameCount, false));
  ChosenJob job;
  job.error = ApplyChoices(choices, model);
  if (job.error.empty()) job.overrides = model.Confirm();
  return job;
}

}  // namespace tarnvel

namespace tarnvel {

std::string AddCliJobs(Scheduler& scheduler, FrontEnd& frontEnd, const CliArguments& arguments) {
  const OutputChoices& choices = arguments.choices;
  std::vector<std::optional<JobOverrides>> chosen;
  std::string errors;
  for (const std::string& path : arguments.paths) {
    chosen.emplace_back();
    if (IsBatchPath(path)) {
      if (choices.Any() || !arguments.destination.empty())
        errors += "tarnvel-cli: " + path + ": a batch file carries its own output settings and destination; the output choices and --dest apply to argument files\n";
      continue;
    }
    if (!choices.Any()) continue;
    ChosenJob job = ChooseJob(path, choices);
    if (!job.error.empty()) errors += "tarnvel-cli: " + path + ": " + job.error + "\n";
    chosen.back() = job.overrides;
  }
  if (!errors.empty()) return errors;
  for (std::size_t i = 0; i < arguments.paths.size(); ++i) {
    const auto take = [&](const std::string&, JobOverrides& overrides) {
      overrides = *chosen[i];
      return true;
    };
    const std::string& path = arguments.paths[i];
    // The desktop passes a wrong batch file over in silence; here it is named.
    if (AddFile(scheduler, frontEnd, path, chosen[i].has_value(), take, arguments.destination) == AddOutcome::NotABatchFile)
      frontEnd.ShowMessage(kMsgNotABatchFile, StyleOf(kMsgNotABatchFile), MessageText(kMsgNotABatchFile, path.c_str()));
  }
  return "";
}

}  // namespace tarnvel
