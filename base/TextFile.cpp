// SPDX-License-Identifier: BSD-3-Clause
#include "base/TextFile.h"

#include <cstdio>

#include "base/Error.h"

namespace orvanite {

std::string readTextFile(const std::string& path, const std::string& missing) {
  std::string text(textFileLimit, '\0');
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw Error(Fault::noSuchFile, path, missing);
  text.resize(std::fread(text.data(), 1, text.size(), file));
  const bool broken = std::ferror(file) != 0;
  std::fclose(file);
  if (broken) throw Error(Fault::noSuchFile, path, missing);
  return text;
}

}  // namespace orvanite
