#include "common/osd/pictures/scaler.h"

#include <pixman.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/osd/pictures/decoders.h"

namespace {

struct T_Free {
  void operator()(pixman_image_t* i_pImage) const { pixman_image_unref(i_pImage); }
  void operator()(pixman_fixed_t* i_pFilter) const { std::free(i_pFilter); }
};
using T_Image = std::unique_ptr<pixman_image_t, T_Free>;
using T_Filter = std::unique_ptr<pixman_fixed_t, T_Free>;

// pixman writes to the target of a composition only. Null without memory.
T_Image Wrap(const CPicture& i_picture, pixman_format_code_t i_eFormat) {
  const auto [w, h] = i_picture.Extent();
  return T_Image(pixman_image_create_bits(i_eFormat, static_cast<int>(w), static_cast<int>(h),
                                          const_cast<UInt32*>(i_picture.Row(0)),
                                          static_cast<int>(w * sizeof(UInt32))));
}

// Source px for one px, in 1/65536; at most 2^29. Of a side that grows more than 65536 times no
// more than the first px is ever seen, whatever the ratio.
pixman_fixed_t Ratio(UInt32 i_u32From, UInt32 i_u32To) {
  const UInt64 u64Ratio = ((UInt64{i_u32From} << 16) + i_u32To / 2) / i_u32To;
  return static_cast<pixman_fixed_t>(std::max<UInt64>(u64Ratio, 1));
}

// One step of the way; one side shrinks and the other stays, or neither shrinks.
struct T_Pass {
  pixman_fixed_t m_ratioX;
  pixman_fixed_t m_ratioY;
  T_Extent m_stTo;
};

// As many positions between two px as a table of some 64 K weights allows: fine for the strong
// contrasts of few px, coarse where one px of hundreds counts little.
int SubsampleBits(pixman_fixed_t i_ratio) {
  const int taps = static_cast<int>(std::bit_width(static_cast<UInt32>(i_ratio) >> 16)) + 1;
  return std::clamp(16 - taps, 2, 11);
}

Bool SetAreaFilter(pixman_image_t* io_pSource, const T_Pass& i_pass) {
  const Bool bX = i_pass.m_ratioX > pixman_fixed_1;
  const Bool bY = i_pass.m_ratioY > pixman_fixed_1;
  int values = 0;
  const T_Filter filter(pixman_filter_create_separable_convolution(
      &values, i_pass.m_ratioX, i_pass.m_ratioY, PIXMAN_KERNEL_BOX, PIXMAN_KERNEL_BOX,
      bX ? PIXMAN_KERNEL_BOX : PIXMAN_KERNEL_IMPULSE,
      bY ? PIXMAN_KERNEL_BOX : PIXMAN_KERNEL_IMPULSE, bX ? SubsampleBits(i_pass.m_ratioX) : 0,
      bY ? SubsampleBits(i_pass.m_ratioY) : 0));
  return filter && pixman_image_set_filter(io_pSource, PIXMAN_FILTER_SEPARABLE_CONVOLUTION,
                                           filter.get(), values);
}

// Bilinear weights have 7 bits, the rest is cut off: half a step more makes that rounding.
Bool SetFilter(pixman_image_t* io_pSource, const T_Pass& i_pass) {
  const Bool bShrinks = std::max(i_pass.m_ratioX, i_pass.m_ratioY) > pixman_fixed_1;
  const pixman_fixed_t halfStep = bShrinks ? 0 : pixman_fixed_1 / 256;
  const pixman_transform_t transform = {
      {{i_pass.m_ratioX, 0, halfStep}, {0, i_pass.m_ratioY, halfStep}, {0, 0, pixman_fixed_1}}};
  pixman_image_set_repeat(io_pSource, PIXMAN_REPEAT_PAD);
  if (!pixman_image_set_transform(io_pSource, &transform)) return false;
  return bShrinks ? SetAreaFilter(io_pSource, i_pass)
                  : pixman_image_set_filter(io_pSource, PIXMAN_FILTER_BILINEAR, nullptr, 0);
}

std::nullopt_t NoMemory(std::string* o_pError) {
  return Refuse(o_pError, "there is not enough memory for scaling it");
}

std::optional<CPicture> Run(const T_Pass& i_pass, const CPicture& i_from,
                            const std::stop_token& i_stop, std::string* o_pError) {
  std::optional<CPicture> to = NewPicture(i_pass.m_stTo, o_pError);
  if (!to) return std::nullopt;
  to->SetOpaque(i_from.IsOpaque());
  const T_Image source = Wrap(i_from, i_from.IsOpaque() ? PIXMAN_x8r8g8b8 : PIXMAN_a8r8g8b8);
  const T_Image target = Wrap(*to, PIXMAN_a8r8g8b8);
  if (!source || !target || !SetFilter(source.get(), i_pass)) return NoMemory(o_pError);
  const auto w = static_cast<int>(i_pass.m_stTo.m_u32W);
  const auto h = static_cast<int>(i_pass.m_stTo.m_u32H);
  constexpr int kRows = kRowsPerLook;
  for (int y = 0; y < h; y += kRows) {
    if (i_stop.stop_requested()) return Refuse(o_pError, "stopped");
    pixman_image_composite32(PIXMAN_OP_SRC, source.get(), nullptr, target.get(), 0, y, 0, 0, 0, y,
                             w, std::min(kRows, h - y));
  }
  return to;
}

// The colours masked by the alphas.
std::optional<CPicture> Premultiplied(const CPicture& i_picture, std::string* o_pError) {
  std::optional<CPicture> to = NewPicture(i_picture.Extent(), o_pError);
  if (!to) return std::nullopt;
  const auto [w, h] = i_picture.Extent();
  const T_Image colour = Wrap(i_picture, PIXMAN_x8r8g8b8);
  const T_Image alpha = Wrap(i_picture, PIXMAN_a8r8g8b8);
  const T_Image target = Wrap(*to, PIXMAN_a8r8g8b8);
  if (!colour || !alpha || !target) return NoMemory(o_pError);
  pixman_image_composite32(PIXMAN_OP_SRC, colour.get(), alpha.get(), target.get(), 0, 0, 0, 0, 0, 0,
                           static_cast<int>(w), static_cast<int>(h));
  return to;
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

// What of a side of i_u32From px the first i_u32Seen of i_u32To px need, with what lies beside.
UInt32 Needed(UInt32 i_u32From, UInt32 i_u32To, UInt32 i_u32Seen) {
  if (i_u32From == i_u32To) return i_u32Seen;
  const UInt64 u64Reach =
      (UInt64{i_u32Seen} * static_cast<UInt32>(Ratio(i_u32From, i_u32To)) >> 16);
  return static_cast<UInt32>(std::min<UInt64>(u64Reach + 2, i_u32From));
}

// The shrinking sides first, each by itself: pixman rounds the weight of a px of the area, and an
// area of many px would become darker or brighter. What grows comes last, both sides at once.
std::optional<CPicture> RunAll(const CPicture& i_from, const T_Extent& i_stTo,
                               const T_Extent& i_stSeen, const std::stop_token& i_stop,
                               std::string* o_pError) {
  const auto [w, h] = i_from.Extent();
  const Bool bNarrower = i_stTo.m_u32W < w;
  const Bool bLower = i_stTo.m_u32H < h;
  const pixman_fixed_t ratioX = Ratio(w, i_stTo.m_u32W);
  const pixman_fixed_t ratioY = Ratio(h, i_stTo.m_u32H);
  const T_Extent stNeeded{Needed(w, i_stTo.m_u32W, i_stSeen.m_u32W),
                          Needed(h, i_stTo.m_u32H, i_stSeen.m_u32H)};
  std::optional<CPicture> made;
  if (bNarrower) {
    made =
        Run({ratioX, pixman_fixed_1, {i_stSeen.m_u32W, stNeeded.m_u32H}}, i_from, i_stop, o_pError);
    if (!made) return std::nullopt;
  }
  if (bLower) {
    const UInt32 u32W = bNarrower ? i_stSeen.m_u32W : stNeeded.m_u32W;
    made = Run({pixman_fixed_1, ratioY, {u32W, i_stSeen.m_u32H}}, made ? *made : i_from, i_stop,
               o_pError);
    if (!made) return std::nullopt;
  }
  if (i_stTo.m_u32W <= w && i_stTo.m_u32H <= h) return made;
  const T_Pass last{bNarrower ? pixman_fixed_1 : ratioX, bLower ? pixman_fixed_1 : ratioY,
                    i_stSeen};
  return Run(last, made ? *made : i_from, i_stop, o_pError);
}

std::optional<CPicture> Cut(const CPicture& i_picture, const T_Extent& i_stSeen,
                            std::string* o_pError) {
  std::optional<CPicture> part = NewPicture(i_stSeen, o_pError);
  if (!part) return std::nullopt;
  part->SetOpaque(i_picture.IsOpaque());
  for (UInt32 u32Y = 0; u32Y < i_stSeen.m_u32H; ++u32Y)
    std::memcpy(part->Row(u32Y), i_picture.Row(u32Y), i_stSeen.m_u32W * sizeof(UInt32));
  return part;
}

}  // namespace

std::optional<CPicture> ScalePicture(const CPicture& i_picture, const T_Extent& i_stScaled,
                                     const T_Extent& i_stSeen, const std::stop_token& i_stop,
                                     std::string* o_pError) {
  if (i_stScaled == i_picture.Extent()) return Cut(i_picture, i_stSeen, o_pError);
  if (i_picture.IsOpaque()) return RunAll(i_picture, i_stScaled, i_stSeen, i_stop, o_pError);
  std::optional<CPicture> premultiplied = Premultiplied(i_picture, o_pError);
  if (!premultiplied) return std::nullopt;
  std::optional<CPicture> scaled = RunAll(*premultiplied, i_stScaled, i_stSeen, i_stop, o_pError);
  if (!scaled) return std::nullopt;
  UInt32* const pFirst = scaled->Row(0);
  std::transform(pFirst, pFirst + i_stSeen.Pixels(), pFirst, &Straight);
  return scaled;
}
