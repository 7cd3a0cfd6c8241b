// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key` on sequences: the same bytes as stills, times that line up, and every way in which
// a shot can stop.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

using namespace std::chrono_literals;

// Flat pictures: frame n is n in every channel.
void writeCounter(const Folder& folder, const std::string& name, int first, int last) {
  for (int frame = first; frame <= last; ++frame) {
    Image image = randomImage(24, 16, 3, OIIO::TypeDesc::UINT8, 1);
    std::fill(image.samples.begin(), image.samples.end(), static_cast<float>(frame));
    write(image, folder / frameFile(name, frame));
  }
}

bool isWhole(const std::string& file) {
  try {
    return !read(file).samples.empty();
  } catch (const std::exception&) {
    return false;
  }
}

TEST(Shot, EveryWayToNameItGivesTheBytesOfStills) {
  const Folder plates;
  const Folder folder;
  writeShot(plates, "fg", 8, 11);
  for (int frame = 8; frame <= 11; ++frame) {
    ASSERT_EQ(orvanite(blueKey({"-q", plates / frameFile("fg", frame), "-o",
                                folder / frameFile("still", frame)}))
                  .code,
              0);
  }
  const std::string inputs[] = {plates / "fg.####.png", plates / "fg.%04d.png",
                                plates / "fg.@@@@.png", plates.path().string()};
  for (const std::string& input : inputs) {
    const Folder out;
    const Outcome outcome =
        orvanite(blueKey({input, "-o", out / "out.####.png", "--threads", "3"}));
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    for (int frame = 8; frame <= 11; ++frame) {
      EXPECT_EQ(read(out / frameFile("out", frame)).samples,
                read(folder / frameFile("still", frame)).samples)
          << input << " frame " << frame;
    }
  }
  const Folder out;
  ASSERT_EQ(
      orvanite(blueKey({"-q", inputs[0], "-o", out / "o.%d.png", "--frames", "9,11-40"})).code, 0);
  EXPECT_EQ(out.names(), (std::vector<std::string>{"o.11.png", "o.9.png"}));
  const Outcome past =
      orvanite(blueKey({"-q", inputs[0], "-o", out / "o.%d.png", "--frames", "12-20"}));
  EXPECT_EQ(past.code, 3);
  EXPECT_NE(past.err.find("the shot has frames 8 to 11, none of 12-20"), std::string::npos)
      << past.err;
}

TEST(Shot, SidePicturesFollowTheirOffsetsAndPastTheirEndsWhatWasAsked) {
  const Folder folder;
  writeShot(folder, "fg", 1, 6);
  writeCounter(folder, "bg", 11, 13);
  // All garbage: the output is the background.
  Image white = randomImage(24, 16, 1, OIIO::TypeDesc::UINT8, 1);
  std::fill(white.samples.begin(), white.samples.end(), 255.0f);
  write(white, folder / "white.png");
  struct Case {
    const char *time, *offset;
    std::vector<float> shown;  // at the plate's frames 1 to 6
  };
  const Case cases[] = {{"hold", "10", {11, 12, 13, 13, 13, 13}},
                        {"loop", "10", {11, 12, 13, 11, 12, 13}},
                        {"black", "9", {0, 11, 12, 13, 0, 0}},
                        {"loop", "9", {13, 11, 12, 13, 11, 12}},
                        {"hold", "0", {11, 11, 11, 11, 11, 11}}};
  for (const Case& one : cases) {
    const Folder out;
    const Outcome outcome =
        orvanite(blueKey({"-q", folder / "fg.####.png", "--bg", folder / "bg.####.png", "--garbage",
                          folder / "white.png", "--cspace", "linear", "--bg-time", one.time,
                          "--bg-frame-offset", one.offset, "-o", out / "o.####.png"}));
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    for (int frame = 1; frame <= 6; ++frame) {
      EXPECT_EQ(read(out / frameFile("o", frame)).samples[0],
                one.shown[static_cast<std::size_t>(frame - 1)])
          << one.time << ' ' << one.offset << " frame " << frame;
    }
  }
}

