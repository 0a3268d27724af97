#include "engine/RawSource.h"

#include <cstring>
#include <string_view>

#include "platform/cordage/TextField.h"
#include "recording/ModelTable.h"

namespace tarnvel {

RawSource::RawSource() = default;

RawSource::~RawSource() { Close(); }

int RawSource::Open(const char* folder) {
  Close();
  int result = OpenRecording(folder, &handle_);
  if (result != 0) {
    handle_ = 0;
    return result;
  }
  std::memset(infoBlock_, 0, sizeof infoBlock_);
  const std::uint32_t size = kInfoBlockBytes;
  std::memcpy(infoBlock_, &size, sizeof size);
  result = LoadInfoA(handle_, infoBlock_);
  const int second = LoadInfoB(handle_, infoBlock_);
  return result != 0 ? result : second;
}

int RawSource::Close() {
  if (handle_ == 0) return 0;
  const int result = CloseRecording(handle_);
  handle_ = 0;
  return result;
}

std::uint32_t RawSource::CameraValue(std::uint32_t id) {
  std::uint32_t value = 0, second = 0;
  GetCameraValue(handle_, id, &value, &second);
  return value;
}

std::uint32_t RawSource::Property(std::uint32_t id) {
  std::uint32_t value = 0;
  GetProperty(handle_, infoBlock_, id, &value);
  return value;
}

std::uint32_t RawSource::ModelNumber() { return ModelAt(CameraValue(kCamModelIndex)); }
std::uint32_t RawSource::SerialNumber() { return CameraValue(kCamSerialNumber); }
std::uint32_t RawSource::CameraValue14() { return CameraValue(kCamValue14); }
std::uint32_t RawSource::CameraValue15() { return CameraValue(kCamValue15); }
std::uint32_t RawSource::MosaicOrder() { return CameraValue(kCamMosaicOrder); }
std::uint32_t RawSource::SubModel() { return CameraValue(kCamSubModel); }
std::uint32_t RawSource::NetworkAddress() { return CameraValue(kCamNetworkAddress); }

int RawSource::CameraModelText(char* buffer) {
  std::uint32_t second = 0;
  return GetCameraValue(handle_, kCamModelText, buffer, &second);
}

std::uint32_t RawSource::ExposureNs() { return Property(kPropExposureNs); }
std::uint32_t RawSource::PixelDepth() { return Property(kPropPixelDepth); }
std::uint32_t RawSource::PropertySix() { return Property(kPropSix); }
std::uint32_t RawSource::SizeFactor() { return Property(kPropSizeFactor); }
std::uint32_t RawSource::FrameWidth() { return Property(kPropFrameWidth); }
std::uint32_t RawSource::FrameHeight() { return Property(kPropFrameHeight); }
std::uint32_t RawSource::FramePeriodNs() { return Property(kPropFramePeriodNs); }
std::uint32_t RawSource::AutoExposureNs() { return Property(kPropAutoExposureNs); }
std::uint32_t RawSource::FrameFlag() { return Property(kPropFrameFlag); }
std::uint32_t RawSource::ResolutionSuffix() { return Property(kPropResolutionSuffix); }
std::uint32_t RawSource::Rotation() { return Property(kPropRotation); }

bool RawSource::Geometry(FrameGeometry& geometry) {
  return MakeFrameGeometry(FrameWidth(), FrameHeight(), PixelDepth(), Rotation(), geometry);
}

bool RawSource::HasCameraBlock() { return tarnvel::HasCameraBlock(ModelNumber()); }

int RawSource::ReadFrame(std::int32_t frameIndex, void* buffer) {
  return tarnvel::ReadFrame(handle_, 0, 0, frameIndex, buffer);
}

const TimeStampBlock* RawSource::FrameTime() {
  GetFrameTime(handle_, 0, &timeBlock_);
  return &timeBlock_;
}

int RawSource::SetMosaicDelivery(bool on) { return tarnvel::SetMosaicDelivery(handle_, on ? 1 : 0); }

int RawSource::GetCameraBlock(void* buffer1024) {
  return tarnvel::GetCameraBlock(handle_, buffer1024, kCameraBlockBytes);
}

int RawSource::GetGevRecords(std::uint8_t* values32, std::uint8_t* timeRecord72) {
  std::uint8_t first[32] = {}, second[32] = {}, third[128] = {};
  const int result = tarnvel::GetGevRecords(handle_, first, second, third);
  std::memcpy(values32, second, kGevValuesBytes);
  std::memcpy(timeRecord72, third, kGevTimeBytes);
  return result;
}

void RawSource::SetDeviceName(const char* text, std::uint32_t size) {
  std::size_t n = 0;
  while (text && n < size && text[n] != '\0') ++n;
  CopyText(deviceName_, std::string_view(text ? text : "", n));
}

bool RawSource::DeviceName(char* buffer, std::uint32_t size) const {
  if (size == 0) return false;
  const std::string_view name = FieldText(deviceName_);
  if (name.size() + 1 > size) {
    buffer[0] = '\0';
    return false;
  }
  CopyText(buffer, size, name);
  return true;
}

}  // namespace tarnvel
