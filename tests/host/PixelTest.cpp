// SPDX-License-Identifier: BSD-3-Clause
//
// The node's pixels against the flat interface: the test lays the same pictures out in plain
// arrays, sets an engine by itself and compares bytes.
#include <gtest/gtest.h>

#include <vector>

#include "platform/NRiThread.h"
#include "tests/host/Probe.h"

namespace {

constexpr int width = 29;
constexpr int height = 17;

struct Shot {
  const char* output = "composite";
  const char* space = "linear";
  int depth = 1;
  bool bg = true;
  bool hold = false;
  char holdLetter = 'A';
  bool garbage = false;
  NRiRect domain{0, 0, width, height};
};

// The screen colour as an element: trunc(v * max + 0.5) clamped, worked out in double, where the
// values used here lie far from the next code.
void putScreen(std::byte* to, int depth, float v) {
  if (depth == 4) {
    std::memcpy(to, &v, 4);
    return;
  }
  const double max = depth == 1 ? 255 : 65535;
  const double code = std::min(max, std::max(0.0, std::floor(static_cast<double>(v) * max + 0.5)));
  if (depth == 1) {
    *to = static_cast<std::byte>(code);
  } else {
    const auto element = static_cast<std::uint16_t>(code);
    std::memcpy(to, &element, 2);
  }
}

const float screen[3] = {0.125f, 0.25f, 0.875f};

// A picture as rows of alpha, blue, green, red.
std::vector<std::byte> picture(int depth, int channels, int seed, const NRiRect& domain,
                               bool paintScreen) {
  std::vector<std::byte> pixels(static_cast<std::size_t>(width * height * 4 * depth));
  std::byte* at = pixels.data();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool inside = x >= domain.x1 && x < domain.x2 && y >= domain.y1 && y < domain.y2;
      for (int c = 0; c < 4; ++c, at += depth) {
        if (inside && (channels & (1 << c))) {
          putElement(at, depth, x, y, c, seed);
        } else if (!inside && paintScreen && c > 0) {
          putScreen(at, depth, screen[3 - c]);
        }
      }
    }
  }
  return pixels;
}

OtileImage described(std::vector<std::byte>& pixels, int depth) {
  std::byte* const data = pixels.data();
  return {data + 3 * depth, data + 2 * depth, data + depth, data, 4, 4 * width};
}

// Keys with an engine of the test's own.
std::vector<std::byte> flat(const Shot& shot) {
  const std::string mode = shot.output;
  QMXOrvaniteTable* const engine = orvanite_new();
  orvanite_useRef(engine, 0);
  orvanite_useHold(engine, shot.hold);
  orvanite_useGarbage(engine, shot.garbage);
  int view = mode == "unpremultiplied" ? 4 : mode == "status" ? 5 : 0;
  if (mode == "compOnBlack" || (view == 0 && !shot.bg)) view = 1;
  if (mode == "compOnReplace") {
    view = 1;
    orvanite_setBackground(engine, 0.5f, 0.25f, 0.75f);
  }
  orvanite_setView(engine, view);
  orvanite_setScreen(engine, screen[0], screen[1], screen[2]);
  const std::string space = shot.space;
  orvanite_setColourspace(engine, space == "log" ? 1 : space == "video" ? 2 : 0);
  orvanite_setScreenRange(engine, 0.05f);
  orvanite_setNeutral(engine, 0.5f, 0.55f, 0.45f);
  for (int band = 0; band < 3; ++band) {
    orvanite_setBalance(engine, band, 0.4f + 0.1f * static_cast<float>(band));
    orvanite_setGain(engine, band, 0.1f - 0.05f * static_cast<float>(band));
  }
  orvanite_setMp(engine, 0.5f, 0.5f, 0.5f);
  orvanite_setReplace(engine, 0.5f, 0.25f, 0.75f);
  orvanite_setExposure(engine, 1.1f, 1.0f, 0.9f, 0);
  orvanite_setGamma(engine, 1.0f, 1.2f, 1.0f, 0);
  orvanite_setSaturation(engine, 0.8f, 0);
  const int max = shot.depth == 1 ? 255 : shot.depth == 2 ? 65535 : 1;
  orvanite_setFgMax(engine, max);
  orvanite_setBgMax(engine, max);
  orvanite_setGMatteMax(engine, max);
  orvanite_setHMatteMax(engine, max);
  orvanite_setDstMax(engine, max);
  EXPECT_EQ(orvanite_makeLuts(engine), 0);

  const NRiRect all{0, 0, width, height};
  auto fg = picture(shot.depth, 14, 1, shot.domain, true);
  auto bg = picture(shot.depth, 15, 2, all, false);
  auto hold = picture(shot.depth, 15, 3, all, false);
  auto garbage = picture(shot.depth, 1, 4, all, false);
  Otile tile{};
  tile.fg = tile.dst = described(fg, shot.depth);
  if (shot.bg) tile.bg = described(bg, shot.depth);
  if (shot.hold) {
    tile.hold = described(hold, shot.depth);
    void* const letters[] = {tile.hold.red, tile.hold.green, tile.hold.blue, tile.hold.alpha};
    tile.hold.alpha = letters[std::string("RGBA").find(shot.holdLetter)];
  }
  if (shot.garbage) tile.garbage = described(garbage, shot.depth);
  EXPECT_EQ(orvanite_render(engine, shot.depth, width, height, &tile), 0);
  orvanite_delete(engine);
  return fg;
}