TEST(Shot, DrawnMasksAreMattesThatMoveWithTheirKeys) {
  // Garbage from a column on in the upper half, hold-out in the lower one; at frames 1 to 4 the
  // column is 4, 8, 12 and 12. Painted mattes of the same say what must come out.
  const Folder folder;
  writeShot(folder, "fg", 1, 4);
  const auto painted = [&](const std::string& name, int top, int frame, int column) {
    Image matte = randomImage(24, 16, 1, OIIO::TypeDesc::UINT8, 1);
    for (int i = 0; i < 24 * 16; ++i) {
      const bool white = i / 24 >= top && i / 24 < top + 8 && i % 24 >= column;
      matte.samples[static_cast<std::size_t>(i)] = white ? 255 : 0;
    }
    write(matte, folder / frameFile(name, frame));
  };
  for (const auto& [frame, column] : {std::pair{1, 4}, {2, 8}, {3, 12}, {4, 12}}) {
    painted("garbage", 0, frame, column);
    painted("hold", 8, frame, column);
  }
  std::ofstream(folder / "masks.json")
      << R"({"orvanite": "masks", "version": 1, "shapes": [{"kind": "polygon", "soft": 0, "keys": [
           {"frame": 1, "points": [[4, 0], [99, 0], [99, 8], [4, 8]]},
           {"frame": 3, "points": [[12, 0], [99, 0], [99, 8], [12, 8]]}]},
         {"kind": "polygon", "use": "holdOut", "soft": 0, "keys": [
           {"frame": 1, "points": [[4, 8], [99, 8], [99, 16], [4, 16]]},
           {"frame": 3, "points": [[12, 8], [99, 8], [99, 16], [12, 16]]}]}]})";
  const auto key = [&](const std::string& options, const std::string& name) {
    const Outcome outcome = orvanite(
        words(folder, blueKeyWords + "-q @fg.####.png " + options + " -o @" + name + ".####.png"));
    ASSERT_EQ(outcome.code, 0) << outcome.err;
  };
  key("--garbage @garbage.####.png --hold-out @hold.####.png", "painted");
  key("--masks @masks.json", "drawn");
  key("--masks @masks.json --frames 2", "alone");
  // Beside mattes of the same nothing changes; a matte of another frame is joined.
  key("--masks @masks.json --garbage @garbage.####.png --hold-out @hold.####.png", "both");
  key("", "without");
  for (int frame = 1; frame <= 4; ++frame) {
    const auto samples = [&](const char* name) {
      return read(folder / frameFile(name, frame)).samples;
    };
    EXPECT_EQ(samples("drawn"), samples("painted")) << frame;
    EXPECT_EQ(samples("both"), samples("painted")) << frame;
    EXPECT_NE(samples("without"), samples("painted")) << frame;
  }
  EXPECT_EQ(contents(folder / "alone.0002.png"), contents(folder / "drawn.0002.png"));

  std::ofstream(folder / "bad.json")
      << R"({"orvanite": "masks", "version": 1, "shapes": [{"kind": "brush", "keys": [{}]}]})";
  for (const auto& [name, code, said] :
       {std::tuple{"bad.json", 1, "bad.json: shapes[0].keys[0].frame: expected a frame's number"},
        {"none.json", 1, "none.json: there are no such masks"}}) {
    const Outcome outcome = orvanite(words(
        folder, std::string("key -q @fg.####.png -o @no.####.png --screen blue --masks @") + name));
    EXPECT_EQ(outcome.code, code) << outcome.err;
    EXPECT_NE(outcome.err.find(said), std::string::npos) << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(folder / "no.0001.png"));
  }
}

