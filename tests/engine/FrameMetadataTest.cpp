#include "engine/FrameMetadata.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace tarnvel {
namespace {

const std::uint8_t* Bytes(const void* block) { return static_cast<const std::uint8_t*>(block); }
std::uint32_t U32(const void* block, std::size_t at) {
  std::uint32_t v;
  std::memcpy(&v, Bytes(block) + at, 4);
  return v;
}
std::uint16_t U16(const void* block, std::size_t at) {
  std::uint16_t v;
  std::memcpy(&v, Bytes(block) + at, 2);
  return v;
}
float F32(const void* block, std::size_t at) {
  float v;
  std::memcpy(&v, Bytes(block) + at, 4);
  return v;
}

class Metadata : public ::testing::Test {
 protected:
  void SetUp() override {
    rec_ = std::make_unique<RecordingInfo>();
    std::memset(rec_.get(), 0, sizeof(RecordingInfo));
    std::strcpy(rec_->Name, "crash-test-0815");
    rec_->Year = 2024, rec_->Month = 12, rec_->Day = 24, rec_->Hour = 18, rec_->Minute = 7, rec_->Second = 59;
    rec_->Rate = 2000.0f;
    rec_->Model = 6;
    source_.geometryBits = 12;
    source_.width = 1280, source_.height = 1024;
    source_.deviceName = "Left camera";
    source_.serial = 112345678;
    source_.subModel = 0;
    source_.networkAddress = 0xC0A80164;
    source_.modelIndex = 1;
    source_.timeYear = 2024, source_.timeDayOfYear = 359, source_.timeHour = 17, source_.timeMinute = 5,
    source_.timeSecond = 9, source_.timeMicroseconds = 123456, source_.timeStatus = 0x103;
  }
  FrameMetadataBlock Build(std::int32_t frameNumber, std::int32_t type = 1) {
    source_.fileType = type;
    FrameMetadataBlock block;
    std::memset(&block, 0xEE, sizeof block);  // nothing may survive from before
    BuildFrameMetadata(source_, block, frameNumber, *rec_, -250, 40000, 2);
    return block;
  }
  std::unique_ptr<RecordingInfo> rec_;
  MetadataSource source_;
};

TEST_F(Metadata, MonochromeFieldsAndTemplate) {
  const FrameMetadataBlock b = Build(70000);
  EXPECT_EQ(std::memcmp(b.magic, "OKN_BD1", 8), 0);
  EXPECT_EQ(b.sensorType, 2);
  EXPECT_EQ(b.sessionId, 1);
  EXPECT_EQ(b.whiteBalanceMode, 3) << "template stays for monochrome";
  EXPECT_EQ(F32(&b, 18), 1.0f);
  EXPECT_EQ(U16(&b, 30), 4464) << "70000 in 16 bits";
  EXPECT_EQ(b.triggerFrame, 0);
  EXPECT_EQ(Bytes(&b)[33], 0x59);
  EXPECT_EQ(Bytes(&b)[36], 0x24);
  EXPECT_EQ(Bytes(&b)[37], 0x12);
  EXPECT_EQ(Bytes(&b)[38], 0x24) << "the time code's year";
  EXPECT_EQ(Bytes(&b)[39], 3);
  EXPECT_EQ(Bytes(&b)[40], 5);
  EXPECT_EQ(Bytes(&b)[41], 9);
  EXPECT_EQ(Bytes(&b)[42], 1);
  EXPECT_EQ(Bytes(&b)[43], 7);
  EXPECT_EQ(Bytes(&b)[47], 9);
  EXPECT_EQ(U32(&b, 48), 123456u);
  EXPECT_EQ(b.timeStatus, 3) << "low byte of the status";
  EXPECT_EQ(U32(&b, 284), 500u) << "1,000,000 / 2000";
  EXPECT_EQ(U32(&b, 54), 70000u * 500);
  EXPECT_EQ(U32(&b, 119), 40u);
  EXPECT_EQ(static_cast<std::int32_t>(U32(&b, 123)), -250);
  EXPECT_EQ(Bytes(&b)[127], 100);
  EXPECT_STREQ(reinterpret_cast<const char*>(&b) + 128, "Left camera");
  EXPECT_STREQ(reinterpret_cast<const char*>(&b) + 179, "crash-test-0815");
  EXPECT_EQ(U32(&b, 231), 112345678u);
  EXPECT_EQ(U16(&b, 235), 1280);
  EXPECT_EQ(U16(&b, 291), 1024);
  EXPECT_EQ(U32(&b, 239), 0x8000u);
  EXPECT_EQ(U32(&b, 244), 0x10000u) << "the template's integer matrix";
  EXPECT_EQ(U32(&b, 280), 70000u);
  EXPECT_EQ(Bytes(&b)[288], 3) << "TIFF";
  EXPECT_EQ(U16(&b, 293), 255);
  EXPECT_EQ(U16(&b, 303 + 2 * 200), 200 * 257);
  EXPECT_EQ(U32(&b, 815), 2000u);
  EXPECT_EQ(Bytes(&b)[853], 2);
  EXPECT_EQ(std::memcmp(Bytes(&b) + 862, "Fc\0", 3), 0);
  EXPECT_EQ(Bytes(&b)[865], 37) << "model 6";
  EXPECT_EQ(std::memcmp(Bytes(&b) + 866, "cF", 2), 0);
  for (int i = 868; i < 1011; ++i) ASSERT_EQ(Bytes(&b)[i], 0) << i;
  EXPECT_EQ(U16(&b, 1011), 1);
  EXPECT_EQ(U32(&b, 1015), 0xC0A80164u);
  EXPECT_EQ(std::memcmp(Bytes(&b) + 1020, "EoBD", 4), 0);
}

TEST_F(Metadata, NegativeFramesTimeCodesAndModelCodes) {
  FrameMetadataBlock b = Build(-3);
  EXPECT_EQ(U16(&b, 30), 0xFFFD);
  EXPECT_EQ(U32(&b, 280), 0xFFFFFFFDu);
  EXPECT_EQ(static_cast<std::int32_t>(U32(&b, 54)), -1500) << "a negative product";
  b = Build(0);
  EXPECT_EQ(b.triggerFrame, 1);
  source_.timeYear = 1999;
  b = Build(5);
  EXPECT_EQ(b.timeStatus, 0);
  for (int i = 38; i <= 47; ++i) EXPECT_EQ(Bytes(&b)[i], 0) << i;
  EXPECT_EQ(U32(&b, 48), 0u);
  EXPECT_EQ(MetadataModelCode(17, 2), 193);
  EXPECT_EQ(MetadataModelCode(17, 1), 192);
  EXPECT_EQ(MetadataModelCode(23, 3), 140);
  EXPECT_EQ(MetadataModelCode(23, 0), 88);
  EXPECT_EQ(MetadataModelCode(3, 0), 255);
  EXPECT_EQ(MetadataModelCode(52, 0), 232);
  EXPECT_EQ(MetadataModelCode(53, 0), 0);
}

TEST_F(Metadata, ColourMatrixGainsAndTheSwappedRawFrameForm) {
  source_.geometryBits = 36;
  double matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  source_.colorMatrix = matrix;
  FrameMetadataBlock b = Build(1);
  EXPECT_EQ(b.sensorType, 1);
  EXPECT_EQ(b.whiteBalanceMode, 4) << "unit matrix";
  EXPECT_EQ(b.fileFormat, 0);
  EXPECT_EQ(b.mosaicOrderCode, 3) << "(2 + 1) % 4";
  EXPECT_EQ(F32(&b, 244), 65535.0f);
  matrix[4] = 1.000001;
  EXPECT_EQ(Build(1).whiteBalanceMode, 3);

  matrix[0] = 2.0, matrix[4] = 1.0, matrix[8] = 1.5;
  b = Build(1, 5);
  EXPECT_EQ(std::memcmp(b.magic, "SN-440Q", 8), 0) << "raw frame files keep the old magic";
  EXPECT_EQ(b.fileFormat, 1);
  auto swapped = [&](std::size_t at) {
    std::uint8_t be[4];
    for (int i = 0; i < 4; ++i) be[i] = Bytes(&b)[at + 3 - i];
    float f;
    std::memcpy(&f, be, 4);
    return f;
  };
  EXPECT_EQ(swapped(18), 2.0f) << "gains over a base gain of 1.0, stored big-endian";
  EXPECT_EQ(swapped(22), 1.0f);
  EXPECT_EQ(swapped(26), 1.5f);
  EXPECT_EQ(Bytes(&b)[235], 1280 >> 8);
  EXPECT_EQ(Bytes(&b)[236], 1280 & 255);
  EXPECT_EQ(Bytes(&b)[231], 112345678u >> 24);
  for (int i = 819; i < 851; ++i) ASSERT_EQ(Bytes(&b)[i], 0);
  EXPECT_EQ(Bytes(&b)[865], 37) << "fields from 862 on are not swapped";
}

TEST_F(Metadata, CameraBlockOfTheModelIsTakenAndSwapped) {
  std::uint8_t own[1024];
  for (int i = 0; i < 1024; ++i) own[i] = static_cast<std::uint8_t>(i * 7);
  source_.hasCameraBlock = true;
  source_.cameraBlock = own;
  rec_->Model = 21;
  double matrix[9] = {1.25, 0, 0, 0, 1, 0, 0, 0, 0.75};
  source_.colorMatrix = matrix;
  const FrameMetadataBlock b = Build(9);
  EXPECT_EQ(b.mosaicOrderCode, 1);
  EXPECT_EQ(Bytes(&b)[289], 1280 >> 8) << "width2 set, then swapped";
  EXPECT_EQ(Bytes(&b)[12], own[12]) << "other bytes are the source's own";
  EXPECT_EQ(Bytes(&b)[101], own[100]) << "the reserved words are swapped too";
  std::uint8_t be[4] = {Bytes(&b)[21], Bytes(&b)[20], Bytes(&b)[19], Bytes(&b)[18]};
  float gain;
  std::memcpy(&gain, be, 4);
  EXPECT_EQ(gain, 1.25f);
}

// The blocks are packed: their fields are read by value (unary plus), never
// bound to references at odd addresses.
TEST_F(Metadata, GevsBlockTimesAndTimings) {
  source_.modelNumber = 6;
  source_.modelText = "Kestrel HS 4";
  source_.geometryBits = 12;
  rec_->ExposureNs = 250000, rec_->PerTrigFrms = 20, rec_->RotationAngle = 2, rec_->ROIW = 1280;
  std::uint8_t time[72] = {};
  std::memcpy(time, " 1588", 5);
  time[5] = 1;
  time[11] = 7;            // 7 seconds
  time[12] = 0x08;         // fraction 0x08000000: bit 27 set
  source_.gevTime = time;
  std::uint8_t values[32] = {};
  values[4] = 0x34, values[5] = 0x12, values[6] = 0xFF, values[24] = 9;
  source_.gevValues = values;
  rec_->GevTiming[2] = 55;  // only the second timing is known
  GevsBlock g;
  BuildGevsBlock(source_, g, -4, *rec_, true, 100);
  EXPECT_EQ(std::memcmp(g.magic, "OKN_GEVS", 8), 0);
  EXPECT_STREQ(g.serialText, "01-1234-5678");
  EXPECT_STREQ(g.modelText, "Kestrel HS 4");
  EXPECT_EQ(+g.reservedOne, 1u);
  EXPECT_EQ(+g.isColor, 0);
  EXPECT_EQ(+g.exposure, 250u);
  EXPECT_EQ(+g.frameTotal, 100u);
  EXPECT_EQ(+g.preTrigger, 20u);
  EXPECT_EQ(+g.rotation, 180u);
  EXPECT_EQ(+g.roi[2], 1280u);
  EXPECT_EQ(static_cast<std::int64_t>(g.timestamp), 7 * 1000000000LL - 1073741824LL);
  EXPECT_EQ(+g.timeLocked, 1u);
  EXPECT_EQ(+g.gevTiming[0], 55u) << "a first timing of 0 takes the second";
  EXPECT_EQ(+g.gevTiming[2], 55u) << "a third of 0 takes the second";
  EXPECT_EQ(rec_->GevTiming[0], 55u) << "the gaps are filled in the job's record";
  EXPECT_GT(+g.localTime[0], 2000) << "the first frame carries the conversion's local time";
  EXPECT_EQ(+g.frameNumber, static_cast<std::uint32_t>(-4));
  EXPECT_EQ(+g.gevValues[0], 0x1234);
  EXPECT_EQ(+g.gevValue6, 9u);

  // On a listed model the fraction counts nanoseconds, and quality decides the lock.
  rec_->Model = 42;
  source_.modelNumber = 42;
  time[20] = 39;
  BuildGevsBlock(source_, g, 1, *rec_, false, 100);
  EXPECT_EQ(+g.timestamp, 7 * 1000000000ull + 0x08000000u);
  EXPECT_EQ(+g.timeLocked, 0u);
  EXPECT_EQ(+g.localTime[0], 0) << "only on the first frame";

  std::memset(time, 0, sizeof time);
  std::memcpy(time, "IRIG", 4);
  time[4] = 10, time[8] = 0x40, time[9] = 0x42, time[10] = 0x0F;  // 10 s and 1,000,000 us
  BuildGevsBlock(source_, g, 1, *rec_, false, 100);
  EXPECT_EQ(+g.timestamp, 11 * 1000000000ull);
  std::memset(time, 0, sizeof time);
  time[64] = 100;
  BuildGevsBlock(source_, g, 1, *rec_, false, 100);
  EXPECT_EQ(+g.timestamp, 1000u) << "a counter in tens of nanoseconds";

  // All three timings empty: the first frame's time stamp fills them.
  std::memset(rec_->GevTiming, 0, sizeof rec_->GevTiming);
  BuildGevsBlock(source_, g, 0, *rec_, true, 100);
  EXPECT_EQ(+g.gevTiming[0], 1000u);
  EXPECT_EQ(+g.gevTiming[1], 1000u);
}

}  // namespace
}  // namespace tarnvel
