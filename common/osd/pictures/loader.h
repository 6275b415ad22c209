// From a file to pictures in the sizes that they are wanted in. No state; blocks for as long as
// reading and decoding take, so the renderer's thread never calls it. Any thread.
#pragma once

#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "common/osd/pictures/file_id.h"
#include "common/osd/pictures/picture.h"

// How a picture is wanted on one canvas, px. A width and height of 0 mean the picture's own, a
// single 0 keeps the aspect. What passes m_stRoom (at least 1 x 1) is cut off at the right and
// the bottom, after scaling.
struct T_WantedSize {
  T_Extent m_stScaled;
  T_Extent m_stRoom;

  bool operator==(const T_WantedSize&) const = default;
};

// The size that a picture of i_stOwn px is scaled to, before it is cut; at least 1 x 1. A kept
// aspect rounds to the nearest pixel.
T_Extent ScaledExtent(const T_Extent& i_stOwn, const T_Extent& i_stWanted);

struct T_Loaded {
  std::string m_strError;  // empty when the pictures are there; else why not, without the path
  T_FileId m_stFile;
  T_Extent m_stOwn;                                            // the picture's own size
  std::vector<std::shared_ptr<const CPicture>> m_vecPictures;  // one for each size, in order
};

// The identity of the file i_strPath (as a request names it) as it is now; all zeros when there is
// none. Does not open it.
T_FileId IdentifyFile(const std::string& i_strPath);

// Reads the PNG, JPEG or BMP file i_strPath; its first bytes tell which. Refused, in words: what
// is not a regular file, cannot be read, is empty or above 64 MiB, of another format, damaged,
// above CPicture's limits, or changed while it was read. i_stop ends the work early, with an error
// that nobody will read.
T_Loaded LoadPicture(const std::string& i_strPath, std::span<const T_WantedSize> i_sizes,
                     std::stop_token i_stop);

// The same for the whole screen: the picture as large as fits each canvas of i_canvases, in the
// middle, on opaque black. Unless i_strOverlay is empty or no such file exists, that picture is
// laid over the middle of the first one, pixel by pixel of its own, before both are scaled; when
// it cannot be read, the reason is logged and the picture goes without it.
T_Loaded LoadScreen(const std::string& i_strPath, const std::string& i_strOverlay,
                    std::span<const T_Extent> i_canvases, std::stop_token i_stop);
