// SPDX-License-Identifier: BSD-3-Clause
//
// The help of `orvanite key` is read by people, by the manual page and by the shells' completion.
#include "apps/cli/KeyOptions.h"

#include <CLI/CLI.hpp>

namespace orvanite::cli {

void KeyOptions::addTo(CLI::App& command) {
  command.add_option(
      "PLATE", plates,
      "What to key: a picture (PNG, JPEG, OpenEXR, TIFF, DPX and others), a numbered "
      "sequence (plate.####.exr, plate.%04d.exr, plate.@@@@.exr), a folder of one, or a "
      "movie that FFmpeg decodes, whose frames count from 1. Several go into a folder: -o keyed/.");
  const auto text = [&](const char* group, const char* type, const char* names, std::string& to,
                        const char* help) {
    command.add_option(names, to, help)->group(group)->type_name(type)->take_last();
  };
  const auto number = [&](const char* group, const char* names, int& to, const char* help) {
    command.add_option(names, to, help)->group(group)->type_name("N")->take_last();
  };
  const auto flag = [&](const char* group, const char* names, bool& to, const char* help) {
    command.add_flag(names, to, help)->group(group);
  };
  const char* files = "Files";
  text(
      files, "FILE", "-o,--out", output,
      "Where to write; the ending says the format, a shot needs a pattern or a movie's name. Files "
      "appear when they are whole. [required]");
  text(files, "FILE|COLOUR", "--bg,--background", background,
       "Background: a picture or movie of any size, or a colour such as '#202830' for a flat one.");
  text(files, "HOW", "--bg-fit", backgroundFit,
       "How a background of another size lies in the plate's frame: fill (its shape kept, what "
       "reaches beyond is cut), fit, stretch or none. [default fill]");
  text(files, "SPACE", "--bg-colourspace", backgroundColourspace,
       "The background's encoding where its file does not say it: linear, log or video. It is "
       "brought to the plate's. [default as the file says]");
  text(files, "FILE", "--hold-out", holdOut, "Hold-out matte: white keeps the foreground.");
  text(files, "FILE", "--garbage", garbage, "Garbage matte: white cuts away.");
  text(files, "FILE", "--masks", masks,
       "Masks that were drawn on the page of orvanite view: garbage and hold-out, keyed by frame. "
       "They join the mattes, of which the greater counts.");
  const auto shapes = [&](const char* type, const char* name, std::vector<std::string>& to,
                          const char* help) {
    command.add_option(name, to, help)->group(files)->type_name(type)->expected(1)->take_all();
  };
  shapes("X,Y,W,H", "--garbage-rect", garbageRects,
         "Cuts what lies in a rectangle, in pixels from the frame's top left. May be given several "
         "times.");
  shapes("X,Y,X,Y,...", "--garbage-polygon", garbagePolygons,
         "The same for a polygon of three corners or more.");
  command
      .add_option("--garbage-soft", garbageSoft,
                  "Width of the edge of rectangles and polygons. [pixels 0 to 1000, default 1]")
      ->group(files)
      ->type_name("X")
      ->take_last();
  flag(files, "--garbage-outside", garbageOutside,
       "Rectangles and polygons cut what lies outside of them. [default off]");
  text(files, "FILE", "--reference", reference,
       "Clean plate: the screen without the subject (8- and 16-bit plates); auto estimates it from "
       "the plate.");
  text(files, "FILE", "--matte-output", matteOutput, "Writes the matte as well.");
  text(files, "FILE", "--status-output", statusOutput, "Writes the status as well.");
  text(files, "FILE", "--foreground-output", foregroundOutput,
       "Writes the unpremultiplied foreground as well.");
  text(files, "FILE", "--save-reference", saveReference,
       "Writes the clean plate that the key estimates, for --reference of another run; of a shot "
       "one for each frame.");
  text(files, "FILE", "--save-hold-out", saveHoldOut, "The same of the estimated hold-out matte.");
  text(files, "FILE", "--save-garbage", saveGarbage, "The same of the estimated garbage matte.");
  text(
      files, "WHAT", "--alpha", alpha,
      "What the file has beside the colours of its view: matte, premultiplied (the matte, and the "
      "colours multiplied by it) or none (opaque). [default matte for unpremultiplied, else none]");
  flag(files, "--premultiply", premultiply,
       "The same as --alpha premultiplied, for the output unpremultiplied. [default off]");
  text(files, "FILE", "--preset", preset, "Parameters from a preset; options go over it.");
  text(files, "FILE", "--save-preset", savePreset, "Writes all parameters in force as a preset.");
  text(files, "FILE", "--save-script", saveScript,
       "Writes the graph as a script that orvanite run renders to the same pixels.");

  reading.addTo(command, files);
  movie.addTo(command, "Movies");

  const char* shots = "Shots";
  text(shots, "FRAMES", "--frames", frames,
       "Frames to key: 1001-1100, 1001-, 1-100x2, 1,5,9-12, 10-1, -5--1. Those past the shot's "
       "ends are "
       "ignored. "
       "[default all]");
  number(shots, "--bg-frame-offset", backgroundOffset,
         "Added to the plate's frame for the background's. [frames, default 0]");
  number(shots, "--hold-out-frame-offset", holdOutOffset,
         "The same for the hold-out matte. [frames, default 0]");
  number(shots, "--garbage-frame-offset", garbageOffset,
         "The same for the garbage matte. [frames, default 0]");
  number(shots, "--reference-frame-offset", referenceOffset,
         "The same for the clean plate. [frames, default 0]");
  text(shots, "hold|loop|black", "--bg-time", pastEnd,
       "What a background or matte shows past its ends. A still is always held. [default hold]");
  flag(shots, "--skip-existing", skipExisting,
       "Leave frames whose outputs exist: resumes a stopped shot. What is cut off, of another size "
       "or "
       "without its alpha is made again. A movie exists when it is whole; a stopped one is begun "
       "again. [default off]");
  flag(shots, "--keep-going", keepGoing, "Go on after a frame that failed. [default off]");

  const char* running = "Running";
  number(running, "--threads", threads,
         "Threads to work on. [1 to 1024, default the task's share or all processors]");
  number(running, "--in-flight", inFlight,
         "Frames of a shot that are under way at once. [1 to 1024, default what keeps the threads "
         "busy within 1.25 GiB]");
  text(running, "BYTES", "--memory", memory,
       "What the pixels of one picture may take, such as 800M or 4G. A small file that unfolds to "
       "much is refused without it. [default three quarters of the machine's]");
  text(running, "bar|plain|openjd|alf|none", "--progress", progress,
       "Of a shot. [default a bar on a terminal, else plain]");
  flag(running, "--json", json,
       "Print one JSON object per frame, and a summary; failures, too. [default off]");
  flag(running, "--no-key", passThrough,
       "Read and write only, to see what that takes. [default off]");
  flag(running, "-q,--quiet", quiet, "Say nothing but errors.");
  parameters.addTo(command);
  screen.addTo(command);
  colours.addTo(command);
}

}  // namespace orvanite::cli
