// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/View.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <thread>

#include "apps/view/Child.h"
#include "apps/view/StopSignals.h"
#include "base/Error.h"
#include "shot/Job.h"

namespace orvanite::view {
namespace {

// A folder that is gone when the program ends, for renders that only the page gets.
class OwnFolder {
 public:
  OwnFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "orvanite-view-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw Error(Fault::failure, name, "a folder for renders cannot be made");
    }
    path_ = name;
  }
  ~OwnFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Shows the page if the desktop can; who sees no page has its address.
void openInBrowser(const std::string& address) {
  const pid_t child = startChild("xdg-open", {address});
  if (child >= 0) std::thread([child] { waitpid(child, nullptr, 0); }).detach();
}

}  // namespace

void view(const ViewOptions& options) {
  StopSignals signals;
  Footage footage(options.files, options.cacheBytes, options.colours);
  Settings settings = options.settings;
  if (!settings.given("colourspace")) {
    settings.setText("colourspace", footage.info().colourspace);
  }
  std::optional<OwnFolder> folder;
  std::string output = options.output;
  // A shot cannot be handed over in one piece; the page says so when it is asked to render.
  if (output.empty() && !footage.info().isShot) {
    folder.emplace();
    output = (folder->path() / "key.png").string();
  }
  // What a render holds is a setting like any other, so that the page shows and says it.
  if (!settings.given("output")) {
    const std::string file = options.output.empty() ? "key.png" : options.output;
    settings.setText("output", shot::usualView(footage.info().inputs, file, {}).first);
  }
  Renderer renderer(footage);
  RenderJob job(footage, output, options.exports.arguments);
  Server server(options.port, footage, renderer, job, folder.has_value(), settings,
                options.exports);
  signals.watch([&] {
    job.cancel();
    server.stop();
  });
  if (options.started) options.started(server.address());
  if (options.openBrowser) openInBrowser(server.address());
  server.run();
}

}  // namespace orvanite::view
