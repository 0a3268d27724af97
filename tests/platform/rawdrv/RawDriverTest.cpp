#include "platform/rawdrv/RawDriver.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <thread>

#include "tests/platform/rawdrv/IndependentStore.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::StoreSpec;
using test::TempDir;

class RawDriverTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(DriverInit(0), 0); }
  void TearDown() override { ASSERT_EQ(DriverExit(), 0); }
};

// An open recording with its info block loaded.
struct Opened {
  RawHandle handle = 0;
  std::uint8_t info[kInfoBlockBytes] = {};
  int result = -100;
  explicit Opened(const std::string& folder) {
    result = OpenRecording(folder.c_str(), &handle);
    const std::uint32_t size = kInfoBlockBytes;
    std::memcpy(info, &size, 4);
    if (result == 0) {
      EXPECT_EQ(LoadInfoA(handle, info), 0);
      EXPECT_EQ(LoadInfoB(handle, info), 0);
    }
  }
  ~Opened() {
    if (handle) CloseRecording(handle);
  }
  std::uint32_t Property(std::uint32_t id) {
    std::uint32_t v = 12345;
    GetProperty(handle, info, id, &v);
    return v;
  }
  std::vector<std::uint8_t> Read(std::int32_t index, int* readResult = nullptr) {
    std::vector<std::uint8_t> frame(FrameBytes(handle), 0xAB);
    const int r = ReadFrame(handle, 0, 0, index, frame.data());
    if (readResult) *readResult = r;
    else EXPECT_EQ(r, 0) << "frame " << index;
    return frame;
  }
};

StoreSpec Spec(std::uint32_t w, std::uint32_t h, std::uint32_t bits, std::uint32_t packing = 0) {
  StoreSpec s;
  s.width = w, s.height = h, s.bits = bits, s.packing = packing;
  return s;
}

std::vector<std::uint16_t> RandomSamples(std::size_t n, std::uint32_t bits, std::uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<std::uint16_t> s(n);
  for (auto& v : s) v = static_cast<std::uint16_t>(random() & ((1u << bits) - 1));
  return s;
}

// Quarter turns clockwise of a plane of `channels` values per pixel: the top-left pixel goes to the top-right.
std::vector<int> Turn(std::vector<int> plane, std::uint32_t w, std::uint32_t h, int channels, std::uint32_t turns) {
  for (std::uint32_t t = 0; t < turns; ++t, std::swap(w, h)) {
    std::vector<int> out(plane.size());
    for (std::uint32_t y = 0; y < h; ++y)
      for (std::uint32_t x = 0; x < w; ++x)
        for (int c = 0; c < channels; ++c) out[(x * h + h - 1 - y) * channels + c] = plane[(y * w + x) * channels + c];
    plane.swap(out);
  }
  return plane;
}

// Delivered bytes as integers: bytes for up to 8 bits a value, else 16-bit words.
std::vector<int> Values(const std::vector<std::uint8_t>& frame, bool wide) {
  std::vector<int> v;
  for (std::size_t i = 0; i < frame.size(); i += wide ? 2 : 1) v.push_back(wide ? frame[i] | frame[i + 1] << 8 : frame[i]);
  return v;
}

// What a monochrome sensor (or a mosaic) delivers: s - black - offset, never below 0, turned.
std::vector<int> ExpectedPlane(const StoreSpec& s, const std::vector<std::uint16_t>& samples) {
  std::vector<int> plane(samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i)
    plane[i] = std::max(0, int{samples[i]} - int(s.black) - (s.calibration.empty() ? 0 : s.calibration[i]));
  return Turn(plane, s.width, s.height, 1, s.rotation);
}

