// Reader of channel workbooks (.XLS, the binary Excel format), on FreeXL.
//
// The workbook holds a worksheet "PGDA1" whose first row names the columns:
// "Times" for the time in seconds and "Channel%d" for each enabled channel.
// Every further row is one instant; rows are taken in the order of their
// times, whatever their order in the sheet.
#pragma once

#include "channels/ChannelData.h"

namespace tarnvel {

// Returns 1 or 0; `samples` is filled unless headerOnly (it may then be null).
// Rules beyond the shared ones of the text forms:
// - Sheet and column names compare without regard to case.
// - A row whose "Times" cell is empty or holds no finite number is no
//   instant and is passed over.
// - A value cell that is empty or holds no number reads as 0.0 V.
// - No worksheet "PGDA1", no column "Times", no channel column or no row:
//   failure.
int ReadChannelXls(const char* path, ChannelFileHeader* header, ChannelCodes* samples, bool headerOnly);

}  // namespace tarnvel
