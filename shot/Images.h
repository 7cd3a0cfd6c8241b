// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures of files as the keyer takes them: which of them a key needs, how they lie in a frame,
// and what is beside a plate's own pixels. The only place that knows both pictures and keys.
#pragma once

#include "keyer/Keyer.h"
#include "keyer/Screen.h"
#include "media/Picture.h"
#include "shot/Shot.h"

namespace orvanite::shot {

/// The four channels as a tile image. The picture keeps the pixels.
OtileImage imageOf(const media::Picture& picture);

/// The same from a pixel of the picture on, counted from its corner.
OtileImage imageOf(const media::Picture& picture, int x, int y);

/// The picture as one in which a screen is looked for. The picture keeps the pixels.
Plate plateOf(const media::Picture& picture);

/// Whether the view and the switches of a key need a role's picture, of those that are there.
bool uses(const Settings& settings, const Inputs& present, Role role);

/// The channel that a matte is read from: the one that was given; else alpha, or red of a picture
/// of colours without alpha. Empty for other roles.
std::string channelOf(const Shot& shot, const Settings& settings, Role role);

/// Beside a plate's own pixels, and in its clean plate, there is nothing but screen: paints its
/// colour outside of `own`, in the picture's coordinates.
void paintBeside(media::Picture& picture, const media::Window& own, const Settings& settings);

/// A frame of the engine: a region of the pictures that are there, which have one size and depth
/// beyond it; without a destination. x and y count from the pictures' corner.
Frame frameOf(const ByRole<const media::Picture*>& pictures, const media::Window& region);

/// Whether a view shows colours; a matte's and a status' pixels are in no colour space.
bool showsColours(const Settings& settings);

}  // namespace orvanite::shot
