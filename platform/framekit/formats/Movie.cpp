// The movie writer: AVI, MPEG, MP4, QuickTime and Windows Media through
// FFmpeg. One writer serves every movie type; the type's descriptor says the
// muxer and its compressors, and the output keeps the options it was opened
// with. The encoder opens with the
// first frame, when the geometry and rate are known, and lives until the file
// ends. The file goes out through our own I/O callbacks on the descriptor that
// the library created, so a failed write is seen as it happens.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "platform/cordage/TextField.h"
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/MovieCodecs.h"
#include "platform/framekit/PixelRows.h"

namespace tarnvel::framekit {
namespace {

// How a compressor's quality reaches its encoder.
enum class QualityScale {
  kNone,    // lossless or fixed-rate: no quality
  kQScale,  // FFmpeg's quantiser scale, 31 (worst) to 2 (best)
  kCrf,     // x264's constant rate factor, 45 (worst) to 10 (best) of its 51 to 0
};

// How each compressor of the movie types' lists is driven in FFmpeg.
struct Encoder {
  std::uint32_t handler;
  const char* ffmpegName;
  AVPixelFormat greyFormat;    // what the encoder takes from grey frames
  AVPixelFormat colourFormat;  // and from colour frames
  QualityScale scale;
  const char* preset;  // x264 only
  const char* profile;  // ProRes only
};

constexpr Encoder kEncoders[] = {
    {kMovieMotionJpeg, "mjpeg", AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUVJ420P,
     QualityScale::kQScale, nullptr, nullptr},
    // Raw AVI frames are 24-bit blue-green-red, which every player shows.
    {kMovieRaw, "rawvideo", AV_PIX_FMT_BGR24, AV_PIX_FMT_BGR24,
     QualityScale::kNone, nullptr, nullptr},
    {kMovieFfv1, "ffv1", AV_PIX_FMT_GRAY8, AV_PIX_FMT_0RGB32, QualityScale::kNone,
     nullptr, nullptr},
    {kMovieH264, "libx264", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P,
     QualityScale::kCrf, "medium", nullptr},
    {kMovieH264Fast, "libx264", AV_PIX_FMT_YUV420P,
     AV_PIX_FMT_YUV420P, QualityScale::kCrf, "ultrafast", nullptr},
    {kMovieMpeg1, "mpeg1video", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P,
     QualityScale::kQScale, nullptr, nullptr},
    {kMovieMpeg2, "mpeg2video", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P,
     QualityScale::kQScale, nullptr, nullptr},
    {kMovieProRes, "prores_ks", AV_PIX_FMT_YUV422P10LE, AV_PIX_FMT_YUV422P10LE,
     QualityScale::kNone, nullptr, "standard"},
    {kMovieWmv, "wmv2", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P,
     QualityScale::kQScale, nullptr, nullptr},
};

// Where the type's options carry no quality (every type but AVI), the
// encoders run at a fixed one that keeps detail, as a measurement movie wants.
constexpr int kFixedQScale = 3;
constexpr double kFixedCrf = 17.0;

const Encoder* FindEncoder(std::uint32_t handler) {
  for (const Encoder& encoder : kEncoders)
    if (encoder.handler == handler) return &encoder;
  return nullptr;
}

bool Lists(const FileTypeDescriptor& type, std::uint32_t handler) {
  return handler != 0 && std::any_of(type.codecs.begin(), type.codecs.end(),
                                     [handler](const CodecEntry& c) { return c.handler == handler; });
}

// The quality an AVI is written at. 0 is what the options hold when none was
// given (an argument file that names no compressor leaves it 0): it takes the
// library's default. A chosen quality runs from 1, which is already as coarse
// as every scale goes, to 10000.
std::uint32_t AviQuality(const FrameOptions& options) {
  return options.quality == 0 ? kDefaultAviQuality : std::min<std::uint32_t>(options.quality, 10000);
}

// Quality 1 to 10000 onto the encoder's own scale, monotonically. x264 is
// kept away from both ends: past 45 nothing is left to see, and below 10 the
// file only grows.
int QScaleOf(std::uint32_t quality) { return 31 - static_cast<int>((quality * 29 + 5000) / 10000); }
double CrfOf(std::uint32_t quality) { return 45.0 - quality * 35.0 / 10000.0; }

// The header's rate is a float: whole rates and the 1000/1001 television
// rates are recognised, others kept to five digits.
AVRational RateOf(double rate) {
  const double whole = std::round(rate);
  if (std::abs(rate - whole) < 1e-4 * rate) return AVRational{static_cast<int>(whole), 1};
  const double television = std::round(rate * 1.001);
  if (std::abs(rate - television / 1.001) < 1e-4 * rate) return AVRational{static_cast<int>(television) * 1000, 1001};
  return av_d2q(rate, 100000);
}

// FFmpeg speaks to stderr only about errors.
void QuietFfmpeg() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_ERROR); });
}

