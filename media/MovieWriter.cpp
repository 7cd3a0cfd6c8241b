// SPDX-License-Identifier: BSD-3-Clause
//
// The file is written through FFmpeg under its temporary name; its own buffer remembers whether a
// byte was refused, which not every muxer passes on.
#include "media/MovieWriter.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/timecode.h>
}

#include "base/Error.h"
#include "media/MovieCodec.h"
#include "media/MovieColour.h"
#include "media/MovieLibrary.h"
#include "media/MovieSound.h"
#include "media/MovieTags.h"
#include "media/Movies.h"
#include "media/PendingFile.h"

namespace orvanite::media {
namespace {

MovieColour colourFor(AVPixelFormat format, const MovieOptions& options) {
  MovieColour colour;
  colour.primaries = static_cast<AVColorPrimaries>(options.facts.primaries);
  colour.transfer = static_cast<AVColorTransferCharacteristic>(options.facts.transfer);
  if (isRgb(format)) {
    colour.matrix = AVCOL_SPC_RGB;
    colour.range = AVCOL_RANGE_JPEG;
    return colour;
  }
  const std::array known{AVCOL_SPC_BT709, AVCOL_SPC_BT470BG, AVCOL_SPC_SMPTE170M,
                         AVCOL_SPC_BT2020_NCL};
  const auto matrix = static_cast<AVColorSpace>(options.facts.matrix);
  if (std::find(known.begin(), known.end(), matrix) != known.end()) colour.matrix = matrix;
  colour.range = AVCOL_RANGE_MPEG;
  colour.complete(format, options.frame.height);
  return colour;
}

// The time code of the first frame written.
std::string timeCodeFor(const MovieOptions& options) {
  AVTimecode code;
  const AVRational rate{options.facts.frameRate.numerator, options.facts.frameRate.denominator};
  if (options.facts.timeCode.empty() ||
      av_timecode_init_from_string(&code, rate, options.facts.timeCode.c_str(), nullptr) < 0) {
    return "";
  }
  std::array<char, AV_TIMECODE_STR_SIZE> text{};
  return av_timecode_make_string(&code, text.data(), options.firstFrame);
}

class FileOutput : public MovieWriter::Output {
 public:
  FileOutput(const std::string& path, const MovieOptions& options)
      : path_(path), options_(options), codec_(movieCodecFor(options.codec, path)), file_(path) {
    quietMovies();
    const Window& frame = options.frame;
    if (codec_.evenSize && (frame.width % 2 != 0 || frame.height % 2 != 0)) {
      throw Error(Fault::wrongUse, path,
                  std::string(codec_.name) + " takes an even width and height, found " +
                      std::to_string(frame.width) + "x" + std::to_string(frame.height));
    }
    format_ = options.samples == Samples::uint8 ? codec_.shallow : codec_.deep;
    try {
      openEncoder();
      openFile();
    } catch (...) {
      close();
      throw;
    }
    if (options.alpha && !hasAlpha(format_))
      notices_.push_back(std::string(codec_.name) + " holds no alpha");
    if (depthOf(options.samples) != Depth::bytes && samplesOf(format_) == Samples::uint8) {
      notices_.push_back(std::string(codec_.name) + " is written in 8 bits");
    } else if (depthOf(options.samples) == Depth::floats) {
      notices_.emplace_back("values below 0 and above 1 are clipped");
    }
    for (std::string& notice : notices_) notice.insert(0, path + ": ");
  }

  ~FileOutput() override { close(); }
  FileOutput(const FileOutput&) = delete;
  FileOutput& operator=(const FileOutput&) = delete;

  const std::vector<std::string>& notices() const override { return notices_; }

  std::shared_ptr<AVFrame> prepare(const Picture& picture) override {
    if (picture.data == options_.frame) return converter_->fromPicture(picture);
    Picture copy = Picture::make(picture.data, picture.depth, picture.samples);
    std::copy_n(picture.pixels.get(), picture.bytes(), copy.pixels.get());
    return converter_->fromPicture(placed(std::move(copy), options_.frame));
  }

  void write(AVFrame* frame) override {
    if (frame != nullptr) {
      frame->pts = written_++;
      frame->sample_aspect_ratio = encoder_->sample_aspect_ratio;
      frame->pict_type = AV_PICTURE_TYPE_NONE;
    }
    check(avcodec_send_frame(encoder_.get(), frame), "cannot be encoded: ");
    while (true) {
      const int got = avcodec_receive_packet(encoder_.get(), packet_.get());
      if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) break;
      check(got, "cannot be encoded: ");
      packet_->stream_index = 0;
      packet_->duration = 1;
      av_packet_rescale_ts(packet_.get(), encoder_->time_base, context_->streams[0]->time_base);
      check(av_interleaved_write_frame(context_, packet_.get()), "cannot be written: ");
      checkFile();
    }
    if (sound_) {
      sound_->copyUpTo(static_cast<double>(written_) * av_q2d(encoder_->time_base), path_);
    }
  }

  void finish() override {
    write(nullptr);
    if (sound_) sound_->copyUpTo(1e12, path_);
    check(av_write_trailer(context_), "cannot be written: ");
    avio_flush(context_->pb);
    checkFile();
    file_.commit();
  }

 private:
  void check(int result, const char* what) const {
    if (result < 0) throw Error(Fault::failure, path_, what + movieProblem(result));
  }

  void checkFile() const {
    if (context_->pb->error < 0) check(context_->pb->error, "cannot be written: ");
  }

