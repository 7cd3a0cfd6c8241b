// SPDX-License-Identifier: BSD-3-Clause
//
// Seeded random tiles over all depths, encodings, views, options and layouts as numbers, for
// builds of any compiler, level, target and machine to be compared with the ones that are kept.
// engine_hashes            compares them with those that the tests keep, which it carries itself:
//                          says which differ, and exits with 1; with 77 when this machine lacks
//                          the kernels that ORVANITE_TARGET names
// engine_hashes --few      the first tiles of every group alone, for slow machines
// engine_hashes --print    prints them, as hashes.txt keeps them
//
// It stands on the flat interface and the standard library alone, so that it runs wherever the
// engine does. NaNs count as equal, whatever their bits: those are not promised.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/engine/Parameters.h"
#include "tests/engine/Random.h"

namespace {

constexpr int tilesPerGroup = 24, fewTiles = 4;
int tilesKeyed = 0;

/// Name and hash of every group, and of its first tiles: made from hashes.txt.
constexpr const char* kept[][2] = {
#include "hashes.inc"
};
using Hashes = std::map<std::string, std::string>;

/// FNV-1a, low byte first.
class Hash {
 public:
  void add(std::uint32_t bits, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i, bits >>= 8)
      value = (value ^ (bits & 255)) * 0x100000001b3u;
  }
  void add(float v) {
    std::uint32_t bits = 0x7fc00000;
    if (v == v) std::memcpy(&bits, &v, sizeof bits);
    add(bits, sizeof bits);
  }
  void add(std::uint8_t v) { add(v, sizeof v); }
  void add(std::uint16_t v) { add(v, sizeof v); }

  std::uint64_t value = 0xcbf29ce484222325u;
};

template <class T>
T sampleOf(float v, int max) {
  if constexpr (sizeof(T) == 4) return v;
  const float code = v * static_cast<float>(max);
  return static_cast<T>(code > 0 ? code < static_cast<float>(max) ? code : static_cast<float>(max)
                                 : 0.0f);
}

/// A plate in runs: screen, nearly screen, anything, ends; of floats also what pictures should not
/// hold. `target` is the screen's channel.
template <class T>
class Samples {
 public:
  Samples(Random& random, int max, bool halves) : random_(random), max_(max), halves_(halves) {}

  void next() {
    if (left_-- > 0) return;
    left_ = random_.between(0, 12);
    kind_ = random_.between(0, 7);
  }

  T operator()(float target) {
    float v = random_.unit();
    if (kind_ < 2) v = target;
    if (kind_ == 2 || kind_ == 3) v = target + random_.real(-0.04f, 0.04f);
    if (kind_ == 4) v = random_.pick({0.0f, 1.0f});
    if constexpr (sizeof(T) == 4) {
      if (kind_ == 5) v = random_.real(-0.5f, 6);
      if (kind_ == 6 && random_.oneIn(4)) {
        v = random_.pick({-0.0f, 1e-40f, -1e-40f, 65504.0f, 7e4f, 1e30f, -1e30f, 3e38f, 0x1p-24f,
                          25.0f, INFINITY, -INFINITY, NAN});
      }
      // Multiples of 2^-9 below 4 are halves: such plates take another way.
      if (halves_ && v >= 0 && v < 4) v = static_cast<float>(static_cast<int>(v * 512)) / 512;
    }
    return sampleOf<T>(v, max_);
  }

 private:
  Random& random_;
  int max_, left_ = 0, kind_ = 0;
  bool halves_;
};

template <class T>
struct Picture {
  std::vector<T> samples;
  OtileImage image = {};

  Picture(Random& random, int width, int height) {
    const bool planar = sizeof(T) < 4 && random.oneIn(4);
    const bool alphaFirst = random.oneIn(3);
    const int pad = random.pick({0, 0, 1, 7});
    const int line = (planar ? width : 4 * width) + pad;
    const int plane = planar ? line * height : 1;
    samples.resize(static_cast<std::size_t>(planar ? 4 * plane : line * height));
    T* const s = samples.data();
    void* const channels[4] = {s, s + plane, s + 2 * plane, s + 3 * plane};
    image = {channels[alphaFirst ? 3 : 0],
             channels[alphaFirst ? 2 : 1],
             channels[alphaFirst ? 1 : 2],
             channels[alphaFirst ? 0 : 3],
             planar ? 1 : 4,
             line};
  }

  void fill(Random& random, const float (&target)[4], int max, int width, int height) {
    Samples<T> sample(random, max, random.oneIn(2));
    T* const channels[4] = {static_cast<T*>(image.red), static_cast<T*>(image.green),
                            static_cast<T*>(image.blue), static_cast<T*>(image.alpha)};
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        sample.next();
        for (int c = 0; c < 4; ++c)
          channels[c][y * image.lineStep + x * image.pixelStep] = sample(target[c]);
      }
  }
};

