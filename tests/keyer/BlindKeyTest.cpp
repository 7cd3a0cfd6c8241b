// SPDX-License-Identifier: BSD-3-Clause
//
// What a key found by itself makes of subjects whose truth is known: a subject mixed with a screen
// here, one stage of the search under test at a time, and the drawn scene for the whole.
#include "keyer/BlindKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "examples/plate/Scene.h"
#include "keyer/KeyRegions.h"
#include "tests/keyer/Composed.h"

namespace orvanite {
namespace {

TEST(BlindKey, HoldsRoughLeavesOfTheScreensHueAndNoSmokeOrGlow) {
  enum Kind { leaves, smoke, glow };
  for (const Kind kind : {leaves, smoke, glow}) {
    const auto wave = [](int x, int y) {
      return 0.3f * std::sin(0.8f * static_cast<float>(x)) * std::sin(0.7f * static_cast<float>(y));
    };
    Composed plate;
    plate.screen = [](int, int) { return olive; };
    // Leaves half as bright as the screen and of its hue: a key takes them for half screen. So it
    // does with smoke, which has no light and shade, and with a glow, which is lighter.
    plate.subject = [&](int x, int y) {
      if (kind == smoke) return Rgb{0.6f, 0.6f, 0.62f};
      if (kind == glow) return Rgb{0.95f, 0.95f, 1};
      const float light = 0.5f + wave(x, y);
      return Rgb{olive[0] * light, olive[1] * light, olive[2] * light};
    };
    const auto whole = disc(80, 60, 50, 2);
    plate.matte = [&](int x, int y) {
      if (kind != glow) return (kind == leaves ? 1 : 0.3f) * whole(x, y);
      const float far = std::hypot(static_cast<float>(x - 80), static_cast<float>(y - 60));
      return std::clamp(1.1f - far / 50 + wave(x, y), 0.0f, 1.0f) * whole(x, y);
    };
    Canvas canvas = plate.on(2);
    Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
    // Of whole rings around the middle.
    const auto meanBetween = [&](double from, double to) {
      double sum = 0, count = 0;
      for (int y = 10; y < 110; ++y) {
        for (int x = 30; x < 130; ++x) {
          const double far = std::hypot(x - 80, y - 60);
          if (far < from || far >= to) continue;
          sum += static_cast<double>(matteAt(out, x, y));
          ++count;
        }
      }
      return sum / count;
    };
    if (kind == leaves) {
      EXPECT_GT(meanBetween(0, 40), 0.98);
      EXPECT_GT(meanBetween(42, 45), 0.98);  // near the edge
    } else if (kind == smoke) {
      EXPECT_NEAR(meanBetween(0, 40), 0.3, 0.1);
    } else {
      EXPECT_LT(meanBetween(20, 40), 0.75);  // 0.48 is true; what is held shows 0.87
    }
  }
}

TEST(BlindKey, LeavesGapsInARoughSubjectOpenBeforeAVividScreen) {
  // Leaves in three shades with gaps of 6 pixels, every 12, where the screen shows.
  const auto inGap = [](int x, int y) {
    return std::hypot(std::remainder(static_cast<float>(x), 12.0f),
                      std::remainder(static_cast<float>(y), 12.0f)) < 3;
  };
  const auto whole = disc(80, 60, 56, 2);
  for (const bool vivid : {true, false}) {
    const Rgb screen = vivid ? Rgb{0.02f, 0.82f, 0.25f} : olive;
    Composed plate;
    plate.screen = [&](int, int) { return screen; };
    plate.subject = [&](int x, int y) {
      const float light = 0.5f + 0.2f * std::sin(0.8f * static_cast<float>(x)) *
                                     std::sin(0.7f * static_cast<float>(y));
      Rgb leaf{};
      for (std::size_t c = 0; c < 3; ++c) leaf[c] = light * (0.1f + 0.75f * screen[c]);
      return leaf;
    };
    plate.matte = [&](int x, int y) { return inGap(x, y) ? 0.0f : whole(x, y); };
    Canvas canvas = plate.on(2);
    Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
    // What is held there is closed: leaves of an olive screen's hue are more likely than gaps.
    EXPECT_EQ(matteAt(out, 84, 60), vivid ? 0 : 1);
  }
}

TEST(BlindKey, HoldsWhatIsDeepInASubjectAndFillsNoGap) {
  Composed plate;
  plate.screen = [](int, int) { return olive; };
  // Dark fur of the screen's hue in a light body; one gap shows the screen.
  const auto fur = disc(60, 60, 9, 1), gap = disc(102, 60, 8, 1), body = disc(80, 60, 45, 2);
  plate.subject = [&](int x, int y) {
    return fur(x, y) > 0.5f ? Rgb{0.12f, 0.13f, 0.06f} : Rgb{0.7f, 0.66f, 0.68f};
  };
  plate.matte = [&](int x, int y) { return body(x, y) * (1 - gap(x, y)); };
  Canvas canvas = plate.on(2);
  Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
  EXPECT_GT(matteAt(out, 60, 60), 0.98f);
  EXPECT_LT(matteAt(out, 102, 60), 0.05f);
  KeyWishes wishes;
  wishes.holdOut = false;
  Canvas open = keyed(findKey(canvas.plate(), video(), wishes), canvas);
  EXPECT_LT(matteAt(open, 60, 60), 0.95f);
}

TEST(BlindKey, KnowsAClothThatNoMixWithTheScreenCanBe) {
  Composed plate;
  // A plain key sees (0.5 - 0.5 (0.03 + 0.42)) / (0.6 - 0.5 (0.16 + 0.24)) = 0.69 screen in a teal
  // shirt; its red, 0.03 for 0.16, allows for 0.19. A belt and skin have none.
  const auto body = disc(80, 60, 40, 2);
  plate.subject = [](int, int y) {
    return y < 70   ? Rgb{0.03f, 0.5f, 0.42f}
           : y < 78 ? Rgb{0.1f, 0.08f, 0.08f}
                    : Rgb{0.7f, 0.5f, 0.42f};
  };
  plate.matte = body;
  Canvas canvas = plate.on(2);
  Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float d = std::hypot(static_cast<float>(x - 80), static_cast<float>(y - 60));
      if (d < 34 && (y < 66 || y > 80)) {  // apart from where the belt begins
        EXPECT_GT(matteAt(out, x, y), 0.97f) << x << ',' << y;
      }
      if (d > 46) {
        EXPECT_LT(matteAt(out, x, y), 0.02f) << x << ',' << y;
      }
    }
  }
}

