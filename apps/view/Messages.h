// SPDX-License-Identifier: BSD-3-Clause
//
// What the page and its server say to each other, as JSON and bytes. Whatever a request holds is
// checked here; what is wrong with it becomes an Error that the page shows.
// Knows nlohmann-json; knows no HTTP.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/view/RenderJob.h"
#include "apps/view/Renderer.h"
#include "base/Depth.h"

namespace orvanite::view {

/// A request for a picture, and where it stands among its page's others.
struct NumberedRequest {
  std::string page;  // with its slot: requests of one name replace each other
  std::uint64_t number = 0;
  PictureRequest request;               // with the settings of its frame
  std::vector<std::string_view> shown;  // parameters whose values in force the page cannot know
};

/// Each throws Error (wrongUse) that says what was expected.
NumberedRequest pictureRequestOf(const std::string& body);
struct ProbeRequest {
  Settings settings;
  Masks masks;
  PageView view = PageView::composite;
  int frame = 1, x = 0, y = 0, slot = 0;
};
ProbeRequest probeRequestOf(const std::string& body);
struct BoxRequest {
  int frame = 1;
  media::Window box;
};
BoxRequest boxRequestOf(const std::string& body);
struct FindRequest {
  Settings settings;
  int frame = 1;
};
FindRequest findRequestOf(const std::string& body);
struct JobRequest {
  Settings settings;
  Masks masks;
  std::optional<RenderJob::Range> frames;  // none: all
};
JobRequest jobRequestOf(const std::string& body);
/// Bytes of a file that the page hands over.
struct GiveRequest {
  int set = 0;
  std::string name;
  std::uintmax_t at = 0;
  std::string bytes;
};
GiveRequest giveRequestOf(const std::string& body);
struct OpenRequest {
  Role role = Role::plate;
  int set = 0;
  std::string name;  // empty: what is there goes
};
OpenRequest openRequestOf(const std::string& body);
/// A preset's text, as settings.
Settings presetIn(const std::string& body);
/// The text of a file of masks.
Masks masksFileIn(const std::string& body);
/// The member "name" of a body: what the page calls the file of its masks.
std::string nameIn(const std::string& body);
/// The members "index" and "frame" of a body.
int indexOf(const std::string& body);
int frameIn(const std::string& body);
/// The member "settings" of a body: texts by parameter names, and the text of masks beside them.
struct Given {
  Settings settings;
  Masks masks;
};
Given givenIn(const std::string& body);

/// Everything that a page needs to build itself. `given` is what it starts with,
/// `output` the name that renders are written to, empty where they are only handed over.
/// `named` are the files as a person knows them.
std::string describe(const Footage& footage, const shot::ShotFiles& named, const Given& given,
                     const std::string& output);

/// A picture: the length of a header in bytes as 4 bytes, low byte first; the header, JSON padded
/// with blanks to a multiple of 4; then RGBA, rows from the top.
std::string pictureReply(const RenderedPicture& rendered, const NumberedRequest& asked,
                         double milliseconds);

/// The same of any picture, whose header says its size.
std::string screenReply(const ScreenPicture& picture);

std::string probeReply(const PixelValues& values, Depth depth);
/// What was found: texts by the names of the parameters that finding sets, null for a default.
std::string foundReply(const Renderer::Found& found);
std::string coverageReply(float coverage);
std::string boxReply(const BoxColours& colours);
std::string jobReply(const std::string& state, double done, const std::string& message);
/// The texts of settings that were given, by name, and that of masks.
std::string settingsReply(const Given& given);
/// The same of masks alone, though there be none.
std::string masksReply(const Masks& masks);
/// {"error": {"subject": ..., "message": ...}}
std::string errorReply(const std::string& subject, const std::string& message);

}  // namespace orvanite::view
