#include "engine/FrameMetadata.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>

#include "platform/clock/WallClock.h"
#include "platform/cordage/TextField.h"
#include "platform/framekit/FileTypes.h"
#include "recording/ModelTable.h"

namespace tarnvel {
namespace {

// A raw frame file: the block is joined to the pixels, in big-endian order.
bool RawFrameFileType(std::int32_t type) {
  const framekit::FileTypeDescriptor* t = framekit::FindFileType(type);
  return t && t->metadata == framekit::MetadataPlacement::kInPixelsBigEndian;
}

std::uint8_t Bcd(int value) {
  const int v = std::abs(value) % 100;
  return static_cast<std::uint8_t>((v / 10) << 4 | v % 10);
}

std::uint32_t FloatBits(float f) {
  std::uint32_t bits;
  std::memcpy(&bits, &f, 4);
  return bits;
}

FrameMetadataBlock MakeTemplate() {
  FrameMetadataBlock t;
  std::memset(&t, 0, sizeof t);
  std::memcpy(t.magic, "SN-440Q", 8);
  t.sensorType = 1;
  t.cameraId = 1;
  t.recordMode = 1;
  t.whiteBalanceMode = 3;
  t.reserved15 = 3;
  t.gains[0] = t.gains[1] = t.gains[2] = 1.0f;
  t.frameNumber16 = 3;
  t.second = 0x19, t.minute = 0x06, t.hour = 0x19, t.day = 0x10, t.month = 0x08, t.year = 0x06;
  t.elapsedMicroseconds = 60000;
  t.exposure = 15707;
  t.reserved127 = 100;
  t.deviceName[0] = 'x';
  t.recordingName[0] = '0';
  t.serial = 150443;
  t.width = t.width2 = 1504;
  t.height = t.height2 = 1128;
  t.hardwareFlags = 0x8000;
  t.colorMatrix[0] = t.colorMatrix[4] = t.colorMatrix[8] = 0x10000;
  t.frameIndex = 3;
  t.periodMicroseconds = 20000;
  t.fileFormat = 1;
  t.reserved293 = 255;
  for (int i = 0; i < 256; ++i) t.lookUp[i] = static_cast<std::uint16_t>(i * 257);
  t.rate = 50;
  t.reserved853 = 2;
  std::memcpy(t.endMark, "EoBD", 4);
  return t;
}

const FrameMetadataBlock& Template() {
  static const FrameMetadataBlock t = MakeTemplate();
  return t;
}

// Reverses the bytes of the block's numeric fields in place, as the suite's
// raw frame files store them.
void ByteSwap(FrameMetadataBlock& block) {
  auto* bytes = reinterpret_cast<std::uint8_t*>(&block);
  auto swap4 = [&](std::size_t at) { std::reverse(bytes + at, bytes + at + 4); };
  auto swap2 = [&](std::size_t at) { std::swap(bytes[at], bytes[at + 1]); };
  for (std::size_t at : {18, 22, 26, 48, 54, 119, 123, 231, 239, 244, 815, 854, 858}) swap4(at);
  for (std::size_t i = 0; i < 10; ++i) swap4(248 + 4 * i);
  for (std::size_t at : {30, 52, 235, 237, 289, 291, 293, 295, 299, 301, 851}) swap2(at);
  for (std::size_t i = 0; i < 30; ++i) swap2(58 + 2 * i);
  for (std::size_t i = 0; i < 256; ++i) swap2(303 + 2 * i);
  std::memset(block.reserved819, 0, sizeof block.reserved819);
}

std::uint8_t FileFormatCode(std::int32_t type) {
  const framekit::FileTypeDescriptor* t = framekit::FindFileType(type);
  return t ? t->metadataFormatCode : 0;
}

std::uint32_t PeriodMicroseconds(float rate) {
  const double period = 1000000.0 / rate;
  return std::isfinite(period) && period >= 0 && period < 4294967296.0 ? static_cast<std::uint32_t>(period) : 0;
}

std::uint32_t LoadBe(const std::uint8_t* p, int n) {
  std::uint32_t v = 0;
  for (int i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

template <typename T>
T LoadLe(const std::uint8_t* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

bool OneOf(std::uint32_t model, std::initializer_list<std::uint32_t> list) {
  return std::find(list.begin(), list.end(), model) != list.end();
}

// Entry k of the white balance's 3 x 3 matrix (the unit matrix without one).
double MatrixEntry(const MetadataSource& source, int k) {
  return source.colorMatrix ? source.colorMatrix[k] : (k % 4 == 0 ? 1.0 : 0.0);
}

// A model that delivers its own block: the block as it came, with the white
// balance's gains, in the raw frame file's byte order.
void FromCameraBlock(const MetadataSource& source, FrameMetadataBlock& block, const RecordingInfo& recording) {
  std::memcpy(&block, source.cameraBlock, sizeof block);
  if (recording.Model >= 20 && recording.Model <= 22) {
    block.mosaicOrderCode = 1;
    block.width2 = static_cast<std::uint16_t>(source.width);
    block.height2 = static_cast<std::uint16_t>(source.height);
  }
  for (int i = 0; i < 3; ++i) block.gains[i] = static_cast<float>(MatrixEntry(source, 4 * i));
  ByteSwap(block);
}

// What the recording and the source tell about every frame.
void FillRecordingFields(const MetadataSource& source, FrameMetadataBlock& block, std::int32_t frameNumber,
                         const RecordingInfo& recording, std::int32_t temperature, std::uint32_t exposure) {
  block.sessionId = 1;
  block.cameraId = 1;
  block.rateIndex = 0;
  block.recordMode = 1;
  block.frameNumber16 = static_cast<std::uint16_t>(frameNumber);
  block.triggerFrame = frameNumber == 0 ? 1 : 0;
  block.second = Bcd(recording.Second);
  block.minute = Bcd(recording.Minute);
  block.hour = Bcd(recording.Hour);
  block.day = Bcd(recording.Day);
  block.month = Bcd(recording.Month);
  block.year = Bcd(recording.Year - 2000);
  block.elapsedMinutes = 0;
  block.periodMicroseconds = PeriodMicroseconds(recording.Rate);
  block.elapsedMicroseconds = static_cast<std::uint32_t>(frameNumber) * block.periodMicroseconds;
  block.exposure = exposure / 1000;
  block.temperature = static_cast<std::uint32_t>(temperature);
  std::memset(block.deviceName, 0, sizeof block.deviceName);
  CopyText(block.deviceName, 50, source.deviceName);  // at most 49 characters
  std::memset(block.recordingName, 0, sizeof block.recordingName);
  CopyText(block.recordingName, 51, FieldText(recording.Name));  // at most 50 characters
  block.serial = source.serial;
  block.width = block.width2 = static_cast<std::uint16_t>(source.width);
  block.height = block.height2 = static_cast<std::uint16_t>(source.height);
  block.frameIndex = static_cast<std::uint32_t>(frameNumber);
  block.fileFormat = FileFormatCode(source.fileType);
  block.rate = static_cast<std::uint32_t>(TruncatedRate(recording.Rate));
  std::memcpy(block.tagOpen, "Fc", 3);
  block.modelCode = MetadataModelCode(recording.Model, source.subModel);
  std::memcpy(block.tagClose, "cF", 2);
  block.modelIndex = static_cast<std::uint16_t>(source.modelIndex);
  block.subModel = static_cast<std::uint16_t>(source.subModel);
  block.networkAddress = source.networkAddress;
}

// A colour source: mosaic order, gains and colour matrix of the white
// balance (relative to the smallest gain in a raw frame file).
void FillColourFields(const MetadataSource& source, FrameMetadataBlock& block, std::uint32_t mosaicOrder) {
  const auto entry = [&](int k) { return MatrixEntry(source, k); };
  block.fileFormat = 0;
  block.mosaicOrderCode = static_cast<std::uint8_t>((mosaicOrder + 1) % 4);
  const double baseGain = RawFrameFileType(source.fileType) ? std::min({entry(0), entry(4), entry(8)}) : 1.0;
  for (int i = 0; i < 3; ++i) block.gains[i] = static_cast<float>(entry(4 * i) / baseGain);
  bool unit = true;
  for (int k = 0; k < 9; ++k) {
    block.colorMatrix[k] = FloatBits(static_cast<float>(entry(k) * 65535 / baseGain));
    unit = unit && entry(k) == (k % 4 == 0 ? 1.0 : 0.0);
  }
  block.whiteBalanceMode = unit ? 4 : 3;
}

// The frame's time code, in digits; none before the year 2000.
void FillTimeCode(const MetadataSource& source, FrameMetadataBlock& block) {
  if (source.timeYear < 2000) {
    block.timeStatus = 0;
    std::memset(&block.year, 0, 10);  // bytes 38 to 47
    block.codeMicroseconds = 0;
    return;
  }
  block.timeStatus = static_cast<std::uint8_t>(source.timeStatus);
  block.year = Bcd(static_cast<int>(source.timeYear) - 2000);
  const std::uint32_t day = source.timeDayOfYear;
  block.dayOfYear[0] = static_cast<std::uint8_t>(day / 100 % 10);
  block.dayOfYear[1] = static_cast<std::uint8_t>(day / 10 % 10);
  block.dayOfYear[2] = static_cast<std::uint8_t>(day % 10);
  auto digits = [](std::uint8_t (&out)[2], std::uint32_t v) {
    out[0] = static_cast<std::uint8_t>(v / 10 % 10);
    out[1] = static_cast<std::uint8_t>(v % 10);
  };
  digits(block.codeHour, source.timeHour);
  digits(block.codeMinute, source.timeMinute);
  digits(block.codeSecond, source.timeSecond);
  block.codeMicroseconds = source.timeMicroseconds;
}

// The block's header: what the source and the recording tell once.
void FillGevsHeader(const MetadataSource& source, GevsBlock& block, const RecordingInfo& recording,
                    std::uint32_t frameTotal) {
  std::memset(&block, 0, sizeof block);
  std::memcpy(block.magic, "OKN_GEVS", 8);
  block.networkAddress = source.networkAddress;
  CopyText(block.serialText, FormatSerial(source.modelNumber, source.serial));
  CopyText(block.modelText, 48, source.modelText);  // at most 47 characters
  CopyText(block.deviceName, source.deviceName);
  block.reservedOne = 1;
  block.serial = source.serial;
  block.model = source.modelNumber;
  block.isColor = source.geometryBits > 16 ? 1 : 0;
  block.sourceProperty6 = source.propertySix;
  block.rate = static_cast<std::uint32_t>(TruncatedRate(recording.Rate));
  block.exposure = recording.ExposureNs / 1000;
  block.frameTotal = frameTotal;
  block.preTrigger = recording.PerTrigFrms;
  block.sensorGain = recording.SensorGain;
  static constexpr std::uint32_t kAngles[5] = {0, 90, 180, 270, 360};
  block.rotation = recording.RotationAngle < 5 ? kAngles[recording.RotationAngle] : 0;
  block.cameraValue14 = source.cameraValue14;
  block.cameraValue15 = source.cameraValue15;
  block.roi[0] = recording.ROIX, block.roi[1] = recording.ROIY, block.roi[2] = recording.ROIW, block.roi[3] = recording.ROIH;
}

// The frame's time stamp in nanoseconds from its GEV time record (IEEE 1588,
// IRIG, or the camera's clock in tens of nanoseconds), and whether the clock
// was locked.
std::uint64_t GevTimestamp(const MetadataSource& source, std::uint32_t model, std::uint32_t& locked) {
  std::uint8_t time[72] = {};
  if (source.gevTime) std::memcpy(time, source.gevTime, sizeof time);
  locked = 0;
  if (std::memcmp(time, "IRIG", 4) == 0)
    return LoadLe<std::uint32_t>(time + 4) * 1000000000ull + LoadLe<std::uint32_t>(time + 8) * 1000ull;
  if (std::memcmp(time, " 1588", 5) != 0) return LoadLe<std::uint64_t>(time + 64) * 10;
  const std::uint64_t seconds = static_cast<std::uint64_t>(LoadBe(time + 7, 1)) << 32 | LoadBe(time + 8, 4);
  long long fraction = LoadBe(time + 12, 4);
  std::uint64_t timestamp = 0;
  if (OneOf(model, {42, 44, 46, 47, 48, 49, 50, 64, 65, 66, 70})) {
    timestamp = seconds * 1000000000ull + static_cast<std::uint64_t>(fraction);
  } else {
    if (fraction & (1 << 27)) fraction -= 0x10000000;  // a 28-bit signed count of 8 ns
    timestamp = seconds * 1000000000ull + static_cast<std::uint64_t>(fraction * 8);
  }
  const bool lockFlag = time[5] != 0;
  if (OneOf(source.modelNumber, {42, 44, 46, 47, 48, 49, 50, 61, 64, 65, 66, 70}))
    locked = lockFlag && time[20] < 39 ? 1 : 0;
  else
    locked = lockFlag ? 1 : 0;
  return timestamp;
}

// The recording's three GEV timings; on the first frame the gaps are filled
// (from each other, or all from the frame's time stamp) in the job's record.
void SettleGevTiming(RecordingInfo& recording, std::uint64_t timestamp, bool firstFrame, std::uint64_t (&timing)[3]) {
  for (int i = 0; i < 3; ++i)
    timing[i] = static_cast<std::uint64_t>(recording.GevTiming[2 * i + 1]) << 32 | recording.GevTiming[2 * i];
  if (!firstFrame) return;
  if (timing[0] == 0 && timing[1] == 0 && timing[2] == 0) {
    timing[0] = timing[1] = timing[2] = timestamp;
  } else {
    if (timing[0] == 0) timing[0] = timing[1] != 0 ? timing[1] : timing[2];
    if (timing[1] == 0) timing[1] = timing[2] != 0 ? timing[2] : timing[0];
    if (timing[2] == 0) timing[2] = timing[1] != 0 ? timing[1] : timing[0];
  }
  for (int i = 0; i < 3; ++i) {
    recording.GevTiming[2 * i] = static_cast<std::uint32_t>(timing[i]);
    recording.GevTiming[2 * i + 1] = static_cast<std::uint32_t>(timing[i] >> 32);
  }
}

// The first frame's block tells when the file was written.
void FillLocalTime(GevsBlock& block) {
  const std::time_t now = WrittenAtSeconds();
  std::tm local{};
  ::localtime_r(&now, &local);
  const int values[6] = {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec};
  for (int i = 0; i < 6; ++i) block.localTime[i] = static_cast<std::uint16_t>(values[i]);
}

}  // namespace

std::uint8_t MetadataModelCode(std::uint32_t model, std::uint32_t subModel) {
  static constexpr std::uint8_t fromModel6[] = {37,  38,  37,  56,  37,  4,   22,  29,  37,  38,  56,  60,
                                                61,  62,  2,   2,   3,   88,  90,  92,  86,  229, 207, 230,
                                                198, 233, 231, 231, 232, 233, 234, 235, 231, 234, 234, 233,
                                                232, 234, 233, 231, 232, 232, 255, 255, 232, 232, 232};
  static_assert(std::size(fromModel6) == 52 - 6 + 1);
  std::uint8_t code = model < 6 ? 255 : model <= 52 ? fromModel6[model - 6] : 0;
  if (code == 88 && (subModel == 3 || subModel == 4)) code = 140;
  if (code == 60 && subModel == 1) code = 192;
  else if (code == 60 && subModel == 2) code = 193;
  return code;
}

void BuildFrameMetadata(const MetadataSource& source, FrameMetadataBlock& block, std::int32_t frameNumber,
                        const RecordingInfo& recording, std::int32_t temperature, std::uint32_t exposure,
                        std::uint32_t mosaicOrder) {
  if (source.hasCameraBlock && source.cameraBlock) return FromCameraBlock(source, block, recording);
  block = Template();
  if (!RawFrameFileType(source.fileType)) std::memcpy(block.magic, "OKN_BD1", 7);
  std::memset(reinterpret_cast<std::uint8_t*>(&block) + 862, 0, 1019 - 862);
  FillRecordingFields(source, block, frameNumber, recording, temperature, exposure);
  if (source.geometryBits > 16)
    FillColourFields(source, block, mosaicOrder);
  else
    block.sensorType = 2;
  FillTimeCode(source, block);
  if (RawFrameFileType(source.fileType)) {
    block.fileFormat = FileFormatCode(source.fileType);
    ByteSwap(block);
  }
}

void BuildGevsBlock(const MetadataSource& source, GevsBlock& block, std::int32_t frameNumber,
                    RecordingInfo& recording, bool firstFrame, std::uint32_t frameTotal) {
  FillGevsHeader(source, block, recording, frameTotal);
  std::uint32_t locked = 0;
  const std::uint64_t timestamp = GevTimestamp(source, recording.Model, locked);
  std::uint64_t timing[3];
  SettleGevTiming(recording, timestamp, firstFrame, timing);
  if (firstFrame) FillLocalTime(block);
  if (timing[0] == 0) timing[0] = timing[1];
  std::memcpy(reinterpret_cast<std::uint8_t*>(&block) + offsetof(GevsBlock, gevTiming), timing, sizeof timing);
  block.timeLocked = locked;
  block.timestamp = timestamp;
  block.frameNumber = static_cast<std::uint32_t>(frameNumber);
  if (source.gevValues) {
    for (int i = 0; i < 5; ++i) block.gevValues[i] = static_cast<std::uint16_t>(LoadLe<std::uint32_t>(source.gevValues + 4 + 4 * i));
    block.gevValue6 = LoadLe<std::uint32_t>(source.gevValues + 24);
  }
}

}  // namespace tarnvel