TEST(Shot, WritesSeveralViewsInOnePass) {
  const Folder folder;
  const Folder out;
  writeShot(folder, "fg", 1, 2);
  ASSERT_EQ(orvanite(blueKey({"-q", folder / "fg.#.png", "-o", out / "c.#.png", "--matte-output",
                              out / "m.#.png", "--status-output", out / "s.#.png",
                              "--foreground-output", out / "f.#.png"}))
                .code,
            3);  // the files have four digits
  ASSERT_EQ(orvanite(blueKey({"-q", folder / "fg.####.png", "-o", out / "c.#.png", "--matte-output",
                              out / "m.#.png", "--status-output", out / "s.#.png",
                              "--foreground-output", out / "f.#.png"}))
                .code,
            0);
  const std::pair<const char*, const char*> views[] = {
      {"c", "composite"}, {"m", "matte"}, {"s", "status"}, {"f", "unpremultiplied"}};
  for (const auto& [name, view] : views) {
    ASSERT_EQ(
        orvanite(blueKey({"-q", folder / "fg.0002.png", "--output", view, "-o", out / "alone.png"}))
            .code,
        0);
    EXPECT_EQ(read(out / (std::string(name) + ".2.png")).samples, read(out / "alone.png").samples)
        << view;
  }
}

TEST(Shot, ABrokenFrameIsNamedTheOthersAreWholeAndAResumeCompletesIt) {
  struct Case {
    const char* what;
    int code;
    const char* message;
  };
  for (const Case& one :
       {Case{"missing", 3, "frame 3: "}, Case{"cut", 4, "frame 3: "},
        Case{"other size", 4, "expected a frame of the shot's size 24x16, found 8x8"}}) {
    SCOPED_TRACE(one.what);
    const Folder folder;
    const Folder out;
    writeShot(folder, "fg", 1, 6);
    const std::string third = folder / "fg.0003.png";
    const std::string kept = folder / "kept.png";
    std::filesystem::copy_file(third, kept);
    if (std::string(one.what) == "missing") std::filesystem::remove(third);
    if (std::string(one.what) == "cut") std::filesystem::resize_file(third, 300);
    if (std::string(one.what) == "other size")
      write(randomImage(8, 8, 3, OIIO::TypeDesc::UINT8, 1), third);
    const std::vector<std::string> command =
        blueKey({"-q", folder / "fg.####.png", "-o", out / "o.####.png"});
    const Outcome stopped = orvanite(command);
    EXPECT_EQ(stopped.code, one.code) << stopped.err;
    EXPECT_NE(stopped.err.find(one.message), std::string::npos) << stopped.err;
    EXPECT_NE(stopped.err.find("--skip-existing"), std::string::npos) << stopped.err;
    for (const std::string& name : out.names()) EXPECT_TRUE(isWhole(out / name)) << name;
    EXPECT_FALSE(std::filesystem::exists(out / "o.0003.png"));

    auto goOn = command;
    goOn.push_back("--keep-going");
    EXPECT_EQ(orvanite(goOn).code, one.code);
    EXPECT_EQ(out.names().size(), 5U);

    std::filesystem::copy_file(kept, third, std::filesystem::copy_options::overwrite_existing);
    const auto untouched = std::filesystem::last_write_time(out / "o.0001.png");
    auto resume = command;
    resume.push_back("--skip-existing");
    EXPECT_EQ(orvanite(resume).code, 0);
    EXPECT_EQ(out.names().size(), 6U);
    EXPECT_EQ(std::filesystem::last_write_time(out / "o.0001.png"), untouched);
  }
}

