// A small writer of Excel workbooks in the binary format (BIFF8 inside a
// compound file), enough for channel workbooks: worksheets of numbers and
// short texts. Readers such as FreeXL and spreadsheet programs open it.
#pragma once

#include <string>
#include <vector>

namespace tarnvel {

struct XlsCell {
  enum Kind { kEmpty, kNumber, kText };
  Kind kind = kEmpty;
  double number = 0;
  std::string text;

  static XlsCell Number(double value) { return {kNumber, value, {}}; }
  static XlsCell Text(std::string value) { return {kText, 0, std::move(value)}; }
};

struct XlsSheet {
  std::string name;                        // at most 31 characters
  std::vector<std::vector<XlsCell>> rows;  // at most 65536 rows of 256 cells
};

// Writes the sheets in order. Returns false when a limit of the format is
// passed (sheet name, rows, columns, all texts together beyond one string
// table record of 8224 bytes) or the file cannot be written.
bool WriteXlsWorkbook(const std::string& path, const std::vector<XlsSheet>& sheets);

}  // namespace tarnvel
