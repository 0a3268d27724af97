// Frame processing on 1280 x 1024 frames at 8, 12 and 36 bits, beside a
// memcpy of the same frame and, when OpenCV is there, its nearest
// equivalents (single-threaded, zero border) in the same run.
// Point operations run as a job runs them, in place through the processor.
// Neighbourhood operations run as primitives from one buffer into another,
// as OpenCV does; the rows named Apply_... run them in place through the
// processor, as a job does.
// --level=base|avx2|avx512 runs the kernels of at most that vector level.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "frames/ImageProcessor.h"
#include "frames/ImageScaler.h"
#include "frames/primitives/Neighbourhood.h"
#include "frames/primitives/Simd.h"

#ifdef TARNVEL_WITH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using tarnvel::ImageOpItem;
using tarnvel::ImageProcessor;

constexpr std::uint32_t kWidth = 1280, kHeight = 1024;

std::vector<std::uint8_t> RandomFrame(std::uint32_t depth, std::size_t bytes) {
  std::vector<std::uint8_t> frame(bytes);
  std::mt19937 rng(depth);
  const std::uint32_t bits = depth <= 16 ? depth : depth / 3;
  if (depth == 8 || depth == 24) {
    for (auto& b : frame) b = static_cast<std::uint8_t>(rng());
  } else {
    auto* words = reinterpret_cast<std::uint16_t*>(frame.data());
    for (std::size_t i = 0; i < bytes / 2; ++i) words[i] = static_cast<std::uint16_t>(rng() & ((1u << bits) - 1));
  }
  return frame;
}

void SetBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void Memcpy(benchmark::State& state, std::uint32_t depth) {
  const auto src = RandomFrame(depth, tarnvel::PackedBytes(kWidth, kHeight, depth));
  std::vector<std::uint8_t> dst(src.size());
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), src.size());
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  SetBytes(state, src.size());
}

// A 5 x 5 kernel that is not a column times a row: a Laplacian of a Gaussian.
constexpr std::int32_t kLaplacianOfGaussian5[25] = {0,  0,  -1, 0,  0,  0,  -1, -2, -1, 0,  -1, -2, 16,
                                                    -2, -1, 0,  -1, -2, -1, 0,  0,  0,  -1, 0,  0};

void Operation(benchmark::State& state, std::uint32_t depth, std::int32_t code, std::int32_t value1,
               std::int32_t value2) {
  ImageProcessor p;
  const auto original = RandomFrame(depth, tarnvel::PackedBytes(kWidth, kHeight, depth));
  auto frame = original;
  ImageOpItem item{{}, code, nullptr, value1, value2, 0};
  if (code == tarnvel::ImgOpUserFilter) {
    item.filter = std::make_unique<tarnvel::ConvolutionFilter>();
    item.filter->sizeX = item.filter->sizeY = 5;
    item.filter->divisor = 1;
    std::copy(std::begin(kLaplacianOfGaussian5), std::end(kLaplacianOfGaussian5), item.filter->coefficients);
  }
  // Every pass starts from the random frame: repeated passes would drift
  // towards flat frames, which tables and histograms handle faster.
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(frame.data(), original.data(), frame.size());
    state.ResumeTiming();
    p.Apply(item, tarnvel::PackedView(frame.data(), kWidth, kHeight, depth));
    benchmark::ClobberMemory();
  }
  SetBytes(state, frame.size());
}

// The primitive behind a neighbourhood operation, from `in` into `out`.
void Neighbourhood(benchmark::State& state, std::uint32_t depth, std::int32_t code, std::int32_t value1) {
  const auto in = RandomFrame(depth, tarnvel::PackedBytes(kWidth, kHeight, depth));
  std::vector<std::uint8_t> out(in.size());
  const tarnvel::ConstImageView source = tarnvel::PackedView(in.data(), kWidth, kHeight, depth);
  const tarnvel::ImageView destination = tarnvel::PackedView(out.data(), kWidth, kHeight, depth);
  std::int16_t kernel[25];
  int size = 0, divisor = 1;
  if (code == tarnvel::ImgOpUserFilter) {
    size = 5;
    std::copy(std::begin(kLaplacianOfGaussian5), std::end(kLaplacianOfGaussian5), kernel);
  } else if (const tarnvel::ConvolutionFilter* f = tarnvel::BuiltInFilter(code, value1)) {
    size = f->sizeX;
    divisor = f->divisor;
    std::copy(f->coefficients, f->coefficients + size * size, kernel);
  }
  for (auto _ : state) {
    int status = 0;
    switch (code) {
      case tarnvel::ImgOpMedian: status = tarnvel::MedianBorder(source, destination, value1, value1); break;
      case tarnvel::ImgOpMinimum: status = tarnvel::MinimumBorder(source, destination, value1, value1); break;
      case tarnvel::ImgOpMaximum: status = tarnvel::MaximumBorder(source, destination, value1, value1); break;
      default: status = tarnvel::ConvolveBorder(source, destination, kernel, size, size, divisor);
    }
    benchmark::DoNotOptimize(status);
    benchmark::ClobberMemory();
  }
  SetBytes(state, in.size());
}

