// SPDX-License-Identifier: BSD-3-Clause
//
// The solid things of the scene: bust, scarf, plinths, fruit, jar. Distance fields seen along z.
// Builds on Light.h; knows nothing of pictures or pixels.
// Places are in scene units: y upwards, the frame is 2 high, z towards the camera.
#pragma once

#include "examples/plate/Light.h"
#include "examples/plate/Scene.h"

namespace orvanite::plate {

/// Where the head is, so that hair and lashes can be rooted on it.
/// Head units: the head is 1 high, faces +x, z is its left side, which the camera sees.
struct Head {
  V3 place;
  float scale = 1;
  float cosine = 1, sine = 0;  ///< of its turn towards the camera

  V3 toScene(V3 p) const {
    return place + V3{p.x * cosine - p.z * sine, p.y, p.x * sine + p.z * cosine} * scale;
  }
  V3 toHead(V3 p) const {
    const V3 q = (p - place) * (1 / scale);
    return {q.x * cosine + q.z * sine, q.y, q.z * cosine - q.x * sine};
  }
};
inline constexpr V3 skullCentre = {-0.06f, 0.13f, 0};
inline constexpr V3 skullRadii = {0.455f, 0.385f, 0.36f};

/// How far in front of the hairline a head-unit place lies; negative under the hair.
float beforeHairline(V3 p);

enum class Thing { nothing, skin, cloth, scarf, plinth, fruit, stalk, jar, bead };

class Sculpture {
 public:
  Sculpture(const Options& options, V3 screenLight);

  const Head& head() const { return bust; }

  struct Hit {
    Thing thing = Thing::nothing;
    float depth = -10;  ///< z
    Layer layer;        ///< matte 1 where something was hit
  };
  /// What the camera sees through the place (x, y). Safe to call from any thread.
  Hit look(float x, float y) const;

 private:
  static constexpr int things = 10;
  struct Field {
    float distance = 1e9f;
    int which = -1;
  };
  float distanceTo(int which, V3 p) const;
  Field nearest(V3 p, unsigned among) const;
  float shadow(V3 p, V3 towards, unsigned among) const;
  Layer shade(int which, V3 p, unsigned among) const;

  Head bust;
  V3 screenTint;
  float spillStrength = 1;
  bool blue = false;
  struct Bound {
    V3 centre;
    float radius;
  };
  Bound bounds[things];
};

}  // namespace orvanite::plate
