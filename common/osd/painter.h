// What lies on the canvases: puts items there and takes them off. Where no picture is, texts follow
// rules of their own: they are drawn over what is there, and erasing one clears its cells. Where
// one is, the canvas is painted anew from the list: the background (a picture of the whole canvas,
// or nothing), then every item that lies there, in the list's order.
//
// Owned by the renderer and used under its mutexes. What changes is noted as one damaged rectangle
// per layer; Restore paints and refreshes it. Nothing is read from the canvases but by blending.
#pragma once

#include <map>
#include <memory>
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

  // Draws the text io_item, or erases it, on the layers of its output. Those where no picture
  // touches it are refreshed at once. False for an unknown position code, and when the font or a
  // glyph could not be had for one of the layers: the others are drawn all the same. What is not
  // drawn at once may fail later: Restore tells.
  Bool ChangeText(T_Item& io_item, EDrawMode i_eMode);

  // io_item lies on these layers from now on, and no more where it was.
  void Move(T_Item& io_item, std::vector<T_Drawn> i_vecDrawn);

  // Lays pictures over what is there, as an item that counts as lying nowhere left them, and the
  // items that lie there over them.
  void LayOnce(const std::vector<T_Drawn>& i_vecDrawn, UInt32 i_u32Opacity);

  // io_item counts as lying nowhere; its pixels stay.
  static void Forget(T_Item& io_item) { io_item.m_vecDrawn.clear(); }

  // Paints what was noted and refreshes each layer once. False when the text *i_pJudged, which may
  // be null, is among it and could not be drawn.
  Bool Restore(const T_Item* i_pJudged = nullptr);

  // The layer of i_s32VoDev is gone or new: nothing lies on it.
  void ForgetLayer(SInt32 i_s32VoDev);

  // i_pPicture, opaque and of the canvas's size, lies behind everything; null = nothing does.
  void SetBackground(SInt32 i_s32VoDev, std::shared_ptr<const CPicture> i_pPicture);
  Bool HasBackground() const { return !m_mapBackgrounds.empty(); }
  Bool HasBackground(SInt32 i_s32VoDev) const { return m_mapBackgrounds.contains(i_s32VoDev); }

  // Of all pictures that would lie on the canvases if i_item lay there as i_vecDrawn.
  size_t PictureBytes(const T_Item& i_item, const std::vector<T_Drawn>& i_vecDrawn) const;

 private:
  void LeaveText(T_Item& io_item, SInt32 i_s32VoDev);
  Bool ChangeTextOn(T_Item& io_item, EDrawMode i_eMode, SInt32 i_s32VoDev, CLayer& io_layer);
  Bool TouchesPicture(SInt32 i_s32VoDev, const T_Rect& i_rect) const;
  Bool TouchesDamage(SInt32 i_s32VoDev, const T_Rect& i_rect) const;
  void NoteDamage(SInt32 i_s32VoDev, const T_Rect& i_rect);
  Bool Repaint(SInt32 i_s32VoDev, const T_Canvas& i_canvas, const T_Rect& i_rect,
               const T_Item* i_pJudged);
  Bool PaintItems(T_ItemList::iterator i_from, SInt32 i_s32VoDev, const T_Canvas& i_canvas,
                  const T_Rect& i_rect, const T_Item* i_pJudged);
  void PaintBackground(SInt32 i_s32VoDev, const T_Canvas& i_canvas, const T_Rect& i_rect) const;

  T_LayerMap* const m_pLayers;
  T_ItemList* const m_pItems;
  CTextDrawer m_objDrawer;
  std::map<SInt32, T_Rect> m_mapDamage;
  std::map<SInt32, std::shared_ptr<const CPicture>> m_mapBackgrounds;
};
