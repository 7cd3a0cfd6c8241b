// SPDX-License-Identifier: BSD-3-Clause
//
// What a key shows, as the flat interface numbers it. Uses nothing.
#pragma once

namespace orvanite {

enum class View : int {
  composite = 0,        // over the background picture
  flat = 1,             // over one colour
  matte = 2,            // the matte as grey
  unpremultiplied = 4,  // the foreground beside its matte
  status = 5            // clear black, solid blue, between them green
};

/// The view of a code that came through a C interface: unknown ones show the foreground.
constexpr View viewOf(int code) {
  return code == 0 || code == 1 || code == 2 || code == 5 ? static_cast<View>(code)
                                                          : View::unpremultiplied;
}

/// Whether what is shown is the matte in some form, and no picture.
constexpr bool showsMatte(View view) { return view == View::matte || view == View::status; }

}  // namespace orvanite
