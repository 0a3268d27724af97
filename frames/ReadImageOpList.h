// Loads the image-operation chain of a recording from the section
// "ImgOpList" of its `_config.pgv`.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frames/ImageOps.h"

namespace tarnvel {

// More items than this are not read: a profile cannot make a job build an
// endless list of empty entries.
constexpr std::int32_t kMaxImageOps = 1000;

// Appends the items of "ImgOpList" in key order to `list`. Returns 1 when
// the section held a non-zero "Count", else 0. A missing file or section
// gives no items. At most kFilterCoefficients coefficients are read into a
// user filter; a filter whose size asks for more is kept as written and
// refused when it runs.
int ReadImageOpList(const char* folder, CImageOpList& list);

// Up to `capacity` decimals at the start of `text`, blank-separated, as
// scanf's "%d %d ..." reads them: the first text that is not a number ends
// the list. Values beyond 32 bits saturate. Returns how many were read.
std::size_t ParseDecimals(const char* text, std::int32_t* values, std::size_t capacity);

}  // namespace tarnvel
