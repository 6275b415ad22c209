// A size in px.
#pragma once

#include "framework/types.h"

struct T_Extent {
  UInt32 m_u32W = 0;
  UInt32 m_u32H = 0;

  size_t Pixels() const { return size_t{m_u32W} * m_u32H; }
  bool operator==(const T_Extent&) const = default;
};
