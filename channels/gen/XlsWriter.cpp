#include "channels/gen/XlsWriter.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

namespace tarnvel {

namespace {

using Bytes = std::vector<std::uint8_t>;

void Put16(Bytes& out, std::uint32_t v) {
  out.push_back(static_cast<std::uint8_t>(v));
  out.push_back(static_cast<std::uint8_t>(v >> 8));
}
void Put32(Bytes& out, std::uint32_t v) {
  Put16(out, v & 0xFFFF);
  Put16(out, v >> 16);
}
void PutDouble(Bytes& out, double v) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &v, sizeof bits);
  Put32(out, static_cast<std::uint32_t>(bits));
  Put32(out, static_cast<std::uint32_t>(bits >> 32));
}
void Set32(Bytes& out, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) out[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// BIFF8 record types.
constexpr std::uint16_t kBof = 0x0809, kEof = 0x000A, kCodePage = 0x0042, kFont = 0x0031, kXf = 0x00E0,
                        kBoundSheet = 0x0085, kSst = 0x00FC, kDimensions = 0x0200, kLabelSst = 0x00FD,
                        kNumber = 0x0203;
constexpr std::size_t kMaxRecordBody = 8224;
constexpr std::uint16_t kCellXf = 15;  // XFs 0..14 are styles, 15 the default cell format

void Record(Bytes& out, std::uint16_t type, const Bytes& body) {
  Put16(out, type);
  Put16(out, static_cast<std::uint32_t>(body.size()));
  out.insert(out.end(), body.begin(), body.end());
}

void Bof(Bytes& out, std::uint16_t substream) {
  Bytes b;
  Put16(b, 0x0600);  // BIFF8
  Put16(b, substream);
  Put16(b, 0x0DBB);  // build
  Put16(b, 0x07CC);  // year
  Put32(b, 0);
  Put32(b, 0x00000006);
  Record(out, kBof, b);
}

bool IsAscii(const std::string& text) {
  for (unsigned char c : text)
    if (c >= 0x80) return false;
  return true;
}

Bytes BuildWorkbookStream(const std::vector<XlsSheet>& sheets, bool* ok) {
  *ok = false;
  Bytes out;
  // Shared strings: each distinct text once, in order of first use.
  std::map<std::string, std::uint32_t> index;
  std::vector<const std::string*> strings;
  std::uint32_t uses = 0;
  for (const XlsSheet& sheet : sheets) {
    if (sheet.name.empty() || sheet.name.size() > 31 || !IsAscii(sheet.name)) return {};
    if (sheet.rows.size() > 65536) return {};
    for (const auto& row : sheet.rows) {
      if (row.size() > 256) return {};
      for (const XlsCell& cell : row) {
        if (cell.kind != XlsCell::kText) continue;
        if (!IsAscii(cell.text) || cell.text.size() > 255) return {};
        ++uses;
        const auto [place, added] = index.emplace(cell.text, static_cast<std::uint32_t>(strings.size()));
        if (added) strings.push_back(&place->first);
      }
    }
  }

  Bof(out, 0x0005);
  Record(out, kCodePage, {0xB0, 0x04});  // 1200: UTF-16
  {
    Bytes font;
    Put16(font, 200);  // 10 pt
    Put16(font, 0);
    Put16(font, 0x7FFF);
    Put16(font, 400);
    Put16(font, 0);
    font.insert(font.end(), {0, 0, 0, 0, 5, 0, 'A', 'r', 'i', 'a', 'l'});
    for (int i = 0; i < 4; ++i) Record(out, kFont, font);  // Excel expects fonts 0..3 (4 is skipped)
  }
  for (int i = 0; i <= kCellXf; ++i) {
    Bytes xf;
    Put16(xf, 0);  // font
    Put16(xf, 0);  // number format "General"
    Put16(xf, i < kCellXf ? 0xFFF5 : 0x0001);  // style XF with no parent, or cell XF of style 0
    Put16(xf, 0x0020);
    Put16(xf, 0);
    Put32(xf, 0);
    Put32(xf, 0);
    Put16(xf, 0x20C0);
    Record(out, kXf, xf);
  }
  std::vector<std::size_t> sheetOffsetAt;
  for (const XlsSheet& sheet : sheets) {
    Bytes b;
    sheetOffsetAt.push_back(out.size() + 4);
    Put32(b, 0);  // set once the sheet's place is known
    b.push_back(0);  // visible
    b.push_back(0);  // worksheet
    b.push_back(static_cast<std::uint8_t>(sheet.name.size()));
    b.push_back(0);  // 8-bit characters
    b.insert(b.end(), sheet.name.begin(), sheet.name.end());
    Record(out, kBoundSheet, b);
  }
  {
    Bytes sst;
    Put32(sst, uses);
    Put32(sst, static_cast<std::uint32_t>(strings.size()));
    for (const std::string* s : strings) {
      Put16(sst, static_cast<std::uint32_t>(s->size()));
      sst.push_back(0);
      sst.insert(sst.end(), s->begin(), s->end());
    }
    if (sst.size() > kMaxRecordBody) return {};
    Record(out, kSst, sst);
  }
  Record(out, kEof, {});

  for (std::size_t s = 0; s < sheets.size(); ++s) {
    const XlsSheet& sheet = sheets[s];
    Set32(out, sheetOffsetAt[s], static_cast<std::uint32_t>(out.size()));
    Bof(out, 0x0010);
    std::size_t columns = 0;
    for (const auto& row : sheet.rows) columns = std::max(columns, row.size());
    Bytes dim;
    Put32(dim, 0);
    Put32(dim, static_cast<std::uint32_t>(sheet.rows.size()));
    Put16(dim, 0);
    Put16(dim, static_cast<std::uint32_t>(columns));
    Put16(dim, 0);
    Record(out, kDimensions, dim);
    for (std::size_t r = 0; r < sheet.rows.size(); ++r) {
      for (std::size_t c = 0; c < sheet.rows[r].size(); ++c) {
        const XlsCell& cell = sheet.rows[r][c];
        if (cell.kind == XlsCell::kEmpty) continue;
        Bytes b;
        Put16(b, static_cast<std::uint32_t>(r));
        Put16(b, static_cast<std::uint32_t>(c));
        Put16(b, kCellXf);
        if (cell.kind == XlsCell::kText) {
          Put32(b, index.at(cell.text));
          Record(out, kLabelSst, b);
        } else {
          PutDouble(b, cell.number);
          Record(out, kNumber, b);
        }
      }
    }
    Record(out, kEof, {});
  }
  *ok = true;
  return out;
}

// The compound file around one stream "Workbook": 512-byte sectors, the
// stream first, then the directory, the allocation table and, for tables of
// more than 109 sectors, their index sectors.
constexpr std::uint32_t kSector = 512;
constexpr std::uint32_t kFreeSect = 0xFFFFFFFF, kEndOfChain = 0xFFFFFFFE, kFatSect = 0xFFFFFFFD,
                        kDifSect = 0xFFFFFFFC, kNoStream = 0xFFFFFFFF;
constexpr std::uint32_t kMiniStreamCutoff = 4096;

void DirectoryEntry(Bytes& out, const char* name, std::uint8_t type, std::uint32_t child,
                    std::uint32_t start, std::uint32_t size) {
  const std::size_t base = out.size();
  out.resize(base + 128, 0);
  const std::size_t length = std::strlen(name);
  for (std::size_t i = 0; i < length; ++i) out[base + 2 * i] = static_cast<std::uint8_t>(name[i]);
  Bytes tail;
  Put16(tail, length ? static_cast<std::uint32_t>((length + 1) * 2) : 0);
  tail.push_back(type);
  tail.push_back(1);  // black
  Put32(tail, kNoStream);
  Put32(tail, kNoStream);
  Put32(tail, child);
  std::memcpy(&out[base + 64], tail.data(), tail.size());
  Set32(out, base + 116, start);
  Set32(out, base + 120, size);
}

bool WriteCompoundFile(const std::string& path, Bytes stream) {
  // Streams below the cutoff would belong in the mini stream; padding keeps
  // this one in ordinary sectors (readers stop at the last EOF record).
  if (stream.size() < kMiniStreamCutoff) stream.resize(kMiniStreamCutoff, 0);
  if (stream.size() > 0x7FFFFFFF) return false;
  const std::uint32_t streamSectors = static_cast<std::uint32_t>((stream.size() + kSector - 1) / kSector);
  std::uint32_t fatSectors = 1, difatSectors = 0;
  for (;;) {
    const std::uint32_t total = streamSectors + 1 + fatSectors + difatSectors;
    const std::uint32_t needFat = (total + 127) / 128;
    const std::uint32_t needDifat = needFat > 109 ? (needFat - 109 + 126) / 127 : 0;
    if (needFat == fatSectors && needDifat == difatSectors) break;
    fatSectors = needFat;
    difatSectors = needDifat;
  }
  const std::uint32_t directorySector = streamSectors;
  const std::uint32_t firstFat = directorySector + 1;
  const std::uint32_t firstDifat = firstFat + fatSectors;
  const std::uint32_t total = firstDifat + difatSectors;

  std::vector<std::uint32_t> fat(static_cast<std::size_t>(fatSectors) * 128, kFreeSect);
  for (std::uint32_t i = 0; i < streamSectors; ++i) fat[i] = i + 1 < streamSectors ? i + 1 : kEndOfChain;
  fat[directorySector] = kEndOfChain;
  for (std::uint32_t i = 0; i < fatSectors; ++i) fat[firstFat + i] = kFatSect;
  for (std::uint32_t i = 0; i < difatSectors; ++i) fat[firstDifat + i] = kDifSect;

  Bytes header;
  header.insert(header.end(), {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1});
  header.resize(24, 0);
  Put16(header, 0x003E);
  Put16(header, 0x0003);
  Put16(header, 0xFFFE);
  Put16(header, 9);
  Put16(header, 6);
  header.resize(40, 0);
  Put32(header, 0);  // directory sectors (0 in version 3)
  Put32(header, fatSectors);
  Put32(header, directorySector);
  Put32(header, 0);
  Put32(header, kMiniStreamCutoff);
  Put32(header, kEndOfChain);  // no mini allocation table
  Put32(header, 0);
  Put32(header, difatSectors ? firstDifat : kEndOfChain);
  Put32(header, difatSectors);
  for (std::uint32_t i = 0; i < 109; ++i) Put32(header, i < fatSectors ? firstFat + i : kFreeSect);

  Bytes file = std::move(header);
  file.reserve(static_cast<std::size_t>(total + 1) * kSector);
  file.insert(file.end(), stream.begin(), stream.end());
  file.resize(static_cast<std::size_t>(1 + streamSectors) * kSector, 0);
  Bytes directory;
  DirectoryEntry(directory, "Root Entry", 5, 1, kEndOfChain, 0);
  DirectoryEntry(directory, "Workbook", 2, kNoStream, 0, static_cast<std::uint32_t>(stream.size()));
  DirectoryEntry(directory, "", 0, kNoStream, 0, 0);
  DirectoryEntry(directory, "", 0, kNoStream, 0, 0);
  file.insert(file.end(), directory.begin(), directory.end());
  for (std::uint32_t entry : fat) Put32(file, entry);
  for (std::uint32_t d = 0; d < difatSectors; ++d) {
    for (std::uint32_t k = 0; k < 127; ++k) {
      const std::uint32_t fatIndex = 109 + d * 127 + k;
      Put32(file, fatIndex < fatSectors ? firstFat + fatIndex : kFreeSect);
    }
    Put32(file, d + 1 < difatSectors ? firstDifat + d + 1 : kEndOfChain);
  }

  std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(path.c_str(), "wb"), std::fclose);
  if (!out) return false;
  if (std::fwrite(file.data(), 1, file.size(), out.get()) != file.size()) return false;
  return std::fclose(out.release()) == 0;
}

}  // namespace

bool WriteXlsWorkbook(const std::string& path, const std::vector<XlsSheet>& sheets) {
  if (sheets.empty()) return false;
  bool ok = false;
  Bytes stream = BuildWorkbookStream(sheets, &ok);
  return ok && WriteCompoundFile(path, std::move(stream));
}

}  // namespace tarnvel