TEST(Shot, AResumeMakesAgainWhatIsThereButNotWhole) {
  const Folder folder;
  writeShot(folder, "fg", 1, 4);
  const std::string key = "key --screen=0,0,0.9 @fg.####.png -o @o.####.png --skip-existing";
  ASSERT_EQ(orvanite(folder, key).code, 0);
  std::vector<std::vector<float>> first;
  for (int frame = 1; frame <= 4; ++frame) {
    first.push_back(read(folder / frameFile("o", frame)).samples);
  }
  std::filesystem::resize_file(folder / "o.0002.png",
                               std::filesystem::file_size(folder / "o.0002.png") - 20);
  write(randomImage(24, 15, 4, OIIO::TypeDesc::UINT8, 1), folder / "o.0003.png");
  write(randomImage(24, 16, 3, OIIO::TypeDesc::UINT8, 1), folder / "o.0004.png");
  const auto untouched = std::filesystem::last_write_time(folder / "o.0001.png");
  const Outcome again = orvanite(folder, key);
  EXPECT_EQ(again.code, 0) << again.err;
  for (const char* said : {"o.0002.png: ", "o.0003.png: of 24x15 pixels, not 24x16; made again",
                           "o.0004.png: without alpha; made again"}) {
    EXPECT_NE(again.err.find(said), std::string::npos) << said << '\n' << again.err;
  }
  EXPECT_EQ(again.err.find("o.0001.png"), std::string::npos) << again.err;
  EXPECT_EQ(std::filesystem::last_write_time(folder / "o.0001.png"), untouched);
  for (int frame = 1; frame <= 4; ++frame) {
    EXPECT_EQ(read(folder / frameFile("o", frame)).samples,
              first[static_cast<std::size_t>(frame - 1)]);
  }
}

TEST(Shot, FramesBeforeZeroAreFrames) {
  const Folder folder;
  // A sign takes one of the digits, as printf writes it.
  for (const char* name : {"fg.-002.png", "fg.-001.png", "fg.0000.png"}) {
    write(randomImage(24, 16, 3, OIIO::TypeDesc::UINT8, 1), folder / name);
  }
  const std::string key = "key -q --screen=0,0,0.9 @fg.####.png -o @";
  EXPECT_EQ(orvanite(folder, key + "a.####.png").code, 0);
  EXPECT_EQ(orvanite(folder, key + "b.%03d.png --frames -5--1").code, 0);
  EXPECT_EQ(folder.names(),
            (std::vector<std::string>{"a.-001.png", "a.-002.png", "a.0000.png", "b.-01.png",
                                      "b.-02.png", "fg.-001.png", "fg.-002.png", "fg.0000.png"}));
}

// What keys fg.####.png to o.####.png: by options, and by a script.
std::vector<std::vector<std::string>> commandsFor(const Folder& folder, const Folder& out) {
  std::ofstream(folder / "s.orv") << "o = FileOut(Orvanite(FileIn(\"" + (folder / "fg.####.png") +
                                         "\")), \"" + (out / "o.####.png") + "\");\n";
  return {{"key", "-q", "--threads", "1", "--keep-going", "--screen", "0,1,0", "--skip-existing",
           folder / "fg.####.png", "-o", out / "o.####.png"},
          {"run", "-q", "--threads", "1", "--frames", "1-6", "--skip-existing", folder / "s.orv"}};
}

TEST(Shot, AFullOrReadOnlyDiskIsToldWithItsFrameAndAResumeCompletesTheShot) {
  const Folder folder;
  writeShot(folder, "fg", 1, 6, 160, 120);  // 160 x 120 x 3 random bytes: 56 KiB a frame
  for (const std::size_t i : {0U, 1U}) {
    SmallDisk disk("200k");
    if (!disk.made) GTEST_SKIP() << "only root can make a small disk";
    const std::vector<std::string> command = commandsFor(folder, disk)[i];
    SCOPED_TRACE(command[0]);
    const auto expectFailure = [&](const char* reason) {
      const Outcome outcome = orvanite(command);
      EXPECT_EQ(outcome.code, 4);
      EXPECT_NE(outcome.err.find(reason), std::string::npos) << outcome.err;
      EXPECT_EQ(outcome.err.rfind("orvanite: frame ", 0), 0U) << outcome.err;
      EXPECT_GE(disk.names().size(), 1U);
      EXPECT_LE(disk.names().size(), 3U);
      for (const std::string& name : disk.names()) EXPECT_TRUE(isWhole(disk / name)) << name;
    };
    expectFailure("cannot be written: No space left on device");
    ASSERT_TRUE(disk.remount("4m", MS_RDONLY));
    expectFailure("Read-only file system");
    ASSERT_TRUE(disk.remount("4m"));
    EXPECT_EQ(orvanite(command).code, 0);
    EXPECT_EQ(disk.names().size(), 6U);
    for (const std::string& name : disk.names()) EXPECT_TRUE(isWhole(disk / name)) << name;
  }
}

