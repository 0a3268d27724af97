// Feeds arbitrary descriptors and store files to the raw driver: the input's
// first two bytes give the length of the descriptor text, the rest is the
// store (written under the single-file and first two segment names) and the
// calibration file. Every operation runs on whatever opens.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/rawdrv/RawDriver.h"

namespace {

void Write(const std::string& path, const std::uint8_t* data, std::size_t size) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarnvel;
  static const std::string folder = [] {
    std::string f = "/tmp/tarnvel-fuzz-rawstore-" + std::to_string(::getpid());
    ::mkdir(f.c_str(), 0700);
    DriverInit(0);
    return f;
  }();
  if (size < 2) return 0;
  const std::size_t textBytes = std::min<std::size_t>(data[0] | data[1] << 8, size - 2);
  const std::uint8_t* store = data + 2 + textBytes;
  const std::size_t storeBytes = size - 2 - textBytes;
  Write(folder + "/rawfile.xml", data + 2, textBytes);
  for (const char* name : {"/img.raw", "/img.00.raw", "/img.01.raw", "/img.cal"}) Write(folder + name, store, storeBytes);

  RawHandle handle = 0;
  if (OpenRecording(folder.c_str(), &handle) != 0) return 0;
  std::uint8_t info[kInfoBlockBytes] = {};
  const std::uint32_t infoSize = kInfoBlockBytes;
  std::memcpy(info, &infoSize, 4);
  LoadInfoA(handle, info);
  LoadInfoB(handle, info);
  std::uint32_t value = 0;
  for (std::uint32_t id : {1u, 3u, 6u, 8u, 15u, 16u, 17u, 84u, 90u, 93u, 95u, 7u}) GetProperty(handle, info, id, &value);
  char text[kCameraTextBytes];
  GetCameraValue(handle, kCamModelText, text, nullptr);
  for (int mosaic = 0; mosaic < 2; ++mosaic) {
    SetMosaicDelivery(handle, mosaic);
    const std::uint64_t bytes = FrameBytes(handle);
    if (bytes == 0 || bytes > (16u << 20)) continue;
    std::vector<std::uint8_t> frame(bytes);
    for (std::int32_t i = -1; i < 4; ++i) {
      ReadFrame(handle, 0, 0, i, frame.data());
      TimeStampBlock time;
      GetFrameTime(handle, 0, &time);
      std::uint8_t one[32], two[32], three[128], block[1024];
      GetGevRecords(handle, one, two, three);
      GetCameraBlock(handle, block, sizeof block);
    }
  }
  CloseRecording(handle);
  return 0;
}
