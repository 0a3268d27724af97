// Feeds arbitrary bytes to the workbook reader of channel files.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "channels/ChannelData.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/tarnvel-fuzz-xls-" + std::to_string(::getpid()) + ".XLS";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  tarnvel::ChannelFileHeader header{};
  tarnvel::ChannelCodes codes;
  const int ok = tarnvel::ReadChannelData(path.c_str(), nullptr, &header, &codes);
  if (ok ? codes.size() != header.Size : !codes.empty()) std::abort();
  return 0;
}
