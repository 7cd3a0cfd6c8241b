// SPDX-License-Identifier: BSD-3-Clause
//
// orvanite-plate: writes the scene's pictures into a folder. Thin: options, encoding, files.
// A picture appears under its name only when it is complete.
#include <OpenImageIO/imageio.h>
#include <fmt/format.h>
#include <tbb/parallel_for.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "examples/plate/Scene.h"

namespace {

using namespace orvanite::plate;
namespace fs = std::filesystem;

enum class Depth { eight, sixteen, half };
enum class Kind { colour, matte };

struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void write(const Picture& picture, Kind kind, Depth depth, const fs::path& path) {
  const int channels = kind == Kind::matte ? 1 : 3;
  std::vector<float> samples;
  const auto perPixel = static_cast<std::size_t>(channels);
  const std::size_t perRow = static_cast<std::size_t>(picture.width) * perPixel;
  samples.resize(perRow * static_cast<std::size_t>(picture.height));
  tbb::parallel_for(0, picture.height, [&](int y) {
    float* to = samples.data() + perRow * static_cast<std::size_t>(y);
    const float* from = picture.at(0, y);
    for (std::size_t i = 0; i < perRow; ++i) {
      const float v = from[i / perPixel * 4 + i % perPixel];
      // A matte is a share and bears no encoding.
      to[i] = kind == Kind::colour && depth != Depth::half ? videoCode(v) : v;
    }
  });
  const OIIO::TypeDesc type = depth == Depth::eight     ? OIIO::TypeDesc::UINT8
                              : depth == Depth::sixteen ? OIIO::TypeDesc::UINT16
                                                        : OIIO::TypeDesc::HALF;
  OIIO::ImageSpec spec(picture.width, picture.height, channels, type);
  if (kind == Kind::matte) spec.channelnames = {"Y"};
  spec.attribute("compression", "zip");
  if (depth == Depth::eight) spec.attribute("png:compressionLevel", 4);
  fs::path part = path;
  part.replace_filename("." + path.stem().string() + ".part" + path.extension().string());
  const auto fail = [&](const std::string& why) {
    std::error_code ignored;
    fs::remove(part, ignored);
    throw Failure(fmt::format("{}: {}", path.string(), why));
  };
  auto file = OIIO::ImageOutput::create(part.string());
  if (!file) fail(OIIO::geterror());
  if (!file->open(part.string(), spec)) fail(file->geterror());
  if (!file->write_image(OIIO::TypeDesc::FLOAT, samples.data()) || !file->close())
    fail(file->geterror());
  file.reset();
  std::error_code error;
  fs::rename(part, path, error);
  if (error) fail(error.message());
}

void writeAll(const Pictures& pictures, Depth depth, const fs::path& folder,
              const std::string& number) {
  const char* extension = depth == Depth::eight     ? ".png"
                          : depth == Depth::sixteen ? ".tif"
                                                    : ".exr";
  const struct {
    const char* name;
    const Picture& picture;
    Kind kind;
  } files[] = {
      {"plate", pictures.plate, Kind::colour},
      {"background", pictures.background, Kind::colour},
      {"holdout", pictures.holdOut, Kind::matte},
      {"garbage", pictures.garbage, Kind::matte},
      {"cleanplate", pictures.cleanPlate, Kind::colour},
      {"truematte", pictures.matte, Kind::matte},
      {"trueforeground", pictures.foreground, Kind::colour},
  };
  for (const auto& file : files)
    write(file.picture, file.kind, depth, folder / (file.name + number + extension));
}

/// Two whole numbers with one of `between` between them, such as 1920x1080.
bool parsePair(const std::string& text, char between, int& a, int& b) {
  const auto at = text.find(between);
  if (at == std::string::npos || at == 0 || at + 1 == text.size()) return false;
  const auto number = [](const std::string& digits, int& out) {
    if (digits.empty() || digits.size() > 6 ||
        digits.find_first_not_of("0123456789") != std::string::npos)
      return false;
    out = std::stoi(digits);
    return true;
  };
  return number(text.substr(0, at), a) && number(text.substr(at + 1), b);
}

}  // namespace

