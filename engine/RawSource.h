// The wrapper of one open recording over the raw driver. It owns the driver
// handle and the per-recording records that go with it; one thread uses it.
#pragma once

#include <cstdint>

#include "engine/FrameGeometry.h"
#include "platform/rawdrv/RawDriver.h"

namespace tarnvel {

class RawSource {
 public:
  static constexpr std::uint32_t kDeviceNameBytes = 128;
  static constexpr std::uint32_t kGevValuesBytes = 32;
  static constexpr std::uint32_t kGevTimeBytes = 72;

  RawSource();
  ~RawSource();
  RawSource(const RawSource&) = delete;
  RawSource& operator=(const RawSource&) = delete;

  // Opens the recording folder (no trailing separator) and loads the info
  // block. Returns the driver's first non-zero result, or 0.
  int Open(const char* folder);
  // Closes the handle if one is open; returns the driver's result.
  int Close();
  bool IsOpen() const { return handle_ != 0; }

  // Camera values.
  std::uint32_t ModelNumber();  // the model table index turned into a model number
  std::uint32_t SerialNumber();
  std::uint32_t CameraValue14();
  std::uint32_t CameraValue15();
  std::uint32_t MosaicOrder();
  std::uint32_t SubModel();
  std::uint32_t NetworkAddress();
  // The model text into a buffer of kCameraTextBytes characters.
  int CameraModelText(char* buffer);

  // Properties; a failing query gives 0.
  std::uint32_t ExposureNs();
  std::uint32_t PixelDepth();
  std::uint32_t PropertySix();
  std::uint32_t SizeFactor();
  std::uint32_t FrameWidth();
  std::uint32_t FrameHeight();
  std::uint32_t FramePeriodNs();
  std::uint32_t AutoExposureNs();
  std::uint32_t FrameFlag();
  std::uint32_t ResolutionSuffix();
  std::uint32_t Rotation();

  // Width from property 15, height from 16, bits from 3, turned by property 95;
  // false when the frame's bytes would not fit 32 bits.
  bool Geometry(FrameGeometry& geometry);
  // Models 11 to 13 and 20 to 22 deliver a ready metadata block with each frame.
  bool HasCameraBlock();

  // `buffer` holds Geometry().frameBytes (a third of the bits per pixel for
  // the mosaic of a colour source). Returns the driver's result.
  int ReadFrame(std::int32_t frameIndex, void* buffer);
  // The time block of the last frame read.
  const TimeStampBlock* FrameTime();
  int SetMosaicDelivery(bool on);
  int GetCameraBlock(void* buffer1024);
  // The second GEV record (32 bytes) and the first 72 bytes of the third.
  int GetGevRecords(std::uint8_t* values32, std::uint8_t* timeRecord72);

  void SetDeviceName(const char* text, std::uint32_t size);
  // Copies the name; false (and an empty buffer) when it doesn't fit `size`.
  bool DeviceName(char* buffer, std::uint32_t size) const;
  void SetTemperature(std::int32_t value) { temperature_ = value; }
  std::int32_t Temperature() const { return temperature_; }

  RawHandle Handle() const { return handle_; }

 private:
  std::uint32_t CameraValue(std::uint32_t id);
  std::uint32_t Property(std::uint32_t id);

  RawHandle handle_ = 0;
  alignas(4) std::uint8_t infoBlock_[kInfoBlockBytes] = {};
  std::int32_t temperature_ = 0;
  char deviceName_[kDeviceNameBytes] = {};
  TimeStampBlock timeBlock_{};
};

}  // namespace tarnvel
