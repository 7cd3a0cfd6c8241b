// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/ScreenPlate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "keyer/Masks.h"
#include "keyer/Sheet.h"
#include "keyer/Solve.h"

namespace orvanite {
namespace {

using Terms = std::array<double, 6>;

Terms termsAt(double x, double y) { return {1, x, y, x * x, x * y, y * y}; }

double place(int at, int of) { return (at + 0.5) / of - 0.5; }

/// Least squares with weights that fall with the residual, from an even sample of the mask.
Quadratic fitted(const Look& look, const Mask& mask) {
  const int w = mask.width;
  const int h = mask.height;
  Values<std::uint32_t> pixels;
  pixels.reserve(mask.size());
  for (std::size_t i = 0; i < mask.size(); ++i) {
    if (mask[i] != 0) pixels.push_back(static_cast<std::uint32_t>(i));
  }
  Quadratic fit;
  if (pixels.empty()) return fit;
  const std::size_t count = std::min<std::size_t>(6000, pixels.size());
  std::vector<Terms> at(count);
  std::vector<std::array<double, 3>> seen(count);
  std::vector<std::size_t> sample(count);
  for (std::size_t i = 0; i < count; ++i) {
    sample[i] = pixels[i * pixels.size() / count];
    at[i] = termsAt(place(static_cast<int>(sample[i] % static_cast<std::size_t>(w)), w),
                    place(static_cast<int>(sample[i] / static_cast<std::size_t>(w)), h));
    for (std::size_t c = 0; c < 3; ++c) {
      seen[i][c] = static_cast<double>(look.codes[c][sample[i]]);
    }
  }
  std::vector<double> weight(count, 1);
  constexpr double ridge = 2e-4;
  for (int round = 0; round < 7; ++round) {
    std::array<Terms, 6> normal{};
    std::array<Terms, 3> right{};
    // Row by row: a row's sums stay in registers.
    turnsBy(look.rows)(6, [&](int row) {
      const auto j = static_cast<std::size_t>(row);
      Terms sums{};
      std::array<double, 3> colour{};
      for (std::size_t i = 0; i < count; ++i) {
        const double v = weight[i] * at[i][j];
        for (std::size_t k = 0; k < 6; ++k) sums[k] += v * at[i][k];
        for (std::size_t c = 0; c < 3; ++c) colour[c] += v * seen[i][c];
      }
      normal[j] = sums;
      for (std::size_t c = 0; c < 3; ++c) right[c][j] = colour[c];
    });
    for (std::size_t j = 1; j < 6; ++j) normal[j][j] += ridge * static_cast<double>(count);
    for (std::size_t c = 0; c < 3; ++c) fit.terms[c] = solved(normal, right[c]);
    if (round == 6) break;
    std::vector<float> residual(count);
    for (std::size_t i = 0; i < count; ++i) {
      double worst = 0;
      for (std::size_t c = 0; c < 3; ++c) {
        double value = 0;
        for (std::size_t j = 0; j < 6; ++j) value += fit.terms[c][j] * at[i][j];
        worst += std::abs(value - seen[i][c]);
      }
      residual[i] = static_cast<float>(worst / 3);
    }
    std::vector<float> sorted = residual;
    const float scale = std::max(0.008f, 1.5f * quantile(sorted, 0.5));
    for (std::size_t i = 0; i < count; ++i) {
      const float ratio = residual[i] / scale;
      weight[i] = 1 / (1 + static_cast<double>(ratio * ratio));
    }
  }
  for (std::size_t c = 0; c < 3; ++c) {
    std::vector<float> values;
    values.reserve(count);
    for (const std::size_t i : sample) values.push_back(look.codes[c][i]);
    fit.low[c] = 0.75f * quantile(values, 0.01);
    fit.high[c] = 1.15f * quantile(values, 0.99);
  }
  return fit;
}

float grainOf(const Look& look, const Mask& mask) {
  Values<float> steps;
  steps.reserve(3 * mask.size() / 4);
  for (const Plane& plane : look.codes) {
    for (int y = 0; y < mask.height; y += 2) {
      for (int x = 1; x < mask.width; x += 2) {
        if (mask(x, y) != 0 && mask(x - 1, y) != 0) {
          steps.push_back(std::abs(plane(x, y) - plane(x - 1, y)));
        }
      }
    }
  }
  // Of a normal distribution's differences the median modulus is .954 of its deviation.
  return 1.05f * quantile(steps, 0.5);
}

/// The mask's calm part, where light varies no more than twice as much as in its calmest tenth, a
/// slope aside. Leaves and fur of the screen's hue are rougher than a screen.
Mask calmOf(const Plane& grey, const Mask& mask, const RowLoop& rows) {
  constexpr float around = 3;  // pixels
  const Plane mean = blurred(grey, around, rows);
  Plane rough = Plane::unset(mask.width, mask.height);
  eachPixel(rough, rows,
            [&](std::size_t i) { rough[i] = (grey[i] - mean[i]) * (grey[i] - mean[i]); });
  rough = blurred(rough, around, rows);
  eachPixel(rough, rows, [&](std::size_t i) { rough[i] = std::sqrt(rough[i]); });
  const float most = std::max(0.006f, 2 * quantile(rough, mask, 0.1, rows));
  Mask calm = Mask::unset(mask.width, mask.height);
  eachPixel(calm, rows, [&](std::size_t i) { calm[i] = mask[i] != 0 && rough[i] < most; });
  return calm;
}

/// The parts of which a fifth or more is the screen's own; `mask` says which pixels count.
Mask ledFrom(const Mask& own, const Mask& mask, const Values<std::uint32_t>& part) {
  Values<std::uint32_t> owns(part.size(), 0), alls(part.size(), 0);
  for (std::size_t i = 0; i < part.size(); ++i) {
    if (mask[i] == 0) continue;
    owns[part[i]] += own[i];
    ++alls[part[i]];
  }
  Mask led(mask.width, mask.height);
  for (std::size_t i = 0; i < part.size(); ++i) {
    led[i] = 5 * owns[part[i]] > alls[part[i]] && alls[part[i]] > 1;
  }
  return led;
}

/// How far two colours' hues lie apart, as a distance of shares.
float hueBetween(const Colours& a, const Colours& b, std::size_t i) {
  const auto one = hueOf(a[0][i], a[1][i], a[2][i]);
  const auto other = hueOf(b[0][i], b[1][i], b[2][i]);
  return lengthOf(one[0] - other[0], one[1] - other[1]);
}

/// What surely is screen of what has its colour, and the rigid plate through it.
ScreenPlate plateThrough(const Mask& own, const Mask& dark, const Look& look, const Colours& smooth,
                         const Plane& grey) {
  const int w = own.width;
  const int h = own.height;
  Mask other = Mask::unset(w, h);
  eachPixel(other, look.rows, [&](std::size_t i) { other[i] = own[i] == 0; });
  ScreenPlate plate;
  plate.sure = Mask::unset(w, h);
  // Hair mixed with screen keeps the screen's hue; only its distance keeps it out. Of a screen that
  // shows through gaps alone, what there is must do.
  const float away = std::clamp(static_cast<float>(std::max(w, h)) / 160, 1.2f, 2.5f);
  const Plane depth = distanceWithin(other, away, look.rows);
  for (const float least : {away, 0.6f * away, 0.5f}) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < own.size(); ++i) {
      plate.sure[i] = depth[i] > least;
      count += plate.sure[i];
    }
    if (count > 60 && count > own.size() / 500) break;
  }
  const Mask known = plate.sure;
  // Leaves of the screen's hue are seen in specks; so is a screen between them, but in the colour
  // that the rest of it leads to.
  const Mask large = largeOf(known);
  const float near = std::max(6.0f, 0.015f * static_cast<float>(std::max(w, h)));
  const Plane beyond = distanceWithin(large, near, look.rows);
  const Mask calm = calmOf(grey, large, look.rows);
  plate.sure = calm;
  Plane aside(w, h), lighter(w, h), offLight(w, h);
  for (int round = 0; round < 3; ++round) {
    plate.rigid = fitted(look, plate.sure);
    if (round == 2) break;
    const Colours clean = plate.rigid.over(w, h, look.rows);
    eachPixel(known, look.rows, [&](std::size_t i) {
      if (known[i] == 0) return;
      aside[i] = hueBetween(smooth, clean, i);
      lighter[i] = sumAt(smooth, i) / std::max(sumAt(clean, i), 1e-3f);
      offLight[i] = std::abs(lighter[i] - 1);
    });
    const float agrees = std::max(0.01f, 2 * quantile(aside, calm, 0.5, look.rows));
    const float alike = std::max(0.006f, quantile(aside, large, 0.98, look.rows));
    const float asLight = std::max(0.05f, 1.4f * quantile(offLight, large, 0.98, look.rows));
    eachPixel(known, look.rows, [&](std::size_t i) {
      plate.sure[i] = known[i] != 0 && (calm[i] != 0 || aside[i] < agrees) &&
                      lighter[i] > (dark[i] != 0 ? 0.15f : 0.4f) && lighter[i] < 1.8f &&
                      (beyond[i] < near || (aside[i] < alike && offLight[i] < asLight));
    });
  }
  return plate;
}

}  // namespace

