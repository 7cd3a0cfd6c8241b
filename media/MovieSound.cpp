// SPDX-License-Identifier: BSD-3-Clause
//
// A packet belongs to the pictures when its middle does.
#include "media/MovieSound.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "base/Error.h"
#include "media/MovieEnd.h"

namespace orvanite::media {
namespace {

double secondsOf(std::int64_t time, AVRational base) {
  return static_cast<double>(time) * av_q2d(base);
}

// Those that a file's kind is known for, where there is none that all can hold.
std::string soundsFor(const AVOutputFormat& format) {
  const std::string name = format.name;
  if (name == "webm") return "Opus or Vorbis";
  if (name == "mp4" || name == "ipod") return "AAC, MP3, AC-3, ALAC or Opus";
  return "PCM, AAC, MP3 or AC-3";
}

}  // namespace

double MovieSound::startOf(const std::string& path) {
  const MovieInput input(path, MovieInput::Kind::sound);
  const int video = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (video >= 0) {
    const AVStream& stream = *input->streams[video];
    const bool cover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    if (!cover && stream.start_time != AV_NOPTS_VALUE) {
      return secondsOf(stream.start_time, stream.time_base);
    }
  }
  return input->start_time == AV_NOPTS_VALUE ? 0 : secondsOf(input->start_time, AV_TIME_BASE_Q);
}

std::string MovieSound::refusal() const {
  return from_ + ": expected sound in " + soundsFor(*output_.oformat) + " for this file; its " +
         notice_;
}

MovieSound::MovieSound(const std::string& path, double zero, double start, double end,
                       AVFormatContext& output)
    : from_(path),
      input_(path, MovieInput::Kind::sound),
      output_(output),
      zero_(zero),
      start_(start),
      end_(end),
      packet_(newMoviePacket()) {
  for (unsigned i = 0; i < input_->nb_streams; ++i) {
    AVStream& from = *input_->streams[i];
    streams_.push_back(-1);
    from.discard = AVDISCARD_ALL;
    if (from.codecpar->codec_type != AVMEDIA_TYPE_AUDIO) continue;
    const bool tagged = output.oformat->codec_tag == nullptr ||
                        av_codec_get_tag(output.oformat->codec_tag, from.codecpar->codec_id) != 0;
    if (!tagged ||
        avformat_query_codec(output.oformat, from.codecpar->codec_id, FF_COMPLIANCE_NORMAL) == 0) {
      notice_ = std::string("sound in ") + avcodec_get_name(from.codecpar->codec_id) +
                " cannot go into this file and is left out";
      continue;
    }
    AVStream* to = avformat_new_stream(&output, nullptr);
    if (to == nullptr || avcodec_parameters_copy(to->codecpar, from.codecpar) < 0) {
      throw Error(Fault::failure, path, "out of memory");
    }
    to->codecpar->codec_tag = 0;
    to->time_base = from.time_base;
    to->disposition = from.disposition;
    av_dict_copy(&to->metadata, from.metadata, 0);
    av_dict_set(&to->metadata, "timecode", nullptr, 0);
    streams_.back() = to->index;
    from.discard = AVDISCARD_DEFAULT;
  }
  ended_ = output.nb_streams < 2;
  if (ended_ && notice_.empty()) notice_ = "file has no sound";
  if (start > open && !ended_) {
    // Packets of before are read and dropped; where seeking fails, from the beginning on.
    av_seek_frame(input_.get(), -1, std::llround(std::max(0.0, start - 1) * AV_TIME_BASE),
                  AVSEEK_FLAG_BACKWARD);
  }
}

// A file that was cut off ends too early for sound that was to come.
void MovieSound::checkEnd(int problem) {
  const double frame = 0.1;  // more than a packet, less than anybody misses
  if (end_ > open && heard_ > end_ - frame) return;
  std::string why = problem == AVERROR_EOF ? "" : movieProblem(problem);
  if (why.empty()) why = cutOffIn(from_, input_->iformat->name, 0);
  if (why.empty()) return;
  std::array<char, 64> when{};
  std::snprintf(when.data(), when.size(), "its sound ends at %.2f s: ", std::max(heard_, 0.0));
  throw Error(Fault::failure, from_, when.data() + why);
}

// Holds the next packet that belongs to the pictures; false: there is none.
bool MovieSound::next() {
  while (!held_ && !ended_) {
    av_packet_unref(packet_.get());
    if (const int read = av_read_frame(input_.get(), packet_.get()); read < 0) {
      ended_ = true;
      checkEnd(read);
      break;
    }
    const auto stream = static_cast<std::size_t>(packet_->stream_index);
    const std::int64_t time = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
    if (stream >= streams_.size() || streams_[stream] < 0 || time == AV_NOPTS_VALUE) continue;
    const AVRational base = input_->streams[stream]->time_base;
    heard_ = std::max(heard_, secondsOf(time + packet_->duration, base));
    const double middle = secondsOf(time, base) + secondsOf(packet_->duration, base) / 2;
    if (middle < start_) continue;
    held_ = end_ <= open || middle < end_;
  }
  return held_;
}

void MovieSound::copyUpTo(double seconds, const std::string& path) {
  while (next()) {
    const auto stream = static_cast<std::size_t>(packet_->stream_index);
    const AVRational base = input_->streams[stream]->time_base;
    const std::int64_t time = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
    if (secondsOf(time, base) - zero_ > seconds) return;
    const std::int64_t shift = std::llround(zero_ / av_q2d(base));
    if (packet_->pts != AV_NOPTS_VALUE) packet_->pts -= shift;
    if (packet_->dts != AV_NOPTS_VALUE) packet_->dts -= shift;
    packet_->pos = -1;
    av_packet_rescale_ts(packet_.get(), base, output_.streams[streams_[stream]]->time_base);
    packet_->stream_index = streams_[stream];
    held_ = false;
    const int problem = av_interleaved_write_frame(&output_, packet_.get());
    if (problem < 0) {
      throw Error(Fault::failure, path, "sound cannot be written: " + movieProblem(problem));
    }
  }
}

}  // namespace orvanite::media
