#include "common/osd/pictures/scaler.h"

#include <pixman.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "common/osd/pictures/area_filter.h"
#include "common/osd/pictures/blend.h"

namespace {

// Weighted sums of the four channels of some px, each with the weights of 65536 in all.
using T_Sums = std::vector<UInt32>;

void AddWeighted(const UInt32* i_pPixels, UInt32 i_u32Weight, T_Sums& io_sums) {
  const auto* const pBytes = reinterpret_cast<const UInt8*>(i_pPixels);
  for (size_t i = 0; i < io_sums.size(); ++i) io_sums[i] += pBytes[i] * i_u32Weight;
}

void PutRounded(const UInt32* i_pSums, size_t i_count, UInt32* o_pPixels) {
  auto* const pBytes = reinterpret_cast<UInt8*>(o_pPixels);
  for (size_t i = 0; i < i_count; ++i) pBytes[i] = static_cast<UInt8>((i_pSums[i] + 0x8000) >> 16);
}

UInt32 Premultiplied(UInt32 i_u32Argb) {
  const UInt32 u32Alpha = i_u32Argb >> 24;
  if (u32Alpha == 0xFF) return i_u32Argb;
  UInt32 u32Argb = u32Alpha << 24;
  for (UInt32 u32Shift = 0; u32Shift < 24; u32Shift += 8)
    u32Argb |= By255((i_u32Argb >> u32Shift & 0xFF) * u32Alpha) << u32Shift;
  return u32Argb;
}

UInt32 Straight(UInt32 i_u32Argb) {
  const UInt32 u32Alpha = i_u32Argb >> 24;
  if (u32Alpha == 0xFF || u32Alpha == 0) return i_u32Argb;
  UInt32 u32Straight = u32Alpha << 24;
  for (UInt32 u32Shift = 0; u32Shift < 24; u32Shift += 8) {
    const UInt32 u32Value = ((i_u32Argb >> u32Shift & 0xFF) * 255 + u32Alpha / 2) / u32Alpha;
    u32Straight |= std::min(u32Value, 255U) << u32Shift;
  }
  return u32Straight;
}

// How many px of a side of i_u32From px the first i_u32Seen of i_u32To px are made of, with their
// neighbours.
UInt32 Needed(UInt32 i_u32From, UInt32 i_u32To, UInt32 i_u32Seen) {
  if (i_u32From == i_u32To) return i_u32Seen;
  const UInt64 u64Reach =
      (UInt64{i_u32Seen} * static_cast<UInt32>(Ratio(i_u32From, i_u32To)) >> 16);
  return static_cast<UInt32>(std::min<UInt64>(u64Reach + 2, i_u32From));
}

}  // namespace

// Makes a row narrower.
class CScaler::CNarrowing {
 public:
  CNarrowing(UInt32 i_u32From, UInt32 i_u32To, UInt32 i_u32Seen)
      : m_filter(i_u32From, i_u32To), m_row(i_u32Seen) {}

  const UInt32* Make(const UInt32* i_pRow) {
    for (UInt32 u32X = 0; u32X < m_row.size(); ++u32X) {
      const CAreaFilter::T_Taps taps = m_filter.Of(u32X);
      std::array<UInt32, 4> sums{};
      for (UInt32 u32Px = taps.m_u32First; u32Px <= taps.m_u32Last; ++u32Px) {
        const auto* const pBytes = reinterpret_cast<const UInt8*>(i_pRow + u32Px);
        const UInt32 u32Weight = m_filter.Weight(taps, u32Px);
        for (size_t i = 0; i < sums.size(); ++i) sums[i] += pBytes[i] * u32Weight;
      }
      PutRounded(sums.data(), sums.size(), &m_row[u32X]);
    }
    return m_row.data();
  }

 private:
  const CAreaFilter m_filter;
  std::vector<UInt32> m_row;
};

// Makes fewer rows of those that come: each is added to all rows that it has a share in, which are
// kMostAtOnce at most.
class CScaler::CLowering {
 public:
  CLowering(UInt32 i_u32From, UInt32 i_u32To, UInt32 i_u32Seen, UInt32 i_u32W)
      : m_filter(i_u32From, i_u32To), m_u32Seen(i_u32Seen), m_row(i_u32W) {}

