// SPDX-License-Identifier: BSD-3-Clause
//
// Sends bytes to the page's server as a request, without a connection. In the bytes, @T stands for
// the token, @P for the port and @L for the length of the body, so that a mutation need not guess
// them. A request without the token learns nothing; no request makes the server stumble.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "apps/view/Server.h"
#include "media/PictureWriter.h"

namespace {

using namespace orvanite;

// One server takes few requests at once: each gets some, then a new one.
constexpr int requestsEach = 200;

std::string folder() {
  const std::string path = "/dev/shm/orvanite-fuzz-" + std::to_string(::getpid()) + "/";
  std::filesystem::create_directory(path);
  return path;
}

std::string picture(const char* name, unsigned seed) {
  auto made = media::Picture::make({0, 0, 24, 16}, Depth::bytes, media::Samples::uint8);
  for (std::size_t i = 0; i < made.bytes(); ++i) {
    made.pixels[i] = static_cast<std::byte>((i * seed + (i % 4 == 1 ? 120 : 0)) % 251);
  }
  media::writePicture(made, folder() + name);
  return folder() + name;
}

shot::ShotFiles files() {
  shot::ShotFiles files;
  files.clips[shot::Role::plate].path = picture("plate.png", 3);
  files.clips[shot::Role::background].path = picture("background.png", 5);
  files.clips[shot::Role::holdOut].path = picture("hold.png", 7);
  files.clips[shot::Role::garbage].path = picture("garbage.png", 11);
  files.clips[shot::Role::cleanPlate].path = picture("clean.png", 1);
  return files;
}

std::shared_ptr<view::Session> session() {
  view::Session::Wish wish;
  wish.files = wish.spoken = files();
  wish.cacheBytes = 1 << 20;  // without an output it starts no process
  wish.exports.command = [](const shot::ShotFiles&, const Settings& settings,
                            const std::string& masks) { return settings.text("screen") + masks; };
  wish.exports.script = [](const shot::ShotFiles&, const Settings& settings, media::Samples) {
    return settings.text("screen");
  };
  return std::make_shared<view::Session>(wish);
}

struct Page {
  view::Server server{0, session(), folder() + "given"};
  int left = requestsEach;

  ~Page() { std::filesystem::remove_all(folder()); }
};

void replaceAll(std::string& text, std::string_view mark, const std::string& value) {
  for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += value.size()) {
    text.replace(at, mark.size(), value);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static std::unique_ptr<Page> page;
  if (!page || page->left-- == 0) {
    page.reset();
    page = std::make_unique<Page>();
  }
  // http://127.0.0.1:PORT/TOKEN/
  const std::string address = page->server.address();
  const std::string token = address.substr(address.size() - 33, 32);
  const std::string port = address.substr(17, address.size() - 17 - 34);
  std::string request(reinterpret_cast<const char*>(data), size);
  const bool knows = request.find("@T") != std::string::npos;
  replaceAll(request, "@T", token);
  replaceAll(request, "@P", port);
  const std::size_t end = request.find("\r\n\r\n");
  replaceAll(request, "@L",
             std::to_string(end == std::string::npos ? 0 : request.size() - end - 4));
  const std::string reply = page->server.answer(request);
  if (reply.empty()) return 0;
  if (!reply.starts_with("HTTP/1.")) std::abort();
  const int status = std::atoi(reply.c_str() + 9);
  if (!knows && (status < 400 || reply.find(token) != std::string::npos)) std::abort();
  const std::size_t body = reply.find("\r\n\r\n");
  if (body == std::string::npos) std::abort();
  // The library answers HEAD without a body and Range with a part of it.
  const bool whole = !request.starts_with("HEAD") && reply.find("Content-Range") > body;
  if (whole && reply.find("application/json") < body) {
    if (!nlohmann::json::accept(reply.substr(body + 4))) std::abort();
  }
  // An exception that nobody foresaw.
  if (status == 500 && reply.find("\"subject\":\"server\"") != std::string::npos) {
    std::fprintf(stderr, "%s\n", reply.c_str());
    std::abort();
  }
  return 0;
}
