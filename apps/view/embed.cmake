# Writes a source that holds files as bytes: cmake -DOUTPUT=... -DFOLDER=... -DNAMES=a,b -P embed.cmake
# The page travels inside the program, so that there is nothing to install or to find beside it.
string(REPLACE "," ";" names "${NAMES}")
set(arrays "")
set(entries "")
set(count 0)
foreach(name IN LISTS names)
  file(READ "${FOLDER}/${name}" bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(REGEX REPLACE "\\.([a-z]+)$" "" stem "${name}")
  set(type "application/octet-stream")
  if(name MATCHES "\\.html$")
    set(type "text/html; charset=utf-8")
  elseif(name MATCHES "\\.css$")
    set(type "text/css; charset=utf-8")
  elseif(name MATCHES "\\.js$")
    set(type "text/javascript; charset=utf-8")
  elseif(name MATCHES "\\.svg$")
    set(type "image/svg+xml")
  endif()
  string(APPEND arrays "const unsigned char file${count}[] = {${bytes}};\n")
  string(APPEND entries "    {\"${name}\", \"${type}\", bytesOf(file${count})},\n")
  math(EXPR count "${count} + 1")
endforeach()
file(WRITE "${OUTPUT}.new" "// Made from the files of apps/view/page.
#include \"apps/view/Gate.h\"

namespace orvanite::view {
namespace {

${arrays}
template <std::size_t n>
std::string_view bytesOf(const unsigned char (&bytes)[n]) {
  return {reinterpret_cast<const char*>(bytes), n};
}

}  // namespace

std::span<const PageFile> pageFiles() {
  static const PageFile files[] = {
${entries}  };
  return files;
}

}  // namespace orvanite::view
")
file(RENAME "${OUTPUT}.new" "${OUTPUT}")