struct FormatContextDeleter {
  void operator()(AVFormatContext* c) const { avformat_free_context(c); }
};
struct CodecContextDeleter {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameDeleter {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketDeleter {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct ScalerDeleter {
  void operator()(SwsContext* s) const { sws_freeContext(s); }
};
struct IoDeleter {
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};

class MovieWriter final : public FrameWriter {
 public:
  MovieWriter(int fd, const FileTypeDescriptor& type, const FrameOptions& options)
      : fd_(fd), type_(type), movie_(*type.movie), options_(options) {}
  ~MovieWriter() override {
    if (fd_ >= 0) ::close(fd_);
  }

  int Write(const FrameData& frame) override {
    if (failed_) return failure_;  // the muxer refuses all once its file failed
    if (!format_) {
      if (const int result = Start(*frame.header); result != 0) return result;
    } else if (frame.header->width != width_ || frame.header->height != height_ ||
               frame.header->bits != bits_) {
      return kFkBadArgument;  // one geometry per movie
    }
    if (const int result = Convert(frame.pixels); result != 0) return result;
    picture_->pts = nextPts_++;
    if (const int result = Encode(picture_.get()); result != 0) return result;
    // What the muxer has finished goes to the disk now: the file then ends on
    // a whole packet or fragment, and that is where a later failure cuts it.
    avio_flush(io_.get());
    if (ioError_) return Failure(kFkWriteFailed);
    struct stat info {};
    if (::fstat(fd_, &info) == 0) wholeBytes_ = info.st_size;
    return 0;
  }

  int Finish() override {
    if (format_ && !failed_) {
      if (Encode(nullptr) == 0 && av_write_trailer(format_.get()) < 0) Failure(kFkWriteFailed);
      avio_flush(io_.get());
      if (ioError_) Failure(kFkWriteFailed);
    } else if (failed_ && headerWritten_ && !ioError_) {
      av_write_trailer(format_.get());  // after an encoder failure the file is still whole: finish it
    }
    // A part-written packet or fragment would hide the whole ones before it
    // from readers: the file ends where the last whole frame ended.
    if (ioError_ && wholeBytes_ > 0) CutTo(wholeBytes_);
    int result = failed_ ? failure_ : CheckStillLinked();
    if (fd_ >= 0 && ::close(fd_) != 0 && result == 0) result = kFkWriteFailed;
    fd_ = -1;
    return result;
  }

 private:
  int Failure(int result) {
    if (!failed_) {
      failed_ = true;
      failure_ = result;
    }
    return result;
  }

  void CutTo(off_t bytes) const {
    [[maybe_unused]] const int cut = ::ftruncate(fd_, bytes);
  }

  // A file whose folder vanished while it was written is gone with it.
  int CheckStillLinked() const {
    struct stat info {};
    if (fd_ >= 0 && ::fstat(fd_, &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink == 0)
      return kFkWriteFailed;
    return 0;
  }

  static int WritePacket(void* opaque, std::uint8_t* data, int size) {
    auto* self = static_cast<MovieWriter*>(opaque);
    while (size > 0) {
      const ssize_t n = ::write(self->fd_, data, static_cast<std::size_t>(size));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        self->ioError_ = true;
        return AVERROR(n < 0 ? errno : EIO);
      }
      data += n;
      size -= static_cast<int>(n);
    }
    return 0;
  }

