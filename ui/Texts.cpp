#include "ui/Texts.h"

#include "platform/cordage/Messages.h"

namespace tarnvel {
namespace {

const std::map<int, std::string>& BuiltInTexts() {
  static const std::map<int, std::string> texts = {
      {kTextTrayTip, "Raw Converter"},
      {kTextOpenTitle, "Open Raw Image Header file"},
      {kTextOpenFilter, "Raw Ini file (*.ini)|*.ini|Raw Batch File (*.bat)|*.bat|"},
      {kTextFileHeading, "File"},
      {kTextStatusHeading, "Status"},
      {kTextImagesHeading, "Images"},
      {kTextTimeHeading, "Time"},
      {kTextFolderHeading, "Folder"},
      {kTextProgressHeading, "Progress"},
      {kTextStatusWaiting + 0, "Waiting"},
      {kTextStatusWaiting + 1, "Converting"},
      {kTextStatusWaiting + 2, "Done"},
      {kTextStatusWaiting + 3, "Abort"},
      {kTextStatusWaiting + 4, "Error"},
      {kTextStatusWaiting + 5, "Converting + AVI"},
      {kTextClearList, "Clear List"},
      {kTextAbort, "Abort"},
      {kTextAbortAll, "Abort all"},
      {kTextAdd, "Add..."},
      {kTextOptions, "Options..."},
      {kTextParallelEnable, "Enable parallel raw conversion."},
      {kTextParallelMaximum, "Maximum number of raw files converted in parallel"},
      {kTextOpenMovie, "Open AVI"},
      {kTextWindowTitle, "Tarnvel (Raw Converter)"},
      {kTextOptionsCaption, "Options"},
      {kTextOk, "OK"},
      {kTextCancel, "Cancel"},
      {kTextYes, "Yes"},
      {kTextNo, "No"},
  };
  return texts;
}

}  // namespace

std::string UiText(int id) {
  const auto it = BuiltInTexts().find(id);
  return CatalogueText(id, it != BuiltInTexts().end() ? it->second : std::string());
}

std::vector<int> UiTextIds() {
  std::vector<int> ids;
  for (const auto& entry : BuiltInTexts()) ids.push_back(entry.first);
  return ids;
}

}  // namespace tarnvel
