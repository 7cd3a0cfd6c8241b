// SPDX-License-Identifier: BSD-3-Clause
//
// How close a key that sets itself up comes to the truth, over a folder of plates whose truth is
// known.
//
//   orvanite-quality [options] PLATES
//
// PLATES holds a folder a plate: plate.png, alpha.png (true matte), foreground.png (true
// foreground, not multiplied), judged.png where only a part counts (white), levels.json with the
// plate's kinds.
#include <fmt/core.h>
#include <tbb/parallel_for.h>
#include <CLI/CLI.hpp>

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/Error.h"
#include "keyer/BlindKeyer.h"
#include "media/PictureReader.h"
#include "shot/Images.h"

namespace {

using namespace orvanite;
namespace fs = std::filesystem;

struct Score {
  double matte = 0, soft = 0, colour = 0, edge = 0;
};

struct Keyed {
  int width = 0, height = 0;
  std::vector<float> colour, matte;  // 3 and 1 a pixel
};

media::Picture load(const fs::path& path, std::optional<Depth> depth = {}) {
  media::PictureReader reader(path.string());
  return reader.read(depth.value_or(media::depthOf(reader.info().samples)), reader.info().data, 1);
}

struct Truth {
  int width = 0, height = 0;
  std::vector<float> matte, colour;
  std::vector<std::uint8_t> judged;

