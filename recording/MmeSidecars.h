// The test sidecars of an impact-test recording, in the MME data format
// (ISO/TS 13499, edition 1.6): the test header `_config.mme` and the movie
// description `_config.mii`. A conversion only copies them; these operations
// read and write them for the suite's tools.
//
// Lines are "key:value" with keys padded to 29 characters, so every value
// starts at column 29. Files are written with CRLF line ends, as the suite's
// Windows tools write and expect them; reading takes LF as well.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "recording/RecordingInfo.h"

namespace tarnvel {

enum MmeField : int {
  kMmeTitle,
  kMmeMedium,
  kMmeTimestamp,
  kMmeTestType,
  kMmeTestSubtype,
  kMmeRegulation,
  kMmeReferenceTemperature,
  kMmeHumidity,
  kMmeTestDate,
  kMmeTestObjects,
  kMmeLaboratory,
  kMmeLaboratoryContact,
  kMmeLaboratoryPhone,
  kMmeLaboratoryFax,
  kMmeLaboratoryMail,
  kMmeLaboratoryReference,
  kMmeCustomer,
  kMmeCustomerReference,
  kMmeProjectReference,
  kMmeOrderNumber,
  kMmeCostUnit,
  kMmeTestEngineer,
  kMmeEngineerPhone,
  kMmeEngineerFax,
  kMmeEngineerMail,
  kMmeMovieComment,
  kMmeMovieOrigin,
  kMmeFieldCount
};

constexpr std::size_t kMmeKeyWidth = 29;

// The header record: 27 texts of 128 characters, indexed by MmeField.
struct MmeRecord {
  char field[kMmeFieldCount][128];
};
static_assert(sizeof(MmeRecord) == 27 * 128);

// The key of a field's line, 29 characters with its colon.
const char* MmeKey(MmeField field);

// Which file a header lives in: "_config.mme" in the recording folder, or
// "_default.mme" in the data folder when no recording folder is given (empty).
std::string MmeHeaderReadPath(std::string_view dataFolder, std::string_view recordingFolder);
// Where WriteMmeHeader writes: "<path>/<last component>.mme", or
// "<path>/_config.mme" for a path without a separator, or "_default.mme" in the
// data folder when no path is given. One trailing separator is dropped first.
std::string MmeHeaderWritePath(std::string_view dataFolder, std::string_view recordingPath);
// Where AddMovieToMii writes: as above with ".mii" and "_config.mii".
std::string MiiPath(std::string_view recordingPath);

// Fills `record` from the header file. Lines are read to the end; in each the
// first key of the table that it contains gives the field, and the text from
// column 29 on, without its line end, the value ("NOVALUE" clears the field;
// a value is cut to 127 characters). Lines of other keys are passed over, and
// a line longer than 511 characters counts with its first 511. Returns false
// and leaves the record unchanged when the file cannot be opened or is larger
// than 1 MiB (no header of the suite is).
bool ReadMmeHeader(std::string_view dataFolder, std::string_view recordingFolder, MmeRecord& record);

// Writes the header: the edition line, the laboratory and customer lines, the
// test lines, and in the default file the two movie lines. Empty fields are
// "NOVALUE"; with a recording path an empty timestamp and test date take the
// local date and time. A value is written up to its first line end, so no
// value can open a line of its own. Returns false when the file cannot be
// written or its path is longer than 260 characters.
bool WriteMmeHeader(std::string_view dataFolder, std::string_view recordingPath, const MmeRecord& record);

// What the movie description says about the camera.
struct MiiCamera {
  std::string deviceName;
  std::uint32_t serial = 0;
  std::uint32_t model = 0;
  std::string modelText;
  bool colour = false;
};

// What the image library says about the movie's file type: its extension,
// and for the type that takes a compressor (the movie type) the compressor's
// name and quality (0 to 10000).
struct MiiMovieFile {
  std::string extension;
  std::string compressorName;
  std::uint32_t compressorQuality = 0;
  bool compressed = false;  // the type takes a compressor: key frames, codec and compression are told
};

// Adds the block of one movie to the movie description. Movie 1 starts the
// file anew with the "Number of movies" line; any other number appends (and
// makes a file without that line when there is none). Returns false when the
// file cannot be written or its path is longer than 260 characters.
bool AddMovieToMii(std::string_view recordingPath, std::string_view comment, std::string_view origin,
                   const RecordingInfo& recording, const MiiCamera& camera, int width, int height,
                   int movieNumber, int movieCount, const MiiMovieFile& file);

}  // namespace tarnvel
