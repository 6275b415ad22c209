// Draws and erases one item of the display list on the layers that it belongs to. Owned by the
// renderer and used under its mutexes; writes to nothing but the layers' canvases.
#pragma once

#include "common/osd/glyphs.h"
#include "common/osd/layers.h"

class CTextDrawer {
 public:
  // io_pLayers is borrowed for life. Loads the font at its usual size; when that fails, the first
  // item that is drawn tries again.
  explicit CTextDrawer(T_LayerMap* io_pLayers);

  // The only writer of text cells. Draws i_item, or clears its cells, on the layer of its video
  // output, or on every layer; each is refreshed once. True also when there is no such layer.
  // False for an unknown position code, and when the font or a glyph could not be had for one of
  // the layers: the others are drawn all the same.
  Bool DrawOsdInfo(const T_DispRecord& i_item, EDrawMode i_eMode);

 private:
  Bool DrawOnLayer(const T_DispRecord& i_item, EDrawMode i_eMode, CLayer& io_layer);
  Bool SetItemFont(const T_DispRecord& i_item, UInt32 i_u32CanvasW);

  T_LayerMap* const m_pLayers;
  CGlyphs m_objGlyphs;
};
