// SPDX-License-Identifier: BSD-3-Clause
//
// Decoding is done in order; colours are converted, and frames turned, by whoever wants the
// picture.
#include "media/MovieSource.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/bswap.h>
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
#include <libavutil/timecode.h>
}

#include "base/Error.h"
#include "media/InputFile.h"
#include "media/MovieColour.h"
#include "media/MovieDecoder.h"
#include "media/MovieTags.h"
#include "media/Movies.h"
#include "media/Orientation.h"

namespace orvanite::media {
namespace {

constexpr std::int64_t pixelLimit = std::int64_t{1} << 28;

std::string timeCodeOf(const AVFormatContext& format, const AVStream& video) {
  const AVDictionaryEntry* found = av_dict_get(video.metadata, "timecode", nullptr, 0);
  if (found == nullptr) found = av_dict_get(format.metadata, "timecode", nullptr, 0);
  for (unsigned i = 0; found == nullptr && i < format.nb_streams; ++i) {
    found = av_dict_get(format.streams[i]->metadata, "timecode", nullptr, 0);
  }
  return found == nullptr ? "" : found->value;
}

bool hasSound(const AVFormatContext& format) {
  for (unsigned i = 0; i < format.nb_streams; ++i) {
    if (format.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) return true;
  }
  return false;
}

// How a player turns the frames, in whole quarters. Throws Error (failure) for any other angle.
Orientation orientationOf(const AVStream& stream, const std::string& path) {
  const std::uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
  if (matrix == nullptr) return 1;
  std::array<std::int32_t, 9> values{};
  std::memcpy(values.data(), matrix, sizeof values);
  // x' = a x + c y, y' = b x + d y: only signs count, as one pair is 0.
  const auto sign = [&](std::size_t i) { return values[i] > 0 ? 1 : values[i] < 0 ? -1 : 0; };
  const std::array<int, 4> abcd{sign(0), sign(1), sign(3), sign(4)};
  constexpr std::array<std::array<int, 4>, 8> ways{{{1, 0, 0, 1},
                                                    {-1, 0, 0, 1},
                                                    {-1, 0, 0, -1},
                                                    {1, 0, 0, -1},
                                                    {0, 1, 1, 0},
                                                    {0, 1, -1, 0},
                                                    {0, -1, -1, 0},
                                                    {0, -1, 1, 0}}};
  const auto* found = std::find(ways.begin(), ways.end(), abcd);
  if (found != ways.end()) return static_cast<Orientation>(found - ways.begin()) + 1;
  throw Error(Fault::failure, path,
              "expected a movie to be turned by quarters when it is shown, found " +
                  std::to_string(std::lround(-av_display_rotation_get(values.data()))) +
                  " degrees; turn it first");
}

template <class Code>
void moveChannel(Picture& picture, std::size_t from) {
  auto* codes = reinterpret_cast<Code*>(picture.pixels.get());
  const std::size_t count = picture.bytes() / sizeof(Code);
  for (std::size_t i = 0; i < count; i += 4) codes[i + 3] = codes[i + from];
}

class MovieSource : public Source {
 public:
  MovieSource(const std::string& path, const OpenOptions& how) : decoder_(path, how) {
    if (!how.picture.part.empty() || !how.picture.layer.empty()) {
      throw Error(Fault::wrongUse, path, "expected an OpenEXR file to take a part or layer of");
    }
    const AVStream& video = decoder_.stream();
    const AVCodecParameters& stated = *video.codecpar;
    const AVCodecContext& codec = decoder_.codec();
    if (stated.width < 1 || stated.height < 1 || stated.width > 65535 || stated.height > 65535 ||
        std::int64_t{stated.width} * stated.height > pixelLimit) {
      throw Error(Fault::failure, path,
                  "expected frames of 1x1 to 65535x65535 and no more than 268435456 pixels");
    }
    checkMemory(path, static_cast<std::uint64_t>(stated.width) *
                          static_cast<std::uint64_t>(stated.height) * 8);
    // Only a decoded frame tells what frames really are.
    const MovieFrame first = decoder_.frame(1);
    format_ = static_cast<AVPixelFormat>(first->format);
    colour_ = MovieColour::of(*first, stated);
    if (!how.matrix.empty()) {
      if (isRgb(format_) || av_pix_fmt_desc_get(format_)->nb_components <= 2) {
        throw Error(Fault::wrongUse, path, "its pixels need no matrix, found " + how.matrix);
      }
      colour_.matrix = matrixOf(how.matrix, "matrix");
    }
    orientation_ = orientationOf(video, path);
    describe(path, stated, codec);
    describeShot(path, video, *first);
  }

