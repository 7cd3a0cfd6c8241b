// SPDX-License-Identifier: BSD-3-Clause
//
// The graph of a `key` command as a script that `orvanite run` renders to the same pixels.
#pragma once

#include <memory>
#include <string>

#include "apps/cli/MediaOptions.h"
#include "keyer/Settings.h"
#include "media/PendingFile.h"
#include "media/Picture.h"
#include "shot/Job.h"

namespace orvanite::cli {

struct ScriptFiles {
  shot::ByRole<shot::Clip> clips;  // but for a clean plate, which no script holds
  std::string output;
  shot::Alpha alpha = shot::Alpha::matte;       // of the output
  shot::PastEnd pastEnd = shot::PastEnd::hold;  // of the pictures beside the plate
  MovieOptions movie;
  std::string script;  // where the script will lie; empty: nobody knows
};

/// The script. `samples` is how the output holds its values.
/// Throws Error (wrongUse) about a setting that the node has no parameter for.
std::string scriptOf(const Settings& settings, const ScriptFiles& files, media::Samples samples);

/// A text in a file that comes into its place when it is committed. Throws Error (failure).
std::unique_ptr<media::PendingFile> pendingText(const std::string& path, const std::string& text);

}  // namespace orvanite::cli
