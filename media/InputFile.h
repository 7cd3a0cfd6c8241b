// SPDX-License-Identifier: BSD-3-Clause
//
// What every file must be before a library sees it: there, a file, and no larger in memory than
// this process may take. Uses the standard library and POSIX only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvanite::media {

/// Refuses what is no file: folders, pipes, devices and sockets. Throws Error: noSuchFile, or
/// failure that says what was found. `expected` is what the caller wants, such as "a picture".
void checkInputFile(const std::string& path, std::string_view expected);

/// Bytes of memory that the pixels of one picture may take: three quarters of what the machine, or
/// the control group that this process is in, has, until somebody says otherwise. For all threads.
std::uint64_t memoryBound();
/// Sets it, for the whole process; whoever does has been asked, so that a small file may also
/// unfold to as much.
void setMemoryBound(std::uint64_t bytes);
/// Reads "4G", "512M", "1.5GiB", "800000000": K, M, G and T are powers of 1024. Throws Error
/// (wrongUse) about `subject` for anything else and for less than a mebibyte.
std::uint64_t parseMemory(const std::string& text, const std::string& subject);

/// Called before memory is taken for a file's pixels.
///
/// needed  bytes in memory, by the file's header
/// Throws Error (failure) where that is beyond the bound; or, as long as no bound was set, where it
/// is a quarter of a gibibyte or more and a thousand times what the file has.
void checkMemory(const std::string& path, std::uint64_t needed);

/// "3.2 GiB", "51 MiB", "900 bytes".
std::string bytesText(std::uint64_t bytes);

}  // namespace orvanite::media
