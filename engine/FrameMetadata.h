// The 1024-byte blocks that go with every written frame: FrameMetadataBlock
// for all types but the Chapter 10 file, GevsBlock for that one. Both are file
// formats: packed, with fields at odd offsets, every byte counted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "recording/RecordingInfo.h"

namespace tarnvel {

#pragma pack(push, 1)
struct FrameMetadataBlock {
  char magic[8];
  std::uint8_t sensorType;  // 1 colour, 2 monochrome
  std::uint8_t sessionId;
  std::uint8_t cameraId;
  std::uint8_t rateIndex;
  std::uint8_t unused12;
  std::uint8_t recordMode;
  std::uint8_t whiteBalanceMode;
  std::uint8_t reserved15;
  std::uint8_t unused16;
  std::uint8_t timeStatus;
  float gains[3];
  std::uint16_t frameNumber16;
  std::uint8_t triggerFrame;
  std::uint8_t second, minute, hour, day, month, year;  // BCD
  std::uint8_t dayOfYear[3];                            // hundreds, tens, units
  std::uint8_t codeHour[2], codeMinute[2], codeSecond[2];
  std::uint32_t codeMicroseconds;
  std::uint16_t elapsedMinutes;
  std::uint32_t elapsedMicroseconds;
  std::uint16_t reserved58[30];
  std::uint8_t unused118;
  std::uint32_t exposure;     // microseconds
  std::uint32_t temperature;  // hundredths of a degree
  std::uint8_t reserved127;
  char deviceName[51];
  char recordingName[51];
  std::uint8_t mosaicOrderCode;
  std::uint32_t serial;
  std::uint16_t width, height;
  std::uint32_t hardwareFlags;
  std::uint8_t unused243;
  std::uint32_t colorMatrix[9];  // integers in the template, floats once filled
  std::uint32_t frameIndex;
  std::uint32_t periodMicroseconds;
  std::uint8_t fileFormat;
  std::uint16_t width2, height2;
  std::uint16_t reserved293, reserved295;
  std::uint8_t unused297[2];
  std::uint16_t reserved299, reserved301;
  std::uint16_t lookUp[256];
  std::uint32_t rate;
  std::uint8_t reserved819[32];
  std::uint16_t reserved851;
  std::uint8_t reserved853;
  std::uint32_t reserved854, reserved858;
  char tagOpen[3];
  std::uint8_t modelCode;
  char tagClose[2];
  std::uint8_t reserved868[143];
  std::uint16_t modelIndex;
  std::uint16_t subModel;
  std::uint32_t networkAddress;
  std::uint8_t unused1019;
  char endMark[4];
};

struct GevsBlock {
  char magic[8];
  std::uint32_t networkAddress;
  char serialText[32];
  char modelText[64];
  char deviceName[128];
  std::uint32_t reservedOne;
  std::uint32_t serial;
  std::uint32_t model;
  std::uint16_t isColor;
  std::uint32_t sourceProperty6;
  std::uint32_t rate;
  std::uint32_t exposure;
  std::uint32_t frameTotal;
  std::uint32_t preTrigger;
  std::uint32_t sensorGain;
  std::uint32_t rotation;
  std::uint32_t cameraValue14, cameraValue15;
  std::uint32_t roi[4];
  std::uint64_t gevTiming[3];
  std::uint16_t localTime[6];
  std::uint32_t timeLocked;
  std::uint64_t timestamp;
  std::uint32_t frameNumber;
  std::uint16_t gevValues[5];
  std::uint32_t gevValue6;
  std::uint8_t unused[656];
};
#pragma pack(pop)

static_assert(sizeof(FrameMetadataBlock) == 1024);
static_assert(offsetof(FrameMetadataBlock, sensorType) == 8 && offsetof(FrameMetadataBlock, rateIndex) == 11);
static_assert(offsetof(FrameMetadataBlock, recordMode) == 13 && offsetof(FrameMetadataBlock, whiteBalanceMode) == 14);
static_assert(offsetof(FrameMetadataBlock, timeStatus) == 17 && offsetof(FrameMetadataBlock, gains) == 18);
static_assert(offsetof(FrameMetadataBlock, frameNumber16) == 30 && offsetof(FrameMetadataBlock, triggerFrame) == 32);
static_assert(offsetof(FrameMetadataBlock, second) == 33 && offsetof(FrameMetadataBlock, year) == 38);
static_assert(offsetof(FrameMetadataBlock, dayOfYear) == 39 && offsetof(FrameMetadataBlock, codeHour) == 42);
static_assert(offsetof(FrameMetadataBlock, codeSecond) == 46 && offsetof(FrameMetadataBlock, codeMicroseconds) == 48);
static_assert(offsetof(FrameMetadataBlock, elapsedMinutes) == 52 && offsetof(FrameMetadataBlock, elapsedMicroseconds) == 54);
static_assert(offsetof(FrameMetadataBlock, reserved58) == 58 && offsetof(FrameMetadataBlock, exposure) == 119);
static_assert(offsetof(FrameMetadataBlock, temperature) == 123 && offsetof(FrameMetadataBlock, reserved127) == 127);
static_assert(offsetof(FrameMetadataBlock, deviceName) == 128 && offsetof(FrameMetadataBlock, recordingName) == 179);
static_assert(offsetof(FrameMetadataBlock, mosaicOrderCode) == 230 && offsetof(FrameMetadataBlock, serial) == 231);
static_assert(offsetof(FrameMetadataBlock, width) == 235 && offsetof(FrameMetadataBlock, height) == 237);
static_assert(offsetof(FrameMetadataBlock, hardwareFlags) == 239 && offsetof(FrameMetadataBlock, colorMatrix) == 244);
static_assert(offsetof(FrameMetadataBlock, frameIndex) == 280 && offsetof(FrameMetadataBlock, periodMicroseconds) == 284);
static_assert(offsetof(FrameMetadataBlock, fileFormat) == 288 && offsetof(FrameMetadataBlock, width2) == 289);
static_assert(offsetof(FrameMetadataBlock, height2) == 291 && offsetof(FrameMetadataBlock, reserved293) == 293);
static_assert(offsetof(FrameMetadataBlock, reserved295) == 295 && offsetof(FrameMetadataBlock, reserved299) == 299);
static_assert(offsetof(FrameMetadataBlock, reserved301) == 301 && offsetof(FrameMetadataBlock, lookUp) == 303);
static_assert(offsetof(FrameMetadataBlock, rate) == 815 && offsetof(FrameMetadataBlock, reserved819) == 819);
static_assert(offsetof(FrameMetadataBlock, reserved851) == 851 && offsetof(FrameMetadataBlock, reserved853) == 853);
static_assert(offsetof(FrameMetadataBlock, reserved854) == 854 && offsetof(FrameMetadataBlock, reserved858) == 858);
static_assert(offsetof(FrameMetadataBlock, tagOpen) == 862 && offsetof(FrameMetadataBlock, modelCode) == 865);
static_assert(offsetof(FrameMetadataBlock, tagClose) == 866 && offsetof(FrameMetadataBlock, reserved868) == 868);
static_assert(offsetof(FrameMetadataBlock, modelIndex) == 1011 && offsetof(FrameMetadataBlock, subModel) == 1013);
static_assert(offsetof(FrameMetadataBlock, networkAddress) == 1015 && offsetof(FrameMetadataBlock, endMark) == 1020);

static_assert(sizeof(GevsBlock) == 1024);
static_assert(offsetof(GevsBlock, networkAddress) == 8 && offsetof(GevsBlock, serialText) == 12);
static_assert(offsetof(GevsBlock, modelText) == 44 && offsetof(GevsBlock, deviceName) == 108);
static_assert(offsetof(GevsBlock, reservedOne) == 236 && offsetof(GevsBlock, serial) == 240);
static_assert(offsetof(GevsBlock, model) == 244 && offsetof(GevsBlock, isColor) == 248);
static_assert(offsetof(GevsBlock, sourceProperty6) == 250 && offsetof(GevsBlock, rate) == 254);
static_assert(offsetof(GevsBlock, exposure) == 258 && offsetof(GevsBlock, frameTotal) == 262);
static_assert(offsetof(GevsBlock, preTrigger) == 266 && offsetof(GevsBlock, sensorGain) == 270);
static_assert(offsetof(GevsBlock, rotation) == 274 && offsetof(GevsBlock, cameraValue14) == 278);
static_assert(offsetof(GevsBlock, cameraValue15) == 282 && offsetof(GevsBlock, roi) == 286);
static_assert(offsetof(GevsBlock, gevTiming) == 302 && offsetof(GevsBlock, localTime) == 326);
static_assert(offsetof(GevsBlock, timeLocked) == 338 && offsetof(GevsBlock, timestamp) == 342);
static_assert(offsetof(GevsBlock, frameNumber) == 350 && offsetof(GevsBlock, gevValues) == 354);
static_assert(offsetof(GevsBlock, gevValue6) == 364);

// What the blocks take from the open source and the job.
struct MetadataSource {
  std::uint32_t geometryBits = 8;  // bits per pixel of the source frames
  std::uint32_t width = 0, height = 0;
  std::int32_t fileType = 0;  // the output's file type; its descriptor says where the block goes
  bool hasCameraBlock = false;
  const std::uint8_t* cameraBlock = nullptr;  // the model's own 1024 bytes, when it has them
  const double* colorMatrix = nullptr;        // 9 entries: the job's white balance
  std::string_view deviceName;
  std::uint32_t serial = 0, subModel = 0, networkAddress = 0, modelIndex = 0, modelNumber = 0;
  std::uint32_t propertySix = 0, cameraValue14 = 0, cameraValue15 = 0;
  std::string_view modelText;
  // Time block of the frame: status, year, day of year, hour, minute, second, microseconds.
  std::uint32_t timeStatus = 0, timeYear = 0, timeDayOfYear = 0, timeHour = 0, timeMinute = 0, timeSecond = 0,
                timeMicroseconds = 0;
  // GEV records of the frame: the second (32 bytes) and the first 72 bytes of the third.
  const std::uint8_t* gevValues = nullptr;
  const std::uint8_t* gevTime = nullptr;
};

// The model code of the block's tag, by model number and sub-model.
std::uint8_t MetadataModelCode(std::uint32_t model, std::uint32_t subModel);

void BuildFrameMetadata(const MetadataSource& source, FrameMetadataBlock& block, std::int32_t frameNumber,
                        const RecordingInfo& recording, std::int32_t temperature, std::uint32_t exposure,
                        std::uint32_t mosaicOrder);

// Fills the block; on the first frame of a file also fills the gaps of the
// recording's three GEV timings (which is why `recording` is written).
void BuildGevsBlock(const MetadataSource& source, GevsBlock& block, std::int32_t frameNumber,
                    RecordingInfo& recording, bool firstFrame, std::uint32_t frameTotal);

}  // namespace tarnvel
