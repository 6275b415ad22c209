// Pictures in other sizes: bilinear along a side that grows, the mean of the covered area along one
// that shrinks. No state; any thread.
#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "common/osd/pictures/picture.h"

// i_picture scaled to i_stScaled px, both at least 1, of which only the upper left i_stSeen are
// made; those are at most i_stScaled and at most what a CPicture may have. An unscaled side keeps
// its pixels as they are; colours of translucent pixels pass through 8 bits times alpha otherwise.
// nullopt with the reason in *o_pError when memory is lacking or i_stop is asked for.
std::optional<CPicture> ScalePicture(const CPicture& i_picture, const T_Extent& i_stScaled,
                                     const T_Extent& i_stSeen, const std::stop_token& i_stop,
                                     std::string* o_pError);
