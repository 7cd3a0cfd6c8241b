// SPDX-License-Identifier: BSD-3-Clause
//
// How close a key that sets itself up comes to the true matte, beside FFmpeg's chromakey and
// colorkey at the best similarity and blend of a fine grid: the peers are given the truth to tune
// by, the keyer is not.
//
//   orvanite-quality [--no-peers] FOLDER...    folders written by orvanite-plate
//
// Prints one row a folder. Errors are mean absolute differences of the matte in percent, over the
// frame and over its soft edge (true matte between 1 and 99 percent), without what the garbage
// matte removes.
#include <fmt/core.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "base/Error.h"
#include "keyer/AutoKey.h"
#include "keyer/CleanPlate.h"
#include "keyer/Keyer.h"
#include "media/PictureReader.h"
#include "shot/Images.h"

namespace {

using namespace orvanite;
namespace fs = std::filesystem;

struct Score {
  double frame = 1, edge = 1;
};

/// The true matte, and which pixels count.
struct Truth {
  int width = 0, height = 0;
  std::vector<float> matte;
  std::vector<bool> counts;

  template <class At>
  Score judge(At&& matteAt) const {
    double frame = 0, edge = 0;
    std::size_t frames = 0, edges = 0;
    for (std::size_t i = 0; i < matte.size(); ++i) {
      if (!counts[i]) continue;
      const double error = std::abs(static_cast<double>(matteAt(i)) - matte[i]);
      frame += error;
      ++frames;
      if (matte[i] > 0.01F && matte[i] < 0.99F) {
        edge += error;
        ++edges;
      }
    }
    return {frame / static_cast<double>(frames), edge / static_cast<double>(edges)};
  }
};

std::string only(const fs::path& folder, const std::string& stem) {
  for (const char* ending : {".png", ".tif", ".exr"}) {
    if (const fs::path path = folder / (stem + ending); fs::exists(path)) return path.string();
  }
  throw Error(Fault::noSuchFile, (folder / stem).string(), "expected a picture of that name");
}

media::Picture load(const std::string& path, int depth) {
  media::PictureReader reader(path);
  return reader.read(depth == 0 ? media::depthOf(reader.info().samples) : depth, reader.info().data,
                     1);
}

Truth loadTruth(const fs::path& folder) {
  const media::Picture matte = load(only(folder, "truematte"), 4);
  const media::Picture garbage = load(only(folder, "garbage"), 4);
  const auto* m = reinterpret_cast<const float*>(matte.pixels.get());
  const auto* g = reinterpret_cast<const float*>(garbage.pixels.get());
  Truth truth{matte.data.width, matte.data.height, {}, {}};
  const auto count = static_cast<std::size_t>(truth.width) * static_cast<std::size_t>(truth.height);
  for (std::size_t i = 0; i < count; ++i) {
    truth.matte.push_back(m[4 * i]);
    truth.counts.push_back(g[4 * i] == 0);
  }
  return truth;
}

struct OwnKey {
  Score score;
  Rgb screen{};        // the screen's median colour
  std::string chosen;  // parameters with their values
};

/// The keyer's own key, told nothing but the file.
OwnKey keyItself(const fs::path& folder, const Truth& truth) {
  media::PictureReader reader(only(folder, "plate"));
  media::Picture plate = reader.read(media::depthOf(reader.info().samples), reader.info().data, 1);
  Settings settings;
  settings.setText("colourspace", media::encodingOf(reader).colourspace);
  const Plate view = shot::plateOf(plate);
  const AutoKey key = autoKey(view, settings);
  settings.setText("output", "matte");
  Frame frame{{}, plate.data.width, plate.data.height, plate.depth};
  media::Picture clean;
  Inputs inputs;
  if (key.cleanPlate) {
    clean = media::Picture::make(plate.data, plate.depth, plate.samples);
    CleanPlate(view, key.screen).write(shot::imageOf(clean), plate.depth);
    frame.pictures.ref = shot::imageOf(clean);
    inputs.reference = true;
  }
  Keyer keyer;
  keyer.prepare(settings, plate.depth, inputs);
  frame.pictures.fg = frame.pictures.dst = shot::imageOf(plate);
  keyer.render(frame);
  OwnKey own;
  own.screen = key.screen.colour;
  own.score = truth.judge([&](std::size_t i) {
    const int x = static_cast<int>(i) % truth.width;
    return colourAt(view, x, static_cast<int>(i) / truth.width)[0];
  });
  if (key.cleanPlate) own.chosen = "beside an estimated clean plate: ";
  for (const std::string& name : key.set) {
    own.chosen += fmt::format("{} {}; ", name, settings.text(name));
  }
  return own;
}

struct Peer {
  Score score;
  double similarity = 0, blend = 0;
};

/// The best that an FFmpeg filter does over a grid, one frame of a still a grid point.
Peer searchPeer(const std::string& filter, const std::string& format, const fs::path& folder,
                const Truth& truth, const Rgb& screen) {
  struct Point {
    double similarity, blend;
  };
  std::vector<Point> grid;
  for (int s = 1; s <= 30; ++s) {
    for (int b = 0; b <= 20; ++b) grid.push_back({0.015 * s, 0.025 * b});
  }
  const fs::path commands =
      fs::temp_directory_path() / fmt::format("orvanite-quality-{}.txt", ::getpid());
  {
    std::ofstream file(commands);
    for (std::size_t i = 0; i < grid.size(); ++i) {
      file << fmt::format("{:.3f} {}@key similarity {:.4f}, {}@key blend {:.4f};\n",
                          i == 0 ? 0.0 : static_cast<double>(i) / 25.0 - 0.01, filter,
                          grid[i].similarity, filter, grid[i].blend);
    }
  }
  const auto code = [](float v) { return static_cast<int>(std::lround(255 * std::min(v, 1.0F))); };
  const std::string command = fmt::format(
      "ffmpeg -v error -nostdin -loop 1 -framerate 25 -i '{}' -frames:v {} -vf "
      "'format={},sendcmd=f={},{}@key=color=0x{:02x}{:02x}{:02x},alphaextract,format=gray' "
      "-f rawvideo -",
      only(folder, "plate"), grid.size(), format, commands.string(), filter, code(screen[0]),
      code(screen[1]), code(screen[2]));
  const auto close = [](FILE* pipe) { pclose(pipe); };
  const std::unique_ptr<FILE, decltype(close)> pipe(popen(command.c_str(), "r"), close);
  Peer best;
  std::vector<unsigned char> matte(truth.matte.size());
  std::size_t read = 0;
  for (const Point& point : grid) {
    if (!pipe || std::fread(matte.data(), 1, matte.size(), pipe.get()) != matte.size()) break;
    ++read;
    const Score score =
        truth.judge([&](std::size_t i) { return static_cast<float>(matte[i]) / 255.0F; });
    if (score.frame < best.score.frame) best = {score, point.similarity, point.blend};
  }
  fs::remove(commands);
  if (read != grid.size()) {
    throw Error(Fault::failure, "ffmpeg",
                fmt::format("expected {} frames from {}, found {}", grid.size(), filter, read));
  }
  return best;
}

std::string percents(const Score& score) {
  return fmt::format("{:5.2f} / {:5.2f}", 100 * score.frame, 100 * score.edge);
}

}  // namespace

