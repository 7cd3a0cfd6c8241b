// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/Examples.h"

namespace orvanite::cli {
namespace {

constexpr Example examples[] = {
    {"A picture's subject, to lay over anything", "orvanite key photo.jpg -o cutout.png"},
    {"A movie over a background", "orvanite key clip.mp4 --bg beach.jpg -o comp.mp4"},
    {"A cut-out for an editor, ProRes 4444 with alpha", "orvanite key clip.mov -o cutout.mov"},
    {"A shot beside a clean plate",
     "orvanite key plate.####.tif --reference clean.tif -o key.####.exr"},
    {"One task of a farm",
     "orvanite key plate.####.tif --frames 3-4 --skip-existing -o task.####.exr"},
    {"A look to keep; --preset look.json brings it back",
     "orvanite key photo.jpg --auto --save-preset look.json -o comp.jpg"},
};

}  // namespace

std::span<const Example> keyExamples() { return examples; }

}  // namespace orvanite::cli