void Convert(benchmark::State& state, std::uint32_t from, std::uint32_t to) {
  const auto frame = RandomFrame(from, tarnvel::PackedBytes(kWidth, kHeight, from));
  std::vector<std::uint8_t> out(tarnvel::PackedBytes(kWidth, kHeight, to));
  for (auto _ : state) {
    benchmark::DoNotOptimize(tarnvel::ConvertDepth(tarnvel::PackedView(frame.data(), kWidth, kHeight, from),
                                                   tarnvel::PackedView(out.data(), kWidth, kHeight, to), 0));
    benchmark::ClobberMemory();
  }
  SetBytes(state, frame.size());
}

// A whole frame to three quarters of its size, as a background of another
// size is brought to the recording's.
void ScaleFrame(benchmark::State& state, std::uint32_t depth, std::int32_t method) {
  const auto frame = RandomFrame(depth, tarnvel::PackedBytes(kWidth, kHeight, depth));
  std::vector<std::uint8_t> out(frame.size());
  tarnvel::ImageScaler scaler;
  for (auto _ : state)
    benchmark::DoNotOptimize(scaler.Scale(method, tarnvel::PackedView(frame.data(), kWidth, kHeight, depth),
                                          tarnvel::PackedView(out.data(), kWidth * 3 / 4, kHeight * 3 / 4, depth)));
}

void ScaleLogo(benchmark::State& state) {
  const auto logo = RandomFrame(24, 200 * 200 * 3);
  std::vector<std::uint8_t> out(300 * 300 * 3);
  for (auto _ : state) {
    tarnvel::ImageScaler perLogo;  // made per logo, as the overlay does
    benchmark::DoNotOptimize(perLogo.Scale(tarnvel::ScaleLanczos, tarnvel::PackedView(logo.data(), 200, 200, 24),
                                           tarnvel::PackedView(out.data(), 300, 300, 24)));
  }
}

#ifdef TARNVEL_WITH_OPENCV
int CvType(std::uint32_t depth) {
  return depth == 8 ? CV_8UC1 : depth <= 16 ? CV_16UC1 : depth == 24 ? CV_8UC3 : CV_16UC3;
}

template <class Body>
void OpenCv(benchmark::State& state, std::uint32_t depth, Body body) {
  cv::setNumThreads(1);
  auto bytes = RandomFrame(depth, tarnvel::PackedBytes(kWidth, kHeight, depth));
  cv::Mat in(kHeight, kWidth, CvType(depth), bytes.data()), out;
  for (auto _ : state) {
    body(in, out);
    benchmark::ClobberMemory();
  }
  SetBytes(state, bytes.size());
}

// filter2D with the kernel of our row: Sobel North, Gaussian 5 (1 2 1 / 16),
// the 5 x 5 Laplacian of a Gaussian.
void CvFilter(benchmark::State& state, std::uint32_t depth, int which) {
  cv::Mat kernel;
  if (which == 0) kernel = (cv::Mat_<float>(3, 3) << -1, -2, -1, 0, 0, 0, 1, 2, 1);
  else if (which == 1) kernel = (cv::Mat_<float>(3, 3) << 1, 2, 1, 2, 4, 2, 1, 2, 1) / 16.0f;
  else kernel = cv::Mat(5, 5, CV_32S, const_cast<std::int32_t*>(kLaplacianOfGaussian5)).clone(), kernel.convertTo(kernel, CV_32F);
  OpenCv(state, depth, [&](cv::Mat& in, cv::Mat& out) {
    cv::filter2D(in, out, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_CONSTANT);
  });
}
// The separable forms an OpenCV user would call for the Gaussian and the box.
void CvGaussian3(benchmark::State& state, std::uint32_t depth) {
  OpenCv(state, depth, [&](cv::Mat& in, cv::Mat& out) {
    cv::GaussianBlur(in, out, cv::Size(3, 3), 0, 0, cv::BORDER_CONSTANT);
  });
}
void CvBox(benchmark::State& state, std::uint32_t depth, int n) {
  OpenCv(state, depth, [&](cv::Mat& in, cv::Mat& out) {
    cv::blur(in, out, cv::Size(n, n), cv::Point(-1, -1), cv::BORDER_CONSTANT);
  });
}
void CvMedian(benchmark::State& state, std::uint32_t depth, int n) {
  OpenCv(state, depth, [&](cv::Mat& in, cv::Mat& out) { cv::medianBlur(in, out, n); });
}
void CvMorphology(benchmark::State& state, std::uint32_t depth, int n, bool dilate) {
  const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(n, n));
  OpenCv(state, depth, [&](cv::Mat& in, cv::Mat& out) {
    if (dilate) cv::dilate(in, out, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    else cv::erode(in, out, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar::all(0));
  });
}
void CvResizeFrame(benchmark::State& state, std::uint32_t depth, int interpolation) {
  OpenCv(state, depth, [&](cv::Mat& in, cv::Mat& out) {
    cv::resize(in, out, cv::Size(kWidth * 3 / 4, kHeight * 3 / 4), 0, 0, interpolation);
  });
}
void CvResize(benchmark::State& state) {
  cv::setNumThreads(1);
  auto logo = RandomFrame(24, 200 * 200 * 3);
  cv::Mat in(200, 200, CV_8UC3, logo.data()), out;
  for (auto _ : state) cv::resize(in, out, cv::Size(300, 300), 0, 0, cv::INTER_LANCZOS4);
}
#endif