  static std::int64_t Seek(void* opaque, std::int64_t offset, int whence) {
    auto* self = static_cast<MovieWriter*>(opaque);
    if (whence & AVSEEK_SIZE) {
      struct stat info {};
      return ::fstat(self->fd_, &info) == 0 ? info.st_size : AVERROR(errno);
    }
    const off_t at = ::lseek(self->fd_, offset, whence & ~AVSEEK_FORCE);
    return at < 0 ? AVERROR(errno) : at;
  }

  std::uint32_t ChosenHandler() const {
    // A compressor that this type does not list (the MPEG options also choose
    // for MP4) leaves the type's default.
    return Lists(type_, options_.handler) ? options_.handler : type_.codecs.front().handler;
  }


  int Start(const FrameHeader& header) {
    QuietFfmpeg();
    width_ = header.width;
    height_ = header.height;
    bits_ = header.bits;
    colour_ = FormatOfDepth(header.bits).channels == 3;
    const Encoder& encoder = *FindEncoder(ChosenHandler());
    const AVCodec* codec = avcodec_find_encoder_by_name(encoder.ffmpegName);
    if (codec == nullptr) return Failure(kFkCodecFailed);
    const AVPixelFormat target = colour_ ? encoder.colourFormat : encoder.greyFormat;

    AVFormatContext* rawFormat = nullptr;
    if (avformat_alloc_output_context2(&rawFormat, nullptr, movie_.muxer, nullptr) < 0 || !rawFormat)
      return Failure(kFkCodecFailed);
    format_.reset(rawFormat);

    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kIoBufferSize));
    if (buffer == nullptr) return Failure(kFkOutOfMemory);
    io_.reset(avio_alloc_context(buffer, kIoBufferSize, 1, this, nullptr, &WritePacket, &Seek));
    if (!io_) {
      av_free(buffer);
      return Failure(kFkOutOfMemory);
    }
    format_->pb = io_.get();
    format_->flags |= AVFMT_FLAG_CUSTOM_IO;

    // Encoders that keep colour at half resolution need an even size: an odd
    // width or height grows by one, repeating the last column or row.
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(target);
    const std::uint32_t alignW = 1u << desc->log2_chroma_w, alignH = 1u << desc->log2_chroma_h;
    codedWidth_ = (width_ + alignW - 1) / alignW * alignW;
    codedHeight_ = (height_ + alignH - 1) / alignH * alignH;