TEST_F(RawDriverTest, MonochromeReadsBackInEveryPackingDepthAndRotation) {
  for (std::uint32_t packing : {0u, 1u, 2u}) {
    for (std::uint32_t bits : {8u, 10u, 12u, 14u, 16u}) {
      if (packing == 2 && bits != 12) continue;
      for (std::uint32_t rotation = 0; rotation < 4; ++rotation) {
        for (bool calibrated : {false, true}) {
          SCOPED_TRACE(testing::Message() << "packing " << packing << " bits " << bits << " rotation " << rotation
                                          << " calibrated " << calibrated);
          TempDir dir;
          StoreSpec s = Spec(37, 6, bits, packing);  // odd width: rows start inside bytes and groups
          s.rotation = rotation;
          s.padding = 5;
          s.black = calibrated ? 3 : 0;
          if (calibrated) s.calibration = RandomSamples(37 * 6, 3, 99);
          test::WriteIndependentStore(dir.path(), s, [&](std::uint32_t i) { return RandomSamples(37 * 6, bits, 10 * i + bits); });
          Opened rec(dir.path());
          ASSERT_EQ(rec.result, 0);
          EXPECT_EQ(rec.Property(kPropPixelDepth), bits);
          EXPECT_EQ(FrameBytes(rec.handle), 37u * 6 * (bits > 8 ? 2 : 1));
          for (std::int32_t i = 2; i >= 0; --i)
            EXPECT_EQ(Values(rec.Read(i), bits > 8), ExpectedPlane(s, RandomSamples(37 * 6, bits, 10 * i + bits))) << i;
        }
      }
    }
  }
}

// Writes a colour store of one frame of the given samples and reads it back.
std::vector<int> ReadColour(StoreSpec s, const std::vector<std::uint16_t>& samples, bool mosaic = false) {
  TempDir dir;
  s.colour = true;
  s.frames = 1;
  test::WriteIndependentStore(dir.path(), s, [&](std::uint32_t) { return samples; });
  Opened rec(dir.path());
  EXPECT_EQ(rec.result, 0);
  if (rec.result != 0) return {};
  if (mosaic) {
    EXPECT_EQ(SetMosaicDelivery(rec.handle, 1), 0);
  }
  EXPECT_EQ(rec.Property(kPropPixelDepth), 3 * s.bits);
  return Values(rec.Read(0), s.bits > 8);
}

constexpr int kFilter[4][2][2] = {{{0, 1}, {1, 2}}, {{1, 0}, {2, 1}}, {{1, 2}, {0, 1}}, {{2, 1}, {1, 0}}};

// Plain bilinear interpolation: each missing colour is the mean of its nearest
// measured neighbours; the baseline that the driver must not fall below.
std::vector<double> Bilinear(const std::vector<std::uint16_t>& m, int w, int h, int order) {
  std::vector<double> out(std::size_t(w) * h * 3);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 3; ++c) {
        double sum = 0;
        int n = 0;
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx) {
            const int nx = x + dx, ny = y + dy;
            if (nx < 0 || ny < 0 || nx >= w || ny >= h || kFilter[order][ny & 1][nx & 1] != c) continue;
            if (kFilter[order][y & 1][x & 1] == c && (dx || dy)) continue;
            sum += m[ny * w + nx], ++n;
          }
        out[(std::size_t(y) * w + x) * 3 + (2 - c)] = sum / n;
      }
  return out;
}

