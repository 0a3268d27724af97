#include "tests/platform/framekit/FrameKitTestSupport.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/resource.h>

#include "tests/support/TestFiles.h"

namespace tarnvel::test {

FrameHeader MakeHeader(const FrameSpec& spec) {
  FrameHeader h;
  h.width = spec.width;
  h.height = spec.height;
  h.bits = spec.bits;
  h.colorKind = spec.bits > 16 ? kColorKindColor : kColorKindGrey;
  h.rate = spec.rate;
  h.model = 0x00020011;
  h.serial = 4711;
  h.mosaic = spec.mosaic ? 1 : 0;
  h.mosaicOrder = spec.mosaic ? spec.mosaicOrder : 0;
  FillGreyPalette(h);
  return h;
}

namespace {
std::uint32_t StoredBits(const FrameSpec& spec) { return spec.mosaic ? spec.bits / 3 : spec.bits; }
std::uint32_t Channels(std::uint32_t bits) { return bits > 16 ? 3 : 1; }
std::uint32_t SampleBytes(std::uint32_t bits) { return Channels(bits) == 1 ? (bits <= 8 ? 1 : 2) : (bits <= 24 ? 1 : 2); }
}  // namespace

std::size_t FrameBytes(const FrameSpec& spec) {
  const std::uint32_t bits = StoredBits(spec);
  return std::size_t{spec.width} * spec.height * Channels(bits) * SampleBytes(bits);
}

std::vector<std::uint8_t> PatternFrame(const FrameSpec& spec, std::uint32_t frame) {
  const std::uint32_t bits = StoredBits(spec);
  const std::uint32_t channels = Channels(bits);
  const std::uint32_t sampleBytes = SampleBytes(bits);
  const std::uint32_t significant = channels == 3 ? bits / 3 : bits;
  const std::uint32_t mask = (1u << significant) - 1;
  std::vector<std::uint8_t> pixels(FrameBytes(spec));
  std::size_t i = 0;
  for (std::uint32_t y = 0; y < spec.height; ++y)
    for (std::uint32_t x = 0; x < spec.width; ++x)
      for (std::uint32_t c = 0; c < channels; ++c) {
        std::uint32_t v = x * 2654435761u ^ (y * 40503u + frame * 977u + c * 0x9E37u);
        v = (v ^ (v >> 13)) & mask;
        if (x == 0 && y == 0) v = mask;  // the full scale appears in every frame
        if (sampleBytes == 1) {
          pixels[i++] = static_cast<std::uint8_t>(v);
        } else {
          const auto w = static_cast<std::uint16_t>(v);
          std::memcpy(&pixels[i], &w, 2);
          i += 2;
        }
      }
  return pixels;
}

bool JoinsBlock(const std::string& path) {
  const std::string extension = path.substr(path.size() - 3);
  return extension == "tp2" || extension == "t2c";
}

std::array<std::uint8_t, kMetadataBlockSize> PatternBlock(std::uint32_t frame, bool bigEndian) {
  std::array<std::uint8_t, kMetadataBlockSize> block{};
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 7 + frame * 13 + 1);
  std::memcpy(block.data(), "OKN_BD1", 8);
  for (int i = 0; i < 4; ++i) block[280 + i] = static_cast<std::uint8_t>(frame >> (8 * (bigEndian ? 3 - i : i)));
  std::memcpy(&block[1020], "EoBD", 4);
  return block;
}

int WritePatternFile(const std::string& path, const FrameSpec& spec, std::uint32_t frames, bool withBlocks) {
  FrameHandle handle = nullptr;
  if (const int r = OpenOutput(path.c_str(), 1, &handle); r != 0) return r;
  const FrameHeader header = MakeHeader(spec);
  // TP2 and T2C take the block from behind the pixels, as the frame step puts it.
  const bool joined = JoinsBlock(path);
  int result = 0;
  for (std::uint32_t i = 0; i < frames && result == 0; ++i) {
    auto pixels = PatternFrame(spec, i);
    const auto block = PatternBlock(i, joined);
    if (joined) pixels.insert(pixels.end(), block.begin(), block.end());
    result = WriteFrame(handle, i, frames, &header, withBlocks && !joined ? block.data() : nullptr,
                        pixels.data());
  }
  const int closed = CloseOutput(handle);
  return result != 0 ? result : closed;
}

int WriteWithSizeLimit(std::uintmax_t bytes, const std::function<int()>& write) {
  rlimit saved{};
  getrlimit(RLIMIT_FSIZE, &saved);
  const auto previous = std::signal(SIGXFSZ, SIG_IGN);  // a failed write, not a killed process
  rlimit limit = saved;
  limit.rlim_cur = static_cast<rlim_t>(bytes);
  setrlimit(RLIMIT_FSIZE, &limit);
  const int result = write();
  setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, previous);
  return result;
}

bool LinkToFullDevice(const std::string& path) {
  if (!std::filesystem::exists("/dev/full")) return false;
  std::filesystem::create_symlink("/dev/full", path);
  return true;
}

std::string InspectProgram() {
  // The test binary lies in <build>/tests/platform/framekit.
  const char* dir = std::getenv("TARNVEL_BINARY_DIR");
  const std::filesystem::path build =
      dir ? std::filesystem::path(dir)
          : std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path().parent_path().parent_path();
  return (build / "apps/tarnvel-inspect/tarnvel-inspect").string();
}

int RunPython(const std::string& script, std::string* output) {
  TempDir dir;
  const std::string file = dir.File("check.py");
  WriteFile(file, script);
  return RunCommand("/usr/bin/python3 " + file, output);
}

}  // namespace tarnvel::test
