// Feeds arbitrary bytes to the profile reader as a file and reads a few keys
// of every kind from it, into buffers of several sizes.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/cordage/Profile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/tarnvel-fuzz-profile-" + std::to_string(::getpid()) + ".pgv";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  char small[4], big[300];
  std::int32_t i = 0;
  float x = 0;
  for (const char* section : {"Acquisition", "ArgSect", ""}) {
    for (const char* key : {"Images", "Comment", "Rate", "Arg39", "a"}) {
      tarnvel::CgReadProfileString(section, key, "d", small, sizeof small, path.c_str());
      tarnvel::CgReadProfileString(section, key, "d", big, sizeof big, path.c_str());
      tarnvel::CgReadProfileInteger(section, key, 0, &i, path.c_str());
      tarnvel::CgReadProfileFloat(section, key, 0, &x, path.c_str());
    }
  }
  return 0;
}
