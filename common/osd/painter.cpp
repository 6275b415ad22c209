#include "common/osd/painter.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "common/osd/pictures/blend.h"
#include "framework/log.h"

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

// "to long" and "to high" are on purpose: field reports are searched for these texts.
void LogBrokenLine(const T_Layout& i_layout, UInt32 i_u32Line, const T_Canvas& i_canvas,
                   EDrawMode i_eMode) {
  const T_Layout::T_Line& line = i_layout.m_aLines[i_u32Line];
  if (line.m_bTooLong)
    LOG_ERROR(i_eMode == EDrawMode::kDraw ? "font<w=%d>,wb<%d>,maxW<%d>,disp len<%d><%s> to long"
                                          : "font<w=%d>,wb<%d>,maxW<%d>,cancel len<%d><%s> to long",
              i_layout.m_stCell.m_u32W, i_layout.m_u32X, i_canvas.m_u32W, line.m_u32Length,
              i_layout.Text(i_u32Line));
  // One that is too long counts as empty here.
  if (line.m_bTooHigh)
    LOG_ERROR(i_eMode == EDrawMode::kDraw ? "font<h=%d>,hb<%d>,maxH<%d>,disp len<%d><%s> to high"
                                          : "font<h=%d>,hb<%d>,maxH<%d>,cancel len<%d><%s> to high",
              i_layout.m_stCell.m_u32H, i_layout.m_u32Y, i_canvas.m_u32H,
              line.m_bTooLong ? 0 : line.m_u32Length,
              line.m_bTooLong ? "" : i_layout.Text(i_u32Line));
}

void LogBroken(const T_Layout& i_layout, const T_Canvas& i_canvas, EDrawMode i_eMode) {
  if (i_layout.m_outsideX)
    LOG_ERROR("DrawOsdInfo wb=%u >= maxW=%u err, set wb=0", *i_layout.m_outsideX, i_canvas.m_u32W);
  if (i_layout.m_outsideY)
    LOG_ERROR("DrawOsdInfo hb=%u >= maxH=%u err, set hb=0", *i_layout.m_outsideY, i_canvas.m_u32H);
  for (UInt32 line = 0; line < i_layout.m_u32Lines; ++line)
    if (!i_layout.m_aLines[line].IsDrawn()) LogBrokenLine(i_layout, line, i_canvas, i_eMode);
}

Bool Lies(const T_Item& i_item, SInt32 i_s32Output, const T_Rect& i_rect) {
  const T_Drawn* const pDrawn = i_item.On(i_s32Output);
  return pDrawn != nullptr && !Intersect(pDrawn->m_stRect, i_rect).IsEmpty();
}

// The first of its lines that is not drawn, and why; empty when all are.
std::string Missing(const T_Layout& i_layout, const T_Canvas& i_canvas) {
  for (UInt32 i = 0; i < i_layout.m_u32Lines; ++i) {
    const T_Layout::T_Line& line = i_layout.m_aLines[i];
    if (line.IsDrawn()) continue;
    const auto [w, h] = i_layout.m_stCell;
    const UInt64 u64Beyond = line.m_bTooLong
                                 ? i_layout.m_u32X + UInt64{w} * line.m_u32Length - i_canvas.m_u32W
                                 : i_layout.m_u32Y + UInt64{h} * (i + 1) - i_canvas.m_u32H;
    return "line " + std::to_string(i + 1) + " passes the screen's " +
           (line.m_bTooLong ? "right edge" : "bottom") + " by " + std::to_string(u64Beyond) + " px";
  }
  return i_layout.m_stBounds.IsEmpty() ? "it has no characters" : "";
}

void ForgetOn(T_Item& io_item, SInt32 i_s32Output) {
  std::erase_if(io_item.m_vecDrawn,
                [=](const T_Drawn& i_drawn) { return i_drawn.m_s32Output == i_s32Output; });
}

}  // namespace

