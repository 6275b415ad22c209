#include "common/osd/cell_bits.h"

#include <algorithm>
#include <cstring>
#include <iterator>

// Into one function for each vector width, which tells the compiler what the processor has there.
#define ALWAYS_INLINE [[gnu::always_inline]] inline

namespace {

constexpr UInt32 kWordBits = T_MaskWords::kPixels;
// Pixels of the narrowest vectors. Those are looked up by their bits, which takes fewer
// instructions than to select them; of wider ones there would be too many.
constexpr UInt32 kGroup = 4;

template <UInt32 kLanes>
struct T_Lanes {
  using T_Type [[gnu::vector_size(kLanes * sizeof(UInt32))]] = UInt32;
};
template <UInt32 kLanes>
using T_Vector = typename T_Lanes<kLanes>::T_Type;

// What a row of so many pixels takes: one word more before its first pixel, for what its first mask
// word has left of that, and two behind its last, which are looked at with the last.
constexpr UInt32 RowWords(UInt32 i_u32W) { return (i_u32W + kWordBits - 1) / kWordBits + 3; }

// Some rows of a part as bits: word i of row r is m_aWords[i * m_u32Stride + r]. The part begins at
// bit kWordBits. Small enough to leave the most of a first level cache to others.
struct T_BitRows {
  UInt32 m_u32Stride;
  alignas(64) UInt32 m_aWords[RowWords(T_CellPart::kMaxW) * (T_MaskWords::kSlack + 1)];
};

// The colours, apart from the part: stores to the canvas do not make the compiler read them again.
struct T_Paint {
  UInt32 m_u32Foreground;
  UInt32 m_u32Background;
  alignas(16) UInt32 m_aGroups[1U << kGroup][kGroup];  // set for the narrowest vectors
};

// Adds a mask column, a word of each row, from bit i_u32Shift of the words at io_pWords on. When
// that completes them, the next words begin with what is left of it.
template <UInt32 kLanes>
ALWAYS_INLINE void JoinColumn(const UInt32* i_pMask, UInt32 i_u32Shift, Bool i_bCompletes,
                              UInt32 i_u32Stride, UInt32* io_pWords) {
  for (UInt32 row = 0; row < i_u32Stride; row += kLanes) {
    T_Vector<kLanes> mask;
    T_Vector<kLanes> words;
    std::memcpy(&mask, i_pMask + row, sizeof(mask));
    std::memcpy(&words, io_pWords + row, sizeof(words));
    words |= mask << i_u32Shift;
    std::memcpy(io_pWords + row, &words, sizeof(words));
    if (!i_bCompletes) continue;
    mask = mask >> (kWordBits - 1 - i_u32Shift) >> 1;
    std::memcpy(io_pWords + i_u32Stride + row, &mask, sizeof(mask));
  }
}

template <UInt32 kLanes>
ALWAYS_INLINE void Join(const T_CellPart& i_part, UInt32 i_u32Row, T_BitRows& o_rows) {
  const UInt32 u32Stride = o_rows.m_u32Stride;
  const UInt32 u32End = kWordBits + i_part.m_u32W;
  UInt32 u32Column = i_part.m_u32X / kWordBits;
  UInt32 u32Bit = kWordBits - i_part.m_u32X % kWordBits;
  UInt32* pWords = o_rows.m_aWords + u32Bit / kWordBits * u32Stride;
  std::memset(pWords, 0, u32Stride * sizeof(UInt32));
  for (const UInt32* const* ppMask = i_part.m_ppMask; u32Bit < u32End; ++ppMask, u32Column = 0) {
    const UInt32* pMask = *ppMask + size_t{u32Column} * i_part.m_u32CellH + i_u32Row;
    UInt32 u32Left = i_part.m_u32CellW - u32Column * kWordBits;
    for (; u32Left > 0 && u32Bit < u32End; pMask += i_part.m_u32CellH) {
      const UInt32 u32Bits = std::min(u32Left, kWordBits);
      const UInt32 u32Shift = u32Bit % kWordBits;
      const Bool bCompletes = u32Shift + u32Bits >= kWordBits;
      JoinColumn<kLanes>(pMask, u32Shift, bCompletes, u32Stride, pWords);
      if (bCompletes) pWords += u32Stride;
      u32Left -= u32Bits;
      u32Bit += u32Bits;
    }
  }
  std::memset(pWords + u32Stride, 0, u32Stride * sizeof(UInt32));
}

// The pixels of kLanes bits, the first of them bit kFirst.
template <UInt32 kLanes, UInt32 kFirst = 0>
ALWAYS_INLINE void Put(const T_Paint& i_paint, UInt32 i_u32Bits, UInt32* o_pPixels) {
  if constexpr (kLanes == 1) {
    *o_pPixels = i_u32Bits & 1 ? i_paint.m_u32Foreground : i_paint.m_u32Background;
  } else {
    T_Vector<kLanes> bit;
    for (UInt32 i = 0; i < kLanes; ++i) bit[i] = 1U << (kFirst + i);
    const T_Vector<kLanes> foreground = i_paint.m_u32Foreground - T_Vector<kLanes>{};
    const T_Vector<kLanes> background = i_paint.m_u32Background - T_Vector<kLanes>{};
    const T_Vector<kLanes> pixels = (bit & i_u32Bits) == 0 ? background : foreground;
    std::memcpy(o_pPixels, &pixels, sizeof(pixels));
  }
}

template <UInt32 kLanes, UInt32 kFirst = 0>
ALWAYS_INLINE void PutWord(const T_Paint& i_paint, UInt32 i_u32Bits, UInt32* o_pPixels) {
  Put<kLanes, kFirst>(i_paint, i_u32Bits, o_pPixels + kFirst);
  if constexpr (kFirst + kLanes < kWordBits)
    PutWord<kLanes, kFirst + kLanes>(i_paint, i_u32Bits, o_pPixels);
}

// Two groups for each byte. Four bits in its upper half are where their group begins.
template <>
ALWAYS_INLINE void PutWord<kGroup>(const T_Paint& i_paint, UInt32 i_u32Bits, UInt32* o_pPixels) {
  constexpr size_t kBytes = sizeof(i_paint.m_aGroups[0]);
  static_assert(kBytes == 1U << kGroup);
  const auto* const pGroups = reinterpret_cast<const UInt8*>(i_paint.m_aGroups);
  UInt32 u32Low = i_u32Bits << kGroup & 0xF0F0F0F0;
  UInt32 u32High = i_u32Bits & 0xF0F0F0F0;
  for (UInt32 byte = 0; byte < sizeof(UInt32); ++byte, o_pPixels += 2 * kGroup) {
    std::memcpy(o_pPixels, pGroups + (u32Low & 0xFF), kBytes);
    std::memcpy(o_pPixels + kGroup, pGroups + (u32High & 0xFF), kBytes);
    u32Low >>= 8;
    u32High >>= 8;
  }
}

// i_u32Count pixels, fewer than kEnd: single ones first, for the others to lie on their boundary.
template <UInt32 kEnd, UInt32 kLanes = 1>
ALWAYS_INLINE void PutHead(const T_Paint& i_paint, UInt32 i_u32Bits, UInt32 i_u32Count,
                           UInt32* o_pPixels) {
  if constexpr (kLanes < kEnd) {
    const UInt32 u32Done = i_u32Count & kLanes;
    if (u32Done != 0) Put<kLanes>(i_paint, i_u32Bits, o_pPixels);
    PutHead<kEnd, 2 * kLanes>(i_paint, i_u32Bits >> u32Done, i_u32Count, o_pPixels + u32Done);
  }
}

// i_u32Count pixels, fewer than a word has: single ones last.
template <UInt32 kLanes>
ALWAYS_INLINE void PutTail(const T_Paint& i_paint, UInt32 i_u32Bits, UInt32 i_u32Count,
                           UInt32* o_pPixels) {
  for (; i_u32Count >= kLanes; i_u32Count -= kLanes, o_pPixels += kLanes) {
    Put<kLanes>(i_paint, i_u32Bits, o_pPixels);
    i_u32Bits >>= kLanes;
  }
  if constexpr (kLanes > 1) PutTail<kLanes / 2>(i_paint, i_u32Bits, i_u32Count, o_pPixels);
}

// i_u32W pixels, from the second of the words at i_pWords on.
template <UInt32 kLanes>
ALWAYS_INLINE void PaintRow(const T_Paint& i_paint, const UInt32* i_pWords, UInt32 i_u32Stride,
                            UInt32 i_u32W, UInt32* o_pPixels) {
  const auto place = reinterpret_cast<std::uintptr_t>(o_pPixels) / sizeof(UInt32);
  const UInt32 u32Head = std::min(static_cast<UInt32>(-place % kLanes), i_u32W);
  i_pWords += i_u32Stride;
  UInt64 u64Bits = *i_pWords;
  PutHead<kLanes>(i_paint, *i_pWords, u32Head, o_pPixels);
  o_pPixels += u32Head;
  const auto next = [&] {
    i_pWords += i_u32Stride;
    u64Bits |= UInt64{*i_pWords} << kWordBits;
    const auto u32Bits = static_cast<UInt32>(u64Bits >> u32Head);
    u64Bits >>= kWordBits;
    return u32Bits;
  };
  UInt32 u32Left = i_u32W - u32Head;
  for (; u32Left >= kWordBits; u32Left -= kWordBits, o_pPixels += kWordBits)
    PutWord<kLanes>(i_paint, next(), o_pPixels);
  PutTail<kLanes>(i_paint, next(), u32Left, o_pPixels);
}

template <UInt32 kLanes>
ALWAYS_INLINE void Draw(const T_CellPart& i_part) {
  T_Paint paint;
  paint.m_u32Foreground = i_part.m_u32Foreground;
  paint.m_u32Background = i_part.m_u32Background;
  if constexpr (kLanes == kGroup)
    for (UInt32 bits = 0; bits < std::size(paint.m_aGroups); ++bits)
      Put<kGroup>(paint, bits, paint.m_aGroups[bits]);
  T_BitRows rows;
  const UInt32 u32Fit =
      static_cast<UInt32>(std::size(rows.m_aWords)) / RowWords(i_part.m_u32W) / kLanes * kLanes;
  UInt32* pPixels = i_part.m_pPixels;
  for (UInt32 from = 0; from < i_part.m_u32H; from += u32Fit) {
    const UInt32 u32Rows = std::min(u32Fit, i_part.m_u32H - from);
    rows.m_u32Stride = (u32Rows + kLanes - 1) / kLanes * kLanes;
    Join<kLanes>(i_part, i_part.m_u32Y + from, rows);
    for (UInt32 row = 0; row < u32Rows; ++row, pPixels += i_part.m_u32Pitch)
      PaintRow<kLanes>(paint, rows.m_aWords + row, rows.m_u32Stride, i_part.m_u32W, pPixels);
  }
}

void Draw128(const T_CellPart& i_part) { Draw<4>(i_part); }
#ifdef __x86_64__
[[gnu::target("avx2")]] void Draw256(const T_CellPart& i_part) { Draw<8>(i_part); }
[[gnu::target("avx512f")]] void Draw512(const T_CellPart& i_part) { Draw<16>(i_part); }
#endif

}  // namespace

T_DrawPart PartDrawer(UInt32 i_u32Bits) {
#ifdef __x86_64__
  if (i_u32Bits == 512 && __builtin_cpu_supports("avx512f")) return Draw512;
  if (i_u32Bits == 256 && __builtin_cpu_supports("avx2")) return Draw256;
#endif
  return i_u32Bits == 128 ? Draw128 : nullptr;
}

T_DrawPart WidestPartDrawer() {
#ifdef OSD_VECTOR_BITS
  return PartDrawer(OSD_VECTOR_BITS);
#else
  for (const UInt32 u32Bits : {512U, 256U})
    if (const T_DrawPart pDraw = PartDrawer(u32Bits)) return pDraw;
  return PartDrawer(128);
#endif
}
