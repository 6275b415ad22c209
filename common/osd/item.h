// An item of the display list: what was asked for, and where it lies on the canvases now. Plain
// data; owned by the renderer and used under its mutexes.
#pragma once

#include <algorithm>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/osd/canvas.h"
#include "common/osd/disp_record.h"
#include "common/osd/pictures/picture.h"
#include "daemon/common/ledger.h"

// Where an item lies on the layer of one output.
struct T_Drawn {
  SInt32 m_s32Output;
  T_Rect m_stRect;  // px, within the canvas
  // Of an icon; its top left pixel is that of m_stRect, and what passes m_stRect is not shown.
  // Null for a text.
  std::shared_ptr<const CPicture> m_pPicture;
  UInt64 m_u64Number = 0;  // of the request that the picture was read for; 0 for a text
};

// A request for an item, and how far it has come.
struct T_Request {
  T_Request(const T_DispRecord& i_record, const T_Asker& i_asker)
      : m_stRecord(i_record), m_stAsker(i_asker), m_bCame(!i_record.IsIcon()) {}

  T_DispRecord m_stRecord;
  T_Asker m_stAsker;
  // Icons: counted up, so a later request has a greater number. Texts: 0.
  UInt64 m_u64Number = 0;
  // Icons: the outputs whose layers are to show it. The request names them, and layers that come
  // or go later change them. Texts: none, but while the icon that is to replace the text is read
  // they are the outputs that show the text, or would.
  std::vector<SInt32> m_vecOutputs;
  // Icons: its pictures have been read, or none had to be. Texts: always true.
  Bool m_bCame;
};

// An icon counts as shown from its request on, although its pictures must be read first: every
// later request treats it as if they were there already. So what the screen shows in the end does
// not depend on how fast pictures are read. Only when they cannot be read does the item return to
// what it was before. What happens to an icon:
//
//   what happens                  m_stWanted      m_vecBefore       on the canvases
//   request: pictures at hand,    the request     empty             the request's pictures
//     or none needed
//   request: pictures must be     the request     + what was        unchanged
//     read                                          wanted
//   request for the same          the request     unchanged         unchanged
//     pictures meanwhile
//   the pictures have been read   came            empty             the request's pictures
//   they cannot be read           the last of     without that      unchanged
//                                   m_vecBefore
//     and m_vecBefore is empty    the item leaves the list
//     but came once already       unchanged       empty             unchanged; they are not asked
//                                                                   for again
//   hidden, replaced by a text    came, hidden    empty             nothing, or the text
//   everything hidden (0x50C)     came, hidden    empty             unchanged; pictures that are
//                                                                   still to come are drawn once,
//                                                                   below later items, unless the
//                                                                   item leaves the list before
//   a layer is set up             shown there, if items come back   nothing yet
//                                   on a new layer
//   a layer is gone               not there       not there         nothing there
struct T_Item {
  T_Item(const T_DispRecord& i_record, const T_Asker& i_asker) : m_stWanted(i_record, i_asker) {}

  // The latest request: what the item is to be.
  const T_DispRecord& Record() const { return m_stWanted.m_stRecord; }
  // The request whose text or pictures lie on the canvases.
  const T_Request& Shown() const {
    return m_stWanted.m_bCame || m_vecBefore.empty() ? m_stWanted : m_vecBefore.front();
  }
  T_Request& Shown() { return const_cast<T_Request&>(std::as_const(*this).Shown()); }

  // Where the item lies on that output's layer; null when it does not.
  const T_Drawn* On(SInt32 i_s32Output) const {
    const auto found =
        std::find_if(m_vecDrawn.begin(), m_vecDrawn.end(),
                     [=](const T_Drawn& i_drawn) { return i_drawn.m_s32Output == i_s32Output; });
    return found != m_vecDrawn.end() ? &*found : nullptr;
  }
  // The same as a rectangle, which is empty when it does not.
  T_Rect RectOn(SInt32 i_s32Output) const {
    const T_Drawn* const pDrawn = On(i_s32Output);
    return pDrawn != nullptr ? pDrawn->m_stRect : T_Rect{};
  }

  T_Request m_stWanted;
  // Earlier requests, to return to when the pictures of m_stWanted cannot be read; the latest is
  // the last. All but the first are themselves icons that wait.
  std::vector<T_Request> m_vecBefore;
  std::vector<T_Drawn> m_vecDrawn;
  // The ticket of the pictures that are being read for m_stWanted; 0 = none are.
  UInt64 m_u64Ticket = 0;
  // The number of the request that asked for them: an earlier one than m_stWanted's when the same
  // pictures were requested again meanwhile.
  UInt64 m_u64Asked = 0;
  // Why the last request failed, or what it lacks; empty when nothing.
  std::string m_strFailed;
};

using T_ItemList = std::list<T_Item>;