Bool CPainter::TouchesPicture(SInt32 i_s32Output, const T_Rect& i_rect) {
  if (m_mapBackgrounds.contains(i_s32Output)) return true;
  if (!m_bPictures) return false;
  Bool bPictures = false;
  for (const T_Item& item : *m_pItems)
    for (const T_Drawn& drawn : item.m_vecDrawn) {
      if (drawn.m_pPicture == nullptr) continue;
      bPictures = true;
      if (drawn.m_s32Output == i_s32Output && !Intersect(drawn.m_stRect, i_rect).IsEmpty())
        return true;
    }
  m_bPictures = bPictures;
  return false;
}

void CPainter::NoteDamage(SInt32 i_s32Output, const T_Rect& i_rect) {
  T_Rect& damage = m_mapDamage[i_s32Output];
  damage = Union(damage, i_rect);
}

Bool CPainter::TouchesDamage(SInt32 i_s32Output, const T_Rect& i_rect) const {
  const auto damage = m_mapDamage.find(i_s32Output);
  return damage != m_mapDamage.end() && !Intersect(damage->second, i_rect).IsEmpty();
}

Bool CPainter::ChangeTextOn(T_Item& io_item, EDrawMode i_eMode, SInt32 i_s32Output,
                            CLayer& io_layer) {
  const T_Canvas canvas = io_layer.Canvas();
  const T_Rect before = io_item.RectOn(i_s32Output);
  LeaveText(io_item, i_s32Output);
  const std::optional<T_Layout> layout = m_objDrawer.LayOut(io_item.Shown().m_stRecord, canvas);
  if (!layout) {
    if (m_strWhy.empty()) m_strWhy = "its font cannot be had in that size";
    return false;
  }
  LogBroken(*layout, canvas, i_eMode);
  if (std::string missing = Missing(*layout, canvas); !missing.empty())
    m_strWhy = std::move(missing);
  const T_Rect& cells = layout->m_stBounds;
  if (i_eMode == EDrawMode::kDraw && !cells.IsEmpty())
    io_item.m_vecDrawn.push_back({i_s32Output, cells, nullptr, 0});
  if (TouchesPicture(i_s32Output, cells) || TouchesDamage(i_s32Output, Union(cells, before))) {
    NoteDamage(i_s32Output, cells);
    return true;
  }
  const Bool bDrawn = m_objDrawer.DrawOsdInfo(*layout, i_eMode, canvas, canvas.Whole());
  io_layer.Refresh(cells);
  if (!bDrawn) m_strWhy = "the font has not all of its characters";
  return bDrawn;
}

// The text does not lie there any more. Its old cells stay on the canvas, unless a picture is
// there.
void CPainter::LeaveText(T_Item& io_item, SInt32 i_s32Output) {
  const T_Rect rect = io_item.RectOn(i_s32Output);
  if (!rect.IsEmpty() && TouchesPicture(i_s32Output, rect)) NoteDamage(i_s32Output, rect);
  ForgetOn(io_item, i_s32Output);
}

Bool CPainter::ChangeText(T_Item& io_item, EDrawMode i_eMode) {
  const T_DispRecord& record = io_item.Shown().m_stRecord;
  Bool bDrawn = record.m_u32Position < kPositionCodes;
  for (auto& [s32Output, layer] : *m_pLayers) {
    if (!record.IsOn(s32Output))
      LeaveText(io_item, s32Output);
    else if (!ChangeTextOn(io_item, i_eMode, s32Output, layer))
      bDrawn = false;
  }
  return bDrawn;
}

std::string CPainter::NoLayer(UInt16 i_u16Output) {
  const std::string output =
      i_u16Output == kEveryOutput ? "any output" : "output " + std::to_string(i_u16Output);
  return "there is no layer for " + output + ": it was not set up";
}

