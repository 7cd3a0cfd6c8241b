/* SPDX-License-Identifier: BSD-3-Clause
 *
 * One frame through orvanite/keyer.h, for scripts/host-table: raw RGBA bytes in and out.
 *   key_once WIDTH HEIGHT IN.raw OUT.raw [--auto] [NAME=VALUE...] */
#include <orvanite/keyer.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int count, char** words) {
  OrvaniteKeyer* keyer = orvanite_keyerNew();
  OrvaniteFrame frame;
  unsigned char* pixels;
  size_t bytes;
  FILE* file;
  int i, automatic = 0, wrong = 0;
  if (count < 5 || !keyer) return 2;
  memset(&frame, 0, sizeof frame);
  frame.plate.width = atoi(words[1]);
  frame.plate.height = atoi(words[2]);
  frame.plate.depth = ORVANITE_8BIT;
  frame.plate.pixelStride = 4;
  frame.plate.rowStride = (ptrdiff_t)4 * frame.plate.width;
  bytes = (size_t)frame.plate.rowStride * (size_t)frame.plate.height;
  pixels = malloc(bytes);
  for (i = 0; i < 4; ++i) frame.plate.channels[i] = pixels + i;
  frame.result = frame.plate;
  file = fopen(words[3], "rb");
  wrong |= !file || fread(pixels, 1, bytes, file) != bytes;
  if (file) fclose(file);
  for (i = 5; i < count; ++i) {
    char* is = strchr(words[i], '=');
    automatic |= strcmp(words[i], "--auto") == 0;
    if (!is) continue;
    *is = '\0';
    wrong |= orvanite_keyerSetText(keyer, words[i], is + 1) != ORVANITE_OK;
  }
  if (automatic)
    wrong |= orvanite_keyerFind(keyer, &frame.plate, ORVANITE_CLEAN_PLATE_IF_USEFUL) != ORVANITE_OK;
  wrong |= orvanite_keyerRender(keyer, &frame, 0) != ORVANITE_OK;
  if (wrong) fprintf(stderr, "key_once: %s\n", orvanite_keyerError(keyer));
  file = fopen(words[4], "wb");
  wrong |= !file || fwrite(pixels, 1, bytes, file) != bytes;
  if (file) wrong |= fclose(file) != 0;
  free(pixels);
  orvanite_keyerDelete(keyer);
  return wrong;
}
