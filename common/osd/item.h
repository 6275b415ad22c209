// An item of the display list: what was asked for, and where it lies on the canvases now.
#pragma once

#include <algorithm>
#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "common/osd/canvas.h"
#include "common/osd/disp_record.h"
#include "common/osd/pictures/picture.h"

// An item on one layer.
struct T_Drawn {
  SInt32 m_s32VoDev;
  T_Rect m_stRect;
  std::shared_ptr<const CPicture> m_pPicture;  // of an icon, in the size of m_stRect
  UInt64 m_u64Number = 0;                      // of the request that it is for; texts: 0
};

struct T_Request {
  explicit T_Request(const T_DispRecord& i_record)
      : m_stRecord(i_record), m_bCame(!i_record.IsIcon()) {}

  T_DispRecord m_stRecord;
  // Icons: later requests have greater numbers.
  UInt64 m_u64Number = 0;
  // Icons: the outputs with a layer on which it is to be seen. Which those are is decided by the
  // request, and by each new layer; a text has them only while an icon is to take its place.
  std::vector<SInt32> m_vecOutputs;
  // Its pictures have been read, or none were needed.
  Bool m_bCame;
};

// An icon is wanted from its request on: whatever follows, except a failure, takes it as if it
// were there already, so that nothing depends on how fast pictures are read. How it comes and goes:
//
//   what happens                  wanted          m_vecBefore       on the canvases
//   request; no picture needed,   the request     none              the request's picture
//     or one at hand
//   request; pictures to be read  the request     + what was        as before
//                                                   wanted
//     the same pictures again     the request     as before         as before
//   they are there                came            none              the request's pictures
//   they cannot be had            the last of     what is left      as before
//                                   m_vecBefore
//     of the first request        the item goes
//     of one that came before     as before       none              as before; not missed any more
//   hide, text in its place       came, hidden    none              nothing, or the text
//   all hidden (0x50C)            came, hidden    none              as before; what is missing is
//                                                                   laid there, below later items,
//                                                                   unless the item goes first
//   new layer                     there, if a new layer shows it    there nothing
//   layer gone                    not there       not there         there nothing
struct T_Item {
  explicit T_Item(const T_DispRecord& i_record) : m_stWanted(i_record) {}

  // The request that counts.
  const T_DispRecord& Record() const { return m_stWanted.m_stRecord; }
  // The one that is seen: everything drawn is its.
  const T_Request& Shown() const {
    return m_stWanted.m_bCame || m_vecBefore.empty() ? m_stWanted : m_vecBefore.front();
  }
  T_Request& Shown() { return const_cast<T_Request&>(std::as_const(*this).Shown()); }

  const T_Drawn* On(SInt32 i_s32VoDev) const {
    const auto found =
        std::find_if(m_vecDrawn.begin(), m_vecDrawn.end(),
                     [=](const T_Drawn& i_drawn) { return i_drawn.m_s32VoDev == i_s32VoDev; });
    return found != m_vecDrawn.end() ? &*found : nullptr;
  }
  // Of an item that is shown nowhere on that layer: empty.
  T_Rect RectOn(SInt32 i_s32VoDev) const {
    const T_Drawn* const pDrawn = On(i_s32VoDev);
    return pDrawn != nullptr ? pDrawn->m_stRect : T_Rect{};
  }

  T_Request m_stWanted;
  // What stays when the pictures of m_stWanted cannot be had, the latest last. Only the first may
  // have come.
  std::vector<T_Request> m_vecBefore;
  std::vector<T_Drawn> m_vecDrawn;
  // Of the pictures that are being read; 0 = none are. They are those of m_stWanted, for which they
  // were asked for by a request with m_u64Asked.
  UInt64 m_u64Ticket = 0;
  UInt64 m_u64Asked = 0;
};

using T_ItemList = std::list<T_Item>;