void setPlugs(Probe& node, const Shot& shot) {
  const auto set = [&](const char* name, float value) { node.plug(name)->set(value); };
  node.plug("output")->set(shot.output);
  node.plug("colourspace")->set(shot.space);
  node.plug("holdOutChannel")->set(std::string(1, shot.holdLetter).c_str());
  set("rScreen", screen[0]), set("gScreen", screen[1]), set("bScreen", screen[2]);
  set("screenRange", 0.05f);
  set("rFgBias", 0.5f), set("gFgBias", 0.55f), set("bFgBias", 0.45f);
  set("shadowBalance", 0.4f), set("midtoneBalance", 0.5f), set("highlightBalance", 0.6f);
  set("shadowGain", 0.1f), set("midtoneGain", 0.05f), set("highlightGain", 0.0f);
  set("rReplace", 0.5f), set("gReplace", 0.25f), set("bReplace", 0.75f);
  set("rExposure", 1.1f), set("gExposure", 1.0f), set("bExposure", 0.9f);
  set("gGamma", 1.2f);
  set("saturation", 0.8f);
}

// The graph of a shot; renders as often as it is asked to.
class Graph {
 public:
  explicit Graph(const Shot& shot)
      : depth_(shot.depth),
        fg_(width, height, shot.depth, 14, 1, shot.domain),
        bg_(width, height, shot.depth, 15, 2),
        hold_(width, height, shot.depth, 15, 3),
        garbage_(width, height, shot.depth, 1, 4) {
    node_.getInput(0)->connect(fg_.getOutput());
    if (shot.bg) node_.getInput(1)->connect(bg_.getOutput());
    if (shot.hold) node_.getInput(2)->connect(hold_.getOutput());
    if (shot.garbage) node_.getInput(3)->connect(garbage_.getOutput());
    setPlugs(node_, shot);
    node_.getOutput()->setRequest(15);
  }

  std::vector<std::byte> keyed(int threads) {
    NRiThread::setCount(threads);
    const NRiIBuf result = node_.renderWhole(node_.format());
    const auto* const data = static_cast<const std::byte*>(result.data);
    return {data, data + width * height * 4 * depth_};
  }

 private:
  int depth_;
  Source fg_, bg_, hold_, garbage_;
  Probe node_;
};

std::string named(const Shot& s) {
  return std::string(s.output) + " " + s.space + " depth " + std::to_string(s.depth) +
         (s.bg ? " bg" : "") + (s.hold ? std::string(" hold ") + s.holdLetter : "") +
         (s.garbage ? " garbage" : "");
}

