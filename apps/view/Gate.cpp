// SPDX-License-Identifier: BSD-3-Clause
//
// Everything that the library would do by itself with a body (forms, uploads, compression) is
// refused before it reads one.
#include "apps/view/Gate.h"

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "apps/view/Access.h"
#include "apps/view/Connection.h"
#include "apps/view/Door.h"
#include "apps/view/Messages.h"
#include "base/Error.h"

namespace orvanite::view {
namespace {

using httplib::Request;
using httplib::Response;

// A request holds some fifty parameters as text, few of which move.
constexpr std::size_t bodyLimit = std::size_t{64} << 10;

// A page that plays and follows the pointer asks some 60 times a second.
constexpr double requestsPerSecond = 200;
constexpr double requestsAtOnce = 400;

// Connections served at once. A browser keeps up to six open; the others wait.
constexpr std::size_t connectionThreads = 16;
// A browser's head of a request takes about a KiB. An idle connection holds a thread.
constexpr std::size_t headLimit = std::size_t{16} << 10;
constexpr Connection::Limits connectionLimits{headLimit + bodyLimit, std::chrono::seconds(5),
                                              std::chrono::seconds(2), std::chrono::seconds(5)};
constexpr int requestsOfAConnection = 10000;
// Those without the token: as long as one request may take, and no more than descriptors allow.
constexpr Door::Limits doorLimits{std::chrono::seconds(5), 800, std::chrono::seconds(1),
                                  headLimit + bodyLimit};

std::vector<std::string> valuesOf(const Request& request, const char* header) {
  std::vector<std::string> values;
  const auto range = request.headers.equal_range(header);
  for (auto it = range.first; it != range.second; ++it) values.push_back(it->second);
  return values;
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
        "HTTP/1.1 403 Forbidden\r\nConnection: close\r\nContent-Type: " + std::string(jsonType) +
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

}  // namespace

void fail(Response& response, int status, const std::string& subject, const std::string& message) {
  response.status = status;
  response.set_content(errorReply(subject, message), jsonType);
}

void answerFile(std::string_view name, Response& response) {
  for (const PageFile& file : pageFiles()) {
    if (file.name != name) continue;
    response.set_content(file.bytes.data(), file.bytes.size(), std::string(file.type));
    return;
  }
  fail(response, 404, "address", "there is nothing here");
}

struct Gate::Implementation {
  Answer get, post;
  Http http{};
  std::unique_ptr<Access> access{};
  RateLimit rate{requestsPerSecond, requestsAtOnce};
  std::atomic<bool> entered = false, stopping = false, ended = false;

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

  httplib::Server::Handler guarded(const Answer& answer) {
    return [this, &answer](const Request& request, Response& response) {
      served = true;
      try {
        answer(*admit(request), request, response);
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
    http.Get(".*", guarded(get));
    http.Post(".*", guarded(post));
  }
};

Gate::Gate(int port, Answer get, Answer post)
    : implementation_(new Implementation{std::move(get), std::move(post)}) {
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

Gate::~Gate() = default;

std::string Gate::answer(const std::string& request) {
  return implementation_->http.answer(request);
}

std::string Gate::address() const { return implementation_->access->address(); }

// The library forgets a stop that comes before it listens, as a quick signal's does: who stops
// waits for a run that has begun to get so far, and a run that begins later sees that it need not.
void Gate::run() {
  Implementation& self = *implementation_;
  self.entered = true;
  if (!self.stopping) self.http.listen_after_bind();
  self.ended = true;
}

void Gate::stop() {
  Implementation& self = *implementation_;
  self.stopping = true;
  if (!self.entered) return;
  while (!self.ended && !self.http.is_running()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  self.http.stop();
}

}  // namespace orvanite::view
