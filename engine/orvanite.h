/* SPDX-License-Identifier: BSD-3-Clause
 *
 * Orvanite's keying engine, as a client sees it: 29 functions and the tile record.
 * This header is the only one that a client needs. It compiles alone, as C99 and as C++.
 *
 * Use: create an engine, set parameters, orvanite_makeLuts, any number of orvanite_render calls,
 * set again, delete.
 *
 * Threads: orvanite_render only reads the engine, so calls on different tiles may run at once.
 * Everything else needs the engine to itself.
 *
 * The best kernels that the processor has are taken when the first tables are built or the first
 * tile is keyed, for the life of the process. ORVANITE_TARGET in the environment forces others:
 * avx512vbmi, avx512, avx2 or sse4 on x86-64, neon on AArch64, wasm on WebAssembly, definition
 * (plain code) everywhere. All give the same bits, those of NaNs aside. With any other name, or one
 * that the processor lacks, every render is refused: what is asked for is never quietly replaced.
 *
 * Colours and parameters are floats; 1.0 is white, and they are given in the encoding that
 * orvanite_setColourspace names. Setters condition their argument, do nothing when it equals the
 * stored value, and never fail.
 */
#ifndef ORVANITE_H
#define ORVANITE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Marks what the shared library exports. */
#if defined(_WIN32)
#define ORVANITE_API
#else
#define ORVANITE_API __attribute__((visibility("default")))
#endif

/* The keyer; clients hold a pointer and nothing more. */
typedef struct QMXOrvaniteTable QMXOrvaniteTable;

/* One image's channels inside a tile. A null pointer is an absent channel.
 * The element type is that of the render call's depth: unsigned char, unsigned short or float.
 * Steps count elements, not bytes; they may be negative. Float images must be interleaved with
 * four elements a pixel: the float kernels do not read pixelStep. */
typedef struct OtileImage {
  void* red;     /* the first pixel's red value */
  void* green;   /* its green value */
  void* blue;    /* its blue value */
  void* alpha;   /* its alpha value */
  int pixelStep; /* from one pixel to the next of the same line */
  int lineStep;  /* from the first pixel of a line to the first of the next */
} OtileImage;

/* A rectangle to key: where its pixels go and where each input's pixels are.
 * The record stays the caller's and is only read. dst may share a buffer with fg or with bg,
 * pixel for pixel. In view 0 over a background without alpha, dst's alpha is neither read nor
 * written: any address will do. */
typedef struct Otile {
  OtileImage dst;     /* destination; all four pointers are required, see above */
  OtileImage bg;      /* background picture; absent unless red, green and blue are all there */
  OtileImage fg;      /* the plate; alpha is never read */
  OtileImage hold;    /* hold-out matte; only alpha is read */
  OtileImage garbage; /* garbage matte; only alpha is read */
  OtileImage ref;     /* clean plate, integer depths only; alpha is never read */
} Otile;

/* Creates an engine with default parameters. Null when memory runs out. The caller owns it. */
ORVANITE_API QMXOrvaniteTable* orvanite_new(void);

/* Deletes an engine; an installed callback is called one last time. Null is allowed. */
ORVANITE_API void orvanite_delete(QMXOrvaniteTable* engine);

/* Encoding of all pictures and colours: 0 linear, 1 log (the default), 2 video.
 * Any other code is kept and acts like linear. */
ORVANITE_API void orvanite_setColourspace(QMXOrvaniteTable* engine, int code);

/* Screen colour; default 0, 0, 1. Integer builds clamp it to 0..1. */
ORVANITE_API void orvanite_setScreen(QMXOrvaniteTable* engine, float r, float g, float b);

/* Neutral colour of the foreground (foreground bias): what becomes grey in the working space;
 * default 0.5, 0.5, 0.5. Integer builds clamp it to 0.001..1. */
ORVANITE_API void orvanite_setNeutral(QMXOrvaniteTable* engine, float r, float g, float b);

/* Colour put back under the hold-out matte where the screen was removed; default 0, 0, 0. */
ORVANITE_API void orvanite_setReplace(QMXOrvaniteTable* engine, float r, float g, float b);

/* Flat background colour of view 1; default 0, 0, 0. */
ORVANITE_API void orvanite_setBackground(QMXOrvaniteTable* engine, float r, float g, float b);

/* Balance of a tonal band (0 shadow, 1 midtone, 2 highlight), clamped to 0..1; default 0.5:
 * how the key weighs the two channels other than the screen's strongest. Other bands: no effect. */
ORVANITE_API void orvanite_setBalance(QMXOrvaniteTable* engine, int band, float value);

/* Gain of a tonal band, clamped to -1..1; default 0: added to the weight of the screen's
 * strongest channel. Other bands: no effect. */
