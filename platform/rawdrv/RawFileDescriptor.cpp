#include "platform/rawdrv/RawFileDescriptor.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace tarnvel {
namespace {

constexpr int kLineBytes = 512;

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

bool Contains(const char* line, const char* tag) { return std::strstr(line, tag) != nullptr; }

// The text between the line's first '>' and its last '<'.
std::string_view ElementValue(const char* line) {
  const char* open = std::strchr(line, '>');
  const char* close = std::strrchr(line, '<');
  if (!open || !close || close <= open) return std::string_view("");  // never a null pointer
  return {open + 1, static_cast<std::size_t>(close - open - 1)};
}

// A decimal number at the start of the value (blanks allowed in front), else 0;
// kept as its 32-bit pattern.
std::uint32_t ElementNumber(const char* line) {
  std::string value(ElementValue(line));
  const long long parsed = std::strtoll(value.c_str(), nullptr, 10);
  return static_cast<std::uint32_t>(parsed);
}

}  // namespace

int WriteRawFileInfo(const char* rawPath, const RawFileInfo& info, bool segmented) {
  const std::string_view path(rawPath ? rawPath : "");
  const std::size_t cut = path.rfind('\\') != std::string_view::npos ? path.rfind('\\') : path.rfind('/');
  if (cut == std::string_view::npos) return 0;
  const std::string stem(path.substr(cut + 1));
  const std::string descriptor = std::string(path.substr(0, cut)) + '/' + kRawFileDescriptorName;

  File file(std::fopen(descriptor.c_str(), "wb"));
  if (!file) return 0;
  const bool split = info.FramesPerSegment < info.FrameCount || segmented;
  const std::string imageName = stem + (split ? ".00.raw" : ".raw");
  const std::string calName = stem + ".cal";
  std::FILE* f = file.get();
  std::fprintf(f, "<RawFile>\n");
  std::fprintf(f, "  %s%s%s\n", "<Signature>", kRawFileSignature, "</Signature>");
  std::fprintf(f, "  %s%s%s\n", "<ImgFileName>", imageName.c_str(), "</ImgFileName>");
  std::fprintf(f, "  %s%s%s\n", "<CalFileName>", calName.c_str(), "</CalFileName>");
  const auto number = [f](const char* open, long long value, const char* close) {
    std::fprintf(f, "  %s%lld%s\n", open, value, close);
  };
  // Words print as the signed numbers they hold, as "%d" does.
  const auto word = [](std::uint32_t v) { return static_cast<long long>(static_cast<std::int32_t>(v)); };
  number("<HeaderOffset>", word(info.HeaderOffset), "</HeaderOffset>");
  number("<FrameSize>", word(info.FrameSize), "</FrameSize>");
  number("<FrameCount>", word(info.FrameCount), "</FrameCount>");
  number("<FramesPerSegment>", word(info.FramesPerSegment), "</FramesPerSegment>");
  number("<PixelDepth>", word(info.PixelDepth), "</PixelDepth>");
  number("<PreTrigger>", info.PreTrigger, "</PreTrigger>");
  number("<CalibrationType>", word(info.CalibrationType), "</CalibrationType>");
  number("<MulFirstFrame>", word(info.MulFirstFrame), "</MulFirstFrame>");
  number("<ThreadsPerVolume>", word(info.ThreadsPerVolume), "</ThreadsPerVolume>");
  number("<Boards>", word(info.Boards), "</Boards>");
  number("<VolumesCount>", word(info.VolumesCount), "</VolumesCount>");
  const std::string_view volumes = FieldText(info.Volumes);
  if (!volumes.empty()) {
    std::fprintf(f, "  %s%.*s%s\n", "<Volumes>", static_cast<int>(volumes.size()), volumes.data(), "</Volumes>");
  }
  std::fprintf(f, "</RawFile>\n");
  return std::fflush(f) == 0 && !std::ferror(f) ? 1 : 0;
}

int ReadRawFileInfo(const char* path, std::uint32_t blockIndex, RawFileInfo* info) {
  *info = RawFileInfo{};
  info->PreTrigger = -1;
  info->ThreadsPerVolume = 1;
  File file(std::fopen(path, "rb"));
  if (!file) return 0;
  char line[kLineBytes];
  if (!std::fgets(line, sizeof line, file.get()) || !Contains(line, "<RawFile>")) return 0;

  std::uint32_t block = 0;
  do {
    if (Contains(line, "</RawFile>")) {
      if (block == blockIndex) break;
      ++block;
      continue;
    }
    if (block != blockIndex) continue;
    if (Contains(line, "<HeaderOffset>")) info->HeaderOffset = ElementNumber(line);
    else if (Contains(line, "<FrameSize>")) info->FrameSize = ElementNumber(line);
    else if (Contains(line, "<FrameCount>")) info->FrameCount = ElementNumber(line);
    else if (Contains(line, "<FramesPerSegment>")) info->FramesPerSegment = ElementNumber(line);
    else if (Contains(line, "<CalibrationType>")) info->CalibrationType = ElementNumber(line);
    else if (Contains(line, "<PixelDepth>")) info->PixelDepth = ElementNumber(line);
    else if (Contains(line, "<PreTrigger>")) info->PreTrigger = static_cast<std::int32_t>(ElementNumber(line));
    else if (Contains(line, "<MulFirstFrame>")) info->MulFirstFrame = ElementNumber(line);
    else if (Contains(line, "<VolumesCount>")) info->VolumesCount = ElementNumber(line);
    else if (Contains(line, "<ThreadsPerVolume>")) info->ThreadsPerVolume = ElementNumber(line);
    else if (Contains(line, "<Boards>")) info->Boards = ElementNumber(line);
    else if (Contains(line, "<Volumes>")) CopyText(info->Volumes, ElementValue(line));
  } while (std::fgets(line, sizeof line, file.get()));
  return 1;
}

int ReadRawFileNames(const char* path, char* imageName, char* secondImageName, char* calName) {
  secondImageName[0] = '\0';
  File file(std::fopen(path, "rb"));
  if (!file) return 0;
  char line[kLineBytes];
  if (!std::fgets(line, sizeof line, file.get()) || !Contains(line, "<RawFile>")) return 0;
  int result = 0;
  bool secondBlock = false;
  while (std::fgets(line, sizeof line, file.get())) {
    if (Contains(line, "</RawFile>")) {
      if (secondBlock) break;
      continue;
    }
    if (Contains(line, "<RawFile>")) {
      secondBlock = true;
    } else if (Contains(line, "<Signature>")) {
      if (EqualsNoCase(ElementValue(line), kRawFileSignature)) result = 1;
    } else if (Contains(line, "<ImgFileName>")) {
      CopyText(secondBlock ? secondImageName : imageName, kPathField, ElementValue(line));
    } else if (Contains(line, "<CalFileName>") && !secondBlock) {
      CopyText(calName, kPathField, ElementValue(line));
    }
  }
  return result;
}

}  // namespace tarnvel
