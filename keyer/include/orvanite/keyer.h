/* SPDX-License-Identifier: BSD-3-Clause
 *
 * Orvanite's keyer for whole pictures, as a client sees it: parameters by name, presets, finding a
 * screen and a first key, keying frames of any layout on threads. Installed as orvanite/keyer.h;
 * compiles alone, as C99 and as C++. The library is liborvanite-keyer.
 * Whoever wants the engine alone, tiles and tables, includes orvanite.h instead.
 *
 * Use:
 *   OrvaniteKeyer* keyer = orvanite_keyerNew();
 *   orvanite_keyerSetText(keyer, "colourspace", "video");
 *   orvanite_keyerFind(keyer, &frame.plate, ORVANITE_CLEAN_PLATE_IF_USEFUL);    or set "screen"
 *   orvanite_keyerRender(keyer, &frame, 0);                                    any number of times
 *   orvanite_keyerDelete(keyer);
 *
 * Results: 0 (ORVANITE_OK), or why not; orvanite_keyerError then has the words: one line that names
 * the parameter or picture, what was found and what was expected. A call that fails changes nothing
 * but, for render, pixels of the result.
 *
 * Threads: a keyer is used by one thread at a time; different keyers at once by any number. What
 * orvanite_keyerParameter tells never changes.
 *
 * Colours and parameters are floats; 1.0 is white, in the encoding that "colourspace" names. No
 * files are read or written and nothing is printed.
 */
#ifndef ORVANITE_KEYER_H
#define ORVANITE_KEYER_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Marks what the shared library exports. */
#if defined(_WIN32)
#define ORVANITE_KEYER_API
#else
#define ORVANITE_KEYER_API __attribute__((visibility("default")))
#endif

/* What a call says. */
typedef enum OrvaniteResult {
  ORVANITE_OK = 0,
  ORVANITE_WRONG_USE = 1, /* the caller asked for something that cannot be */
  ORVANITE_FAILURE = 2,   /* the pictures or the machine got in the way; no screen, for instance */
  ORVANITE_NO_MEMORY = 3
} OrvaniteResult;

/* A keyer: a value for every parameter, what was found, an engine. */
typedef struct OrvaniteKeyer OrvaniteKeyer;

/* The library's version, such as "1.4.0". */
ORVANITE_KEYER_API const char* orvanite_keyerVersion(void);

/* Creates a keyer with default parameters. Null when memory runs out. The caller owns it. */
ORVANITE_KEYER_API OrvaniteKeyer* orvanite_keyerNew(void);

/* Deletes a keyer. Null is allowed. */
ORVANITE_KEYER_API void orvanite_keyerDelete(OrvaniteKeyer* keyer);

/* Why the last call on this keyer that failed did so; "" before the first. Lasts until the next
 * call on the keyer. */
ORVANITE_KEYER_API const char* orvanite_keyerError(const OrvaniteKeyer* keyer);

/* ---- Parameters */

/* What a parameter's values are. */
typedef enum OrvaniteType {
  ORVANITE_NUMBER = 0, /* one number */
  ORVANITE_TRIPLE = 1, /* one number a channel, usually moved together */
  ORVANITE_COLOUR = 2, /* red, green, blue: a colour to pick */
  ORVANITE_CHOICE = 3, /* one of a few texts; as a number, the index of one */
  ORVANITE_TOGGLE = 4, /* "on" or "off"; as a number, 1 or 0 */
  ORVANITE_CHANNEL = 5 /* of a matte: "R", "G", "B" or "A" */
} OrvaniteType;

