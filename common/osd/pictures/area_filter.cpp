#include "common/osd/pictures/area_filter.h"

#include <algorithm>
#include <bit>
#include <new>
#include <numeric>

namespace {

constexpr int kTableHead = 4;  // taps and phase bits of both sides

// As many positions between two px as a table of some 64 K weights allows: fine for the strong
// contrasts of few px, coarse where one px of hundreds counts little.
int SubsampleBits(pixman_fixed_t i_ratio) {
  const int taps = static_cast<int>(std::bit_width(static_cast<UInt32>(i_ratio) >> 16)) + 1;
  return std::clamp(16 - taps, 2, 11);
}

}  // namespace

// When a side grows more than 65536 times, only its first px can ever be seen, whatever the ratio.
pixman_fixed_t Ratio(UInt32 i_u32From, UInt32 i_u32To) {
  const UInt64 u64Ratio = ((UInt64{i_u32From} << 16) + i_u32To / 2) / i_u32To;
  return static_cast<pixman_fixed_t>(std::max<UInt64>(u64Ratio, 1));
}

CAreaFilter::CAreaFilter(UInt32 i_u32From, UInt32 i_u32To)
    : m_u32From(i_u32From),
      m_ratio(Ratio(i_u32From, i_u32To)),
      m_phaseBits(SubsampleBits(m_ratio)) {
  int values = 0;
  m_pTable.reset(pixman_filter_create_separable_convolution(
      &values, m_ratio, pixman_fixed_1, PIXMAN_KERNEL_BOX, PIXMAN_KERNEL_BOX, PIXMAN_KERNEL_BOX,
      PIXMAN_KERNEL_IMPULSE, m_phaseBits, 0));
  if (!m_pTable) throw std::bad_alloc();
  m_s32Taps = pixman_fixed_to_int(*m_pTable);
}

// The middle of the px on the longer side is rounded to the nearest position in the table.
CAreaFilter::T_Taps CAreaFilter::Of(UInt32 i_u32At) const {
  const SInt64 s64Twice = SInt64{m_ratio} * (2 * SInt64{i_u32At} + 1);
  const auto middle = static_cast<SInt32>((s64Twice + 1) / 2);
  const SInt32 s32Step = pixman_fixed_1 >> m_phaseBits;
  const SInt32 s32Phase = (middle & 0xFFFF) / s32Step;
  const SInt32 s32Rounded = middle / s32Step * s32Step + s32Step / 2;
  const SInt32 s32Start = (s32Rounded - 1 - ((m_s32Taps - 1) << 16) / 2) >> 16;
  const SInt32 s32Last = std::min(s32Start + m_s32Taps, static_cast<SInt32>(m_u32From)) - 1;
  return {static_cast<UInt32>(std::max(s32Start, 0)), static_cast<UInt32>(s32Last), s32Start,
          &m_pTable.get()[kTableHead + s32Phase * m_s32Taps]};
}

// What lies before the first px or behind the last one counts as that px.
UInt32 CAreaFilter::Weight(const T_Taps& i_taps, UInt32 i_u32Px) const {
  const SInt32 s32Tap = static_cast<SInt32>(i_u32Px) - i_taps.m_s32Start;
  const Bool bLast = i_u32Px == m_u32From - 1;
  if (i_u32Px != 0 && !bLast) return static_cast<UInt32>(i_taps.m_pWeights[s32Tap]);
  const SInt32 s32First = i_u32Px == 0 ? 0 : s32Tap;
  const SInt32 s32End = bLast ? m_s32Taps : s32Tap + 1;
  return static_cast<UInt32>(
      std::accumulate(i_taps.m_pWeights + s32First, i_taps.m_pWeights + s32End, 0));
}
