#include "ui/ParallelOptions.h"

namespace tarnvel {

ParallelOptionsModel::ParallelOptionsModel(const ParallelSettings& present)
    : checked_(present.enabled != 0), selection_(-1) {
  Select(present.maximum - kFirstEntry);
}

std::vector<std::string> ParallelOptionsModel::Entries() {
  std::vector<std::string> entries;
  for (int n = kFirstEntry; n <= kLastEntry; ++n) entries.push_back(std::to_string(n));
  return entries;
}

void ParallelOptionsModel::Select(int index) {
  selection_ = index >= 0 && index <= kLastEntry - kFirstEntry ? index : -1;
}

ParallelSettings ParallelOptionsModel::Confirm() const {
  return {checked_ ? 1 : 0, selection_ + kFirstEntry};
}

}  // namespace tarnvel