Bool CPainter::ShowText(T_Item& io_item) {
  const T_DispRecord& record = io_item.Record();
  const auto isOn = [&](const auto& i_entry) { return record.IsOn(i_entry.first); };
  m_strWhy.clear();
  if (record.m_u32Position >= kPositionCodes)
    m_strWhy = "its position code is none of 0 to 8";
  else if (std::none_of(m_pLayers->begin(), m_pLayers->end(), isOn))
    m_strWhy = NoLayer(record.m_u16VoSeq);
  const Bool bDrawn = ChangeText(io_item, EDrawMode::kDraw);
  if (RestoreAll(&io_item)) return bDrawn;
  m_strWhy = "the font has not all of its characters";
  return false;
}

void CPainter::Move(T_Item& io_item, std::vector<T_Drawn> i_vecDrawn) {
  for (const T_Drawn& drawn : io_item.m_vecDrawn) NoteDamage(drawn.m_s32Output, drawn.m_stRect);
  io_item.m_vecDrawn = std::move(i_vecDrawn);
  m_bPictures = m_bPictures || !io_item.m_vecDrawn.empty();
  for (const T_Drawn& drawn : io_item.m_vecDrawn) NoteDamage(drawn.m_s32Output, drawn.m_stRect);
}

void CPainter::LayOnce(const std::vector<T_Drawn>& i_vecDrawn, UInt32 i_u32Opacity) {
  for (const T_Drawn& drawn : i_vecDrawn) {
    CLayer& layer = m_pLayers->at(drawn.m_s32Output);
    const T_Canvas canvas = layer.Canvas();
    Compose(canvas, drawn.m_stRect, [&](const T_Canvas& i_band, const T_Rect& i_rect) {
      if (i_band.m_pPixels != canvas.m_pPixels) CopyRect(canvas, i_band, i_rect);
      LayPicture(*drawn.m_pPicture, drawn.m_stRect, i_u32Opacity, i_band, i_rect);
      return PaintItems(m_pItems->begin(), drawn.m_s32Output, i_band, i_rect, nullptr);
    });
    layer.Refresh(drawn.m_stRect);
  }
}

// i_paint is given all rows of i_rect, some at a time, somewhere that is quick to read and write,
// and they go to the canvas once, in their order. Whether it always returned true.
template <class T>
Bool CPainter::Compose(const T_Canvas& i_canvas, const T_Rect& i_rect, const T& i_paint) {
  const UInt32 u32Rows = kBandPixels / i_canvas.m_u32W;
  if (u32Rows == 0) return i_paint(i_canvas, i_rect);
  Bool bAll = true;
  for (UInt32 row = 0; row < i_rect.m_u32H; row += u32Rows) {
    const T_Rect rows{i_rect.m_u32X, i_rect.m_u32Y + row, i_rect.m_u32W,
                      std::min(u32Rows, i_rect.m_u32H - row)};
    const T_Canvas band{m_pBand.get(), i_canvas.m_u32W, i_canvas.m_u32H, rows.m_u32Y};
    if (!i_paint(band, rows)) bAll = false;
    CopyRect(band, i_canvas, rows);
  }
  return bAll;
}

void CPainter::SetBackground(SInt32 i_s32Output, std::shared_ptr<const CPicture> i_pPicture) {
  if (i_pPicture == nullptr && !HasBackground(i_s32Output)) return;
  const auto layer = m_pLayers->find(i_s32Output);
  if (layer != m_pLayers->end()) NoteDamage(i_s32Output, layer->second.Canvas().Whole());
  if (i_pPicture == nullptr)
    m_mapBackgrounds.erase(i_s32Output);
  else
    m_mapBackgrounds[i_s32Output] = std::move(i_pPicture);
}

void CPainter::ForgetLayer(SInt32 i_s32Output) {
  m_mapBackgrounds.erase(i_s32Output);
  m_mapDamage.erase(i_s32Output);
  for (T_Item& item : *m_pItems) ForgetOn(item, i_s32Output);
}