  Score judge(const Keyed& key) const {
    Score s;
    std::size_t pixels = 0, softs = 0, colours = 0;
    for (std::size_t i = 0; i < matte.size(); ++i) {
      if (judged[i] == 0) continue;
      const double t = matte[i], a = key.matte[i];
      double off = 0, over = 0;
      for (std::size_t c = 0; c < 3; ++c) {
        const double k = key.colour[3 * i + c], f = colour[3 * i + c];
        off += std::abs(k - f) / 3;
        over += std::abs(a * k + (1 - a) * 0.5 - t * f - (1 - t) * 0.5) / 3;
      }
      ++pixels;
      s.matte += std::abs(a - t);
      if (t > 0.02 && t < 0.98) {
        ++softs;
        s.soft += std::abs(a - t);
        s.edge += over;
      }
      if (t > 0.1) {
        ++colours;
        s.colour += off;
      }
    }
    const auto mean = [](double& sum, std::size_t n) {
      sum *= 100 / static_cast<double>(std::max<std::size_t>(1, n));
    };
    mean(s.matte, pixels);
    mean(s.soft, softs);
    mean(s.edge, softs);
    mean(s.colour, colours);
    return s;
  }
};

Truth loadTruth(const fs::path& folder) {
  const media::Picture matte = load(folder / "alpha.png", Depth::floats);
  const media::Picture colour = load(folder / "foreground.png", Depth::floats);
  Truth truth{matte.data.width, matte.data.height, {}, {}, {}};
  const auto* m = reinterpret_cast<const float*>(matte.pixels.get());
  const auto* f = reinterpret_cast<const float*>(colour.pixels.get());
  const auto count = static_cast<std::size_t>(truth.width) * static_cast<std::size_t>(truth.height);
  truth.judged.assign(count, 1);
  for (std::size_t i = 0; i < count; ++i) {
    truth.matte.push_back(m[4 * i]);
    for (std::size_t c = 0; c < 3; ++c) truth.colour.push_back(f[4 * i + c]);
  }
  if (fs::exists(folder / "judged.png")) {
    const media::Picture judged = load(folder / "judged.png", Depth::bytes);
    for (std::size_t i = 0; i < count; ++i) {
      truth.judged[i] = reinterpret_cast<const std::uint8_t*>(judged.pixels.get())[4 * i] > 127;
    }
  }
  return truth;
}

struct Row {
  std::string name;
  nlohmann::json levels;
  Score score;
  bool keyed = true;
  double milliseconds = 0;
  std::string chosen;
};

void save(const fs::path& path, const Keyed& k, bool asMatte) {
  std::vector<std::uint8_t> out;
  for (std::size_t i = 0; i < k.matte.size(); ++i) {
    for (std::size_t c = 0; c < 3; ++c) {
      const float v =
          asMatte ? k.matte[i]
                  : k.matte[i] * k.colour[3 * i + c] + (1 - k.matte[i]) * (c == 0 ? 0.9f : 0.1f);
      out.push_back(static_cast<std::uint8_t>(std::clamp(v, 0.0f, 1.0f) * 255 + 0.5f));
    }
  }
  const auto file = OIIO::ImageOutput::create(path.string());
  file->open(path.string(), OIIO::ImageSpec(k.width, k.height, 3, OIIO::TypeDesc::UINT8));
  file->write_image(OIIO::TypeDesc::UINT8, out.data());
  file->close();
}

Row keyPlate(const fs::path& folder, const KeyWishes& wishes, bool refines, const fs::path& shown) {
  Row row;
  row.name = folder.filename().string();
  if (fs::exists(folder / "levels.json")) {
    std::ifstream(folder / "levels.json") >> row.levels;
  }
  media::Picture picture = load(folder / "plate.png");
  const Plate plate = shot::plateOf(picture);
  const auto count = static_cast<std::size_t>(plate.width) * static_cast<std::size_t>(plate.height);
  Keyed keyed{plate.width, plate.height, std::vector<float>(3 * count),
              std::vector<float>(count, 1)};
  try {
    const auto began = std::chrono::steady_clock::now();
    Settings settings;
    settings.setText("colourspace", "video");
    if (!refines) settings.setText("refine", "0");
    const BlindKey key = findKey(plate, settings, wishes);
    row.milliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began).count();
    settings = key.settings;
    settings.setText("output", "unpremultiplied");
    Frame frame{{}, plate.width, plate.height, plate.depth};
    frame.pictures.fg = plate.image;
    std::vector<std::uint8_t> out(4 * count);
    frame.pictures.dst = {out.data(), out.data() + 1, out.data() + 2, out.data() + 3,
                          4,          4 * plate.width};
    BlindKeyer keyer;
    keyer.prepare(key, settings, plate.depth, {});
    keyer.render(key, frame);
    for (std::size_t i = 0; i < count; ++i) {
      keyed.matte[i] = static_cast<float>(out[4 * i + 3]) / 255.0f;
      for (std::size_t c = 0; c < 3; ++c)
        keyed.colour[3 * i + c] = static_cast<float>(out[4 * i + c]) / 255.0f;
    }
    row.chosen = fmt::format(
        "{:.2f},{:.2f},{:.2f} conf {:.2f} misfit {:.4f} {} {} b {:.2f} g {:.2f} lo {:.3f} lead "
        "{:.2f} {}",
        key.screen.colour[0], key.screen.colour[1], key.screen.colour[2], key.screen.confidence,
        key.plate.misfit, key.plate.local ? "local" : "rigid",
        key.mixing == Mixing::codes   ? "codes"
        : key.mixing == Mixing::video ? "video"
                                      : "light",
        key.numbers.balance, key.numbers.gain, key.numbers.clip, key.lead,
        fmt::format("vote {:.2f} {:.4f} {}", key.vote.slope, key.vote.spread, key.vote.samples));
  } catch (const Error& error) {
    row.keyed = false;
    row.chosen = error.what();
    for (int y = 0; y < plate.height; ++y) {
      for (int x = 0; x < plate.width; ++x) {
        const Rgb c = colourAt(plate, x, y);
        std::copy(
            c.begin(), c.end(),
            &keyed.colour[3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(plate.width) +
                               static_cast<std::size_t>(x))]);
      }
    }
  }
  if (!shown.empty()) {
    save(shown / (row.name + "-matte.png"), keyed, true);
    save(shown / (row.name + "-over.png"), keyed, false);
  }
  if (fs::exists(folder / "alpha.png")) row.score = loadTruth(folder).judge(keyed);
  return row;
}

}  // namespace

