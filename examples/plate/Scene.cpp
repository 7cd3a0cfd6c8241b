// SPDX-License-Identifier: BSD-3-Clause
//
// Puts the layers together, tile by tile, and derives the mattes.
//
// Order, back to front: grass and hair, veil first; solid things; hair that lies before them;
// glass; ball. Solid things are looked at once a pixel and sixteen times where an edge runs.
#include "examples/plate/Scene.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <stdexcept>

#include "examples/plate/Airy.h"
#include "examples/plate/Backdrop.h"

namespace orvanite::plate {

namespace {

template <class Work>
void eachRow(int rows, Work work) {
  tbb::parallel_for(tbb::blocked_range<int>(0, rows, 8), [&](const tbb::blocked_range<int>& range) {
    for (int y = range.begin(); y < range.end(); ++y) work(y);
  });
}

/// Where the scene lies: 3.55 by 2 units, centred, as large as fits.
struct View {
  float scale, centreX, centreY, pixel;
  View(int w, int h)
      : scale(least(static_cast<float>(h) / 2, static_cast<float>(w) / 3.5555556f)),
        centreX(static_cast<float>(w) / 2),
        centreY(static_cast<float>(h) / 2),
        pixel(1 / scale) {}
  float x(int column) const { return (static_cast<float>(column) + 0.5f - centreX) * pixel; }
  float y(int row) const { return (centreY - static_cast<float>(row) - 0.5f) * pixel; }
};

/// One plane of numbers, read past its edges as at its edges.
struct Plane {
  int width, height;
  std::vector<float> values;
  Plane(int w, int h)
      : width(w), height(h), values(static_cast<std::size_t>(w) * static_cast<std::size_t>(h)) {}
  float& at(int x, int y) {
    return values[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                  static_cast<std::size_t>(x)];
  }
  float near(int x, int y) const {
    x = std::clamp(x, 0, width - 1);
    y = std::clamp(y, 0, height - 1);
    return values[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                  static_cast<std::size_t>(x)];
  }
  float between(float x, float y) const {
    const float fx = std::floor(x), fy = std::floor(y);
    const int ix = static_cast<int>(fx), iy = static_cast<int>(fy);
    return mix(mix(near(ix, iy), near(ix + 1, iy), x - fx),
               mix(near(ix, iy + 1), near(ix + 1, iy + 1), x - fx), y - fy);
  }
};

/// A box blur along rows, then along columns, `times` over.
Plane blurred(Plane plane, int radius, int times) {
  Plane other(plane.width, plane.height);
  const float share = 1 / static_cast<float>(2 * radius + 1);
  const auto line = [&](const Plane& from, Plane& to, int fixed, bool row) {
    const int n = row ? from.width : from.height;
    const auto in = [&](int i) { return row ? from.near(i, fixed) : from.near(fixed, i); };
    double sum = 0;
    for (int i = -radius; i <= radius; ++i) sum += static_cast<double>(in(i));
    for (int i = 0; i < n; ++i) {
      (row ? to.at(i, fixed) : to.at(fixed, i)) = static_cast<float>(sum) * share;
      sum += static_cast<double>(in(i + radius + 1)) - static_cast<double>(in(i - radius));
    }
  };
  for (int t = 0; t < times; ++t) {
    eachRow(plane.height, [&](int y) { line(plane, other, y, true); });
    eachRow(plane.width, [&](int x) { line(other, plane, x, false); });
  }
  return plane;
}

/// Grain of film or sensor: finer than it looks, since neighbours share some of it.
/// Mean 0, deviation about 1.
float grainAt(int x, int y, std::uint32_t seed) {
  const auto white = [&](int i, int j) {
    const std::uint32_t h =
        scramble(static_cast<std::uint32_t>(x + i) * 0x9e3779b1u ^
                 scramble(static_cast<std::uint32_t>(y + j) + seed * 0x85ebca6bu));
    const auto part = [&](int shift) { return static_cast<float>(h >> shift & 255u); };
    return (part(0) + part(8) + part(16) + part(24) - 510) * (1.0f / 147.8f);
  };
  return (white(0, 0) + 0.35f * (white(-1, 0) + white(1, 0) + white(0, -1) + white(0, 1))) * 0.82f;
}

class Painter {
 public:
  explicit Painter(const Options& o)
      : options(o),
        view(o.width, o.height),
        screenLight(lightOfCode(screenCode(o.screen))),
        sculpture(o, screenLight),
        airy(o, screenLight, view.pixel),
        solids(static_cast<std::size_t>(o.width) * static_cast<std::size_t>(o.height)),
        layers(solids.size()) {}

  Pictures paint() {
    lookAtSolids();
    stackLayers();
    return develop();
  }

 private:
  std::size_t index(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(options.width) +
           static_cast<std::size_t>(x);
  }

