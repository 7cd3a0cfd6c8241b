// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Server.h"

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "apps/view/Access.h"
#include "apps/view/Gate.h"
#include "apps/view/Messages.h"
#include "apps/view/Uploads.h"
#include "base/Error.h"
#include "keyer/MaskFile.h"
#include "keyer/Preset.h"

namespace orvanite::view {
namespace {

using httplib::Request;
using httplib::Response;

// Renders and probes that may wait for the renderer; a page has two pictures and a probe.
constexpr int waitingLimit = 8;

const char* nameOf(RenderJob::State state) {
  switch (state) {
    case RenderJob::State::idle:
      return "idle";
    case RenderJob::State::running:
      return "running";
    case RenderJob::State::done:
      return "done";
    case RenderJob::State::failed:
      return "failed";
    default:
      return "cancelled";
  }
}

// A page asks for one at a time.
constexpr int thumbnailLimit = 2;

// Counts itself among those that wait, as long as it lives.
class Waiting {
 public:
  explicit Waiting(std::atomic<int>& count, int limit = waitingLimit)
      : count_(count), admitted_(++count <= limit) {}
  ~Waiting() { --count_; }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;
  explicit operator bool() const { return admitted_; }

 private:
  std::atomic<int>& count_;
  bool admitted_;
};

}  // namespace

struct Server::Implementation {
  std::shared_ptr<Session> session;  // under sessions
  Uploads uploads;
  mutable std::mutex sessions{};
  std::mutex opening{};
  std::unique_ptr<Gate> gate{};
  Newest newest{};
  std::atomic<int> waiting = 0, thumbnails = 0;

  std::shared_ptr<Session> current() const {
    const std::lock_guard lock(sessions);
    return session;
  }

  // Opens another picture; the session that was stays when it cannot be.
  void open(const OpenRequest& asked, Response& response) {
    const std::lock_guard one(opening);
    const std::shared_ptr<Session> now = current();
    if (now->job().report().state == RenderJob::State::running) {
      return fail(response, 409, "open", "a render is running");
    }
    const std::string path =
        asked.name.empty() ? std::string() : uploads.path(asked.set, asked.name);
    try {
      const std::shared_ptr<Session> next = now->with(asked.role, path, asked.name);
      response.set_content(settingsReply({next->settings(), next->wish().masks}), jsonType);
      const std::lock_guard lock(sessions);
      session = next;
    } catch (const Error& error) {
      // The folder is nobody's business.
      throw error.subject() == path ? error.about(asked.name) : error;
    }
  }

  void answerGet(std::string_view wanted, Response& response) {
    const std::shared_ptr<Session> now = current();
    if (wanted == "state") {
      response.set_content(describe(now->footage(), now->wish().spoken,
                                    {now->settings(), now->wish().masks}, now->wish().output),
                           jsonType);
    } else if (wanted == "job") {
      answerJob(now->job(), response);
    } else if (wanted == "result" && now->handsOver()) {
      answerResult(now->job(), response);
    } else {
      answerFile(wanted.empty() ? "index.html" : wanted, response);
    }
  }

  static void answerJob(const RenderJob& job, Response& response) {
    const RenderJob::Report report = job.report();
    response.set_content(jobReply(nameOf(report.state), report.done, report.message), jsonType);
  }

  static void answerResult(const RenderJob& job, Response& response) {
    std::ifstream file(job.output(), std::ios::binary);
    if (job.report().state != RenderJob::State::done || !file) {
      return fail(response, 404, "result", "nothing was rendered");
    }
    response.set_content(
        std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()),
        "application/octet-stream");
  }

  void answerPicture(Renderer& renderer, const Request& request, Response& response) {
    const auto start = std::chrono::steady_clock::now();
    const NumberedRequest asked = pictureRequestOf(request.body);
    const auto wanted = [&] { return newest.holds(asked.page, asked.number); };
    std::optional<RenderedPicture> rendered;
    if (newest.announce(asked.page, asked.number)) {
      rendered = renderer.render(asked.request, wanted);
    }
    if (!rendered) return fail(response, 409, "number", "a newer request came");
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - start;
    response.set_header("Content-Type", "application/octet-stream");
    response.body = pictureReply(*rendered, asked, taken.count());
  }

  // Pictures come first: while some are rendered, none of these is read.
  void answerThumbnail(Thumbnails& from, const Request& request, Response& response) {
    const int frame = frameIn(request.body);
    const Waiting turn(thumbnails, thumbnailLimit);
    if (waiting > 0 || !turn) return fail(response, 503, "thumbnail", "others come first");
    response.set_content(screenReply(*from.of(frame)), "application/octet-stream");
  }