TEST_F(RawDriverTest, ColourInterpolationReproducesRampsAndBeatsBilinear) {
  const int w = 40, h = 30;
  for (std::uint32_t order = 0; order < 4; ++order) {
    SCOPED_TRACE(order);
    StoreSpec s = Spec(w, h, 12);
    s.order = order;
    // A grey ramp: gradient-corrected interpolation is exact on it away from the edges.
    // A detailed colour scene: mean squared error against the truth no worse than bilinear's.
    std::vector<std::uint16_t> ramp(w * h), mosaic(w * h);
    std::vector<double> truth(w * h * 3);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        ramp[y * w + x] = static_cast<std::uint16_t>(100 + 40 * x + 25 * y);
        // Fine detail shared by the three colours over a slowly changing hue, as in a real picture.
        const double detail = 1500 + 1000 * std::sin(x * 0.7 + y * 0.4) * std::cos(y * 0.5 - x * 0.2);
        const double rgb[3] = {0.9 * detail + 200 + 8 * x, detail, 0.7 * detail + 300 + 6 * y};
        for (int c = 0; c < 3; ++c) truth[(y * w + x) * 3 + (2 - c)] = std::round(rgb[c]);
        mosaic[y * w + x] = static_cast<std::uint16_t>(std::round(rgb[kFilter[order][y & 1][x & 1]]));
      }
    const auto rampOut = ReadColour(s, ramp), ours = ReadColour(s, mosaic);
    const auto reference = Bilinear(mosaic, w, h, order);
    double ourError = 0, bilinearError = 0;
    for (int y = 2; y < h - 2; ++y)
      for (int x = 2; x < w - 2; ++x)
        for (int c = 0; c < 3; ++c) {
          const std::size_t i = (y * w + x) * 3 + c;
          ASSERT_EQ(rampOut[i], ramp[y * w + x]) << x << "," << y;
          ourError += std::pow(ours[i] - truth[i], 2);
          bilinearError += std::pow(reference[i] - truth[i], 2);
        }
    EXPECT_LT(ourError, bilinearError);
  }
}

TEST_F(RawDriverTest, ColourInEveryOrderPackingDepthAndRotation) {
  for (std::uint32_t order = 0; order < 4; ++order) {
    for (const auto& [packing, bits] : {std::pair{0u, 8u}, std::pair{0u, 14u}, std::pair{1u, 10u},
                                        std::pair{1u, 12u}, std::pair{1u, 16u}, std::pair{2u, 12u}}) {
      SCOPED_TRACE(testing::Message() << "order " << order << " packing " << packing << " bits " << bits);
      StoreSpec s = Spec(12, 10, bits, packing);
      s.order = order;
      s.black = 2;
      s.gains[0] = 2.0f, s.gains[1] = 0.0f /* counts as 1.0 */, s.gains[2] = 1.5f;
      const double gain[3] = {2.0, 1.0, 1.5};
      const std::uint32_t full = (1u << bits) - 1;
      const int grey = static_cast<int>(full / 3 / 6 * 6);  // divides by both gains exactly
      const auto samples = RandomSamples(120, bits, order * 31 + bits);
      std::vector<std::uint16_t> flat(120);
      for (std::uint32_t i = 0; i < 120; ++i)
        flat[i] = static_cast<std::uint16_t>(grey / gain[kFilter[order][i / 12 & 1][i % 12 & 1]] + 2);
      // Measured colours keep their value after black level and gain.
      const std::vector<int> upright = ReadColour(s, samples);
      ASSERT_EQ(upright.size(), 360u);
      for (std::uint32_t i = 0; i < 120; ++i) {
        const int filter = kFilter[order][i / 12 & 1][i % 12 & 1];
        const int level = std::max(0, samples[i] - 2);
        ASSERT_EQ(upright[i * 3 + (2 - filter)], static_cast<int>(std::min<double>(full, std::floor(level * gain[filter] + 0.5)))) << i;
      }
      // A flat grey field after the gains stays flat to the last bit, edges included.
      for (int v : ReadColour(s, flat)) ASSERT_EQ(v, grey);
      for (s.rotation = 0; s.rotation < 4; ++s.rotation) {
        EXPECT_EQ(ReadColour(s, samples), Turn(upright, 12, 10, 3, s.rotation)) << s.rotation;
        // The mosaic plane: one channel, no gains, no interpolation, turned.
        EXPECT_EQ(ReadColour(s, samples, true), ExpectedPlane(s, samples)) << s.rotation;
      }
    }
  }
}

