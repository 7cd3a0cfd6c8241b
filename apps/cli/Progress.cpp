// SPDX-License-Identifier: BSD-3-Clause
//
// Every line is flushed: who reads them wants them now.
#include "apps/cli/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "base/Error.h"

namespace orvanite::cli {
namespace {

const char* nameOf(FrameStatus status) {
  return status == FrameStatus::done      ? "done"
         : status == FrameStatus::skipped ? "skipped"
                                          : "failed";
}

void line(const std::string& text) {
  std::fputs((text + '\n').c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace

ProgressForm progressFormOf(const std::string& text) {
  if (text.empty()) return ProgressForm::automatic;
  if (text == "bar") return ProgressForm::bar;
  if (text == "plain") return ProgressForm::plain;
  if (text == "openjd") return ProgressForm::openjd;
  if (text == "alf") return ProgressForm::alf;
  if (text == "none") return ProgressForm::none;
  throw Error::expected(Fault::wrongUse, "--progress", "bar, plain, openjd, alf or none", text);
}

Progress::Progress(ProgressForm form, bool json, int total)
    : form_(form), json_(json), total_(total) {
  if (form == ProgressForm::automatic) {
    form_ = json                      ? ProgressForm::none
            : ::isatty(STDOUT_FILENO) ? ProgressForm::bar
                                      : ProgressForm::plain;
  }
}

void Progress::frame(int frame, const std::string& output, FrameStatus status, double seconds,
                     const std::string& message, const std::vector<std::string>& files) {
  if (status == FrameStatus::done) ++done_;
  if (status == FrameStatus::skipped) ++skipped_;
  if (status == FrameStatus::failed) ++failed_;
  if (json_) {
    nlohmann::ordered_json object{
        {"frame", frame}, {"status", nameOf(status)}, {"output", output}, {"seconds", seconds}};
    if (!files.empty()) object["files"] = files;
    if (!message.empty()) object["message"] = message;
    line(object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  }
  if (status == FrameStatus::failed && form_ == ProgressForm::openjd)
    line("openjd_fail: " + message);
  show(frame);
}

void Progress::show(int frame) {
  const int finished = done_ + skipped_ + failed_;
  const int percent = total_ > 0 ? finished * 100 / total_ : 100;
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start_;
  const double rate = taken.count() > 0 ? (done_ + failed_) / taken.count() : 0;
  if (form_ == ProgressForm::bar) {
    constexpr int width = 30;
    const int filled = percent * width / 100;
    const auto left = static_cast<int>(rate > 0 ? (total_ - finished) / rate : 0);
    fmt::print("\r[{}{}] {:3}%  frame {}  {:.1f} frames/s  {}:{:02} left\033[K",
               std::string(static_cast<std::size_t>(filled), '='),
               std::string(static_cast<std::size_t>(width - filled), ' '), percent, frame, rate,
               left / 60, left % 60);
    std::fflush(stdout);
    return;
  }
  if (percent == lastPercent_) return;
  lastPercent_ = percent;
  if (form_ == ProgressForm::plain) line(fmt::format("Progress: {}%", percent));
  if (form_ == ProgressForm::alf) line(fmt::format("ALF_PROGRESS {}%", percent));
  if (form_ == ProgressForm::openjd) {
    line(fmt::format("openjd_progress: {:.1f}", total_ > 0 ? finished * 100.0 / total_ : 100.0));
    line(fmt::format("openjd_status: frame {}", frame));
  }
}

void Progress::finish(bool cancelled) {
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start_;
  const double rate = taken.count() > 0 ? done_ / taken.count() : 0;
  if (form_ == ProgressForm::bar) line("");
  if (json_) {
    nlohmann::ordered_json summary{{"frames", total_},       {"done", done_},
                                   {"skipped", skipped_},    {"failed", failed_},
                                   {"cancelled", cancelled}, {"seconds", taken.count()},
                                   {"framesPerSecond", rate}};
    line(nlohmann::ordered_json{{"summary", summary}}.dump());
  } else if (form_ == ProgressForm::bar || form_ == ProgressForm::plain) {
    line(fmt::format("{} of {} frames done, {} skipped, {} failed, in {:.1f} s ({:.1f} frames/s)",
                     done_, total_, skipped_, failed_, taken.count(), rate));
  }
}

}  // namespace orvanite::cli
