// SPDX-License-Identifier: BSD-3-Clause
//
// Frames are known by their times, not counted: a frame that a decoder drops is noticed when a
// later one comes out.
#include "media/MovieDecoder.h"

#include <algorithm>
#include <array>
#include <cstdio>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "base/Error.h"
#include "media/Picture.h"

namespace orvanite::media {
namespace {

std::int64_t timeOf(const AVFrame& frame) {
  return frame.pts != AV_NOPTS_VALUE ? frame.pts : frame.best_effort_timestamp;
}

[[noreturn]] void refuseInterlaced(const std::string& path) {
  throw Error(Fault::failure, path,
              "expected progressive frames, found interlaced ones; --deinterlace makes whole "
              "frames from their fields");
}

bool isInterlaced(AVFieldOrder order) {
  return order != AV_FIELD_UNKNOWN && order != AV_FIELD_PROGRESSIVE;
}

}  // namespace

MovieDecoder::MovieDecoder(const std::string& path, const OpenOptions& how)
    : path_(path), input_(path), packet_(newMoviePacket()), wholeFrames_(how.deinterlace) {
  const AVCodec* decoder = nullptr;
  stream_ = av_find_best_stream(input_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
  if (stream_ < 0 || decoder == nullptr) {
    throw Error(Fault::failure, path, "there is no video in it that can be decoded");
  }
  // VP8 and VP9 keep alpha beside the picture; only these decoders look at it.
  const AVCodecID id = stream().codecpar->codec_id;
  const AVDictionaryEntry* alpha = av_dict_get(stream().metadata, "alpha_mode", nullptr, 0);
  if (alpha != nullptr && std::string(alpha->value) == "1") {
    const AVCodec* better = id == AV_CODEC_ID_VP9   ? avcodec_find_decoder_by_name("libvpx-vp9")
                            : id == AV_CODEC_ID_VP8 ? avcodec_find_decoder_by_name("libvpx")
                                                    : nullptr;
    if (better != nullptr) decoder = better;
  }
  fields_ = stream().codecpar->field_order;
  if (isInterlaced(fields_) && !wholeFrames_) refuseInterlaced(path);
  index_ =
      MovieIndex::of(input_, stream_, path, {how.frameRate.numerator, how.frameRate.denominator});

  codec_.reset(avcodec_alloc_context3(decoder));
  int problem =
      codec_ ? avcodec_parameters_to_context(codec_.get(), stream().codecpar) : AVERROR(ENOMEM);
  if (problem >= 0) {
    codec_->pkt_timebase = stream().time_base;
    // Threads that share a frame keep one; threads that have one each keep as many.
    codec_->thread_count = std::clamp(OIIO::get_int_attribute("threads", 1), 1, 16);
    // FFmpeg 5.1 ends the program over a damaged frame of MPEG-4 that one of several threads reads.
    if (id == AV_CODEC_ID_MPEG4) codec_->thread_count = 1;
    const AVCodecDescriptor* about = avcodec_descriptor_get(decoder->id);
    alone_ = about != nullptr && (about->props & AV_CODEC_PROP_INTRA_ONLY) != 0;
    if (alone_ && (decoder->capabilities & AV_CODEC_CAP_SLICE_THREADS) != 0) {
      codec_->thread_type = FF_THREAD_SLICE;
    }
    codec_->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
    countErrors(*codec_, errors_);
    problem = avcodec_open2(codec_.get(), decoder, nullptr);
  }
  if (problem < 0) {
    throw Error(Fault::failure, path, "cannot be decoded: " + movieProblem(problem));
  }
  for (unsigned i = 0; i < input_->nb_streams; ++i) {
    if (static_cast<int>(i) != stream_) input_->streams[i]->discard = AVDISCARD_ALL;
  }
  ahead_ = codec_->active_thread_type == FF_THREAD_FRAME;
  seek(index_.times.front());
}

void MovieDecoder::seek(std::int64_t time) {
  const MovieIndex::Key& key = index_.keyBefore(time);
  avcodec_flush_buffers(codec_.get());
  held_.reset();
  position_ = -1;
  draining_ = false;
  problem_ = 0;
  errorsBefore_ = errors_;
  hurtUntil_ = INT64_MIN;
  settled_ = key.time == index_.keys.front().time;
  settleTime_ = key.time;
  int result = av_seek_frame(input_.get(), stream_, key.decodeTime, AVSEEK_FLAG_BACKWARD);
  if (result < 0) result = av_seek_frame(input_.get(), -1, 0, AVSEEK_FLAG_BACKWARD);
  if (result < 0) result = static_cast<int>(avio_seek(input_->pb, 0, SEEK_SET));
  if (result < 0) throw Error(Fault::failure, path_, "cannot seek: " + movieProblem(result));
}

// Marks a frame in which the decoder made something up, of which some say no more than a line in
// the log. Where every frame stands alone and is decoded at once, what was logged is about this
// frame; where frames are decoded side by side it may be about a later one, and such a decoder of
// frames that stand alone fails instead. Where frames build upon one another, all up to a key frame
// that nothing under way can have been about are hurt with it.
void MovieDecoder::judge(AVFrame& frame) {
  const int now = errors_;
  if (alone_) {
    if (!ahead_ && now != errorsBefore_) frame.flags |= AV_FRAME_FLAG_CORRUPT;
    return;
  }
  const std::int64_t time = timeOf(frame);
  // What is shown before a key frame, but stored after it, lacks what it builds upon.
  if (!settled_ && time >= settleTime_) {
    settled_ = true;
    errorsBefore_ = now;
  }
  if (settled_ && now != errorsBefore_) {
    errorsBefore_ = now;
    const auto place = std::lower_bound(index_.times.begin(), index_.times.end(), time);
    const std::ptrdiff_t underWay = codec_->thread_count + codec_->has_b_frames + 1;
    const auto last =
        index_.times.end() - place > underWay ? *(place + underWay) : index_.times.back();
    const auto key =
        std::upper_bound(index_.keys.begin(), index_.keys.end(), last,
                         [](std::int64_t t, const MovieIndex::Key& one) { return t < one.time; });
    hurtUntil_ = key == index_.keys.end() ? INT64_MAX : key->time;
  }
  if (time < hurtUntil_) frame.flags |= AV_FRAME_FLAG_CORRUPT;
}

// The next frame in time; none at the end.
MovieFrame MovieDecoder::next() {
  if (held_) return std::move(held_);
  MovieFrame frame = newMovieFrame();
  while (true) {
    const int got = avcodec_receive_frame(codec_.get(), frame.get());
    if (got >= 0) {
      if (timeOf(*frame) != AV_NOPTS_VALUE) {
        judge(*frame);
        return frame;
      }
      av_frame_unref(frame.get());
      continue;
    }
    if (got == AVERROR_EOF) return nullptr;
    if (got != AVERROR(EAGAIN)) problem_ = got;
    if (draining_) {
      if (got == AVERROR(EAGAIN)) return nullptr;
      continue;
    }
    int read = 0;
    do {
      av_packet_unref(packet_.get());
      read = av_read_frame(input_.get(), packet_.get());
    } while (read >= 0 && packet_->stream_index != stream_);
    if (read < 0) draining_ = true;
    if (alone_) errorsBefore_ = errors_;
    if ((packet_->flags & AV_PKT_FLAG_CORRUPT) != 0) {
      av_log(codec_.get(), AV_LOG_ERROR, "the file marks it as damaged, or a part is missing\n");
    }
    const int sent = avcodec_send_packet(codec_.get(), draining_ ? nullptr : packet_.get());
    if (sent < 0 && sent != AVERROR_EOF) problem_ = sent;
    av_packet_unref(packet_.get());
  }
}

// Whether going on reaches a frame no later than a seek would.
bool MovieDecoder::isAhead(int place) const {
  if (position_ < 0) return place == 0;
  if (place <= position_) return false;
  const auto timeAt = [&](int at) { return index_.times[static_cast<std::size_t>(at)]; };
  return place == position_ + 1 || index_.keyBefore(timeAt(place)).time <= timeAt(position_);
}

// The number under which one of the file's frames is first shown.
int MovieDecoder::numberOf(int place) const {
  const auto at = std::lower_bound(index_.shown.begin(), index_.shown.end(), place);
  return static_cast<int>(at - index_.shown.begin()) + 1;
}

void MovieDecoder::check(AVFrame& frame, int place) const {
  const std::string name = "frame " + std::to_string(numberOf(place));
  if (frame.decode_error_flags != 0 || (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0) {
    // The last words were those on the first frame that was hurt.
    std::string why = movieProblem(problem_);
    if (!alone_ && why == "unknown reason") why = "it builds upon a broken one";
    throw Error(Fault::failure, path_, name + " is broken: " + why);
  }
  // Few decoders know what the container does.
  if (isInterlaced(fields_) && frame.interlaced_frame == 0) {
    frame.interlaced_frame = 1;
    frame.top_field_first = fields_ == AV_FIELD_TT || fields_ == AV_FIELD_BT ? 1 : 0;
  }
  if (frame.interlaced_frame != 0 && !wholeFrames_) refuseInterlaced(path_);
  const AVCodecParameters& stated = *stream().codecpar;
  if (frame.width != stated.width || frame.height != stated.height) {
    throw Error(Fault::failure, path_,
                name + ": expected the movie's size " + std::to_string(stated.width) + "x" +
                    std::to_string(stated.height) + ", found " + std::to_string(frame.width) + "x" +
                    std::to_string(frame.height));
  }
}

void MovieDecoder::failPastTheEnd(int number) const {
  const int last = index_.count();
  if (last == 0) {
    throw Error(Fault::failure, path_,
                "expected frames, found none that are whole" +
                    (index_.cutOff.empty() ? "" : "; " + index_.cutOff));
  }
  const double end =
      static_cast<double>(index_.timeOf(last) - index_.times.front()) * av_q2d(stream().time_base) +
      1 / av_q2d(index_.rate);
  std::array<char, 32> seconds{};
  std::snprintf(seconds.data(), seconds.size(), " at %.2f s", end);
  throw Error(
      Fault::failure, path_,
      "there is no frame " + std::to_string(number) + ": the file says " +
          (index_.promised > last + 1 ? std::to_string(index_.promised) + " frames" : "more") +
          " but ends after frame " + std::to_string(last) + seconds.data() +
          (index_.cutOff.empty() ? "" : "; " + index_.cutOff));
}

MovieFrame MovieDecoder::frame(int number) {
  if (number < 1 || number > std::max(index_.promised, index_.count())) {
    throw Error(Fault::missingFrames, path_,
                "there is no frame " + std::to_string(number) + ", the last is " +
                    std::to_string(index_.count()));
  }
  if (number > index_.count()) failPastTheEnd(number);
  const int place = index_.shown[static_cast<std::size_t>(number - 1)];
  if (!deinterlacer_) {
    MovieFrame frame = decoded(place);
    if (frame->interlaced_frame == 0) return frame;
    deinterlacer_ = std::make_unique<Deinterlacer>(path_, codec_->thread_count);
  }
  return deinterlacer_->frame(place, static_cast<int>(index_.times.size()),
                              [this](int one) { return decoded(one); });
}

// One of the file's frames, from 0.
MovieFrame MovieDecoder::decoded(int place) {
  const std::int64_t wanted = index_.times[static_cast<std::size_t>(place)];
  if (last_ && wanted == lastTime_) {
    position_ = place;
    return last_;
  }
  last_.reset();
  bool sought = false;
  if (!isAhead(place)) {
    seek(wanted);
    sought = true;
  }
  position_ = place;
  for (bool again = true; again;) {
    again = false;
    bool first = true;
    while (MovieFrame frame = next()) {
      const std::int64_t time = timeOf(*frame);
      if (time > wanted && first && sought && wanted > index_.times.front()) {
        // The container put us too late: from the very start, then.
        seek(index_.times.front());
        position_ = place;
        sought = false;
        again = true;
        break;
      }
      first = false;
      if (time == wanted) {
        check(*frame, place);
        problem_ = 0;
        last_ = frame;
        lastTime_ = time;
        return frame;
      }
      if (time > wanted) {
        held_ = std::move(frame);
        break;
      }
    }
  }
  throw Error(Fault::failure, path_,
              "frame " + std::to_string(numberOf(place)) + " is broken: " + movieProblem(problem_));
}

}  // namespace orvanite::media
