// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite describe FOLDER`: writes the manual and the shells' completions, laid out as below a
// prefix's share/. The build runs it; --help does not list it.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "apps/cli/CommandFacts.h"
#include "apps/cli/Commands.h"
#include "apps/cli/Completions.h"
#include "apps/cli/ManualPages.h"
#include "base/Error.h"

namespace orvanite::cli {
namespace {

void write(const std::filesystem::path& path, const std::string& text) {
  std::error_code ignored;  // the file says it if a folder is missing
  std::filesystem::create_directories(path.parent_path(), ignored);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (!file) throw Error(Fault::failure, path.string(), "cannot be written");
}

}  // namespace

Run declareDescribe(CLI::App& command) {
  auto folder = std::make_shared<std::string>();
  command.add_option("FOLDER", *folder, "Where man, bash-completion, zsh and fish go.");
  return [folder, &command] {
    if (folder->empty())
      throw Error(Fault::wrongUse, "describe", "expected a folder: orvanite describe FOLDER");
    const std::vector<CommandFacts> facts = factsOf(*command.get_parent());
    const std::filesystem::path to(*folder);
    for (const ManualPage& page : manualPages(facts))
      write(to / "man/man1" / page.fileName, page.text);
    write(to / "bash-completion/completions/orvanite", bashCompletion(facts));
    write(to / "zsh/vendor-completions/_orvanite", zshCompletion(facts));
    write(to / "fish/vendor_completions.d/orvanite.fish", fishCompletion(facts));
    return success;
  };
}

}  // namespace orvanite::cli