size_t CPainter::PictureBytes(const T_Item& i_item, const std::vector<T_Drawn>& i_vecDrawn) const {
  std::set<const CPicture*> pictures;  // one may lie in several places
  for (const auto& [s32Output, pPicture] : m_mapBackgrounds) pictures.insert(pPicture.get());
  for (const T_Item& item : *m_pItems)
    for (const T_Drawn& drawn : &item == &i_item ? i_vecDrawn : item.m_vecDrawn)
      if (drawn.m_pPicture != nullptr) pictures.insert(drawn.m_pPicture.get());
  size_t bytes = 0;
  for (const CPicture* const pPicture : pictures) bytes += pPicture->Bytes();
  return bytes;
}

void CPainter::PaintBackground(SInt32 i_s32Output, const T_Canvas& i_canvas,
                               const T_Rect& i_rect) const {
  const auto background = m_mapBackgrounds.find(i_s32Output);
  if (background == m_mapBackgrounds.end())
    ClearRect(i_canvas, i_rect);
  else
    LayPicture(*background->second, i_canvas.Whole(), kFullOpacity, i_canvas, i_rect);
}

Bool CPainter::Repaint(SInt32 i_s32Output, const T_Canvas& i_canvas, const T_Rect& i_rect,
                       const T_Item* i_pJudged) {
  // What lies under an opaque picture is not painted.
  auto item = m_pItems->begin();
  Bool bBackground = true;
  for (auto above = m_pItems->end(); bBackground && above != m_pItems->begin();) {
    const T_Drawn* const pDrawn = (--above)->On(i_s32Output);
    if (pDrawn == nullptr || !Hides(*above, *pDrawn, i_rect)) continue;
    item = above;
    bBackground = false;
  }
  const auto lies = [&](const T_Item& i_item) { return Lies(i_item, i_s32Output, i_rect); };
  if (bBackground && std::none_of(item, m_pItems->end(), lies)) {
    PaintBackground(i_s32Output, i_canvas, i_rect);
    return true;
  }
  if (!bBackground && std::none_of(std::next(item), m_pItems->end(), lies))
    return PaintItems(item, i_s32Output, i_canvas, i_rect, i_pJudged);
  return Compose(i_canvas, i_rect, [&](const T_Canvas& i_band, const T_Rect& i_rows) {
    if (bBackground) PaintBackground(i_s32Output, i_band, i_rows);
    return PaintItems(item, i_s32Output, i_band, i_rows, i_pJudged);
  });
}

Bool CPainter::PaintText(const T_Item& i_item, const T_Canvas& i_canvas, const T_Rect& i_rect) {
  const std::optional<T_Layout> layout = m_objDrawer.LayOut(i_item.Shown().m_stRecord, i_canvas);
  return layout && m_objDrawer.DrawOsdInfo(*layout, EDrawMode::kDraw, i_canvas, i_rect);
}

Bool CPainter::PaintItems(T_ItemList::iterator i_from, SInt32 i_s32Output, const T_Canvas& i_canvas,
                          const T_Rect& i_rect, const T_Item* i_pJudged) {
  Bool bDrawn = true;
  for (auto item = i_from; item != m_pItems->end(); ++item) {
    if (!Lies(*item, i_s32Output, i_rect)) continue;
    const T_Drawn* const pDrawn = item->On(i_s32Output);
    if (pDrawn->m_pPicture != nullptr)
      LayPicture(*pDrawn->m_pPicture, pDrawn->m_stRect, item->Shown().m_stRecord.m_u16Opacity,
                 i_canvas, i_rect);
    else if (!PaintText(*item, i_canvas, i_rect))
      bDrawn = bDrawn && &*item != i_pJudged;
  }
  return bDrawn;
}

Bool CPainter::RestoreAll(const T_Item* i_pJudged) {
  Bool bDrawn = true;
  for (const auto& [s32Output, rect] : m_mapDamage) {
    const auto layer = m_pLayers->find(s32Output);
    if (layer == m_pLayers->end() || rect.IsEmpty()) continue;
    if (!Repaint(s32Output, layer->second.Canvas(), rect, i_pJudged)) bDrawn = false;
    layer->second.Refresh(rect);
  }
  m_mapDamage.clear();
  return bDrawn;
}