int main(int count, char** arguments) try {
  bool peers = true;
  std::vector<fs::path> folders;
  for (int i = 1; i < count; ++i) {
    if (std::string(arguments[i]) == "--no-peers") {
      peers = false;
    } else {
      folders.emplace_back(arguments[i]);
    }
  }
  if (folders.empty()) {
    fmt::print(stderr, "usage: orvanite-quality [--no-peers] FOLDER...\n");
    return 2;
  }
  fmt::print("Error of the matte in percent: frame / soft edge\n\n");
  fmt::print("| plate | orvanite --auto | chromakey, best of 630 | colorkey, best of 630 |\n");
  fmt::print("|---|---|---|---|\n");
  for (const fs::path& folder : folders) {
    const Truth truth = loadTruth(folder);
    const OwnKey own = keyItself(folder, truth);
    fmt::print("| {} | {} |", folder.filename().string(), percents(own.score));
    if (peers && fs::exists(folder / "plate.png")) {
      for (const auto& [filter, format] :
           {std::pair{"chromakey", "yuva444p"}, std::pair{"colorkey", "rgba"}}) {
        const Peer peer = searchPeer(filter, format, folder, truth, own.screen);
        fmt::print(" {} (similarity {:.3f}, blend {:.3f}) |", percents(peer.score), peer.similarity,
                   peer.blend);
        std::fflush(stdout);
      }
    } else {
      fmt::print("{}", peers ? " keys 8 bits | keys 8 bits |" : " not run | not run |");
    }
    fmt::print("\n");
    fmt::print(stderr, "  {}\n", own.chosen);
  }
  return 0;
} catch (const std::exception& error) {
  fmt::print(stderr, "orvanite-quality: {}\n", error.what());
  return 1;
}
