// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures through the application's own nodes: files in and out, requests, domains.
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "media/PictureWriter.h"
#include "platform/NRiCmplr.h"
#include "platform/NRiError.h"
#include "platform/NRiNadic.h"
#include "platform/nodes/NRiConstant.h"
#include "platform/nodes/NRiFileIn.h"
#include "platform/nodes/NRiFileOut.h"
#include "platform/nodes/NRiNodes.h"

namespace {

namespace fs = std::filesystem;

class Rendering : public testing::Test {
 protected:
  void SetUp() override {
    NRiNodes::declare();
    folder_ = fs::temp_directory_path() / ("orvanite_render_" + std::to_string(::getpid()));
    fs::create_directories(folder_);
  }
  void TearDown() override {
    NRiNode::getRoot()->deleteChildren();
    fs::remove_all(folder_);
  }

  std::string path(const char* name) const { return (folder_ / name).string(); }

  // Runs a script in which @ stands for the folder.
  NRiValue run(std::string text) const {
    for (std::size_t at = 0; (at = text.find('@', at)) != std::string::npos;) {
      text.replace(at, 1, folder_.string());
    }
    NRiCmplr compiler;
    NRiValue value;
    compiler.execute(NRiScope::getGlobal(), NRiType::null, value, NRiName(std::string_view(text)),
                     NRiName("test"));
    for (const std::string& error : compiler.errors()) ADD_FAILURE() << error;
    return value;
  }

