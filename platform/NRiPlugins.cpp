// SPDX-License-Identifier: BSD-3-Clause
//
// Loading plug-ins. Registration and declaration happen inside dlopen, before there is a handle to
// look names up in, so they are noted then and the functions bound afterwards.
#include "platform/NRiPlugins.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>

#include "platform/NRiClassName.h"
#include "platform/NRiError.h"
#include "platform/NRiNode.h"
#include "platform/NRiScope.h"
#include "platform/NRxPlugin.h"

#ifndef ORVANITE_PLUGIN_FOLDER
#define ORVANITE_PLUGIN_FOLDER "lib/orvanite"
#endif

namespace {

namespace fs = std::filesystem;

struct Library {
  void* handle = nullptr;
  std::vector<NRiName> functions;
  std::vector<NRiName> classes;
  std::string banner;
};

struct Loading {
  std::vector<NRiName> functions;
  std::vector<std::string> errors;
  std::string banner;
};

Loading* loading = nullptr;

std::map<std::string, Library>& libraries() {
  static auto& loaded = *new std::map<std::string, Library>;
  return loaded;
}

std::string real(const std::string& path) {
  std::error_code error;
  const fs::path whole = fs::canonical(path, error);
  return error ? path : whole.string();
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : "; ") + line;
  return text;
}

// Binds the functions that were declared; the name of the first that is missing, or nothing.
std::string bind(const Library& library) {
  for (const NRiName& name : library.functions) {
    NRiFunction* const function = NRiScope::getGlobal()->function(name);
    if (!function) continue;
    function->address = dlsym(library.handle, name.getString());
    if (!function->address) return std::string(name.view());
  }
  return {};
}

}  // namespace

NRxPlugin::NRxPlugin(const NRiName& banner) : name_(banner) { NRiPlugins::notePlugin(*this); }
NRxPlugin::~NRxPlugin() = default;

void NRiPlugins::noteDeclaration(const NRiDeclaration& declaration,
                                 const std::vector<std::string>& errors) {
  if (!loading) return;
  loading->functions.insert(loading->functions.end(), declaration.functions.begin(),
                            declaration.functions.end());
  loading->errors.insert(loading->errors.end(), errors.begin(), errors.end());
}

void NRiPlugins::notePlugin(const NRxPlugin& plugin) {
  if (loading) loading->banner = plugin.name().view();
}

std::vector<std::string> NRiPlugins::searchPath() {
  std::vector<std::string> folders;
  if (const char* const given = std::getenv("ORVANITE_PLUGIN_PATH")) {
    std::string_view rest = given;
    while (!rest.empty()) {
      const std::size_t end = std::min(rest.find(':'), rest.size());
      if (end > 0) folders.emplace_back(rest.substr(0, end));
      rest.remove_prefix(std::min(end + 1, rest.size()));
    }
  }
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  if (!error) {
    const fs::path prefix = program.parent_path().parent_path();
    folders.push_back((prefix / "lib/orvanite").string());
    folders.push_back((prefix / ORVANITE_PLUGIN_FOLDER).string());
  }
  return folders;
}

std::vector<NRiPlugins::Report> NRiPlugins::loadAll() {
  std::vector<Report> reports;
  std::set<std::string> names;
  for (const std::string& folder : searchPath()) {
    std::error_code error;
    std::vector<fs::path> files;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
      if (at->path().extension() == ".so") files.push_back(at->path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
      if (names.insert(file.filename().string()).second) reports.push_back(load(file.string()));
    }
  }
  return reports;
}

NRiPlugins::Report NRiPlugins::load(const std::string& path) {
  const std::string whole = real(path);
  if (const auto found = libraries().find(whole); found != libraries().end()) {
    return {path, true, found->second.banner};
  }
  const std::vector<NRiName> before = NRiClassName::all();
  Loading notes;
  Library library;
  loading = &notes;
  try {
    library.handle = dlopen(whole.c_str(), RTLD_NOW | RTLD_LOCAL);
  } catch (const std::exception& error) {
    loading = nullptr;
    return {path, false, error.what()};
  }
  loading = nullptr;
  if (!library.handle) {
    const char* const why = dlerror();
    return {path, false, why ? why : "cannot be loaded"};
  }
  library.functions = notes.functions;
  library.banner = notes.banner;
  for (const NRiName& name : NRiClassName::all()) {
    if (std::find(before.begin(), before.end(), name) == before.end()) {
      library.classes.push_back(name);
    }
  }
  std::string why;
  if (!notes.errors.empty()) {
    why = joined(notes.errors);
  } else if (library.functions.empty()) {
    why = "is no plug-in: expected a library that declares functions";
  } else if (const std::string missing = bind(library); !missing.empty()) {
    why = "declares '" + missing + "' but does not export it";
  }
  if (why.empty()) {
    libraries()[whole] = library;
    return {path, true, library.banner};
  }
  for (const NRiName& name : library.classes) NRiClassName::unregisterClassName(name);
  dlclose(library.handle);
  return {path, false, why};
}

void NRiPlugins::unload(const std::string& path) {
  const auto found = libraries().find(real(path));
  if (found == libraries().end()) throw NRiError(path + " is not loaded");
  for (const NRiNode* const node : NRiNode::getRoot()->children()) {
    const auto& classes = found->second.classes;
    if (std::find(classes.begin(), classes.end(), node->getClassName()) != classes.end()) {
      throw NRiError(path + " is in use by '" + std::string(node->name().view()) + "'");
    }
  }
  for (const NRiName& name : found->second.classes) NRiClassName::unregisterClassName(name);
  dlclose(found->second.handle);
  libraries().erase(found);
}
