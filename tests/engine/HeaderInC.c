/* SPDX-License-Identifier: BSD-3-Clause
 *
 * The public header as a C99 client's first and only include. Every function is taken by address
 * with the type that clients rely on, and one grey pixel is keyed.
 */
#include "engine/orvanite.h"

int keyGreyInC(unsigned char* pixel);

typedef QMXOrvaniteTable E;

struct Flat {
  E* (*create)(void);
  void (*destroy)(E*);
  void (*codes[12])(E*, int);
  void (*colours[5])(E*, float, float, float);
  void (*bands[2])(E*, int, float);
  void (*screenRange)(E*, float);
  void (*grades[3])(E*, float, float, float, int);
  void (*saturation)(E*, float, int);
  int (*getters[2])(E*);
  int (*render)(E*, int, int, int, Otile*);
  void (*callback)(E*, void (*)(void*), void*);
};

static const struct Flat flat = {
    orvanite_new,
    orvanite_delete,
    {orvanite_setColourspace, orvanite_setView, orvanite_setFgMax, orvanite_setBgMax,
     orvanite_setGMatteMax, orvanite_setHMatteMax, orvanite_setDstMax, orvanite_setRefMax,
     orvanite_useHold, orvanite_useGarbage, orvanite_useRef, 0},
    {orvanite_setScreen, orvanite_setNeutral, orvanite_setReplace, orvanite_setBackground,
     orvanite_setMp},
    {orvanite_setBalance, orvanite_setGain},
    orvanite_setScreenRange,
    {orvanite_setExposure, orvanite_setGamma, orvanite_setOffset},
    orvanite_setSaturation,
    {orvanite_getView, orvanite_makeLuts},
    orvanite_render,
    orvanite_installCallback};

/* Keys one unpremultiplied pixel in place, a blue screen taken out. 0 when it went well. */
int keyGreyInC(unsigned char* pixel) {
  Otile tile = {{0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0},
                {0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}};
  int failed;
  E* engine = flat.create();
  if (!engine) return 1;
  tile.dst.red = tile.fg.red = pixel;
  tile.dst.green = tile.fg.green = pixel + 1;
  tile.dst.blue = tile.fg.blue = pixel + 2;
  tile.dst.alpha = pixel + 3;
  tile.dst.pixelStep = tile.fg.pixelStep = tile.dst.lineStep = tile.fg.lineStep = 4;
  orvanite_useRef(engine, 0);
  orvanite_setView(engine, 4);
  failed = orvanite_makeLuts(engine) != 0 || orvanite_render(engine, 1, 1, 1, &tile) != 0;
  orvanite_delete(engine);
  return failed;
}
