// SPDX-License-Identifier: BSD-3-Clause
//
// Containers round times, Matroska to milliseconds: frames count as evenly spaced while none is
// half a frame from where its number puts it. Others are numbered by their times.
#include "media/MovieIndex.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <optional>
#include <string_view>

#include "base/Error.h"
#include "media/MovieEnd.h"

namespace orvanite::media {
namespace {

constexpr std::array<AVRational, 11> usualRates{{{24000, 1001},
                                                 {24, 1},
                                                 {25, 1},
                                                 {30000, 1001},
                                                 {30, 1},
                                                 {48, 1},
                                                 {50, 1},
                                                 {60000, 1001},
                                                 {60, 1},
                                                 {120000, 1001},
                                                 {120, 1}}};

AVRational nearestUsual(double measured) {
  return *std::min_element(usualRates.begin(), usualRates.end(),
                           [&](const AVRational& a, const AVRational& b) {
                             return std::abs(av_q2d(a) - measured) < std::abs(av_q2d(b) - measured);
                           });
}

// The rate that is named, by the file or by people, within a share of one that was measured.
std::optional<AVRational> namedRate(const AVStream& stream, double measured, double share) {
  const auto near = [&](AVRational rate) {
    return rate.num > 0 && rate.den > 0 && std::abs(av_q2d(rate) / measured - 1) < share;
  };
  for (const AVRational rate : {stream.avg_frame_rate, stream.r_frame_rate}) {
    if (near(rate)) return rate;
  }
  const AVRational nearest = nearestUsual(measured);
  return near(nearest) ? std::optional(nearest) : std::nullopt;
}

bool isUsual(AVRational rate) {
  return std::any_of(usualRates.begin(), usualRates.end(),
                     [rate](AVRational usual) { return av_cmp_q(usual, rate) == 0; });
}

// The rate for frames that come as they like, where `measured` is their mean. The container's is
// taken while it is one that people use and shows most frames; a mean is nobody's rate.
AVRational rateOfVarying(const AVStream& stream, double measured) {
  for (const AVRational rate : {stream.avg_frame_rate, stream.r_frame_rate}) {
    const double value = rate.den > 0 ? av_q2d(rate) : 0;
    if (value > 0.9 * measured && value < 2.2 * measured && isUsual(rate)) return rate;
  }
  const AVRational nearest = nearestUsual(measured);
  if (std::abs(av_q2d(nearest) / measured - 1) < 0.05) return nearest;
  for (const AVRational rate : usualRates) {
    if (av_q2d(rate) > measured && av_q2d(rate) < 1.3 * measured) return rate;
  }
  return av_d2q(measured, 1001000);
}

// Times in frames of the rate from the first one, to the nearest, where the middle frame stands
// exactly: a first interval of another length than the others moves none of them.
std::vector<std::int64_t> placesOf(const MovieIndex& index, double frame, bool middle) {
  const auto exact = [&](std::size_t i) {
    return static_cast<double>(index.times[i] - index.times[0]) / frame;
  };
  const double at = middle ? exact(index.times.size() / 2) : 0;
  const double phase = at - std::round(at);
  std::vector<std::int64_t> places;
  for (std::size_t i = 0; i < index.times.size(); ++i) {
    places.push_back(std::max<std::int64_t>(std::llround(exact(i) - phase), 0));
  }
  return places;
}

// How far frames of a movie stand from one another, in the stream's time base and in seconds.
struct Spacing {
  double second;       // units of the time base
  std::int64_t usual;  // the median
  std::int64_t shortest, longest;
  double measured;  // frames a second, all in all
  std::vector<std::int64_t> gaps;

