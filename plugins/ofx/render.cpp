// SPDX-License-Identifier: BSD-3-Clause
//
// Rendering a window: fetch what the view needs, lend an engine, key bands of lines on the host's
// threads until they are through or the host has had enough.
#include <algorithm>
#include <atomic>
#include <new>

#include "engine/kernels/Target.h"
#include "keyer/Error.h"
#include "plugins/ofx/images.h"
#include "plugins/ofx/instance.h"
#include "plugins/ofx/window.h"

namespace orvanite::ofxPlugin {

namespace {

// A window's shares of lines, taken one by one by however many threads the host really starts.
// Between two shares a thread asks whether the host still wants the picture, and a share is what
// threads finish apart by at the most; below this many lines a tile's start would show.
constexpr int leastShare = 32, mostShare = 256, sharesOfAThread = 8;

struct Crew {
  const WindowJob& job;
  ofx::Effect effect;
  bool copy;  // the plate as it is, instead of its key
  int share = leastShare;
  std::atomic<int> nextLine = 0;
  std::atomic<bool> aborted = false;
  std::atomic<bool> refused = false;
  std::atomic<bool> outOfMemory = false;

  bool stopped() const { return aborted || refused || outOfMemory; }

  void work() noexcept {
    try {
      Staging staging;
      while (!stopped()) {
        const int first = nextLine.fetch_add(share);
        if (first >= job.lines) return;
        if (host().effect->abort && host().effect->abort(effect)) {
          aborted = true;
          return;
        }
        const int count = std::min(share, job.lines - first);
        if (copy) {
          copyLines(job, first, count);
        } else if (keyLines(job, first, count, staging) != 0) {
          refused = true;
        }
      }
    } catch (...) {  // nothing but memory can fail here
      outOfMemory = true;
    }
  }
};

void onHostThread(unsigned int, unsigned int, void* crew) { static_cast<Crew*>(crew)->work(); }

void run(Crew& crew) {
  const ofx::MultiThreadSuite* suite = host().thread;
  unsigned int threads = 1;
  if (!suite || !suite->multiThread || !suite->numCpus || suite->numCpus(&threads) != ofx::ok) {
    threads = 1;
  }
  const int most = std::max(1, crew.job.lines / leastShare);
  const int wanted = static_cast<int>(std::min(threads, static_cast<unsigned int>(most)));
  crew.share =
      std::clamp(crew.job.lines / (std::max(1, wanted) * sharesOfAThread), leastShare, mostShare);
  // A host refuses calls from its own threads: then this thread does all.
  if (wanted > 1) suite->multiThread(onHostThread, static_cast<unsigned int>(wanted), &crew);
  crew.work();  // what is left: nothing, or all when the host started no thread
}

}  // namespace

ofx::Status Instance::render(Properties in) {
  const double time = in.real(ofx::prop::time, 0);
  const auto window = in.rectI(ofx::prop::renderWindow);
  if (!window) return ofx::failed;
  const std::string field = in.text(ofx::prop::fieldToRender);

  const Image dst(output_.clip, time);
  if (!dst) return host().effect->abort && host().effect->abort(effect_) ? ofx::ok : ofx::failed;
  WindowJob job;
  job.depth = dst.depth();
  job.dst = dst.picture(ofx::outputClip);
  if (job.depth == 0 || job.dst.channels < 3) return ofx::badImageFormat;
  job.window = overlap(*window, job.dst.bounds);
  // An image of one field has that field's lines only; in a full frame every second line is ours.
  const bool oneField =
      (field == ofx::field::lower || field == ofx::field::upper) && !dst.singleField();
  const LineSet lines = linesOf(job.window, oneField, field == ofx::field::lower);
  job.firstLine = lines.first;
  job.lineStride = lines.stride;
  job.lines = lines.count;
  if (isEmpty(job.window) || job.lines == 0) return ofx::ok;

  const Settings settings = parameters_.at(time);
  const Inputs inputs = inputsFor(settings);
  const int view = settings.view(inputs);
  job.background = view == 0;
  for (int c = 0; c < 3; ++c)
    job.screen[static_cast<std::size_t>(c)] = settings.number("screen", c);

  Image fg, bg, hold, garbage, reference;  // held until the last band is through
  const auto fetch = [&](Image& image, const ClipRef& clip, const char* name) {
    std::optional<Picture> picture;
    image = Image(clip.clip, time);
    if (!image) return picture;  // outside its clip's time: as if all of it lay outside
    if (image.depth() != job.depth) {
      throw Error(Fault::failure, name, "expected the output's depth, found another");
    }
    picture = image.picture(name);
    return picture;
  };
  const auto channelOf = [&](const char* parameter, const Picture& picture, const char* name) {
    const std::string text = settings.text(parameter);
    const int channel = text == "R" ? 0 : text == "G" ? 1 : text == "B" ? 2 : 3;
    if (picture.channels == 3 && channel == 3) {
      throw Error(Fault::wrongUse, name, "the picture has no alpha: choose red, green or blue");
    }
    return channel;
  };
  job.fg = fetch(fg, source_, ofx::sourceClip);
  if (job.fg && job.fg->channels < 3) return ofx::badImageFormat;
  if (job.background) {
    job.bg = fetch(bg, background_, backgroundClip);
    if (job.bg && job.bg->channels < 3) return ofx::badImageFormat;
  }
  if (inputs.holdOut) {
    job.hold = fetch(hold, holdOut_, holdOutClip);
    if (job.hold) job.holdChannel = channelOf("holdOutChannel", *job.hold, holdOutClip);
  }
  if (inputs.garbage) {
    job.garbage = fetch(garbage, garbage_, garbageClip);
    if (job.garbage) job.garbageChannel = channelOf("garbageChannel", *job.garbage, garbageClip);
  }
  std::string problem = problemOf(settings, job.depth, inputs);
  if (problem.empty() && inputs.reference) {
    job.reference = fetch(reference, reference_, referenceClip);
    if (!job.reference) job.reference.emplace();  // all of it is outside: the screen colour
  }

  std::optional<EnginePool::Lease> lease;
  if (problem.empty()) {
    lease.emplace(engines_.lease({settings, job.depth, inputs}));
    problem = tableProblem(lease->result());
    job.engine = lease->engine();
  }
  if (problem.empty()) {
    clearReport();
  } else {
    report(ofx::message::warning, problem);
  }

  Crew crew{job, effect_, !problem.empty()};
  run(crew);
  if (crew.outOfMemory) throw std::bad_alloc();
  if (crew.refused) {
    const std::string& target = targetProblem();
    throw Error(Fault::failure, "render",
                target.empty() ? "the engine refused the pictures" : target);
  }
  return ofx::ok;
}

}  // namespace orvanite::ofxPlugin