  void openEncoder() {
    const AVCodec* found = avcodec_find_encoder_by_name(codec_.encoder);
    if (found == nullptr) {
      throw Error(Fault::failure, path_,
                  std::string("this FFmpeg has no encoder ") + codec_.encoder);
    }
    const MovieColour colour = colourFor(format_, options_);
    converter_.emplace(MovieConverter::Direction::fromPicture, format_, colour,
                       options_.frame.width, options_.frame.height);
    encoder_.reset(avcodec_alloc_context3(found));
    if (!encoder_) throw Error(Fault::failure, path_, "out of memory");
    const Ratio& rate = options_.facts.frameRate;
    encoder_->width = options_.frame.width;
    encoder_->height = options_.frame.height;
    encoder_->pix_fmt = format_;
    encoder_->time_base = {rate.denominator, rate.numerator};
    encoder_->framerate = {rate.numerator, rate.denominator};
    if (const Ratio& aspect = options_.facts.pixelAspect; aspect.numerator > 0) {
      av_reduce(&encoder_->sample_aspect_ratio.num, &encoder_->sample_aspect_ratio.den,
                aspect.numerator, aspect.denominator, 1 << 20);
    }
    encoder_->colorspace = colour.matrix;
    encoder_->color_range = colour.range;
    encoder_->color_primaries = colour.primaries;
    encoder_->color_trc = colour.transfer;
    encoder_->chroma_sample_location = colour.siting;
    encoder_->field_order = AV_FIELD_PROGRESSIVE;
    encoder_->thread_count = options_.threads;
    encoder_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    check(avformat_alloc_output_context2(&context_, nullptr, nullptr, file_.temporary().c_str()),
          "cannot be written: ");
    // No numbers of chance, no library's version, no time of day.
    context_->flags |= AVFMT_FLAG_BITEXACT;
    encoder_->flags |= AV_CODEC_FLAG_BITEXACT;
    if ((context_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
      encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    AVDictionary* settings = settingsOf(codec_, options_.strength);
    const std::string light = x265Light(options_.facts);
    if (!light.empty() && av_dict_get(settings, "x265-params", nullptr, 0) != nullptr) {
      av_dict_set(&settings, "x265-params", (":" + light).c_str(), AV_DICT_APPEND);
    }
    const int opened = avcodec_open2(encoder_.get(), found, &settings);
    const int unknown = av_dict_count(settings);
    av_dict_free(&settings);
    check(opened, "cannot be encoded: ");
    if (unknown > 0) {
      throw Error(Fault::failure, path_,
                  std::string("the encoder ") + codec_.encoder + " lacks a setting");
    }
  }

  void openFile() {
    AVStream* stream = avformat_new_stream(context_, nullptr);
    if (stream == nullptr) throw Error(Fault::failure, path_, "out of memory");
    check(avcodec_parameters_from_context(stream->codecpar, encoder_.get()), "cannot be written: ");
    stream->time_base = encoder_->time_base;
    stream->avg_frame_rate = encoder_->framerate;
    stream->sample_aspect_ratio = encoder_->sample_aspect_ratio;
    // The other tag, hev1, is one that Apple's players do not know.
    if (encoder_->codec_id == AV_CODEC_ID_HEVC &&
        av_codec_get_id(context_->oformat->codec_tag, MKTAG('h', 'v', 'c', '1')) ==
            AV_CODEC_ID_HEVC) {
      stream->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
    }
    const double frame = av_q2d(encoder_->time_base);
    writeTags(options_.facts, options_.firstFrame * frame, options_.frameCount * frame, *context_,
              *stream);
    if (const std::string code = timeCodeFor(options_); !code.empty()) {
      av_dict_set(&stream->metadata, "timecode", code.c_str(), 0);
    }
    if (options_.sound && !options_.facts.sound.empty()) {
      const double start = options_.facts.start + options_.firstFrame * frame;
      sound_.emplace(
          options_.facts.sound, start, options_.firstFrame == 0 ? MovieSound::open : start,
          options_.toTheEnd ? MovieSound::open : start + options_.frameCount * frame, *context_);
      if (options_.soundAsked && !sound_->notice().empty()) {
        throw Error(Fault::wrongUse, "--sound", sound_->refusal());
      }
      if (!sound_->notice().empty()) notices_.push_back(sound_->notice());
    }
    context_->pb = bytes_.get();
    check(avformat_write_header(context_, nullptr), "cannot be written: ");
    checkClock(*stream);
  }

  // Frames closer to one another than the container's clock ticks would share a time.
  void checkClock(const AVStream& stream) const {
    if (av_cmp_q(encoder_->time_base, stream.time_base) >= 0) return;
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "expected at most %.10g frames a second, found %.10g",
                  1 / av_q2d(stream.time_base), av_q2d(encoder_->framerate));
    throw Error(Fault::wrongUse, path_, std::string(text.data()) + "; .mov holds them");
  }

  void close() {
    if (context_ == nullptr) return;
    sound_.reset();
    avformat_free_context(context_);
    context_ = nullptr;
  }

  std::string path_;
  MovieOptions options_;
  const MovieCodec& codec_;
  PendingFile file_;
  MovieBytes bytes_ = bytesTo(file_.descriptor());
  AVPixelFormat format_ = AV_PIX_FMT_NONE;
  std::optional<MovieConverter> converter_;
  MovieCodecContext encoder_;
  AVFormatContext* context_ = nullptr;
  std::optional<MovieSound> sound_;
  MoviePacket packet_ = newMoviePacket();
  std::int64_t written_ = 0;
  std::vector<std::string> notices_;
};

}  // namespace

std::unique_ptr<MovieWriter::Output> writeMovie(const std::string& path,
                                                const MovieOptions& options) {
  return std::make_unique<FileOutput>(path, options);
}

}  // namespace orvanite::media
