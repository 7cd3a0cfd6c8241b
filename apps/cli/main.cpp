// SPDX-License-Identifier: BSD-3-Clause
//
// The `orvanite` program: opens the library that holds the command, and runs that.
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "apps/cli/Command.h"

namespace {

// A stream that was closed at the start leaves its number to the next file that is opened, a
// picture perhaps, and what is printed would land in there. It is taken by what fails to be used.
void holdStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

// OpenImageIO's table of strings touches 24 MiB as it is loaded, a page at a time: the heap begins
// with room for it that the system may give in large pages. malloc keeps pieces of a size that was
// freed once; who changes its settings says up to which, and that is its own upper end.
void makeRoomForLibraries() {
  constexpr int room = 28 << 20, kept = 32 << 20, first = 96 << 10;
  ::mallopt(M_MMAP_THRESHOLD, kept);
  ::mallopt(M_TRIM_THRESHOLD, 2 * kept);
  ::mallopt(M_TOP_PAD, room);
  auto* const begin = static_cast<char*>(std::malloc(first));
  ::mallopt(M_TOP_PAD, 128 << 10);
  constexpr std::size_t page = 2 << 20;
  char* const start = begin + (page - reinterpret_cast<std::uintptr_t>(begin) % page);
  const std::ptrdiff_t size = static_cast<char*>(::sbrk(0)) - start;
  if (size > 0 && size <= room) ::madvise(start, static_cast<std::size_t>(size), MADV_HUGEPAGE);
  std::free(begin);
}

}  // namespace

int main(int count, char** values) {
  holdStandardStreams();
  makeRoomForLibraries();
  void* const library = ::dlopen(ORVANITE_COMMAND_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  void* const command = library != nullptr ? ::dlsym(library, "orvaniteCommand") : nullptr;
  if (command != nullptr)
    return reinterpret_cast<decltype(&orvaniteCommand)>(command)(count, values);
  std::fprintf(stderr, "orvanite: %s\n", ::dlerror());
  return 1;
}
