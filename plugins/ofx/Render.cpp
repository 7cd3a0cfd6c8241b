// SPDX-License-Identifier: BSD-3-Clause
//
// Rendering a window: fetch what the view needs, lend an engine, key bands of lines on the host's
// threads until they are through or the host has had enough.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <functional>
#include <new>

#include "base/Error.h"
#include "engine/targets/Target.h"
#include "plugins/ofx/Images.h"
#include "plugins/ofx/Instance.h"
#include "plugins/ofx/PlateCopy.h"
#include "plugins/ofx/Window.h"

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
          copyLines(job, first, count, staging);
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

// Rows on the threads that the host lends; on this one where it lends none.
void onHostThreads(int height, int least, const std::function<void(int, int)>& work) {
  struct Rows {
    int height, size;
    const std::function<void(int, int)>& work;
    std::atomic<int> next = 0;
    std::atomic<bool> failed = false;

    void take() noexcept {
      try {
        while (!failed) {
          const int first = next.fetch_add(size);
          if (first >= height) return;
          work(first, std::min(size, height - first));
        }
      } catch (...) {  // nothing but memory can fail here
        failed = true;
      }
    }
  };
  const ofx::MultiThreadSuite* suite = host().thread;
  unsigned int threads = 1;
  if (!suite || !suite->multiThread || !suite->numCpus || suite->numCpus(&threads) != ofx::ok) {
    threads = 1;
  }
  const int wanted = static_cast<int>(std::min(threads, 64U));
  Rows rows{height, std::max(least, height / (std::max(1, wanted) * sharesOfAThread)), work};
  if (wanted > 1) {
    suite->multiThread(
        [](unsigned int, unsigned int, void* all) { static_cast<Rows*>(all)->take(); },
        static_cast<unsigned int>(wanted), &rows);
  }
  rows.take();
  if (rows.failed) throw std::bad_alloc();
}

// The same for the same pixels: FNV-1a over them.
std::string pixelsOf(const Plate& plate) {
  std::uint64_t hash = 0xCBF29CE484222325U;
  const int sample = bytesOf(plate.depth);
  const auto take = [&](const void* channel, std::ptrdiff_t at) {
    const auto* bytes = static_cast<const unsigned char*>(channel) + at * sample;
    for (int i = 0; i < sample; ++i) hash = (hash ^ bytes[i]) * 0x100000001B3U;
  };
  for (int y = 0; y < plate.height; ++y) {
    for (int x = 0; x < plate.width; ++x) {
      const std::ptrdiff_t at =
          std::ptrdiff_t{y} * plate.image.lineStep + std::ptrdiff_t{x} * plate.image.pixelStep;
      for (const void* channel : {plate.image.red, plate.image.green, plate.image.blue}) {
        take(channel, at);
      }
    }
  }
  return std::to_string(hash) + " of " + std::to_string(plate.width);
}

// How a given screen colour orders the channels: its estimates are those of no other order.
std::string orderOf(const Settings& settings) {
  if (!settings.given("screen")) return {};
  const ScreenHue hue = hueOfColour(
      {settings.number("screen", 0), settings.number("screen", 1), settings.number("screen", 2)});
  return std::to_string(hue.primary) + std::to_string(hue.middle);
}

}  // namespace

std::shared_ptr<const BlindKey> Instance::estimatesOf(const WindowJob& job, const Image& image,
                                                      const Settings& settings) {
  if (!job.fg || isEmpty(job.fg->bounds)) return nullptr;
  const PlateCopy copy(*job.fg);
  const std::string identity = image.identity();
  const std::array from = {identity.empty() ? pixelsOf(copy.plate) : identity,
                           settings.text("colourspace"), settings.text("estimate"),
                           orderOf(settings)};
  return estimates_.get(from, [&]() -> std::shared_ptr<const BlindKey> {
    try {
      return std::make_shared<BlindKey>(orvanite::findKey(copy.plate, settings));
    } catch (const Error&) {
      return nullptr;  // no screen in this frame
    }
  });
}

