// Puts items on the canvases of the layers and takes them off.
//
// A text that touches no picture is drawn over whatever is there, and to erase it its cells are
// cleared, whatever else was there. Everything else goes by damage: what changes on a layer is
// noted as one rectangle, and Restore paints that anew and refreshes it: first the background (a
// picture of the canvas's size, or nothing), then every item that lies there, in the list's order.
// A canvas is never read to find out what lies beneath, but by LayOnce; its memory may be slow to
// read, so what lies in layers is composed elsewhere and written once.
//
// Owned by the renderer and used under its mutexes.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/osd/item.h"
#include "common/osd/layers.h"
#include "common/osd/textdrawer.h"

class CPainter {
 public:
  // Both are borrowed for life.
  CPainter(T_LayerMap* io_pLayers, T_ItemList* io_pItems)
      : m_pLayers(io_pLayers), m_pItems(io_pItems) {}

  const T_LayerMap& Layers() const { return *m_pLayers; }

  // Draws the text io_item on the layers of its output, and restores whatever is damaged. False for
  // an unknown position code, on whatever layers, and when the font or a glyph could not be had for
  // one of them: the others are drawn all the same.
  Bool ShowText(T_Item& io_item);

  // In words why the last ShowText drew the text nowhere, or not all of it; empty when it did.
  const std::string& Why() const { return m_strWhy; }
  // That there is no layer for an output that a request names.
  static std::string NoLayer(UInt16 i_u16Output);

  // Draws the text io_item, or erases it, on the layers of its output, and takes it off those of
  // another output. Where it touches no picture and no damage that is at once, and refreshed;
  // elsewhere it is only noted. Bounds of the canvas that it breaks are logged. False as ShowText,
  // as far as it was drawn at once.
  Bool ChangeText(T_Item& io_item, EDrawMode i_eMode);

  // io_item lies where i_vecDrawn says from now on, and no more where it was. Both are noted.
  void Move(T_Item& io_item, std::vector<T_Drawn> i_vecDrawn);

  // Lays pictures, which belong to no item that lies anywhere, over what is on the canvases, draws
  // the items that lie there over them, and refreshes. The next damage there removes them.
  void LayOnce(const std::vector<T_Drawn>& i_vecDrawn, UInt32 i_u32Opacity);

  // io_item counts as lying nowhere; its pixels stay.
  static void Forget(T_Item& io_item) { io_item.m_vecDrawn.clear(); }

  // Paints what is damaged anew, and refreshes each damaged layer once.
  void Restore() { RestoreAll(nullptr); }

  // The layer of i_s32Output is gone: neither items nor a background lie on it.
  void ForgetLayer(SInt32 i_s32Output);

  // From now on i_pPicture, opaque and of the canvas's size, lies behind everything on that layer;
  // null = nothing does. The whole canvas is noted.
  void SetBackground(SInt32 i_s32Output, std::shared_ptr<const CPicture> i_pPicture);
  Bool HasBackground() const { return !m_mapBackgrounds.empty(); }
  Bool HasBackground(SInt32 i_s32Output) const { return m_mapBackgrounds.contains(i_s32Output); }

  // The bytes of all pictures on the canvases, if i_item lay where i_vecDrawn says. A picture that
  // lies in several places counts once.
  size_t PictureBytes(const T_Item& i_item, const std::vector<T_Drawn>& i_vecDrawn) const;

 private:
  void LeaveText(T_Item& io_item, SInt32 i_s32Output);
  Bool ChangeTextOn(T_Item& io_item, EDrawMode i_eMode, SInt32 i_s32Output, CLayer& io_layer);
  Bool TouchesPicture(SInt32 i_s32Output, const T_Rect& i_rect);
  Bool TouchesDamage(SInt32 i_s32Output, const T_Rect& i_rect) const;
  void NoteDamage(SInt32 i_s32Output, const T_Rect& i_rect);
  // False when *i_pJudged is a text that had to be painted anew and could not; it may be null.
  Bool RestoreAll(const T_Item* i_pJudged);
  Bool Repaint(SInt32 i_s32Output, const T_Canvas& i_canvas, const T_Rect& i_rect,
               const T_Item* i_pJudged);
  template <class T>
  Bool Compose(const T_Canvas& i_canvas, const T_Rect& i_rect, const T& i_paint);
  Bool PaintItems(T_ItemList::iterator i_from, SInt32 i_s32Output, const T_Canvas& i_canvas,
                  const T_Rect& i_rect, const T_Item* i_pJudged);
  Bool PaintText(const T_Item& i_item, const T_Canvas& i_canvas, const T_Rect& i_rect);
  void PaintBackground(SInt32 i_s32Output, const T_Canvas& i_canvas, const T_Rect& i_rect) const;

  T_LayerMap* const m_pLayers;
  T_ItemList* const m_pItems;
  CTextDrawer m_objDrawer;
  std::string m_strWhy;
  // Rows of a canvas that are being composed; fits a processor's cache. Takes
  // memory from its first use on.
  static constexpr UInt32 kBandPixels = 32768;
  std::unique_ptr<UInt32[]> m_pBand = std::make_unique_for_overwrite<UInt32[]>(kBandPixels);
  // Whether an item may lie somewhere with a picture. While none does, texts need not look for one.
  Bool m_bPictures = false;
  std::map<SInt32, T_Rect> m_mapDamage;
  std::map<SInt32, std::shared_ptr<const CPicture>> m_mapBackgrounds;
};
