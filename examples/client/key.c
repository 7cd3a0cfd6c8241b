/* SPDX-License-Identifier: BSD-3-Clause
 *
 * The smallest client, in C99: keys an 8-bit picture over a flat grey.
 *
 *   key PLATE.ppm OUT.ppm      binary PPM (P6) with 8-bit samples
 */
#include <orvanite.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct Picture {
  int width, height;
  unsigned char* rgba; /* four samples a pixel */
} Picture;

static int fail(const char* path, const char* what) {
  fprintf(stderr, "key: %s: %s\n", path, what);
  return 1;
}

/* Reads a P6 file into RGBA. Returns 0, or 1 after a message. */
static int readPicture(const char* path, Picture* picture) {
  FILE* file = fopen(path, "rb");
  int max = 0, result = 1;
  if (file == NULL) return fail(path, "cannot be opened");
  if (fscanf(file, "P6 %5d %5d %5d", &picture->width, &picture->height, &max) != 3 || max != 255 ||
      picture->width < 1 || picture->height < 1 || fgetc(file) == EOF) {
    fclose(file);
    return fail(path, "expected a binary PPM picture with 8-bit samples");
  }
  const size_t pixels = (size_t)picture->width * (size_t)picture->height;
  picture->rgba = malloc(pixels * 4);
  if (picture->rgba == NULL) {
    fail(path, "does not fit into memory");
  } else {
    size_t done = 0;
    while (done < pixels && fread(picture->rgba + 4 * done, 1, 3, file) == 3) ++done;
    result = done == pixels ? 0 : fail(path, "ends before its last pixel");
  }
  fclose(file);
  return result;
}

static int writePicture(const char* path, const Picture* picture) {
  FILE* file = fopen(path, "wb");
  const size_t pixels = (size_t)picture->width * (size_t)picture->height;
  size_t i;
  if (file == NULL) return fail(path, "cannot be created");
  fprintf(file, "P6\n%d %d\n255\n", picture->width, picture->height);
  for (i = 0; i < pixels; ++i) fwrite(picture->rgba + 4 * i, 1, 3, file);
  return ferror(file) | fclose(file) ? fail(path, "could not be written") : 0;
}

int main(int count, char** arguments) {
  Picture picture = {0, 0, NULL};
  int result = 1;
  if (count != 3) {
    fprintf(stderr, "usage: key PLATE.ppm OUT.ppm\n");
    return 2;
  }
  QMXOrvaniteTable* engine = orvanite_new();
  if (engine == NULL) return fail("engine", "out of memory");
  if (readPicture(arguments[1], &picture) == 0) {
    orvanite_setColourspace(engine, 2);           /* video */
    orvanite_setScreen(engine, 0.2f, 0.8f, 0.2f); /* a green screen */
    orvanite_setBackground(engine, 0.5f, 0.5f, 0.5f);
    orvanite_setView(engine, 1); /* over the flat colour */
    orvanite_useRef(engine, 0);  /* there is no clean plate */
    if (orvanite_makeLuts(engine) != 0) {
      fail("engine", "cannot key with these parameters");
    } else {
      /* In place: the destination is the plate's own buffer. */
      Otile tile;
      const OtileImage image = {
          picture.rgba, picture.rgba + 1, picture.rgba + 2, picture.rgba + 3, 4, 4 * picture.width};
      memset(&tile, 0, sizeof tile); /* every other image is absent */
      tile.fg = image;
      tile.dst = image;
      if (orvanite_render(engine, 1, picture.width, picture.height, &tile) != 0) {
        fail(arguments[1], "was refused");
      } else {
        result = writePicture(arguments[2], &picture);
      }
    }
  }
  free(picture.rgba);
  orvanite_delete(engine);
  return result;
}