// The output's pixels, as far as a finish may look.
ofx::RectI Instance::wholeOf(ofx::Time time, const WindowJob& job, const Image& dst) const {
  const bool byBackground = parameters_.choices().sizedByBackground && background_.connected();
  const auto region = regionOf(byBackground ? background_ : source_, time);
  ofx::RectI whole = job.fg ? job.fg->bounds : job.window;
  // Of an image of one field nobody says which of its lines the region has.
  if (region && !dst.singleField()) {
    const ofx::PointD scale = dst.pixelsPerUnit();
    const auto pixel = [](double v) {
      constexpr double far = 1e8;  // hosts have regions without an end
      return static_cast<int>(std::lround(std::clamp(v, -far, far)));
    };
    whole = {pixel(region->x1 * scale.x), pixel(region->y1 * scale.y), pixel(region->x2 * scale.x),
             pixel(region->y2 * scale.y)};
  }
  const ofx::RectI& w = job.window;
  return {std::min(whole.x1, w.x1), std::min(whole.y1, w.y1), std::max(whole.x2, w.x2),
          std::max(whole.y2, w.y2)};
}

MatteChannel Instance::decided(MatteChannel channel, const ClipRef& clip, const Image& image,
                               const Picture& picture) {
  if (channel != MatteChannel::automatic) return channel;
  if (picture.channels == 1) return MatteChannel::alpha;
  const std::string state = Properties(clip.properties).text(ofx::prop::premultiplication);
  if (picture.channels == 3 || state == ofx::premultiplication::opaque) {
    return MatteChannel::luminance;
  }
  // Many hosts call every picture unpremultiplied: its pixels tell.
  const std::string identity = image.identity();
  {
    const std::lock_guard guard(matteLock_);
    const auto known = opaqueMattes_.find(identity);
    if (known != opaqueMattes_.end()) {
      return known->second ? MatteChannel::luminance : MatteChannel::alpha;
    }
  }
  const bool opaque = isOpaque(picture);
  if (!identity.empty()) {
    const std::lock_guard guard(matteLock_);
    if (opaqueMattes_.size() >= 64) opaqueMattes_.clear();
    opaqueMattes_[identity] = opaque;
  }
  return opaque ? MatteChannel::luminance : MatteChannel::alpha;
}

