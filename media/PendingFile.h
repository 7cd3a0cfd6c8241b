// SPDX-License-Identifier: BSD-3-Clause
//
// A file that appears under its name only when it is whole: it is written beside its place under
// another name and renamed at the end. Whatever ends the program in between leaves the name alone;
// what a killed program left beside it is removed by the next one that writes into the folder.
// Uses the standard library and POSIX only.
#pragma once

#include <string>

namespace orvanite::media {

class PendingFile {
 public:
  /// Chooses a name in the folder of `path`, with the same ending, and creates the file empty. The
  /// first one in a folder removes the pending files of dead processes there.
  /// Throws Error (failure) when the folder is missing or cannot be written to.
  explicit PendingFile(std::string path);

  /// Removes what was not committed.
  ~PendingFile();

  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  /// Where to write meanwhile. Whoever opens it does not create it: a signal may have removed it.
  const std::string& temporary() const { return temporary_; }

  /// The same, open for writing, at its start.
  int descriptor() const { return file_; }

  /// Puts the file in its place, over what was there. Throws Error (failure).
  void commit();

 private:
  void release();

  std::string path_;
  std::string temporary_;
  int slot_ = -1;
  int file_ = -1;  // keeps the lock that tells others that the writer lives
  bool pending_ = false;
};

/// Removes every pending file of this process. May be called from a signal handler, just before the
/// process ends.
void removePendingFiles();

}  // namespace orvanite::media