    codec_.reset(avcodec_alloc_context3(codec));
    if (!codec_) return Failure(kFkOutOfMemory);
    AVCodecContext& c = *codec_;
    c.width = static_cast<int>(codedWidth_);
    c.height = static_cast<int>(codedHeight_);
    c.pix_fmt = target;
    c.sample_aspect_ratio = AVRational{1, 1};
    // The playback rate; a rate that is not a positive number plays at 25.
    double rate = std::isfinite(header.rate) && header.rate > 0 ? header.rate : 25.0;
    // MPEG-1/2 code at most 240 frames per second (60 with the largest rate
    // extension); a faster playback rate keeps every frame and plays at 240.
    const bool mpeg = encoder.handler == kMovieMpeg1 || encoder.handler == kMovieMpeg2;
    if (mpeg) rate = std::min(rate, 240.0);
    const AVRational frameRate = RateOf(rate);
    c.framerate = frameRate;
    c.time_base = av_inv_q(frameRate);
    c.thread_count = 0;
    // A key frame about every second, at most every 250 frames.
    c.gop_size = std::clamp(static_cast<int>(std::lround(rate)), 1, 250);
    if (mpeg) {
      c.max_b_frames = 2;
      c.gop_size = std::min(c.gop_size, 15);
      // Rates other than the broadcast ones, as FFmpeg can code them.
      c.strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    }
    if (target == AV_PIX_FMT_YUV420P || target == AV_PIX_FMT_YUV422P10LE) {
      c.color_range = AVCOL_RANGE_MPEG;
      c.colorspace = AVCOL_SPC_SMPTE170M;
      c.color_primaries = AVCOL_PRI_SMPTE170M;
      c.color_trc = AVCOL_TRC_SMPTE170M;
    }
    if (format_->oformat->flags & AVFMT_GLOBALHEADER) c.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const bool fromOptions = movie_.qualityFromOptions;
    const std::uint32_t quality = AviQuality(options_);
    switch (encoder.scale) {
      case QualityScale::kQScale: {
        const int scale = fromOptions ? QScaleOf(quality) : kFixedQScale;
        c.flags |= AV_CODEC_FLAG_QSCALE;
        c.global_quality = FF_QP2LAMBDA * scale;
        c.qmin = c.qmax = scale;
        // A fixed quantiser has no bit rate; the default one would make the
        // MPEG muxer size its buffers for 200 kbit/s and run them dry.
        c.bit_rate = 0;
        break;
      }
      case QualityScale::kCrf:
        av_opt_set_double(c.priv_data, "crf", fromOptions ? CrfOf(quality) : kFixedCrf, 0);
        break;
      case QualityScale::kNone:
        break;
    }
    if (encoder.preset) av_opt_set(c.priv_data, "preset", encoder.preset, 0);
    if (encoder.profile) av_opt_set(c.priv_data, "profile", encoder.profile, 0);
    if (avcodec_open2(&c, codec, nullptr) < 0) return Failure(kFkCodecFailed);

    AVStream* stream = avformat_new_stream(format_.get(), nullptr);
    if (stream == nullptr) return Failure(kFkOutOfMemory);
    stream->time_base = c.time_base;
    stream->avg_frame_rate = frameRate;
    stream->r_frame_rate = frameRate;
    stream->sample_aspect_ratio = c.sample_aspect_ratio;
    if (avcodec_parameters_from_context(stream->codecpar, &c) < 0) return Failure(kFkCodecFailed);
    if (encoder.handler == kMovieRaw) stream->codecpar->codec_tag = 0;

    AVDictionary* options = nullptr;
    if (movie_.fragmented) av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
    const int header_result = avformat_write_header(format_.get(), &options);
    av_dict_free(&options);
    if (header_result < 0) return Failure(ioError_ ? kFkWriteFailed : kFkCodecFailed);
    headerWritten_ = true;

    picture_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    if (!picture_ || !packet_) return Failure(kFkOutOfMemory);
    picture_->format = target;
    picture_->width = c.width;
    picture_->height = c.height;
    if (av_frame_get_buffer(picture_.get(), 0) < 0) return Failure(kFkOutOfMemory);

    const AVPixelFormat source = colour_ ? AV_PIX_FMT_BGR24 : AV_PIX_FMT_GRAY8;
    scaler_.reset(sws_getContext(c.width, c.height, source, c.width, c.height, target,
                                 SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!scaler_) return Failure(kFkCodecFailed);
    // Grey and RGB targets take the samples as they come. For YUV targets:
    if (!(desc->flags & AV_PIX_FMT_FLAG_RGB) && target != AV_PIX_FMT_GRAY8) {
      // grey and colour frames are full range; Motion JPEG keeps the full
      // range, the others take limited range. BT.601 throughout: it is what
      // decoders assume when a stream (MPEG-1, WMV) cannot say.
      const bool fullRange = target == AV_PIX_FMT_YUVJ420P;
      const int* coefficients = sws_getCoefficients(SWS_CS_ITU601);
      sws_setColorspaceDetails(scaler_.get(), coefficients, 1, coefficients, fullRange ? 1 : 0, 0, 1 << 16,
                               1 << 16);
    }
    if (codedWidth_ != width_ || codedHeight_ != height_)
      padded_.resize(std::size_t{codedWidth_} * codedHeight_ * (colour_ ? 3 : 1));
    return 0;
  }

