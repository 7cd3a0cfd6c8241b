// SPDX-License-Identifier: BSD-3-Clause
//
// Runs the built programs as a shell would and keeps what they said; a folder for their files.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace orvanite::test {

struct Outcome {
  int code = -1;  // exit code, or 128 + the signal that ended it
  std::string out, err;
  long peakKilobytes = 0;
};

/// Runs a program to its end. `environment` adds variables as "NAME=VALUE".
Outcome run(const std::string& program, const std::vector<std::string>& arguments,
            const std::vector<std::string>& environment = {});

/// Runs `orvanite` with these arguments.
Outcome orvanite(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment = {});

/// The words of a key for blue, the composite with the matte beside it, with these after them:
/// what plates that show no screen are keyed with.
std::vector<std::string> blueKey(std::vector<std::string> arguments);

/// The same as a line, with a blank behind it.
extern const std::string blueKeyWords;

/// Starts `orvanite` with these arguments and goes on. What it prints is lost, and so are its
/// errors unless a file descriptor takes them.
pid_t start(const std::vector<std::string>& arguments, int errors = -1);

/// Waits for a process: its exit code, or 128 + the signal that ended it.
int waitFor(pid_t child);

/// A pipe that is full: whoever writes to it waits until it is read.
class FullPipe {
 public:
  FullPipe();
  ~FullPipe();
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;
  int end() const { return ends_[1]; }
  /// Closes the end that is written to, and reads what others wrote until they have closed theirs.
  std::string read();

 private:
  std::array<int, 2> ends_{-1, -1};
  std::size_t filled_ = 0;
};

/// A file's bytes; none when there is no such file.
std::string contents(const std::string& path);

/// A fresh folder that goes with the object.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  /// Names of the files in it, hidden ones too, in order.
  std::vector<std::string> names() const;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// The words of a line, in which @ stands for the folder: "key @fg.png -o @out.png".
std::vector<std::string> words(const Folder& folder, const std::string& line);

/// Runs `orvanite` with the words of such a line.
Outcome orvanite(const Folder& folder, const std::string& line);

/// A folder that is a file system of its own, in memory. Only root can make one: else it is not
/// `made`, and the folder an ordinary one.
class SmallDisk : public Folder {
 public:
  /// `size` as "64k" or "4m".
  explicit SmallDisk(const std::string& size);
  ~SmallDisk();
  /// Gives it another size, with MS_RDONLY or without; whether it has it now.
  bool remount(const std::string& size, unsigned long flags = 0);

  bool made;
};

}  // namespace orvanite::test
