// What the screen must show after a row of texts: they are drawn one over the other.
#pragma once

#include "tests/oracle.h"
#include "tests/system/daemon.h"

inline T_DispRecord ItemOf(const T_Text& i_text) {
  T_DispRecord item{};
  item.m_u32Position = i_text.m_u8Align;
  item.m_u32X = i_text.m_u16X;
  item.m_u32Y = i_text.m_u16Y;
  item.m_u16FontSize = i_text.m_u8Size;
  item.m_u32TextColour = i_text.m_u32Colour;
  item.m_u32Background = i_text.m_u32Ground != 0 ? i_text.m_u32Ground : 0x3F616161;
  item.m_u16Line = 1;
  i_text.m_text.copy(item.m_aText[0], 64);
  std::replace(item.m_aText[0], item.m_aText[0] + std::min<size_t>(i_text.m_text.size(), 64), '\0',
               ' ');
  return item;
}

inline T_Picture Screen(const CDeviceRoot& i_root, UInt32 i_u32W, UInt32 i_u32H,
                        const std::vector<T_Text>& i_texts) {
  T_Picture picture{10, -20, i_u32W, i_u32H};
  for (const T_Text& text : i_texts)
    DrawItem(ItemOf(text), i_root.Path("/usr/share/fonts/monos.ttf"), &picture);
  return picture;
}
