// The image and movie library: writes every output type of the converter,
// reads logo and background images, lists compressors and answers what each
// file type can do. The engine knows file types only by number.
//
// Results: 0 is success. A negative result says the call itself was wrong or
// cannot be served (no handle, a damaged header, a depth the type does not
// take, a frame after the end, a type that is not available). A positive
// result says the system failed under a correct call (the file could not be
// created or written, a codec failed, an image file is unreadable).
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/framekit/FrameHeader.h"

namespace tarnvel {

// Failures of the caller or of the request: negative.
constexpr int kFkBadHandle = -1;
constexpr int kFkBadArgument = -2;
constexpr int kFkUnsupportedDepth = -3;
constexpr int kFkTypeNotAvailable = -4;
constexpr int kFkFrameAfterEnd = -5;
constexpr int kFkUnknownType = -6;
constexpr int kFkNoDialog = -7;
// Failures of the system or of a file: positive.
constexpr int kFkCreateFailed = 1;
constexpr int kFkWriteFailed = 2;
constexpr int kFkCodecFailed = 3;
constexpr int kFkReadFailed = 4;
constexpr int kFkNotAnImage = 5;
constexpr int kFkDamagedImage = 6;
constexpr int kFkImageTooLarge = 7;
constexpr int kFkOutOfMemory = 8;

// A short English text for a result, for programs and reports.
const char* FrameKitResultText(int result);

// Capability codes of QueryCapability; the answer is 0 when the type has it.
constexpr int kCapFileTypeOffered = 1;
constexpr int kCapMultiFrameFile = 2;
constexpr int kCapDeepOutput = 3;
constexpr int kCapHasCodecDialog = 4;
constexpr int kCapMosaicOutput = 5;
constexpr int kCapHasPlaybackRate = 6;

// One open output file. Opaque to callers.
struct OutputFile;
using FrameHandle = OutputFile*;

// The extension of a type, without the dot, into text[0..capacity).
int GetExtension(int fileType, char* text, std::size_t capacity);

// Creates the file; its type comes from the path's extension. The output
// keeps a copy of `options` (null: the options in force for its type at this
// moment) until it closes: options set later, by this thread or another,
// change nothing in it. A failed open leaves *handle null and returns the failure.
int OpenOutput(const char* path, int mode, FrameHandle* handle, const FrameOptions* options = nullptr);
// Finishes the file if its last frame has not come yet, and frees the handle.
int CloseOutput(FrameHandle handle);

// Writes frame `index` of `total`; the frame of index total - 1 ends the
// file's frames. `metadata` is the 1024-byte block or null. `pixels` lie row
// after row, unpadded, in the layout of header->bits (for types 5 and 21 the
// block follows the 8-bit pixels in the same buffer).
int WriteFrame(FrameHandle handle, std::uint32_t index, std::uint32_t total,
               const FrameHeader* header, const void* metadata, const void* pixels);

// Describes the frames that follow on this output (their time, the camera,
// the recording's rate and exposure) until the next call; null forgets it.
// The writers whose format has a place for it record it. kFkBadArgument for
// a record whose size is not kCaptureInfoSize.
int SetCaptureInfo(FrameHandle handle, const CaptureInfo* info);

// Called on a finished output file: makes its contents durable on disk.
int FinishFile(const char* path, int mode, int flags);

// The description of an image file. `info` should come cleared.
int GetImageInfo(const char* path, ImageInfo* info);
// Reads the first frame of an image into `buffer`, `rows` rows of
// `rowLength` bytes: pixels in the layout of GetImageInfo's bits (grey 1 or 2
// bytes, colour blue-green-red of 3 or 6 bytes). With an alpha plane the row
// length counts one more byte a pixel: the colour rows then have
// rowLength - width bytes, and the alpha plane (a byte a pixel, rows of width
// bytes) follows the colour rows. Nothing is written past rowLength * rows.
int LoadImage(const char* path, int frame, std::uint32_t rowLength, std::uint32_t rows,
              void* buffer, int reserved);

// The options in force per type, shared by all threads of the process: the
// defaults that an output opened without options of its own takes.
int GetOptions(int fileType, FrameOptions* options);
int SetOptions(int fileType, const FrameOptions* options);

// The compressors of a type; *count holds the room on entry, the number on return.
int ListCodecs(int fileType, CodecEntry* entries, std::uint32_t* count);
int QueryCapability(int fileType, int code);
int ConfigureCodec(int fileType, CodecEntry* entry, void* owner);

}  // namespace tarnvel