/* A parameter as panels show it. Texts are UTF-8 and last as long as the library is loaded. */
typedef struct OrvaniteParameter {
  const char* name;     /* what the functions below call it, such as "screenRange" */
  const char* label;    /* what a panel calls it, such as "Screen range" */
  const char* group;    /* the heading that it stands under */
  const char* help;     /* a sentence or two */
  const char* unit;     /* "" where values have none */
  OrvaniteType type;    /* what its values are */
  int values;           /* how many numbers: 3, 1, or 0 for a channel */
  float softLow;        /* what a slider spans, from */
  float softHigh;       /* and to */
  float low;            /* what is accepted, from */
  float high;           /* and to */
  float defaults[3];    /* a choice: the index of its text; a single value: the first */
  int choices;          /* how many texts an ORVANITE_CHOICE has */
  int followsTheScreen; /* 1: until it is set, its default goes with the hue of "screen" */
} OrvaniteParameter;

/* One text of a choice. */
typedef struct OrvaniteChoice {
  const char* text;  /* what presets and orvanite_keyerSetText call it */
  const char* label; /* what a menu shows */
  const char* help;  /* a sentence */
} OrvaniteChoice;

/* How many parameters there are. They are in the order in which a panel shows them. */
ORVANITE_KEYER_API int orvanite_keyerParameters(void);

/* Describes the parameter of an index. Wrong use: no such index, or null. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerParameter(int index, OrvaniteParameter* parameter);

/* Describes a text of the choice of an index. Wrong use: none such. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerChoice(int parameter, int index,
                                                       OrvaniteChoice* choice);

/* Sets a parameter from text: a number, three as "R,G,B" (one stands for all), a choice's text,
 * "on" or "off", a channel's letter. Numbers are kept to four decimals. Wrong use: no such
 * parameter (a mistyped one is guessed at), or a value that it does not take. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerSetText(OrvaniteKeyer* keyer, const char* name,
                                                        const char* text);

/* The same from numbers: count is 1 (for all channels) or 3. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerSetNumbers(OrvaniteKeyer* keyer, const char* name,
                                                           const double* values, int count);

/* The value in force as text that orvanite_keyerSetText takes. Null, and an error, for a parameter
 * that is none. Lasts until the next call on the keyer. */
ORVANITE_KEYER_API const char* orvanite_keyerText(OrvaniteKeyer* keyer, const char* name);

/* The value in force as numbers; all three are written. Wrong use: none such, or a channel. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerNumbers(OrvaniteKeyer* keyer, const char* name,
                                                        double values[3]);

/* 1 when the parameter was given a value since it was last reset; 0 otherwise. */
ORVANITE_KEYER_API int orvanite_keyerGiven(const OrvaniteKeyer* keyer, const char* name);

/* Back to the default; null for all parameters, and what orvanite_keyerFind found goes as well. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerReset(OrvaniteKeyer* keyer, const char* name);

/* All values in force as a preset's text, as every other front end reads them. Null, and an error,
 * when memory runs out. Lasts until the next call on the keyer. */
ORVANITE_KEYER_API const char* orvanite_keyerPreset(OrvaniteKeyer* keyer);

/* Takes all values from a preset's text; what orvanite_keyerFind found is forgotten. Failure: text
 * that is no preset, or one with a parameter or a value that there is not. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerUsePreset(OrvaniteKeyer* keyer, const char* text);

/* ---- Pictures */

/* What a picture's samples are. */
typedef enum OrvaniteDepth {
  ORVANITE_8BIT = 1,  /* unsigned char, 255 is 1.0 */
  ORVANITE_16BIT = 2, /* unsigned short, 65535 is 1.0 */
  ORVANITE_HALF = 3,  /* IEEE binary16 */
  ORVANITE_FLOAT = 4  /* float */
} OrvaniteDepth;

/* Where a picture lies; it stays the caller's. Planes and interleaved samples, RGB and RGBA, rows
 * up or down: all of it is said by pointers and strides. Interleaved RGBA without gaps, and planes
 * of integers, are keyed where they lie; anything else is copied in rows. */
typedef struct OrvaniteImage {
  int width;             /* pixels, at least 1 */
  int height;            /* rows, at least 1 */
  OrvaniteDepth depth;   /* of all channels */
  void* channels[4];     /* red, green, blue, alpha of the first pixel; null: absent */
  ptrdiff_t pixelStride; /* bytes from a pixel to the next, of any sign */
  ptrdiff_t rowStride;   /* bytes from a row to the next, of any sign */
} OrvaniteImage;