// Frame 2 is no picture, and nobody reads that error until the frames behind it have changed: the
// command waits there.
TEST(Shot, FramesThatVanishOrShrinkWhileItRunsAreNamedAndTheOthersWhole) {
  for (const std::size_t i : {0U, 1U}) {
    const Folder folder;
    const Folder out;
    const std::vector<std::string> command = commandsFor(folder, out)[i];
    SCOPED_TRACE(command[0]);
    writeShot(folder, "fg", 1, 6);
    std::filesystem::remove(folder / "fg.0002.png");
    ASSERT_EQ(::mkfifo((folder / "fg.0002.png").c_str(), 0600), 0);
    FullPipe errors;
    const pid_t child = start(command, errors.end());
    for (int wait = 0; wait < 60'000 && !std::filesystem::exists(out / "o.0001.png"); ++wait) {
      std::this_thread::sleep_for(1ms);
    }
    std::filesystem::remove(folder / "fg.0004.png");
    std::filesystem::resize_file(folder / "fg.0005.png", 300);
    const std::string said = errors.read();
    EXPECT_EQ(waitFor(child), 4);
    for (const char* frame : {"2", "4", "5"}) {
      const std::string line =
          std::string("orvanite: frame ") + frame + ": " + (folder / "fg.000") + frame + ".png: ";
      EXPECT_NE(said.find(line), std::string::npos) << said;
    }
    EXPECT_EQ(out.names(), (std::vector<std::string>{"o.0001.png", "o.0003.png", "o.0006.png"}));
    for (const std::string& name : out.names()) EXPECT_TRUE(isWhole(out / name)) << name;
  }
}

