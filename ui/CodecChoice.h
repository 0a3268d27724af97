// The compressor choice of one file type, without a toolkit: the list,
// quality slider and enable rules of the "Video Compression" dialog. The
// compressors and their abilities are the image library's; the choice hands
// back one compressor record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/framekit/FrameHeader.h"

namespace tarnvel {

// The library's list: fills `entries` and sets `count` (the room on entry).
using CodecLister = std::function<int(int fileType, CodecEntry* entries, std::uint32_t* count)>;

class CodecChoiceModel {
 public:
  static constexpr std::uint32_t kTableRoom = 128;
  static constexpr std::uint32_t kListed = 64;  // what the library is told
  static constexpr int kSliderMaximum = 100;
  static constexpr int kTickEvery = 10;
  static constexpr int kLineStep = 1;
  static constexpr int kPageStep = -5;  // a page moves against the key's direction

  // `selected` is the caller's compressor record; a null lister asks the image library.
  CodecChoiceModel(int fileType, const CodecEntry& selected, CodecLister lister = nullptr);

  const std::vector<std::string>& Names() const { return names_; }
  // The list's selection; -1 when the list is empty.
  int Index() const { return index_; }
  void Select(int index);

  bool ListEnabled() const { return count_ != 0; }
  bool ConfirmEnabled() const { return count_ != 0; }
  bool SliderEnabled() const { return HasQuality(Shown()); }
  bool ConfigureEnabled() const { return (Shown().flags & kCodecHasDialog) != 0; }
  int SliderPosition() const { return slider_; }
  // The read-out beside the slider: the quality in percent, or "N/A".
  const std::string& Readout() const { return readout_; }

  // The slider moves: the read-out follows ...
  void SliderMoving(int position);
  // ... and when the movement ends the shown compressor takes position * 100.
  void SliderMoved(int position);
  // The compressor's own settings dialog; its result is not looked at.
  void Configure(void* owner);

  // OK: the selected record becomes the listed compressor's.
  void Confirm();
  const CodecEntry& Selected() const { return selected_; }
  const CodecEntry& TableEntry(std::size_t i) const { return table_[i]; }
  std::uint32_t Count() const { return count_; }

 private:
  static bool HasQuality(const CodecEntry& entry) { return (entry.flags & kCodecHasQuality) != 0; }
  const CodecEntry& Shown() const { return index_ >= 0 ? table_[static_cast<std::size_t>(index_)] : selected_; }
  void ShowEntry();

  int fileType_;
  CodecEntry selected_;
  std::vector<CodecEntry> table_;
  std::uint32_t count_ = kListed;
  std::vector<std::string> names_;
  int index_ = -1;
  int slider_ = kSliderMaximum;
  std::string readout_;
};

}  // namespace tarnvel
