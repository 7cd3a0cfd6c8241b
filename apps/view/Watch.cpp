// SPDX-License-Identifier: BSD-3-Clause
//
// The page asks what there is to see, and for a picture when there is a new one.
#include "apps/view/Watch.h"

#include <httplib.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "apps/view/Child.h"
#include "apps/view/Gate.h"
#include "apps/view/Messages.h"
#include "apps/view/PageView.h"
#include "apps/view/Rerender.h"
#include "apps/view/StopSignals.h"
#include "base/Error.h"
#include "media/Source.h"

namespace orvanite::view {
namespace {

std::string describe(const std::string& script, const Rerender::State& state) {
  nlohmann::json names = nlohmann::json::array();
  for (const std::string& file : state.pictures) {
    names.push_back(std::filesystem::path(file).filename().string());
  }
  return nlohmann::json{{"script", std::filesystem::path(script).filename().string()},
                        {"number", state.number},
                        {"running", state.running},
                        {"error", state.error},
                        {"frame", state.frame},
                        {"seconds", state.seconds},
                        {"pictures", names}}
      .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// A file of the last render, as a screen shows it; of a movie its last frame. Files of light are
// shown as the page shows such plates.
std::string pictureOf(const Rerender::State& state, int index) {
  if (index < 0 || index >= static_cast<int>(state.pictures.size())) {
    throw Error(Fault::wrongUse, "index", "expected one of the pictures that there are");
  }
  const auto source = media::Source::open(state.pictures[static_cast<std::size_t>(index)]);
  const media::PictureInfo& info = source->info();
  const media::Window whole = info.display;
  const Depth depth = media::depthOf(info.samples);
  const media::Encoding encoding = media::encodingOf(source->header(), info.format, info.samples);
  const int frame = source->isShot() ? source->frames().back() : 1;
  const media::Picture picture = source->read(frame, {depth, whole, 1, ""});
  return screenReply(toScreen(picture.pixels.get(), picture.rowBytes(), whole.width, whole.height,
                              depth, holdsLight(depth, encoding.colourspace)));
}

}  // namespace

void watch(const WatchOptions& options) {
  StopSignals signals;
  Rerender renders(options);
  const auto get = [&](std::string_view wanted, const httplib::Request&,
                       httplib::Response& response) {
    if (wanted == "state") {
      response.set_content(describe(options.script, renders.state()), jsonType);
    } else {
      answerFile(wanted.empty() ? "watch.html" : wanted, response);
    }
  };
  const auto post = [&](std::string_view wanted, const httplib::Request& request,
                        httplib::Response& response) {
    if (wanted != "picture") return fail(response, 404, "address", "there is nothing here");
    response.set_content(pictureOf(renders.state(), indexOf(request.body)),
                         "application/octet-stream");
  };
  Gate gate(options.port, get, post);
  const StopSignals::Watch stop = signals.watch([&] { gate.stop(); });
  if (options.started) options.started(gate.address());
  if (options.openBrowser) openInBrowser(gate.address());
  gate.run();
}

}  // namespace orvanite::view
