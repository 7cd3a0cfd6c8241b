// SPDX-License-Identifier: BSD-3-Clause
//
// How help looks: option names on the left, wrapped sentences beside them.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace orvanite::cli {

class HelpFormat : public CLI::Formatter {
 public:
  HelpFormat();
  std::string make_option(const CLI::Option* option, bool isPositional) const override;
  std::string make_option_opts(const CLI::Option* option) const override;
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
  std::string make_usage(const CLI::App* app, std::string name) const override;
};

}  // namespace orvanite::cli