TEST_F(RawDriverTest, SegmentsAreNamedAndReadInOrder) {
  for (const auto& [frames, perSegment, lastName] :
       {std::tuple{7u, 3u, "img.02.raw"}, std::tuple{102u, 1u, "img.101.raw"}, std::tuple{5u, 5u, "img.raw"}}) {
    SCOPED_TRACE(lastName);
    TempDir dir;
    StoreSpec s = Spec(3, 2, 8);
    s.frames = frames;
    s.framesPerSegment = perSegment;
    test::WriteIndependentStore(dir.path(), s, [](std::uint32_t i) { return RandomSamples(6, 8, i); });
    EXPECT_TRUE(std::filesystem::exists(dir.path() / lastName));
    Opened rec(dir.path());
    ASSERT_EQ(rec.result, 0);
    for (std::uint32_t i = 0; i < frames; ++i) EXPECT_EQ(Values(rec.Read(i), false), ExpectedPlane(s, RandomSamples(6, 8, i)));
    int result = 0;
    for (std::int32_t outside : {std::int32_t(frames), -1}) {
      rec.Read(outside, &result);
      EXPECT_EQ(result, kRawFrameOutOfRange);
    }
  }
}

TEST_F(RawDriverTest, CameraValuesPropertiesAndTrailers) {
  TempDir dir;
  StoreSpec s = Spec(6, 4, 14, 1);
  s.colour = true, s.order = 3, s.rotation = 1, s.frames = 4, s.trailerBytes = 1264, s.trailerFlags = 3;
  s.modelIndex = 14, s.subModel = 2, s.serial = 4000000001u, s.network = 0xC0A80001, s.exposure = 250000;
  s.period = 1000000, s.sizeFactor = 3, s.suffix = 2, s.six = 66, s.value14 = 1414, s.value15 = 1515;
  s.modelText = std::string(127, 'M');  // the header's 128 bytes hold no terminator
  const auto trailer = [](std::uint32_t i, std::vector<std::uint8_t>& t) {
    const std::uint32_t words[10] = {1, 2024, 166, 10, 30, i, 1000 * i, 0x55555555, 1000 + i, i % 2};  // time, exposure, flag
    std::memcpy(t.data(), words, 40);
    for (std::size_t b = 48; b < t.size(); ++b) t[b] = static_cast<std::uint8_t>(b + i);
  };
  test::WriteIndependentStore(dir.path(), s, [](std::uint32_t) { return RandomSamples(24, 14, 1); }, trailer);
  Opened rec(dir.path());
  ASSERT_EQ(rec.result, 0);

  const std::pair<std::uint32_t, std::uint32_t> camera[] = {
      {kCamModelIndex, 14},   {kCamSerialNumber, 4000000001u}, {kCamValue14, 1414}, {kCamValue15, 1515},
      {kCamMosaicOrder, 3},   {kCamSubModel, 2}, {kCamNetworkAddress, 0xC0A80001u}, {77, 0}};
  for (const auto& [id, expected] : camera) {
    std::uint32_t v = 12345, second = 7;
    GetCameraValue(rec.handle, id, &v, &second);
    EXPECT_EQ(v, expected) << id;
    EXPECT_EQ(second, 0u);
  }
  char text[kCameraTextBytes];
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(GetCameraValue(rec.handle, kCamModelText, text, nullptr), 0);
  EXPECT_EQ(std::string(text), std::string(127, 'M'));
  const std::pair<std::uint32_t, std::uint32_t> properties[] = {
      {kPropExposureNs, 250000}, {kPropPixelDepth, 42},  {kPropSix, 66}, {kPropSizeFactor, 3},
      {kPropFrameWidth, 6},      {kPropFrameHeight, 4},  {kPropFramePeriodNs, 1000000}, {kPropResolutionSuffix, 2},
      {kPropRotation, 1},        {2, 0}, {1000, 0}, {kPropFrameFlag, 0} /* no frame read yet */};
  for (const auto& [id, expected] : properties) EXPECT_EQ(rec.Property(id), expected) << id;

  // A block that wasn't loaded, or of the wrong size, answers nothing.
  std::uint8_t fresh[kInfoBlockBytes] = {}, small[kInfoBlockBytes] = {};
  std::uint32_t value = 9;
  const std::uint32_t size = kInfoBlockBytes;
  std::memcpy(fresh, &size, 4);
  EXPECT_NE(GetProperty(rec.handle, fresh, kPropFrameWidth, &value), 0);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(LoadInfoA(rec.handle, fresh), 0);
  EXPECT_NE(GetProperty(rec.handle, fresh, kPropFrameWidth, &value), 0);
  EXPECT_NE(LoadInfoA(rec.handle, small), 0);

  for (std::int32_t i : {2, 1}) {
    rec.Read(i);
    TimeStampBlock time{};
    std::memset(&time, 0xEE, sizeof time);
    EXPECT_EQ(GetFrameTime(rec.handle, 0, &time), 0);
    EXPECT_EQ(time.year, 2024u);
    EXPECT_EQ(time.second, std::uint32_t(i));
    EXPECT_EQ(time.microseconds, 1000u * i);
    EXPECT_EQ(time.controlField, 0x55555555u);
    EXPECT_EQ(time.reserved[55], 0u);
    EXPECT_EQ(rec.Property(kPropAutoExposureNs), 1000u + i);
    EXPECT_EQ(rec.Property(kPropFrameFlag), std::uint32_t(i % 2));
    std::uint8_t one[32], two[32], three[128], block[1024];
    EXPECT_EQ(GetGevRecords(rec.handle, one, two, three), 0);
    EXPECT_EQ(one[0], static_cast<std::uint8_t>(48 + i));
    EXPECT_EQ(two[0], static_cast<std::uint8_t>(80 + i));
    EXPECT_EQ(three[127], static_cast<std::uint8_t>(239 + i));
    EXPECT_EQ(GetCameraBlock(rec.handle, block, 1024), 0);
    EXPECT_EQ(block[0], static_cast<std::uint8_t>(240 + i));
    EXPECT_EQ(block[1023], static_cast<std::uint8_t>((240 + 1023 + i) & 255));
    EXPECT_NE(GetCameraBlock(rec.handle, block, 1000), 0);
  }

  // Room for every trailer part, but no flag says that it is there: they read as zeros.
  TempDir bare;
  s = Spec(8, 6, 12);
  s.trailerBytes = 1264, s.frames = 1;
  test::WriteIndependentStore(bare.path(), s, [](std::uint32_t) { return RandomSamples(48, 12, 1); },
                              [](std::uint32_t, std::vector<std::uint8_t>& t) { std::fill(t.begin() + 48, t.end(), 0x5A); });
  Opened plain(bare.path());
  ASSERT_EQ(plain.result, 0);
  plain.Read(0);
  std::uint8_t one[32], two[32], three[128], block[1024];
  std::memset(three, 1, sizeof three);
  EXPECT_EQ(GetGevRecords(plain.handle, one, two, three), 0);
  EXPECT_EQ(GetCameraBlock(plain.handle, block, 1024), kRawNoCameraBlock);
  for (std::uint8_t b : three) ASSERT_EQ(b, 0);
  for (std::uint8_t b : block) ASSERT_EQ(b, 0);
}

