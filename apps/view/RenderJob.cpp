// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/RenderJob.h"

#include <exception>
#include <utility>

#include "apps/media/PictureWriter.h"
#include "apps/view/FrameKeyer.h"
#include "keyer/Error.h"

namespace orvanite::view {

RenderJob::RenderJob(Footage& footage, std::string output)
    : footage_(footage), output_(std::move(output)) {
  if (output_.empty()) return;
  const FootageInfo& info = footage_.info();
  if (info.isShot) {
    pattern_ = media::FramePattern::parse(output_);
    if (!pattern_) {
      throw Error::expected(Fault::wrongUse, "-o",
                            "a pattern for a shot's frames, such as key.####.png", output_);
    }
  }
  for (const int frame : info.frames) media::checkOutput(fileOf(frame), footage_.filesOf(frame));
}

RenderJob::~RenderJob() {
  cancel();
  if (thread_.joinable()) thread_.join();
}

bool RenderJob::start(const Settings& settings) {
  const std::lock_guard lock(mutex_);
  if (report_.state == State::running) return false;
  if (thread_.joinable()) thread_.join();
  cancelled_ = false;
  done_ = 0;
  report_ = {State::running, 0, {}};
  thread_ = std::thread([this, settings] { run(settings); });
  return true;
}

void RenderJob::cancel() { cancelled_ = true; }

RenderJob::Report RenderJob::report() const {
  const std::lock_guard lock(mutex_);
  Report report = report_;
  report.done = report.state == State::done ? 1 : done_.load();
  return report;
}

void RenderJob::finish(State state, std::string message) {
  const std::lock_guard lock(mutex_);
  report_.state = state;
  report_.message = std::move(message);
}

void RenderJob::run(const Settings& settings) {
  try {
    const FootageInfo& info = footage_.info();
    FrameKeyer keyer(footage_);
    std::size_t written = 0;
    for (const int frame : info.frames) {
      auto keyed = keyer.key(
          settings, PageView::output, frame, 1, {0, 0, info.width, info.height}, [&](double part) {
            done_ = (static_cast<double>(written) + part) / static_cast<double>(info.frames.size());
            return !cancelled_;
          });
      if (!keyed || cancelled_) {
        return finish(State::cancelled, written == 0 ? "nothing was written"
                                                     : std::to_string(written) + " of " +
                                                           std::to_string(info.frames.size()) +
                                                           " frames were written");
      }
      const Footage::Shared plate = footage_.picture(Role::plate, frame, {}, 1);
      keyed->data = plate->data;
      keyed->header = plate->header;
      keyed->hasAlpha = plate->hasAlpha;
      media::writePicture(*keyed, fileOf(frame));
      ++written;
    }
    finish(State::done, output_);
  } catch (const std::exception& error) {
    finish(State::failed, error.what());
  }
}

}  // namespace orvanite::view
