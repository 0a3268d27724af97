// The cost of a full overlay on a 1280 x 1024 frame: the item texts formed
// and joined, text at all six positions and two logos with alpha (one at
// its size, one scaled), beside a plain copy of the frame in the same run.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "frames/overlay/LogoImage.h"
#include "frames/overlay/OverlayItems.h"
#include "frames/overlay/OverlayText.h"

namespace {

using namespace tarnvel;

constexpr std::uint32_t W = 1280, H = 1024;

void BM_FrameCopy(benchmark::State& state) {
  std::vector<std::uint16_t> source(W * H, 1000), frame(W * H);
  for (auto _ : state) {
    std::memcpy(frame.data(), source.data(), frame.size() * 2);
    benchmark::DoNotOptimize(frame.data());
  }
}
BENCHMARK(BM_FrameCopy)->Unit(benchmark::kMillisecond);

void BM_FullOverlay12Bit(benchmark::State& state) {
  auto rec = std::make_unique<RecordingInfo>();
  std::memset(rec.get(), 0, sizeof(RecordingInfo));
  rec->Rate = 1000, rec->Year = 2024, rec->Month = 6, rec->Day = 14, rec->Hour = 10, rec->ExposureNs = 250000;
  rec->RecMode = 1, rec->PerTrigFrms = 20, rec->ROIW = W, rec->ROIH = H;
  OverlayConfig config{};
  config.flags = 0x1FFFFF;
  for (int i = 0; i < kOverlayItemCount; ++i) {
    config.items[i].id = i;
    config.items[i].mask = kOverlayItemMask[i];
    config.items[i].position = i % 6;
  }
  OverlayRenderer renderer{LocaleFormat('/', ':', false, true, 0)};
  TimeStampBlock block{};
  block.year = 2024, block.dayOfYear = 166, block.hour = 10;
  OverlayFrameValues values;
  values.timeBlock = &block;
  values.deviceName = "Camera 1";
  values.fileName = "take000123.tif";
  std::vector<std::uint8_t> logo(200 * 100 * 3, 180), alpha(200 * 100, 128);
  std::vector<std::uint16_t> frame(W * H, 1000);
  for (auto _ : state) {
    ++values.frameNumber, ++values.sequenceIndex;
    renderer.UpdateItems(config, *rec, values);
    renderer.Place(config, 0);
    const ImageView view = PackedView(reinterpret_cast<std::uint8_t*>(frame.data()), W, H, 12);
    const ConstImageView logoView = PackedView(logo.data(), 200, 100, 24);
    DrawLogo(view, logoView, alpha.data(), 1, 100, 0, 0);
    DrawLogo(view, logoView, alpha.data(), 2, 50, 5, 0);
    for (int p = 0; p <= 5; ++p) DrawOverlayText(view, p, "DejaVu Sans", 20, 0, -1, 0, renderer.TextAt(p));
    benchmark::DoNotOptimize(frame.data());
  }
}
BENCHMARK(BM_FullOverlay12Bit)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