  bool sequential() const override { return true; }
  std::string fileOf(int) const override { return decoder_.path(); }

  std::function<Picture()> begin(int frame, const Request& request) override {
    MovieFrame decoded = decoder_.frame(frame);
    if (decoded->format != format_) {
      throw Error(Fault::failure, decoder_.path(),
                  "frame " + std::to_string(frame) + " has another pixel format than the first");
    }
    return [this, decoded, frame, request] { return finish(*decoded, frame, request); };
  }

 private:
  void describe(const std::string& path, const AVCodecParameters& stated,
                const AVCodecContext& codec) {
    const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format_);
    if ((pixels.flags & (AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_FLOAT)) != 0 ||
        sws_isSupportedInput(format_) == 0) {
      throw Error(Fault::failure, path,
                  std::string("pixels of the format ") + pixels.name + " cannot be keyed");
    }
    info_.path = path;
    info_.format = std::string(avcodec_get_name(codec.codec_id)) + " movie";
    const bool side = liesOnItsSide(orientation_);
    info_.data = info_.display = {0, 0, side ? stated.height : stated.width,
                                  side ? stated.width : stated.height};
    info_.orientation = orientation_;
    info_.samples = samplesOf(format_);
    info_.bits = pixels.comp[0].depth;
    info_.hasAlpha = hasAlpha(format_);
    grey_ = pixels.nb_components <= 2 && (pixels.flags & AV_PIX_FMT_FLAG_PAL) == 0;
    info_.channels = {"R", "G", "B"};
    if (info_.hasAlpha) info_.channels.emplace_back("A");
    if (const char* name = av_color_space_name(colour_.matrix);
        colour_.matrix == AVCOL_SPC_YCGCO || colour_.matrix == AVCOL_SPC_BT2020_CL ||
        colour_.matrix == AVCOL_SPC_ICTCP || colour_.matrix == AVCOL_SPC_SMPTE2085 ||
        colour_.matrix == AVCOL_SPC_CHROMA_DERIVED_CL) {
      throw Error(Fault::failure, path,
                  std::string("colours by the matrix ") + (name != nullptr ? name : "given") +
                      " cannot be converted");
    }
    notice_ = colour_.complete(format_, stated.height);
    if (!notice_.empty()) notice_ = "not tagged; taken to have " + notice_;
    if (notice_.find("matrix") != std::string::npos) notice_ += " (--matrix says otherwise)";
    const auto note = [&](const std::string& what) {
      if (!what.empty()) notice_ += (notice_.empty() ? "" : "; ") + what;
    };
    if (orientation_ > 1) note(std::string(nameOfOrientation(orientation_)) + " as the file asks");
    note(decoder_.index().notice);
    if (decoder_.deinterlaces()) note("deinterlaced");
    if (const std::string& cut = decoder_.index().cutOff; !cut.empty()) note("cut off: " + cut);
    if (!notice_.empty()) notice_ = path + ": " + notice_;
    converter_ = std::make_unique<MovieConverter>(MovieConverter::Direction::toPicture, format_,
                                                  colour_, stated.width, stated.height);
  }