  void answerPost(std::string_view wanted, const Request& request, Response& response) {
    const std::shared_ptr<Session> now = current();
    Renderer& renderer = now->renderer();
    RenderJob& job = now->job();
    const Exports& exports = now->wish().exports;
    const bool renders = wanted == "picture" || wanted == "probe" || wanted == "colours" ||
                         wanted == "coverage" || wanted == "auto";
    if (renders) {
      const Waiting turn(waiting);
      if (!turn) return fail(response, 503, "request", "too many renders wait");
      if (wanted == "picture") return answerPicture(renderer, request, response);
      if (wanted == "probe") {
        const ProbeRequest asked = probeRequestOf(request.body);
        const PixelValues values = renderer.probe(asked.settings, asked.masks, asked.view,
                                                  asked.frame, asked.x, asked.y, asked.slot);
        return response.set_content(probeReply(values, now->footage().info().depth), jsonType);
      }
      if (wanted == "auto") {
        const FindRequest asked = findRequestOf(request.body);
        return response.set_content(foundReply(renderer.find(asked.settings, asked.frame)),
                                    jsonType);
      }
      if (wanted == "coverage") {
        const FindRequest asked = findRequestOf(request.body);
        return response.set_content(coverageReply(renderer.coverage(asked.settings, asked.frame)),
                                    jsonType);
      }
      const BoxRequest asked = boxRequestOf(request.body);
      return response.set_content(boxReply(renderer.colours(asked.frame, asked.box)), jsonType);
    }
    if (wanted == "thumbnail") {
      answerThumbnail(now->thumbnails(), request, response);
    } else if (wanted == "preset") {
      response.set_content(presetText(givenIn(request.body).settings), jsonType);
    } else if (wanted == "command") {
      const Given given = givenIn(request.body);
      response.set_content(exports.command(now->wish().spoken, given.settings,
                                           given.masks.empty() ? "" : nameIn(request.body)),
                           "text/plain");
    } else if (wanted == "script") {
      const Given given = givenIn(request.body);
      if (!given.masks.empty()) {
        throw Error(Fault::wrongUse, "script", "a script cannot hold drawn masks");
      }
      response.set_content(
          exports.script(now->wish().spoken, given.settings, now->footage().info().samples),
          "text/plain");
    } else if (wanted == "give") {
      const GiveRequest asked = giveRequestOf(request.body);
      uploads.add(asked.set, asked.name, asked.at, asked.bytes);
      response.set_content("{}", jsonType);
    } else if (wanted == "open") {
      open(openRequestOf(request.body), response);
    } else if (wanted == "read-preset") {
      response.set_content(settingsReply({presetIn(request.body), {}}), jsonType);
    } else if (wanted == "read-masks") {
      response.set_content(masksReply(masksFileIn(request.body)), jsonType);
    } else if (wanted == "masks") {
      response.set_content(masksText(givenIn(request.body).masks), jsonType);
    } else if (wanted == "job") {
      if (job.output().empty()) {
        return fail(response, 409, "render",
                    "start with -o and a name such as key.####.png or key.mov");
      }
      const JobRequest asked = jobRequestOf(request.body);
      // The one that runs reads its masks from the same file.
      if (job.report().state == RenderJob::State::running ||
          !job.start(asked.settings, now->fileOf(asked.masks), asked.frames)) {
        return fail(response, 409, "render", "another one is running");
      }
      answerJob(job, response);
    } else if (wanted == "cancel") {
      job.cancel();
      answerJob(job, response);
    } else {
      fail(response, 404, "address", "there is nothing here");
    }
  }
};

Server::Server(int port, std::shared_ptr<Session> session, const std::string& uploads)
    : implementation_(new Implementation{std::move(session), Uploads(uploads)}) {
  Implementation& self = *implementation_;
  self.gate = std::make_unique<Gate>(
      port,
      [&self](std::string_view wanted, const Request&, Response& response) {
        self.answerGet(wanted, response);
      },
      [&self](std::string_view wanted, const Request& request, Response& response) {
        self.answerPost(wanted, request, response);
      });
}

Server::~Server() = default;

std::string Server::answer(const std::string& request) {
  return implementation_->gate->answer(request);
}

std::string Server::address() const { return implementation_->gate->address(); }

void Server::run() { implementation_->gate->run(); }

void Server::stop() {
  implementation_->current()->job().cancel();
  implementation_->gate->stop();
}

}  // namespace orvanite::view
