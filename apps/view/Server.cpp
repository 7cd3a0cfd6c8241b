// SPDX-License-Identifier: BSD-3-Clause
//
// Everything that the library would do by itself with a body (forms, uploads, compression) is
// refused before it reads one.
#include "apps/view/Server.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "apps/view/Connection.h"
#include "apps/view/Door.h"
#include "apps/view/Messages.h"
#include "apps/view/Uploads.h"
#include "base/Error.h"
#include "keyer/Preset.h"

namespace orvanite::view {
namespace {

using httplib::Request;
using httplib::Response;

// A request holds some thirty parameters as text.
constexpr std::size_t bodyLimit = std::size_t{64} << 10;

// A page that plays and follows the pointer asks some 60 times a second.
constexpr double requestsPerSecond = 200;
constexpr double requestsAtOnce = 400;

// Connections served at once. A browser keeps up to six open; the others wait.
constexpr std::size_t connectionThreads = 16;
// Renders and probes that may wait for the renderer; a page has two pictures and a probe.
constexpr int waitingLimit = 8;

// A browser's head of a request takes about a KiB. An idle connection holds a thread.
constexpr std::size_t headLimit = std::size_t{16} << 10;
constexpr Connection::Limits connectionLimits{headLimit + bodyLimit, std::chrono::seconds(5),
                                              std::chrono::seconds(2), std::chrono::seconds(5)};
constexpr int requestsOfAConnection = 10000;
// Those without the token: as long as one request may take, and no more than descriptors allow.
constexpr Door::Limits doorLimits{std::chrono::seconds(5), 800, std::chrono::seconds(1),
                                  headLimit + bodyLimit};

constexpr const char* json = "application/json";

std::vector<std::string> valuesOf(const Request& request, const char* header) {
  std::vector<std::string> values;
  const auto range = request.headers.equal_range(header);
  for (auto it = range.first; it != range.second; ++it) values.push_back(it->second);
  return values;
}

void fail(Response& response, int status, const std::string& subject, const std::string& message) {
  response.status = status;
  response.set_content(errorReply(subject, message), json);
}

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

// Connections that the system holds until they are accepted. The library asks for 5, with which the
// others of a burst would try again only after a second.
constexpr int connectionsPending = 256;

// Set while a request is answered by its own function, which is after its body was read whole. A
// connection on which anything else was answered is closed: a body that was left unread would be
// taken for the next request.
thread_local bool served = false;

class Http : public httplib::Server {
 public:
  ~Http() override { shut(); }

  /// Wants the port to be bound.
  void open(const Access& access) {
    ::listen(svr_sock_, connectionsPending);
    threads_ = std::make_unique<httplib::ThreadPool>(connectionThreads);
    const std::string said = errorReply("request", "refused");
    door_ = std::make_unique<Door>(
        access, doorLimits,
        "HTTP/1.1 403 Forbidden\r\nConnection: close\r\nContent-Type: " + std::string(json) +
            "\r\nContent-Length: " + std::to_string(said.size()) + "\r\n\r\n" + said,
        [this](int socket, const std::string& begun) {
          threads_->enqueue([this, socket, begun] { serve(socket, begun); });
        });
  }

  /// Hangs up on who waits, and ends when all others are served.
  void shut() {
    if (!door_) return;
    door_.reset();
    threads_->shutdown();
  }

  std::string answer(const std::string& request) {
    httplib::detail::BufferStream stream;
    stream.write(request.data(), request.size());
    bool closed = false;
    process_request(stream, true, closed, nullptr);
    return stream.get_buffer().substr(request.size());
  }

 private:
  bool process_and_close_socket(int socket) override {
    door_->add(socket);
    return true;
  }

  void serve(int socket, const std::string& begun) {
    Connection connection(socket, begun, connectionLimits);
    for (int left = requestsOfAConnection; left > 0 && svr_sock_ >= 0 && connection.next();
         --left) {
      bool closed = false;
      served = false;
      if (!process_request(connection, left == 1, closed, nullptr) || closed || !served) break;
    }
  }

  std::unique_ptr<httplib::ThreadPool> threads_;
  std::unique_ptr<Door> door_;
};

// The library hands each connection to a queue of tasks: it goes to the door at once.
class ToTheDoor : public httplib::TaskQueue {
 public:
  explicit ToTheDoor(Http& http) : http_(http) {}
  void enqueue(std::function<void()> task) override { task(); }
  void shutdown() override { http_.shut(); }