ofx::Status Instance::render(Properties in) {
  const double time = in.real(ofx::prop::time, 0);
  const auto window = in.rectI(ofx::prop::renderWindow);
  if (!window) return ofx::failed;
  const std::string field = in.text(ofx::prop::fieldToRender);

  const Image dst(output_.clip, time);
  if (!dst) return host().effect->abort && host().effect->abort(effect_) ? ofx::ok : ofx::failed;
  WindowJob job;
  const auto sample = dst.sample();
  if (!sample) return ofx::badImageFormat;
  job.dst = dst.picture(ofx::outputClip);
  if (job.dst.channels < 3) return ofx::badImageFormat;
  job.window = overlap(*window, job.dst.bounds);
  // An image of one field has that field's lines only; in a full frame every second line is ours.
  const bool oneField =
      (field == ofx::field::lower || field == ofx::field::upper) && !dst.singleField();
  const LineSet lines = linesOf(job.window, oneField, field == ofx::field::lower);
  job.firstLine = lines.first;
  job.lineStride = lines.stride;
  job.lines = lines.count;
  if (isEmpty(job.window) || job.lines == 0) return ofx::ok;

  const Request request = requestAt(time);
  const Settings& settings = request.settings;
  const Inputs& inputs = request.inputs;
  job.background = needsBackground(settings, inputs);
  job.sourceColours = request.panel.intermediate;
  for (int c = 0; c < 3; ++c)
    job.screen[static_cast<std::size_t>(c)] = settings.number("screen", c);

  Image fg, bg, hold, garbage, reference;  // held until the last band is through
  const auto fetch = [&](Image& image, const ClipRef& clip, const char* name,
                         const std::optional<ofx::RectD>& region = {}) {
    std::optional<Picture> picture;
    image = Image(clip.clip, time, region ? &*region : nullptr);
    if (!image) return picture;  // outside its clip's time: as if all of it lay outside
    picture = image.picture(name);
    if (picture->sample != *sample) {
      throw Error(Fault::failure, name, "expected the output's depth, found another");
    }
    return picture;
  };
  const auto fetchMatte = [&](Image& image, const ClipRef& clip, const char* name,
                              MatteChannel& channel) {
    // Whether an alpha is opaque is seen in the whole picture.
    const auto whole =
        channel == MatteChannel::automatic ? regionOf(clip, time) : std::optional<ofx::RectD>();
    auto picture = fetch(image, clip, name, whole);
    if (!picture) return picture;
    channel = decided(channel, clip, image, *picture);
    if (picture->channels == 3 && channel == MatteChannel::alpha) {
      throw Error(Fault::wrongUse, name,
                  "the picture has no alpha: choose automatic, luminance, red, green or blue");
    }
    return picture;
  };
  // Estimates are of the whole plate.
  job.fg = fetch(fg, source_, ofx::sourceClip,
                 request.beside() ? regionOf(source_, time) : std::optional<ofx::RectD>());
  if (job.fg && job.fg->channels < 3) return ofx::badImageFormat;
  if (job.fg && job.fg->channels == 4) job.sourceAlpha = request.panel.sourceAlpha;
  if (job.background) {
    job.bg = fetch(bg, background_, backgroundClip);
    if (job.bg && job.bg->channels < 3) return ofx::badImageFormat;
  }
  job.holdChannel = request.panel.holdChannel;
  job.garbageChannel = request.panel.garbageChannel;
  if (request.holdPicture) job.hold = fetchMatte(hold, holdOut_, holdOutClip, job.holdChannel);
  if (request.garbagePicture) {
    job.garbage = fetchMatte(garbage, garbage_, garbageClip, job.garbageChannel);
  }
  std::string problem = settings.screenProblem();
  if (!problem.empty()) problem.insert(0, "Screen colour: ");
  if (problem.empty() && inputs.reference) {
    job.reference = fetch(reference, reference_, referenceClip);
    if (!job.reference) job.reference.emplace();  // all of it is outside: the screen colour
    job.reference->sample = *sample;
  }

  std::optional<EnginePool::Lease> lease;
  job.depth = workingDepth(*sample, inputs.reference);
  if (problem.empty()) {
    lease.emplace(engines_.lease({settings, job.depth, inputs}));
    problem = tableProblem(lease->result());
    job.engine = lease->engine();
  }
  // The plate as it is goes through a depth that takes nothing from it.
  if (!problem.empty()) job.depth = workingDepth(*sample, false);
  settle(problem, clippingNote(*sample, inputs.reference, request.beside()));

  const auto scale = static_cast<float>(in.real(ofx::prop::renderScale, 1, 0));
  const Recipe recipe{settings, job.depth, inputs};
  const auto estimates =
      problem.empty() && request.beside() ? estimatesOf(job, fg, settings) : nullptr;
  if (problem.empty() && !estimates && Finish::of(settings, inputs, scale).on()) {
    const auto keyer = frames_.keyer(recipe, scale);
    keyPart(job, grown(job.window, keyer->border(), wholeOf(time, job, dst)),
            [&](const Frame& frame) { keyer->render(frame, onHostThreads); });
    return ofx::ok;
  }
  const ofx::RectI within = estimates ? overlap(job.window, job.fg->bounds) : ofx::RectI{};
  const bool all = estimates && within.x1 == job.window.x1 && within.x2 == job.window.x2 &&
                   within.y1 == job.window.y1 && within.y2 == job.window.y2;
  Crew crew{job, effect_, !problem.empty()};
  // Around the plate lies screen and nothing else, which any key takes away.
  if (!all) run(crew);
  if (crew.outOfMemory) throw std::bad_alloc();
  if (crew.refused) {
    const std::string& target = targetProblem();
    throw Error(Fault::failure, "render",
                target.empty() ? "the engine refused the pictures" : target);
  }
  if (!estimates || crew.aborted || isEmpty(within)) return ofx::ok;
  const LineSet part = linesOf(within, oneField, field == ofx::field::lower);
  job.window = within;
  job.firstLine = part.first;
  job.lines = part.count;
  keyPart(job, job.fg->bounds, [&](const Frame& frame) {
    frames_.beside(*estimates, recipe, scale)->render(*estimates, frame, onHostThreads);
  });
  return ofx::ok;
}

}  // namespace orvanite::ofxPlugin
