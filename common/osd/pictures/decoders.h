// One function for each format that a picture's file may have. Each reads io_file from its start,
// checks CPicture's limits before it takes memory, and gives nullopt with the reason in *o_pError
// when the file is damaged, of a kind that is not read, or i_stop was asked for. No state.
#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "common/osd/pictures/picture.h"
#include "common/osd/pictures/picture_file.h"

std::optional<CPicture> DecodePng(CPictureFile& io_file, const std::stop_token& i_stop,
                                  std::string* o_pError);

// 24 and 32 bits a pixel.
std::optional<CPicture> DecodeBmp(CPictureFile& io_file, const std::stop_token& i_stop,
                                  std::string* o_pError);

// By the program djpeg, which gets at most 5 s. Its result passes through a file without a name in
// the temporary folder, "/yuvfile".
std::optional<CPicture> DecodeJpeg(CPictureFile& io_file, const std::stop_token& i_stop,
                                   std::string* o_pError);

// Rows after which a long work looks whether it shall stop.
inline constexpr UInt32 kRowsPerLook = 64;

// *o_pError in words, formatted like printf.
std::nullopt_t Refuse(std::string* o_pError, const char* i_pFormat, ...)
    __attribute__((format(printf, 2, 3)));

// Why CPictureFile::Read failed just now.
const char* WhyNotRead();

// Whether a picture may have i_u64W x i_u64H pixels; else *o_pError says why not.
Bool IsSizeAllowed(UInt64 i_u64W, UInt64 i_u64H, std::string* o_pError);

// Memory for an allowed size; nullopt and *o_pError when there is none.
std::optional<CPicture> NewPicture(const T_Extent& i_extent, std::string* o_pError);