TEST(Shot, StoppedAtAnyMomentItLeavesWholeFilesAndResumes) {
  const Folder folder;
  writeShot(folder, "fg", 1, 40, 160, 120);
  const std::string script = folder / "s.orv";
#ifdef ORVANITE_WITH_NODE
  const bool scripts = true;  // every other round is a script's
  ASSERT_EQ(orvanite(blueKey({"-q", folder / "fg.####.png", "--frames", "1", "-o",
                              folder / "o.####.png", "--save-script", script}))
                .code,
            0);
#else
  const bool scripts = false;
#endif
  std::mt19937 random(5);
  const char* const rounds = std::getenv("ORVANITE_KILL_ROUNDS");
  for (int signal : {SIGKILL, SIGTERM, SIGINT}) {
    for (int round = 0; round < (rounds != nullptr ? std::atoi(rounds) : 4); ++round) {
      const Folder out;
      std::vector<std::string> command =
          scripts && round % 2 == 1
              ? std::vector<std::string>{"run",  script,  "--frames",
                                         "1-40", "--set", "out.path=" + (out / "o.####.png")}
              : blueKey({folder / "fg.####.png", "-o", out / "o.####.png"});
      const pid_t child = start(command);
      // Some rounds at once, some when the first frames are there.
      if (round % 4 > 0) {
        const auto wanted = 3U * static_cast<unsigned>(round % 4);
        for (int i = 0; i < 2000 && out.names().size() < wanted; ++i) {
          std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
      ::kill(child, signal);
      const int code = waitFor(child);
      std::size_t temporary = 0;
      for (const std::string& name : out.names()) {
        if (name.starts_with('.')) {
          ++temporary;
        } else {
          EXPECT_TRUE(isWhole(out / name)) << name << " after signal " << signal;
        }
      }
      if (signal != SIGKILL) {
        EXPECT_EQ(temporary, 0U);
        // A signal before the program has set itself up ends it as usual.
        EXPECT_TRUE(code == 130 || code == 0 || (round % 4 == 0 && code == 128 + signal)) << code;
      }
      command.push_back("--skip-existing");
      EXPECT_EQ(orvanite(command).code, 0);
      for (int frame = 1; frame <= 40; ++frame) EXPECT_TRUE(isWhole(out / frameFile("o", frame)));
      // What a kill left is gone.
      EXPECT_EQ(out.names().size(), 40U);
    }
  }
}

/// A shot of four frames, as stills and as a movie, and what a render of it may go to.
struct Way {
  const char* plate;
  const char* output;
};
constexpr Way ways[] = {{"fg.####.png", "o.####.png"}, {"fg.mkv", "o.mov"}};

void writeFourFrames(const Folder& folder) {
  writeShot(folder, "fg", 1, 4);
  ASSERT_EQ(orvanite(folder, blueKeyWords + "-q --no-key @fg.####.png -o @fg.mkv").code, 0);
}

TEST(Shot, ProgressHasTheFormsThatManagersParse) {
  const Folder folder;
  writeFourFrames(folder);
  for (const Way& way : ways) {
    SCOPED_TRACE(way.output);
    const auto lines = [&](const std::vector<std::string>& more, const Folder& out) {
      std::vector<std::string> command =
          blueKey({folder / way.plate, "--cspace", "video", "-o", out / way.output});
      command.insert(command.end(), more.begin(), more.end());
      return orvanite(command).out;
    };
    EXPECT_EQ(lines({"--progress", "none"}, Folder()), "");
    EXPECT_EQ(lines({"--progress", "alf"}, Folder()),
              "ALF_PROGRESS 25%\nALF_PROGRESS 50%\nALF_PROGRESS 75%\nALF_PROGRESS 100%\n");
    EXPECT_EQ(
        lines({}, Folder())
            .rfind(
                "Progress: 25%\nProgress: 50%\nProgress: 75%\nProgress: 100%\n4 of 4 frames done",
                0),
        0U);
    EXPECT_EQ(
        lines({"--progress", "openjd"}, Folder())
            .rfind("openjd_progress: 25.0\nopenjd_status: frame 1\nopenjd_progress: 50.0\n", 0),
        0U);

    const Folder out;
    for (const char* status : {"done", "skipped"}) {  // the second time it is all there
      std::istringstream json(lines({"--json", "--skip-existing"}, out));
      int frame = 0;
      for (std::string text; std::getline(json, text);) {
        const auto object = nlohmann::json::parse(text);
        if (object.contains("summary")) {
          EXPECT_EQ(object["summary"][status], 4);
        } else {
          EXPECT_EQ(object["frame"], ++frame);
          EXPECT_EQ(object["status"], status);
        }
      }
      EXPECT_EQ(frame, 4);
    }
  }
}

TEST(Shot, ShowsABarOnATerminal) {
  const Folder folder;
  writeFourFrames(folder);
  for (const Way& way : ways) {
    int terminal = -1;
    const std::string plate = folder / way.plate;
    const std::string out = folder / way.output;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
      ::execl(ORVANITE_PROGRAM, "orvanite", "key", plate.c_str(), "--screen", "blue", "-o",
              out.c_str(), nullptr);
      ::_exit(127);
    }
    std::string shown;
    char buffer[4096];
    for (ssize_t count; (count = ::read(terminal, buffer, sizeof buffer)) > 0;)
      shown.append(buffer, static_cast<std::size_t>(count));
    ::close(terminal);
    EXPECT_EQ(waitFor(child), 0);
    EXPECT_NE(shown.find("\r[=======                       ]  25%  frame 1 "), std::string::npos)
        << shown;
    EXPECT_NE(shown.find("100%  frame 4 "), std::string::npos) << shown;
    EXPECT_NE(shown.find("frames/s"), std::string::npos);
    EXPECT_NE(shown.find("left"), std::string::npos);
  }
}

}  // namespace
}  // namespace orvanite::test