  // The frame into the encoder's pixel format; padding first when the coded
  // size is larger than the frame.
  int Convert(const std::uint8_t* pixels) {
    const std::size_t pixelBytes = colour_ ? 3 : 1;
    const std::size_t rowBytes = width_ * pixelBytes;
    const std::uint8_t* source = pixels;
    std::size_t sourceStride = rowBytes;
    if (!padded_.empty()) {
      const std::size_t paddedRow = codedWidth_ * pixelBytes;
      for (std::uint32_t y = 0; y < codedHeight_; ++y) {
        const std::uint8_t* from = pixels + std::min(y, height_ - 1) * rowBytes;
        std::uint8_t* to = padded_.data() + y * paddedRow;
        std::memcpy(to, from, rowBytes);
        for (std::size_t x = rowBytes; x < paddedRow; x += pixelBytes)
          std::memcpy(to + x, from + rowBytes - pixelBytes, pixelBytes);
      }
      source = padded_.data();
      sourceStride = paddedRow;
    }
    if (av_frame_make_writable(picture_.get()) < 0) return Failure(kFkOutOfMemory);
    // sws_scale reads four planes and strides whatever the format: the unused ones must be set.
    const std::uint8_t* planes[4] = {source, nullptr, nullptr, nullptr};
    const int strides[4] = {static_cast<int>(sourceStride), 0, 0, 0};
    if (sws_scale(scaler_.get(), planes, strides, 0, static_cast<int>(codedHeight_), picture_->data,
                  picture_->linesize) != static_cast<int>(codedHeight_))
      return Failure(kFkCodecFailed);
    return 0;
  }

  // Sends a picture (null: the end) and writes every packet that comes out.
  int Encode(AVFrame* picture) {
    if (avcodec_send_frame(codec_.get(), picture) < 0) return Failure(kFkCodecFailed);
    for (;;) {
      const int received = avcodec_receive_packet(codec_.get(), packet_.get());
      if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) return 0;
      if (received < 0) return Failure(kFkCodecFailed);
      AVStream* stream = format_->streams[0];
      av_packet_rescale_ts(packet_.get(), codec_->time_base, stream->time_base);
      packet_->stream_index = 0;
      const int written = av_interleaved_write_frame(format_.get(), packet_.get());
      if (written < 0 || ioError_) return Failure(ioError_ ? kFkWriteFailed : kFkCodecFailed);
    }
  }

  static constexpr int kIoBufferSize = 1 << 18;

  int fd_;
  const FileTypeDescriptor& type_;
  const MovieFormat& movie_;
  const FrameOptions options_;  // as the output was opened
  std::unique_ptr<AVFormatContext, FormatContextDeleter> format_;
  std::unique_ptr<AVIOContext, IoDeleter> io_;
  std::unique_ptr<AVCodecContext, CodecContextDeleter> codec_;
  std::unique_ptr<AVFrame, FrameDeleter> picture_;
  std::unique_ptr<AVPacket, PacketDeleter> packet_;
  std::unique_ptr<SwsContext, ScalerDeleter> scaler_;
  std::vector<std::uint8_t> padded_;
  std::uint32_t width_ = 0, height_ = 0, bits_ = 0, codedWidth_ = 0, codedHeight_ = 0;
  bool colour_ = false;
  std::int64_t nextPts_ = 0;
  bool ioError_ = false;
  bool headerWritten_ = false;
  off_t wholeBytes_ = 0;  // the file up to the last frame that reached it whole
  bool failed_ = false;
  int failure_ = 0;
};

}  // namespace

std::unique_ptr<FrameWriter> CreateMovieWriter(const WriterStart& start, int* result) {
  if (start.type.movie == nullptr || start.type.codecs.empty()) {
    ::close(start.fd);
    *result = kFkTypeNotAvailable;
    return nullptr;
  }
  return std::make_unique<MovieWriter>(start.fd, start.type, start.options);
}

}  // namespace tarnvel::framekit
