// SPDX-License-Identifier: BSD-3-Clause
#include "media/ColourSpaceCheck.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <string_view>

#include "base/Error.h"
#include "media/InputFile.h"
#include "media/PictureReader.h"

namespace orvanite::media {

namespace ocio = OCIO_NAMESPACE;

namespace {

constexpr std::size_t mostTransforms = 10'000;
constexpr int mostNames = 32;

/// What OpenColorIO builds of one thing: its transforms, all that they name included, and the
/// longest way from name to name.
struct Extent {
  std::size_t transforms = 0;
  int names = 0;

  void add(const Extent& other) {
    transforms += other.transforms;
    names = std::max(names, other.names);
  }
};

class Walk {
 public:
  Walk(const ocio::Config& config, const std::string& path)
      : config_(config), context_(config.getCurrentContext()), path_(path) {}

  void everything() {
    const auto all = ocio::SEARCH_REFERENCE_SPACE_ALL;
    for (int i = 0; i < config_.getNumColorSpaces(all, ocio::COLORSPACE_ALL); ++i) {
      space(config_.getColorSpaceNameByIndex(all, ocio::COLORSPACE_ALL, i));
    }
    for (int i = 0; i < config_.getNumLooks(); ++i) look(config_.getLookNameByIndex(i));
    for (int i = 0; i < config_.getNumViewTransforms(); ++i) {
      view(config_.getViewTransformNameByIndex(i));
    }
    for (int i = 0; i < config_.getNumNamedTransforms(ocio::NAMEDTRANSFORM_ALL); ++i) {
      space(config_.getNamedTransformNameByIndex(ocio::NAMEDTRANSFORM_ALL, i));
    }
  }

 private:
  using Transform = ocio::ConstTransformRcPtr;

  /// The extent of what has a name, by the transforms that it consists of.
  Extent named(const std::string& name, std::initializer_list<Transform> transforms,
               const char* processSpace = "") {
    const auto [known, first] = extents_.try_emplace(name);
    if (!first) {
      if (known->second.names == 0) refuse(name + " leads back to itself");
      return known->second;
    }
    Extent sum;
    sum.add(spaces({processSpace}));
    for (const Transform& transform : transforms) sum.add(of(transform));
    ++sum.names;
    if (sum.names > mostNames || sum.transforms > mostTransforms) {
      refuse(name + " leads through more than " + std::to_string(mostNames) + " names or " +
             std::to_string(mostTransforms) + " transforms");
    }
    return known->second = sum;
  }

  /// A colour space, or the named transform that may stand where one does.
  Extent space(const std::string& name) {
    if (const auto found = config_.getColorSpace(name.c_str())) {
      return named("colour space " + std::string(found->getName()),
                   {found->getTransform(ocio::COLORSPACE_DIR_TO_REFERENCE),
                    found->getTransform(ocio::COLORSPACE_DIR_FROM_REFERENCE)});
    }
    const auto found = config_.getNamedTransform(name.c_str());
    if (!found) return {};
    return named("named transform " + std::string(found->getName()),
                 {found->getTransform(ocio::TRANSFORM_DIR_FORWARD),
                  found->getTransform(ocio::TRANSFORM_DIR_INVERSE)});
  }

  Extent look(const std::string& name) {
    const auto found = config_.getLook(name.c_str());
    if (!found) return {};
    return named("look " + std::string(found->getName()),
                 {found->getTransform(), found->getInverseTransform()}, found->getProcessSpace());
  }

  Extent view(const std::string& name) {
    const auto found = config_.getViewTransform(name.c_str());
    if (!found) return {};
    return named("view transform " + std::string(found->getName()),
                 {found->getTransform(ocio::VIEWTRANSFORM_DIR_TO_REFERENCE),
                  found->getTransform(ocio::VIEWTRANSFORM_DIR_FROM_REFERENCE)});
  }

