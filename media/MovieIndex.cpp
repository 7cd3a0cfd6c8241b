// SPDX-License-Identifier: BSD-3-Clause
//
// Containers round times, Matroska to milliseconds: frames count as evenly spaced while none is
// half a frame from where its number puts it.
#include "media/MovieIndex.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>

#include "base/Error.h"

namespace orvanite::media {
namespace {

// A rate that nearly all movies have, where the mean duration is within a thousandth of it.
AVRational rateOf(const AVStream& stream, double measured) {
  for (const AVRational rate : {stream.avg_frame_rate, stream.r_frame_rate}) {
    if (rate.num > 0 && rate.den > 0 &&
        (measured <= 0 || std::abs(av_q2d(rate) / measured - 1) < 0.001)) {
      return rate;
    }
  }
  return measured > 0 ? av_d2q(measured, 1001000) : AVRational{25, 1};
}

void checkSpacing(const MovieIndex& index, AVRational base, const std::string& path) {
  const double frame = 1 / (av_q2d(index.rate) * av_q2d(base));
  double shortest = frame;
  double longest = frame;
  bool even = true;
  for (std::size_t i = 1; i < index.times.size(); ++i) {
    const auto gap = static_cast<double>(index.times[i] - index.times[i - 1]);
    shortest = std::min(shortest, gap);
    longest = std::max(longest, gap);
    const auto offset = static_cast<double>(index.times[i] - index.times[0]);
    even = even && std::abs(offset - frame * static_cast<double>(i)) < frame / 2;
  }
  if (even) return;
  const auto milliseconds = [&](double ticks) {
    return std::to_string(std::lround(ticks * av_q2d(base) * 1000));
  };
  throw Error(Fault::failure, path,
              "expected a constant frame rate, found frames " + milliseconds(shortest) + " to " +
                  milliseconds(longest) +
                  " ms apart; convert it to a constant rate first, for example with "
                  "ffmpeg -vf fps");
}

// What the header promised, where it can be told.
int promisedFrames(const AVFormatContext& format, const AVStream& stream, const MovieIndex& index,
                   double lastEnd) {
  const int found = index.count();
  if (stream.nb_frames > found && stream.nb_frames < (1 << 24)) {
    return static_cast<int>(stream.nb_frames);
  }
  // A container says how long its longest stream is. None of them reaches that far: cut off.
  const double frames = av_q2d(index.rate);
  const double duration =
      format.duration_estimation_method == AVFMT_DURATION_FROM_STREAM && format.duration > 0
          ? static_cast<double>(format.duration) / AV_TIME_BASE
          : 0;
  const double missing = (duration - lastEnd) * frames;
  return missing > 1.5 && missing < (1 << 24) ? found + static_cast<int>(std::lround(missing))
                                              : found;
}

void takeRate(MovieIndex& index, const AVStream& video, const std::string& path) {
  const std::size_t count = index.times.size();
  const double measured = count < 2
                              ? 0
                              : static_cast<double>(count - 1) /
                                    (static_cast<double>(index.times.back() - index.times.front()) *
                                     av_q2d(video.time_base));
  index.rate = rateOf(video, std::isfinite(measured) ? measured : 0);
  checkSpacing(index, video.time_base, path);
}

// QuickTime's own table of frames, where it lists every frame and frames lie in the order in which
// they are shown: of the file's frames only the first is read then, to see that their times are
// those of the table. Should they not be, later, a frame is missed by its time, never mistaken.
std::optional<MovieIndex> tableOf(MovieInput& input, int stream) {
  AVStream& video = *input->streams[stream];
  const AVCodecDescriptor* codec = avcodec_descriptor_get(video.codecpar->codec_id);
  const int count = avformat_index_get_entries_count(&video);
  if (!std::string_view(input->iformat->name).starts_with("mov,") || codec == nullptr ||
      (codec->props & AV_CODEC_PROP_REORDER) != 0 || video.codecpar->video_delay > 0 || count < 2 ||
      count != video.nb_frames) {
    return std::nullopt;
  }
  MovieIndex index;
  index.promised = count;
  const std::int64_t fileBytes = avio_size(input->pb);
  for (int i = 0; i < count; ++i) {
    const AVIndexEntry& entry = *avformat_index_get_entry(&video, i);
    if ((entry.flags & AVINDEX_DISCARD_FRAME) != 0 ||
        (!index.times.empty() && entry.timestamp <= index.times.back())) {
      return std::nullopt;
    }
    if (entry.pos + entry.size > fileBytes) break;  // cut off
    index.times.push_back(entry.timestamp);
    if ((entry.flags & AVINDEX_KEYFRAME) != 0) {
      index.keys.push_back({entry.timestamp, entry.timestamp});
    }
  }
  if (index.times.empty() || index.keys.empty() || index.keys.front().time != index.times.front()) {
    return std::nullopt;
  }
  const MoviePacket packet = newMoviePacket();
  int read = 0;
  do {
    av_packet_unref(packet.get());
    read = av_read_frame(input.get(), packet.get());
  } while (read >= 0 && packet->stream_index != stream);
  const bool agrees = read >= 0 && packet->pts == index.times.front();
  static_cast<void>(av_seek_frame(input.get(), stream, index.times.front(), AVSEEK_FLAG_BACKWARD));
  return agrees ? std::optional(std::move(index)) : std::nullopt;
}

}  // namespace

MovieIndex MovieIndex::of(MovieInput& input, int stream, const std::string& path) {
  const AVStream& video = *input->streams[stream];
  if (auto table = tableOf(input, stream)) {
    takeRate(*table, video, path);
    return *std::move(table);
  }
  MovieIndex index;
  const MoviePacket packet = newMoviePacket();
  double lastEnd = 0;  // seconds, of any stream
  const double start = input->start_time == AV_NOPTS_VALUE
                           ? 0
                           : static_cast<double>(input->start_time) / AV_TIME_BASE;
  while (av_read_frame(input.get(), packet.get()) >= 0) {
    const AVRational base = input->streams[packet->stream_index]->time_base;
    const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    if (time != AV_NOPTS_VALUE) {
      lastEnd =
          std::max(lastEnd, static_cast<double>(time + packet->duration) * av_q2d(base) - start);
    }
    if (packet->stream_index == stream && (packet->flags & AV_PKT_FLAG_DISCARD) == 0) {
      if (time == AV_NOPTS_VALUE ||
          (packet->pts == AV_NOPTS_VALUE && video.codecpar->video_delay > 0)) {
        throw Error(Fault::failure, path,
                    "its frames have no times; put it into a container such as .mov or .mkv first");
      }
      index.times.push_back(time);
      if ((packet->flags & AV_PKT_FLAG_KEY) != 0) {
        const std::int64_t decode = packet->dts != AV_NOPTS_VALUE ? packet->dts : time;
        index.keys.push_back({time, std::min(decode, time)});
      }
    }
    av_packet_unref(packet.get());
  }
  if (index.times.empty()) throw Error(Fault::failure, path, "there is no frame in it");
  std::sort(index.times.begin(), index.times.end());
  std::sort(index.keys.begin(), index.keys.end(),
            [](const Key& a, const Key& b) { return a.time < b.time; });
  if (index.keys.empty()) index.keys.push_back({index.times.front(), index.times.front()});
  takeRate(index, video, path);
  index.promised = promisedFrames(*input.get(), video, index, lastEnd);
  return index;
}

const MovieIndex::Key& MovieIndex::keyBefore(std::int64_t time) const {
  const auto after = std::upper_bound(keys.begin(), keys.end(), time,
                                      [](std::int64_t t, const Key& key) { return t < key.time; });
  return after == keys.begin() ? keys.front() : *std::prev(after);
}

}  // namespace orvanite::media