/* The pictures of a frame; a picture without channels is absent. All have the plate's size and may
 * have any depth. Only `result` is written, and only the channels that it has; it may be the plate
 * itself. Without a background "composite" is over black.
 * Of a matte, one channel is the matte. Of more it is the parameter's channel where one was set;
 * else alpha, or luminance where there is no alpha or it is opaque all over. Beside a clean plate,
 * float and half plates are keyed in 16 bits: what lies outside 0..1 is clipped. */
typedef struct OrvaniteFrame {
  OrvaniteImage plate;      /* needed; red, green, blue */
  OrvaniteImage background; /* for the output "composite"; an absent alpha is opaque */
  OrvaniteImage holdOut;    /* a matte that keeps: see below */
  OrvaniteImage garbage;    /* a matte that cuts: see below */
  OrvaniteImage cleanPlate; /* the screen without the subject: see below */
  OrvaniteImage result;     /* needed; any channels */
} OrvaniteFrame;

/* What is known of the screen in a plate. */
typedef struct OrvaniteScreen {
  int primary;     /* its strongest channel: 0 red, 1 green, 2 blue */
  float colour[3]; /* the median of its pixels, in the plate's encoding */
  float coverage;  /* its share of the frame, 0..1 */
  float evenness;  /* its darkest tenth over its brightest, 0..1 */
} OrvaniteScreen;

/* Looks for a screen of any one colour; changes no parameter. Failure: the plate shows none. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerFindScreen(OrvaniteKeyer* keyer,
                                                           const OrvaniteImage* plate,
                                                           OrvaniteScreen* screen);

/* What orvanite_keyerFind may rest the key on. */
typedef enum OrvaniteCleanPlate {
  ORVANITE_CLEAN_PLATE_NEVER = 0, /* one colour for the whole screen */
  /* Estimates: a clean plate, a matte of what surely is screen and one of what surely is subject,
   * made of the plate itself. This is what the command's --auto does, and gives its bytes. */
  ORVANITE_CLEAN_PLATE_IF_USEFUL = 1,
  ORVANITE_CLEAN_PLATE_GIVEN = 2 /* the client has one and hands it over with each frame */
} OrvaniteCleanPlate;

/* Finds the screen and sets what makes a key by it. Set "colourspace" first; parameters that were
 * given stay as they are, those that an earlier call found are found anew. Estimates are kept, and
 * carried to every frame that is rendered without a clean plate for as long as "estimate" says so.
 * Failure: the plate shows no screen. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerFind(OrvaniteKeyer* keyer,
                                                     const OrvaniteImage* plate,
                                                     OrvaniteCleanPlate cleanPlate);

/* Takes in what another frame of the shot shows of the screen: the estimates of all frames get
 * better where the camera stands still. `steady`, if not null, is 1 for as long as it does; once it
 * does not, each frame has a clean plate of its own. Wrong use: no key beside estimates was found.
 */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerSee(OrvaniteKeyer* keyer,
                                                    const OrvaniteImage* plate, int* steady);

/* The names of the parameters that the last orvanite_keyerFind set, between blanks; "" for none. */
ORVANITE_KEYER_API const char* orvanite_keyerFound(const OrvaniteKeyer* keyer);

/* 1 when the last orvanite_keyerFind estimated a clean plate, alone or with mattes. */
ORVANITE_KEYER_API int orvanite_keyerHasCleanPlate(const OrvaniteKeyer* keyer);

/* Keys a frame. Where "estimate" is set and orvanite_keyerFind has estimated nothing, this frame is
 * estimated by itself.
 * threads  how many may work on it; 0 for as many as the process has
 * Wrong use: a missing or misfitting picture, or parameters that cannot key. */
ORVANITE_KEYER_API OrvaniteResult orvanite_keyerRender(OrvaniteKeyer* keyer,
                                                       const OrvaniteFrame* frame, int threads);

#ifdef __cplusplus
}
#endif

#endif
