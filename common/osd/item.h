// An item of the display list: what was asked for, and where it lies on the canvases now.
#pragma once

#include <list>
#include <memory>
#include <vector>

#include "common/osd/canvas.h"
#include "common/osd/disp_record.h"
#include "common/osd/pictures/picture.h"

// An item on one layer.
struct T_Drawn {
  SInt32 m_s32VoDev;
  T_Rect m_stRect;
  std::shared_ptr<const CPicture> m_pPicture;  // of an icon, in the size of m_stRect
};

struct T_Item {
  explicit T_Item(const T_DispRecord& i_record) : m_stRecord(i_record) {}

  const T_Drawn* On(SInt32 i_s32VoDev) const {
    for (const T_Drawn& drawn : m_vecDrawn)
      if (drawn.m_s32VoDev == i_s32VoDev) return &drawn;
    return nullptr;
  }
  // Of an item that is shown nowhere on that layer: empty.
  T_Rect RectOn(SInt32 i_s32VoDev) const {
    const T_Drawn* const pDrawn = On(i_s32VoDev);
    return pDrawn != nullptr ? pDrawn->m_stRect : T_Rect{};
  }

  T_DispRecord m_stRecord;
  std::vector<T_Drawn> m_vecDrawn;
  // The pictures that are on their way; 0 = none. m_pNext is the request that they are for: the
  // item stays as it is until they are there, and for good when they do not come.
  UInt64 m_u64Ticket = 0;
  std::unique_ptr<T_DispRecord> m_pNext;
  // They are the item's own, for a layer that is new.
  Bool m_bRedraw = false;
  // They were asked for again meanwhile.
  Bool m_bAgain = false;
  // They were dropped, and are to be asked for again.
  Bool m_bMissing = false;
  // It waits for its first pictures: without them it goes.
  Bool m_bNew = false;
};

using T_ItemList = std::list<T_Item>;