  void lookAtSolids() {
    std::vector<Sculpture::Hit> centres(solids.size());
    eachRow(options.height, [&](int y) {
      for (int x = 0; x < options.width; ++x)
        centres[index(x, y)] = sculpture.look(view.x(x), view.y(y));
    });
    eachRow(options.height, [&](int y) {
      for (int x = 0; x < options.width; ++x) {
        const Sculpture::Hit& here = centres[index(x, y)];
        bool edge = false;
        for (int dy = -1; dy <= 1; ++dy) {
          for (int dx = -1; dx <= 1; ++dx) {
            const int nx = std::clamp(x + dx, 0, options.width - 1),
                      ny = std::clamp(y + dy, 0, options.height - 1);
            const Sculpture::Hit& there = centres[index(nx, ny)];
            edge = edge || there.thing != here.thing ||
                   magnitude(there.depth - here.depth) > 0.02f + 3 * view.pixel;
          }
        }
        solids[index(x, y)] = edge ? lookClosely(x, y) : here;
      }
    });
  }

  Sculpture::Hit lookClosely(int x, int y) const {
    Sculpture::Hit sum;
    float depth = 0;
    for (int i = 0; i < 16; ++i) {
      const float dx = (static_cast<float>(i % 4) - 1.5f) * 0.25f,
                  dy = (static_cast<float>(i / 4) - 1.5f) * 0.25f;
      const Sculpture::Hit one =
          sculpture.look(view.x(x) + dx * view.pixel, view.y(y) - dy * view.pixel);
      if (one.thing == Thing::nothing) continue;
      if (sum.thing == Thing::nothing || one.depth > depth) {
        depth = one.depth;
        sum.thing = one.thing;
      }
      sum.layer.matte += 0.0625f;
      sum.layer.colour = sum.layer.colour + one.layer.colour * 0.0625f;
      sum.layer.spill = sum.layer.spill + one.layer.spill * 0.0625f;
    }
    sum.depth = sum.thing == Thing::nothing ? -10 : depth;
    return sum;
  }

  void stackLayers() {
    std::vector<Segment> all = airy.grass();
    const std::vector<Segment> hair = growStrands(options, sculpture.head(), screenLight);
    all.insert(all.end(), hair.begin(), hair.end());
    const TiledStrands strands(std::move(all), options.width, options.height, view.scale,
                               view.centreX, view.centreY);
    constexpr int side = TiledStrands::side;
    constexpr std::size_t pixels = std::size_t{side} * side;
    tbb::parallel_for(0, strands.tilesAcross() * strands.tilesDown(), [&](int tile) {
      std::vector<Layer> stack(pixels);
      std::vector<float> depths(pixels, 10.0f);
      const int left = tile % strands.tilesAcross() * side,
                top = tile / strands.tilesAcross() * side;
      const int right = std::min(side, options.width - left),
                bottom = std::min(side, options.height - top);
      const auto each = [&](auto work) {
        for (int y = 0; y < bottom; ++y) {
          for (int x = 0; x < right; ++x)
            work(stack[static_cast<std::size_t>(y * side + x)], left + x, top + y);
        }
      };
      each([&](Layer& layer, int x, int y) { layer = airy.veil(view.x(x), view.y(y)); });
      strands.draw(tile, stack.data(), nullptr);
      each([&](Layer& layer, int x, int y) {
        const Sculpture::Hit& solid = solids[index(x, y)];
        putOver(layer, solid.layer);
        if (solid.layer.matte > 0)
          depths[static_cast<std::size_t>((y - top) * side + x - left)] = solid.depth - 0.06f;
      });
      strands.draw(tile, stack.data(), depths.data());
      each([&](Layer& layer, int x, int y) {
        putOver(layer, airy.glass(view.x(x), view.y(y)));
        putOver(layer, airy.flyingBall(view.x(x), view.y(y)));
        layers[index(x, y)] = layer;
      });
    });
  }

  /// The subject's shadow on the screen, 0 none, at a coarse scale.
  Plane castShadow() const {
    const int step = std::max(1, static_cast<int>(view.scale / 60));
    Plane coarse((options.width + step - 1) / step, (options.height + step - 1) / step);
    eachRow(coarse.height, [&](int y) {
      for (int x = 0; x < coarse.width; ++x) {
        float sum = 0;
        for (int j = 0; j < step; ++j) {
          for (int i = 0; i < step; ++i) {
            sum += layers[index(std::min(x * step + i, options.width - 1),
                                std::min(y * step + j, options.height - 1))]
                       .matte;
          }
        }
        coarse.at(x, y) = sum / static_cast<float>(step * step);
      }
    });
    return blurred(std::move(coarse),
                   std::max(1, static_cast<int>(0.09f * view.scale / static_cast<float>(step))), 3);
  }

