// The record of one recording, and the list that holds copies of it during a run.
//
// RecordingInfo keeps the layout that acquisition gave it, field for field: the
// frame-metadata block and the suite's tools address its fields by offset, so
// the offsets below are checked at compile time. Camera settings that the
// converter only carries stand in the record because a profile holds them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

namespace tarnvel {

// One point of a user lookup curve; coordinates 0 to 100.
struct LookupPoint {
  std::int32_t x;
  std::int32_t y;
};

constexpr std::size_t kBurstTimes = 1024;
constexpr std::size_t kPreStartWords = 1024;
constexpr std::size_t kLookupPoints = 6;

struct RecordingInfo {
  char Magic[8];  // "OKN_ACQ" when acquisition wrote the record; zero when read from a profile
  std::uint32_t Done;
  std::uint32_t reserved0[2];
  char Name[128];     // last component of the recording folder
  char Comment[128];  // the user's comment
  std::uint16_t Day;
  std::uint16_t Month;
  std::uint16_t Year;
  std::uint16_t Hour;
  std::uint16_t Minute;
  std::uint16_t Second;
  std::uint16_t Milliseconds;
  std::uint16_t Microseconds;
  char ImagePrefix[256];
  std::int32_t FileType;
  std::int32_t FirstFrame;  // frame number of the first stored image relative to the trigger
  std::int32_t StartIdx;
  std::int32_t StopIdx;
  std::int32_t StartAvi;
  std::int32_t StopAvi;
  std::int32_t ToFrameOffset;
  std::uint32_t ResetNr;
  std::uint32_t OutputPixelDepth;
  float Output_Rate;
  std::uint32_t reserved1;
  // The camera block: 1024 bytes from Model up to the lookup points.
  std::uint32_t Model;
  std::uint32_t CameraFlag;
  std::uint32_t TimeOut;
  std::uint32_t reserved2;
  std::uint32_t Binning;
  std::uint32_t ExposureNs;
  float Rate;
  std::uint32_t reserved3;
  std::uint32_t ROIX;
  std::uint32_t ROIY;
  std::uint32_t ROIW;
  std::uint32_t ROIH;
  std::uint32_t RoiMaxW;
  std::uint32_t RoiMaxH;
  std::uint32_t Contrast;
  std::uint32_t Brightness;
  std::uint32_t reserved4;
  std::uint32_t PixelFormat;
  std::uint32_t PixelDepth;
  std::uint32_t PixelGain;
  std::uint32_t RecMode;  // 1 frames before the trigger, 2 bursts
  std::uint32_t SyncInCfg;
  std::uint32_t TriggerInCfg;
  std::uint32_t reserved5;
  std::uint32_t ExposureMode;
  std::uint32_t NoiseReduction;
  std::uint32_t NoisePSC;
  std::uint32_t DarkColumns;
  std::uint32_t NoiseAuto;
  std::uint32_t NoiseAutoPSC;
  std::uint32_t reserved6;
  std::uint32_t VideoMode;
  std::uint32_t PlusMode;
  std::uint32_t BrocLength;  // frames per burst, never above Frames
  std::uint32_t NetworkPerformance;
  std::uint32_t Frames;
  std::uint32_t PerTrigFrms;  // frames before the trigger (key "Per-Trig-Frms")
  std::uint32_t reserved7;
  std::uint32_t SyncOutCfg;
  std::uint32_t SyncOutAlignment;
  std::uint32_t TrigInDebounce;  // nanoseconds
  std::uint32_t TrigInDelay;
  std::uint32_t SyncOutWidth;
  std::uint32_t SyncOutDelay;
  std::uint32_t SyncInDebounce;
  std::uint32_t SyncInDelay;
  std::uint32_t MarkerCfg;
  std::uint32_t HDMIMode;
  std::uint32_t PreviewMode;
  std::uint32_t WhiteBal[9];  // 3x3 colour matrix, row by row, 16.16 fixed point
  std::uint32_t GammaCorrection;
  std::uint32_t Hue;
  std::uint32_t Saturation;
  std::uint32_t CompressionRatio;
  std::uint32_t XDRContrast;
  std::uint32_t XDRRatio;
  std::uint32_t Sharpen;
  std::uint32_t SensorGain;
  std::uint32_t DynamicNR;
  std::uint32_t MTCondition;
  std::uint32_t MTThreshold;
  std::uint32_t MTROI_X;
  std::uint32_t MTROI_Y;
  std::uint32_t MTROI_W;
  std::uint32_t MTROI_H;
  std::uint32_t reserved8;
  std::uint32_t PostRecordingOperation;
  std::uint32_t AEEnable;
  std::uint32_t AEReference;
  std::uint32_t AEROI_X;
  std::uint32_t AEROI_Y;
  std::uint32_t AEROI_W;
  std::uint32_t AEROI_H;
  std::uint32_t AESpeed;
  std::uint32_t AEMinExp;
  std::uint32_t AEMaxExp;
  std::uint32_t AEMinIris;
  std::uint32_t AEMaxIris;
  std::uint32_t HubDelay;
  std::uint32_t ColorIntFilter;
  std::uint32_t GaussianFilter;
  std::uint32_t HDROIIndex;
  std::uint32_t RotationAngle;  // index into 0, 90, 180, 270, 360 degrees
  std::uint32_t FlipCfg;
  std::uint32_t LookupTable;
  std::uint32_t HDMIOverlay;
  std::uint32_t reserved9[3];
  std::uint32_t HDZoom;
  std::uint32_t HDZoomX;
  std::uint32_t HDZoomY;
  std::uint32_t SharpenThreshold;
  std::uint32_t SyncInInverted;
  std::uint32_t DynamicNR2;
  std::uint32_t JpegEnconding;
  std::uint32_t HDZoom2Roi;
  std::uint32_t JpegQuality;
  std::uint32_t FrameSize;
  std::uint32_t reserved10[2];
  std::uint32_t GammaCorrection1;
  std::uint32_t GammaLevel1;
  std::uint32_t GammaLevel;
  std::uint32_t reserved11;
  std::uint32_t AEExpStep;
  std::uint32_t SyncInJitter;
  std::uint32_t SyncInMutliplier;
  std::uint32_t SyncInDivider;
  std::uint32_t reserved12[2];
  std::uint32_t Paint[6];
  std::uint32_t StreamingT;
  std::uint32_t SyncInPTPMode;
  std::uint32_t SyncInPTPDelay;
  std::uint32_t GevTiming[6];  // three 64-bit nanosecond stamps, low word first
  std::uint32_t reserved13[122];
  LookupPoint LookupTblPoint[kLookupPoints];
  std::uint64_t StartAdd;  // byte address of the first frame in the raw store
  std::uint64_t reserved14[2];
  std::uint32_t PreStart[kPreStartWords];
  std::uint32_t TotSyncCount;
  std::uint32_t BrocTime[kBurstTimes];  // milliseconds, one per burst, taken at its end
  std::uint32_t TriggerTime;            // microseconds
  std::uint32_t ExternalRate;
  std::uint8_t ConvertRaw;
  std::uint8_t DeleteRaw;
  std::int32_t UTCOffset;
};

static_assert(std::is_trivially_copyable_v<RecordingInfo> && std::is_standard_layout_v<RecordingInfo>);
static_assert(offsetof(RecordingInfo, Done) == 8);
static_assert(offsetof(RecordingInfo, Name) == 20);
static_assert(offsetof(RecordingInfo, Comment) == 148);
static_assert(offsetof(RecordingInfo, Day) == 276);
static_assert(offsetof(RecordingInfo, Microseconds) == 290);
static_assert(offsetof(RecordingInfo, ImagePrefix) == 292);
static_assert(offsetof(RecordingInfo, FileType) == 548);
static_assert(offsetof(RecordingInfo, ResetNr) == 576);
static_assert(offsetof(RecordingInfo, Output_Rate) == 584);
static_assert(offsetof(RecordingInfo, Model) == 592);
static_assert(offsetof(RecordingInfo, ExposureNs) == 612);
static_assert(offsetof(RecordingInfo, Rate) == 616);
static_assert(offsetof(RecordingInfo, ROIX) == 624);
static_assert(offsetof(RecordingInfo, PixelDepth) == 664);
static_assert(offsetof(RecordingInfo, RecMode) == 672);
static_assert(offsetof(RecordingInfo, BrocLength) == 724);
static_assert(offsetof(RecordingInfo, Frames) == 732);
static_assert(offsetof(RecordingInfo, PerTrigFrms) == 736);
static_assert(offsetof(RecordingInfo, WhiteBal) == 788);
static_assert(offsetof(RecordingInfo, CompressionRatio) == 836);
static_assert(offsetof(RecordingInfo, SensorGain) == 852);
static_assert(offsetof(RecordingInfo, AEEnable) == 892);
static_assert(offsetof(RecordingInfo, RotationAngle) == 952);
static_assert(offsetof(RecordingInfo, HDZoom) == 980);
static_assert(offsetof(RecordingInfo, FrameSize) == 1016);
static_assert(offsetof(RecordingInfo, GammaCorrection1) == 1028);
static_assert(offsetof(RecordingInfo, SyncInDivider) == 1056);
static_assert(offsetof(RecordingInfo, Paint) == 1068);
static_assert(offsetof(RecordingInfo, GevTiming) == 1104);
static_assert(offsetof(RecordingInfo, LookupTblPoint) - offsetof(RecordingInfo, Model) == 1024,
              "the camera block runs 1024 bytes from Model");
static_assert(offsetof(RecordingInfo, StartAdd) == 1664);
static_assert(offsetof(RecordingInfo, PreStart) == 1688);
static_assert(offsetof(RecordingInfo, TotSyncCount) == 5784);
static_assert(offsetof(RecordingInfo, BrocTime) == 5788);
static_assert(offsetof(RecordingInfo, TriggerTime) == 9884);
static_assert(offsetof(RecordingInfo, ExternalRate) == 9888);
static_assert(offsetof(RecordingInfo, ConvertRaw) == 9892);
static_assert(offsetof(RecordingInfo, UTCOffset) == 9896);
static_assert(sizeof(RecordingInfo) == 9904);

// How the frame numbers of a run combine, for a running index i from 0
// (arithmetic wraps at 32 bits, as the suite's words do):
// the number a frame carries in its output: i with ResetNr, else StartIdx + i;
std::int32_t OutputFrameNumber(const RecordingInfo& recording, std::int32_t i);
// its position in the source: StartIdx - FirstFrame + i;
std::int32_t SourceFramePosition(const RecordingInfo& recording, std::int32_t i);
// whether it belongs to the companion movie: StartAvi <= StartIdx + i <= StopAvi.
bool InMovieRange(const RecordingInfo& recording, std::int32_t i);

// A float rate as the integer that reports and sidecars print: truncated
// toward zero, saturated at the ends of the 32-bit range, 0 for NaN.
std::int32_t TruncatedRate(float rate);

// Copies of records in two lists, one of them active, and the index of the
// current record (-1 when there is none). A copy is a byte copy.
class RecordingList {
 public:
  void AddCopy(const RecordingInfo& record);
  void SetCurrent(int index) { current_ = index; }
  // Removes and frees the records of both lists; the current index is 0
  // afterwards and the active list is the one that was active before.
  void Clear();

  // Which list AddCopy appends to: 0 or 1.
  void SelectList(int list) { active_ = list == 0 ? 0 : 1; }
  int ActiveList() const { return active_; }
  int CurrentIndex() const { return current_; }
  std::size_t Count(int list) const { return lists_[list == 0 ? 0 : 1].size(); }
  // The current record of the active list, or null when the index is outside it.
  const RecordingInfo* Current() const;

 private:
  std::vector<std::unique_ptr<RecordingInfo>> lists_[2];
  int active_ = 0;
  int current_ = -1;
};

}  // namespace tarnvel
