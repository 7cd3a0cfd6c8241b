// SPDX-License-Identifier: BSD-3-Clause
//
// One scaler of FFmpeg's serves one thread at a time: idle ones are kept.
#include "media/MovieColour.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include "base/Error.h"
#include "media/MovieMatrix.h"

namespace orvanite::media {
namespace {

const AVPixFmtDescriptor& descriptorOf(AVPixelFormat format) {
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
  if (descriptor == nullptr) throw Error(Fault::failure, "movie", "unknown pixel format");
  return *descriptor;
}

LumaEncoding encodingOf(const MovieColour& colour) {
  const bool full = colour.range == AVCOL_RANGE_JPEG;
  switch (colour.matrix) {
    case AVCOL_SPC_BT709:
      return {0.2126, 0.0722, full};
    case AVCOL_SPC_FCC:
      return {0.30, 0.11, full};
    case AVCOL_SPC_SMPTE240M:
      return {0.212, 0.087, full};
    case AVCOL_SPC_BT2020_NCL:
      return {0.2627, 0.0593, full};
    default:
      return {0.299, 0.114, full};
  }
}

// Planes of one size in whole samples of this machine's order: luma and both differences, or grey.
bool isPlain(AVPixelFormat format) {
  const AVPixFmtDescriptor& d = descriptorOf(format);
  const bool planes =
      d.nb_components == 1 || (d.nb_components >= 3 && (d.flags & AV_PIX_FMT_FLAG_PLANAR) != 0 &&
                               d.comp[1].plane == 1 && d.comp[2].plane == 2);
  return planes && d.log2_chroma_w == 0 && d.log2_chroma_h == 0 && d.comp[0].shift == 0 &&
         (d.flags & (AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM |
                     AV_PIX_FMT_FLAG_FLOAT)) == 0 &&
         d.comp[0].depth >= 8;
}

bool isGreyWithAlpha(AVPixelFormat format) { return descriptorOf(format).nb_components == 2; }

AVPixelFormat rgbaOf(Samples samples) {
  return samples == Samples::uint8 ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGBA64;
}

// What stands on the pictures' side of the scaler.
AVPixelFormat betweenOf(bool reading, AVPixelFormat format) {
  if (isRgb(format) || isGreyWithAlpha(format) || descriptorOf(format).comp[0].depth < 8) {
    return rgbaOf(samplesOf(format));
  }
  if (isPlain(format)) return AV_PIX_FMT_NONE;
  const bool deep = reading || samplesOf(format) != Samples::uint8;
  if (hasAlpha(format)) return deep ? AV_PIX_FMT_YUVA444P16 : AV_PIX_FMT_YUVA444P;
  return deep ? AV_PIX_FMT_YUV444P16 : AV_PIX_FMT_YUV444P;
}

// The planes of a frame. The scaler puts codes of `bits` into the upper end of wider samples.
LumaPlanes planesOf(const AVFrame& frame, int bits) {
  const auto format = static_cast<AVPixelFormat>(frame.format);
  const AVPixFmtDescriptor& descriptor = descriptorOf(format);
  LumaPlanes planes;
  planes.bytes = descriptor.comp[0].depth > 8 ? 2 : 1;
  planes.bits = bits;
  planes.shift = descriptor.comp[0].depth - bits;
  planes.alphaWhite = ((1 << bits) - 1) << planes.shift;
  for (std::size_t i = 0; i < 4; ++i) {
    planes.rows[i] = reinterpret_cast<std::byte*>(frame.data[i]);
    planes.rowBytes[i] = frame.linesize[i];
  }
  return planes;
}

RgbaRows rowsOf(const Picture& picture) {
  return {picture.pixels.get(), bytesOf(picture.depth), picture.data.width, picture.data.height};
}

// In 256ths of a luma sample, as the scaler wants it.
void sitChroma(SwsContext* scaler, const char* side, AVPixelFormat format,
               AVChromaLocation siting) {
  const AVPixFmtDescriptor& descriptor = descriptorOf(format);
  const bool middleAcross =
      siting == AVCHROMA_LOC_CENTER || siting == AVCHROMA_LOC_TOP || siting == AVCHROMA_LOC_BOTTOM;
  const bool atTop = siting == AVCHROMA_LOC_TOPLEFT || siting == AVCHROMA_LOC_TOP;
  const bool atBottom = siting == AVCHROMA_LOC_BOTTOMLEFT || siting == AVCHROMA_LOC_BOTTOM;
  const std::string name(side);
  if (descriptor.log2_chroma_w > 0) {
    const int middle = (128 << descriptor.log2_chroma_w) - 128;
    av_opt_set_int(scaler, (name + "_h_chr_pos").c_str(), middleAcross ? middle : 0, 0);
  }
  if (descriptor.log2_chroma_h > 0) {
    av_opt_set_int(scaler, (name + "_v_chr_pos").c_str(), atTop ? 0 : atBottom ? 256 : 128, 0);
  }
}

// A tag as FFmpeg copied it from a file: any number, which is not to be read as an enumerator
// before it is known to be one.
template <class Tag>
Tag tagIn(const Tag& field, Tag end, Tag none) {
  std::underlying_type_t<Tag> number{};
  std::memcpy(&number, &field, sizeof number);
  return number < static_cast<std::underlying_type_t<Tag>>(end) ? static_cast<Tag>(number) : none;
}

}  // namespace

MovieColour MovieColour::of(const AVFrame& first, const AVCodecParameters& stated) {
  const auto tag = [](const auto& own, const auto& container, auto end, auto none) {
    const auto found = tagIn(own, end, none);
    return found != none ? found : tagIn(container, end, none);
  };
  return {tag(first.colorspace, stated.color_space, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED),
          tag(first.color_range, stated.color_range, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED),
          tag(first.color_primaries, stated.color_primaries, AVCOL_PRI_NB, AVCOL_PRI_UNSPECIFIED),
          tag(first.color_trc, stated.color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED),
          tagIn(first.chroma_location, AVCHROMA_LOC_NB, AVCHROMA_LOC_UNSPECIFIED)};
}

AVColorSpace matrixOf(const std::string& name, const std::string& subject) {
  constexpr std::array<std::pair<std::string_view, AVColorSpace>, 5> known{
      {{"601", AVCOL_SPC_SMPTE170M},
       {"709", AVCOL_SPC_BT709},
       {"2020", AVCOL_SPC_BT2020_NCL},
       {"240m", AVCOL_SPC_SMPTE240M},
       {"fcc", AVCOL_SPC_FCC}}};
  std::string plain;
  for (const char letter : name) {
    const auto code = static_cast<unsigned char>(letter);
    if (std::isalnum(code) != 0) plain += static_cast<char>(std::tolower(code));
  }
  for (const std::string_view prefix : {"itur", "bt", "rec", "smpte"}) {
    if (plain.starts_with(prefix)) plain.erase(0, prefix.size());
  }
  for (const auto& [text, matrix] : known) {
    if (plain == text) return matrix;
  }
  throw Error::expected(Fault::wrongUse, subject, "601, 709, 2020, 240M or fcc", name);
}

bool isRgb(AVPixelFormat format) {
  return (descriptorOf(format).flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
}

bool hasAlpha(AVPixelFormat format) {
  return (descriptorOf(format).flags & (AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_PAL)) != 0;
}

Samples samplesOf(AVPixelFormat format) {
  return descriptorOf(format).comp[0].depth <= 8 ? Samples::uint8 : Samples::uint16;
}

std::string MovieColour::complete(AVPixelFormat format, int height) {
  const AVPixFmtDescriptor& descriptor = descriptorOf(format);
  if (siting == AVCHROMA_LOC_UNSPECIFIED) siting = AVCHROMA_LOC_LEFT;
  if (isRgb(format) || descriptor.nb_components <= 2) {
    // Grey has its whole range unless it says otherwise.
    if (range == AVCOL_RANGE_UNSPECIFIED) range = AVCOL_RANGE_JPEG;
    return "";
  }
  std::string assumed;
  if (matrix == AVCOL_SPC_UNSPECIFIED || matrix == AVCOL_SPC_RGB) {
    matrix = height < 720 ? AVCOL_SPC_SMPTE170M : AVCOL_SPC_BT709;
    assumed = height < 720 ? "the matrix of Rec. 601" : "the matrix of Rec. 709";
  }
  const bool fullByFormat = std::string(descriptor.name).starts_with("yuvj");
  if (range == AVCOL_RANGE_UNSPECIFIED) {
    range = fullByFormat ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (!fullByFormat) assumed += assumed.empty() ? "video range" : " and video range";
  }
  return assumed;
}

MovieConverter::MovieConverter(Direction direction, AVPixelFormat format, const MovieColour& colour,
                               int width, int height)
    : direction_(direction),
      format_(format),
      between_(betweenOf(direction == Direction::toPicture, format)),
      rgb_(between_ == AV_PIX_FMT_RGBA || between_ == AV_PIX_FMT_RGBA64),
      colour_(colour),
      width_(width),
      height_(height) {}

MovieConverter::Scaler MovieConverter::take() {
  {
    const std::lock_guard lock(mutex_);
    if (!idle_.empty()) {
      Scaler scaler = std::move(idle_.back());
      idle_.pop_back();
      return scaler;
    }
  }
  Scaler scaler(sws_alloc_context());
  if (!scaler) throw Error(Fault::failure, "movie", "out of memory");
  SwsContext* to = scaler.get();
  const bool reading = direction_ == Direction::toPicture;
  av_opt_set_int(to, "srcw", width_, 0);
  av_opt_set_int(to, "srch", height_, 0);
  av_opt_set_int(to, "dstw", width_, 0);
  av_opt_set_int(to, "dsth", height_, 0);
  av_opt_set_int(to, "src_format", reading ? format_ : between_, 0);
  av_opt_set_int(to, "dst_format", reading ? between_ : format_, 0);
  av_opt_set_int(to, "sws_flags",
                 SWS_BICUBIC | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_ACCURATE_RND, 0);
  sitChroma(to, reading ? "src" : "dst", format_, colour_.siting);
  // Codes keep their range on the way through: no colour is converted here. Between formats of red,
  // green and blue the call has no meaning and says so.
  const int* plain = sws_getCoefficients(SWS_CS_DEFAULT);
  const int range = colour_.range == AVCOL_RANGE_JPEG ? 1 : 0;
  static_cast<void>(sws_setColorspaceDetails(to, plain, range, plain, range, 0, 1 << 16, 1 << 16));
  if (const int problem = sws_init_context(to, nullptr, nullptr); problem < 0) {
    throw Error(Fault::failure, "movie",
                std::string("pixels of the format ") + av_get_pix_fmt_name(format_) +
                    " cannot be converted: " + movieProblem(problem));
  }
  return scaler;
}

void MovieConverter::scale(const std::uint8_t* const* from, const int* fromSteps,
                           std::uint8_t* const* to, const int* toSteps) {
  Scaler scaler = take();
  const int done = sws_scale(scaler.get(), from, fromSteps, 0, height_, to, toSteps);
  const std::lock_guard lock(mutex_);
  idle_.push_back(std::move(scaler));
  if (done != height_) throw Error(Fault::failure, "movie", "pixels cannot be converted");
}

MovieFrame MovieConverter::emptyFrame(AVPixelFormat format) const {
  MovieFrame frame = newMovieFrame();
  frame->format = format;
  frame->width = width_;
  frame->height = height_;
  if (av_frame_get_buffer(frame.get(), 0) < 0) {
    throw Error(Fault::failure, "movie", "out of memory");
  }
  return frame;
}

Picture MovieConverter::toPicture(const AVFrame& frame) {
  const Samples samples = samplesOf(format_);
  Picture picture = Picture::make({0, 0, width_, height_}, depthOf(samples), samples);
  picture.hasAlpha = hasAlpha(format_);
  if (rgb_) {
    std::uint8_t* rows[4] = {reinterpret_cast<std::uint8_t*>(picture.pixels.get())};
    const int steps[4] = {static_cast<int>(picture.rowBytes())};
    scale(frame.data, frame.linesize, rows, steps);
    return picture;
  }
  const int bits = descriptorOf(format_).comp[0].depth;
  if (between_ != AV_PIX_FMT_NONE) {
    const MovieFrame planes = emptyFrame(between_);
    scale(frame.data, frame.linesize, planes->data, planes->linesize);
    lumaToRgba(planesOf(*planes, bits), encodingOf(colour_), rowsOf(picture));
    return picture;
  }
  LumaPlanes planes = planesOf(frame, bits);
  std::vector<std::uint16_t> middle;
  if (planes.rows[1] == nullptr) {  // grey: every row of differences is the same
    const int code = 128 << (bits - 8);
    middle.assign(static_cast<std::size_t>(width_),
                  static_cast<std::uint16_t>(planes.bytes == 1 ? code * 257 : code));
    planes.rows[1] = planes.rows[2] = reinterpret_cast<std::byte*>(middle.data());
    planes.rowBytes[1] = planes.rowBytes[2] = 0;
  }
  lumaToRgba(planes, encodingOf(colour_), rowsOf(picture));
  return picture;
}

MovieFrame MovieConverter::fromPicture(const Picture& picture) {
  Picture own;
  const Picture* from = &picture;
  const Depth depth = rgb_ ? depthOf(samplesOf(format_)) : std::min(picture.depth, Depth::shorts);
  if (picture.depth != depth) {
    own = atDepth(picture, depth);
    from = &own;
  }
  MovieFrame frame = emptyFrame(format_);
  if (rgb_) {
    const std::uint8_t* rows[4] = {reinterpret_cast<const std::uint8_t*>(from->pixels.get())};
    const int steps[4] = {static_cast<int>(from->rowBytes())};
    scale(rows, steps, frame->data, frame->linesize);
  } else {
    const int bits = descriptorOf(format_).comp[0].depth;
    const MovieFrame planes = between_ == AV_PIX_FMT_NONE ? frame : emptyFrame(between_);
    rgbaToLuma(rowsOf(*from), encodingOf(colour_), planesOf(*planes, bits));
    if (between_ != AV_PIX_FMT_NONE) {
      scale(planes->data, planes->linesize, frame->data, frame->linesize);
    }
  }
  frame->colorspace = colour_.matrix;
  frame->color_range = colour_.range;
  frame->color_primaries = colour_.primaries;
  frame->color_trc = colour_.transfer;
  frame->chroma_location = colour_.siting;
  return frame;
}

}  // namespace orvanite::media
