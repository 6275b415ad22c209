// From a file to pictures in the sizes that they are wanted in. No state; any thread, but not the
// renderer's: it takes as long as reading and decoding take.
#pragma once

#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "common/osd/pictures/file_id.h"
#include "common/osd/pictures/picture.h"
#include "common/osd/pictures/result.h"

// How large a picture is wanted on one canvas, px.
struct T_WantedSize {
  T_Extent m_stScaled;  // both sides 0: the picture's own size; one side 0: as the aspect asks
  T_Extent m_stRoom;    // at least 1 x 1; what passes it after scaling is cut at right and bottom

  bool operator==(const T_WantedSize&) const = default;
};

// The size in px that a picture of i_stOwn px is scaled to before it is cut, by a wanted size as
// T_WantedSize::m_stScaled. At least 1 x 1; a side that the aspect asks for is rounded.
T_Extent ScaledExtent(const T_Extent& i_stOwn, const T_Extent& i_stWanted);

struct T_Loaded {
  T_FileId m_stFile;                                           // when it was opened
  T_Extent m_stOwn;                                            // the picture's own size
  std::vector<std::shared_ptr<const CPicture>> m_vecPictures;  // one for each size, in order
};

// The identity of the file i_strPath (as a request names it) as it is now; all zeros when there is
// none. Does not open it.
T_FileId IdentifyFile(const std::string& i_strPath);

// Reads the PNG, JPEG or BMP file i_strPath; its first bytes tell which. Refused when it is no
// regular file, cannot be read, is empty or above 64 MiB, of another format, damaged, changed while
// it was read, above CPicture's limits, in itself or as it is wanted, when memory runs out, and for
// a JPEG when djpeg fails or has no temporary file. i_stop ends the work early, with a refusal,
// too.
CResult<T_Loaded> LoadPicture(const std::string& i_strPath, std::span<const T_WantedSize> i_sizes,
                              std::stop_token i_stop);

// The same for whole screens: for each canvas the picture as large as it fits, in the middle, on
// opaque black. Unless i_strOverlay is empty or no such file exists, that picture is laid over the
// middle of the first one, unscaled, before both are scaled together. When the overlay cannot be
// read, that is logged and the picture is made without it.
CResult<T_Loaded> LoadScreen(const std::string& i_strPath, const std::string& i_strOverlay,
                             std::span<const T_Extent> i_canvases, std::stop_token i_stop);
