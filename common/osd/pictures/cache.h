// The last pictures in the sizes that they were shown in, so that showing one again needs no
// decoder. Owned by the desk and used under the renderer's mutexes.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "common/osd/pictures/loader.h"

class CPictureCache {
 public:
  static constexpr size_t kMaxEntries = 8;
  static constexpr size_t kMaxBytes = size_t{32} << 20;  // of pixels, in all entries

  // Whether there is a picture of i_strPath, in any size and of whatever contents.
  Bool Knows(const std::string& i_strPath) const;

  // The picture of i_strPath in that size; null when it is not here, or was made of another file
  // than i_file.
  std::shared_ptr<const CPicture> Find(const std::string& i_strPath, const T_FileId& i_file,
                                       const T_WantedSize& i_size);

  // Keeps i_pPicture: the file's picture, itself of i_own px, in that size. Drops what was used
  // longest ago, as far as the limits ask. A picture above kMaxBytes is not kept.
  void Keep(const std::string& i_strPath, const T_FileId& i_file, const T_Extent& i_own,
            const T_WantedSize& i_size, std::shared_ptr<const CPicture> i_pPicture);

 private:
  struct T_Entry {
    std::string m_strPath;
    T_FileId m_stFile;
    T_Extent m_stOwn;
    T_Extent m_stScaled;
    std::shared_ptr<const CPicture> m_pPicture;

    Bool Is(const std::string& i_strPath, const T_FileId& i_file, const T_WantedSize& i_size) const;
  };

  // Most recently used first.
  std::list<T_Entry> m_lstEntries;
  size_t m_bytes = 0;
};