  void Add(const UInt32* i_pRow) {
    while (m_u32Begun < m_u32Seen && m_filter.Of(m_u32Begun).m_u32First <= m_u32Added)
      Sums(m_u32Begun++).assign(m_row.size() * sizeof(UInt32), 0);
    for (UInt32 u32Y = m_u32Made; u32Y < m_u32Begun; ++u32Y) {
      const CAreaFilter::T_Taps taps = m_filter.Of(u32Y);
      if (m_u32Added <= taps.m_u32Last)
        AddWeighted(i_pRow, m_filter.Weight(taps, m_u32Added), Sums(u32Y));
    }
    ++m_u32Added;
  }

  // The next row that is complete; null when there is none.
  const UInt32* Next() {
    if (m_u32Made == m_u32Begun || m_filter.Of(m_u32Made).m_u32Last >= m_u32Added) return nullptr;
    const T_Sums& sums = Sums(m_u32Made++);
    PutRounded(sums.data(), sums.size(), m_row.data());
    return m_row.data();
  }

 private:
  // Areas of 1 to 2 px reach over three at most and begin one px after the other.
  static constexpr size_t kMostAtOnce = 4;

  T_Sums& Sums(UInt32 i_u32Y) { return m_aSums[i_u32Y % kMostAtOnce]; }

  const CAreaFilter m_filter;
  const UInt32 m_u32Seen;
  UInt32 m_u32Added = 0;  // rows that came
  UInt32 m_u32Begun = 0;  // rows that some of them were added to
  UInt32 m_u32Made = 0;   // rows that are complete
  T_Sums m_aSums[kMostAtOnce];
  std::vector<UInt32> m_row;
};

// Enlarges one side or both, with pixman, some rows at a time.
class CScaler::CGrowth {
 public:
  CGrowth(const T_Extent& i_stFrom, pixman_fixed_t i_ratioX, pixman_fixed_t i_ratioY,
          const T_Part& i_target)
      : m_stFrom(i_stFrom),
        m_ratioX(i_ratioX),
        m_ratioY(i_ratioY),
        m_target(i_target),
        m_window({i_stFrom.m_u32W, std::clamp(kWindowPixels / i_stFrom.m_u32W, 2U, kMostRows)}) {}

  void Add(const UInt32* i_pRow) {
    std::copy_n(i_pRow, m_stFrom.m_u32W, m_window.Row(m_u32Rows++));
    const Bool bLast = m_u32First + m_u32Rows == m_stFrom.m_u32H;
    if (m_u32Rows < m_window.Extent().m_u32H && !bLast) return;
    const UInt32 u32Begin = m_u32Made;
    const UInt32 u32Last = m_u32First + m_u32Rows - 1;
    while (m_u32Made < m_target.m_stExtent.m_u32H && (bLast || Above(m_u32Made) < u32Last))
      ++m_u32Made;
    Make(u32Begin, m_u32Made);
    // The last row is the upper neighbour of what comes next.
    std::copy_n(m_window.Row(m_u32Rows - 1), m_stFrom.m_u32W, m_window.Row(0));
    m_u32First = u32Last;
    m_u32Rows = 1;
  }

 private:
  static constexpr UInt32 kWindowPixels = 1 << 15;
  static constexpr UInt32 kMostRows = 64;
  // Bilinear weights have 7 bits, the rest is cut off: half a step more makes that rounding.
  static constexpr pixman_fixed_t kHalfStep = pixman_fixed_1 / 256;

  struct T_Unref {
    void operator()(pixman_image_t* i_pImage) const { pixman_image_unref(i_pImage); }
  };
  using T_Image = std::unique_ptr<pixman_image_t, T_Unref>;

  // pixman writes to the target of a composition only.
  static T_Image Wrap(const T_Part& i_part) {
    T_Image pImage(
        pixman_image_create_bits(PIXMAN_a8r8g8b8, static_cast<int>(i_part.m_stExtent.m_u32W),
                                 static_cast<int>(i_part.m_stExtent.m_u32H), i_part.m_pFirst,
                                 static_cast<int>(i_part.m_stride * sizeof(UInt32))));
    if (!pImage) throw std::bad_alloc();
    return pImage;
  }

  // The upper of the two rows between which row i_u32Y lies; before the first one it is -1.
  SInt64 Above(UInt32 i_u32Y) const {
    const SInt64 s64Middle = (SInt64{m_ratioY} * (2 * SInt64{i_u32Y} + 1) + 1) / 2 + kHalfStep;
    return (s64Middle - pixman_fixed_1 / 2) >> 16;
  }

