// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/KeyFit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "engine/colour/Encoding.h"
#include "engine/colour/Power.h"
#include "keyer/Masks.h"
#include "keyer/Solve.h"

namespace orvanite {
namespace {

Rgb colourOf(const Colours& c, std::size_t i) { return {c[0][i], c[1][i], c[2][i]}; }

/// The same plate gives the same key: chance from a fixed seed.
struct Chance {
  std::uint32_t state = 1;
  std::uint32_t next() {
    state = state * 1664525U + 1013904223U;
    return state >> 8;
  }
  float share() { return static_cast<float>(next()) / 16777216.0f; }
  /// About a standard normal.
  float normal() {
    float sum = 0;
    for (int i = 0; i < 6; ++i) sum += share();
    return 1.41421356f * (sum - 3);
  }
};

/// Some `most` of the indices, evenly.
template <class Accept>
std::vector<std::size_t> sampled(std::size_t size, std::size_t most, Accept&& accept) {
  std::vector<std::size_t> all;
  for (std::size_t i = 0; i < size; ++i) {
    if (accept(i)) all.push_back(i);
  }
  if (all.size() <= most) return all;
  std::vector<std::size_t> some(most);
  for (std::size_t i = 0; i < most; ++i) some[i] = all[i * all.size() / most];
  return some;
}

// The slope where nothing is told: between the two.
constexpr double undecided = 0.45;

bool isSoft(const KeyRegions& regions, std::size_t i) {
  // A hard edge is soft in the calmed shares alone.
  const auto mixes = [](float share) { return share > 0.08f && share < 0.92f; };
  return regions.inside[i] != 0 && regions.screen[i] == 0 && regions.subject[i] == 0 &&
         mixes(regions.calmShare[i]) && mixes(regions.share[i]);
}

}  // namespace

float valueOf(float code, Mixing mixing) {
  switch (mixing) {
    case Mixing::video:
      return toLinear(code, videoSpace);
    case Mixing::light:
      return lightOfCode(code);
    case Mixing::log:
      return toLinear(code, logSpace);
    default:
      return code;
  }
}

/// Whether colour is stored more coarsely than light, as compressed pictures store it: grain then
/// has no colour. Edges of light and of colour do not coincide there.
bool chromaIsCoarse(const Look& look, const Mask& sure) {
  std::vector<float> light, colour;
  for (int y = 0; y < sure.height; y += 2) {
    for (int x = 1; x < sure.width; x += 2) {
      if (sure(x, y) == 0 || sure(x - 1, y) == 0) continue;
      Rgb step{};
      for (std::size_t c = 0; c < 3; ++c) step[c] = look.codes[c](x, y) - look.codes[c](x - 1, y);
      light.push_back(std::abs(0.3f * step[0] + 0.6f * step[1] + 0.1f * step[2]));
      colour.push_back(std::abs(step[0] - step[1]));
    }
  }
  // Of grain of its own in every channel the second is twice the first.
  return quantile(colour, 0.7) < quantile(light, 0.7) + 0.001f;
}

namespace {

/// A pixel of an edge beside a purer one of the same edge: how far it lies off the line between
/// that one and the screen.
struct EdgePixel {
  Rgb off{};     // what is seen
  Rgb bent{};    // what light of that share would give
  Rgb bright{};  // what a screen's whole light gives, where it leads off the line
  float share;   // of the purer one, along the line
};

/// The pixel of an edge at i; none where it says nothing.
/// smooth  what is looked at, `reach` how many pixels away a neighbour may lie
std::optional<EdgePixel> edgePixel(const Colours& smooth, const ScreenPlate& plate,
                                   const Plane& share, int reach, std::size_t i) {
  constexpr float apart = 0.25f;  // of the two shares of screen, at the least
  const int x = static_cast<int>(i % static_cast<std::size_t>(share.width));
  const int y = static_cast<int>(i / static_cast<std::size_t>(share.width));
  std::size_t purer = i;
  for (int ny = std::max(0, y - reach); ny <= std::min(share.height - 1, y + reach); ++ny) {
    for (int nx = std::max(0, x - reach); nx <= std::min(share.width - 1, x + reach); ++nx) {
      const std::size_t n = share.index(nx, ny);
      if (share[n] < share[purer] && share[n] > -0.5f) purer = n;
    }
  }
  if (share[i] - share[purer] < apart) return std::nullopt;
  const Rgb e = colourOf(plate.clean, i);
  const Rgb f = colourOf(smooth, purer);
  const Rgb p = colourOf(smooth, i);
  Rgb line{}, le{}, lf{};
  float length = 0;
  for (std::size_t c = 0; c < 3; ++c) {
    line[c] = f[c] - e[c];
    length += line[c] * line[c];
    le[c] = lightOfCode(e[c]);
    lf[c] = lightOfCode(f[c]);
  }
  if (length < 0.02f) return std::nullopt;
  const auto along = [&](const Rgb& v) {
    return (v[0] * line[0] + v[1] * line[1] + v[2] * line[2]) / length;
  };
  const float start = along(e), a = along(p) - start;
  if (a < 0.1f || a > 0.9f) return std::nullopt;
  const auto mixedInLight = [&](float t) {
    Rgb v{};
    for (std::size_t c = 0; c < 3; ++c) v[c] = codeOfLight((1 - t) * le[c] + t * lf[c]);
    return v;
  };
  float low = 0, high = 1;
  Rgb v{};
  for (int round = 0; round < 7; ++round) {
    const float middle = 0.5f * (low + high);
    v = mixedInLight(middle);
    (along(v) - start < a ? low : high) = middle;
  }
  const float reached = along(v) - start;
  EdgePixel s{.share = a};
  for (std::size_t c = 0; c < 3; ++c) {
    s.off[c] = p[c] - e[c] - a * line[c];
    s.bent[c] = v[c] - e[c] - reached * line[c];
    s.bright[c] = e[c] - start * line[c];
  }
  return s;
}

std::vector<EdgePixel> edgePixels(const Look& look, const ScreenPlate& plate,
                                  const KeyRegions& regions) {
  const bool coarse = chromaIsCoarse(look, plate.sure);
  const Colours smooth = blurred(look.codes, coarse ? 1.2f : 0.5f, look.rows);
  const std::vector<std::size_t> soft =
      sampled(regions.share.size(), 4000, [&](std::size_t at) { return isSoft(regions, at); });
  std::vector<std::optional<EdgePixel>> found(soft.size());
  look.rows(static_cast<int>(soft.size()), 200, [&](int first, int count) {
    for (int turn = first; turn < first + count; ++turn) {
      const auto i = static_cast<std::size_t>(turn);
      found[i] = edgePixel(smooth, plate, regions.calmShare, coarse ? 4 : 2, soft[i]);
    }
  });
  std::vector<EdgePixel> pixels;
  for (const std::optional<EdgePixel>& pixel : found) {
    if (pixel) pixels.push_back(*pixel);
  }
  return pixels;
}

}  // namespace

// Two pixels of one edge mix the same two colours, whatever the subject's is. Where codes mix, the
// one with more screen lies on the line from the screen to the other; where light mixes it lies off
// it by what the encoding bends. Neighbours have the same subject, spill and light, or nearly so:
// a subject that brightens towards its edges, by spill above all, leads off the line as well, and
// so does a screen that is not as bright as its estimate. Both are fitted beside the bend.
MixingVote mixingOf(const Look& look, const ScreenPlate& plate, const KeyRegions& regions) {
  constexpr double noise = 0.006;       // what lies further off says little
  constexpr double brightening = 0.22;  // how much either may well brighten
  constexpr double doubt = 0.015;       // sum of squares of the bend below which little is told
  const std::vector<EdgePixel> pixels = edgePixels(look, plate, regions);
  MixingVote vote;
  vote.samples = static_cast<int>(pixels.size());
  const double count = static_cast<double>(pixels.size());
  using Triple = std::array<double, 3>;
  Triple t = {undecided, 0, 0};  // bend, subject's brightening, screen's
  double square = 0;
  for (int round = 0; round < 12; ++round) {
    const double hold = count * (noise / brightening) * (noise / brightening);
    std::array<Triple, 3> normal = {Triple{doubt, 0, 0}, Triple{0, hold, 0}, Triple{0, 0, hold}};
    Triple right = {doubt * undecided, 0, 0};
    square = 0;
    for (const EdgePixel& s : pixels) {
      double far = 0;
      std::array<Triple, 3> terms{};
      for (std::size_t c = 0; c < 3; ++c) {
        const double bright = static_cast<double>(s.bright[c]), a = static_cast<double>(s.share);
        terms[c] = {static_cast<double>(s.bent[c]), a * bright, (1 - a) * bright};
        const double rest = static_cast<double>(s.off[c]) - t[0] * terms[c][0] -
                            t[1] * terms[c][1] - t[2] * terms[c][2];
        far += rest * rest;
        square += terms[c][0] * terms[c][0];
      }
      const double weight = 1 / (1 + far / (noise * noise));
      for (std::size_t c = 0; c < 3; ++c) {
        for (std::size_t j = 0; j < 3; ++j) {
          for (std::size_t k = 0; k < 3; ++k) normal[j][k] += weight * terms[c][j] * terms[c][k];
          right[j] += weight * terms[c][j] * static_cast<double>(s.off[c]);
        }
      }
    }
    t = solved(normal, right);
  }
  vote.slope = static_cast<float>(t[0]);
  vote.spread = static_cast<float>(std::sqrt(square / std::max(1.0, count)));
  vote.mixing = vote.slope > 0.46f   ? Mixing::light
                : vote.slope < 0.36f ? Mixing::codes
                                     : Mixing::video;
  return vote;
}

float keyShare(const Rgb& pixel, const Rgb& screen, const ScreenHue& hue, KeyNumbers n) {
  const auto p = static_cast<std::size_t>(hue.primary);
  const auto m = static_cast<std::size_t>(hue.middle);
  const auto q = static_cast<std::size_t>(hue.weakest);
  const float of = screen[p] - n.balance * screen[m] - (1 - n.balance) * screen[q];
  const float key = (1 + n.gain) * pixel[p] - n.balance * pixel[m] - (1 - n.balance) * pixel[q];
  return std::clamp(key / std::max(of, 1e-3f), -4.0f, 4.0f);
}

KeyedPixel keyPixel(const Rgb& pixel, const Rgb& screen, const ScreenHue& hue, KeyNumbers n) {
  const auto p = static_cast<std::size_t>(hue.primary);
  const auto m = static_cast<std::size_t>(hue.middle);
  const auto q = static_cast<std::size_t>(hue.weakest);
  const float of = screen[p] - n.balance * screen[m] - (1 - n.balance) * screen[q];
  const float key = (1 + n.gain) * pixel[p] - n.balance * pixel[m] - (1 - n.balance) * pixel[q];
  const float s = of > 1e-4f ? std::clamp(key / of, 0.0f, 4.0f) : 0.0f;
  KeyedPixel out;
  out.matte = std::max(0.0f, 1 - s);
  float most = 0;
  for (std::size_t c = 0; c < 3; ++c) {
    out.colour[c] = std::max(0.0f, pixel[c] - s * screen[c]);
    most = std::max(most, out.colour[c]);
  }
  out.matte = std::max(out.matte, most);
  if (out.matte > 0) {
    for (float& c : out.colour) c /= out.matte;
  }
  out.matte = std::clamp((out.matte - n.clip) / (1 - 2 * n.clip), 0.0f, 1.0f);
  return out;
}

namespace {

struct Trials {
  std::vector<TrialPixel> mixes, core, screen;
};

Trials trialsOf(const Look& look, const ScreenPlate& plate, const KeyRegions& regions,
                const Plane& held, Mixing mixing) {
  constexpr std::size_t most = 1500;
  Trials trials;
  Chance chance;
  const auto value = [mixing](const Rgb& c) {
    return Rgb{valueOf(c[0], mixing), valueOf(c[1], mixing), valueOf(c[2], mixing)};
  };
  const std::size_t size = regions.share.size();
  // The subject's colours at its edges are those of what is well inside and surely holds no screen;
  // what leans furthest from the screen alone would speak for balances that suit nothing else.
  constexpr float holdsNone = 0.12f;
  constexpr std::size_t enough = 50;
  std::vector<std::uint32_t> nearest = regions.nearestPure;
  Mask deep(regions.core.width, regions.core.height);
  std::size_t deeps = 0;
  for (std::size_t i = 0; i < size; ++i) {
    deep[i] = regions.core[i] != 0 && regions.calmShare[i] < holdsNone;
    deeps += deep[i];
  }
  if (deeps > enough) distanceTo(deep, &nearest, look.rows);
  if (regions.pureCount > 0) {
    // Of the subject without its grain, which is put in below.
    const Colours calm = blurred(look.codes, 1.2f, look.rows);
    for (const std::size_t i :
         sampled(size, most, [&](std::size_t at) { return isSoft(regions, at); })) {
      const Rgb f = colourOf(calm, nearest[i]);
      TrialPixel t;
      t.subject = value(f);
      t.screen = value(colourOf(plate.clean, i));
      t.matte = 0.02f + 0.96f * chance.share();
      for (std::size_t c = 0; c < 3; ++c) {
        const float mixed = t.matte * t.subject[c] + (1 - t.matte) * t.screen[c];
        // Grain is in the codes; its size there says what it is here.
        const float code = look.grain * chance.normal();
        const float at = mixing == Mixing::codes   ? 1.0f
                         : mixing == Mixing::video ? 1.25f * power(std::max(mixed, 0.01f), 0.25f)
                                                   : 2.2f * power(std::max(mixed, 0.002f), 0.545f);
        t.colour[c] = std::max(0.0f, mixed + at * code);
      }
      trials.mixes.push_back(t);
    }
  }
  // What is held is solid whatever the numbers are, and says little; it speaks where nothing else
  // does, for the rim around it is made of the same.
  const auto isOpen = [&](std::size_t at) { return held.size() == 0 || held[at] < 0.5f; };
  std::vector<std::size_t> solid =
      sampled(size, most, [&](std::size_t at) { return regions.core[at] != 0 && isOpen(at); });
  if (solid.size() < enough) {
    solid = sampled(size, most, [&](std::size_t at) { return regions.subject[at] != 0; });
  }
  for (const std::size_t i : solid) {
    const Rgb f = value(colourOf(look.codes, i));
    trials.core.push_back({f, value(colourOf(plate.clean, i)), f, 1});
  }
  for (const std::size_t i : sampled(size, most, [&](std::size_t at) {
         return regions.screen[at] != 0 && regions.inside[at] != 0;
       })) {
    trials.screen.push_back(
        {value(colourOf(look.codes, i)), value(colourOf(plate.clean, i)), {}, 0});
  }
  return trials;
}

/// What numbers cost; where that is no less than `least`, anything that is no less either.
float costOf(const Trials& trials, const ScreenHue& hue, KeyNumbers numbers, float least) {
  const auto mean = [](double sum, std::size_t count) {
    return static_cast<float>(sum / static_cast<double>(std::max<std::size_t>(1, count)));
  };
  double matte = 0, composite = 0, core = 0, screen = 0, lost = 0;
  for (const TrialPixel& t : trials.core) {
    // The clip makes solid again what holds some screen, but its colour is lost with that screen.
    const KeyedPixel k = keyPixel(t.colour, t.screen, hue, numbers);
    core += static_cast<double>(std::min(0.2f, std::abs(1 - k.matte)));
    for (std::size_t c = 0; c < 3; ++c) {
      lost += static_cast<double>(std::abs(k.colour[c] - t.subject[c])) / 3;
    }
  }
  for (const TrialPixel& t : trials.screen) {
    screen += static_cast<double>(std::min(0.2f, keyPixel(t.colour, t.screen, hue, numbers).matte));
  }
  const auto cost = [&] {
    return 2 * mean(matte, trials.mixes.size()) + 0.1f * mean(composite, trials.mixes.size()) +
           0.8f * mean(core, trials.core.size()) + 0.3f * mean(screen, trials.screen.size()) +
           0.3f * numbers.clip + mean(lost, trials.core.size());
  };
  // Nothing that is still to come lowers it.
  if (cost() >= least) return cost();
  for (const TrialPixel& t : trials.mixes) {
    const KeyedPixel k = keyPixel(t.colour, t.screen, hue, numbers);
    matte += static_cast<double>(std::abs(k.matte - t.matte));
    for (std::size_t c = 0; c < 3; ++c) {
      composite += static_cast<double>(
                       std::abs(k.matte * (k.colour[c] - 0.5f) - t.matte * (t.subject[c] - 0.5f))) /
                   3;
    }
  }
  return cost();
}

}  // namespace

KeyNumbers fitKey(const Look& look, const ScreenHue& hue, const ScreenPlate& plate,
                  const KeyRegions& regions, const Plane& held, Mixing mixing) {
  const Trials trials = trialsOf(look, plate, regions, held, mixing);
  Rgb s{};
  for (std::size_t c = 0; c < 3; ++c) s[c] = valueOf(hue.colour[c], mixing);
  const float sp = s[static_cast<std::size_t>(hue.primary)];
  const float sm = s[static_cast<std::size_t>(hue.middle)];
  const float sq = s[static_cast<std::size_t>(hue.weakest)];
  KeyNumbers best{.balance = 0.3f, .gain = 0, .clip = 0.03f};
  std::vector<KeyNumbers> tried;
  for (const float balance : {0.0f, 0.15f, 0.3f, 0.45f, 0.6f, 0.8f, 1.0f}) {
    const float d = sp - balance * sm - (1 - balance) * sq;
    if (d < 0.03f * sp) continue;
    for (const float gain : {0.0f, -0.05f, -0.1f}) {
      const float needed = -gain * sp / d;
      for (const float more : {0.01f, 0.03f, 0.06f, 0.09f}) {
        tried.push_back({balance, gain, std::min(0.45f, needed + more)});
      }
    }
  }
  const float most = costOf(trials, hue, best, std::numeric_limits<float>::infinity());
  std::vector<float> costs(tried.size());
  look.rows(static_cast<int>(tried.size()), 6, [&](int first, int count) {
    float least = most;
    for (int turn = first; turn < first + count; ++turn) {
      const auto i = static_cast<std::size_t>(turn);
      costs[i] = costOf(trials, hue, tried[i], least);
      least = std::min(least, costs[i]);
    }
  });
  // The first of the best.
  float least = most;
  for (std::size_t i = 0; i < tried.size(); ++i) {
    if (costs[i] >= least) continue;
    least = costs[i];
    best = tried[i];
  }
  return best;
}

}  // namespace orvanite
