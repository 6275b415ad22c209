// Gets the pictures of icons and lays them on the layers. No state of its own but the tickets that
// it leaves in the items. Owned by the renderer and used under its mutexes.
#pragma once

#include "common/osd/item.h"
#include "common/osd/painter.h"
#include "common/osd/picture_desk.h"

class CIcons {
 public:
  // Of the pictures that are shown at a time; what would exceed it is not shown.
  static constexpr size_t kMaxBytesShown = size_t{256} << 20;

  // Both are borrowed for life.
  CIcons(CPainter* io_pPainter, CPictureDesk* io_pDesk)
      : m_pPainter(io_pPainter), m_pDesk(io_pDesk) {}

  // io_item becomes the icon i_record, shown, as soon as its pictures are there, which may be at
  // once; a request that is still under way for io_item is withdrawn. Where its output has no
  // layer, or the icon lies outside the canvas, there is nothing to wait for and nothing to see.
  // An item that stays new although nothing is under way could not be shown.
  void Request(T_Item& io_item, const T_DispRecord& i_record);

  // A layer of the shown icon io_item is new: what is under way is asked for in the new size, else
  // the icon itself. An item that fails stays as it is, seen or not.
  void Redraw(T_Item& io_item);

  // What was asked for io_item and is not there yet will not be shown.
  void Withdraw(T_Item& io_item);

  // The result that io_item waits for: it is shown as requested, or with an error stays as it was.
  void Take(T_Item& io_item, const T_PictureResult& i_result);

 private:
  void Ask(T_Item& io_item, const T_DispRecord& i_record);
  void Place(T_Item& io_item, const T_DispRecord& i_record, const T_PictureResult& i_result);

  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
};