  fs::path folder_;
};

NRiFx& nodeOf(const NRiValue& value) { return dynamic_cast<NRiFx&>(*value.image->owner()); }

// Has the present frame written, as a front end does, and returns its path.
std::string written(NRiFileOut& out) {
  const std::string path = out.checkedPath();
  orvanite::media::writePicture(out.rendered(), path);
  return path;
}

// Writes a picture whose channel i is (10 y + x + 50 i) / 255.
void writeFile(const std::string& path, OIIO::ImageSpec spec) {
  std::vector<float> samples;
  for (int y = 0; y < spec.height; ++y) {
    for (int x = 0; x < spec.width; ++x) {
      for (int i = 0; i < spec.nchannels; ++i) {
        samples.push_back(static_cast<float>(10 * y + x + 50 * i) / 255.0f);
      }
    }
  }
  spec.attribute("oiio:UnassociatedAlpha", 1);
  const auto out = OIIO::ImageOutput::create(path);
  ASSERT_TRUE(out && out->open(path, spec)) << OIIO::geterror();
  ASSERT_TRUE(out->write_image(OIIO::TypeDesc::FLOAT, samples.data()));
  out->close();
}

std::vector<int> bytesOf(const NRiIBuf& buffer, int x, int y) {
  const auto* at = reinterpret_cast<const unsigned char*>(buffer.at(x, y));
  return {at[0], at[1], at[2], at[3]};
}

TEST_F(Rendering, FilesCarryTheirChannelsDepthsAndOrder) {
  writeFile(path("four.png"), OIIO::ImageSpec(3, 2, 4, OIIO::TypeDesc::UINT8));
  const NRiValue four = run("x = FileIn(\"@/four.png\");");
  EXPECT_EQ(four.image->channels()->asInt(), 15);
  EXPECT_EQ(four.image->bytes()->asInt(), 1);
  four.image->setRequest(15);
  // alpha 150, blue 100, green 50, red 0, each + 10 y + x
  EXPECT_EQ(bytesOf(nodeOf(four).renderWhole({0, 0, 3, 2}), 2, 1),
            (std::vector<int>{162, 112, 62, 12}));

  writeFile(path("three.tif"), OIIO::ImageSpec(3, 2, 3, OIIO::TypeDesc::UINT16));
  const NRiValue three = run("x = FileIn(\"@/three.tif\");");
  EXPECT_EQ(three.image->channels()->asInt(), 14);
  EXPECT_EQ(three.image->bytes()->asInt(), 2);

  writeFile(path("grey.png"), OIIO::ImageSpec(3, 2, 1, OIIO::TypeDesc::UINT8));
  const NRiValue grey = run("x = FileIn(\"@/grey.png\");");
  EXPECT_EQ(bytesOf(nodeOf(grey).renderWhole({0, 0, 3, 2}), 1, 1),
            (std::vector<int>{255, 11, 11, 11}));
}

TEST_F(Rendering, ADataWindowIsTheDomainOfDefinition) {
  OIIO::ImageSpec spec(3, 2, 4, OIIO::TypeDesc::FLOAT);
  spec.x = 12;  // display window 10, 20 .. 17, 25; data window 12, 24 .. 15, 26
  spec.y = 24;
  spec.full_x = 10;
  spec.full_y = 20;
  spec.full_width = 7;
  spec.full_height = 5;
  writeFile(path("window.exr"), spec);
  const NRiValue value = run("x = FileIn(\"@/window.exr\");");
  EXPECT_EQ(value.image->getDod(), (NRiRect{2, 4, 5, 6}));
  EXPECT_EQ(value.image->width()->asInt(), 7);
  EXPECT_EQ(value.image->height()->asInt(), 5);
  NRiIBuf part;
  nodeOf(value).render({0, 0, 7, 5}, part);
  EXPECT_EQ(part.rect(), (NRiRect{2, 4, 5, 5}));  // smaller than the region
  const NRiIBuf whole = nodeOf(value).renderWhole({0, 0, 7, 5});
  float red = 0;
  std::memcpy(&red, whole.at(4, 4) + 12, 4);
  EXPECT_FLOAT_EQ(red, 2.0f / 255.0f);  // the file's third pixel of its first line
  std::memcpy(&red, whole.at(1, 4) + 12, 4);
  EXPECT_EQ(red, 0.0f);
}

TEST_F(Rendering, SequencesFollowTimeAndReadEachFileOnce) {
  for (const int frame : {1, 2}) {
    writeFile(path(("p.000" + std::to_string(frame) + ".png").c_str()),
              OIIO::ImageSpec(2 + frame, 2, 3, OIIO::TypeDesc::UINT8));
  }
  const NRiValue value = run("x = FileIn(\"@/p.####.png\"); y = FileOut(x, \"@/o.#.png\");");
  NRiPlug* const time = NRiNode::getRoot()->getPlug(NRiName("time"));
  auto& out = dynamic_cast<NRiFileOut&>(*value.image->owner());
  for (const int frame : {1, 2}) {
    time->set(static_cast<float>(frame));
    EXPECT_EQ(value.image->width()->asInt(), 2 + frame);
    EXPECT_EQ(written(out), path(("o." + std::to_string(frame) + ".png").c_str()));
  }
  time->set(3.0f);
  try {
    written(out);
    FAIL() << "a missing frame was written";
  } catch (const NRiError& error) {
    EXPECT_NE(std::string(error.what()).find("p.0003.png: no such file"), std::string::npos);
  }
  time->set(2.0f);
  EXPECT_EQ(value.image->image()->evaluations(), 2);  // once a frame, the missing one not counted
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 4);
}

TEST_F(Rendering, WrittenFilesHoldWhatWasRendered) {
  writeFile(path("in.png"), OIIO::ImageSpec(5, 4, 4, OIIO::TypeDesc::UINT8));
  for (const char* const samples : {"auto", "uint16", "float"}) {
    const std::string name = std::string("out_") + samples + ".tif";
    const NRiValue value =
        run("x = FileOut(FileIn(\"@/in.png\"), \"@/" + name + "\", \"" + samples + "\");");
    written(dynamic_cast<NRiFileOut&>(*value.image->owner()));
    OIIO::ImageSpec wish;
    wish.attribute("oiio:UnassociatedAlpha", 1);
    const auto in = OIIO::ImageInput::open(path(name.c_str()), &wish);
    ASSERT_TRUE(in);
    std::vector<unsigned char> pixels(5 * 4 * 4);
    ASSERT_TRUE(in->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, pixels.data()));
    for (int y = 0; y < 4; ++y) {
      for (int x = 0; x < 5; ++x) {
        for (int c = 0; c < 4; ++c) {
          ASSERT_EQ(pixels[static_cast<std::size_t>((y * 5 + x) * 4 + c)], 10 * y + x + 50 * c);
        }
      }
    }
  }
}

