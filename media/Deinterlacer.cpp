// SPDX-License-Identifier: BSD-3-Clause
//
// A frame is made from itself and both beside it. The first one out of a filter that was just made
// is made from itself alone: frames other than the movie's first begin one frame early.
#include "media/Deinterlacer.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include "base/Error.h"

namespace orvanite::media {
namespace {

const std::string& libraryName() {
  static const std::string name = "libavfilter.so." + std::to_string(LIBAVFILTER_VERSION_MAJOR);
  return name;
}

// The functions of libavfilter that are used, in the version that this was compiled with.
struct Library {
  void* handle = dlopen(libraryName().c_str(), RTLD_NOW);

  // Where a function is, as whatever it is.
  struct Found {
    void* at;
    template <class Function>
    operator Function*() const {
      return reinterpret_cast<Function*>(at);
    }
  };
  Found find(const char* name) const { return {handle ? dlsym(handle, name) : nullptr}; }

  decltype(::avfilter_graph_alloc)* avfilter_graph_alloc = find("avfilter_graph_alloc");
  decltype(::avfilter_graph_free)* avfilter_graph_free = find("avfilter_graph_free");
  decltype(::avfilter_graph_config)* avfilter_graph_config = find("avfilter_graph_config");
  decltype(::avfilter_graph_create_filter)* avfilter_graph_create_filter =
      find("avfilter_graph_create_filter");
  decltype(::avfilter_graph_set_auto_convert)* avfilter_graph_set_auto_convert =
      find("avfilter_graph_set_auto_convert");
  decltype(::avfilter_get_by_name)* avfilter_get_by_name = find("avfilter_get_by_name");
  decltype(::avfilter_link)* avfilter_link = find("avfilter_link");
  decltype(::av_buffersrc_add_frame_flags)* av_buffersrc_add_frame_flags =
      find("av_buffersrc_add_frame_flags");
  decltype(::av_buffersink_get_frame)* av_buffersink_get_frame = find("av_buffersink_get_frame");

  bool complete() const {
    return avfilter_graph_alloc && avfilter_graph_free && avfilter_graph_config &&
           avfilter_graph_create_filter && avfilter_graph_set_auto_convert &&
           avfilter_get_by_name && avfilter_link && av_buffersrc_add_frame_flags &&
           av_buffersink_get_frame;
  }
};

const Library& library() {
  static const Library loaded;
  return loaded;
}

}  // namespace

Deinterlacer::Deinterlacer(const std::string& path, int threads)
    : path_(path), threads_(std::max(threads, 1)) {
  if (library().complete()) return;
  throw Error(Fault::failure, path,
              "cannot be deinterlaced: " + libraryName() + " is not installed");
}

Deinterlacer::~Deinterlacer() { end(); }

void Deinterlacer::end() {
  if (graph_ != nullptr) library().avfilter_graph_free(&graph_);
  source_ = sink_ = nullptr;
  last_.reset();
}

void Deinterlacer::check(int result) const {
  if (result < 0) {
    throw Error(Fault::failure, path_, "cannot be deinterlaced: " + movieProblem(result));
  }
}

void Deinterlacer::begin(const AVFrame& first) {
  end();
  const Library& filters = library();
  graph_ = filters.avfilter_graph_alloc();
  if (graph_ == nullptr) throw Error(Fault::failure, path_, "out of memory");
  graph_->nb_threads = threads_;
  // Pixels that the filter does not take are refused, not converted.
  filters.avfilter_graph_set_auto_convert(graph_,
                                          static_cast<unsigned>(AVFILTER_AUTO_CONVERT_NONE));
  std::array<char, 128> picture{};
  std::snprintf(picture.data(), picture.size(), "width=%d:height=%d:pix_fmt=%d:time_base=1/1",
                first.width, first.height, first.format);
  AVFilterContext* filter = nullptr;
  const auto make = [&](AVFilterContext** made, const char* name, const char* options) {
    const AVFilter* const kind = filters.avfilter_get_by_name(name);
    check(kind == nullptr
              ? AVERROR_FILTER_NOT_FOUND
              : filters.avfilter_graph_create_filter(made, kind, name, options, nullptr, graph_));
  };
  make(&source_, "buffer", picture.data());
  make(&filter, "bwdif", "mode=send_frame:parity=auto:deint=interlaced");
  make(&sink_, "buffersink", nullptr);
  check(filters.avfilter_link(source_, 0, filter, 0));
  check(filters.avfilter_link(filter, 0, sink_, 0));
  check(filters.avfilter_graph_config(graph_, nullptr));
  format_ = first.format;
}

void Deinterlacer::push(AVFrame* frame, int place) {
  if (frame != nullptr && frame->format != format_) {
    throw Error(Fault::failure, path_, "its pixel format changes: it cannot be deinterlaced");
  }
  const MovieFrame own = newMovieFrame();
  if (frame != nullptr) {
    check(av_frame_ref(own.get(), frame));
    own->pts = place;
  }
  check(library().av_buffersrc_add_frame_flags(source_, frame == nullptr ? nullptr : own.get(), 0));
}

MovieFrame Deinterlacer::frame(int place, int count,
                               const std::function<MovieFrame(int)>& decoded) {
  if (last_ && place == out_ - 1) return last_;
  try {
    if (graph_ == nullptr || place != out_) {
      in_ = out_ = std::max(place - 1, 0);
      begin(*decoded(in_));
    }
    while (true) {
      MovieFrame made = newMovieFrame();
      const int got = library().av_buffersink_get_frame(sink_, made.get());
      if (got == AVERROR(EAGAIN)) {
        const MovieFrame next = in_ < count ? decoded(in_) : nullptr;
        push(next.get(), in_++);
        continue;
      }
      check(got);
      last_ = std::move(made);
      if (out_++ == place) return last_;
    }
  } catch (...) {
    end();
    throw;
  }
}

}  // namespace orvanite::media
