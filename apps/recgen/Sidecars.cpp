// The test sidecars of a generated recording, written by the suite's own
// writers: the MME test header `_config.mme` and the movie description
// `_config.mii`. The writers name their files after the recording folder;
// a recording folder holds them under the fixed names.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "apps/recgen/RecordingGenerator.h"
#include "platform/cordage/TextField.h"
#include "recording/MmeSidecars.h"

namespace tarnvel::recgen {
namespace {

bool MoveTo(const std::string& from, const std::string& to) {
  std::error_code ec;
  std::filesystem::rename(from, to, ec);
  return !ec;
}

}  // namespace

std::string WriteSidecars(const RecordingOptions& o) {
  MmeRecord header{};
  CopyText(header.field[kMmeTitle], o.comment);
  char date[32];
  std::snprintf(date, sizeof date, "%d-%02d-%02d", o.year, o.month, o.day);
  char stamp[48];
  std::snprintf(stamp, sizeof stamp, "%s %02d:%02d:%02d", date, o.hour, o.minute, o.second);
  CopyText(header.field[kMmeTestDate], date);
  CopyText(header.field[kMmeTimestamp], stamp);
  if (!WriteMmeHeader("", o.folder, header) ||
      !MoveTo(MmeHeaderWritePath("", o.folder), JoinPath(o.folder, "_config.mme")))
    return "cannot write the test header";

  auto recording = std::make_unique<RecordingInfo>();
  std::memset(recording.get(), 0, sizeof(RecordingInfo));
  CopyText(recording->Comment, o.comment);
  CopyText(recording->ImagePrefix, "Img");
  recording->FileType = o.fileType;
  recording->Frames = o.frames;
  recording->Rate = o.rate;
  recording->ExposureNs = o.exposureNs;
  recording->PerTrigFrms = o.preTrigger;
  MiiCamera camera{o.deviceName, o.serial, o.model, o.cameraText, o.colour};
  const int width = static_cast<int>(o.rotation % 2 ? o.height : o.width);
  const int height = static_cast<int>(o.rotation % 2 ? o.width : o.height);
  MiiMovieFile file{"tif", "", 0};
  if (!AddMovieToMii(o.folder, o.comment, "", *recording, camera, width, height, 1, 1, file) ||
      !MoveTo(MiiPath(o.folder), JoinPath(o.folder, "_config.mii")))
    return "cannot write the movie description";
  return "";
}

}  // namespace tarnvel::recgen
