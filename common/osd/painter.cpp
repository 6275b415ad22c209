#include "common/osd/painter.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "common/osd/pictures/blend.h"

namespace {

constexpr UInt32 kFullOpacity = 255;

Bool Hides(const T_Item& i_item, const T_Drawn& i_drawn, const T_Rect& i_rect) {
  return i_drawn.m_pPicture != nullptr && i_drawn.m_pPicture->IsOpaque() &&
         i_item.Shown().m_stRecord.m_u16Opacity >= kFullOpacity &&
         Intersect(i_drawn.m_stRect, i_rect) == i_rect;
}

// The part of i_picture, whose top left pixel is at that of i_place, that lies in i_clip.
void LayPicture(const CPicture& i_picture, const T_Rect& i_place, UInt32 i_u32Opacity,
                const T_Canvas& i_canvas, const T_Rect& i_clip) {
  const T_Rect part = Intersect(i_place, i_clip);
  const Bool bCopies = i_picture.IsOpaque() && i_u32Opacity == kFullOpacity;
  for (UInt32 y = part.m_u32Y; y < part.m_u32Y + part.m_u32H; ++y) {
    const UInt32* const pSource =
        i_picture.Row(y - i_place.m_u32Y) + (part.m_u32X - i_place.m_u32X);
    UInt32* const pTarget = i_canvas.Row(y) + part.m_u32X;
    if (bCopies)
      std::memcpy(pTarget, pSource, size_t{part.m_u32W} * sizeof(UInt32));
    else
      BlendRow(pSource, pTarget, part.m_u32W, i_u32Opacity);
  }
}

void ForgetOn(T_Item& io_item, SInt32 i_s32VoDev) {
  std::erase_if(io_item.m_vecDrawn,
                [=](const T_Drawn& i_drawn) { return i_drawn.m_s32VoDev == i_s32VoDev; });
}

}  // namespace

Bool CPainter::TouchesPicture(SInt32 i_s32VoDev, const T_Rect& i_rect) const {
  if (m_mapBackgrounds.contains(i_s32VoDev)) return true;
  return std::any_of(m_pItems->begin(), m_pItems->end(), [&](const T_Item& i_item) {
    const T_Drawn* const pDrawn = i_item.On(i_s32VoDev);
    return pDrawn != nullptr && pDrawn->m_pPicture != nullptr &&
           !Intersect(pDrawn->m_stRect, i_rect).IsEmpty();
  });
}

void CPainter::NoteDamage(SInt32 i_s32VoDev, const T_Rect& i_rect) {
  T_Rect& damage = m_mapDamage[i_s32VoDev];
  damage = Union(damage, i_rect);
}

Bool CPainter::TouchesDamage(SInt32 i_s32VoDev, const T_Rect& i_rect) const {
  const auto damage = m_mapDamage.find(i_s32VoDev);
  return damage != m_mapDamage.end() && !Intersect(damage->second, i_rect).IsEmpty();
}

Bool CPainter::ChangeTextOn(T_Item& io_item, EDrawMode i_eMode, SInt32 i_s32VoDev,
                            CLayer& io_layer) {
  const T_Canvas canvas = io_layer.Canvas();
  const T_DispRecord& record = io_item.Shown().m_stRecord;
  const std::optional<T_Rect> cells =
      m_objDrawer.Measure(record, canvas, i_eMode == kModeDraw ? kToldDraw : kToldErase);
  const T_Rect before = io_item.RectOn(i_s32VoDev);
  LeaveText(io_item, i_s32VoDev);
  if (!cells) return false;
  if (i_eMode == kModeDraw && !cells->IsEmpty())
    io_item.m_vecDrawn.push_back({i_s32VoDev, *cells, nullptr, 0});
  if (TouchesPicture(i_s32VoDev, *cells) || TouchesDamage(i_s32VoDev, Union(*cells, before))) {
    NoteDamage(i_s32VoDev, *cells);
    return true;
  }
  const Bool bDrawn = m_objDrawer.DrawOsdInfo(record, i_eMode, canvas, canvas.Whole());
  io_layer.Refresh(*cells);
  return bDrawn;
}

// A text's old cells stay on the canvas, unless a picture is there.
void CPainter::LeaveText(T_Item& io_item, SInt32 i_s32VoDev) {
  const T_Rect rect = io_item.RectOn(i_s32VoDev);
  if (!rect.IsEmpty() && TouchesPicture(i_s32VoDev, rect)) NoteDamage(i_s32VoDev, rect);
  ForgetOn(io_item, i_s32VoDev);
}

Bool CPainter::ChangeText(T_Item& io_item, EDrawMode i_eMode) {
  const T_DispRecord& record = io_item.Shown().m_stRecord;
  Bool bDrawn = record.m_u32Position < kPositionCodes;
  for (auto& [s32VoDev, layer] : *m_pLayers) {
    if (!record.IsOn(s32VoDev))
      LeaveText(io_item, s32VoDev);
    else if (!ChangeTextOn(io_item, i_eMode, s32VoDev, layer))
      bDrawn = false;
  }
  return bDrawn;
}

