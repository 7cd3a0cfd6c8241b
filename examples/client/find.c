/* SPDX-License-Identifier: BSD-3-Clause
 *
 * A client of the keyer's interface, in C99: finds the screen of an 8-bit plate by itself, keys it
 * over a flat grey and says what it set.
 *
 *   find PLATE.ppm OUT.ppm      binary PPM (P6) with 8-bit samples
 */
#include <orvanite/keyer.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int fail(const char* about, const char* what) {
  fprintf(stderr, "find: %s%s%s\n", about, *about ? ": " : "", what);
  return 1;
}

/* Reads a P6 file; the caller frees the samples. Returns 0, or 1 after a message. */
static int readPicture(const char* path, int* width, int* height, unsigned char** rgb) {
  FILE* file = fopen(path, "rb");
  int max = 0, result = 1;
  if (file == NULL) return fail(path, "cannot be opened");
  if (fscanf(file, "P6 %5d %5d %5d", width, height, &max) != 3 || max != 255 || *width < 1 ||
      *height < 1 || fgetc(file) == EOF) {
    fail(path, "expected a binary PPM picture with 8-bit samples");
  } else {
    const size_t bytes = (size_t)*width * (size_t)*height * 3;
    *rgb = malloc(bytes);
    if (*rgb == NULL) {
      fail(path, "does not fit into memory");
    } else {
      result = fread(*rgb, 1, bytes, file) == bytes ? 0 : fail(path, "ends before its last pixel");
    }
  }
  fclose(file);
  return result;
}

int main(int count, char** arguments) {
  OrvaniteFrame frame;
  OrvaniteKeyer* keyer;
  unsigned char* rgb = NULL;
  int width, height, c, result = 1;
  if (count != 3) {
    fprintf(stderr, "usage: find PLATE.ppm OUT.ppm\n");
    return 2;
  }
  keyer = orvanite_keyerNew();
  if (keyer == NULL) return fail("keyer", "out of memory");
  if (readPicture(arguments[1], &width, &height, &rgb) == 0) {
    memset(&frame, 0, sizeof frame); /* every picture that is not named is absent */
    frame.plate.width = width;
    frame.plate.height = height;
    frame.plate.depth = ORVANITE_8BIT;
    for (c = 0; c < 3; ++c) frame.plate.channels[c] = rgb + c;
    frame.plate.pixelStride = 3;
    frame.plate.rowStride = (ptrdiff_t)3 * width;
    frame.result = frame.plate; /* in place */
    if (orvanite_keyerSetText(keyer, "colourspace", "video") != ORVANITE_OK ||
        orvanite_keyerSetText(keyer, "output", "compOnColour") != ORVANITE_OK ||
        orvanite_keyerSetText(keyer, "backgroundColour", "0.5") != ORVANITE_OK ||
        orvanite_keyerFind(keyer, &frame.plate, ORVANITE_CLEAN_PLATE_IF_USEFUL) != ORVANITE_OK ||
        orvanite_keyerRender(keyer, &frame, 0) != ORVANITE_OK) {
      fail("", orvanite_keyerError(keyer));
    } else {
      FILE* file = fopen(arguments[2], "wb");
      const size_t bytes = (size_t)width * (size_t)height * 3;
      printf("found: %s; the screen is %s\n", orvanite_keyerFound(keyer),
             orvanite_keyerText(keyer, "screen"));
      if (file == NULL) {
        fail(arguments[2], "cannot be created");
      } else {
        fprintf(file, "P6\n%d %d\n255\n", width, height);
        result = fwrite(rgb, 1, bytes, file) == bytes ? 0 : 1;
        if (fclose(file) != 0 || result != 0) result = fail(arguments[2], "could not be written");
      }
    }
  }
  free(rgb);
  orvanite_keyerDelete(keyer);
  return result;
}