TEST(BlindKey, TakesNoScreenThatIsFullerElsewhereForACloth) {
  // Both lack the red that a mix with so much screen has: 0.05 and 0.02 of 0.25.
  constexpr Rgb screen = {0.25f, 0.95f, 0.38f}, cloth = {0.05f, 0.8f, 0.6f},
                fuller = {0.02f, 0.9f, 0.25f};
  Composed plate;
  plate.screen = [&](int, int) { return screen; };
  plate.subject = [&](int x, int) { return x < 80 ? cloth : fuller; };
  const auto left = disc(40, 60, 20, 1), right = disc(120, 60, 20, 1);
  plate.matte = [&](int x, int y) { return std::max(left(x, y), right(x, y)); };
  Canvas canvas = plate.on(2);
  const Look look = lookAt(canvas.plate(), Encoding::codes);
  ScreenPlate known;
  known.sure = Mask(width, height);
  for (std::size_t c = 0; c < 3; ++c) {
    known.clean[c] = Plane(width, height);
    std::fill(known.clean[c].values.begin(), known.clean[c].values.end(), screen[c]);
  }
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) known.sure(x, y) = plate.matte(x, y) == 0;
  }
  const KeyRegions regions = keyRegions(look, hueOfColour(screen), known);
  EXPECT_NE(regions.alien(40, 60), 0);
  EXPECT_EQ(regions.alien(120, 60), 0);
}

TEST(BlindKey, KeepsASubjectThatStandsBesideTheScreenSolid) {
  constexpr int across = 120, down = 60, edge = 80;
  Canvas canvas(across, down, 1);
  std::mt19937 random(11);
  canvas.fill([&](int x, int) {
    const auto code = [](unsigned v) { return static_cast<float>(v) / 255; };
    if (x >= edge) return Rgb{code(180), code(60), code(50)};
    const auto grain = static_cast<unsigned>(random() % 5);  // of the light, as files store it
    return Rgb{code(38 + grain), code(168 + grain), code(58 + grain)};
  });
  Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
  for (int y = 0; y < down; y += 5) {
    for (int x = 0; x < across; ++x) {
      if (x < edge && x >= edge - 8) continue;  // screen is sure to be nothing else further off
      EXPECT_EQ(matteAt(out, x, y), x >= edge ? 1 : 0) << x << ',' << y;
    }
  }
}

