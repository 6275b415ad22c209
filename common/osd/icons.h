// Gets the pictures of icons and lays them on the layers. What it knows stands in the items. Owned
// by the renderer and used under its mutexes.
#pragma once

#include "common/osd/item.h"
#include "common/osd/painter.h"
#include "common/osd/picture_desk.h"

// What became of a request. After kFailed what was wanted before it is wanted again; kGone is a
// failure, too, with nothing before it: the item is to go.
enum class EOutcome { kShown, kWaiting, kFailed, kGone };

class CIcons {
 public:
  // Of the pictures that are shown at a time; what would exceed it is not shown.
  static constexpr size_t kMaxBytesShown = size_t{256} << 20;

  // Both are borrowed for life.
  CIcons(CPainter* io_pPainter, CPictureDesk* io_pDesk)
      : m_pPainter(io_pPainter), m_pDesk(io_pDesk) {}

  // io_item, which may be new, is to become the icon i_record, shown, on the layers of its output.
  void Request(T_Item& io_item, const T_DispRecord& i_record);

  // Closes the difference between what is wanted and what is on the canvases, as far as it can be
  // closed now: from pictures at hand, else by asking for them when there is room. kWaiting when
  // some are still missing.
  EOutcome Close(T_Item& io_item);

  // Whether Close has something to do.
  Bool IsOpen(const T_Item& i_item) const;

  // The result that io_item waits for.
  EOutcome Take(T_Item& io_item, const T_PictureResult& i_result);

  // What is wanted counts as come and nothing more is missing; what is drawn is the caller's.
  void Settle(T_Item& io_item);

  // io_item, hidden, lies nowhere, but its pixels stay, and those that are missing are laid there.
  void Leave(T_Item& io_item);

  // The layer of i_s32VoDev is gone, or it is new and io_item is to be seen there if it comes back.
  void LayerGone(T_Item& io_item, SInt32 i_s32VoDev);
  void LayerCame(T_Item& io_item, SInt32 i_s32VoDev);

 private:
  Bool IsMissingOn(const T_Item& i_item, SInt32 i_s32VoDev) const;
  std::vector<T_PictureJob::T_Target> Missing(const T_Item& i_item) const;
  EOutcome Place(T_Item& io_item, const T_PictureResult& i_result);
  EOutcome Fail(T_Item& io_item);
  void GoBack(T_Item& io_item);
  void Withdraw(T_Item& io_item);

  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
  UInt64 m_u64LastNumber = 0;
};
