// Feeds arbitrary bytes to every channel-file reader (binary and the five text
// forms), as a whole read and as a head-only read, and checks that a success
// always hands out exactly Size codes and a failure none.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "channels/ChannelData.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string base = "/tmp/tarnvel-fuzz-channels-" + std::to_string(::getpid());
  for (const char* extension : {".DAT", ".ASC", ".CSV", ".PLT", ".LVM", ".XML"}) {
    const std::string path = base + extension;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    tarnvel::ChannelFileHeader header{};
    tarnvel::ChannelCodes codes;
    const int ok = tarnvel::ReadChannelData(path.c_str(), nullptr, &header, &codes);
    if (ok ? codes.size() != header.Size : !codes.empty()) std::abort();
    tarnvel::ChannelFileHeader head{};
    const int headOk = tarnvel::ReadChannelHeader(path.c_str(), nullptr, &head);
    if (headOk != ok || (ok && (head.Size != header.Size || head.Rate != header.Rate))) std::abort();
    std::remove(path.c_str());
  }
  return 0;
}