Colours Quadratic::over(int width, int height, const RowLoop& rows) const {
  Colours out;
  for (std::size_t c = 0; c < 3; ++c) {
    out[c] = Plane::unset(width, height);
    rows(height, leastRows, [&](int first, int count) {
      for (int y = first; y < first + count; ++y) {
        const double v = place(y, height);
        const double constant = terms[c][0] + terms[c][2] * v + terms[c][5] * v * v;
        const double slope = terms[c][1] + terms[c][4] * v;
        for (int x = 0; x < width; ++x) {
          const double u = place(x, width);
          out[c](x, y) = std::clamp(static_cast<float>(constant + slope * u + terms[c][3] * u * u),
                                    low[c], high[c]);
        }
      }
    });
  }
  return out;
}

ScreenPlate rigidPlate(Look& look, const ScreenHue& hue) {
  const int w = look.codes[0].width;
  const int h = look.codes[0].height;
  const Colours smooth = blurred(look.codes, 1.2f, look.rows);
  const float within = hueReach(hue);
  const Shorter isNear(within);
  const float light = hue.colour[0] + hue.colour[1] + hue.colour[2];
  Plane grey = Plane::unset(w, h);
  eachPixel(grey, look.rows, [&](std::size_t i) { grey[i] = sumAt(smooth, i) / 3; });
  const Plane rough = contrast(grey, look.rows);
  Mask own = Mask::unset(w, h), akin = own, dark = own;
  eachPixel(own, look.rows, [&](std::size_t i) {
    const Rgb colour = {smooth[0][i], smooth[1][i], smooth[2][i]};
    const HueOffset off = offsetOf(hue, hueOf(colour[0], colour[1], colour[2]));
    const float sum = sumAt(smooth, i);
    own[i] = isNear(off.fuller, off.beside) && sum > 0.25f * light;
    dark[i] = isDarkScreen(hue, colour);
    // Washed out by light, and brighter for it.
    const float pale = -off.fuller / hue.fromGrey;
    const bool washed =
        pale > 0 && pale < 0.45f && off.beside < within && sum > light * (1 + 0.5f * pale);
    akin[i] = own[i] != 0 || dark[i] != 0 || washed;
  });
  look.grain = grainOf(look, own);
  const float roughest = 1.6f * std::max(0.02f, 3 * look.grain);
  // What smoothly leads on from the screen is screen, too, though its hue has drifted. Into the
  // dark it does so across creases as well, for no subject is fuller than the screen.
  Mask grown = Mask::unset(w, h), fuller = grown, across = grown;
  eachPixel(own, look.rows, [&](std::size_t i) {
    own[i] = own[i] != 0 && rough[i] < roughest;
    akin[i] = akin[i] != 0 && rough[i] < 0.6f * roughest;
    grown[i] = own[i] != 0 || akin[i] != 0;
    fuller[i] = own[i] != 0 || (akin[i] != 0 && dark[i] != 0);
  });
  const Mask all = opened(grown, look.rows), bulk = opened(fuller, look.rows);
  constexpr float crease = 3.5f;  // pixels to its middle
  const Plane between = distanceWithin(bulk, crease, look.rows);
  eachPixel(across, look.rows, [&](std::size_t i) { across[i] = between[i] < crease; });
  const Mask led = ledFrom(own, all, partsOf(all)), far = ledFrom(own, bulk, partsOf(across));
  const Mask firm = opened(own, look.rows);
  eachPixel(own, look.rows, [&](std::size_t i) {
    own[i] = firm[i] != 0 || (grown[i] != 0 && led[i] != 0) || (fuller[i] != 0 && far[i] != 0);
  });
  own = opened(own, look.rows);
  ScreenPlate plate = plateThrough(own, dark, look, smooth, grey);
  // A screen's hue may drift farther over a frame than one screen's hues lie apart. What has the
  // hue and the light that the rest of it leads to, and hangs together with it, is screen.
  const std::size_t few = own.size() / 300;
  for (int round = 0; round < 3; ++round) {
    const Colours clean = plate.rigid.over(w, h, look.rows);
    Mask drifted = Mask::unset(w, h);
    eachPixel(own, look.rows, [&](std::size_t i) {
      const float lighter = sumAt(smooth, i) / std::max(sumAt(clean, i), 1e-3f);
      drifted[i] = own[i] != 0 || (rough[i] < 0.6f * roughest && std::abs(lighter - 1) < 0.2f &&
                                   hueBetween(smooth, clean, i) < 0.6f * within);
    });
    const auto beyondOwn = [&](const Mask& mask) {
      std::size_t count = 0;
      for (std::size_t i = 0; i < own.size(); ++i) count += mask[i] != 0 && own[i] == 0;
      return count;
    };
    if (beyondOwn(drifted) < few) break;  // as of most plates
    drifted = opened(drifted, look.rows);
    const Mask joined = ledFrom(own, drifted, partsOf(drifted));
    if (beyondOwn(joined) < few) break;
    for (std::size_t i = 0; i < own.size(); ++i) own[i] = own[i] != 0 || joined[i] != 0;
    plate = plateThrough(own, dark, look, smooth, grey);
  }
  look.grain = grainOf(look, plate.sure);
  return plate;
}

