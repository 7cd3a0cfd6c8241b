// SPDX-License-Identifier: BSD-3-Clause
//
// A client in C++: keys float pixels and prints their mattes, with an engine that cleans up after
// itself. Prints one matte a pixel: 0 for the screen's own colour, 1 for grey, between for a mix.
#include <orvanite.h>

#include <array>
#include <cstdio>
#include <memory>

int main() {
  struct Delete {
    void operator()(QMXOrvaniteTable* engine) const { orvanite_delete(engine); }
  };
  const std::unique_ptr<QMXOrvaniteTable, Delete> engine(orvanite_new());
  if (engine == nullptr) {
    std::fputs("matte: out of memory\n", stderr);
    return 1;
  }
  // Any maximum of 1 selects float tables; all of them, so that no image is taken for integers.
  orvanite_setFgMax(engine.get(), 1);
  orvanite_setBgMax(engine.get(), 1);
  orvanite_setDstMax(engine.get(), 1);
  orvanite_setHMatteMax(engine.get(), 1);
  orvanite_setGMatteMax(engine.get(), 1);
  orvanite_setColourspace(engine.get(), 0);
  orvanite_setScreen(engine.get(), 0.0f, 0.0f, 1.0f);
  orvanite_setView(engine.get(), 2);
  orvanite_useRef(engine.get(), 0);
  if (orvanite_makeLuts(engine.get()) != 0) {
    std::fputs("matte: cannot key with these parameters\n", stderr);
    return 1;
  }

  // Three RGBA pixels: the screen, an even mix of screen and grey, grey.
  std::array<float, 12> pixels = {0, 0, 1, 1, 0.25f, 0.25f, 0.75f, 1, 0.5f, 0.5f, 0.5f, 1};
  OtileImage image = {&pixels[0], &pixels[1], &pixels[2], &pixels[3], 4, 12};
  Otile tile = {};
  tile.fg = image;
  tile.dst = image;
  if (orvanite_render(engine.get(), 4, 3, 1, &tile) != 0) {
    std::fputs("matte: the tile was refused\n", stderr);
    return 1;
  }
  std::printf("%g %g %g\n", pixels[3], pixels[7], pixels[11]);
  return 0;
}