template <class T>
void addTile(Random& random, int space, int view, Hash& hash) {
  constexpr bool floats = sizeof(T) == 4;
  Parameters p = randomParameters(random);
  p.colourspace = space;
  p.view = view;
  const int full = sizeof(T) == 1 ? 255 : sizeof(T) == 2 ? 65535 : 1;
  p.setAllMaxima(sizeof(T) == 2 && random.oneIn(6) ? 1023 : full);
  if (!floats && random.oneIn(8)) p.dstMax = 200;
  p.ref = !floats && random.oneIn(4);
  if (random.oneIn(3)) {  // no grade
    const Parameters plain;
    std::memcpy(p.exposure, plain.exposure, sizeof p.exposure);
    std::memcpy(p.gamma, plain.gamma, sizeof p.gamma);
    std::memcpy(p.offset, plain.offset, sizeof p.offset);
    p.saturation[0] = p.saturation[1] = 1;
  }
  const int width = random.between(1, 330), height = random.between(1, 2);
  Picture<T> dst(random, width, height), fg(random, width, height), bg(random, width, height);
  Picture<T> hold(random, width, height), garbage(random, width, height),
      ref(random, width, height);
  const float screen[4] = {p.screen[0], p.screen[1], p.screen[2], 1},
              other[4] = {0.4f, 0.3f, 0.2f, 0};
  const float matte[4] = {};
  dst.fill(random, other, p.dstMax, width, height);
  fg.fill(random, screen, p.fgMax, width, height);
  bg.fill(random, other, p.bgMax, width, height);
  ref.fill(random, screen, p.refMax, width, height);
  hold.fill(random, matte, p.hMatteMax, width, height);
  garbage.fill(random, matte, p.gMatteMax, width, height);

  Otile tile = {dst.image, bg.image, fg.image, hold.image, garbage.image, ref.image};
  Picture<T>* written = &dst;
  if (const int place = random.between(0, 3); place > 1) {
    written = place == 2 ? &fg : &bg;
    tile.dst = written->image;
  }
  if (random.oneIn(4)) tile.bg.alpha = nullptr;
  if (random.oneIn(10)) tile.fg = {};
  QMXOrvaniteTable* const engine = orvanite_new();
  apply(p, engine);
  const int result = orvanite_makeLuts(engine);
  hash.add(static_cast<std::uint8_t>(result));
  const int refused = orvanite_render(engine, static_cast<int>(sizeof(T)), width, height, &tile);
  hash.add(static_cast<std::uint8_t>(refused));
  tilesKeyed += result == 0 && refused == 0 ? 1 : 0;
  orvanite_delete(engine);
  for (const T v : written->samples) hash.add(v);
}

std::string text(const Hash& hash) {
  char digits[24];
  std::snprintf(digits, sizeof digits, "%016" PRIx64, hash.value);
  return digits;
}

template <class T>
void addGroups(bool few, Hashes& to) {
  for (const int space : {0, 1, 2})
    for (const int view : {0, 1, 2, 4, 5}) {
      Random random(
          static_cast<std::uint64_t>(static_cast<int>(sizeof(T)) * 100 + space * 10 + view));
      const std::string name = "depth-" + std::to_string(sizeof(T)) + "-space-" +
                               std::to_string(space) + "-view-" + std::to_string(view);
      Hash hash;
      for (int i = 0; i < (few ? fewTiles : tilesPerGroup); ++i) {
        addTile<T>(random, space, view, hash);
        if (i + 1 == fewTiles) to[name + "-few"] = text(hash);
      }
      if (!few) to[name] = text(hash);
    }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string option = argc > 1 ? argv[1] : "";
  if (argc > 2 || (!option.empty() && option != "--few" && option != "--print")) {
    std::fprintf(stderr, "engine_hashes: %s: expected --few, --print or nothing\n", argv[argc - 1]);
    return 2;
  }
  Hashes hashes;
  addGroups<std::uint8_t>(option == "--few", hashes);
  addGroups<std::uint16_t>(option == "--few", hashes);
  addGroups<float>(option == "--few", hashes);
  if (tilesKeyed == 0) {
    std::fprintf(stderr, "every tile was refused: no kernels of that name here\n");
    return 77;
  }
  if (option == "--print") {
    for (const auto& [name, hash] : hashes) std::printf("%s %s\n", name.c_str(), hash.c_str());
    return 0;
  }
  std::size_t compared = 0, differing = 0;
  for (const auto& [name, expected] : kept) {
    const auto found = hashes.find(name);
    if (found == hashes.end()) continue;
    ++compared;
    if (found->second == expected) continue;
    std::printf("%s is %s, not %s\n", name, found->second.c_str(), expected);
    ++differing;
  }
  if (compared != hashes.size()) {
    std::printf("%zu groups of tiles, but %zu are kept\n", hashes.size(), compared);
    return 1;
  }
  std::printf("%zu groups of tiles, %zu differ\n", compared, differing);
  return differing == 0 ? 0 : 1;
}
