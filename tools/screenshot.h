// A picture of the software screen: its layer files, read without tearing while the daemon draws,
// composited in layer order over a backdrop, and written as a PNG. No state; any thread.
//
// Every function says a failure in *o_pError, in one sentence without a full stop: what failed, on
// which file, why, and what to do.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/types.h"

enum class EBackdrop { kBlack, kGrey, kChecker };

struct T_LayerImage {
  Bool m_bShown;
  SInt32 m_s32X;  // place on the screen, px
  SInt32 m_s32Y;
  UInt32 m_u32Width;  // px; 0 = the layer was never set up
  UInt32 m_u32Height;
  UInt32 m_u32AlphaFlags;  // T_LayerHeader::kAlphaEnabled, kAlphaPerPixel
  UInt32 m_u32GlobalAlpha;
  UInt64 m_u64Sequence;           // even; two more after each refresh
  std::vector<UInt32> m_vecArgb;  // rows of m_u32Width, straight alpha
};

struct T_Image {
  UInt32 m_u32Width;
  UInt32 m_u32Height;
  std::vector<UInt8> m_vecRgb;  // rows of m_u32Width * 3 bytes
};

// One layer file as it stood between two refreshes; an image without size for an empty one. Fails
// when it cannot be opened, is no layer file, is cut, or was being redrawn at every of 200 tries (0.4 s).
std::optional<T_LayerImage> ReadLayer(const std::string& i_strPath, std::string* o_pError);

// The shown layers, the first one lowest. The picture reaches from the screen's origin to the
// farthest right and bottom edge; what a layer has left of or above the origin is off the screen.
// Fails when no shown layer reaches the screen, and when one reaches farther than 16384 px.
std::optional<T_Image> Composite(const std::vector<T_LayerImage>& i_layers, EBackdrop i_eBackdrop,
                                 std::string* o_pError);

// Writes i_image as an RGB PNG, in place of what i_strPath names. Fails as the file system does.
Bool WritePng(const std::string& i_strPath, const T_Image& i_image, std::string* o_pError);

// All of the above for the layers 0 to 7 of this build's device root, into the file i_strPngPath.
Bool TakeScreenshot(const std::string& i_strPngPath, EBackdrop i_eBackdrop, std::string* o_pError);
