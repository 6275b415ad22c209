#include "common/osd/cell_bits.h"

#include <algorithm>
#include <cstring>
#include <iterator>

// Into one function for each vector width, which tells the compiler what the processor has there.
#define ALWAYS_INLINE [[gnu::always_inline]] inline

namespace {

constexpr UInt32 kWordBits = T_MaskWords::kPixels;
constexpr UInt32 kGroup = 4;
// Without an instruction that selects, it takes fewer of them to look four pixels up by their bits.
#ifdef __SSE2__
constexpr UInt32 kLookedUp = kGroup;
#else
constexpr UInt32 kLookedUp = 0;
#endif

template <UInt32 kLanes>
struct T_Lanes {
  using T_Type [[gnu::vector_size(kLanes * sizeof(UInt32))]] = UInt32;
};
template <UInt32 kLanes>
using T_Vector = typename T_Lanes<kLanes>::T_Type;

// By value: stores to the canvas do not make the compiler read it again.
struct T_Paint {
  UInt32 m_u32Foreground;
  UInt32 m_u32Background;
  alignas(16) UInt32 m_aGroups[1U << kGroup][kGroup];  // set if they are looked up
};

// Adds a mask column, a word of each row, from bit i_u32Shift of the words at io_pWords on. When
// that completes them, the next words begin with what is left of it.
template <UInt32 kLanes>
ALWAYS_INLINE void JoinColumn(const UInt32* i_pMask, UInt32 i_u32Shift, Bool i_bCompletes,
                              size_t i_stride, UInt32* io_pWords) {
  for (size_t row = 0; row < i_stride; row += kLanes) {
    T_Vector<kLanes> mask;
    T_Vector<kLanes> words;
    std::memcpy(&mask, i_pMask + row, sizeof(mask));
    std::memcpy(&words, io_pWords + row, sizeof(words));
    words |= mask << i_u32Shift;
    std::memcpy(io_pWords + row, &words, sizeof(words));
    if (!i_bCompletes) continue;
    mask = mask >> (kWordBits - 1 - i_u32Shift) >> 1;
    std::memcpy(io_pWords + i_stride + row, &mask, sizeof(mask));
  }
}

// o_rows.m_u32Stride rows from i_u32Row on, or as many as there are.
template <UInt32 kLanes>
ALWAYS_INLINE void Join(const T_CellPart& i_part, UInt32 i_u32Row, T_BitRows& o_rows) {
  const size_t stride = o_rows.m_u32Stride;
  const UInt32 u32End = kWordBits + i_part.m_u32W;
  UInt32 u32Column = i_part.m_u32X / kWordBits;
  UInt32 u32Bit = kWordBits - i_part.m_u32X % kWordBits;
  UInt32* pWords = o_rows.m_aWords + u32Bit / kWordBits * stride;
  std::memset(pWords, 0, stride * sizeof(UInt32));
  for (const UInt32* const* ppMask = i_part.m_ppMask; u32Bit < u32End; ++ppMask, u32Column = 0) {
    const UInt32* pMask = *ppMask + size_t{u32Column} * i_part.m_u32CellH + i_u32Row;
    UInt32 u32Left = i_part.m_u32CellW - u32Column * kWordBits;
    for (; u32Left > 0 && u32Bit < u32End; pMask += i_part.m_u32CellH) {
      const UInt32 u32Bits = std::min(u32Left, kWordBits);
      const UInt32 u32Shift = u32Bit % kWordBits;
      const Bool bCompletes = u32Shift + u32Bits >= kWordBits;
      JoinColumn<kLanes>(pMask, u32Shift, bCompletes, stride, pWords);
      if (bCompletes) pWords += stride;
      u32Left -= u32Bits;
      u32Bit += u32Bits;
    }
  }
  std::memset(pWords + stride, 0, stride * sizeof(UInt32));
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

// Two groups for each byte. Four bits in its upper half are where their group begins.
ALWAYS_INLINE void LookUpWord(const T_Paint& i_paint, UInt32 i_u32Bits, UInt32* o_pPixels) {
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

template <UInt32 kLanes, UInt32 kFirst = 0>
ALWAYS_INLINE void PutWord(const T_Paint& i_paint, UInt32 i_u32Bits, UInt32* o_pPixels) {
  if constexpr (kLanes == kLookedUp) {
    LookUpWord(i_paint, i_u32Bits, o_pPixels);
  } else {
    Put<kLanes, kFirst>(i_paint, i_u32Bits, o_pPixels + kFirst);
    if constexpr (kFirst + kLanes < kWordBits)
      PutWord<kLanes, kFirst + kLanes>(i_paint, i_u32Bits, o_pPixels);
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

// A word from bit i_u32Shift of that one on.
ALWAYS_INLINE UInt32 BitsFrom(const UInt32* i_pWord, size_t i_stride, UInt32 i_u32Shift) {
  const UInt64 u64Both = UInt64{i_pWord[i_stride]} << kWordBits | i_pWord[0];
  return static_cast<UInt32>(u64Both >> i_u32Shift);
}

// i_u32W pixels, from the second of the words at i_pWords on.
template <UInt32 kLanes>
ALWAYS_INLINE void PaintRow(const T_Paint& i_paint, const UInt32* i_pWords, size_t i_stride,
                            UInt32 i_u32W, UInt32* o_pPixels) {
  const auto place = reinterpret_cast<std::uintptr_t>(o_pPixels) / sizeof(UInt32);
  const UInt32 u32Head = std::min(static_cast<UInt32>(-place % kLanes), i_u32W);
  i_pWords += i_stride;
  PutHead<kLanes>(i_paint, *i_pWords, u32Head, o_pPixels);
  o_pPixels += u32Head;
  UInt32 u32Left = i_u32W - u32Head;
  for (; u32Left >= kWordBits; u32Left -= kWordBits, o_pPixels += kWordBits, i_pWords += i_stride)
    PutWord<kLanes>(i_paint, BitsFrom(i_pWords, i_stride, u32Head), o_pPixels);
  PutTail<kLanes>(i_paint, BitsFrom(i_pWords, i_stride, u32Head), u32Left, o_pPixels);
}

template <UInt32 kLanes>
ALWAYS_INLINE void Paint(const T_CellTarget& i_target, const T_BitRows& i_rows, UInt32 i_u32Rows,
                         UInt32 i_u32W, UInt32* o_pPixels) {
  T_Paint paint;
  paint.m_u32Foreground = i_target.m_u32Foreground;
  paint.m_u32Background = i_target.m_u32Background;
  if constexpr (kLanes == kLookedUp)
    for (UInt32 bits = 0; bits < std::size(paint.m_aGroups); ++bits)
      Put<kGroup>(paint, bits, paint.m_aGroups[bits]);
  const size_t stride = i_rows.m_u32Stride;
  const size_t pitch = i_target.m_u32Pitch;
  const UInt32* const pEnd = i_rows.m_aWords + i_u32Rows;
  for (const UInt32* pWords = i_rows.m_aWords; pWords != pEnd; ++pWords, o_pPixels += pitch)
    PaintRow<kLanes>(paint, pWords, stride, i_u32W, o_pPixels);
}

}  // namespace

// The same loops, made for what the processor has.
struct T_CellLoops {
  UInt32 m_u32Lanes;
  void (*m_pJoin)(const T_CellPart&, UInt32, T_BitRows&);
  void (*m_pPaint)(const T_CellTarget&, const T_BitRows&, UInt32, UInt32, UInt32*);
};

#define LOOPS(bits, target)                                                                        \
  target void Join##bits(const T_CellPart& i_part, UInt32 i_u32Row, T_BitRows& o_rows) {           \
    Join<bits / kWordBits>(i_part, i_u32Row, o_rows);                                              \
  }                                                                                                \
  target void Paint##bits(const T_CellTarget& i_target, const T_BitRows& i_rows, UInt32 i_u32Rows, \
                          UInt32 i_u32W, UInt32* o_pPixels) {                                      \
    Paint<bits / kWordBits>(i_target, i_rows, i_u32Rows, i_u32W, o_pPixels);                       \
  }                                                                                                \
  constexpr T_CellLoops kLoops##bits{bits / kWordBits, Join##bits, Paint##bits};

namespace {

LOOPS(128, )
#ifdef __x86_64__
LOOPS(256, [[gnu::target("avx2")]])
LOOPS(512, [[gnu::target("avx512f")]])
#endif

}  // namespace

const T_CellLoops* CellLoops(UInt32 i_u32Bits) {
#ifdef __x86_64__
  if (i_u32Bits == 512 && __builtin_cpu_supports("avx512f")) return &kLoops512;
  if (i_u32Bits == 256 && __builtin_cpu_supports("avx2")) return &kLoops256;
#endif
  return i_u32Bits == 128 ? &kLoops128 : nullptr;
}

const T_CellLoops* WidestCellLoops() {
#ifdef OSD_VECTOR_BITS  // for measuring: what a processor with no wider ones would do
  return CellLoops(OSD_VECTOR_BITS);
#else
  for (const UInt32 u32Bits : {512U, 256U})
    if (const T_CellLoops* const pLoops = CellLoops(u32Bits)) return pLoops;
  return CellLoops(128);
#endif
}

void DrawPart(const T_CellPart& i_part, const T_CellTarget& i_target, const T_CellLoops& i_loops,
              T_BitRows& io_rows) {
  const UInt32 u32Lanes = i_loops.m_u32Lanes;
  const UInt32 u32Fit = static_cast<UInt32>(std::size(io_rows.m_aWords)) / BitWords(i_part.m_u32W) /
                        u32Lanes * u32Lanes;
  UInt32* pPixels = i_target.m_pPixels;
  for (UInt32 from = 0; from < i_part.m_u32H; from += u32Fit) {
    const UInt32 u32Rows = std::min(u32Fit, i_part.m_u32H - from);
    if (i_part.m_u64Line == 0 || io_rows.m_stPart != i_part) {
      io_rows.m_stPart = u32Rows == i_part.m_u32H ? i_part : T_CellPart{};
      io_rows.m_u32Stride = (u32Rows + u32Lanes - 1) / u32Lanes * u32Lanes;
      i_loops.m_pJoin(i_part, i_part.m_u32Y + from, io_rows);
    }
    i_loops.m_pPaint(i_target, io_rows, u32Rows, i_part.m_u32W, pPixels);
    pPixels += size_t{u32Rows} * i_target.m_u32Pitch;
  }
}
