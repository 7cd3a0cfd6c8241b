// SPDX-License-Identifier: BSD-3-Clause
//
// The pictures of a shot by their roles: which files they are, what they have in common, and a
// frame of any of them in the plate's place. Here, and nowhere else, is decided at which depth and
// in which encoding a shot is keyed, which frame of a side picture goes with one of the plate, and
// where it lies. Knows media; knows nothing of what a key is made of.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Depth.h"
#include "keyer/MaskShape.h"
#include "keyer/Settings.h"
#include "media/ColourSpaces.h"
#include "media/Source.h"
#include "shot/Background.h"

namespace orvanite::shot {

/// What a picture is for.
enum class Role { plate, background, holdOut, garbage, cleanPlate };
inline constexpr std::array roles{Role::plate, Role::background, Role::holdOut, Role::garbage,
                                  Role::cleanPlate};

/// "hold-out matte", as messages say it.
const char* nameOf(Role role);

/// Whether a picture of this role is read for one channel, not for its colours.
constexpr bool isMatte(Role role) { return role == Role::holdOut || role == Role::garbage; }

/// What drawn masks of a matte's role are for.
constexpr MaskShape::Use useOf(Role role) {
  return role == Role::holdOut ? MaskShape::Use::holdOut : MaskShape::Use::garbage;
}

/// Whether some of them are drawn for the role.
bool hasMask(const Masks& masks, Role role);

/// One of each role.
template <class Value>
class ByRole {
 public:
  Value& operator[](Role role) { return values_[static_cast<std::size_t>(role)]; }
  const Value& operator[](Role role) const { return values_[static_cast<std::size_t>(role)]; }

 private:
  std::array<Value, roles.size()> values_{};
};

/// What a shorter or shifted clip shows where it has no frame.
enum class PastEnd { hold, loop, black };

/// A file, a numbered sequence, a folder of one or a movie; an empty path is an absent picture.
struct Clip {
  std::string path;
  int offset = 0;  // its frame is the plate's frame plus this
  media::OpenOptions how = {};
};

struct ShotFiles {
  ByRole<Clip> clips;
  PastEnd pastEnd = PastEnd::hold;
  Fit backgroundFit = Fit::fill;
  std::string backgroundEncoding;  // "linear", "log" or "video"; empty: what its file says
  Masks masks;                     // joined with the mattes' files, where there are any
};

/// A frame of the plate in the colours that are keyed.
struct LookedAt {
  media::Picture picture;  // the whole frame
  media::Window own;       // the part of it that the file has pixels of
};

class Shot {
 public:
  /// Opens the files and compares their sizes: mattes and clean plates must show the plate's frame;
  /// a background is brought to it. colours  plate, clean plate and background come in its working
  /// space; mattes as they are Throws Error: as media::Source does, and wrongUse for a picture of
  /// another size.
  explicit Shot(ShotFiles files, media::ColourPath colours = {});

  const ShotFiles& files() const { return files_; }
  const media::ColourPath& colours() const { return colours_; }

  /// Whether there is a picture of the role, and whether it comes from a file.
  bool has(Role role) const { return hasFile(role) || hasMask(files_.masks, role); }
  bool hasFile(Role role) const { return sources_[role] != nullptr; }
  const media::Source& source(Role role) const { return *sources_[role]; }
  const media::Source& plate() const { return source(Role::plate); }
  /// Those beside the plate.
  Inputs inputs() const;
  /// Whether the background has the plate's size and encoding, or there is none.
  bool backgroundIsAsItIs() const { return !resizesBackground_ && !recodesBackground_; }

  /// How values are stored in results, and bytes of one in memory: the greater of the plate's and
  /// the background's; at least half between colour spaces, where codes leave 0..1.
  media::Samples samples() const { return samples_; }
  Depth depth() const { return media::depthOf(samples_); }

  /// The encoding that is keyed in, and why.
  media::Encoding encoding() const;

  /// What had to be assumed about the files, and what is done to bring them together, for a person
  /// to see.
  std::vector<std::string> notices() const;

  /// The frame of a clip that goes with a frame of the plate; none where it shows black.
  std::optional<int> frameOf(Role role, int frame) const;

  /// The file that it is in; the last or first one where there is black.
  std::string fileOf(Role role, int frame) const;

  /// Where the own pixels of a picture lie, in the plate's coordinates. Throws Error as `begin`
  /// does.
  media::Window ownPixels(Role role, int frame) const;

  /// The pixels of a keyed frame: all that the plate, the background and the mattes have. A key
  /// beside a plate's pixels shows what is behind it.
  media::Window allPixels(int frame) const;

  /// Begins to read a frame's picture, and does at once what one thread must do in order; the
  /// result does the rest, on any thread. Both throw Error as media::Source does.
  ///
  /// window   in the plate's coordinates; asked for when the pixels are read
  /// channel  of a matte
  std::function<media::Picture()> begin(Role role, int frame, std::function<media::Window()> window,
                                        const std::string& channel = {}) const;

  /// Whether one thread at a time must call `begin` for this role, best in ascending order.
  bool sequential(Role role) const { return hasFile(role) && source(role).sequential(); }

  /// One frame of the plate, to look for a screen in: the one asked for, else the first, whatever
  /// part of a shot is keyed, so that all tasks of a farm see the same. Of a still with a number in
  /// its name other frames are found beside it.
  LookedAt toLookAt(std::optional<int> frame = std::nullopt) const;

 private:
  media::Window inPlate(Role role, media::Window window) const;
  const media::ColourSpaces::Conversion* conversion(Role role) const;
  std::function<media::Picture()> beginFile(Role role, int frame,
                                            std::function<media::Window()> window,
                                            const std::string& channel) const;
  std::function<media::Picture()> beginBackground(int frame,
                                                  std::function<media::Window()> window) const;

  ShotFiles files_;
  media::ColourPath colours_;
  ByRole<std::unique_ptr<media::Source>> sources_;  // null where there is none
  media::Samples samples_ = media::Samples::uint8;
  std::string backgroundEncoding_;
  bool resizesBackground_ = false;  // or moves it
  bool recodesBackground_ = false;
  struct Still;  // a background that is the same at every frame, made once
  std::shared_ptr<Still> still_;
};

/// The frames to key: those asked for ("1-24"; empty: all), less what lies past the shot's ends. A
/// still has none unless they are asked for. Throws Error: wrongUse about `subject`, missingFrames
/// when the shot has none of them.
std::vector<int> framesOf(const media::Source& plate, const std::string& asked,
                          const std::string& subject);

}  // namespace orvanite::shot