TEST(BlindKey, LeavesGlassAndAVeilAsClearAsTheyAre) {
  // The veil around a body is deep in the subject, and less than half screen.
  const auto body = disc(80, 75, 18, 2), pane = disc(80, 60, 36, 2), veil = disc(80, 60, 52, 2);
  const struct {
    const char* name;
    std::function<float(int, int)> matte;
    float wanted;
  } cases[] = {
      {"glass", [&](int x, int y) { return 0.35f * pane(x, y); }, 0.35f},
      {"veil", [&](int x, int y) { return std::max(0.55f * veil(x, y), body(x, y)); }, 0.55f}};
  for (const auto& c : cases) {
    Composed plate;
    plate.subject = [&](int x, int y) {
      return body(x, y) > 0 && c.wanted > 0.5f ? Rgb{0.7f, 0.5f, 0.42f} : Rgb{0.8f, 0.8f, 0.82f};
    };
    plate.matte = c.matte;
    Canvas canvas = plate.on(2);
    Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
    for (int x = 60; x <= 100; x += 10) {
      EXPECT_NEAR(matteAt(out, x, 45), c.wanted, 0.08f) << c.name << ' ' << x;
    }
  }
}

TEST(BlindKey, HoldsNoLightThatIsDeepInASubject) {
  // Both are 0.6 solid, before a screen as dull as leaves; a light shines, a shadow may be fur.
  const auto body = disc(80, 60, 52, 2);
  const struct {
    Rgb colour;
    float held;
  } cases[] = {{{1, 0.9f, 0.8f}, 0}, {{0.3f, 0.2f, 0.25f}, 1}};
  for (const auto& c : cases) {
    Composed plate;
    plate.screen = [](int, int) { return dull; };
    plate.subject = [&](int, int) { return c.colour; };
    plate.matte = [&](int x, int y) { return 0.6f * body(x, y); };
    Canvas canvas = plate.on(2);
    EXPECT_NEAR(findKey(canvas.plate(), video()).holdOut(80, 60), c.held, 0.01f) << c.held;
  }
}

TEST(BlindKey, MakesNothingSolidOfASubjectThatIsClearAllOver) {
  // A ball of glass with two spots of light in it, which hold a quarter of the screen; one is cut.
  const auto ball = disc(80, 60, 46, 3), spot = disc(66, 40, 14, 4), other = disc(96, 84, 12, 4);
  const struct {
    const char* name;
    Rgb screen;
    float cut;
  } cases[] = {{"green", green, 0}, {"dull", dull, 0}, {"teal", teal, 0}, {"cut", dull, 0.2f}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto matte = [&](int x, int y) {
      const float facet = (x / 5 + y / 5) % 3 == 0 ? c.cut : 0.0f;
      const float lights = std::max(spot(x, y), other(x, y));
      return ball(x, y) * (0.3f + std::max(facet, 0.45f * lights));
    };
    Composed plate;
    plate.screen = [&](int, int) { return c.screen; };
    plate.subject = [](int, int) { return Rgb{0.8f, 0.8f, 0.84f}; };
    plate.matte = matte;
    plate.grain = 0.012f;
    Canvas canvas = plate.on(2);
    const BlindKey key = findKey(canvas.plate(), video());
    EXPECT_TRUE(key.clear);
    Canvas out = keyed(key, canvas);
    double off = 0;
    for (int y = 40; y < 80; ++y) {
      for (int x = 60; x < 100; ++x) off += std::abs(matteAt(out, x, y) - matte(x, y)) / 1600.0;
    }
    EXPECT_LT(off, 0.1);
  }
}

TEST(BlindKey, CutsACreaseThatTouchesTheSubject) {
  // A cloth falls in a fold that is a sixth darker, from above the subject down to it.
  Composed plate;
  plate.screen = [](int x, int) {
    const float light = std::abs(x - 80) < 3 ? 0.83f : 1.0f;
    return Rgb{light * green[0], light * green[1], light * green[2]};
  };
  plate.matte = disc(80, 90, 24, 2);
  Canvas canvas = plate.on(2);
  Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
  for (int y = 0; y < 50; ++y) {
    EXPECT_LT(matteAt(out, 80, y), 0.02f) << y;
  }
  EXPECT_GT(matteAt(out, 80, 80), 0.98f);
}

TEST(BlindKey, CutsTheGrainOfWhatIsSurelyScreen) {
  Composed plate;
  plate.screen = [](int, int) { return dull; };
  plate.matte = disc(50, 60, 24, 3);
  plate.grain = 0.025f;
  Canvas canvas = plate.on(2);
  const auto worst = [&](const KeyWishes& wishes) {
    Canvas out = keyed(findKey(canvas.plate(), video(), wishes), canvas);
    float most = 0;
    for (int y = 4; y < height - 4; ++y) {
      for (int x = 100; x < width - 4; ++x) most = std::max(most, matteAt(out, x, y));
    }
    return most;
  };
  EXPECT_EQ(worst({}), 0);
  KeyWishes wishes;
  wishes.garbage = false;
  EXPECT_GT(worst(wishes), 0.1f);
}

