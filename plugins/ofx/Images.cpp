// SPDX-License-Identifier: BSD-3-Clause
//
// Fetching and checking images; see Images.h.
#include "plugins/ofx/Images.h"

#include <cstdlib>

#include "base/Error.h"

namespace orvanite::ofxPlugin {

std::optional<Sample> sampleOf(std::string_view name) {
  if (name == ofx::depth::byte) return Sample::byte;
  if (name == ofx::depth::word) return Sample::word;
  if (name == ofx::depth::half) return Sample::half;
  if (name == ofx::depth::real) return Sample::real;
  return {};
}

Image::Image(ofx::Clip clip, ofx::Time time, const ofx::RectD* region) {
  if (!clip || host().effect->clipGetImage(clip, time, region, &handle_) != ofx::ok) {
    handle_ = nullptr;
  }
}

Image::~Image() {
  if (handle_) host().effect->clipReleaseImage(handle_);
}

std::optional<Sample> Image::sample() const {
  return sampleOf(Properties(handle_).text(ofx::prop::pixelDepth));
}

bool Image::singleField() const {
  const std::string field = Properties(handle_).text(ofx::prop::imageField);
  return field == ofx::field::lower || field == ofx::field::upper;
}

std::string Image::identity() const { return Properties(handle_).text(ofx::prop::identity); }

ofx::PointD Image::pixelsPerUnit() const {
  const Properties properties(handle_);
  const double aspect = properties.real(ofx::prop::pixelAspect, 1);
  const double across = properties.real(ofx::prop::renderScale, 1, 0);
  const double up = properties.real(ofx::prop::renderScale, 1, 1);
  return {(across > 0 ? across : 1) / (aspect > 0 ? aspect : 1), up > 0 ? up : 1};
}

Picture Image::picture(const char* clip) const {
  const Properties properties(handle_);
  const auto fail = [clip](const std::string& what) {
    return Error(Fault::failure, clip, "the host's image has " + what);
  };
  Picture picture;
  const std::optional<Sample> sample = this->sample();
  if (!sample) throw fail("a depth that is not keyed, expected 8-bit, 16-bit, half or float");
  picture.sample = *sample;
  picture.data = static_cast<std::byte*>(properties.pointer(ofx::prop::data));
  const auto bounds = properties.rectI(ofx::prop::bounds);
  if (!bounds) throw fail("no bounds");
  picture.bounds = *bounds;
  picture.rowBytes = properties.integer(ofx::prop::rowBytes, 0);
  const std::string channels = properties.text(ofx::prop::pixelComponents);
  picture.channels = channels == ofx::components::rgba    ? 4
                     : channels == ofx::components::rgb   ? 3
                     : channels == ofx::components::alpha ? 1
                                                          : 0;
  if (picture.channels == 0)
    throw fail("components '" + channels + "', expected RGBA, RGB or alpha");
  if (isEmpty(picture.bounds)) {
    picture.bounds = {};
    return picture;
  }
  if (!picture.data) throw fail("no pixels");
  const std::ptrdiff_t row =
      (std::ptrdiff_t{picture.bounds.x2} - picture.bounds.x1) * picture.channels * bytesOf(*sample);
  const bool oneRow = picture.bounds.y2 - picture.bounds.y1 == 1;
  if (!oneRow && std::abs(picture.rowBytes) < row) throw fail("fewer bytes a row than pixels need");
  return picture;
}

}  // namespace orvanite::ofxPlugin
