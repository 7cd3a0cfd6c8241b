// SPDX-License-Identifier: BSD-3-Clause
//
// How hair grows: guides leave the scalp, are combed back along the skull, then hang in the wind;
// locks of hairs follow each guide and draw together towards its tip.
#include "examples/plate/Strands.h"

#include <tbb/parallel_for.h>

#include <algorithm>

namespace orvanite::plate {

namespace {

constexpr int knots = 44;

struct Guide {
  V3 points[knots];  // head units
  int count = knots;
};

/// Moves a place out of the skull and the neck.
V3 outside(V3 p, float clearance) {
  const V3 inverse = {1 / (skullRadii.x + clearance), 1 / (skullRadii.y + clearance),
                      1 / (skullRadii.z + clearance)};
  const V3 q = (p - skullCentre) * inverse;
  const float n = length(q);
  return n < 1 && n > 1e-6f ? skullCentre + (p - skullCentre) * (1 / n) : p;
}

Guide grow(V3 root, Dice& dice, float time, float wildness) {
  Guide guide;
  V3 p = root;
  const V3 radial =
      normal((root - skullCentre) *
             V3{1 / square(skullRadii.x), 1 / square(skullRadii.y), 1 / square(skullRadii.z)});
  V3 d = normal(V3{-1.0f, 0.28f + 0.5f * root.y, 0.05f * root.z} +
                radial * (0.20f + 0.35f * wildness));
  const float step = 0.0305f * (0.82f + 0.36f * dice.unit());
  const float gust = dice.unit(), lift = dice.sided();
  float clearance = 0.012f + 0.05f * dice.unit();
  clearance += 0.05f * wildness * dice.unit();
  guide.count = knots - static_cast<int>(dice.unit() * dice.unit() * 20);
  for (int i = 0; i < knots; ++i) {
    guide.points[i] = p;
    const float s = static_cast<float>(i) / (knots - 1);
    // Wind to the left, weight, and a wave that runs out along the hair.
    const float wave = sineOfTurns(0.55f * time + gust * 0.35f - 1.25f * s + 0.35f * root.y);
    const float flutter = sineOfTurns(0.9f * time + gust - 2.6f * s);
    V3 pull = {-1.0f - 0.25f * s,
               -0.62f * (1 - s) + 0.16f * s + 0.55f * s * wave + 0.22f * lift * s, 0};
    pull = pull + V3{0, 0.40f * s * flutter * (0.35f + wildness), 0.30f * dice.sided() * s};
    pull.y -= 0.35f * ramp(0.25f, -0.1f, root.y) * (1 - s);
    d = normal(mix(d, normal(pull), 0.13f + 0.05f * s));
    p = outside(p + d * step, clearance);
  }
  return guide;
}

class Barber {
 public:
  Barber(const Head& h, V3 light, const Options& options)
      : head(h),
        screenLight(light),
        strength(options.difficulty == Difficulty::hard ? 1.6f : 1.0f) {}

  /// One hair through points in head units. `under` is how deep in the mass it lies, 0 top, 1 deep.
  void hair(const V3* points, int count, float halfWidth, V3 albedo, float under, float density) {
    for (int i = 0; i + 1 < count; ++i) {
      const V3 a = head.toScene(points[i]), b = head.toScene(points[i + 1]);
      const float s = static_cast<float>(i) / static_cast<float>(count - 1);
      const V3 along = normal(b - a);
      // The sine of the angle to the half way direction, squared: a hair shines all round.
      const auto glint = [&](V3 l, float shift) {
        const V3 half = normal(l + V3{0, 0, 1} + along * shift);
        const float c = dot(along, half);
        return most(1 - c * c, 0);
      };
      const float cosine = dot(along, keyDirection);
      const float lit = std::sqrt(most(1 - cosine * cosine, 0));
      // The head stands between the key and the hair behind it.
      const float open = (1 - 0.88f * under);
      const float back = glint(rimDirection, 0);
      const float root = 0.35f + 0.65f * ramp(0, 0.14f, s);
      V3 e = albedo * root *
             (keyEnergy * (0.75f * lit * open) + skyEnergy * (0.5f + 0.4f * open) +
              leftRimEnergy * 0.35f);
      e = e + keyEnergy * (root * open * (0.10f * power(glint(keyDirection, 0.10f), 30))) +
          albedo * keyEnergy * (root * open * 2.6f * power(glint(keyDirection, -0.16f), 12));
      e = e + (rimEnergy * albedo * 2.0f + rimEnergy * 0.02f) *
                  (back * back * back * (0.15f + 0.85f * s) * (1 - 0.6f * under));
      Segment piece{};
      piece.x0 = a.x;
      piece.y0 = a.y;
      piece.x1 = b.x;
      piece.y1 = b.y;
      piece.depth = (a.z + b.z) * 0.5f;
      piece.halfWidth =
          halfWidth * (0.30f + 0.70f * ramp(0, 0.10f, s)) * (1 - 0.75f * s * s) * head.scale;
      piece.density = density;
      piece.colour = exposed(e);
      piece.spill = screenLight * ((0.025f + 0.055f * s) * strength * (1 - 0.5f * under));
      pieces.push_back(piece);
    }
  }

