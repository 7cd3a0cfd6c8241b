// SPDX-License-Identifier: BSD-3-Clause
//
// A background of any size and encoding, brought over a frame a row at a time: resampled in light,
// and stored in the frame's encoding. The same bits wherever it runs, so that the page without a
// server has those of the command.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "keyer/Screen.h"

namespace orvanite {

/// How a picture of another shape lies in a frame.
enum class Fit {
  fill,     // fills the frame, its shape kept, centred: what reaches beyond is cut
  fit,      // lies in the frame whole, its shape kept, centred; black beside it
  stretch,  // is pulled to the frame's shape
  none      // keeps its pixels, centred
};

/// Where a picture of width x height lies in a frame whose corner is 0, 0. aspect  how wide its
/// pixels are beside those of the frame, 1 for the same.
Box placeOf(int width, int height, double aspect, int frameWidth, int frameHeight, Fit fit);

/// Light of an encoding's values ("linear", "log" or "video"). Log is the keyer's own; video is
/// taken as sRGB (IEC 61966-2-1), which pictures to put behind something are made for.
float toLight(float value, const std::string& encoding);
/// And back.
float fromLight(float light, const std::string& encoding);

/// Brings one picture over frames, one row after the other.
class Fitter {
 public:
  /// Hands over a row of the picture: as many RGBA floats as it is wide.
  using Rows = std::function<void(int row, float* to)>;

  /// width, height  of the picture
  /// place          where it lies in the frame, by placeOf
  /// frameWidth, frameHeight  of the frame
  /// from, to       encodings of the picture and of the result; nothing is decoded where both are
  ///                the same and no pixel is resampled
  Fitter(int width, int height, const Box& place, int frameWidth, int frameHeight, std::string from,
         std::string to);

  /// Makes a row of the frame, `frameWidth` RGBA floats; black and clear where no picture is.
  /// Rows of the picture are asked for once where y rises from call to call.
  void row(int y, const Rows& read, float* to);

 private:
  /// Which of a picture's columns or rows make one of the frame's, and how much each counts.
  struct Axis {
    // Of what is `to` long, those that a frame of that length shows from `place` on.
    Axis(int from, int to, int place, int frame, bool scaled, bool enlarges);
    int start;                // the first of the frame's
    std::vector<int> first;   // of the picture's, for each from there on
    std::vector<int> begins;  // of its weights; one more at the end
    std::vector<float> weights;
    int most = 1;  // that make one
  };
  const float* across(int row, const Rows& read);

  int frameWidth_;
  bool scales_, decodes_, enlarges_;
  std::string from_, to_;
  Axis columns_, rows_;
  std::vector<float> line_;
  std::vector<std::vector<float>> lines_;  // rows that are as wide as the frame's part already
  std::vector<int> held_;                  // which
};

}  // namespace orvanite