  /// Several spaces with ways between them: from scene to display the way is a view transform's.
  Extent spaces(std::initializer_list<const char*> names) {
    Extent sum;
    bool scene = false, display = false;
    for (const char* const name : names) {
      const std::string resolved = context_->resolveStringVar(name);
      sum.add(space(resolved));
      if (const auto found = config_.getColorSpace(resolved.c_str())) {
        (found->getReferenceSpaceType() == ocio::REFERENCE_SPACE_SCENE ? scene : display) = true;
      }
    }
    if (scene && display) {
      if (const auto between = config_.getDefaultSceneToDisplayViewTransform()) {
        sum.add(view(between->getName()));
      }
    }
    return sum;
  }

  /// A list of looks: "+one, -two | three".
  Extent looks(const std::string& list) {
    constexpr std::string_view between = ",:|", around = " \t\r\n+-";
    Extent sum;
    for (std::size_t end = 0, begin = 0; begin <= list.size(); begin = end + 1) {
      end = std::min(list.find_first_of(between, begin), list.size());
      const std::string entry = list.substr(begin, end - begin);
      const std::size_t first = entry.find_first_not_of(around);
      if (first == std::string::npos) continue;
      const std::size_t last = entry.find_last_not_of(" \t\r\n");
      sum.add(look(entry.substr(first, last - first + 1)));
    }
    return sum;
  }

  Extent of(const ocio::DisplayViewTransform& shown) {
    const char *display = shown.getDisplay(), *name = shown.getView();
    const std::string_view target = config_.getDisplayViewColorSpaceName(display, name);
    Extent sum = spaces(
        {shown.getSrc(), target == ocio::OCIO_VIEW_USE_DISPLAY_NAME ? display : target.data()});
    sum.add(view(config_.getDisplayViewTransformName(display, name)));
    sum.add(looks(config_.getDisplayViewLooks(display, name)));
    return sum;
  }

  Extent of(const Transform& transform) {
    if (!transform) return {};
    Extent sum{1, 0};
    if (const auto group = OCIO_DYNAMIC_POINTER_CAST<const ocio::GroupTransform>(transform)) {
      for (int i = 0; i < group->getNumTransforms(); ++i) sum.add(of(group->getTransform(i)));
    } else if (const auto table = OCIO_DYNAMIC_POINTER_CAST<const ocio::FileTransform>(transform)) {
      checkTable(*table);
    } else if (const auto way =
                   OCIO_DYNAMIC_POINTER_CAST<const ocio::ColorSpaceTransform>(transform)) {
      sum.add(spaces({way->getSrc(), way->getDst()}));
    } else if (const auto look = OCIO_DYNAMIC_POINTER_CAST<const ocio::LookTransform>(transform)) {
      sum.add(spaces({look->getSrc(), look->getDst()}));
      sum.add(looks(context_->resolveStringVar(look->getLooks())));
    } else if (const auto shown =
                   OCIO_DYNAMIC_POINTER_CAST<const ocio::DisplayViewTransform>(transform)) {
      sum.add(of(*shown));
    }
    return sum;
  }

  void checkTable(const ocio::FileTransform& table) const {
    std::string path;
    try {
      path = context_->resolveFileLocation(table.getSrc());
    } catch (const ocio::Exception&) {
      return;  // not there, or in an archive: said when it is wanted
    }
    if (std::filesystem::exists(path)) checkInputFile(path, "a table of colours");
  }

  [[noreturn]] void refuse(const std::string& why) const {
    throw Error(Fault::failure, path_, "no OpenColorIO configuration: " + oneLine(why));
  }

  const ocio::Config& config_;
  const ocio::ConstContextRcPtr context_;
  const std::string& path_;
  std::map<std::string, Extent> extents_;  // 0 names: on the way to it
};

}  // namespace

void checkColourSpaces(const ocio::Config& config, const std::string& path) {
  Walk(config, path).everything();
}

}  // namespace orvanite::media
