// For a side that is scaled to a shorter one: which of its px, each with what weight, make one px
// of the shorter side, namely those that it covers. Does not change once it is made; any thread.
#pragma once

#include <pixman.h>

#include <cstdlib>
#include <memory>

#include "framework/types.h"

// Source px for one px, in 1/65536; at most 2^29.
pixman_fixed_t Ratio(UInt32 i_u32From, UInt32 i_u32To);

class CAreaFilter {
 public:
  // i_u32To is below i_u32From. Throws std::bad_alloc.
  CAreaFilter(UInt32 i_u32From, UInt32 i_u32To);

  struct T_Taps {
    UInt32 m_u32First;  // px of the longer side
    UInt32 m_u32Last;
    SInt32 m_s32Start;  // the px of the first weight, maybe before the edge
    const pixman_fixed_t* m_pWeights;
  };
  // The px of the longer side that make px i_u32At of the shorter one.
  T_Taps Of(UInt32 i_u32At) const;

  // The weight of px i_u32Px, from the first to the last of i_taps, in 1/65536. All of them
  // together are 65536.
  UInt32 Weight(const T_Taps& i_taps, UInt32 i_u32Px) const;

 private:
  struct T_Free {
    void operator()(pixman_fixed_t* i_pTable) const { std::free(i_pTable); }
  };

  UInt32 m_u32From;
  pixman_fixed_t m_ratio;
  int m_phaseBits;
  SInt32 m_s32Taps;
  std::unique_ptr<pixman_fixed_t, T_Free> m_pTable;
};