  void Make(UInt32 i_u32Begin, UInt32 i_u32End) {
    if (i_u32Begin == i_u32End) return;
    const T_Image source = Wrap({m_window.Row(0), m_stFrom.m_u32W, {m_stFrom.m_u32W, m_u32Rows}});
    const T_Image target = Wrap(m_target);
    const pixman_fixed_t moved = kHalfStep - pixman_int_to_fixed(static_cast<SInt32>(m_u32First));
    const pixman_transform_t transform = {
        {{m_ratioX, 0, kHalfStep}, {0, m_ratioY, moved}, {0, 0, pixman_fixed_1}}};
    pixman_image_set_repeat(source.get(), PIXMAN_REPEAT_PAD);
    if (!pixman_image_set_transform(source.get(), &transform) ||
        !pixman_image_set_filter(source.get(), PIXMAN_FILTER_BILINEAR, nullptr, 0))
      throw std::bad_alloc();
    const auto y = static_cast<int>(i_u32Begin);
    pixman_image_composite32(PIXMAN_OP_SRC, source.get(), nullptr, target.get(), 0, y, 0, 0, 0, y,
                             static_cast<int>(m_target.m_stExtent.m_u32W),
                             static_cast<int>(i_u32End - i_u32Begin));
  }

  const T_Extent m_stFrom;
  const pixman_fixed_t m_ratioX;
  const pixman_fixed_t m_ratioY;
  const T_Part m_target;
  CPicture m_window;      // the last rows that came
  UInt32 m_u32First = 0;  // the number of its first row
  UInt32 m_u32Rows = 0;   // how many it has
  UInt32 m_u32Made = 0;   // rows of the target
};

// The shrinking sides first, each by itself and rounded to 8 bits. What grows comes last, both
// sides at once.
CScaler::CScaler(const T_Extent& i_stOwn, Bool i_bAlpha, const T_Extent& i_stScaled,
                 const T_Part& i_target)
    : m_target(i_target),
      m_bPremultiplies(i_bAlpha && i_stScaled != i_stOwn),
      m_premultiplied(m_bPremultiplies ? i_stOwn.m_u32W : 0) {
  const auto [w, h] = i_stOwn;
  const auto [toW, toH] = i_stScaled;
  const auto [seenW, seenH] = i_target.m_stExtent;
  const Bool bNarrower = toW < w;
  const Bool bLower = toH < h;
  m_u32Needed = bLower ? h : Needed(h, toH, seenH);
  const UInt32 u32W = bNarrower ? seenW : Needed(w, toW, seenW);
  if (bNarrower) m_pNarrowing = std::make_unique<CNarrowing>(w, toW, seenW);
  if (bLower) m_pLowering = std::make_unique<CLowering>(h, toH, seenH, u32W);
  if (toW > w || toH > h)
    m_pGrowth = std::make_unique<CGrowth>(T_Extent{u32W, bLower ? seenH : m_u32Needed},
                                          bNarrower ? pixman_fixed_1 : Ratio(w, toW),
                                          bLower ? pixman_fixed_1 : Ratio(h, toH), i_target);
}

CScaler::~CScaler() = default;
CScaler::CScaler(CScaler&&) noexcept = default;

void CScaler::Take(const UInt32* i_pRow) {
  if (m_u32Taken == m_u32Needed) return;
  ++m_u32Taken;
  const UInt32* pRow = i_pRow;
  if (m_bPremultiplies) {
    std::transform(pRow, pRow + m_premultiplied.size(), m_premultiplied.begin(), &Premultiplied);
    pRow = m_premultiplied.data();
  }
  if (m_pNarrowing) pRow = m_pNarrowing->Make(pRow);
  if (!m_pLowering) return Put(pRow);
  m_pLowering->Add(pRow);
  while (const UInt32* const pMade = m_pLowering->Next()) Put(pMade);
}

void CScaler::Put(const UInt32* i_pRow) {
  if (m_pGrowth) return m_pGrowth->Add(i_pRow);
  std::copy_n(i_pRow, m_target.m_stExtent.m_u32W, m_target.Row(m_u32Put++));
}

void CScaler::Finish() {
  if (!m_bPremultiplies) return;
  for (UInt32 u32Y = 0; u32Y < m_target.m_stExtent.m_u32H; ++u32Y) {
    UInt32* const pRow = m_target.Row(u32Y);
    std::transform(pRow, pRow + m_target.m_stExtent.m_u32W, pRow, &Straight);
  }
}