void CPainter::Move(T_Item& io_item, std::vector<T_Drawn> i_vecDrawn) {
  for (const T_Drawn& drawn : io_item.m_vecDrawn) NoteDamage(drawn.m_s32VoDev, drawn.m_stRect);
  io_item.m_vecDrawn = std::move(i_vecDrawn);
  for (const T_Drawn& drawn : io_item.m_vecDrawn) NoteDamage(drawn.m_s32VoDev, drawn.m_stRect);
}

void CPainter::LayOnce(const std::vector<T_Drawn>& i_vecDrawn, UInt32 i_u32Opacity) {
  for (const T_Drawn& drawn : i_vecDrawn) {
    CLayer& layer = m_pLayers->at(drawn.m_s32VoDev);
    LayPicture(*drawn.m_pPicture, drawn.m_stRect, i_u32Opacity, layer.Canvas(), drawn.m_stRect);
    PaintItems(m_pItems->begin(), drawn.m_s32VoDev, layer.Canvas(), drawn.m_stRect, nullptr);
    layer.Refresh(drawn.m_stRect);
  }
}

void CPainter::SetBackground(SInt32 i_s32VoDev, std::shared_ptr<const CPicture> i_pPicture) {
  if (i_pPicture == nullptr && !HasBackground(i_s32VoDev)) return;
  const auto layer = m_pLayers->find(i_s32VoDev);
  if (layer != m_pLayers->end()) NoteDamage(i_s32VoDev, layer->second.Canvas().Whole());
  if (i_pPicture == nullptr)
    m_mapBackgrounds.erase(i_s32VoDev);
  else
    m_mapBackgrounds[i_s32VoDev] = std::move(i_pPicture);
}

void CPainter::ForgetLayer(SInt32 i_s32VoDev) {
  m_mapBackgrounds.erase(i_s32VoDev);
  m_mapDamage.erase(i_s32VoDev);
  for (T_Item& item : *m_pItems) ForgetOn(item, i_s32VoDev);
}

size_t CPainter::PictureBytes(const T_Item& i_item, const std::vector<T_Drawn>& i_vecDrawn) const {
  std::set<const CPicture*> pictures;  // one may lie in several places
  for (const auto& [s32VoDev, pPicture] : m_mapBackgrounds) pictures.insert(pPicture.get());
  for (const T_Item& item : *m_pItems)
    for (const T_Drawn& drawn : &item == &i_item ? i_vecDrawn : item.m_vecDrawn)
      if (drawn.m_pPicture != nullptr) pictures.insert(drawn.m_pPicture.get());
  size_t bytes = 0;
  for (const CPicture* const pPicture : pictures) bytes += pPicture->Bytes();
  return bytes;
}

void CPainter::PaintBackground(SInt32 i_s32VoDev, const T_Canvas& i_canvas,
                               const T_Rect& i_rect) const {
  const auto background = m_mapBackgrounds.find(i_s32VoDev);
  if (background == m_mapBackgrounds.end())
    ClearRect(i_canvas, i_rect);
  else
    LayPicture(*background->second, i_canvas.Whole(), kFullOpacity, i_canvas, i_rect);
}

Bool CPainter::Repaint(SInt32 i_s32VoDev, const T_Canvas& i_canvas, const T_Rect& i_rect,
                       const T_Item* i_pJudged) {
  // What lies under an opaque picture is not painted.
  auto item = m_pItems->begin();
  Bool bBackground = true;
  for (auto above = m_pItems->end(); bBackground && above != m_pItems->begin();) {
    const T_Drawn* const pDrawn = (--above)->On(i_s32VoDev);
    if (pDrawn == nullptr || !Hides(*above, *pDrawn, i_rect)) continue;
    item = above;
    bBackground = false;
  }
  if (bBackground) PaintBackground(i_s32VoDev, i_canvas, i_rect);
  return PaintItems(item, i_s32VoDev, i_canvas, i_rect, i_pJudged);
}

Bool CPainter::PaintItems(T_ItemList::iterator i_from, SInt32 i_s32VoDev, const T_Canvas& i_canvas,
                          const T_Rect& i_rect, const T_Item* i_pJudged) {
  Bool bDrawn = true;
  for (auto item = i_from; item != m_pItems->end(); ++item) {
    const T_Drawn* const pDrawn = item->On(i_s32VoDev);
    if (pDrawn == nullptr || Intersect(pDrawn->m_stRect, i_rect).IsEmpty()) continue;
    const T_DispRecord& record = item->Shown().m_stRecord;
    if (pDrawn->m_pPicture != nullptr)
      LayPicture(*pDrawn->m_pPicture, pDrawn->m_stRect, record.m_u16Opacity, i_canvas, i_rect);
    else if (!m_objDrawer.DrawOsdInfo(record, kModeDraw, i_canvas, i_rect))
      bDrawn = bDrawn && &*item != i_pJudged;
  }
  return bDrawn;
}

Bool CPainter::Restore(const T_Item* i_pJudged) {
  Bool bDrawn = true;
  for (const auto& [s32VoDev, rect] : m_mapDamage) {
    const auto layer = m_pLayers->find(s32VoDev);
    if (layer == m_pLayers->end() || rect.IsEmpty()) continue;
    if (!Repaint(s32VoDev, layer->second.Canvas(), rect, i_pJudged)) bDrawn = false;
    layer->second.Refresh(rect);
  }
  m_mapDamage.clear();
  return bDrawn;
}
