// Tells files apart, and what a file contained from what it contains now. All zeros is no file.
#pragma once

#include <sys/stat.h>

struct T_FileId {
  dev_t m_device = 0;
  ino_t m_inode = 0;
  off_t m_bytes = 0;
  time_t m_seconds = 0;  // last modification
  long m_nanoseconds = 0;

  static T_FileId Of(const struct stat& i_stat) {
    return {i_stat.st_dev, i_stat.st_ino, i_stat.st_size, i_stat.st_mtim.tv_sec,
            i_stat.st_mtim.tv_nsec};
  }
  bool operator==(const T_FileId&) const = default;
};