int main(int count, char** arguments) try {
  CLI::App app{
      "How close a key that sets itself up comes to the truth, in percent: the matte over the\n"
      "frame, in its soft edge, the colour, the composite over grey in the soft edge. Then come\n"
      "how many plates there are, are refused, and have a matte that is off by more than 3."};
  int every = 1, from = 0;
  bool each = false, noHold = false, noGarbage = false, noMixing = false, noLead = false,
       noRefine = false;
  fs::path plates, shown;
  std::string only;
  app.add_option("--every", every, "Only every Nth plate")->check(CLI::Range(1, 9999));
  app.add_option("--from", from, "Begin with this plate, 0 the first")->check(CLI::Range(0, 9999));
  app.add_flag("--each", each, "A line for each plate, and what was chosen for it");
  app.add_option("--only", only, "Only plates whose names hold this");
  app.add_option("--show", shown, "Write mattes and composites over red into this folder")
      ->check(CLI::ExistingDirectory);
  app.add_flag("--no-hold", noHold, "Hold nothing that is surely solid");
  app.add_flag("--no-garbage", noGarbage, "Cut nothing that is surely screen");
  app.add_flag("--no-mixing", noMixing, "Video encoding throughout");
  app.add_flag("--no-lead", noLead, "Colour not led by light");
  app.add_flag("--no-refine", noRefine, "Edges not led by colour");
  app.add_option("PLATES", plates, "The folder of plates")
      ->required()
      ->check(CLI::ExistingDirectory);
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    fmt::print(stderr, "orvanite-quality: {}\n", error.what());
    return 2;
  }
  KeyWishes wishes;
  wishes.holdOut = !noHold;
  wishes.garbage = !noGarbage;
  wishes.mixing = !noMixing;
  wishes.lead = !noLead;
  std::vector<fs::path> folders;
  for (const auto& entry : fs::directory_iterator(plates)) {
    if (entry.is_directory()) folders.push_back(entry.path());
  }
  std::sort(folders.begin(), folders.end());
  std::vector<fs::path> chosen;
  for (std::size_t i = static_cast<std::size_t>(from); i < folders.size();
       i += static_cast<std::size_t>(every)) {
    if (only.empty() || folders[i].filename().string().find(only) != std::string::npos)
      chosen.push_back(folders[i]);
  }
  std::vector<Row> rows(chosen.size());
  tbb::parallel_for(std::size_t{0}, chosen.size(), [&](std::size_t i) {
    rows[i] = keyPlate(chosen[i], wishes, !noRefine, shown);
  });
  if (each) {
    for (const Row& r : rows) {
      fmt::print(
          "{:24} {:6.2f} {:6.2f} {:6.2f} {:6.2f}  {:5.0f} ms {}\n    {} {} {} {} {} {} {} {}\n",
          r.name, r.score.matte, r.score.soft, r.score.colour, r.score.edge, r.milliseconds,
          r.chosen, r.levels.value("screen", ""), r.levels.value("light", ""),
          r.levels.value("mix", ""), r.levels.value("noise", ""), r.levels.value("file", ""),
          r.levels.value("spill", ""), r.levels.value("motion", ""), r.levels.value("frame", ""));
    }
  }
  const auto line = [](const std::string& factor, const std::string& level,
                       const std::vector<const Row*>& some) {
    Score s;
    int refused = 0, above = 0;
    const double n = static_cast<double>(some.size());
    for (const Row* r : some) {
      s.matte += r->score.matte / n;
      s.soft += r->score.soft / n;
      s.colour += r->score.colour / n;
      s.edge += r->score.edge / n;
      refused += !r->keyed;
      above += r->score.matte > 3;
    }
    fmt::print("{:8} {:14} {:7.2f} {:7.2f} {:7.2f} {:7.2f}  {:4} {:4} {:4}\n", factor, level,
               s.matte, s.soft, s.colour, s.edge, some.size(), refused, above);
  };
  std::vector<const Row*> all;
  for (const Row& r : rows) all.push_back(&r);
  for (const char* factor :
       {"screen", "light", "mix", "noise", "file", "spill", "motion", "frame", "subject"}) {
    std::map<std::string, std::vector<const Row*>> levels;
    for (const Row& r : rows) levels[r.levels.value(factor, std::string())].push_back(&r);
    if (levels.size() < 2) continue;
    for (const auto& [level, some] : levels)
      line(factor, fs::path(level).filename().string(), some);
  }
  line("all", "", all);
  return 0;
} catch (const std::exception& error) {
  fmt::print(stderr, "orvanite-quality: {}\n", error.what());
  return 1;
}