float distanceOf(const Mask& sure, const Look& look, const Colours& clean) {
  double square = 0;
  std::size_t count = 0;
  for (std::size_t c = 0; c < 3; ++c) {
    Plane off = look.codes[c];
    eachPixel(off, look.rows, [&](std::size_t i) { off[i] -= clean[c][i]; });
    off = blurred(off, 2, look.rows);
    for (std::size_t i = 0; i < off.size(); ++i) {
      if (sure[i] == 0) continue;
      square += static_cast<double>(off[i] * off[i]);
      ++count;
    }
  }
  return static_cast<float>(
      std::sqrt(square / static_cast<double>(std::max<std::size_t>(1, count))));
}

void takeIn(ScreenPlate& plate, const Mask& sure, const Look& look) {
  if (plate.count.size() == 0) {
    plate.count = Plane(sure.width, sure.height);
    for (Plane& sum : plate.sum) sum = Plane(sure.width, sure.height);
  }
  for (std::size_t i = 0; i < sure.size(); ++i) {
    if (sure[i] == 0) continue;
    plate.count[i] += 1;
    plate.sure[i] = 1;
    for (std::size_t c = 0; c < 3; ++c) plate.sum[c][i] += look.codes[c][i];
  }
}

void estimateClean(ScreenPlate& plate, const Look& look, const ScreenHue& hue) {
  const int w = plate.sure.width;
  const int h = plate.sure.height;
  if (plate.count.size() == 0) takeIn(plate, Mask(plate.sure), look);
  const Colours rigid = plate.rigid.over(w, h, look.rows);
  plate.clean = rigid;
  // Where nothing is seen the residual is nothing; its averages stay within what is seen.
  Colours residual;
  for (std::size_t c = 0; c < 3; ++c) {
    residual[c] = Plane::unset(w, h);
    eachPixel(residual[c], look.rows, [&](std::size_t i) {
      residual[c][i] = plate.count[i] > 0 ? plate.sum[c][i] / plate.count[i] - rigid[c][i] : 0;
    });
  }
  plate.misfit = 0;
  const Plane mask = planeOf(plate.sure);
  const Plane seenShare = blurred(mask, 2, look.rows);
  const Colours smooth = blurred(residual, 2, look.rows);
  double square = 0;
  std::size_t count = 0;
  for (std::size_t i = 0; i < mask.size(); ++i) {
    if (plate.sure[i] == 0) continue;
    for (std::size_t c = 0; c < 3; ++c) {
      const float mean = smooth[c][i] / seenShare[i];
      square += static_cast<double>(mean * mean);
    }
    count += 3;
  }
  plate.misfit =
      static_cast<float>(std::sqrt(square / static_cast<double>(std::max<std::size_t>(1, count))));
  constexpr float explained = 0.003f;
  plate.local = plate.misfit >= explained;
  if (!plate.local) return;

  // Only what has the rigid plate's hue: a subject's or its spill's would be carried on. Far from
  // all that is not screen there is neither.
  constexpr float farOff = 12;  // pixels
  Mask unsure = Mask::unset(w, h);
  eachPixel(unsure, look.rows, [&](std::size_t i) { unsure[i] = plate.sure[i] == 0; });
  const Plane depth = distanceWithin(unsure, farOff, look.rows);
  Mask trusted = Mask::unset(w, h);
  const float light = hue.colour[0] + hue.colour[1] + hue.colour[2];
  Plane aside(w, h);
  eachPixel(aside, look.rows, [&](std::size_t i) {
    if (plate.sure[i] == 0) return;
    Rgb seen{};
    for (std::size_t c = 0; c < 3; ++c) seen[c] = rigid[c][i] + smooth[c][i] / seenShare[i];
    const auto own = hueOf(seen[0], seen[1], seen[2]);
    const auto stiff = hueOf(rigid[0][i], rigid[1][i], rigid[2][i]);
    aside[i] = lengthOf(own[0] - stiff[0], own[1] - stiff[1]);
  });
  Mask deep = Mask::unset(w, h);  // in the screen itself
  eachPixel(deep, look.rows,
            [&](std::size_t i) { deep[i] = plate.sure[i] != 0 && depth[i] > farOff; });
  const float within =
      std::max({0.012f, 1.2f * look.grain / light, quantile(aside, deep, 0.9, look.rows)});
  eachPixel(trusted, look.rows, [&](std::size_t i) {
    trusted[i] = plate.sure[i] != 0 && (depth[i] > farOff || aside[i] < within);
  });
  const int cell = std::max(2, (std::max(w, h) + 39) / 40);
  const int columns = (w + cell - 1) / cell;
  const int rows = (h + cell - 1) / cell;
  const Plane known = planeOf(trusted);
  std::array<Plane, 3> near;  // how much of a pixel's surroundings is seen
  constexpr std::array<float, 3> reaches = {12, 5, 2.5f};
  constexpr std::array<float, 3> enough = {0.25f, 0.3f, 0.4f};
  for (std::size_t s = 0; s < 3; ++s) near[s] = blurred(known, reaches[s], look.rows);
  std::array<Plane, 3> solved;
  turnsBy(look.rows)(3, [&](int channel) {
    const auto c = static_cast<std::size_t>(channel);
    Sheet sheet(columns, rows);
    Raster<int> seen(columns, rows);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        if (trusted(x, y) == 0) {
          residual[c](x, y) = 0;
          continue;
        }
        sheet.seen()(x / cell, y / cell) += residual[c](x, y);
        ++seen(x / cell, y / cell);
      }
    }
    for (std::size_t i = 0; i < seen.size(); ++i) {
      if (seen[i] == 0) continue;
      sheet.seen()[i] /= static_cast<float>(seen[i]);
      sheet.weight()[i] =
          std::min(1.0f, 2.0f * static_cast<float>(seen[i]) / static_cast<float>(cell * cell));
    }
    solved[c] = sheet.solve();
  });
  for (std::size_t c = 0; c < 3; ++c) {
    const Stretch stretch(solved[c], columns * cell, rows * cell);
    std::array<Plane, 3> local;
    for (std::size_t s = 0; s < 3; ++s) local[s] = blurred(residual[c], reaches[s], look.rows);
    look.rows(h, leastRows, [&](int first, int some) {
      std::vector<float> z(static_cast<std::size_t>(columns * cell));
      for (int y = first; y < first + some; ++y) {
        stretch.row(y, z.data());
        const std::size_t start = trusted.index(0, y);
        for (std::size_t s = 0; s < 3; ++s) {
          const float* shares = &near[s][start];
          const float* means = &local[s][start];
          for (int x = 0; x < w; ++x) {
            const float share = shares[x];
            if (share < 1e-3f) continue;
            float& v = z[static_cast<std::size_t>(x)];
            v += std::min(1.0f, share / enough[s]) * (means[x] / share - v);
          }
        }
        float* to = &plate.clean[c][start];
        for (int x = 0; x < w; ++x) to[x] = std::max(0.0f, to[x] + z[static_cast<std::size_t>(x)]);
      }
    });
  }
}

}  // namespace orvanite