 private:
  Http& http_;
};

// A body's length must be beyond doubt, or where it ends would be another's guess.
bool bodyIsPlain(const Request& request) {
  if (!valuesOf(request, "Transfer-Encoding").empty() ||
      !valuesOf(request, "Content-Encoding").empty()) {
    return false;
  }
  const std::vector<std::string> lengths = valuesOf(request, "Content-Length");
  if (request.method != "POST") return lengths.empty() || lengths == std::vector<std::string>{"0"};
  return lengths.size() == 1 && !lengths.front().empty() && lengths.front().size() < 10 &&
         lengths.front().find_first_not_of("0123456789") == std::string::npos;
}

// Counts itself among those that wait, as long as it lives.
class Waiting {
 public:
  explicit Waiting(std::atomic<int>& count) : count_(count), admitted_(++count <= waitingLimit) {}
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
  Http http{};
  std::unique_ptr<Access> access{};
  RateLimit rate{requestsPerSecond, requestsAtOnce};
  Newest newest{};
  std::atomic<int> waiting = 0;
  std::atomic<bool> entered = false, stopping = false, ended = false;

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
      response.set_content(settingsReply(next->settings()), json);
      const std::lock_guard lock(sessions);
      session = next;
    } catch (const Error& error) {
      // The folder is nobody's business.
      throw error.subject() == path ? error.about(asked.name) : error;
    }
  }

  std::optional<std::string_view> admit(const Request& request) const {
    return access->admit({request.method, request.path, valuesOf(request, "Host"),
                          valuesOf(request, "Origin"), valuesOf(request, "Sec-Fetch-Site"),
                          request.get_header_value("Content-Type")});
  }

  // Before anything of a body is read. True: answered.
  bool refused(const Request& request, Response& response) {
    if (!admit(request)) {
      fail(response, 403, "request", "refused");
      response.set_header("Connection", "close");
      return true;
    }
    if (!bodyIsPlain(request)) {
      fail(response, 411, "request", "expected a body of a stated length, not compressed");
      response.set_header("Connection", "close");
      return true;
    }
    if (!valuesOf(request, "Upgrade").empty()) {
      fail(response, 400, "request", "expected no upgrade to another protocol");
      response.set_header("Connection", "close");
      return true;
    }
    if (!rate.take()) {
      fail(response, 429, "request", "too many requests");
      response.set_header("Connection", "close");
      return true;
    }
    return false;
  }

  void answerGet(const Request& request, Response& response) {
    const std::string_view wanted = *admit(request);
    const std::shared_ptr<Session> now = current();
    if (wanted == "state") {
      response.set_content(
          describe(now->footage(), now->wish().spoken, now->settings(), now->wish().output), json);
    } else if (wanted == "job") {
      answerJob(now->job(), response);
    } else if (wanted == "result" && now->handsOver()) {
      answerResult(now->job(), response);
    } else {
      answerFile(wanted.empty() ? "index.html" : wanted, response);
    }
  }

  void answerFile(std::string_view name, Response& response) const {
    for (const PageFile& file : pageFiles()) {
      if (file.name != name) continue;
      response.set_content(file.bytes.data(), file.bytes.size(), std::string(file.type));
      return;
    }
    fail(response, 404, "address", "there is nothing here");
  }

  static void answerJob(const RenderJob& job, Response& response) {
    const RenderJob::Report report = job.report();
    response.set_content(jobReply(nameOf(report.state), report.done, report.message), json);
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
    response.body = pictureReply(*rendered, asked.request.settings, taken.count());
  }