TEST(BlindKey, IsSteadyOverAShotAndSeesTheCameraMove) {
  const auto frameAt = [](int n, int shift) {
    Composed plate;
    plate.screen = [shift](int x, int y) {
      const float light = 0.8f + 0.2f * std::sin(static_cast<float>(x + shift) / 15) +
                          0.1f * static_cast<float>(y) / height;
      return Rgb{green[0] * light, green[1] * light, green[2] * light};
    };
    plate.matte = disc(50 + 5 * static_cast<float>(n), 60, 25, 3);
    plate.grain = 0.004f;
    return plate.on(2);
  };
  Canvas first = frameAt(0, 0);
  BlindKey key = findKey(first.plate(), video());
  Canvas later = frameAt(9, 0);
  EXPECT_TRUE(key.see(later.plate()));
  // Behind the first frame's subject, where the later frame shows the screen: sin(50/15) = -.1906,
  // .8 - .0381 + .1 * .5 = .8119 of .6.
  Canvas clean(width, height, 2);
  key.writeCleanPlate(clean.plate().image, Depth::shorts);
  EXPECT_NEAR(colourAt(clean.plate(), 50, 60)[1], 0.6f * 0.8119f, 0.01f);
  // The middle of the solid part, in every frame.
  double sum = 0, squares = 0;
  for (int n = 0; n < 10; ++n) {
    Canvas frame = frameAt(n, 0);
    const BlindKey own = key.carriedTo(frame.plate());
    EXPECT_TRUE(own.steady);
    Canvas out = keyed(own, frame);
    double mean = 0;
    for (int y = 50; y <= 70; ++y) mean += static_cast<double>(matteAt(out, 50 + 5 * n, y)) / 21;
    sum += mean / 10;
    squares += mean * mean / 10;
  }
  EXPECT_LT(std::sqrt(std::max(0.0, squares - sum * sum)), 0.0005);
  Canvas moved = frameAt(3, 40);
  EXPECT_FALSE(key.carriedTo(moved.plate()).steady);
  EXPECT_FALSE(key.see(moved.plate()));
  EXPECT_FALSE(key.steady);
}

TEST(BlindKeyer, KeysAllDepthsAlikeAndKeepsWhatIsBrighterThanWhite) {
  Composed plate;
  plate.matte = disc(80, 60, 36, 8);
  plate.inLight = true;
  Canvas eight = plate.on(1), sixteen = plate.on(2);
  // The same plate as light, its subject's middle three times as bright as white.
  Canvas light(width, height, 4);
  light.fill([&](int x, int y) {
    Rgb c = colourAt(sixteen.plate(), x, y);
    for (float& v : c) v = std::hypot(x - 80, y - 60) < 10 ? 3.0f : lightOfCode(v);
    return c;
  });
  const BlindKey key = findKey(sixteen.plate(), video());
  Canvas a = keyed(key, sixteen), b = keyed(key, eight);
  Canvas c = keyed(findKey(light.plate(), Settings()), light);
  double apart = 0, apartLight = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      apart += std::abs(static_cast<double>(matteAt(a, x, y) - matteAt(b, x, y)));
      apartLight += std::abs(static_cast<double>(matteAt(a, x, y) - matteAt(c, x, y)));
    }
  }
  EXPECT_LT(apart / (width * height), 0.002);
  EXPECT_LT(apartLight / (width * height), 0.02);
  for (const float v : colourAt(c.plate(), 80, 60)) EXPECT_NEAR(v, 3, 0.01f);
  // Threads change no bit.
  EXPECT_EQ(keyed(key, sixteen, 1).bytes(), keyed(key, sixteen, 3).bytes());
  EXPECT_EQ(findKey(sixteen.plate(), video()).settings, key.settings);
}

/// Every number of a key, one after the other.
std::vector<float> numbersOf(const BlindKey& key) {
  std::vector<float> all = {key.screen.hue[0],   key.screen.hue[1],       key.screen.confidence,
                            key.vote.slope,      key.vote.spread,         key.numbers.balance,
                            key.numbers.gain,    key.numbers.clip,        key.plate.misfit,
                            key.screen.coverage, key.steady ? 1.0f : 0.0f};
  for (const Plane* plane : {&key.plate.clean[0], &key.plate.clean[1], &key.plate.clean[2],
                             &key.plate.count, &key.holdOut, &key.garbage}) {
    all.insert(all.end(), plane->values.begin(), plane->values.end());
  }
  all.insert(all.end(), key.plate.sure.values.begin(), key.plate.sure.values.end());
  return all;
}