ORVANITE_API void orvanite_setGain(QMXOrvaniteTable* engine, int band, float value);

/* Midpoint: the value at which the midtone band lies, per channel; default 0.5. Values that are
 * not above 0 become 0. */
ORVANITE_API void orvanite_setMp(QMXOrvaniteTable* engine, float r, float g, float b);

/* Screen range: how far the matte's ends are clipped; values that are not above 0 become 0, the
 * default. */
ORVANITE_API void orvanite_setScreenRange(QMXOrvaniteTable* engine, float value);

/* Grading of a set (0 foreground, 1 background; others are forced into that range), applied to
 * linear light, channel by channel: exposure * value^(1 / gamma) + offset. This sets the factor;
 * default 1. */
ORVANITE_API void orvanite_setExposure(QMXOrvaniteTable* engine, float r, float g, float b,
                                       int set);
/* The exponent's inverse in that formula: above 1 brightens; default 1. */
ORVANITE_API void orvanite_setGamma(QMXOrvaniteTable* engine, float r, float g, float b, int set);
/* What that formula adds, in linear light; default 0. */
ORVANITE_API void orvanite_setOffset(QMXOrvaniteTable* engine, float r, float g, float b, int set);

/* Saturation of a grading set, clamped to 0..3; default 1. */
ORVANITE_API void orvanite_setSaturation(QMXOrvaniteTable* engine, float value, int set);

/* View: 0 composite over the background picture (default), 1 composite over the flat colour,
 * 2 matte, 4 unpremultiplied foreground with its matte, 5 status. Others act like 4. */
ORVANITE_API void orvanite_setView(QMXOrvaniteTable* engine, int code);

/* The stored view code. */
ORVANITE_API int orvanite_getView(QMXOrvaniteTable* engine);

/* Code value that stands for 1.0 in the plate: 255 (default), 65535, or 1 for float pictures. When
 * any of the six is 1, the float tables are built. Values below 1 are refused: nothing changes.
 * A change of any but dstMax discards the tables. Codes above the maximum read as the maximum.
 * Tables for a maximum beyond 2^24 cannot be built. */
ORVANITE_API void orvanite_setFgMax(QMXOrvaniteTable* engine, int max);
/* The same of the background picture. */
ORVANITE_API void orvanite_setBgMax(QMXOrvaniteTable* engine, int max);
/* The same of the garbage matte. */
ORVANITE_API void orvanite_setGMatteMax(QMXOrvaniteTable* engine, int max);
/* The same of the hold-out matte. */
ORVANITE_API void orvanite_setHMatteMax(QMXOrvaniteTable* engine, int max);
/* The same of the destination. A change keeps the tables: only what depends on it is built again.
 */
ORVANITE_API void orvanite_setDstMax(QMXOrvaniteTable* engine, int max);
/* The same of the clean plate. */
ORVANITE_API void orvanite_setRefMax(QMXOrvaniteTable* engine, int max);

/* Whether the hold-out matte is used when a tile has one: 0 no, others yes; default 1. */
ORVANITE_API void orvanite_useHold(QMXOrvaniteTable* engine, int on);
/* Whether the garbage matte is used when a tile has one: 0 no, others yes; default 1. */
ORVANITE_API void orvanite_useGarbage(QMXOrvaniteTable* engine, int on);
/* Whether each pixel has the clean plate's colour for a screen colour: 0 no, others yes; default 1.
 * A tile without a clean plate is then refused, and the float build fails. */
ORVANITE_API void orvanite_useRef(QMXOrvaniteTable* engine, int on);

/* Builds the tables that are out of date.
 * 0 built, or nothing to do; 1 the neutral colour has a zero channel; 2 the screen colour is
 * unusable (a line was written to the standard error stream); 3 out of memory, or a float build
 * with the clean plate in use. After 1, 2 or 3 rendering does nothing until a build succeeds. */
ORVANITE_API int orvanite_makeLuts(QMXOrvaniteTable* engine);

/* Keys a tile of width x height pixels at depth 1 (8-bit), 2 (16-bit) or 4 (float).
 * 0 rendered, or nothing done because the tables are out of date; 1 refused, nothing written:
 * an incomplete destination, a missing input, another depth, a depth whose kind of tables the last
 * build did not build, float pixels while the clean plate is in use, or an ORVANITE_TARGET that
 * cannot be had. */
ORVANITE_API int orvanite_render(QMXOrvaniteTable* engine, int depth, int width, int height,
                                 Otile* tile);

/* Has fn(data) called whenever a parameter changes or tables are discarded, on the calling
 * thread; null switches it off. fn may build tables; what it builds while tables are discarded is
 * discarded with them. */
ORVANITE_API void orvanite_installCallback(QMXOrvaniteTable* engine, void (*fn)(void*), void* data);

#ifdef __cplusplus
}
#endif

#endif
