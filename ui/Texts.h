// The program's numbered texts: headings, buttons, statuses, captions. Each
// has a built-in English text that a language catalogue may replace; the
// numbers are the same in every language.
#pragma once

#include <string>
#include <vector>

namespace tarnvel {

enum TextId : int {
  kTextTrayTip = 1,  // "Raw Converter"
  kTextOpenTitle = 11,
  kTextOpenFilter = 12,  // "Description|pattern|" pairs
  kTextFileHeading = 231,
  kTextStatusHeading = 232,
  kTextImagesHeading = 233,
  kTextTimeHeading = 234,
  kTextFolderHeading = 235,
  kTextProgressHeading = 236,
  kTextStatusWaiting = 240,  // + status number, up to "Converting + AVI" at 245
  kTextClearList = 1001,
  kTextAbort = 1003,
  kTextAbortAll = 1005,
  kTextAdd = 1022,
  kTextOptions = 1023,
  kTextParallelEnable = 1024,
  kTextParallelMaximum = 1025,
  kTextOpenMovie = 32775,
  // Texts that carry no number of their own in the original resources.
  kTextWindowTitle = 40001,
  kTextOptionsCaption = 40002,
  kTextOk = 40003,
  kTextCancel = 40004,
  kTextYes = 40005,
  kTextNo = 40006,
};

// The text of `id` in the loaded language (the string catalogue, see
// SetStringCatalogue), else in English; empty for an unknown number.
std::string UiText(int id);

// Every number that has a built-in text here, in ascending order.
std::vector<int> UiTextIds();

}  // namespace tarnvel