TEST_F(Rendering, WhatCannotBeWrittenLeavesTheOldFileAndNoOther) {
  writeFile(path("in.png"), OIIO::ImageSpec(5, 4, 4, OIIO::TypeDesc::UINT8));
  std::ofstream(path("old.png")) << "old";
  const std::pair<const char*, const char*> cases[] = {
      {"x = FileOut(FileIn(\"@/in.png\"), \"@/in.png\");", "is also read, by"},
      {"x = FileOut(FileIn(\"@/in.png\"), \"@/a.unknown\");", "ending of a picture format"},
      {"x = FileOut(FileIn(\"@/in.png\"), \"@/none/a.png\");", "there is no folder"},
      {"x = FileOut(FileIn(\"@/no.png\"), \"@/old.png\");", "no.png: no such file"},
      {"x = FileOut(0, \"@/old.png\");", "has no image"},
      {"x = FileOut(FileIn(\"@/in.png\"), \"@/old.png\", \"tiny\");", "found \"tiny\""},
      {"x = FileOut(Constant(0), \"@/old.png\");", "expected 1 to 65536"},
      {"x = FileOut(Constant(1, 1, 3), \"@/old.png\");", "expected 1, 2 or 4"},
  };
  for (const auto& [script, expected] : cases) {
    const NRiValue value = run(script);
    std::string found;
    try {
      written(dynamic_cast<NRiFileOut&>(*value.image->owner()));
    } catch (const NRiError& error) {
      found = error.what();
    }
    EXPECT_NE(found.find(expected), std::string::npos) << script << " gave: " << found;
    NRiNode::getRoot()->deleteChildren();
  }
  std::ifstream old(path("old.png"));
  std::string text;
  old >> text;
  EXPECT_EQ(text, "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 2);
}

// Four inputs; counts how often it makes pixels.
class Counter : public NRiNadic {
 public:
  Counter() {
    for (const char* const name : {"one", "two"}) addInput(NRiName(name));
  }
  const NRiName& getClassName() const override {
    static const NRiName name("Counter");
    return name;
  }
  NRiNode* create() const override { return new Counter; }
  void fillOutputBuffer() override { ++fills; }
  int fills = 0;
};

TEST_F(Rendering, DefaultWiringTakesSizeFromTheFirstInputAndCanBeReleased) {
  const NRiValue small = run("x = Constant(4, 3, 1, 0.2, 0.4, 0.6, 0.8);");
  const NRiValue large = run("y = Constant(8, 9, 2);");
  Counter node;
  node.getInput(0)->connect(small.image);
  node.getInput(1)->connect(large.image);
  NRiIPlug* const out = node.getOutput();
  EXPECT_EQ(out->width()->asInt(), 4);
  EXPECT_EQ(out->bytes()->asInt(), 2);
  EXPECT_EQ(out->getDod(), (NRiRect{0, 0, 8, 9}));
  NRiBPixel pixel;
  out->getBPixel(pixel);
  EXPECT_EQ(pixel.red, 51.0f / 255.0f);
  out->setRequest(9);
  EXPECT_EQ(small.image->requested()->asInt(), 9);
  out->setRequest(0);
  EXPECT_EQ(small.image->requested()->asInt(), 0);
  out->width()->connect(nullptr);
  EXPECT_EQ(out->width()->asInt(), 0);  // nobody works it out now
}

TEST_F(Rendering, APictureWithSeveralReadersIsMadeOnce) {
  const NRiValue source = run("x = Constant(4, 3);");
  auto* const middle = new Counter;
  middle->setParent(NRiNode::getRoot());
  middle->getInput(0)->connect(source.image);
  Counter last;
  last.getInput(0)->connect(middle->getOutput());
  last.getInput(1)->connect(middle->getOutput());
  last.getOutput()->setRequest(15);
  const NRiIBuf first = last.renderWhole(last.format());
  EXPECT_EQ(middle->fills, 1);
  EXPECT_EQ(bytesOf(first, 3, 2), (std::vector<int>{255, 0, 0, 0}));
  source.image->owner()->getPlug(NRiName("red"))->set(1.0f);
  const NRiIBuf second = last.renderWhole(last.format());
  EXPECT_EQ(middle->fills, 2);
  EXPECT_EQ(bytesOf(second, 3, 2), (std::vector<int>{255, 255, 255, 255}));  // they follow red
}

}  // namespace
