// SPDX-License-Identifier: BSD-3-Clause
//
// Every kernel at every small width, in every arrangement of memory that a tile can describe.
// Vector bodies go wrong at their tails, at odd steps and where pictures share memory; so each
// tile is compared byte for byte, gaps and guards included, and pictures end where their memory
// does, so that a sanitizer sees a read too far.
#include <gtest/gtest.h>

#include "tests/engine/Scene.h"

namespace {

template <class T>
void sweepGeometry(std::uint64_t seed) {
  Random random(seed);
  for (const bool first : {false, true}) {
    Parameters p;
    p.setAllMaxima(sizeof(T) == 1 ? 255 : sizeof(T) == 2 ? 1023 : 1);
    p.ref = sizeof(T) < 4 && first;
    p.colourspace = sizeof(T) < 4 || first ? 0 : 2;
    const float screen[] = {0.1f, 0.7f, 0.2f};
    std::copy_n(screen, 3, p.screen);
    p.screenRange = 0.1f;
    p.replace[1] = 0.5f;
    p.exposure[0][0] = 1.2f;
    p.gamma[1][1] = 0.8f;
    p.saturation[0] = 1.3f;
    p.saturation[1] = 0.7f;
    p.neutral[0] = 0.45f;
    p.background[2] = 0.3f;
    Definition<T> definition(p);
    const Engine engine = makeEngine(p);
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
    for (const int view : {0, 1, 2, 3, 4, 5, 77}) {
      orvanite_setView(engine.get(), view);
      ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
      definition.p.view = view;
      for (int lacking = 0; lacking < 8; ++lacking)
        for (int step = 0; step <= 72; ++step) {
          // Every small width, and a few that take kernels past the blocks they work in.
          const int width = step <= 70 ? step : random.pick({127, 128, 129, 255, 257, 301, 384});
          Present present;
          present.hold = (lacking & 1) == 0;
          present.garbage = (lacking & 2) == 0;
          present.bgAlpha = (lacking & 4) == 0;
          present.ref = p.ref;
          present.fg = !random.oneIn(12);
          const auto placement =
              random.pick({Placement::own, Placement::onBackground,
                           present.fg ? Placement::onForeground : Placement::onBackground});
          Scene<T> scene(random, width, random.between(1, 2), present, placement);
          fillInputs(random, scene, p);
          const orvanite::Choices choices = chosen(definition.p, present);
          scene.dummyAlpha = !choices.alpha && random.oneIn(2);
          ASSERT_TRUE(keysLikeTheDefinition(scene, definition, choices, [&](Otile* tile) {
            return orvanite_render(engine.get(), depthCode<T>, width, scene.height, tile);
          }));
        }
    }
    for (const auto& [width, height] : {std::pair{0, 4}, {4, 0}, {-1, 4}, {4, -7}}) {
      Scene<T> scene(random, 4, 4, {}, Placement::own);
      scene.width = width;  // no pixel is compared: nothing may change
      scene.height = height;
      ASSERT_TRUE(
          keysLikeTheDefinition(scene, definition, {}, [&, w = width, h = height](Otile* tile) {
            return orvanite_render(engine.get(), depthCode<T>, w, h, tile);
          }));
    }
  }
}

}  // namespace

TEST(Geometry, EightBitTilesOfAnyShapeAreKeyedAndNothingElseIsTouched) {
  sweepGeometry<unsigned char>(11);
}
TEST(Geometry, SixteenBitTilesOfAnyShapeAreKeyedAndNothingElseIsTouched) {
  sweepGeometry<unsigned short>(12);
}
TEST(Geometry, FloatTilesOfAnyShapeAreKeyedAndNothingElseIsTouched) { sweepGeometry<float>(13); }