void Corrupt(const std::filesystem::path& file, std::uint64_t at, std::uint32_t value) {
  const int fd = ::open(file.c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::pwrite(fd, &value, 4, static_cast<off_t>(at)), 4);
  ::close(fd);
}

TEST_F(RawDriverTest, DamagedStoresFailWithoutHandingOutUnfilledMemory) {
  StoreSpec s = Spec(8, 6, 12);
  s.calibration = RandomSamples(48, 2, 3);
  const auto write = [](const TempDir& dir, const StoreSpec& spec) {
    test::WriteIndependentStore(dir.path(), spec, [](std::uint32_t i) { return RandomSamples(48, 12, i); });
  };
  using Path = const std::filesystem::path&;
  struct Damage {
    void (*spec)(StoreSpec&);  // before writing
    void (*files)(Path);       // after writing
    int expected;
  };
  const Damage openFailures[] = {
      {nullptr, [](Path d) { std::filesystem::remove(d / "rawfile.xml"); }, kRawNoDescriptor},
      {nullptr, [](Path d) { Corrupt(d / "img.raw", 0, 0x41414141); }, kRawBadHeader},  // magic
      {nullptr, [](Path d) { Corrupt(d / "img.raw", 24, 11); }, kRawBadHeader},         // depth
      {nullptr, [](Path d) { Corrupt(d / "img.raw", 88, 20); }, kRawBadHeader},         // trailer size
      {[](StoreSpec& spec) { spec.descriptorDepth = 36; }, nullptr, kRawMismatch},
      {nullptr, [](Path d) { Corrupt(d / "img.raw", 12, 512); }, kRawMismatch},  // header size
      {nullptr, [](Path d) { std::filesystem::remove(d / "img.cal"); }, kRawNoCalibration},
      {nullptr, [](Path d) { std::filesystem::resize_file(d / "img.cal", 24 + 40); }, kRawNoCalibration},
      {nullptr, [](Path d) { Corrupt(d / "img.cal", 8, 9); }, kRawNoCalibration},  // another width
      {[](StoreSpec& spec) { spec.imageName = "../img.raw"; }, nullptr, kRawBadDescriptor},
      {nullptr, [](Path d) {
         std::string text = test::ReadFile(d / "rawfile.xml");
         test::WriteFile(d / "rawfile.xml", text.replace(text.find("V 2.00"), 6, "V 9.99"));
       }, kRawNoDescriptor},
  };
  for (const Damage& damage : openFailures) {
    TempDir dir;
    StoreSpec spec = s;
    if (damage.spec) damage.spec(spec);
    write(dir, spec);
    if (damage.files) damage.files(dir.path());
    RawHandle h = 77;
    const int r = OpenRecording(dir.path().c_str(), &h);
    EXPECT_EQ(r, damage.expected);
    if (r == 0) CloseRecording(h);
    else EXPECT_EQ(h, 0u);
  }
  {  // read failures
    TempDir dir;
    write(dir, s);
    const std::uint32_t record = test::RecordBytes(s);
    Corrupt(dir.path() / "img.raw", 256 + record * 2 - 8, 5);  // storeIndex of frame 1 says 5
    std::filesystem::resize_file(dir.path() / "img.raw", 256 + record * 2 + 10);  // frame 2 cut short
    Opened rec(dir.path());
    ASSERT_EQ(rec.result, 0);
    int result = 0;
    rec.Read(0);
    for (const auto& [index, expected] : {std::pair{1, kRawWrongStoreIndex}, std::pair{2, kRawShortStore},
                                          std::pair{3, kRawFrameOutOfRange}}) {
      for (std::uint8_t b : rec.Read(index, &result)) ASSERT_EQ(b, 0);
      EXPECT_EQ(result, expected);
      TimeStampBlock time{};
      EXPECT_NE(GetFrameTime(rec.handle, 0, &time), 0);
    }
  }
  {  // a segment that is missing or carries another header
    TempDir dir;
    StoreSpec seg = s;
    seg.calibration.clear();
    seg.frames = 6, seg.framesPerSegment = 2;
    write(dir, seg);
    std::filesystem::remove(dir.path() / "img.01.raw");
    Corrupt(dir.path() / "img.02.raw", 16, 4);
    Opened rec(dir.path());
    ASSERT_EQ(rec.result, 0);
    int result = 0;
    rec.Read(1);
    rec.Read(2, &result);
    EXPECT_EQ(result, kRawIoError);
    rec.Read(4, &result);
    EXPECT_EQ(result, kRawSegmentMismatch);
  }
}

