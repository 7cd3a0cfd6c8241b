// SPDX-License-Identifier: BSD-3-Clause
//
// A buffered file behind OpenImageIO's interface.
#include "media/FileSink.h"

#include <cerrno>
#include <cstring>

#include "base/Error.h"

namespace orvanite::media {
namespace {

constexpr std::size_t bufferBytes = 1 << 18;

}  // namespace

FileSink::FileSink(const std::string& path, const std::string& subject)
    : IOProxy(path, Write), buffer_(std::make_unique<char[]>(bufferBytes)) {
  file_ = std::fopen(path.c_str(), "r+b");
  if (file_ == nullptr) {
    throw Error(Fault::failure, subject, std::string("cannot be written: ") + std::strerror(errno));
  }
  std::setvbuf(file_, buffer_.get(), _IOFBF, bufferBytes);
}

FileSink::~FileSink() { finish(); }

void FileSink::note(bool worked) {
  if (!worked && problem_ == 0) problem_ = errno != 0 ? errno : EIO;
}

void FileSink::close() {
  if (file_ == nullptr) return;
  errno = 0;
  note(std::fclose(file_) == 0);
  file_ = nullptr;
  m_mode = Closed;
}

bool FileSink::seek(std::int64_t offset) {
  if (file_ == nullptr) return false;
  errno = 0;
  note(::fseeko(file_, offset, SEEK_SET) == 0);
  return true;
}

std::int64_t FileSink::tell() { return file_ == nullptr ? 0 : ::ftello(file_); }

std::size_t FileSink::read(void* to, std::size_t size) {
  if (file_ == nullptr) return 0;
  // The standard wants a positioning between writing and reading.
  ::fseeko(file_, 0, SEEK_CUR);
  const std::size_t count = std::fread(to, 1, size, file_);
  ::fseeko(file_, 0, SEEK_CUR);
  return count;
}

std::size_t FileSink::write(const void* from, std::size_t size) {
  if (file_ == nullptr) return 0;
  if (size == 0) return 0;  // some formats write empty fields from nowhere
  errno = 0;
  note(std::fwrite(from, 1, size, file_) == size);
  return size;
}

std::size_t FileSink::pread(void* to, std::size_t size, std::int64_t offset) {
  const std::int64_t place = tell();
  if (!seek(offset)) return 0;
  const std::size_t count = read(to, size);
  seek(place);
  return count;
}

std::size_t FileSink::pwrite(const void* from, std::size_t size, std::int64_t offset) {
  const std::int64_t place = tell();
  if (!seek(offset)) return 0;
  const std::size_t count = write(from, size);
  seek(place);
  return count;
}

std::size_t FileSink::size() const {
  if (file_ == nullptr) return 0;
  const auto place = ::ftello(file_);
  ::fseeko(file_, 0, SEEK_END);
  const auto end = ::ftello(file_);
  ::fseeko(file_, place, SEEK_SET);
  return static_cast<std::size_t>(end);
}

void FileSink::flush() const {
  if (file_ != nullptr) std::fflush(file_);
}

std::string FileSink::finish() {
  close();
  return problem_ == 0 ? std::string() : std::strerror(problem_);
}

}  // namespace orvanite::media
