#include "tests/platform/rawdrv/IndependentStore.h"

#include <cstdio>
#include <cstring>

namespace tarnvel::test {
namespace {

void Put32(std::vector<std::uint8_t>& b, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

}  // namespace

std::uint32_t Depth(const StoreSpec& s) { return s.colour ? 3 * s.bits : s.bits; }

std::uint64_t Payload(const StoreSpec& s) {
  const std::uint64_t n = std::uint64_t{s.width} * s.height;
  return s.packing == 0 ? n * (s.bits > 8 ? 2 : 1) : (n * s.bits + 7) / 8;
}

std::uint32_t RecordBytes(const StoreSpec& s) {
  return static_cast<std::uint32_t>(Payload(s) + s.padding + s.trailerBytes);
}

std::vector<std::uint8_t> PackIndependently(const std::vector<std::uint16_t>& samples, std::uint32_t bits,
                                            std::uint32_t packing) {
  std::vector<std::uint8_t> out;
  if (packing == 0) {
    for (std::uint16_t s : samples) {
      out.push_back(static_cast<std::uint8_t>(s & 255));
      if (bits > 8) out.push_back(static_cast<std::uint8_t>(s >> 8));
    }
  } else if (packing == 1) {
    out.assign((samples.size() * bits + 7) / 8, 0);
    for (std::size_t i = 0; i < samples.size(); ++i) {
      for (std::uint32_t j = 0; j < bits; ++j) {
        const std::size_t bit = i * bits + j;
        if (samples[i] >> j & 1) out[bit / 8] |= static_cast<std::uint8_t>(1 << (bit % 8));
      }
    }
  } else {
    for (std::size_t i = 0; i < samples.size(); i += 2) {
      const unsigned a = samples[i], b = i + 1 < samples.size() ? samples[i + 1] : 0;
      out.push_back(static_cast<std::uint8_t>(a >> 4));
      out.push_back(static_cast<std::uint8_t>((a & 15) << 4 | b >> 8));
      if (i + 1 < samples.size()) out.push_back(static_cast<std::uint8_t>(b & 255));
    }
  }
  return out;
}

void WriteIndependentStore(const std::string& folder, const StoreSpec& s, const SampleSource& samples,
                           const TrailerSource& trailerSource) {
  const bool segmented = s.framesPerSegment != 0 && s.framesPerSegment < s.frames;
  const std::string image = !s.imageName.empty() ? s.imageName : segmented ? "img.00.raw" : "img.raw";
  std::FILE* d = std::fopen((folder + "/rawfile.xml").c_str(), "w");
  std::fprintf(d, "<RawFile>\n  <Signature>OKN Fathom Bureau Raw Ini File V 2.00</Signature>\n");
  std::fprintf(d, "  <ImgFileName>%s</ImgFileName>\n  <CalFileName>img.cal</CalFileName>\n", image.c_str());
  std::fprintf(d, "  <HeaderOffset>%u</HeaderOffset>\n  <FrameSize>%u</FrameSize>\n", s.headerBytes, RecordBytes(s));
  std::fprintf(d, "  <FrameCount>%u</FrameCount>\n  <FramesPerSegment>%u</FramesPerSegment>\n", s.frames,
               s.framesPerSegment);
  std::fprintf(d, "  <PixelDepth>%d</PixelDepth>\n  <PreTrigger>0</PreTrigger>\n",
               s.descriptorDepth >= 0 ? s.descriptorDepth : static_cast<int>(Depth(s)));
  std::fprintf(d, "  <CalibrationType>%d</CalibrationType>\n</RawFile>\n", s.calibration.empty() ? 0 : 1);
  std::fclose(d);

  std::vector<std::uint8_t> header(s.headerBytes, 0);
  std::memcpy(header.data(), "OKN_RAW", 8);
  const std::uint32_t words[] = {1, s.headerBytes, s.width, s.height, s.bits, s.packing, s.colour ? 1u : 0u,
                                 s.order, s.modelIndex, s.subModel, s.serial, s.network, s.rotation, s.exposure,
                                 s.period, s.sizeFactor, s.suffix, s.six, s.value14, s.value15, s.trailerBytes,
                                 s.trailerFlags, s.black};
  for (std::size_t i = 0; i < std::size(words); ++i) Put32(header, 8 + 4 * i, words[i]);
  std::memcpy(header.data() + 100, s.gains, 12);
  std::memcpy(header.data() + 128, s.modelText.c_str(), s.modelText.size() + 1);

  const std::uint32_t perFile = segmented ? s.framesPerSegment : s.frames;
  std::FILE* f = nullptr;
  for (std::uint32_t i = 0; i < s.frames; ++i) {
    if (i % perFile == 0) {
      if (f) std::fclose(f);
      std::string name = image;
      if (segmented) {
        char k[16];
        std::snprintf(k, sizeof k, "%02u", i / perFile);
        name = image.substr(0, image.size() - 6) + k + ".raw";
      }
      f = std::fopen((folder + "/" + name).c_str(), "wb");
      std::fwrite(header.data(), 1, header.size(), f);
    }
    std::vector<std::uint8_t> record = PackIndependently(samples(i), s.bits, s.packing);
    record.resize(record.size() + s.padding, 0);
    std::vector<std::uint8_t> trailer(s.trailerBytes, 0);
    Put32(trailer, 40, i);
    if (trailerSource) trailerSource(i, trailer);
    record.insert(record.end(), trailer.begin(), trailer.end());
    std::fwrite(record.data(), 1, record.size(), f);
  }
  if (f) std::fclose(f);
  if (!s.calibration.empty()) {
    std::vector<std::uint8_t> cal(24, 0);
    std::memcpy(cal.data(), "OKN_CAL", 8);
    Put32(cal, 8, s.width);
    Put32(cal, 12, s.height);
    Put32(cal, 16, 1);
    for (std::uint16_t v : s.calibration) {
      cal.push_back(static_cast<std::uint8_t>(v & 255));
      cal.push_back(static_cast<std::uint8_t>(v >> 8));
    }
    std::FILE* c = std::fopen((folder + "/img.cal").c_str(), "wb");
    std::fwrite(cal.data(), 1, cal.size(), c);
    std::fclose(c);
  }
}

}  // namespace tarnvel::test