TEST_F(RawDriverTest, HandlesAndCallOrder) {
  TempDir dir;
  test::WriteIndependentStore(dir.path(), Spec(8, 6, 12), [](std::uint32_t) { return RandomSamples(48, 12, 1); });
  std::vector<std::uint8_t> frame(96);
  EXPECT_EQ(ReadFrame(987654, 0, 0, 0, frame.data()), kRawBadHandle);
  EXPECT_EQ(CloseRecording(987654), kRawBadHandle);
  RawHandle a = 0, b = 0;
  ASSERT_EQ(OpenRecording(dir.path().c_str(), &a), 0);
  ASSERT_EQ(OpenRecording(dir.path().c_str(), &b), 0);
  EXPECT_NE(a, b);
  EXPECT_EQ(CloseRecording(a), 0);
  EXPECT_EQ(CloseRecording(a), kRawBadHandle);
  EXPECT_EQ(ReadFrame(b, 0, 0, 0, frame.data()), 0);
  // The last DriverExit closes what is still open; opening needs DriverInit.
  ASSERT_EQ(DriverExit(), 0);
  EXPECT_EQ(ReadFrame(b, 0, 0, 0, frame.data()), kRawBadHandle);
  EXPECT_EQ(OpenRecording(dir.path().c_str(), &a), kRawNotInitialised);
  EXPECT_EQ(DriverExit(), kRawNotInitialised);
  ASSERT_EQ(DriverInit(0), 0);
}