TEST(NodePixels, AreThoseOfTheFlatInterfaceInEveryModeDepthAndThreadCount) {
  int compared = 0;
  for (const char* const output :
       {"composite", "compOnBlack", "compOnReplace", "unpremultiplied", "status"}) {
    for (const char* const space : {"linear", "log", "video"}) {
      for (const int depth : {1, 2, 4}) {
        // Every set of inputs once, the extremes in each encoding.
        for (int inputs = 0; inputs < 8; ++inputs) {
          if (space != std::string("linear") && inputs != 0 && inputs != 7) continue;
          Shot shot;
          shot.output = output;
          shot.space = space;
          shot.depth = depth;
          shot.bg = inputs & 1;
          shot.hold = inputs & 2;
          shot.holdLetter = "RGBA"[compared % 4];
          shot.garbage = inputs & 4;
          const std::vector<std::byte> expected = flat(shot);
          Graph graph(shot);
          for (const int threads : {1, 2, 3, 7}) {
            ASSERT_EQ(graph.keyed(threads), expected) << named(shot) << " threads " << threads;
          }
          ++compared;
        }
      }
    }
  }
  EXPECT_EQ(compared, 5 * 3 * (8 + 2 + 2));
}

TEST(NodePixels, AForegroundAnywhereKeysAsScreenOutsideItsDomain) {
  const NRiRect places[] = {
      {5, 4, 20, 12},             // inside
      {-10, -10, 60, 60},         // covers all
      {-8, 3, -2, 9},             // left of the region
      {width, 0, width + 9, 30},  // right
      {0, -9, 29, 0},             // above
      {3, height, 20, 40},        // below
      {-5, 6, 50, 9},             // across
      {10, -3, 12, 40},           // down through
      {28, 16, 29, 17},           // the last pixel
      {0, 0, 0, 0},               // nowhere
  };
  for (const NRiRect& place : places) {
    for (const int depth : {1, 2, 4}) {
      Shot shot;
      shot.depth = depth;
      shot.domain = place;
      ASSERT_EQ(Graph(shot).keyed(3), flat(shot))
          << "depth " << depth << " domain " << place.x1 << "," << place.y1 << " " << place.x2
          << "," << place.y2;
    }
  }
}

TEST(NodePixels, ABackgroundThatLiesElsewhereIsTheSameInTheRegionsCorner) {
  Source fg(width, height, 4, 14, 1);
  Source bg(width, height, 4, 14, 2, {50, 50, 60, 60});  // without alpha: opaque where it lies
  Probe node;
  node.getInput(0)->connect(fg.getOutput());
  node.getInput(1)->connect(bg.getOutput());
  setPlugs(node, Shot());
  node.getOutput()->setRequest(15);
  const NRiIBuf whole = node.renderWhole({0, 0, width, height});
  const NRiIBuf part = node.renderWhole({3, 2, width, height});
  EXPECT_EQ(std::memcmp(part.at(3, 2), whole.at(3, 2), 16), 0);
}

// The worker alone, on buffers of every layout around a region that starts anywhere.
TEST(NodePixels, BuffersStartAnywhereAndHaveExtraElements) {
  const NRiRect roi{-7, 5, 12, 16};
  for (const int threads : {1, 2, 8}) {
    NRiThread::setCount(threads);
    for (const int depth : {1, 2, 4}) {
      for (const int extra : {0, 5}) {
        for (const int bgPlace : {0, 1, 2}) {
          Source fg(100, 100, depth, 14, 1, {-50, -50, 100, 100});
          Source bg(100, 100, depth, 14, 2, {-50, -50, 100, 100});
          Probe node;
          node.getInput(0)->connect(fg.getOutput());
          node.getInput(1)->connect(bg.getOutput());
          setPlugs(node, Shot());
          node.getOutput()->setRequest(15);
          node.getOutput()->image()->asVoid();
          for (const int i : {0, 1}) {
            NRiBPixel pixel;
            node.getInput(i)->getBPixel(pixel);
            node.getInput(i)->getDod();
            node.getInput(i)->channels()->asInt();
          }
          node.getOutput()->setRoi(roi);
          // The output buffer: wider than the region, fewer lines, starting elsewhere.
          const NRiRect wide{-9, 7, 15, 14};
          node.buffer(0).allocate(wide, 15, depth, extra);
          std::memset(
              node.buffer(0).data, 0,
              static_cast<std::size_t>(
                  (node.buffer(0).lineStep() * (node.buffer(0).lines - 1) + 24 * 4) * depth));
          paintNoise(node.buffer(0), 1);
          const NRiRect places[] = {{-20, 0, 40, 40}, {-3, 9, 6, 12}, {12, 0, 20, 9}};
          node.buffer(1).allocate(places[bgPlace], 14, depth, extra);
          paintNoise(node.buffer(1), 2);
          node.fillOutputBuffer();

          // One pixel at a time through the same engine.
          for (int y = wide.y1; y < wide.y2; ++y) {
            for (int x = wide.x1; x < wide.x2; ++x) {
              alignas(4) std::byte one[16], back[16] = {};
              for (int c = 0; c < 4; ++c) {
                putElement(one + c * depth, depth, x, y, c, 1);
                const NRiRect& held = places[bgPlace];
                if (x >= held.x1 && x < held.x2 && y >= held.y1 && y < held.y2) {
                  putElement(back + c * depth, depth, x, y, c, 2);
                  if (c == 0) putScreen(back, depth, 1.0f);  // without alpha: opaque
                }
              }
              if (x >= roi.x1 && x < roi.x2) {
                Otile tile{};
                tile.fg = tile.dst = {one + 3 * depth, one + 2 * depth, one + depth, one, 4, 4};
                tile.bg = {back + 3 * depth, back + 2 * depth, back + depth, back, 4, 4};
                orvanite_render(node.engine(), depth, 1, 1, &tile);
              }
              ASSERT_EQ(
                  std::memcmp(one, node.buffer(0).at(x, y), static_cast<std::size_t>(4 * depth)), 0)
                  << "depth " << depth << " at " << x << "," << y << " threads " << threads;
            }
          }
        }
      }
    }
  }
}

