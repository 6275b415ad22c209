#include "common/osd/icons.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "framework/log.h"

namespace {

// px; far beyond any canvas.
constexpr SInt64 kMaxScaledSide = 1 << 20;

// A side that was asked for is never lost to rounding.
UInt32 ScaledSide(UInt32 i_u32Asked, SInt64 i_s64Px) {
  return i_u32Asked == 0 ? 0 : static_cast<UInt32>(std::clamp<SInt64>(i_s64Px, 1, kMaxScaledSide));
}

// From the icon's left or top edge to the canvas's right or bottom edge.
UInt32 RoomBehind(SInt64 i_s64Edge, UInt32 i_u32Canvas) {
  return static_cast<UInt32>(std::max<SInt64>(i_u32Canvas - i_s64Edge, 0));
}

T_WantedSize WantedSize(const T_DispRecord& i_record, const T_Canvas& i_canvas) {
  return {{ScaledSide(i_record.m_u32W, AcrossGrid(i_record.m_u32W, i_canvas)),
           ScaledSide(i_record.m_u32H, DownGrid(i_record.m_u32H, i_canvas))},
          {RoomBehind(AcrossGrid(i_record.m_u32X, i_canvas), i_canvas.m_u32W),
           RoomBehind(DownGrid(i_record.m_u32Y, i_canvas), i_canvas.m_u32H)}};
}

// Within the canvas; empty when the icon lies outside.
T_Rect IconRect(const T_DispRecord& i_record, const T_Canvas& i_canvas, const CPicture& i_picture) {
  const T_Extent room = WantedSize(i_record, i_canvas).m_stRoom;
  return {i_canvas.m_u32W - room.m_u32W, i_canvas.m_u32H - room.m_u32H,
          std::min(room.m_u32W, i_picture.Extent().m_u32W),
          std::min(room.m_u32H, i_picture.Extent().m_u32H)};
}

Bool IsSamePicture(const T_DispRecord& i_a, const T_DispRecord& i_b) {
  return i_a.m_u16VoSeq == i_b.m_u16VoSeq && i_a.m_u32W == i_b.m_u32W && i_a.m_u32H == i_b.m_u32H &&
         std::strcmp(i_a.Path(), i_b.Path()) == 0;
}

}  // namespace

// A peer that asks again and again, faster than a picture can be read, gets what is under way,
// and then the picture as it is by then.
void CIcons::Request(T_Item& io_item, const T_DispRecord& i_record) {
  if (io_item.m_pNext != nullptr && IsSamePicture(*io_item.m_pNext, i_record)) {
    *io_item.m_pNext = i_record;
    io_item.m_bAgain = true;
    return;
  }
  const Bool bNew = io_item.m_bNew;
  Withdraw(io_item);
  io_item.m_bNew = bNew;
  Ask(io_item, i_record);
}

void CIcons::Redraw(T_Item& io_item) {
  const std::unique_ptr<T_DispRecord> pNext = std::move(io_item.m_pNext);
  m_pDesk->Withdraw(io_item.m_u64Ticket);
  io_item.m_bMissing = false;
  io_item.m_bRedraw = io_item.m_bRedraw || pNext == nullptr;
  Ask(io_item, pNext != nullptr ? *pNext : T_DispRecord(io_item.m_stRecord));
}

void CIcons::Ask(T_Item& io_item, const T_DispRecord& i_record) {
  T_PictureJob job;
  job.m_strPath = i_record.Path();
  for (const auto& [s32VoDev, layer] : m_pPainter->Layers()) {
    const T_Canvas canvas = layer.Canvas();
    const T_WantedSize size = WantedSize(i_record, canvas);
    if (i_record.IsOn(s32VoDev) && size.m_stRoom.Pixels() != 0)
      job.m_vecTargets.push_back({s32VoDev, {canvas.m_u32W, canvas.m_u32H}, size});
  }
  if (job.m_vecTargets.empty()) return Place(io_item, i_record, {});
  const T_PictureResult result = m_pDesk->Ask(std::move(job));
  if (result.m_u64Ticket == 0) return Place(io_item, i_record, result);
  io_item.m_u64Ticket = result.m_u64Ticket;
  io_item.m_pNext = std::make_unique<T_DispRecord>(i_record);
}

void CIcons::Withdraw(T_Item& io_item) {
  io_item.m_bNew = io_item.m_bRedraw = io_item.m_bAgain = io_item.m_bMissing = false;
  if (io_item.m_pNext == nullptr) return;
  m_pDesk->Withdraw(io_item.m_u64Ticket);
  io_item.m_pNext.reset();
}

void CIcons::Take(T_Item& io_item, const T_PictureResult& i_result) {
  const std::unique_ptr<T_DispRecord> pNext = std::move(io_item.m_pNext);
  const Bool bRedraw = std::exchange(io_item.m_bRedraw, false);
  const T_DispRecord& record = io_item.m_stRecord;
  const Bool bAgain = std::exchange(io_item.m_bAgain, false);
  if (i_result.m_stLoaded.m_strError.empty()) Place(io_item, *pNext, i_result);
  if (bAgain) return Request(io_item, *pNext);
  if (i_result.m_stLoaded.m_strError.empty()) return;
  // The layer may have been renewed since, and what was there is to stay.
  const Bool bLost = record.IsIcon() && record.Class() != T_DispRecord::kImageClass &&
                     record.m_u8Hide == 0 && io_item.m_vecDrawn.empty();
  io_item.m_bMissing = bLost && !io_item.m_bNew && (!bRedraw || i_result.m_bDropped);
}

void CIcons::Place(T_Item& io_item, const T_DispRecord& i_record, const T_PictureResult& i_result) {
  std::vector<T_Drawn> drawn;
  for (const auto& [s32VoDev, layer] : m_pPainter->Layers()) {
    const auto pPicture = i_result.For(s32VoDev, layer.Canvas());
    if (pPicture == nullptr) continue;
    const T_Rect rect = IconRect(i_record, layer.Canvas(), *pPicture);
    if (!rect.IsEmpty()) drawn.push_back({s32VoDev, rect, pPicture});
  }
  const size_t bytes = m_pPainter->PictureBytes(io_item, drawn);
  if (bytes > kMaxBytesShown) {
    LOG_ERROR(
        "picture <%.4000s> is not shown: all that are shown would take %zu bytes, at most "
        "%zu; hide some, or show them smaller",
        Printable(i_record.Path()).c_str(), bytes, kMaxBytesShown);
    return;
  }
  m_pPainter->Move(io_item, std::move(drawn));
  io_item.m_stRecord = i_record;
  io_item.m_stRecord.m_u8Hide = 0;
  io_item.m_bNew = io_item.m_bRedraw = false;
}
