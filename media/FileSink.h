// SPDX-License-Identifier: BSD-3-Clause
//
// Where OpenImageIO's writers put their bytes: a file that remembers the first thing that went
// wrong. Several writers do not look at the result of a write, and one ends the program over it; so
// a failed write is reported as done to them, and as failed to whoever asks at the end.
#pragma once

#include <OpenImageIO/filesystem.h>

#include <cstdio>
#include <memory>
#include <string>

namespace orvanite::media {

class FileSink final : public OIIO::Filesystem::IOProxy {
 public:
  /// Opens an existing file for writing. Throws Error (failure) about `subject`.
  FileSink(const std::string& path, const std::string& subject);
  ~FileSink() override;

  // Not "file": OpenImageIO takes that for its own class.
  const char* proxytype() const override { return "sink"; }
  void close() override;
  bool seek(std::int64_t offset) override;
  std::int64_t tell() override;
  std::size_t read(void* to, std::size_t size) override;
  std::size_t write(const void* from, std::size_t size) override;
  std::size_t pread(void* to, std::size_t size, std::int64_t offset) override;
  std::size_t pwrite(const void* from, std::size_t size, std::int64_t offset) override;
  std::size_t size() const override;
  void flush() const override;

  /// Closes the file and says what went wrong since it was opened; empty when every byte was taken.
  std::string finish();

 private:
  void note(bool worked);

  std::FILE* file_ = nullptr;
  std::unique_ptr<char[]> buffer_;
  int problem_ = 0;  // an errno
};

}  // namespace orvanite::media
