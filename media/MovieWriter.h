// SPDX-License-Identifier: BSD-3-Clause
//
// Writes a movie, whole or not at all: it appears under its name when it is finished. Alpha is
// written where the codec holds it, colours are never multiplied by it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "media/Picture.h"
#include "media/Source.h"

struct AVFrame;

namespace orvanite::media {

/// How strongly a movie is packed, where its codec loses something.
struct MovieStrength {
  std::optional<double> quality;  // in the codec's own terms; none: its usual one
  std::int64_t bitRate = 0;       // bits a second instead; 0: by quality
};

struct MovieOptions {
  std::string codec;  // empty: the usual one for the ending
  MovieStrength strength;
  Window frame;  // of the pictures that is shown
  Samples samples = Samples::uint8;
  ShotFacts facts;     // of the shot; its frame rate must be known
  int firstFrame = 0;  // of those written, from the shot's first one: 0 is that
  int frameCount = 1;
  bool sound = false;       // take the shot's sound along; frames must follow each other
  bool soundAsked = false;  // by name: what cannot be taken along is refused
  bool toTheEnd = false;    // the last frame written is the shot's last
  int threads = 1;
  bool alpha = true;  // whether alpha says something; it is opaque otherwise
};

/// Whether movies of this name and codec (empty: the usual one) hold alpha. Throws Error (wrongUse)
/// for names that are not known.
bool movieHoldsAlpha(const std::string& path, const std::string& codec);

/// Throws Error: wrongUse for a codec or an ending that is not known, or when the file is one of
/// the inputs; failure when its folder is missing.
void checkMovieOutput(const std::string& path, const std::string& codec,
                      std::span<const std::string> inputs);

class MovieWriter {
 public:
  /// What does it (MovieModule.h).
  class Output {
   public:
    virtual ~Output() = default;
    virtual const std::vector<std::string>& notices() const = 0;
    virtual std::shared_ptr<AVFrame> prepare(const Picture& picture) = 0;
    /// Null after the last.
    virtual void write(AVFrame* frame) = 0;
    virtual void finish() = 0;
  };

  /// Throws Error: wrongUse for what the codec or the file cannot hold, failure when nothing can be
  /// written there.
  MovieWriter(const std::string& path, const MovieOptions& options);
  ~MovieWriter();

  /// What is lost on the way, for a person to see; one line each.
  const std::vector<std::string>& notices() const;

  /// A picture in the codec's pixel format. Any number of threads may call it at once.
  std::shared_ptr<AVFrame> prepare(const Picture& picture);
  /// Encodes the next frame. One thread at a time.
  void write(std::shared_ptr<AVFrame> frame);
  /// After the last frame: puts the movie in place. Without it nothing stays behind.
  /// All throw Error (failure).
  void finish();

 private:
  std::unique_ptr<Output> output_;
};

/// Where a file's clock stands at its first picture, or its first sound where it has no pictures:
/// in seconds. Throws Error: noSuchFile, or failure when it cannot be read.
double soundStart(const std::string& path);

/// "20" or "17.5", none for nothing; "800k", "12M" bits a second, 0 for nothing. Throw Error
/// (wrongUse) about `subject`.
std::optional<double> parseQuality(const std::string& text, const std::string& subject);
std::int64_t parseBitRate(const std::string& text, const std::string& subject);

/// A frame rate as people write it: 24, 23.976, 24000/1001. Throws Error (wrongUse) about
/// `subject`.
Ratio parseFrameRate(const std::string& text, const std::string& subject);

}  // namespace orvanite::media
