// SPDX-License-Identifier: BSD-3-Clause
//
// What a request for a picture keys, told by how often it asks whether it is still wanted: once
// before it begins, and once for each frame of these, which are one band high.
#include "apps/view/Renderer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace orvanite::view {
namespace {

namespace files = std::filesystem;

constexpr int width = 96, height = 64;

/// A ball before a green screen, and a grey background, as files without alpha, which are opaque.
class Files {
 public:
  Files() {
    std::string name = (files::temp_directory_path() / "orvanite-renderer-XXXXXX").string();
    folder_ = ::mkdtemp(name.data());
    for (const Role role : {Role::plate, Role::background}) {
      std::string file = "P6 96 64 255\n";
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          const bool ball = (x - 48) * (x - 48) + (y - 32) * (y - 32) < 20 * 20;
          const int red = 30 + (x * 7 + y * 13) % 5;
          file += role == Role::background ? "\x50\x60\x70"
                  : ball                   ? "\x60\x40\x30"
                                           : std::string{static_cast<char>(red), '\x7f', '\x32'};
        }
      }
      const files::path path = folder_ / (std::to_string(static_cast<int>(role)) + ".ppm");
      std::ofstream(path, std::ios::binary) << file;
      shot.clips[role] = {path.string()};
    }
  }
  ~Files() { files::remove_all(folder_); }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  shot::ShotFiles shot;

 private:
  files::path folder_;
};

TEST(Renderer, KeysTheFrameOnceForAPictureAndItsMeasure) {
  const Files files;
  Footage footage(files.shot, std::size_t{1} << 26);
  Renderer renderer(footage);

  for (const char* estimate : {"off", "codes"}) {
    Settings settings;
    settings.setText("colourspace", "video");
    settings.setText("screen", "0.125,0.5,0.2");
    settings.setText("screenRange", "0.1");
    settings.setText("estimate", estimate);
    std::optional<MatteMeasure> whole;
    for (const PageView view : {PageView::matte, PageView::composite, PageView::overGrey}) {
      for (const media::Window& part : {media::Window{0, 0, width, height}, {16, 16, 64, 32}}) {
        PictureRequest request;
        request.settings = settings;
        request.view = view;
        request.window = part;
        request.measured = true;
        int asked = 0;
        const auto rendered = renderer.render(request, [&] {
          ++asked;
          return true;
        });
        request.measured = false;
        const auto plain = renderer.render(request, [] { return true; });
        const std::string what = std::string("estimate ") + estimate + ", view " +
                                 std::to_string(static_cast<int>(view)) + ", from column " +
                                 std::to_string(part.x);
        ASSERT_TRUE(plain && rendered && rendered->measure) << what;
        // A frame beside estimates is kept for its parts.
        EXPECT_EQ(asked, settings.text("estimate") == "codes" && part.x > 0 ? 1 : 2) << what;
        EXPECT_EQ(rendered->picture.rgba, plain->picture.rgba) << what;
        const MatteMeasure& measure = *rendered->measure;
        EXPECT_EQ(measure.clear + measure.between + measure.solid, std::uint64_t{width} * height);
        EXPECT_GT(measure.clear, 4000U) << what;  // 6144 pixels, of which the ball has 1257
        EXPECT_GT(measure.solid, 1000U) << what;
        if (!whole) whole = measure;
        EXPECT_EQ(measure.bins, whole->bins) << what;
      }
    }
  }
}

TEST(Footage, EstimatesAnewWhereTheScreenGivenHasItsChannelsInAnotherOrder) {
  const Files files;
  Footage footage(files.shot, std::size_t{1} << 26);
  Settings settings;
  settings.setText("estimate", "codes");
  settings.setText("colourspace", "video");
  const auto found = footage.estimates(settings, 1, 1);
  EXPECT_EQ(found->screen.primary, 1);
  settings.setText("screen", "0.1,0.6,0.2");
  settings.setText("screenRange", "0.2");
  EXPECT_EQ(footage.estimates(settings, 1, 1), found) << "the order that was found: nothing to do";
  settings.setText("screen", "0.1,0.2,0.6");
  EXPECT_EQ(footage.estimates(settings, 1, 1)->screen.primary, 2);
  settings.reset("screen");
  EXPECT_EQ(footage.estimates(settings, 1, 1)->screen.primary, 1);
}

}  // namespace
}  // namespace orvanite::view
