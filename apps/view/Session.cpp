// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Session.h"

#include <filesystem>
#include <fstream>

#include "base/Error.h"
#include "keyer/MaskFile.h"
#include "shot/Job.h"

namespace orvanite::view {
namespace {

// A shot cannot be handed over in one piece; the page says so when it is asked to render.
bool handsOver(const Session::Wish& wish, const Footage& footage) {
  return wish.output.empty() && !wish.folder.empty() && !footage.info().isShot;
}

Settings startOf(const Session::Wish& wish, const Footage& footage) {
  Settings settings = wish.settings;
  if (!settings.given("colourspace")) {
    settings.setText("colourspace", footage.info().colourspace);
  }
  // What a render holds is a setting like any other, so that the page shows and says it.
  if (!settings.given("output")) {
    const std::string file = wish.output.empty() ? "key.png" : wish.output;
    settings.setText("output", shot::usualView(footage.info().inputs, file, {}).first);
  }
  return settings;
}

}  // namespace

Session::Session(const Wish& wish)
    : wish_(wish),
      footage_(wish.files, wish.cacheBytes, wish.colours),
      handsOver_(view::handsOver(wish, footage_)),
      settings_(startOf(wish, footage_)),
      renderer_(footage_),
      thumbnails_(wish.files, wish.colours),
      job_(footage_,
           handsOver_ ? (std::filesystem::path(wish.folder) / "key.png").string() : wish.output,
           wish.exports.arguments) {}

std::shared_ptr<Session> Session::with(Role role, const std::string& path,
                                       const std::string& name) const {
  Wish wish = wish_;
  if (role == Role::plate) {
    wish.masks.clear();
    for (const Role beside : {Role::holdOut, Role::garbage, Role::cleanPlate}) {
      wish.files.clips[beside] = wish.spoken.clips[beside] = {};
    }
    for (const Parameter& parameter : parameters()) {
      if (parameter.meaning.followsScreen) wish.settings.reset(parameter.name);
    }
  }
  wish.files.clips[role] = {path};
  wish.spoken.clips[role] = {name};
  return std::make_shared<Session>(wish);
}

std::string Session::fileOf(const Masks& masks) const {
  if (masks.empty()) return {};
  std::string path = (std::filesystem::path(wish_.folder) / "masks.json").string();
  std::ofstream file(path, std::ios::binary);
  file << masksText(masks);
  if (!file.flush()) throw Error(Fault::failure, "masks", "they cannot be kept for the render");
  return path;
}

}  // namespace orvanite::view
