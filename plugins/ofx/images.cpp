// SPDX-License-Identifier: BSD-3-Clause
//
// Fetching and checking images; see images.h.
#include "plugins/ofx/images.h"

#include <cstdlib>

#include "keyer/Error.h"

namespace orvanite::ofxPlugin {

int depthOf(std::string_view name) {
  if (name == ofx::depth::byte) return 1;
  if (name == ofx::depth::word) return 2;
  if (name == ofx::depth::real) return 4;
  return 0;
}

Image::Image(ofx::Clip clip, ofx::Time time) {
  if (!clip || host().effect->clipGetImage(clip, time, nullptr, &handle_) != ofx::ok) {
    handle_ = nullptr;
  }
}

Image::~Image() {
  if (handle_) host().effect->clipReleaseImage(handle_);
}

int Image::depth() const { return depthOf(Properties(handle_).text(ofx::prop::pixelDepth)); }

bool Image::singleField() const {
  const std::string field = Properties(handle_).text(ofx::prop::imageField);
  return field == ofx::field::lower || field == ofx::field::upper;
}

Picture Image::picture(const char* clip) const {
  const Properties properties(handle_);
  const auto fail = [clip](const std::string& what) {
    return Error(Fault::failure, clip, "the host's image has " + what);
  };
  Picture picture;
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
      (std::ptrdiff_t{picture.bounds.x2} - picture.bounds.x1) * picture.channels * depth();
  const bool oneRow = picture.bounds.y2 - picture.bounds.y1 == 1;
  if (!oneRow && std::abs(picture.rowBytes) < row) throw fail("fewer bytes a row than pixels need");
  return picture;
}

}  // namespace orvanite::ofxPlugin