  std::string text() const {
    const auto milliseconds = [&](std::int64_t gap) {
      return std::to_string(std::llround(static_cast<double>(gap) / second * 1000));
    };
    return milliseconds(shortest) + " to " + milliseconds(longest) + " ms apart";
  }
};

// None where there are no two times.
std::optional<Spacing> spacingOf(const MovieIndex& index, const AVStream& video) {
  Spacing spacing{1 / av_q2d(video.time_base), 0, 0, 0, 0, {}};
  std::vector<std::int64_t>& gaps = spacing.gaps;
  for (std::size_t i = 1; i < index.times.size(); ++i) {
    gaps.push_back(index.times[i] - index.times[i - 1]);
  }
  const auto all = static_cast<double>(index.times.back() - index.times.front());
  if (gaps.empty() || all <= 0) return std::nullopt;
  spacing.measured = static_cast<double>(gaps.size()) / all * spacing.second;
  const auto [shortest, longest] = std::minmax_element(gaps.begin(), gaps.end());
  spacing.shortest = *shortest;
  spacing.longest = *longest;
  const auto middle = gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 2);
  std::nth_element(gaps.begin(), middle, gaps.end());
  spacing.usual = std::max<std::int64_t>(*middle, 1);
  return spacing;
}

// Takes one of the rates where the file's frames are evenly spaced at it: none is half a frame from
// where its number puts it.
bool takeConstant(MovieIndex& index, const Spacing& spacing, const std::vector<AVRational>& rates) {
  for (const AVRational rate : rates) {
    for (const bool middle : {false, true}) {
      const auto places = placesOf(index, spacing.second / av_q2d(rate), middle);
      bool even = true;
      for (std::size_t i = 0; i < places.size(); ++i) {
        even = even && places[i] == static_cast<std::int64_t>(i);
      }
      if (!even) continue;
      index.rate = rate;
      index.shown.resize(index.times.size());
      std::iota(index.shown.begin(), index.shown.end(), 0);
      return true;
    }
  }
  return false;
}

// How many frames of a length show frames that are not regular multiples of it. The last one is
// shown until the end that the container states, and no longer than the mean; it has a number of
// its own where one begins with it.
std::int64_t countOf(const MovieIndex& index, const Spacing& spacing, double frame,
                     std::int64_t stated) {
  const auto all = static_cast<double>(index.times.back() - index.times.front());
  const double mean = spacing.second / spacing.measured;
  const double last = stated > 0 ? std::clamp(static_cast<double>(stated) - all, 0.0, mean) : mean;
  return std::max(std::llround((all + last) / frame),
                  std::llround(std::floor(all / frame + 0.01)) + 1);
}

// Numbers the frames at a rate, each where its time is nearest to, by holding and dropping.
void conform(MovieIndex& index, const Spacing& spacing, AVRational rate, bool regular,
             std::int64_t stated, const std::string& path) {
  const double frame = spacing.second / av_q2d(rate);
  std::vector<std::int64_t> places = placesOf(index, frame, regular);
  if (places.back() > std::int64_t{1} << 22) {
    throw Error(Fault::failure, path,
                "expected a frame rate that can be made constant, found frames " + spacing.text());
  }
  const std::int64_t count = regular ? places.back() + 1 : countOf(index, spacing, frame, stated);
  index.rate = rate;
  index.shown.clear();
  std::size_t next = 0;
  int dropped = 0;
  int held = 0;
  for (std::int64_t slot = 0; slot < count; ++slot) {
    const std::size_t before = next;
    while (next < places.size() && places[next] <= slot) ++next;
    if (next == before) ++held;
    if (next > before) dropped += static_cast<int>(next - before) - 1;
    index.shown.push_back(static_cast<int>(std::max<std::size_t>(next, 1)) - 1);
  }
  dropped += static_cast<int>(places.size() - next);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.5g", av_q2d(rate));
  index.notice = "frames are " + spacing.text() + "; taken as shown at " + text.data() +
                 " a second, " + std::to_string(held) + " held and " + std::to_string(dropped) +
                 " dropped";
}

// Numbers frames at a constant rate, and says where that is not how they lie in the file.
void takeRate(MovieIndex& index, const AVStream& video, AVRational asked, const std::string& path) {
  const bool own = asked.num <= 0;
  const auto spacing = spacingOf(index, video);
  if (!spacing) {
    index.rate = {25, 1};
    for (const AVRational rate : {video.r_frame_rate, video.avg_frame_rate, asked}) {
      if (rate.num > 0 && rate.den > 0) index.rate = rate;
    }
    index.shown.assign(1, 0);
    return;
  }
  std::vector<AVRational> constant;
  if (!own) {
    constant.push_back(asked);
  } else {
    // The first and the last interval are often of another length and do not make the rate.
    if (spacing->gaps.size() > 3) {
      const auto inner = static_cast<double>(index.times[index.times.size() - 2] - index.times[1]);
      const double rate = static_cast<double>(spacing->gaps.size() - 2) / std::max(inner, 1.0);
      if (const auto named = namedRate(video, rate * spacing->second, 0.001)) {
        constant.push_back(*named);
      }
    }
    constant.push_back(
        namedRate(video, spacing->measured, 0.001).value_or(av_d2q(spacing->measured, 1001000)));
    // A few frames, or many in little time, measure a rate that is off by the container's rounding.
    for (const AVRational rate : {video.avg_frame_rate, video.r_frame_rate}) {
      if (rate.num > 0 && rate.den > 0) constant.push_back(rate);
    }
  }
  if (takeConstant(index, *spacing, constant)) return;
  if (!own) {
    conform(index, *spacing, asked, false, video.duration, path);
    return;
  }
  // The usual interval makes the rate where nine of ten are whole multiples of it.
  const double usual = spacing->second / static_cast<double>(spacing->usual);
  const AVRational nominal = namedRate(video, usual, 0.02).value_or(av_d2q(usual, 1001000));
  const double frame = spacing->second / av_q2d(nominal);
  const auto multiples =
      std::count_if(spacing->gaps.begin(), spacing->gaps.end(), [frame](std::int64_t gap) {
        const double frames = static_cast<double>(gap) / frame;
        return frames > 0.5 && std::abs(frames - std::round(frames)) < 0.25;
      });
  const bool regular =
      static_cast<double>(multiples) >= 0.9 * static_cast<double>(spacing->gaps.size());
  conform(index, *spacing, regular ? nominal : rateOfVarying(video, spacing->measured), regular,
          video.duration, path);
}

// What the header promised, where it can be told. A file that is cut off lacks a frame at least,
// unless its header says that the frames are all there.
int promisedFrames(const AVFormatContext& format, const AVStream& stream, const MovieIndex& index,
                   double lastEnd) {
  const int found = index.count();
  const auto inFile = static_cast<std::int64_t>(index.times.size());
  if (stream.nb_frames > inFile && stream.nb_frames < (1 << 24)) {
    return found + static_cast<int>(stream.nb_frames - inFile);
  }
  const bool cut = !index.cutOff.empty();
  if (cut && stream.nb_frames == inFile) return found;
  // ASF's duration runs on past its last packet; that the file has all of its bytes is enough.
  if (!cut && std::string_view(format.iformat->name) == "asf") return found;
  // A container says how long its longest stream is. None of them reaches that far: cut off.
  const double frames = av_q2d(index.rate);
  // Of others FFmpeg finds it by what is there.
  constexpr std::array<std::string_view, 6> withHeaders{"mov,", "matroska", "avi",
                                                        "asf",  "flv",      "mxf"};
  const bool header =
      std::any_of(withHeaders.begin(), withHeaders.end(), [&](std::string_view name) {
        return std::string_view(format.iformat->name).starts_with(name);
      });
  const bool stated = header && format.duration_estimation_method == AVFMT_DURATION_FROM_STREAM &&
                      format.duration > 0;
  const double duration = stated ? static_cast<double>(format.duration) / AV_TIME_BASE : 0;
  const double missing = (duration - lastEnd) * frames;
  if (missing > (cut ? 0.5 : 1.5) && missing < (1 << 24)) {
    return found + std::max(static_cast<int>(std::lround(missing)), 1);
  }
  return cut && !stated ? found + 1 : found;
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

namespace {

// Differences of times are taken all over: they have to fit.
void checkTimes(const MovieIndex& index, const std::string& path) {
  constexpr std::int64_t farthest = std::int64_t{1} << 60;
  for (const std::int64_t time : {index.times.front(), index.times.back()}) {
    if (time >= -farthest && time <= farthest) continue;
    throw Error(Fault::failure, path,
                "broken: expected times of frames within 2^60 of 0, found " + std::to_string(time));
  }
}

}  // namespace

MovieIndex MovieIndex::of(MovieInput& input, int stream, const std::string& path,
                          AVRational asked) {
  const AVStream& video = *input->streams[stream];
  if (auto table = tableOf(input, stream)) {
    const auto missing = table->promised - static_cast<int>(table->times.size());
    checkTimes(*table, path);
    takeRate(*table, video, asked, path);
    table->promised = table->count() + missing;
    table->cutOff = cutOffIn(path, input->iformat->name, 0);
    return *std::move(table);
  }
  MovieIndex index;
  const MoviePacket packet = newMoviePacket();
  double lastEnd = 0;         // seconds, of any stream
  std::int64_t lastByte = 0;  // of any packet
  const double start = input->start_time == AV_NOPTS_VALUE
                           ? 0
                           : static_cast<double>(input->start_time) / AV_TIME_BASE;
  int read = 0;
  while ((read = av_read_frame(input.get(), packet.get())) >= 0) {
    if (packet->pos >= 0) lastByte = std::max(lastByte, packet->pos + packet->size);
    const AVRational base = input->streams[packet->stream_index]->time_base;
    const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    if (time != AV_NOPTS_VALUE) {
      lastEnd =
          std::max(lastEnd, (static_cast<double>(time) + static_cast<double>(packet->duration)) *
                                    av_q2d(base) -
                                start);
    }
    if (packet->stream_index == stream && (packet->flags & AV_PKT_FLAG_DISCARD) == 0) {
      if (time == AV_NOPTS_VALUE ||
          (packet->pts == AV_NOPTS_VALUE && video.codecpar->video_delay > 0)) {
        if (const std::string cut = cutOffIn(path, input->iformat->name, 0); !cut.empty()) {
          throw Error(Fault::failure, path,
                      "the file is cut off, and the times of its frames are lost with it: " + cut);
        }
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
  checkTimes(index, path);
  takeRate(index, video, asked, path);
  index.cutOff = cutOffIn(path, input->iformat->name, lastByte);
  if (index.cutOff.empty() && read != AVERROR_EOF) index.cutOff = movieProblem(read);
  index.promised = promisedFrames(*input.get(), video, index, lastEnd);
  return index;
}

const MovieIndex::Key& MovieIndex::keyBefore(std::int64_t time) const {
  const auto after = std::upper_bound(keys.begin(), keys.end(), time,
                                      [](std::int64_t t, const Key& key) { return t < key.time; });
  return after == keys.begin() ? keys.front() : *std::prev(after);
}

}  // namespace orvanite::media
