// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite run`: loads the plug-ins and a script, and renders every FileOut of it, frame by frame.
#include <OpenImageIO/imageio.h>
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <unordered_set>
#include <vector>

#include "apps/cli/Commands.h"
#include "apps/cli/Progress.h"
#include "apps/cli/ScriptReference.h"
#include "apps/cli/Signals.h"
#include "apps/view/Watch.h"
#include "base/Error.h"
#include "base/TextFile.h"
#include "keyer/Threads.h"
#include "media/FrameRange.h"
#include "media/PictureWriter.h"
#include "platform/NRiCmplr.h"
#include "platform/NRiFile.h"
#include "platform/NRiGlobals.h"
#include "platform/NRiNode.h"
#include "platform/NRiOrigin.h"
#include "platform/NRiPlugins.h"
#include "platform/NRiThread.h"
#include "platform/nodes/NRiFileIn.h"
#include "platform/nodes/NRiFileOut.h"
#include "platform/nodes/NRiNodes.h"

namespace orvanite::cli {
namespace {

struct RunOptions {
  std::string script, frames = "1", identity, progress;
  std::vector<std::string> sets;
  int threads = 0;
  std::string function;  // of which the reference is asked for; empty for all
  bool print = false, inputs = false;
  bool watch = false, noOpen = false;
  int port = 0;
  bool quiet = false, json = false, skipExisting = false;
};

NRiPlug* timePlug() { return NRiNode::getRoot()->getPlug(NRiName("time")); }

// node.plug=value or variable=value. A text plug takes the value as it is, unless it is in quotes.
void set(const std::string& assignment) {
  const std::size_t equals = assignment.find('=');
  const std::string target = assignment.substr(0, equals);
  if (equals == std::string::npos || equals == 0) {
    throw Error::expected(Fault::wrongUse, "--set", "node.plug=value", assignment);
  }
  const std::size_t dot = target.find('.');
  const std::string node = dot == std::string::npos ? "script" : target.substr(0, dot);
  const std::string plugName = dot == std::string::npos ? target : target.substr(dot + 1);
  const NRiNode* const owner = NRiScope::findNode(NRiName(std::string_view(node)));
  if (!owner) {
    throw Error(Fault::wrongUse, "--set " + target, "the script has no node '" + node + "'");
  }
  NRiPlug* plug = owner->getPlug(NRiName(std::string_view(plugName)));
  // What has been assigned to the name since may have no such parameter: what had it before, then.
  const auto& nodes = NRiNode::getRoot()->children();
  for (auto earlier = nodes.rbegin(); !plug && earlier != nodes.rend(); ++earlier) {
    if ((*earlier)->label().view() == node)
      plug = (*earlier)->getPlug(NRiName(std::string_view(plugName)));
  }
  if (!plug || plug->io() != NRiPlug::kIn || plug->type() == nriImage || plug == timePlug()) {
    std::string names;
    for (const NRiPlug* const one : owner->getPublicPlugs()) {
      if (one == timePlug()) continue;
      names += (names.empty() ? "" : ", ") + std::string(one->name().view());
    }
    throw Error(Fault::wrongUse, "--set " + target,
                "expected a parameter of '" + node + "': " + names);
  }
  const std::string value = assignment.substr(equals + 1);
  if (plug->type() == nriString && !value.starts_with('"')) {
    // A path on the command line counts from where the command runs, not from the script.
    const bool isPath = plugName == "path" && !value.empty();
    plug->set(NRiName(isPath ? std::filesystem::absolute(value).string() : value));
    return;
  }
  const NRiOrigin::Places places{{value.c_str(), {"--set " + target, 1, 1}}};
  const NRiOrigin origin(&places);
  plug->set(value.c_str());
  plug->checkReferences();
}

void loadPlugins(bool quiet) {
  const std::vector<NRiPlugins::Report> reports = NRiPlugins::loadAll();
  for (const NRiPlugins::Report& report : reports) {
    if (!report.loaded) {
      fmt::print(stderr, "orvanite: plug-in {}: {}\n", report.path, report.message);
    } else if (!quiet) {
      fmt::print(stderr, "plug-in {}: {}\n", report.path, report.message);
    }
  }
  if (reports.empty() && !quiet) {
    std::string folders;
    for (const std::string& folder : NRiPlugins::searchPath()) {
      folders += (folders.empty() ? "" : ", ") + folder;
    }
    fmt::print(stderr, "no plug-ins in {}\n", folders);
  }
}

// The files that the script included are added to `read`.
bool compile(const std::string& path, std::vector<std::string>& read) {
  const std::string text = readTextFile(path, "this script cannot be read");
  std::error_code ignored;
  if (std::filesystem::is_regular_file(path, ignored)) {
    NRiGlobals::setFolder(std::filesystem::path(path).parent_path().string());
  }
  NRiCmplr compiler;
  NRiValue value;
  // Declarations live as long as their handle; the process is as long as they are needed.
  static std::shared_ptr<NRiDeclaration> declared;
  declared = compiler.execute(NRiScope::getGlobal(), NRiType::null, value,
                              NRiName(std::string_view(text)), NRiName(std::string_view(path)));
  read.insert(read.end(), compiler.included().begin(), compiler.included().end());
  for (const std::string& error : compiler.errors()) fmt::print(stderr, "orvanite: {}\n", error);
  return declared != nullptr;
}

void printIdentity(const std::string& name) {
  const NRiNode* const node = NRiScope::findNode(NRiName(std::string_view(name)));
  NRiIPlug* const image = node ? node->getOutput() : nullptr;
  if (!image) throw Error(Fault::wrongUse, "--identity", "the script has no image '" + name + "'");
  fmt::print("{}\n", image->image()->asString().view());
}

// A picture whose name cannot be told is left to whoever renders.
void addPictures(const std::vector<int>& frames, std::vector<std::string>& read) {
  for (const int frame : frames) {
    timePlug()->set(static_cast<float>(frame));
    for (NRiNode* const node : NRiNode::getRoot()->children()) {
      auto* const input = dynamic_cast<NRiFileIn*>(node);
      if (!input) continue;
      try {
        read.push_back(input->path());
      } catch (const NRiError&) {
      }
    }
  }
}

void printFiles(const std::vector<std::string>& files) {
  std::unordered_set<std::string> seen;
  for (const std::string& file : files) {
    if (!file.empty() && seen.insert(file).second) fmt::print("{}\n", file);
  }
}

std::vector<NRiFileOut*> outputsOf(const std::string& script) {
  std::vector<NRiFileOut*> outputs;
  for (NRiNode* const node : NRiNode::getRoot()->children()) {
    if (auto* const out = dynamic_cast<NRiFileOut*>(node)) outputs.push_back(out);
  }
  if (outputs.empty())
    throw Error(Fault::wrongUse, script, "expected a FileOut, found none to render");
  return outputs;
}

// A frame that was rendered, but is not what it should be.
struct NotKeyed : NRiError {
  using NRiError::NRiError;
};

// A node that cannot key, say, shows its input instead and goes on: no frame to keep.
void checkNodes(const NRiNode& parent) {
  for (const NRiNode* const node : parent.children()) {
    if (const std::string problem = node->problem(); !problem.empty()) {
      throw NotKeyed("'" + std::string(node->label().view()) + "' " + problem);
    }
    checkNodes(*node);
  }
}

void write(NRiFileOut& out, const std::vector<int>& frames, bool quiet) {
  out.checkedPath();
  const media::Picture picture = out.rendered();
  checkNodes(*NRiNode::getRoot());
  std::vector<std::string> notices;
  out.write(picture, frames, notices);
  for (const std::string& notice : notices) {
    if (!quiet) fmt::print(stderr, "{}\n", notice);
  }
}

// The movies that this run makes. None appears before it is whole, and none with a hole.
std::vector<NRiFileOut*> moviesOf(const std::vector<NRiFileOut*>& outputs, bool keepExisting) {
  std::vector<NRiFileOut*> movies;
  for (NRiFileOut* const out : outputs) {
    if (out->isMovie() && !(keepExisting && std::filesystem::exists(out->path()))) {
      movies.push_back(out);
    }
  }
  return movies;
}

// No frame may be written over another, nor one picture over another.
void checkOutputs(const std::vector<NRiFileOut*>& outputs, const std::vector<int>& frames) {
  const auto pathsAt = [&](int frame) {
    timePlug()->set(static_cast<float>(frame));
    std::vector<std::string> paths;
    paths.reserve(outputs.size());
    for (NRiFileOut* const out : outputs) paths.push_back(out->path());
    return paths;
  };
  const std::vector<std::string> first = pathsAt(frames.front());
  for (std::size_t i = 0; i < first.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (first[i].empty() || !media::isSameFile(first[i], first[j])) continue;
      throw Error(Fault::wrongUse, first[i],
                  "is written by two FileOuts: expected a file for each");
    }
  }
  if (frames.size() == 1) return;
  const std::vector<std::string> second = pathsAt(frames[1]);
  for (std::size_t i = 0; i < first.size(); ++i) {
    if (first[i].empty() || first[i] != second[i] || outputs[i]->isMovie()) continue;
    throw Error::expected(
        Fault::wrongUse, first[i],
        "a name with a frame number or of a movie for several frames, such as out.####.exr",
        first[i]);
  }
}

int render(const RunOptions& options, const std::vector<int>& frames) {
  const std::vector<NRiFileOut*> outputs = outputsOf(options.script);
  checkOutputs(outputs, frames);
  NRiPlug* const time = timePlug();
  // One frame alone is named rather than counted.
  const bool named =
      frames.size() == 1 && options.progress.empty() && !options.json && !options.quiet;
  const ProgressForm form =
      options.quiet || named ? ProgressForm::none : progressFormOf(options.progress);
  Progress progress(form, options.json, static_cast<int>(frames.size()));
  std::vector<int> finished;
  finished.reserve(frames.size());  // no frame fails once its file is there
  bool notKeyed = false;
  const std::vector<NRiFileOut*> movies = moviesOf(outputs, options.skipExisting);
  stopAtNextFrameOnSignals();
  for (const int frame : frames) {
    if (stopAsked() || (!movies.empty() && progress.failed() > 0)) break;
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::string> files;
    FrameStatus status = FrameStatus::done;
    std::string message;
    try {
      time->set(static_cast<float>(frame));
      std::vector<NRiFileOut*> missing;
      for (NRiFileOut* const out : outputs) {
        files.push_back(out->path());
        const bool begun = std::find(movies.begin(), movies.end(), out) != movies.end();
        if (begun || !options.skipExisting || !std::filesystem::exists(files.back())) {
          missing.push_back(out);
        }
      }
      if (missing.empty()) status = FrameStatus::skipped;
      for (NRiFileOut* const out : missing) write(*out, frames, options.quiet);
      finished.push_back(frame);
    } catch (const NotKeyed& error) {
      notKeyed = true;
      status = FrameStatus::failed;
      message = error.what();
    } catch (const std::bad_alloc&) {
      status = FrameStatus::failed;
      message = "out of memory";
    } catch (const std::exception& error) {
      status = FrameStatus::failed;
      message = error.what();
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    const std::string output = fmt::format("{}", fmt::join(files, ", "));
    progress.frame(frame, output, status, seconds.count(), message, files);
    if (named && status == FrameStatus::done) fmt::print("frame {}: {}\n", frame, output);
    if (status != FrameStatus::failed) continue;
    std::fflush(stdout);
    fmt::print(stderr, "orvanite: frame {}: {}\n", frame, message);
  }
  const bool wasStopped =
      stopAsked() && finished.size() + static_cast<std::size_t>(progress.failed()) < frames.size();
  const bool moviesLost = !movies.empty() && (wasStopped || progress.failed() > 0);
  if (!moviesLost) {
    for (NRiFileOut* const out : movies) out->finish();
  }
  progress.finish(wasStopped);
  if (moviesLost) {
    std::fflush(stdout);
    fmt::print(stderr,
               "orvanite: {}; a movie appears when it is whole: the same command begins it again\n",
               wasStopped ? "stopped" : "not all frames are done");
    return wasStopped ? cancelled : finished.empty() && !notKeyed ? failed : framesFailed;
  }
  if (wasStopped) {
    std::fflush(stdout);
    std::sort(finished.begin(), finished.end());
    fmt::print(stderr,
               "orvanite: stopped; finished frames are whole ({}); the same command with "
               "--skip-existing does the others\n",
               finished.empty() ? "none" : media::formatFrames(finished));
    return cancelled;
  }
  if (progress.failed() == 0) return success;
  return finished.empty() && !notKeyed ? failed : framesFailed;
}

int printFunctions(const std::string& name) {
  NRiNodes::declare();
  loadPlugins(true);
  fmt::print("{}", scriptReference(name));
  return success;
}

int runScript(const RunOptions& options) {
  if (options.script.empty()) throw Error(Fault::wrongUse, "run", "expected a script");
  if (options.threads < 0 || options.threads > 256) {
    throw Error::expected(Fault::wrongUse, "--threads", "a number from 0 to 256",
                          std::to_string(options.threads));
  }
  const std::vector<int> frames = media::parseFrames(options.frames, "--frames");
  const int threads = options.threads > 0 ? options.threads : std::min(availableThreads(), 256);
  NRiThread::setCount(threads);
  OIIO::attribute("threads", threads);

  // What the script left is gone before the plug-ins that made it.
  struct Tidy {
    ~Tidy() { NRiNode::getRoot()->deleteChildren(); }
  } const tidy;
  try {
    NRiNodes::declare();
    loadPlugins(options.quiet || options.print || options.inputs || !options.identity.empty());
    std::vector<std::string> read{options.script};
    const bool fine = compile(options.script, read);
    if (options.inputs && !fine) printFiles(read);
    if (!fine) return failed;
    for (const std::string& assignment : options.sets) set(assignment);
    if (options.print) {
      NRiFile file;
      NRiNode::getRoot()->serialize(file, 0);
      fmt::print("{}", file.text());
    }
    if (!options.identity.empty()) {
      timePlug()->set(static_cast<float>(frames.front()));
      printIdentity(options.identity);
    }
    if (options.inputs) {
      addPictures(frames, read);
      printFiles(read);
    }
    if (options.print || options.inputs || !options.identity.empty()) return success;
    return render(options, frames);
  } catch (const NRiError& error) {
    std::fflush(stdout);
    fmt::print(stderr, "orvanite: {}\n", error.what());
    return failed;
  }
}

// The same again by processes of their own, for as long as somebody looks on.
int watchScript(const RunOptions& options) {
  if (options.script.empty()) throw Error(Fault::wrongUse, "run", "expected a script");
  if (options.skipExisting || options.print || options.inputs || !options.identity.empty()) {
    throw Error(Fault::wrongUse, "--watch",
                "expected neither --skip-existing, --print, --inputs nor --identity with it");
  }
  if (options.port < 0 || options.port > 65535) {
    throw Error::expected(Fault::wrongUse, "--port", "a number from 0 to 65535",
                          std::to_string(options.port));
  }
  static_cast<void>(media::parseFrames(options.frames, "--frames"));
  static_cast<void>(readTextFile(options.script, "this script cannot be read"));
  view::WatchOptions watch;
  watch.script = options.script;
  watch.inputs = {"run", options.script, "-q", "--frames", options.frames};
  for (const std::string& one : options.sets) {
    watch.inputs.insert(watch.inputs.end(), {"--set", one});
  }
  watch.render = watch.inputs;
  watch.inputs.emplace_back("--inputs");
  watch.render.insert(watch.render.end(), {"--json", "--threads", std::to_string(options.threads)});
  watch.port = options.port;
  const bool desktop =
      std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr;
  watch.openBrowser = desktop && !options.noOpen;
  watch.started = sayAddress;
  view::watch(watch);
  return success;
}

}  // namespace

Run declareRun(CLI::App& command) {
  auto options = std::make_shared<RunOptions>();
  command.add_option("SCRIPT", options->script, "The script whose FileOut nodes are rendered.");
  const char* running = "Running";
  command
      .add_option("--frames", options->frames,
                  "Frames to render, such as 1-24,30 or 1001-1100x2. [default 1]")
      ->group(running)
      ->type_name("RANGE")
      ->take_last();
  command
      .add_option("--threads", options->threads,
                  "Threads to key on. [1 to 256, default the task's share or all processors]")
      ->group(running)
      ->type_name("N")
      ->take_last();
  command
      .add_option("--set", options->sets,
                  "Set a parameter of the loaded script: node.plug=value, or variable=value. May "
                  "be given several times.")
      ->group(running)
      ->type_name("NODE.PLUG=VALUE")
      ->take_all();
  command
      .add_flag("--watch", options->watch,
                "Render again whenever the script or a file that it reads changes, and show the "
                "newest frame in a page. [default off]")
      ->group(running);
  command
      .add_option("--port", options->port,
                  "Port of 127.0.0.1 for --watch. [0 to 65535, default any free one]")
      ->group(running)
      ->type_name("N")
      ->take_last();
  command
      .add_flag("--no-open", options->noOpen,
                "Do not open the browser for --watch; print the address only.")
      ->group(running);
  command
      .add_flag("--inputs", options->inputs,
                "Print the files that the script reads at these frames instead of rendering it.")
      ->group("Looking");
  command.add_flag("--print", options->print, "Print the loaded script instead of rendering it.")
      ->group("Looking");
  command
      .add_option("--identity", options->identity,
                  "Print the identity text of an image of the script instead of rendering it.")
      ->group("Looking")
      ->type_name("IMAGE")
      ->take_last();
  const CLI::Option* const functions =
      command
          .add_option("--functions", options->function,
                      "Print what scripts can call, with all arguments, or one function alone.")
          ->group("Looking")
          ->type_name("[NAME]")
          ->expected(0, 1);
  command
      .add_option("--progress", options->progress,
                  "bar, plain, openjd, alf or none. [default a bar on a terminal, else plain]")
      ->group(running)
      ->type_name("FORM")
      ->take_last();
  command
      .add_flag("--json", options->json,
                "Print one JSON object per frame, and a summary. [default off]")
      ->group(running);
  command
      .add_flag("--skip-existing", options->skipExisting,
                "Leave frames whose files exist: resumes a stopped script. [default off]")
      ->group(running);
  command.add_flag("-q,--quiet", options->quiet, "Say nothing but errors.")->group(running);
  return [options, functions] {
    if (functions->count() > 0) return printFunctions(options->function);
    return options->watch ? watchScript(*options) : runScript(*options);
  };
}

}  // namespace orvanite::cli
