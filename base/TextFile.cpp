// SPDX-License-Identifier: BSD-3-Clause
#include "base/TextFile.h"

#include <fstream>

#include "base/Error.h"

namespace orvanite {

std::string readTextFile(const std::string& path, const std::string& missing) {
  std::ifstream file(path, std::ios::binary);
  std::string text(textFileLimit, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (file.bad() || !file.is_open()) throw Error(Fault::noSuchFile, path, missing);
  text.resize(static_cast<std::size_t>(file.gcount()));
  return text;
}

}  // namespace orvanite
