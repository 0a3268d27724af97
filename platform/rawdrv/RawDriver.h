// The raw driver: opens the raw store of a recording folder and delivers its
// frames, frame times and camera values.
//
// Call order: DriverInit; for each recording OpenRecording, LoadInfoA,
// LoadInfoB, queries and frame reads, CloseRecording; DriverExit.
// GetFrameTime, GetCameraBlock and GetGevRecords tell about the last frame
// read. Results are 0 for success. Handles are independent: several may be
// open at once and each may be used on its own thread (one thread per handle).
#pragma once

#include <cstdint>

#include "platform/rawdrv/TimeStampBlock.h"

namespace tarnvel {

using RawHandle = std::uint64_t;

inline constexpr std::uint32_t kInfoBlockBytes = 1024;
inline constexpr std::uint32_t kCameraBlockBytes = 1024;
inline constexpr std::uint32_t kCameraTextBytes = 128;

// Ids of GetCameraValue.
enum CameraValueId : std::uint32_t {
  kCamModelIndex = 0,
  kCamSerialNumber = 6,
  kCamValue14 = 14,
  kCamValue15 = 15,
  kCamMosaicOrder = 44,
  kCamSubModel = 55,
  kCamModelText = 90,  // the first result is a text buffer of kCameraTextBytes
  kCamNetworkAddress = 201,
};

// Ids of GetProperty.
enum PropertyId : std::uint32_t {
  kPropExposureNs = 1,
  kPropPixelDepth = 3,
  kPropSix = 6,
  kPropSizeFactor = 8,
  kPropFrameWidth = 15,   // before rotation
  kPropFrameHeight = 16,  // before rotation
  kPropFramePeriodNs = 17,
  kPropAutoExposureNs = 84,  // of the last frame read
  kPropFrameFlag = 90,       // of the last frame read
  kPropResolutionSuffix = 93,
  kPropRotation = 95,
};

// Results. Positive: a request the driver refuses; negative: a frame read
// that the store can't satisfy.
enum RawResult : int {
  kRawOk = 0,
  kRawFrameOutOfRange = 1,   // ReadFrame: index outside the store
  kRawNotInitialised = 2,    // DriverInit has not been called
  kRawBadHandle = 3,         // unknown or closed handle
  kRawBadArgument = 4,       // null pointer, size or id that the call can't use
  kRawNoDescriptor = 5,      // rawfile.xml missing, unreadable or of the wrong signature
  kRawBadDescriptor = 6,     // the descriptor's values can't describe a store
  kRawNoStore = 7,           // the image store (first file) can't be opened
  kRawBadHeader = 8,         // store header damaged, of another version or unsupported
  kRawMismatch = 9,          // descriptor and header disagree
  kRawNoCalibration = 10,    // calibration asked for but missing or not of the sensor's size
  kRawInfoNotLoaded = 11,    // GetProperty before LoadInfoA and LoadInfoB on this block
  kRawNoFrameRead = 12,      // a per-frame query before any successful ReadFrame
  kRawNoCameraBlock = 13,    // the store's trailers carry no camera block
  kRawShortStore = -1,       // the file ends inside the frame record
  kRawIoError = -2,          // the read itself failed, or a segment can't be opened
  kRawWrongStoreIndex = -3,  // the record's storeIndex is not its position
  kRawSegmentMismatch = -4,  // a segment's header differs from the first one's
};

int DriverInit(std::uint16_t reserved);
int DriverExit();

// `folder` without a trailing separator. On success *handle is non-zero.
int OpenRecording(const char* folder, RawHandle* handle);
int CloseRecording(RawHandle handle);

// `first` points to a 32-bit word, or for kCamModelText to a text buffer of
// kCameraTextBytes. `second` (may be null) receives 0. An unknown id writes 0.
int GetCameraValue(RawHandle handle, std::uint32_t id, void* first, std::uint32_t* second);

// The info block is opaque but for its first word, its size, which must be
// kInfoBlockBytes. Both must be loaded before GetProperty reads it.
int LoadInfoA(RawHandle handle, void* infoBlock);
int LoadInfoB(RawHandle handle, void* infoBlock);
// *result is set to 0 first, so a failing query or an unknown id gives 0.
int GetProperty(RawHandle handle, const void* infoBlock, std::uint32_t id, std::uint32_t* result);

// Reads store frame `frameIndex` into `buffer`, which must hold the frame's
// bytes in the delivery mode in force. On failure the buffer is zero-filled.
int ReadFrame(RawHandle handle, int reservedA, int reservedB, std::int32_t frameIndex, void* buffer);
// The time of the last frame read (zeros when the last read failed).
int GetFrameTime(RawHandle handle, int reserved, TimeStampBlock* timeBlock);
// 1: deliver the sensor mosaic (one plane of sampleBits); 0: processed frames.
int SetMosaicDelivery(RawHandle handle, int on);
// Copies the 1024-byte camera block of the last frame read; `size` must be 1024.
int GetCameraBlock(RawHandle handle, void* buffer, std::uint32_t size);
// The three GEV records of the last frame read: 32, 32 and 128 bytes (zeros
// when the store carries none).
int GetGevRecords(RawHandle handle, void* first, void* second, void* third);

// Bytes that ReadFrame fills in the delivery mode in force, 0 for a bad handle.
std::uint64_t FrameBytes(RawHandle handle);

}  // namespace tarnvel
