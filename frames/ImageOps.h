// The image-operation chain that a recording carries: its items, the filter
// record, the list that owns them, and the built-in filter tables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

namespace tarnvel {

// Operation codes of ImageOpItem::code. Every other code is a legal entry
// that does nothing.
enum ImageOpCode : std::int32_t {
  ImgOpLaplacian = 1,
  ImgOpPrewitt = 2,
  ImgOpSobel = 3,
  ImgOpAverage = 4,
  ImgOpGaussian = 5,
  ImgOpBox = 6,
  ImgOpMedian = 7,
  ImgOpMinimum = 8,
  ImgOpMaximum = 9,
  ImgOpUserFilter = 16,
  ImgOpBrightnessContrast = 21,
  ImgOpGamma = 22,
  ImgOpNegative = 23,
  ImgOpEqualize = 24,
  ImgOpFlipVertical = 40,
  ImgOpFlipHorizontal = 41,
  ImgOpRowOffset = 42,
  ImgOpDisabled = 100,
};

constexpr std::size_t kFilterCoefficients = 100;

// One convolution kernel, built-in or the operator's own. The anchor is
// carried but takes no part: the kernel's size fixes the neighbourhood.
struct ConvolutionFilter {
  char name[64];
  std::int32_t sizeX;
  std::int32_t sizeY;
  std::int32_t anchorX;
  std::int32_t anchorY;
  std::int32_t divisor;
  std::int32_t coefficients[kFilterCoefficients];  // row by row, top row first, sizeX a row
};
static_assert(sizeof(ConvolutionFilter) == 484);
static_assert(offsetof(ConvolutionFilter, divisor) == 80);
static_assert(offsetof(ConvolutionFilter, coefficients) == 84);

// One entry of the chain. `name` is what the acquisition software showed;
// `value3` is carried and read by no operation.
struct ImageOpItem {
  char name[64] = {};
  std::int32_t code = 0;
  std::unique_ptr<ConvolutionFilter> filter;  // only for ImgOpUserFilter
  std::int32_t value1 = 0;
  std::int32_t value2 = 0;
  std::int32_t value3 = 0;
};

// The chain in order of application. The list owns its items and their filters.
class CImageOpList {
 public:
  CImageOpList() = default;
  CImageOpList(const CImageOpList&) = delete;
  CImageOpList& operator=(const CImageOpList&) = delete;
  ~CImageOpList() { Clear(); }

  void AddTail(std::unique_ptr<ImageOpItem> item) { items_.push_back(std::move(item)); }
  // Removes every item from the head on, with its filter.
  void Clear() {
    while (!items_.empty()) items_.pop_front();
  }
  std::size_t GetCount() const { return items_.size(); }
  bool IsEmpty() const { return items_.empty(); }

  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }

 private:
  std::list<std::unique_ptr<ImageOpItem>> items_;
};

// The built-in kernel at `row` of the table of `code` (ImgOpLaplacian to
// ImgOpGaussian), or null when the code has no table or the row lies outside it.
const ConvolutionFilter* BuiltInFilter(std::int32_t code, std::int32_t row);
// Rows in the table of a code: 9, 16, 16, 8, 6, else 0.
std::int32_t BuiltInFilterRows(std::int32_t code);

}  // namespace tarnvel