  void describeShot(const std::string& path, const AVStream& video, const AVFrame& first) {
    const MovieIndex& index = decoder_.index();
    const int count = std::max(index.count(), index.promised);
    cutOff_ = index.cutOff;
    if (cutOff_.empty() && index.promised > index.count()) {
      cutOff_ = "its header says " + std::to_string(index.promised) + " frames";
    }
    for (int frame = 1; frame <= count; ++frame) frames_.push_back(frame);
    facts_.frameRate = {index.rate.num, index.rate.den};
    AVRational aspect =
        first.sample_aspect_ratio.num > 0 ? first.sample_aspect_ratio : video.sample_aspect_ratio;
    if (liesOnItsSide(orientation_)) std::swap(aspect.num, aspect.den);
    if (aspect.num > 0 && aspect.den > 0) facts_.pixelAspect = {aspect.num, aspect.den};
    facts_.timeCode = timeCodeOf(decoder_.format(), video);
    facts_.primaries = colour_.primaries;
    facts_.transfer = colour_.transfer;
    facts_.matrix = colour_.matrix;
    if (hasSound(decoder_.format())) facts_.sound = path;
    facts_.start = static_cast<double>(index.times.front()) * av_q2d(video.time_base);
    readTags(decoder_.format(), video, first, facts_);

    OIIO::ImageSpec spec(
        info_.data.width, info_.data.height, info_.hasAlpha ? 4 : 3,
        info_.samples == Samples::uint8 ? OIIO::TypeDesc::UINT8 : OIIO::TypeDesc::UINT16);
    const int rate[2] = {index.rate.num, index.rate.den};
    spec.attribute("FramesPerSecond", OIIO::TypeRational, rate);
    if (facts_.pixelAspect.numerator > 0) {
      spec.attribute("PixelAspectRatio",
                     static_cast<float>(av_q2d(AVRational{aspect.num, aspect.den})));
    }
    if (colour_.transfer == AVCOL_TRC_LINEAR) spec.attribute("orvanite:transfer", "linear");
    header_ = std::make_shared<const OIIO::ImageSpec>(spec);
    AVTimecode code;
    hasTimeCode_ =
        !facts_.timeCode.empty() &&
        av_timecode_init_from_string(&code, index.rate, facts_.timeCode.c_str(), nullptr) >= 0;
    if (hasTimeCode_) timeCode_ = code;
  }

  // A still of a frame says what time it is of.
  std::shared_ptr<const OIIO::ImageSpec> headerOf(int frame) const {
    if (!hasTimeCode_) return header_;
    auto header = std::make_shared<OIIO::ImageSpec>(*header_);
    // FFmpeg has frames in the highest byte, everyone else hours.
    const std::uint32_t bits[2] = {
        av_bswap32(av_timecode_get_smpte_from_framenum(&timeCode_, frame - 1)), 0};
    header->attribute("smpte:TimeCode", OIIO::TypeTimeCode, bits);
    return header;
  }

  Picture finish(const AVFrame& frame, int number, const Request& request) const {
    Picture picture = converter_->toPicture(frame);
    if (!request.channel.empty()) takeChannel(picture, request.channel);
    if (picture.depth != request.depth) picture = atDepth(picture, request.depth);
    picture = upright(std::move(picture), orientation_);
    picture.header = headerOf(number);
    return placed(std::move(picture), request.window);
  }

  void takeChannel(Picture& picture, const std::string& channel) const {
    const char letter =
        channel.size() == 1
            ? static_cast<char>(std::toupper(static_cast<unsigned char>(channel[0])))
            : ' ';
    const auto slot = std::string_view("RGBA").find(letter);
    if (slot == std::string_view::npos || (slot == 3 && !info_.hasAlpha && !grey_)) {
      throw Error::expected(
          Fault::wrongUse, info_.path,
          info_.hasAlpha ? "one of the channels R, G, B, A" : "one of the channels R, G, B",
          channel);
    }
    if (slot == 3 && info_.hasAlpha) return;
    const std::size_t from = slot == 3 ? 0 : slot;
    if (picture.depth == Depth::bytes) {
      moveChannel<std::uint8_t>(picture, from);
    } else {
      moveChannel<std::uint16_t>(picture, from);
    }
  }

  MovieDecoder decoder_;
  AVPixelFormat format_ = AV_PIX_FMT_NONE;
  MovieColour colour_;
  Orientation orientation_ = 1;
  bool grey_ = false;
  bool hasTimeCode_ = false;
  AVTimecode timeCode_{};
  std::unique_ptr<MovieConverter> converter_;
};

}  // namespace

std::unique_ptr<Source> readMovie(const std::string& path, const OpenOptions& how) {
  return std::make_unique<MovieSource>(path, how);
}

}  // namespace orvanite::media
