// Pictures in other sizes, made from their rows as they come: bilinear along a side that grows, the
// mean of the covered area along one that shrinks. Beside the pixels that it makes, a scaler takes
// less than 0.8 MiB, whatever the sizes. One thread.
#pragma once

#include <memory>
#include <vector>

#include "common/osd/pictures/picture.h"

class CScaler {
 public:
  // Scales a picture of i_stOwn px, with alpha or without, to i_stScaled px, both at least 1 x 1,
  // and writes the upper left part of that into i_target, which is borrowed, as much as that holds.
  // In its own size it is copied. Scaled, the colours of one with alpha are multiplied by alpha, in
  // 8 bits, and divided again. Throws std::bad_alloc.
  CScaler(const T_Extent& i_stOwn, Bool i_bAlpha, const T_Extent& i_stScaled,
          const T_Part& i_target);
  ~CScaler();
  CScaler(CScaler&&) noexcept;

  // The next row of the picture. Throws std::bad_alloc.
  void Take(const UInt32* i_pRow);

  // To be called after the last row: then the target has its pixels.
  void Finish();

 private:
  class CNarrowing;
  class CLowering;
  class CGrowth;

  void Put(const UInt32* i_pRow);

  T_Part m_target;
  Bool m_bPremultiplies;
  UInt32 m_u32Needed;  // rows
  UInt32 m_u32Taken = 0;
  UInt32 m_u32Put = 0;
  std::vector<UInt32> m_premultiplied;
  // Null where there is nothing to do for them.
  std::unique_ptr<CNarrowing> m_pNarrowing;
  std::unique_ptr<CLowering> m_pLowering;
  std::unique_ptr<CGrowth> m_pGrowth;
};
