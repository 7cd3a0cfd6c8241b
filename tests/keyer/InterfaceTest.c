/* SPDX-License-Identifier: BSD-3-Clause
 *
 * The keyer's C interface as a client in C99 meets it: the table, words for what goes wrong,
 * presets, pictures of every layout and depth against the engine's own interface, finding a key.
 */
#include <math.h>
#include <orvanite/keyer.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "engine/orvanite.h"

static int failures = 0;
#define CHECK(condition, ...)                                 \
  do {                                                        \
    if (!(condition)) {                                       \
      ++failures;                                             \
      fprintf(stderr, "line %d: %s: ", __LINE__, #condition); \
      fprintf(stderr, __VA_ARGS__);                           \
      fputc('\n', stderr);                                    \
    }                                                         \
  } while (0)

enum { width = 37, height = 21 };

/* ---- The table, values, presets, words */

static void tableIsWhole(void) {
  OrvaniteKeyer* keyer = orvanite_keyerNew();
  const int count = orvanite_keyerParameters();
  int i, c;
  CHECK(count > 20, "%d", count);
  for (i = 0; i < count; ++i) {
    OrvaniteParameter p;
    double now[3] = {-1, -1, -1};
    CHECK(orvanite_keyerParameter(i, &p) == ORVANITE_OK, "%d", i);
    CHECK(*p.name && *p.label && *p.group && *p.help, "%d", i);
    CHECK(!orvanite_keyerGiven(keyer, p.name), "%s", p.name);
    if (p.type == ORVANITE_CHANNEL) {
      CHECK(orvanite_keyerNumbers(keyer, p.name, now) == ORVANITE_WRONG_USE, "%s", p.name);
      continue;
    }
    CHECK(orvanite_keyerNumbers(keyer, p.name, now) == ORVANITE_OK, "%s", p.name);
    for (c = 0; c < p.values; ++c) {
      CHECK((float)now[c] == p.defaults[c], "%s: %g", p.name, now[c]);
    }
    /* What is said back is taken, and changes nothing. */
    CHECK(orvanite_keyerSetText(keyer, p.name, orvanite_keyerText(keyer, p.name)) == ORVANITE_OK,
          "%s: %s", p.name, orvanite_keyerError(keyer));
    CHECK(orvanite_keyerGiven(keyer, p.name), "%s", p.name);
    for (c = 0; c < p.choices; ++c) {
      OrvaniteChoice choice;
      const double index = c;
      CHECK(orvanite_keyerChoice(i, c, &choice) == ORVANITE_OK, "%s %d", p.name, c);
      CHECK(orvanite_keyerSetNumbers(keyer, p.name, &index, 1) == ORVANITE_OK, "%s", p.name);
      CHECK(strcmp(orvanite_keyerText(keyer, p.name), choice.text) == 0, "%s", choice.text);
    }
  }
  orvanite_keyerReset(keyer, NULL);
  CHECK(!orvanite_keyerGiven(keyer, "screen"), "reset");
  orvanite_keyerDelete(keyer);
  orvanite_keyerDelete(NULL);
}

static void presetsCarryEverything(void) {
  OrvaniteKeyer* one = orvanite_keyerNew();
  OrvaniteKeyer* other = orvanite_keyerNew();
  char* text;
  orvanite_keyerSetText(one, "screen", "0.1,0.7,0.2");
  orvanite_keyerSetText(one, "output", "matte");
  text = strdup(orvanite_keyerPreset(one));
  CHECK(orvanite_keyerUsePreset(other, text) == ORVANITE_OK, "%s", orvanite_keyerError(other));
  CHECK(strcmp(text, orvanite_keyerPreset(other)) == 0, "%s", orvanite_keyerPreset(other));
  CHECK(strcmp(orvanite_keyerText(other, "output"), "matte") == 0, "output");
  free(text);
  orvanite_keyerDelete(one);
  orvanite_keyerDelete(other);
}

static void wrongUseIsSaidInWords(void) {
  OrvaniteKeyer* keyer = orvanite_keyerNew();
  const double two[2] = {1, 2}, three[3] = {1, 2, 3};
  CHECK(*orvanite_keyerError(keyer) == '\0', "fresh");
#define WRONG(call, words)             \
  CHECK((call) != ORVANITE_OK, #call); \
  CHECK(strstr(orvanite_keyerError(keyer), words), "%s: %s", #call, orvanite_keyerError(keyer))
  WRONG(orvanite_keyerSetText(keyer, "scren", "1"), "did you mean 'screen'");
  WRONG(orvanite_keyerSetText(keyer, "screen", "green"), "screen: expected one number or R,G,B");
  WRONG(orvanite_keyerSetText(keyer, "output", "mat"), "output: expected composite");
  WRONG(orvanite_keyerSetText(keyer, NULL, "1"), "parameter");
  WRONG(orvanite_keyerSetText(keyer, "screen", NULL), "screen");
  WRONG(orvanite_keyerSetNumbers(keyer, "screen", two, 2), "1 number or 3");
  WRONG(orvanite_keyerSetNumbers(keyer, "screenRange", three, 3), "found 3");
  WRONG(orvanite_keyerUsePreset(keyer, "{}"), "preset");
  WRONG(orvanite_keyerRender(keyer, NULL, 0), "frame");
  WRONG(orvanite_keyerFind(keyer, NULL, ORVANITE_CLEAN_PLATE_NEVER), "plate");
  CHECK(orvanite_keyerText(keyer, "nothing") == NULL, "text of nothing");
  CHECK(!orvanite_keyerGiven(keyer, "screen"), "a refused value is no value");
  CHECK(orvanite_keyerParameter(-1, NULL) == ORVANITE_WRONG_USE, "index");
  CHECK(orvanite_keyerSetText(NULL, "screen", "1") == ORVANITE_WRONG_USE, "no keyer");
  orvanite_keyerDelete(keyer);
}

/* ---- Pictures */

/* How a picture lies in memory. */
typedef struct Layout {
  const char* name;
  int channels; /* 3 or 4 */
  int planes;   /* 1: one after the other */
  int reversed; /* 1: blue first */
  int upwards;  /* 1: the last row first */
  int pad;      /* samples after a row */
} Layout;

static const Layout layouts[] = {
    {"RGBA", 4, 0, 0, 0, 0},         {"RGB", 3, 0, 0, 0, 0},
    {"planes", 4, 1, 0, 0, 0},       {"three planes, padded", 3, 1, 0, 0, 5},
    {"BGRA upwards", 4, 0, 1, 1, 0}, {"RGBA, padded", 4, 0, 0, 0, 3}};
enum { layoutCount = sizeof layouts / sizeof layouts[0] };

static size_t bytesOf(OrvaniteDepth depth) {
  return depth == ORVANITE_8BIT ? 1 : depth == ORVANITE_FLOAT ? 4 : 2;
}

/* An image of a layout in fresh memory, which is the caller's. */
static void* place(OrvaniteImage* image, const Layout* layout, OrvaniteDepth depth) {
  const size_t sample = bytesOf(depth);
  const size_t row =
      ((size_t)width * (layout->planes ? 1 : (size_t)layout->channels) + (size_t)layout->pad) *
      sample;
  unsigned char* memory = calloc(1, row * height * (layout->planes ? (size_t)layout->channels : 1));
  int c;
  memset(image, 0, sizeof *image);
  image->width = width;
  image->height = height;
  image->depth = depth;
  image->pixelStride = (ptrdiff_t)(layout->planes ? sample : sample * (size_t)layout->channels);
  image->rowStride = layout->upwards ? -(ptrdiff_t)row : (ptrdiff_t)row;
  for (c = 0; c < layout->channels; ++c) {
    const size_t at = (size_t)(layout->reversed && c < 3 ? 2 - c : c);
    image->channels[c] = memory + (layout->planes ? at * row * height : at * sample) +
                         (layout->upwards ? row * (height - 1) : 0);
  }
  return memory;
}

static unsigned char* at(const OrvaniteImage* image, int x, int y, int c) {
  return (unsigned char*)image->channels[c] + y * image->rowStride + x * image->pixelStride;
}

static double fromHalf(unsigned short bits) {
  const int exponent = (bits >> 10) & 31, mantissa = bits & 1023;
  const double value = exponent ? ldexp(1024 + mantissa, exponent - 25) : ldexp(mantissa, -24);
  return bits & 0x8000 ? -value : value;
}

/* For multiples of 1/64 from 0 to 1. */
static unsigned short toHalf(double value) {
  int exponent;
  const double share = frexp(value, &exponent); /* 0.5..1, or 0 */
  return value == 0 ? 0 : (unsigned short)(((exponent + 14) << 10) + (int)(share * 2048 - 1024));
}

static void put(const OrvaniteImage* image, int x, int y, int c, double value) {
  unsigned char* to = at(image, x, y, c);
  const unsigned char byte = (unsigned char)floor(value * 255 + 0.5);
  const unsigned short word =
      image->depth == ORVANITE_HALF ? toHalf(value) : (unsigned short)floor(value * 65535 + 0.5);
  const float real = (float)value;
  memcpy(to,
         image->depth == ORVANITE_8BIT    ? (const void*)&byte
         : image->depth == ORVANITE_FLOAT ? (const void*)&real
                                          : (const void*)&word,
         bytesOf(image->depth));
}

/* In codes, or as a float. */
static double get(const OrvaniteImage* image, int x, int y, int c) {
  const unsigned char* from = at(image, x, y, c);
  unsigned short word;
  float real;
  if (image->depth == ORVANITE_8BIT) return *from;
  memcpy(&word, from, 2);
  if (image->depth == ORVANITE_16BIT) return word;
  if (image->depth == ORVANITE_HALF) return fromHalf(word);
  memcpy(&real, from, 4);
  return (double)real;
}

/* A value of the test's pictures: a multiple of 1/64. */
static double sampleOf(int seed, int x, int y, int c) {
  return (double)((unsigned)(seed * 7919 + x * 131 + y * 37 + c * 977 + x * y * 11) % 65) / 64;
}

static void fill(const OrvaniteImage* image, int seed) {
  int x, y, c;
  for (y = 0; y < height; ++y) {
    for (x = 0; x < width; ++x) {
      for (c = 0; c < 4; ++c) {
        if (image->channels[c]) put(image, x, y, c, sampleOf(seed, x, y, c));
      }
    }
  }
}

/* The composite of plate 1 over background 2, with 3 as a hold-out matte in `holdChannel`, by the
 * engine alone: interleaved RGBA at its depth. */
static void byTheEngine(OrvaniteImage* out, void** memory, int depth, int holdChannel, int opaque) {
  const OrvaniteDepth kind = depth == 1   ? ORVANITE_8BIT
                             : depth == 2 ? ORVANITE_16BIT
                                          : ORVANITE_FLOAT;
  const int max = depth == 1 ? 255 : depth == 2 ? 65535 : 1;
  OrvaniteImage images[3];
  void* memories[3];
  OtileImage tiles[4];
  Otile tile;
  QMXOrvaniteTable* engine = orvanite_new();
  int i, x, y;
  *memory = place(out, &layouts[0], kind);
  for (i = 0; i < 3; ++i) {
    memories[i] = place(&images[i], &layouts[0], kind);
    fill(&images[i], i + 1);
  }
  if (opaque) {
    for (y = 0; y < height; ++y) {
      for (x = 0; x < width; ++x) put(&images[1], x, y, 3, 1);
    }
  }
  for (i = 0; i < 4; ++i) {
    const OrvaniteImage* image = i < 3 ? &images[i] : out;
    const OtileImage described = {
        image->channels[0], image->channels[1], image->channels[2], image->channels[3], 4,
        4 * width};
    tiles[i] = described;
  }
  memset(&tile, 0, sizeof tile);
  tile.fg = tiles[0];
  tile.bg = tiles[1];
  tile.hold.alpha = images[2].channels[holdChannel];
  tile.hold.pixelStep = 4;
  tile.hold.lineStep = 4 * width;
  tile.dst = tiles[3];
  orvanite_useRef(engine, 0);
  orvanite_useGarbage(engine, 0);
  orvanite_setColourspace(engine, 2);
  orvanite_setScreen(engine, 0.25f, 0.75f, 0.25f);
  orvanite_setNeutral(engine, 0.9f, 0.9f, 0.9f);
  orvanite_setReplace(engine, 0.5f, 0.5f, 0.5f);
  orvanite_setFgMax(engine, max);
  orvanite_setBgMax(engine, max);
  orvanite_setHMatteMax(engine, max);
  orvanite_setGMatteMax(engine, max);
  orvanite_setRefMax(engine, max);
  orvanite_setDstMax(engine, max);
  CHECK(orvanite_makeLuts(engine) == 0, "tables");
  CHECK(orvanite_render(engine, depth, width, height, &tile) == 0, "render");
  orvanite_delete(engine);
  for (i = 0; i < 3; ++i) free(memories[i]);
}

/* Every layout of the plate and of the result, at every depth, on one thread and on all. */
static void layoutsGiveTheEnginesBits(void) {
  const OrvaniteDepth depths[] = {ORVANITE_8BIT, ORVANITE_16BIT, ORVANITE_HALF, ORVANITE_FLOAT};
  int d, in, out, x, y, c;
  for (d = 0; d < 4; ++d) {
    const int working = depths[d] == ORVANITE_8BIT ? 1 : depths[d] == ORVANITE_16BIT ? 2 : 4;
    for (in = 0; in < layoutCount; ++in) {
      OrvaniteImage wanted;
      void* wantedMemory;
      /* A background without alpha is opaque; the matte's channel is the blue one, set by name. */
      byTheEngine(&wanted, &wantedMemory, working, 2, layouts[in].channels == 3);
      for (out = 0; out < layoutCount; ++out) {
        OrvaniteKeyer* keyer = orvanite_keyerNew();
        OrvaniteFrame frame;
        void* memories[4];
        int wrong = 0;
        memset(&frame, 0, sizeof frame);
        memories[0] = place(&frame.plate, &layouts[in], depths[d]);
        memories[1] = place(&frame.background, &layouts[in], depths[d]);
        memories[2] = place(&frame.holdOut, &layouts[(in + out) % layoutCount], depths[d]);
        memories[3] = place(&frame.result, &layouts[out], depths[d]);
        fill(&frame.plate, 1);
        fill(&frame.background, 2);
        fill(&frame.holdOut, 3);
        orvanite_keyerSetText(keyer, "colourspace", "video");
        orvanite_keyerSetText(keyer, "screen", "0.25,0.75,0.25");
        orvanite_keyerSetText(keyer, "holdOutChannel", "B");
        CHECK(orvanite_keyerRender(keyer, &frame, out % 3) == ORVANITE_OK, "%s",
              orvanite_keyerError(keyer));
        for (y = 0; y < height; ++y) {
          for (x = 0; x < width; ++x) {
            for (c = 0; c < layouts[out].channels; ++c) {
              const double w = get(&wanted, x, y, c), f = get(&frame.result, x, y, c);
              /* A half keeps eleven bits: half a step of 2^-10 of the power of two below. */
              const double apart = depths[d] == ORVANITE_HALF ? fabs(w) * ldexp(1, -11) : 0;
              if (!(fabs(w - f) <= apart)) ++wrong;
            }
          }
        }
        CHECK(wrong == 0, "%s to %s, depth %d: %d samples", layouts[in].name, layouts[out].name,
              (int)depths[d], wrong);
        for (c = 0; c < 4; ++c) free(memories[c]);
        orvanite_keyerDelete(keyer);
      }
      free(wantedMemory);
    }
  }
}

/* A grey picture, opaque all over or without an alpha, is a matte by its luminance. */
static void greyPicturesAreMattes(void) {
  int kind, x, y, c;
  for (kind = 0; kind < 3; ++kind) {
    OrvaniteKeyer* keyer = orvanite_keyerNew();
    OrvaniteFrame frame;
    OrvaniteImage one;
    void *plate, *matte, *result;
    memset(&frame, 0, sizeof frame);
    plate = place(&frame.plate, &layouts[1], ORVANITE_8BIT);
    matte = place(&frame.garbage, &layouts[kind == 1 ? 1 : 0], ORVANITE_16BIT);
    result = place(&one, &layouts[0], ORVANITE_FLOAT);
    frame.result = one;
    frame.result.channels[0] = frame.result.channels[1] = frame.result.channels[2] = NULL;
    for (y = 0; y < height; ++y) {
      for (x = 0; x < width; ++x) {
        for (c = 0; c < 3; ++c) put(&frame.plate, x, y, c, 1); /* white: all foreground */
        for (c = 0; c < 3; ++c) put(&frame.garbage, x, y, c, x < 10 ? 1 : 0);
        if (kind != 1) put(&frame.garbage, x, y, 3, kind == 2 ? (y < 5 ? 1 : 0) : 1);
      }
    }
    CHECK(orvanite_keyerRender(keyer, &frame, 0) == ORVANITE_OK, "%s", orvanite_keyerError(keyer));
    /* The third picture's own alpha says more than its colours. */
    for (y = 0; y < height; ++y) {
      for (x = 0; x < width; ++x) {
        const double wanted = (kind == 2 ? y < 5 : x < 10) ? 0 : 1;
        if (get(&one, x, y, 3) != wanted) {
          CHECK(0, "kind %d, pixel %d,%d: %g", kind, x, y, get(&one, x, y, 3));
          y = height;
          break;
        }
      }
    }
    free(plate);
    free(matte);
    free(result);
    orvanite_keyerDelete(keyer);
  }
}

static void misfitsAreRefused(void) {
  OrvaniteKeyer* keyer = orvanite_keyerNew();
  OrvaniteFrame good, bad;
  void* memory[2];
  memset(&good, 0, sizeof good);
  memory[0] = place(&good.plate, &layouts[0], ORVANITE_8BIT);
  memory[1] = place(&good.result, &layouts[0], ORVANITE_8BIT);
  fill(&good.plate, 1);
  CHECK(orvanite_keyerRender(keyer, &good, 0) == ORVANITE_OK, "%s", orvanite_keyerError(keyer));
#define MISFIT(change, words) \
  bad = good;                 \
  change;                     \
  WRONG(orvanite_keyerRender(keyer, &bad, 0), words)
  MISFIT(bad.plate.channels[1] = NULL, "plate: expected a picture with red, green and blue");
  MISFIT(memset(&bad.result, 0, sizeof bad.result), "result: expected a picture");
  MISFIT(bad.result.width = 5, "result: expected the plate's size, 37x21, found '5x21'");
  MISFIT(bad.plate.height = 0, "plate: expected a width and a height");
  MISFIT(bad.plate.depth = (OrvaniteDepth)7, "plate: expected a depth");
  MISFIT(bad.plate.pixelStride = 0, "plate: expected strides");
  MISFIT(bad.background = bad.plate; bad.background.width = 3, "background");
  MISFIT(bad.cleanPlate = bad.plate; bad.cleanPlate.channels[0] = NULL, "clean plate");
  WRONG(orvanite_keyerRender(keyer, &good, -1), "threads");
  orvanite_keyerSetText(keyer, "screen", "0.5");
  WRONG(orvanite_keyerRender(keyer, &good, 0), "screen: expected a colour, found a grey");
  free(memory[0]);
  free(memory[1]);
  orvanite_keyerDelete(keyer);
}

/* ---- Finding a key */

enum { wide = 320, high = 200 };

/* A green screen that darkens to two thirds towards the right, a red subject in the middle. */
static void paint(float* rgb, int lit) {
  int x, y;
  for (y = 0; y < high; ++y) {
    for (x = 0; x < wide; ++x, rgb += 3) {
      const int subject = x > 120 && x < 200 && y > 60;
      const float light = lit ? 1 : 1 - (float)x / wide / 3;
      rgb[0] = subject ? 0.7f : 0.15f * light;
      rgb[1] = subject ? 0.2f : 0.65f * light;
      rgb[2] = subject ? 0.2f : 0.2f * light;
    }
  }
}

static void aKeyIsFound(int uneven, OrvaniteDepth depth) {
  OrvaniteKeyer* keyer = orvanite_keyerNew();
  OrvaniteKeyer* other = orvanite_keyerNew();
  float* before = malloc(sizeof(float) * wide * high);
  int steady = 0;
  char* preset;
  OrvaniteFrame frame;
  OrvaniteScreen screen;
  float* rgb = malloc(sizeof(float) * 3 * wide * high);
  unsigned short* words = malloc(sizeof(unsigned short) * 3 * wide * high);
  float* matte = malloc(sizeof(float) * wide * high);
  const size_t sample = bytesOf(depth);
  int i, x, y, wrong = 0;
  char* first;
  paint(rgb, !uneven);
  for (i = 0; i < 3 * wide * high; ++i) words[i] = (unsigned short)(rgb[i] * 65535 + 0.5f);
  memset(&frame, 0, sizeof frame);
  frame.plate.width = frame.result.width = wide;
  frame.plate.height = frame.result.height = high;
  frame.plate.depth = depth;
  frame.plate.pixelStride = (ptrdiff_t)(3 * sample);
  frame.plate.rowStride = (ptrdiff_t)(3 * sample) * wide;
  for (i = 0; i < 3; ++i) {
    unsigned char* base = depth == ORVANITE_FLOAT ? (unsigned char*)rgb : (unsigned char*)words;
    frame.plate.channels[i] = base + (size_t)i * sample;
  }
  frame.result.depth = ORVANITE_FLOAT;
  frame.result.channels[3] = matte;
  frame.result.pixelStride = sizeof(float);
  frame.result.rowStride = sizeof(float) * wide;

  CHECK(orvanite_keyerFindScreen(keyer, &frame.plate, &screen) == ORVANITE_OK, "%s",
        orvanite_keyerError(keyer));
  CHECK(screen.primary == 1 && screen.coverage > 0.6f, "%d %g", screen.primary,
        (double)screen.coverage);
  CHECK(!orvanite_keyerGiven(keyer, "screen"), "looking changes nothing");
  CHECK(orvanite_keyerFind(keyer, &frame.plate, ORVANITE_CLEAN_PLATE_IF_USEFUL) == ORVANITE_OK,
        "%s", orvanite_keyerError(keyer));
  CHECK(strstr(orvanite_keyerFound(keyer), "screen"), "%s", orvanite_keyerFound(keyer));
  CHECK(orvanite_keyerHasCleanPlate(keyer) && strstr(orvanite_keyerFound(keyer), "estimate"), "%s",
        orvanite_keyerFound(keyer));
  CHECK(orvanite_keyerRender(keyer, &frame, 0) == ORVANITE_OK, "%s", orvanite_keyerError(keyer));
  for (y = 0; y < high; ++y) {
    for (x = 0; x < wide; ++x) {
      const int subject = x > 120 && x < 200 && y > 60;
      if (fabs((double)matte[y * wide + x] - subject) > 0.02) ++wrong;
    }
  }
  CHECK(wrong == 0, "%d pixels of a matte are wrong", wrong);
  CHECK(orvanite_keyerSee(keyer, &frame.plate, &steady) == ORVANITE_OK && steady == 1, "%s",
        orvanite_keyerError(keyer));
  /* Its preset keys the same without what was found: the frame is estimated by itself. */
  preset = strdup(orvanite_keyerPreset(keyer));
  orvanite_keyerUsePreset(other, preset);
  free(preset);
  CHECK(orvanite_keyerSee(other, &frame.plate, &steady) == ORVANITE_WRONG_USE, "nothing is kept");
  memcpy(before, matte, sizeof(float) * wide * high);
  memset(matte, 0, sizeof(float) * wide * high);
  CHECK(orvanite_keyerRender(other, &frame, 2) == ORVANITE_OK, "%s", orvanite_keyerError(other));
  CHECK(memcmp(before, matte, sizeof(float) * wide * high) == 0, "the preset keys otherwise");
  /* The same again, though what was found now stands in the settings. */
  first = strdup(orvanite_keyerPreset(keyer));
  CHECK(orvanite_keyerFind(keyer, &frame.plate, ORVANITE_CLEAN_PLATE_IF_USEFUL) == ORVANITE_OK,
        "again");
  CHECK(strcmp(first, orvanite_keyerPreset(keyer)) == 0, "%s", orvanite_keyerPreset(keyer));
  free(first);
  /* What the client sets stays. */
  orvanite_keyerSetText(keyer, "screenRange", "0.125");
  orvanite_keyerFind(keyer, &frame.plate, ORVANITE_CLEAN_PLATE_NEVER);
  CHECK(strcmp(orvanite_keyerText(keyer, "screenRange"), "0.125") == 0, "screenRange");
  /* Grey has no screen. */
  for (i = 0; i < 3 * wide * high; ++i) rgb[i] = 0.5f, words[i] = 32768;
  CHECK(orvanite_keyerFind(keyer, &frame.plate, ORVANITE_CLEAN_PLATE_NEVER) == ORVANITE_FAILURE,
        "%s", orvanite_keyerError(keyer));
  free(rgb);
  free(words);
  free(matte);
  free(before);
  orvanite_keyerDelete(keyer);
  orvanite_keyerDelete(other);
}

int main(void) {
  CHECK(strcmp(orvanite_keyerVersion(), ORVANITE_VERSION) == 0, "%s", orvanite_keyerVersion());
  tableIsWhole();
  presetsCarryEverything();
  wrongUseIsSaidInWords();
  layoutsGiveTheEnginesBits();
  greyPicturesAreMattes();
  misfitsAreRefused();
  aKeyIsFound(0, ORVANITE_16BIT);
  aKeyIsFound(1, ORVANITE_16BIT);
  aKeyIsFound(0, ORVANITE_FLOAT);
  aKeyIsFound(1, ORVANITE_FLOAT);
  if (failures) fprintf(stderr, "%d checks failed\n", failures);
  return failures != 0;
}