int main(int argc, char** argv) try {
  CLI::App app{
      "Draws a green-screen or blue-screen plate whose matte and foreground are known.\n"
      "Writes plate, background, holdout, garbage, cleanplate, truematte and trueforeground.\n"
      "Integer pictures are video-encoded (key them with colour space video), OpenEXR is linear;\n"
      "mattes are plain shares: hold-out 1 is solid, garbage 0 keeps and 1 removes."};
  std::string screen = "green", depthName = "8", size = "1920x1080", frames, folder;
  Options options;
  bool clean = false, hard = false, noGrain = false, noSpill = false;
  app.add_option("--screen", screen, "Colour of the screen")
      ->check(CLI::IsMember({"green", "blue"}))
      ->capture_default_str();
  app.add_option("--size", size, "Width and height in pixels, as WxH, each 1 to 16384")
      ->capture_default_str();
  app.add_option("--depth", depthName, "8 (PNG), 16 (TIFF) or half (OpenEXR)")
      ->check(CLI::IsMember({"8", "16", "half"}))
      ->capture_default_str();
  auto* cleanFlag = app.add_flag("--clean", clean, "An even screen; no shadow, spill or grain");
  app.add_flag("--hard", hard, "A creased, badly lit screen; heavy shadow, spill and grain")
      ->excludes(cleanFlag);
  app.add_flag("--no-spill", noSpill, "Leave out the screen's light on the subject");
  app.add_flag("--no-grain", noGrain, "Leave out the grain");
  auto* frameOption = app.add_option("--frame", options.frame, "The frame to draw, 24 a second")
                          ->check(CLI::Range(0, 999999))
                          ->capture_default_str();
  app.add_option("--frames", frames, "Frames A-B, each under names such as plate.0001.png")
      ->excludes(frameOption);
  app.add_option("OUTDIR", folder, "The folder to write into; it is made if need be")->required();
  app.set_version_flag("--version", "orvanite-plate " ORVANITE_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    fmt::print(stderr, "orvanite-plate: {}\n", error.what());
    return 2;
  }
  if (!parsePair(size, 'x', options.width, options.height) || options.width < 1 ||
      options.height < 1 || options.width > 16384 || options.height > 16384) {
    fmt::print(stderr,
               "orvanite-plate: --size {}: expected WxH, each 1 to 16384, such as 1920x1080\n",
               size);
    return 2;
  }
  int first = options.frame, last = options.frame;
  if (!frames.empty() && (!parsePair(frames, '-', first, last) || first > last)) {
    fmt::print(stderr,
               "orvanite-plate: --frames {}: expected A-B with A not above B, such as 1-24\n",
               frames);
    return 2;
  }
  options.screen = screen == "blue" ? ScreenColour::blue : ScreenColour::green;
  options.difficulty = clean ? Difficulty::clean : hard ? Difficulty::hard : Difficulty::normal;
  options.spill = !noSpill;
  options.grain = !noGrain;
  const Depth depth = depthName == "8"    ? Depth::eight
                      : depthName == "16" ? Depth::sixteen
                                          : Depth::half;

  try {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw Failure(fmt::format("{}: {}", folder, error.message()));
    for (options.frame = first; options.frame <= last; ++options.frame) {
      const auto start = std::chrono::steady_clock::now();
      const Pictures pictures = draw(options);
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      writeAll(pictures, depth, folder, frames.empty() ? "" : fmt::format(".{:04}", options.frame));
      fmt::print("frame {}: {}x{} drawn in {:.2f} s\n", options.frame, options.width,
                 options.height, took.count());
    }
    const Colour key = screenColour(options.screen, depth != Depth::half);
    fmt::print("screen colour {:.4f},{:.4f},{:.4f} ({})\n", key.r, key.g, key.b,
               depth == Depth::half ? "linear" : "video");
  } catch (const std::bad_alloc&) {
    fmt::print(stderr, "orvanite-plate: out of memory for {}x{} pixels\n", options.width,
               options.height);
    return 1;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "orvanite-plate: {}\n", failure.what());
    return 1;
  }
  return 0;
} catch (const std::exception& failure) {  // of what was asked, or of telling it
  std::fprintf(stderr, "orvanite-plate: %s\n", failure.what());
  return 1;
}
