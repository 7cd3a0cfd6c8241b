// SPDX-License-Identifier: BSD-3-Clause
//
// One synthetic frame per depth, encoding and view, as a number. The numbers stand here, so that
// builds of any compiler, optimisation level and machine can be compared; they were taken from the
// models, and the models must still give them.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/engine/Scene.h"

namespace {

constexpr int width = 61, height = 24;

/// FNV-1a over the samples, low byte first.
template <class T>
class Hash {
 public:
  void add(typename ModelOf<T>::Sample sample) {
    std::uint32_t bits = 0;
    if constexpr (sizeof(T) == 4)
      std::memcpy(&bits, &sample, 4);
    else
      bits = static_cast<std::uint32_t>(sample);
    for (std::size_t i = 0; i < sizeof(T); ++i, bits >>= 8)
      value = (value ^ (bits & 255)) * 0x100000001b3u;
  }
  std::uint64_t value = 0xcbf29ce484222325u;
};

Parameters frameParameters(int depth, int space, int view) {
  Parameters p;
  p.setAllMaxima(depth == 1 ? 255 : depth == 2 ? 65535 : 1);
  p.colourspace = space;
  p.view = view;
  const float screen[] = {0.12f, 0.71f, 0.23f}, neutral[] = {0.5f, 0.47f, 0.52f};
  std::copy_n(screen, 3, p.screen);
  std::copy_n(neutral, 3, p.neutral);
  p.balance[0] = 0.4f;
  p.gain[1] = 0.1f;
  p.screenRange = 0.08f;
  p.replace[0] = p.replace[1] = p.replace[2] = 0.4f;
  p.background[2] = 0.6f;
  p.exposure[0][0] = 1.2f;
  p.gamma[0][1] = 0.9f;
  p.offset[1][2] = 0.02f;
  p.saturation[0] = 1.2f;
  p.saturation[1] = 0.8f;
  return p;
}

struct Frame {
  int depth, space, view;
  std::uint64_t hash;
};

// clang-format off
constexpr Frame frames[] = {
#include "tests/engine/frameHashes.inc"
};
// clang-format on

template <class T>
void check(const Frame& frame) {
  const Parameters p = frameParameters(frame.depth, frame.space, frame.view);
  Random layouts(1);
  model::Present present;
  present.ref = false;
  Scene<T> scene(layouts, width, height, present, Placement::own);
  scene.dst = Picture<T>({}, width, height);
  // The numbers below hang on these draws and on no others.
  Random random(static_cast<std::uint64_t>(frame.depth));
  for (Picture<T>* picture : {&scene.fg, &scene.bg, &scene.hold, &scene.garbage})
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        for (int c = 0; c < 4; ++c) {
          float v = random.unit();
          // Left half: towards the screen, so that mattes of every size occur.
          if (picture == &scene.fg && c < 3 && x < width / 2)
            v = p.screen[c] + (v - p.screen[c]) * static_cast<float>(y) / height;
          picture->at(c, x, y) =
              sizeof(T) == 4 ? static_cast<T>(v) : static_cast<T>(v * static_cast<float>(p.fgMax));
        }
  const typename ModelOf<T>::Model reference(p);
  const model::Instance instance = model::chosenInstance(p, present);
  Hash<T> modelled, rendered;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (auto v : ModelOf<T>::key(reference, instance, present, scene.inputs(x, y)))
        modelled.add(v);

  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  Otile tile = scene.tile();
  ASSERT_EQ(orvanite_render(engine.get(), frame.depth, width, height, &tile), 0);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < 4; ++c) rendered.add(scene.dst.at(c, x, y));

  char line[80];
  std::snprintf(line, sizeof line, "{%d, %d, %d, 0x%016llxu},", frame.depth, frame.space,
                frame.view, static_cast<unsigned long long>(modelled.value));
  EXPECT_EQ(modelled.value, frame.hash) << "the model now says " << line;
  EXPECT_EQ(rendered.value, frame.hash) << "the engine differs from the number, " << line;
}

}  // namespace

TEST(FrameHash, IsTheSameWithEveryCompilerAndOptimisation) {
  for (const Frame& frame : frames) {
    if (frame.depth == 1) check<unsigned char>(frame);
    if (frame.depth == 2) check<unsigned short>(frame);
    if (frame.depth == 4) check<float>(frame);
  }
}