  std::vector<Segment> pieces;

 private:
  const Head& head;
  V3 screenLight;
  float strength;
};

V3 hairColour(Dice& dice) {
  const float t = dice.unit();
  const V3 dark = {0.075f, 0.023f, 0.010f}, warm = {0.27f, 0.085f, 0.026f},
           gold = {0.50f, 0.22f, 0.075f};
  const V3 base = t < 0.75f ? mix(dark, warm, t / 0.75f) : mix(warm, gold, (t - 0.75f) * 3.2f);
  return base * (0.85f + 0.3f * dice.unit());
}

}  // namespace

std::vector<Segment> growStrands(const Options& options, const Head& head, V3 screenLight) {
  const float time = static_cast<float>(options.frame - 1) / 24;
  Dice dice(77);

  struct Lock {
    Guide guide;
    float depth;
    std::uint32_t seed;
    bool stray;
  };
  std::vector<Lock> locks;
  std::uint32_t seed = 1000;
  const auto plant = [&](int wanted, bool stray, float border) {
    for (int made = 0, tries = 0; made < wanted && tries < 200000; ++tries) {
      V3 u = {dice.sided(), dice.sided(), dice.sided()};
      const float n = length(u);
      if (n > 1 || n < 0.1f) continue;
      u = u * (1 / n);
      const V3 root = skullCentre + u * skullRadii;
      const float before = beforeHairline(root);
      if (before > 0.015f || before < -border || root.y < -0.24f) continue;
      ++made;
      Dice own(++seed);
      Lock lock{grow(root, own, time, stray ? 1.0f : 0.0f),
                root.z + 0.25f * root.y + 0.1f * own.sided(), seed, stray};
      locks.push_back(lock);
    }
  };
  plant(370, false, 9);
  plant(130, false, 0.07f);  // a denser border, or the scalp shows
  plant(420, true, 9);
  std::stable_sort(locks.begin(), locks.end(),
                   [](const Lock& a, const Lock& b) { return a.depth < b.depth; });

  std::vector<std::vector<Segment>> grown(locks.size());
  tbb::parallel_for(std::size_t{0}, locks.size(), [&](std::size_t index) {
    const Lock& lock = locks[index];
    Barber barber(head, screenLight, options);
    Dice own(lock.seed * 31 + 7);
    const int hairs = lock.stray ? 1 : 26;
    const V3 tone = hairColour(own);
    const float phase = own.unit();
    for (int h = 0; h < hairs; ++h) {
      const float ox = own.bell(), oy = own.bell(), oz = own.bell(), turn = own.unit();
      const float spread = lock.stray ? 0 : 0.045f;
      const int count = static_cast<int>(static_cast<float>(lock.guide.count) *
                                         (lock.stray ? 1 : 0.72f + 0.28f * own.unit()));
      V3 points[knots];
      for (int i = 0; i < count; ++i) {
        const float s = static_cast<float>(i) / (knots - 1);
        // A lock is wide at the scalp, tight two thirds out, and frays at its end.
        const float wide =
            spread * (0.40f + 0.60f * ramp(0, 0.10f, s) - 0.80f * ramp(0.1f, 0.65f, s) +
                      0.75f * square(ramp(0.6f, 1, s)));
        V3 p = lock.guide.points[i] + V3{ox, oy, oz} * wide;
        const float curl = (lock.stray ? 0.030f : 0.016f) * ramp(0.05f, 0.6f, s);
        const float angle = (lock.stray ? turn : phase + 0.06f * turn) + s * (2.1f + 0.4f * turn);
        p = p + V3{0.3f * curl * cosineOfTurns(angle), curl * sineOfTurns(angle),
                   curl * cosineOfTurns(angle)};
        points[i] = s < 0.5f ? outside(p, 0.004f + 0.02f * ramp(0, 0.1f, s)) : p;
      }
      const V3 albedo = mix(tone, hairColour(own), 0.35f);
      const float under =
          lock.stray ? 0.1f : clamp01(0.26f - 0.65f * (lock.depth) + 0.25f * own.sided());
      barber.hair(points, count, lock.stray ? 0.0013f : 0.0019f, albedo, under,
                  lock.stray ? 0.8f : 0.95f);
    }
    grown[index] = std::move(barber.pieces);
  });
  Barber barber(head, screenLight, options);
  for (const auto& pieces : grown) {
    barber.pieces.insert(barber.pieces.end(), pieces.begin(), pieces.end());
  }

  // Fine hair that has come loose round the face.
  for (int i = 0; i < 46; ++i) {
    const float y = 0.40f - 0.62f * dice.unit();
    const float x = 0.045f + (y > 0.02f ? 0.56f * y : 1.15f * (y - 0.02f));
    V3 p = outside({x, y, 0.10f + 0.24f * dice.unit()}, 0.01f);
    p = outside({p.x, p.y, most(0.02f, 0.36f - 0.5f * magnitude(y))}, 0.005f);
    V3 d = normal({0.25f + 0.3f * dice.sided(), 0.3f * dice.sided() + 0.3f * y, 0.7f});
    V3 points[22];
    for (auto& point : points) {
      point = p;
      d = normal(mix(d, normal({-0.9f, -0.25f + 0.3f * dice.sided(), 0.25f}), 0.16f));
      p = outside(p + d * 0.016f, 0.014f);
    }
    barber.hair(points, 22, 0.0011f, hairColour(dice), 0.1f, 0.7f);
  }

  // Brow and lashes lie on the face: they are given a depth in front of it.
  const auto onFace = [&](V3 from, V3 to, V3 bend, float halfWidth, V3 albedo, float density) {
    V3 points[6];
    for (int i = 0; i < 6; ++i) {
      const float t = static_cast<float>(i) / 5;
      points[i] = mix(from, to, t) + bend * (t * (1 - t) * 4);
    }
    const std::size_t first = barber.pieces.size();
    barber.hair(points, 6, halfWidth, albedo, 0.55f, density);
    for (std::size_t i = first; i < barber.pieces.size(); ++i) barber.pieces[i].depth = 5;
  };
  for (int i = 0; i < 120; ++i) {
    const float t = dice.unit();
    const float thick = 0.018f * (1 - 0.75f * t) * ramp(-0.15f, 0.15f, t);
    const V3 root = {0.382f - 0.125f * t,
                     0.088f + 0.040f * t * (1.9f - 1.75f * t) + thick * dice.sided(),
                     0.055f + 0.175f * t};
    onFace(root, root + V3{-0.022f, 0.010f - 0.014f * t, 0.025f}, {0, 0.003f, 0}, 0.0021f,
           V3{0.075f, 0.030f, 0.016f} * (0.7f + 0.6f * dice.unit()), 0.8f);
  }
  const auto lidAt = [](float t) {  // the closed lid's edge, from the nose outwards
    return V3{0.352f - 0.085f * t * t - 0.012f * t,
              -0.018f - 0.030f * 4 * t * (1 - t) * (0.75f + 0.3f * t), 0.075f + 0.125f * t};
  };
  for (int i = 0; i < 9; ++i) {
    const float t = static_cast<float>(i) / 9;
    onFace(lidAt(t), lidAt(t + 1.0f / 9), {}, 0.0034f, {0.030f, 0.013f, 0.010f}, 0.9f);
  }
  for (int i = 0; i < 40; ++i) {
    const float t = 0.06f + 0.94f * (static_cast<float>(i) + dice.unit()) / 40;
    const float reach = (0.55f + 0.55f * t) * (0.75f + 0.35f * dice.unit());
    const V3 root = lidAt(t);
    onFace(root, root + V3{0.034f - 0.052f * t, -0.026f - 0.002f * t, 0.040f} * reach,
           {0.002f, -0.010f * reach, 0}, 0.0014f, {0.018f, 0.009f, 0.008f}, 0.95f);
  }
  return std::move(barber.pieces);
}

TiledStrands::TiledStrands(std::vector<Segment> all, int width, int height, float pixelsPerUnit,
                           float centreX, float centreY)
    : segments(std::move(all)),
      across((width + side - 1) / side),
      down((height + side - 1) / side) {
  byTile.resize(static_cast<std::size_t>(across) * static_cast<std::size_t>(down));
  for (std::size_t i = 0; i < segments.size(); ++i) {
    Segment& s = segments[i];
    s.x0 = centreX + s.x0 * pixelsPerUnit;
    s.x1 = centreX + s.x1 * pixelsPerUnit;
    s.y0 = centreY - s.y0 * pixelsPerUnit;
    s.y1 = centreY - s.y1 * pixelsPerUnit;
    s.halfWidth *= pixelsPerUnit;
    const float margin = s.halfWidth + 1;
    const auto tile = [](float v, int count) {
      const float t = std::floor(v / side);
      return t < 0 ? -1 : t >= static_cast<float>(count) ? count : static_cast<int>(t);
    };
    const int left = std::max(0, tile(least(s.x0, s.x1) - margin, across));
    const int right = std::min(across - 1, tile(most(s.x0, s.x1) + margin, across));
    const int top = std::max(0, tile(least(s.y0, s.y1) - margin, down));
    const int bottom = std::min(down - 1, tile(most(s.y0, s.y1) + margin, down));
    for (int y = top; y <= bottom; ++y) {
      for (int x = left; x <= right; ++x) {
        byTile[static_cast<std::size_t>(y) * static_cast<std::size_t>(across) +
               static_cast<std::size_t>(x)]
            .push_back(static_cast<int>(i));
      }
    }
  }
}

void TiledStrands::draw(int tile, Layer* layers, const float* depths) const {
  const int left = tile % across * side, top = tile / across * side;
  for (const int index : byTile[static_cast<std::size_t>(tile)]) {
    const Segment& s = segments[static_cast<std::size_t>(index)];
    const float margin = s.halfWidth + 1;
    const float dx = s.x1 - s.x0, dy = s.y1 - s.y0;
    const float run = dx * dx + dy * dy;
    const auto within = [](float v) {
      return v < 0 ? 0 : v > side - 1 ? side - 1 : static_cast<int>(v);
    };
    const int x0 = within(least(s.x0, s.x1) - margin - static_cast<float>(left));
    const int x1 = within(most(s.x0, s.x1) + margin - static_cast<float>(left));
    const int y0 = within(least(s.y0, s.y1) - margin - static_cast<float>(top));
    const int y1 = within(most(s.y0, s.y1) + margin - static_cast<float>(top));
    const float extent = std::sqrt(run);
    for (int y = y0; y <= y1; ++y) {
      for (int x = x0; x <= x1; ++x) {
        const int at = y * side + x;
        if (depths && s.depth < depths[at]) continue;
        const float px = static_cast<float>(left + x) + 0.5f - s.x0;
        const float py = static_cast<float>(top + y) + 0.5f - s.y0;
        // Along the line a box of one pixel, cut at both ends so that joints are not drawn twice.
        const float t = run > 0 ? (px * dx + py * dy) / extent : 0;
        const float ends = clamp01(t + 0.5f) - clamp01(t - extent + 0.5f);
        if (ends <= 0) continue;
        const float away =
            run > 0 ? magnitude(px * dy - py * dx) / extent : std::sqrt(px * px + py * py);
        const float cover = least(s.halfWidth, away + 0.5f) - most(-s.halfWidth, away - 0.5f);
        if (cover <= 0) continue;
        Layer hair;
        hair.matte = least(cover * ends, 1) * s.density;
        hair.colour = s.colour * hair.matte;
        hair.spill = s.spill * hair.matte;
        putOver(layers[at], hair);
      }
    }
  }
}

}  // namespace orvanite::plate
