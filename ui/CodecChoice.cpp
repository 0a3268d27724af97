#include "ui/CodecChoice.h"

#include <algorithm>

#include "platform/cordage/Messages.h"
#include "platform/cordage/TextField.h"
#include "platform/framekit/FrameKit.h"
#include "ui/RecordingSummary.h"

namespace tarnvel {

CodecChoiceModel::CodecChoiceModel(int fileType, const CodecEntry& selected, CodecLister lister)
    : fileType_(fileType), selected_(selected), table_(kTableRoom) {
  if (!lister) lister = ListCodecs;
  bool matched = false;
  int matchIndex = 0;
  if (lister(fileType_, table_.data(), &count_) == 0) {
    const std::uint32_t listed = std::min(count_, kTableRoom);
    for (std::uint32_t i = 0; i < listed; ++i) {
      names_.emplace_back(FieldText(table_[i].name));
      if (table_[i].handler != selected_.handler) continue;
      // The listed compressor keeps the library's abilities and takes the caller's quality and name.
      matched = true;
      matchIndex = static_cast<int>(i);
      selected_.flags = table_[i].flags;
      selected_.reserved = table_[i].reserved;
      table_[i] = selected_;
    }
  }
  if (count_ != 0 && !matched) selected_ = table_[0];
  index_ = names_.empty() ? -1 : matchIndex;
  ShowEntry();
}

void CodecChoiceModel::Select(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= names_.size()) return;
  index_ = index;
  ShowEntry();
}

void CodecChoiceModel::ShowEntry() {
  const CodecEntry& entry = Shown();
  if (HasQuality(entry)) {
    slider_ = static_cast<int>(std::min<std::uint32_t>(entry.quality / 100, kSliderMaximum));
    readout_ = std::to_string(entry.quality / 100);
  } else {
    slider_ = kSliderMaximum;
    readout_ = CatalogueText(kTextNotAvailable, "N/A");
  }
}

void CodecChoiceModel::SliderMoving(int position) {
  if (!SliderEnabled()) return;
  slider_ = std::clamp(position, 0, kSliderMaximum);
  readout_ = std::to_string(slider_);
}

void CodecChoiceModel::SliderMoved(int position) {
  if (!SliderEnabled()) return;
  SliderMoving(position);
  if (index_ >= 0) table_[static_cast<std::size_t>(index_)].quality = static_cast<std::uint32_t>(slider_) * 100;
}

void CodecChoiceModel::Configure(void* owner) {
  if (index_ >= 0) ConfigureCodec(fileType_, &table_[static_cast<std::size_t>(index_)], owner);
}

void CodecChoiceModel::Confirm() {
  if (index_ >= 0) selected_ = table_[static_cast<std::size_t>(index_)];
}

}  // namespace tarnvel
