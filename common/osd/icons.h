// Gets the pictures of icons and lays them on the layers. It keeps nothing about an icon: that
// stands in its item (item.h has the table). Owned by the display list and used under the
// renderer's mutexes.
#pragma once

#include "common/osd/item.h"
#include "common/osd/painter.h"
#include "common/osd/pictures/desk.h"

// What became of a request.
enum class EOutcome {
  kShown,
  kWaiting,  // for pictures that are being read, or are to be
  kFailed,   // the item is what it was before the request
  kGone      // failed, and there was nothing before: the caller removes the item from the list
};

class CIcons {
 public:
  // Bytes of all pictures that are shown at a time. One with which they would be more fails.
  static constexpr size_t kMaxBytesShown = size_t{256} << 20;

  // Both are borrowed for life.
  CIcons(CPainter* io_pPainter, CPictureDesk* io_pDesk)
      : m_pPainter(io_pPainter), m_pDesk(io_pDesk) {}

  // io_item, which may be new, is from now on wanted as the icon i_record, shown on the layers of
  // its output. Close then does what can be done about it.
  void Request(T_Item& io_item, const T_DispRecord& i_record, const T_Asker& i_asker);

  // Shows io_item on the layers where it is wanted and not yet drawn, if its pictures are at hand;
  // otherwise has them read, if there is room for one more job, and returns kWaiting. kFailed or
  // kGone when all pictures that are shown would exceed kMaxBytesShown (logged).
  EOutcome Close(T_Item& io_item);

  // Whether Close would have something to do.
  Bool IsOpen(const T_Item& i_item) const;

  // Shows the pictures that io_item waits for. kFailed or kGone when they could not be read, and as
  // Close; kWaiting when they are to be read once more, because they were requested again
  // meanwhile.
  EOutcome Take(T_Item& io_item, const T_PictureResult& i_result);

  // io_item waits for no pictures any more and counts as shown. Does not change what is drawn.
  void Settle(T_Item& io_item);

  // For an item that was hidden although its pixels are to stay: it counts as lying nowhere.
  // Pictures that it still waits for will be drawn once when they come.
  void Leave(T_Item& io_item);

  // The layer of i_s32Output is gone: io_item is not wanted there any more.
  void LayerGone(T_Item& io_item, SInt32 i_s32Output);
  // That layer is new: io_item is wanted there, if it is one that comes back.
  void LayerCame(T_Item& io_item, SInt32 i_s32Output);

 private:
  Bool IsMissingOn(const T_Item& i_item, SInt32 i_s32Output) const;
  std::vector<T_PictureJob::T_Target> Missing(const T_Item& i_item) const;
  EOutcome Place(T_Item& io_item, const T_PictureResult& i_result);
  EOutcome Fail(T_Item& io_item, const std::string& i_strWhy);
  void GoBack(T_Item& io_item);
  static void CloseEntry(T_Item& io_item);
  void Withdraw(T_Item& io_item);

  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
  UInt64 m_u64LastNumber = 0;
};