TEST(BlindKey, IsTheSameOnAnyThreads) {
  plate::Options options;
  options.width = 320;
  options.height = 180;
  const plate::Pictures pictures = plate::draw(options);
  for (const int depth : {1, 4}) {
    std::vector<float> found, carried;
    for (const int threads : {1, 2, 5}) {
      Canvas canvas(options.width, options.height, depth);
      canvas.fill([&](int x, int y) {
        const float* p = pictures.plate.at(x, y);
        return Rgb{codeOfLight(p[0]), codeOfLight(p[1]), codeOfLight(p[2])};
      });
      BlindKey key = findKey(canvas.plate(), video(), {}, rowsOn(threads));
      const BlindKey next = key.carriedTo(canvas.plate(), rowsOn(threads));
      ASSERT_TRUE(key.plate.local);
      ASSERT_TRUE(key.see(canvas.plate(), rowsOn(threads)));
      if (threads == 1) {
        found = numbersOf(key);
        carried = numbersOf(next);
        continue;
      }
      EXPECT_TRUE(numbersOf(key) == found) << threads << " threads, depth " << depth;
      EXPECT_TRUE(numbersOf(next) == carried) << threads << " threads, depth " << depth;
    }
  }
}

TEST(BlindKey, HoldsItsFiguresOnTheDrawnScene) {
  struct Case {
    plate::ScreenColour screen;
    plate::Difficulty difficulty;
    double most[2];  // matte's error in percent, 16 bits and float: measured, and a twelfth more
  };
  using plate::Difficulty;
  using plate::ScreenColour;
  for (const Case& c : {Case{ScreenColour::green, Difficulty::clean, {1.76, 1.75}},
                        Case{ScreenColour::green, Difficulty::normal, {2.14, 2.27}},
                        Case{ScreenColour::green, Difficulty::hard, {3.68, 3.88}},
                        Case{ScreenColour::blue, Difficulty::clean, {2.67, 2.66}},
                        Case{ScreenColour::blue, Difficulty::normal, {3.06, 3.11}},
                        Case{ScreenColour::blue, Difficulty::hard, {4.46, 4.60}}}) {
    plate::Options options;
    options.screen = c.screen;
    options.difficulty = c.difficulty;
    options.width = 320;
    options.height = 180;
    options.frame = 7;
    const plate::Pictures pictures = plate::draw(options);
    for (const int depth : {2, 4}) {
      Canvas canvas(options.width, options.height, depth);
      canvas.fill([&](int x, int y) {
        const float* p = pictures.plate.at(x, y);
        Rgb colour{p[0], p[1], p[2]};
        if (depth == 2) {
          for (float& v : colour) v = codeOfLight(v);
        }
        return colour;
      });
      BlindKey key = findKey(canvas.plate(), depth == 2 ? video() : Settings());
      // The matte's errors in percent, everywhere and where it is soft.
      const auto errors = [&] {
        Canvas out = keyed(key, canvas);
        double sums[2] = {}, counts[2] = {};
        for (int y = 0; y < options.height; ++y) {
          for (int x = 0; x < options.width; ++x) {
            if (pictures.garbage.at(x, y)[0] != 0) continue;
            const float truth = pictures.matte.at(x, y)[0];
            const auto off = static_cast<double>(std::abs(matteAt(out, x, y) - truth));
            for (int i = 0; i < (truth > 0.02f && truth < 0.98f ? 2 : 1); ++i) {
              sums[i] += 100 * off;
              ++counts[i];
            }
          }
        }
        return std::pair{sums[0] / counts[0], sums[1] / counts[1]};
      };
      const std::string which = "screen " + std::to_string(static_cast<int>(c.screen)) +
                                ", difficulty " + std::to_string(static_cast<int>(c.difficulty)) +
                                ", depth " + std::to_string(depth);
      const auto [all, soft] = errors();
      EXPECT_LT(all, c.most[depth == 4]) << which;
      key.settings.setText("refine", "0");
      // Where there is no grain the key itself knows best: little is lost to refined edges.
      EXPECT_LT(soft, errors().second * (c.difficulty == Difficulty::clean ? 1.05 : 1)) << which;
    }
  }
}

}  // namespace
}  // namespace orvanite
