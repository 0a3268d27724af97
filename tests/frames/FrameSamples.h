// Frames for the image tests: random contents in any depth, sample access by
// (x, y, channel) written out from the storage rules, so that reference loops
// read like the rules they check, and one comparison for every reference.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "frames/ImageProcessor.h"
#include "frames/primitives/Simd.h"

namespace tarnvel::test {

inline int StorageBytes(int depth) { return depth <= 8 ? 1 : depth <= 16 ? 2 : depth <= 24 ? 3 : 6; }
inline int Channels(int depth) { return depth <= 16 ? 1 : 3; }
inline bool WordSamples(int depth) { return StorageBytes(depth) == 2 || StorageBytes(depth) == 6; }
inline std::uint32_t StorageMax(int depth) { return WordSamples(depth) ? 65535u : 255u; }
inline int BitsPerChannel(int depth) { return depth <= 16 ? depth : depth / 3; }
// The largest value of the depth as stored: 255 for byte samples.
inline std::uint32_t FullScale(int depth) { return WordSamples(depth) ? (1u << std::min(BitsPerChannel(depth), 16)) - 1 : 255u; }

struct TestFrame {
  int width = 0, height = 0, depth = 8;
  std::vector<std::uint8_t> bytes;

  TestFrame() = default;
  TestFrame(int w, int h, int d) : width(w), height(h), depth(d), bytes(std::size_t(w) * h * StorageBytes(d)) {}
  std::size_t Samples() const { return std::size_t(width) * height * Channels(depth); }
  std::size_t Index(int x, int y, int c) const { return (std::size_t(y) * width + x) * Channels(depth) + c; }
  std::uint32_t Get(int x, int y, int c) const { return GetSample(Index(x, y, c)); }
  void Set(int x, int y, int c, std::uint32_t v) { SetSample(Index(x, y, c), v); }
  std::uint32_t GetSample(std::size_t i) const {
    std::uint16_t w = 0;
    return WordSamples(depth) ? (std::memcpy(&w, &bytes[2 * i], 2), w) : bytes[i];
  }
  void SetSample(std::size_t i, std::uint32_t v) {
    const auto w = static_cast<std::uint16_t>(v);
    WordSamples(depth) ? void(std::memcpy(&bytes[2 * i], &w, 2)) : void(bytes[i] = static_cast<std::uint8_t>(v));
  }
  void Fill(std::uint32_t v) { for (std::size_t i = 0; i < Samples(); ++i) SetSample(i, v); }
  bool AllZero() const { return std::all_of(bytes.begin(), bytes.end(), [](auto b) { return b == 0; }); }
  // Outside the frame every channel reads 0.
  std::int64_t At(std::int64_t x, std::int64_t y, int c) const {
    return x < 0 || y < 0 || x >= width || y >= height ? 0 : Get(int(x), int(y), c);
  }
  std::uint8_t* data() { return bytes.data(); }
  ImageView View() { return PackedView(bytes.data(), width, height, depth); }
  ConstImageView View() const { return PackedView(bytes.data(), width, height, depth); }
};

// Random samples within the depth; one in `wideEvery` samples of a 16-bit
// layout takes any storage value, as a filter may leave above the depth.
inline TestFrame RandomFrame(int w, int h, int depth, std::mt19937& rng, int wideEvery = 0) {
  TestFrame f(w, h, depth);
  std::uniform_int_distribution<std::uint32_t> value(0, FullScale(depth)), any(0, StorageMax(depth));
  std::uniform_int_distribution<int> pick(0, wideEvery > 0 ? wideEvery - 1 : 0);
  for (std::size_t i = 0; i < f.Samples(); ++i) f.SetSample(i, wideEvery > 0 && pick(rng) == 0 ? any(rng) : value(rng));
  return f;
}

// One item applied to a copy of `in`.
inline TestFrame Applied(const ImageOpItem& item, const TestFrame& in) {
  ImageProcessor p;
  TestFrame out = in;
  p.Apply(item, out.View());
  return out;
}
inline TestFrame Applied(std::int32_t code, const TestFrame& in, std::int32_t v1 = 0, std::int32_t v2 = 0) {
  return Applied(ImageOpItem{{}, code, nullptr, v1, v2, 0}, in);
}

// The values separated by blanks, for failure messages.
template <typename... T>
std::string Label(const T&... values) {
  std::ostringstream s;
  ((s << values << ' '), ...);
  return s.str();
}

// Sample by sample, naming the first that differs.
inline void ExpectSameFrame(const TestFrame& got, const TestFrame& want, const std::string& what) {
  ASSERT_EQ(got.bytes.size(), want.bytes.size()) << what;
  for (std::size_t i = 0, ch = Channels(got.depth); i < got.Samples(); ++i)
    if (got.GetSample(i) != want.GetSample(i))
      FAIL() << what << "depth " << got.depth << " " << got.width << "x" << got.height << ": sample " << i << " (x "
             << i / ch % got.width << ", y " << i / ch / got.width << ", c " << i % ch << ") is " << got.GetSample(i)
             << ", expected " << want.GetSample(i);
}

// Runs `check` once at every vector level that this machine has, best first,
// so that each copy of the kernels meets the same reference.
template <class Check>
void AtEveryLevel(Check&& check) {
  struct Restore {
    ~Restore() { simd::LimitLevel(simd::Level::Avx512); }
  } restore;
  for (int level = static_cast<int>(simd::SupportedLevel()); level >= 0; --level) {
    simd::LimitLevel(static_cast<simd::Level>(level));
    SCOPED_TRACE(simd::LevelName(static_cast<simd::Level>(level)));
    check();
    if (::testing::Test::HasFatalFailure()) return;
  }
}

inline const int kDepths[] = {8, 10, 12, 16, 24, 30, 36};
struct Size {
  int w, h;
};
inline const Size kSizes[] = {{1, 1}, {2, 3}, {5, 1}, {1, 4}, {7, 5}, {13, 9}, {37, 19}};

}  // namespace tarnvel::test
