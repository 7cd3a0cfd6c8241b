// SPDX-License-Identifier: BSD-3-Clause
//
// Loaded before the C library: the power fails when the process ends. What had reached the disk is
// kept, the rest is lost as file systems lose it: a file that was not synced after its last byte
// is empty under its new name, and a name that its folder was not synced after is the old one's.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <libgen.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { most = 4096 };

typedef struct {
  dev_t device;
  ino_t file;
  off_t size;
  struct timespec changed;
} Synced;

typedef struct {
  char path[1024];
  dev_t device;  // of its folder
  ino_t folder;
} Named;

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static Synced synced[most];
static Named named[most];  // folders of these are not on the disk
static int syncedCount, namedCount;

static void note(int descriptor) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return;
  pthread_mutex_lock(&lock);
  if (S_ISDIR(status.st_mode)) {
    for (int i = 0; i < namedCount; ++i) {
      if (named[i].device == status.st_dev && named[i].folder == status.st_ino) {
        named[i].path[0] = '\0';
      }
    }
  } else if (syncedCount < most) {
    synced[syncedCount++] = (Synced){status.st_dev, status.st_ino, status.st_size, status.st_mtim};
  }
  pthread_mutex_unlock(&lock);
}

static int isSynced(const struct stat* status) {
  for (int i = 0; i < syncedCount; ++i) {
    const Synced* one = &synced[i];
    if (one->device == status->st_dev && one->file == status->st_ino &&
        one->size == status->st_size && one->changed.tv_sec == status->st_mtim.tv_sec &&
        one->changed.tv_nsec == status->st_mtim.tv_nsec) {
      return 1;
    }
  }
  return 0;
}

int fsync(int descriptor) {
  int (*const real)(int) = (int (*)(int))dlsym(RTLD_NEXT, "fsync");
  const int result = real(descriptor);
  if (result == 0) note(descriptor);
  return result;
}

int fdatasync(int descriptor) { return fsync(descriptor); }

int rename(const char* from, const char* to) {
  int (*const real)(const char*, const char*) =
      (int (*)(const char*, const char*))dlsym(RTLD_NEXT, "rename");
  struct stat status;
  const int there = stat(from, &status) == 0;
  pthread_mutex_lock(&lock);
  if (there && !isSynced(&status) && truncate(from, 0) != 0) abort();
  pthread_mutex_unlock(&lock);
  const int result = real(from, to);
  if (result != 0 || strlen(to) >= sizeof named[0].path) return result;
  char copy[sizeof named[0].path];
  strcpy(copy, to);
  pthread_mutex_lock(&lock);
  if (stat(dirname(copy), &status) == 0 && namedCount < most) {
    Named* const one = &named[namedCount++];
    strcpy(one->path, to);
    one->device = status.st_dev;
    one->folder = status.st_ino;
  }
  pthread_mutex_unlock(&lock);
  return result;
}

__attribute__((destructor)) static void powerFails(void) {
  for (int i = 0; i < namedCount; ++i) {
    if (named[i].path[0] != '\0') unlink(named[i].path);
  }
}