  /// 1 well inside the solid things, falling to 0 before their edges.
  Plane innerPart() const {
    const int w = options.width, h = options.height;
    const int margin = std::max(1, static_cast<int>(0.004f * view.scale));
    Plane inner(w, h);
    eachRow(h, [&](int y) {
      for (int x = 0; x < w; ++x)
        inner.at(x, y) = solids[index(x, y)].layer.matte >= 1 ? 1.0f : 0.0f;
    });
    // Twice the margin is taken away, and two blurs give at most that much back.
    inner = blurred(std::move(inner), 2 * margin, 1);
    const float all = 1 - 0.5f / square(static_cast<float>(4 * margin + 1));
    for (float& value : inner.values) value = value > all ? 1.0f : 0.0f;
    return blurred(std::move(inner), margin, 2);
  }

  Pictures develop() {
    const int w = options.width, h = options.height;
    const bool hard = options.difficulty == Difficulty::hard,
               easy = options.difficulty == Difficulty::clean;
    Pictures out{Picture(w, h), Picture(w, h), Picture(w, h), Picture(w, h), Picture(w, h),
                 Picture(w, h), Picture(w, h), Picture(w, h), Picture(w, h)};
    const Plane shade = castShadow();
    const int step = std::max(1, static_cast<int>(view.scale / 60));
    const float strength = easy ? 0 : hard ? 0.45f : 0.20f;
    const Plane core = innerPart();
    const bool spill = options.spill && !easy;
    const float grain = options.grain && !easy ? (hard ? 2.6f : 1.0f) : 0;
    const auto seed = static_cast<std::uint32_t>(options.frame) * 8u;

    eachRow(h, [&](int y) {
      for (int x = 0; x < w; ++x) {
        const float sx = view.x(x), sy = view.y(y);
        const Layer& layer = layers[index(x, y)];
        const V3 bare = screenAt(options, sx, sy, view.pixel);
        const float dark = shade.between(
            (static_cast<float>(x) + 0.5f + 0.20f * view.scale) / static_cast<float>(step) - 0.5f,
            (static_cast<float>(y) + 0.5f - 0.07f * view.scale) / static_cast<float>(step) - 0.5f);
        const V3 screen = bare * (1 - strength * dark);
        const float matte = clamp01(layer.matte);
        const V3 foreground = matte > 0 ? layer.colour * (1 / matte) : V3{};
        const V3 thrown = spill ? layer.spill : V3{};
        const V3 clear = foreground * matte + screen * (1 - matte) + thrown;
        const auto noisy = [&](float v, std::uint32_t channel, float share) {
          if (grain <= 0) return v;
          const float deviation = grain * share * (0.0035f + 0.0075f * std::sqrt(most(v, 0)));
          return most(0, v + deviation * grainAt(x, y, channel));
        };
        const auto put = [&](Picture& picture, V3 c, float a) {
          float* sample = picture.at(x, y);
          sample[0] = c.x;
          sample[1] = c.y;
          sample[2] = c.z;
          sample[3] = a;
        };
        const auto flat = [](float v) { return V3{v, v, v}; };
        put(out.plate,
            {noisy(clear.x, seed, 1.1f), noisy(clear.y, seed + 1, 0.8f),
             noisy(clear.z, seed + 2, 1.5f)},
            1);
        put(out.cleanPlate,
            {noisy(bare.x, seed + 3, 1.1f), noisy(bare.y, seed + 4, 0.8f),
             noisy(bare.z, seed + 5, 1.5f)},
            1);
        put(out.background, landscapeAt(options, sx, sy), 1);
        const float solid = clamp01(core.near(x, y));
        put(out.holdOut, flat(solid), solid);
        const float away = easy ? 0 : garbageAt(sx);
        put(out.garbage, flat(away), away);
        put(out.matte, flat(matte), matte);
        put(out.foreground, foreground, 1);
        put(out.screen, screen, 1);
        put(out.spill, thrown, 1);
      }
    });
    return out;
  }

  Options options;
  View view;
  V3 screenLight;
  Sculpture sculpture;
  Airy airy;
  std::vector<Sculpture::Hit> solids;
  std::vector<Layer> layers;
};

}  // namespace

Pictures draw(const Options& options) {
  if (options.width < 1 || options.height < 1)
    throw std::invalid_argument("a plate is at least 1 by 1 pixels");
  return Painter(options).paint();
}

Colour screenColour(ScreenColour screen, bool encoded) {
  const V3 code = screenCode(screen);
  const V3 c = encoded ? code : lightOfCode(code);
  return {c.x, c.y, c.z};
}

float videoCode(float light) { return encodeVideo(light); }

}  // namespace orvanite::plate