TEST(NodePixels, ScreenValuesPaintAsTheirCodes) {
  struct Case {
    float value;
    unsigned byte, word;
  };
  // 0.9f * 255 + 0.5 = 229.99999...; in one rounding 230. 0.9f * 65535 + 0.5 = 58982.0
  const Case cases[] = {{0.9f, 230, 58982}, {1.5f, 255, 65535}, {-0.5f, 0, 0}, {0.2f, 51, 13107}};
  for (const Case& one : cases) {
    for (const int depth : {1, 2}) {
      Source fg(4, 2, depth, 14, 1, {0, 0, 0, 0});
      Probe node;
      node.getInput(0)->connect(fg.getOutput());
      node.plug("bScreen")->set(one.value);
      node.plug("gScreen")->set(0.1f);
      node.getOutput()->setRequest(15);
      node.getOutput()->setRoi({0, 0, 4, 2});
      node.getOutput()->image()->asVoid();
      node.getInput(0)->getDod();
      NRiBPixel pixel;
      node.getInput(0)->getBPixel(pixel);
      node.getInput(0)->channels()->asInt();
      node.buffer(0).allocate({0, 0, 4, 2}, 15, depth);
      std::memset(node.buffer(0).data, 7, static_cast<std::size_t>(4 * 2 * 4 * depth));
      // With a code maximum of its own raised the tables are out of date, and nothing is keyed:
      // what was painted stays to be seen.
      orvanite_setDstMax(node.engine(), 1000);
      node.fillOutputBuffer();
      const std::byte* const at = node.buffer(0).at(3, 1);
      std::uint16_t word = 0;
      std::memcpy(&word, at + 2, 2);
      if (depth == 1) {
        EXPECT_EQ(static_cast<unsigned>(at[1]), one.byte) << one.value;
        EXPECT_EQ(static_cast<unsigned>(at[0]), 7u);  // alpha is left alone
      } else {
        EXPECT_EQ(word, one.word) << one.value;
      }
    }
  }
}

TEST(NodePixels, AFailedTableBuildShowsTheForegroundUntilTheNextThatSucceeds) {
  Source fg(width, height, 1, 14, 1);
  Probe node;
  node.getInput(0)->connect(fg.getOutput());
  for (const char* const name : {"rScreen", "gScreen", "bScreen"}) node.plug(name)->set(0.0f);
  node.getOutput()->setRequest(15);
  const NRiIBuf shown = node.renderWhole(node.format());
  auto expected = picture(1, 14, 1, {0, 0, width, height}, false);
  EXPECT_EQ(std::memcmp(shown.data, expected.data(), expected.size()), 0);
  EXPECT_EQ(node.getOutput()->channels()->asInt(), 14);
  node.plug("bScreen")->set(0.875f);
  EXPECT_EQ(node.getOutput()->channels()->asInt(), 15);
  const NRiIBuf keyed = node.renderWhole(node.format());
  EXPECT_NE(std::memcmp(keyed.data, expected.data(), expected.size()), 0);
}

}  // namespace
