#include "common/osd/cells.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

constexpr UInt32 kGuard = 0x5AFE5AFE;
constexpr T_CellColours kColours{0xFF123456, 0x3F616161};

UInt32 Below(UInt32 i_u32End) {
  static std::minstd_rand s_random;
  return static_cast<UInt32>(s_random() % i_u32End);
}

// A line of random cells, a few without a mask, at a random place and clip: each pixel has the
// colour of its bit, all others and those around the canvas stay.
void ExpectPixels(const T_Cell& i_cell, UInt32 i_u32Count, const T_CellLoops& i_loops) {
  static T_BitRows s_rows;
  static UInt64 s_u64Lines = 0;
  T_CellLine line{i_cell, i_u32Count, ++s_u64Lines, {}};
  std::vector<std::vector<UInt32>> masks(i_u32Count, std::vector<UInt32>(i_cell.MaskWords(), ~0U));
  for (UInt32 cell = 0; cell < i_u32Count; ++cell) {
    for (UInt32& word : masks[cell]) word = Below(1 << 30);
    for (UInt32 y = 0; i_cell.m_u32W % 32 != 0 && y < i_cell.m_u32H; ++y)
      masks[cell][i_cell.m_u32W / 32 * i_cell.m_u32H + y] &= (1U << i_cell.m_u32W % 32) - 1;
    line.m_apMask[cell] = Below(8) != 0 ? masks[cell].data() : nullptr;
  }
  const T_Rect place{Below(20), Below(4), i_cell.m_u32W * i_u32Count, i_cell.m_u32H};
  const UInt32 u32W = place.m_u32X + place.m_u32W + Below(20);
  const UInt32 u32H = place.m_u32Y + place.m_u32H + Below(4);
  const T_Rect some{Below(2) * Below(u32W), Below(2) * Below(u32H), 1 + Below(2 * u32W),
                    1 + Below(2 * u32H)};
  const T_Rect clip = Intersect({0, 0, u32W, u32H}, some);
  const T_Rect part = Intersect(place, clip);
  const UInt32 u32Front = 1 + Below(32);
  std::vector<UInt32> memory(u32Front + size_t{u32W} * u32H + 32, kGuard);
  std::vector<UInt32> expected = memory;
  for (UInt32 y = part.m_u32Y; y < part.m_u32Y + part.m_u32H; ++y)
    for (UInt32 x = part.m_u32X; x < part.m_u32X + part.m_u32W; ++x) {
      const UInt32* const pMask = line.m_apMask[(x - place.m_u32X) / i_cell.m_u32W];
      const UInt32 u32Column = (x - place.m_u32X) % i_cell.m_u32W;
      if (pMask == nullptr) continue;
      const UInt32 u32Word = pMask[u32Column / 32 * i_cell.m_u32H + y - place.m_u32Y];
      expected[u32Front + size_t{y} * u32W + x] =
          u32Word >> u32Column % 32 & 1 ? kColours.m_u32Foreground : kColours.m_u32Background;
    }
  for (int i = 0; i < 2; ++i) {  // the second one with bits that are kept
    std::fill(memory.begin(), memory.end(), kGuard);
    DrawCells(line, kColours, {memory.data() + u32Front, u32W, u32H}, place, clip, s_rows, i_loops);
    ASSERT_TRUE(memory == expected) << i_cell.m_u32W << 'x' << i_cell.m_u32H << '*' << i_u32Count;
  }
}

TEST(Cells, EveryVectorWidthDrawsEachPixelByItsBit) {
  for (const UInt32 u32Bits : {128U, 256U, 512U}) {
    const T_CellLoops* const pLoops = CellLoops(u32Bits);
    for (int i = 0; pLoops != nullptr && i < 1000; ++i)
      ExpectPixels({1 + Below(70), 1 + Below(40)}, 1 + Below(64), *pLoops);
    for (int i = 0; pLoops != nullptr && i < 8; ++i)
      ExpectPixels({310, 50}, 64, *pLoops);  // more than is joined at a time
  }
}

}  // namespace
