// The test sidecars of a generated recording: the MME test header
// `_config.mme` and the movie description `_config.mii`, in their text form
// (keys of 29 characters, "NOVALUE" for what a generated recording can't know).
#include <cstdio>
#include <string>

#include "apps/recgen/RecordingGenerator.h"
#include "platform/cordage/TextField.h"

namespace tarnvel::recgen {
namespace {

std::string Line(const char* key, const std::string& value) {
  return std::string(key) + (value.empty() ? "NOVALUE" : value) + "\n";
}

// The serial number as the suite prints it: plain for models 11 to 13 and
// 20 to 22, else in three groups.
std::string SerialText(std::uint32_t model, std::uint32_t serial) {
  char text[64];
  if (ModelHasCameraBlock(model)) {
    std::snprintf(text, sizeof text, "%d", static_cast<int>(serial));
  } else {
    const int first = static_cast<int>(serial / 100000000);
    std::snprintf(text, sizeof text, "%02d-%04d-%04d", first, static_cast<int>(serial / 10000 - 10000 * first),
                  static_cast<int>(serial % 10000));
  }
  return text;
}

bool Write(const std::string& path, const std::string& content) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  const bool ok = std::fwrite(content.data(), 1, content.size(), f) == content.size();
  return std::fclose(f) == 0 && ok;
}

}  // namespace

std::string WriteSidecars(const RecordingOptions& o) {
  char date[32];
  std::snprintf(date, sizeof date, "%d-%02d-%02d", o.year, o.month, o.day);
  char stamp[48];
  std::snprintf(stamp, sizeof stamp, "%s %02d:%02d:%02d", date, o.hour, o.minute, o.second);
  std::string mme = Line("Data format edition number  :", "1.6");
  for (const char* key :
       {"Laboratory name             :", "Laboratory contact name     :", "Laboratory contact phone    :",
        "Laboratory contact fax      :", "Laboratory contact email    :", "Laboratory test ref. number :",
        "Customer name               :", "Customer test ref. number   :", "Customer project ref. number:",
        "Customer order number       :", "Customer cost unit          :", "Customer test engineer name :",
        "Customer test engineer phone:", "Customer test engineer fax  :", "Customer test engineer email:"}) {
    mme += Line(key, "");
  }
  mme += Line("Title                       :", o.comment);
  mme += Line("Medium No./number of media  :", "");
  mme += Line("Timestamp                   :", stamp);
  mme += Line("Type of the test            :", "");
  mme += Line("Subtype of the test         :", "");
  mme += Line("Regulation                  :", "");
  mme += Line("Reference temperature       :", "");
  mme += Line("Relative air humidity       :", "");
  mme += Line("Date of the test            :", date);
  mme += Line("Number of test objects      :", "");

  const std::uint32_t width = o.rotation % 2 ? o.height : o.width;
  const std::uint32_t height = o.rotation % 2 ? o.width : o.height;
  char number[64];
  const auto put = [&number](const char* format, auto value) {
    std::snprintf(number, sizeof number, format, value);
    return std::string(number);
  };
  std::string mii = put("Number of movies            :%d\n", 1);
  mii += Line("Comments                    :", o.comment);
  mii += put("ID-number %d                 :", 1) + "1\n";
  mii += Line(put("Origin %d                    :", 1).c_str(), "");
  mii += Line(put("Description %d               :", 1).c_str(), o.deviceName);
  mii += Line(put("Camera ID-number %d          :", 1).c_str(), SerialText(o.model, o.serial));
  mii += Line(put("Camera type %d               :", 1).c_str(), o.cameraText);
  for (const char* key : {"Lens ID-number %d            :", "Lens type %d                 :",
                          "Focus %d                     :", "Lens focal length %d         :"}) {
    mii += Line(put(key, 1).c_str(), "");
  }
  mii += put("Number of images %d          :", 1) + std::to_string(o.frames) + "\n";
  mii += put("Film speed %d                :", 1) + std::to_string(static_cast<int>(o.rate)) + "\n";
  mii += put("Shutter time %d              :", 1) + put("%.06f", o.exposureNs / 1e9) + "\n";
  mii += Line(put("Aperture %d                  :", 1).c_str(), "");
  mii += put("Time zero %d                 :", 1) + std::to_string(o.preTrigger + 1) + "\n";
  mii += Line(put("Time vector filename %d      :", 1).c_str(), "NO");
  for (const char* key : {"Reference system %d          :", "Location X %d                :",
                          "Location Y %d                :", "Location Z %d                :",
                          "Theta X %d                   :", "Theta Y %d                   :",
                          "Theta Z %d                   :"}) {
    mii += Line(put(key, 1).c_str(), "");
  }
  mii += put("Width of image %d            :", 1) + std::to_string(width) + "\n";
  mii += put("Height of image %d           :", 1) + std::to_string(height) + "\n";
  mii += put("Aspect ratio of pixels %d    :", 1) +
         put("%.02f", static_cast<double>(static_cast<float>(width) / static_cast<float>(height))) + "\n";
  mii += Line(put("Colour %d                    :", 1).c_str(), o.colour ? "RGB" : "MONO");
  mii += Line(put("Name of movie file %d        :", 1).c_str(), "Img.tif");
  mii += Line(put("Format of movie file %d      :", 1).c_str(), "tif");
  for (const char* key : {"Keyframes %d                 :", "Codec used %d                :",
                          "Compression %d               :", "Distortion index %d          :"}) {
    mii += Line(put(key, 1).c_str(), "");
  }
  mii += Line(put("Movie images corrected %d    :", 1).c_str(), "NO");
  mii += Line(put("Correction parameter file %d :", 1).c_str(), "");
  mii += Line(put("Image history filename %d    :", 1).c_str(), "");

  if (!Write(JoinPath(o.folder, "_config.mme"), mme) || !Write(JoinPath(o.folder, "_config.mii"), mii)) {
    return "cannot write the test sidecars";
  }
  return "";
}

}  // namespace tarnvel::recgen