// Registers a row in microseconds. With --benchmark_repetitions it reports
// the fastest run too: on a machine that others share, interference only
// ever adds time.
template <class... Args>
void Add(const std::string& name, Args&&... args) {
  benchmark::RegisterBenchmark(name.c_str(), std::forward<Args>(args)...)
      ->Unit(benchmark::kMicrosecond)
      ->ComputeStatistics("min", [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); });
}

void RegisterAll() {
  struct Op {
    const char* name;
    std::int32_t code, value1, value2;
  };
  const Op points[] = {{"BrightnessContrast", 21, 10, 20}, {"Gamma", 22, 1800, 0},   {"Negative", 23, 0, 0},
                       {"Equalize", 24, 0, 0},             {"FlipVertical", 40, 0, 0}, {"FlipHorizontal", 41, 0, 0},
                       {"RowOffset", 42, 0, 0}};
  const Op filters[] = {{"Laplacian3", 1, 1, 0}, {"Sobel3", 3, 0, 0},      {"Gaussian3", 5, 4, 0},
                        {"Average3", 4, 1, 0},   {"Average5", 4, 3, 0},    {"LoG5", 16, 0, 0},
                        {"Median3", 7, 3, 0},    {"Median5", 7, 5, 0},     {"Median9", 7, 9, 0},     {"Median21", 7, 21, 0},
                        {"Minimum3", 8, 3, 0},   {"Maximum3", 9, 3, 0},    {"Minimum5", 8, 5, 0},
                        {"Maximum5", 9, 5, 0},   {"Minimum15", 8, 15, 0}};
  for (std::uint32_t depth : {8u, 12u, 36u}) {
    const std::string d = "/" + std::to_string(depth) + "bit";
    Add("Memcpy" + d, Memcpy, depth);
    for (const Op& op : points)
      Add(std::string(op.name) + d, Operation, depth, op.code, op.value1, op.value2);
    Add("ScaleCubic_frame" + d, ScaleFrame, depth, tarnvel::ScaleCubic);
    Add("ScaleLanczos_frame" + d, ScaleFrame, depth, tarnvel::ScaleLanczos);
    for (const Op& op : filters) {
      Add(std::string(op.name) + d, Neighbourhood, depth, op.code, op.value1);
      Add("Apply_" + std::string(op.name) + d, Operation, depth, op.code, op.value1, op.value2);
    }
#ifdef TARNVEL_WITH_OPENCV
    Add("OpenCV_filter2D_Sobel3" + d, CvFilter, depth, 0);
    Add("OpenCV_filter2D_Gaussian3" + d, CvFilter, depth, 1);
    Add("OpenCV_GaussianBlur3" + d, CvGaussian3, depth);
    Add("OpenCV_blur3" + d, CvBox, depth, 3);
    Add("OpenCV_blur5" + d, CvBox, depth, 5);
    Add("OpenCV_filter2D_LoG5" + d, CvFilter, depth, 2);
    for (int n : {3, 5}) {
      Add("OpenCV_medianBlur" + std::to_string(n) + d, CvMedian, depth, n);
      Add("OpenCV_erode" + std::to_string(n) + d, CvMorphology, depth, n, false);
      Add("OpenCV_dilate" + std::to_string(n) + d, CvMorphology, depth, n, true);
    }
    Add("OpenCV_erode15" + d, CvMorphology, depth, 15, false);
    if (depth == 8) Add("OpenCV_medianBlur9" + d, CvMedian, depth, 9);  // larger masks: bytes only
    Add("OpenCV_resize_cubic_frame" + d, CvResizeFrame, depth, cv::INTER_CUBIC);
    Add("OpenCV_resize_Lanczos4_frame" + d, CvResizeFrame, depth, cv::INTER_LANCZOS4);
#endif
  }
  for (auto [from, to] : {std::pair{12u, 8u}, {12u, 16u}, {36u, 24u}, {24u, 8u}, {36u, 8u}, {8u, 24u}, {12u, 36u}})
    Add("ConvertDepth/" + std::to_string(from) + "to" + std::to_string(to), Convert, from, to);
  Add("ScaleLanczos/logo200to300", ScaleLogo);
#ifdef TARNVEL_WITH_OPENCV
  Add("OpenCV_resize_Lanczos4/logo200to300", CvResize);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    for (auto level : {tarnvel::simd::Level::Base, tarnvel::simd::Level::Avx2, tarnvel::simd::Level::Avx512})
      if (arg == std::string("--level=") + tarnvel::simd::LevelName(level)) tarnvel::simd::LimitLevel(level);
  }
  std::printf("vector level: %s\n", tarnvel::simd::LevelName(tarnvel::simd::ActiveLevel()));
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