  void answerPost(const Request& request, Response& response) {
    const std::string_view wanted = *admit(request);
    const std::shared_ptr<Session> now = current();
    Renderer& renderer = now->renderer();
    RenderJob& job = now->job();
    const Exports& exports = now->wish().exports;
    const bool renders =
        wanted == "picture" || wanted == "probe" || wanted == "colours" || wanted == "auto";
    if (renders) {
      const Waiting turn(waiting);
      if (!turn) return fail(response, 503, "request", "too many renders wait");
      if (wanted == "picture") return answerPicture(renderer, request, response);
      if (wanted == "probe") {
        const ProbeRequest asked = probeRequestOf(request.body);
        const PixelValues values =
            renderer.probe(asked.settings, asked.view, asked.frame, asked.x, asked.y, asked.slot);
        return response.set_content(probeReply(values, now->footage().info().depth), json);
      }
      if (wanted == "auto") {
        const FindRequest asked = findRequestOf(request.body);
        return response.set_content(foundReply(renderer.find(asked.settings, asked.frame)), json);
      }
      const BoxRequest asked = boxRequestOf(request.body);
      return response.set_content(boxReply(renderer.colours(asked.frame, asked.box)), json);
    }
    if (wanted == "preset") {
      response.set_content(presetText(settingsOf(request.body)), json);
    } else if (wanted == "command") {
      response.set_content(exports.command(now->wish().spoken, settingsOf(request.body)),
                           "text/plain");
    } else if (wanted == "script") {
      response.set_content(exports.script(now->wish().spoken, settingsOf(request.body),
                                          now->footage().info().samples),
                           "text/plain");
    } else if (wanted == "give") {
      const GiveRequest asked = giveRequestOf(request.body);
      uploads.add(asked.set, asked.name, asked.at, asked.bytes);
      response.set_content("{}", json);
    } else if (wanted == "open") {
      open(openRequestOf(request.body), response);
    } else if (wanted == "read-preset") {
      response.set_content(settingsReply(presetIn(request.body)), json);
    } else if (wanted == "job") {
      if (job.output().empty()) {
        return fail(response, 409, "render",
                    "start with -o and a name such as key.####.png or key.mov");
      }
      const JobRequest asked = jobRequestOf(request.body);
      if (!job.start(asked.settings, asked.frames)) {
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

  template <class Answer>
  httplib::Server::Handler guarded(Answer answer) {
    return [this, answer](const Request& request, Response& response) {
      served = true;
      try {
        (this->*answer)(request, response);
      } catch (const Error& error) {
        fail(response, error.fault() == Fault::wrongUse ? 400 : 500, error.subject(),
             error.message());
      } catch (const std::exception& error) {
        fail(response, 500, "server", error.what());
      }
    };
  }

  void configure() {
    http.set_socket_options([](socket_t) {});  // the port is this process's alone
    http.set_tcp_nodelay(true);
    http.set_payload_max_length(bodyLimit);
    http.set_keep_alive_max_count(requestsOfAConnection);
    http.new_task_queue = [this] { return new ToTheDoor(http); };
    http.set_default_headers({
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data: blob:; "
         "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
        {"Referrer-Policy", "no-referrer"},
        {"X-Content-Type-Options", "nosniff"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
        {"Cache-Control", "no-store"},
    });
    http.set_pre_routing_handler([this](const Request& request, Response& response) {
      return refused(request, response) ? httplib::Server::HandlerResponse::Handled
                                        : httplib::Server::HandlerResponse::Unhandled;
    });
    http.Get(".*", guarded(&Implementation::answerGet));
    http.Post(".*", guarded(&Implementation::answerPost));
  }
};

Server::Server(int port, std::shared_ptr<Session> session, const std::string& uploads)
    : implementation_(new Implementation{std::move(session), Uploads(uploads)}) {
  Implementation& self = *implementation_;
  self.configure();
  const char* loopback = "127.0.0.1";
  const int bound = port == 0 ? self.http.bind_to_any_port(loopback)
                              : (self.http.bind_to_port(loopback, port) ? port : -1);
  if (bound <= 0) {
    throw Error(Fault::failure, "--port",
                port == 0 ? "no port of 127.0.0.1 is free"
                          : "port " + std::to_string(port) + " of 127.0.0.1 cannot be taken");
  }
  self.access = std::make_unique<Access>(makeToken(), bound);
  self.http.open(*self.access);
}

Server::~Server() = default;

std::string Server::answer(const std::string& request) {
  return implementation_->http.answer(request);
}

std::string Server::address() const { return implementation_->access->address(); }

// The library forgets a stop that comes before it listens, as a quick signal's does: who stops
// waits for a run that has begun to get so far, and a run that begins later sees that it need not.
void Server::run() {
  Implementation& self = *implementation_;
  self.entered = true;
  if (!self.stopping) self.http.listen_after_bind();
  self.ended = true;
}

void Server::stop() {
  Implementation& self = *implementation_;
  self.current()->job().cancel();
  self.stopping = true;
  if (!self.entered) return;
  while (!self.ended && !self.http.is_running()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  self.http.stop();
}

}  // namespace orvanite::view