TEST_F(RawDriverTest, StoreBeyondFourGibibytes) {
  TempDir dir;
  StoreSpec s = Spec(1024, 1024, 8);
  s.frames = 1;
  test::WriteIndependentStore(dir.path(), s, [](std::uint32_t) { return std::vector<std::uint16_t>(1 << 20, 0); });
  // Grow the descriptor to 4200 frames and place the last one past 4 GiB in a sparse file.
  const std::uint32_t record = test::RecordBytes(s), last = 4199;
  std::string text = test::ReadFile(dir.path() / "rawfile.xml");
  test::WriteFile(dir.path() / "rawfile.xml", text.replace(text.find("<FrameCount>1<"), 14, "<FrameCount>4200<"));
  const std::uint64_t at = 256 + std::uint64_t{last} * record;
  ASSERT_GT(at, 1ull << 32);
  const auto samples = RandomSamples(1 << 20, 8, 42);
  auto bytes = test::PackIndependently(samples, 8, 0);
  bytes.resize(record, 0);
  std::memcpy(bytes.data() + record - 8, &last, 4);
  const int fd = ::open((dir.path() / "img.raw").c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at)), static_cast<ssize_t>(bytes.size()));
  ::close(fd);
  Opened rec(dir.path());
  ASSERT_EQ(rec.result, 0);
  EXPECT_EQ(Values(rec.Read(last), false), ExpectedPlane(s, samples));
  int result = 0;
  rec.Read(4000, &result);  // a hole: its storeIndex reads 0
  EXPECT_EQ(result, kRawWrongStoreIndex);
}

TEST_F(RawDriverTest, SeveralHandlesOnSeveralThreads) {
  constexpr int kThreads = 4;
  std::vector<std::unique_ptr<TempDir>> dirs;
  std::vector<StoreSpec> specs;
  for (int t = 0; t < kThreads; ++t) {
    dirs.push_back(std::make_unique<TempDir>());
    specs.push_back(Spec(33 + t, 17, t % 2 ? 10 : 12, t % 3));
    specs[t].rotation = t, specs[t].frames = 12, specs[t].colour = t == 3;
    test::WriteIndependentStore(dirs[t]->path(), specs[t],
                                [&, t](std::uint32_t i) { return RandomSamples((33 + t) * 17, specs[t].bits, 100 * t + i); });
  }
  // Each thread reads its own recording twice; the two passes and, for
  // monochrome, the expected planes must agree.
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      Opened rec(dirs[t]->path());
      failures[t] += rec.result != 0;
      std::vector<std::vector<std::uint8_t>> first;
      for (int pass = 0; pass < 2 && rec.result == 0; ++pass) {
        for (std::int32_t i = 0; i < 12; ++i) {
          int r = 0;
          auto frame = rec.Read(i, &r);
          failures[t] += r != 0;
          if (pass == 1) {
            failures[t] += frame != first[i];
            continue;
          }
          if (!specs[t].colour)
            failures[t] += Values(frame, true) != ExpectedPlane(specs[t], RandomSamples((33 + t) * 17, specs[t].bits, 100 * t + i));
          first.push_back(std::move(frame));
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

}  // namespace
}  // namespace tarnvel
