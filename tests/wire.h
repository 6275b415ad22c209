// Datagrams made from the wire's layout alone, so that no test shares a mistake with the product's
// encoder.
#pragma once

#include <string>
#include <type_traits>
#include <vector>

#include "framework/types.h"

using Bytes = std::vector<UInt8>;

enum : UInt32 { kText = 0x10000, kHide, kDelete, kGuide, kCalibrate, kImage, kImageHide };
enum : UInt32 { kInit = 0x1FFFE, kDeInit };

// The fields in the order given, without padding: integers little-endian, texts and bytes as they are.
template <class... T>
Bytes Pack(const T&... i_fields) {
  Bytes bytes;
  const auto append = [&](const auto& i_field) {
    if constexpr (std::is_integral_v<std::remove_cvref_t<decltype(i_field)>>)
      for (size_t byte = 0; byte < sizeof(i_field); ++byte)
        bytes.push_back(static_cast<UInt8>(static_cast<UInt64>(i_field) >> 8 * byte));
    else
      bytes.insert(bytes.end(), i_field.begin(), i_field.end());
  };
  (append(i_fields), ...);
  return bytes;
}

inline Bytes Datagram(UInt32 i_u32Seq, UInt32 i_u32Id, const Bytes& i_body,
                      const std::string& i_type = "CMD") {
  return Pack(UInt32{0x88776655}, UInt8{0}, i_type, i_u32Seq, i_u32Id,
              static_cast<UInt16>(i_body.size()), i_body);
}

// An OsdStringShow.
struct T_Text {
  UInt16 m_u16Output = 0;
  UInt16 m_u16Seq = 0x101;
  UInt32 m_u32Flag = 0x3F;
  UInt8 m_u8Align = 1;
  UInt16 m_u16X = 0;
  UInt16 m_u16Y = 0;
  UInt8 m_u8Size = 48;
  UInt32 m_u32Colour = 0xFFFFFFFF;
  UInt32 m_u32Ground = 0xC0202080;
  std::string m_text = {};

  Bytes Body() const {
    return Pack(m_u16Output, m_u16Seq, m_u32Flag, m_u8Align, m_u16X, m_u16Y, m_u8Size, m_u32Colour,
                m_u32Ground, static_cast<UInt16>(m_text.size()), m_text);
  }
};
