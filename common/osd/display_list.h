// The display list: every item that was asked for, in the order of arrival, shown or hidden. It
// outlives the layers. Owned by the renderer and used under its mutexes. It has the painter change
// the canvases; the caller has the painter restore what was damaged when the request is done.
#pragma once

#include "common/osd/icons.h"
#include "common/osd/state.h"
#include "common/osd/text_rules.h"

class CDisplayList {
 public:
  // All are borrowed for life. Nobody else adds or removes items; the painter looks at them.
  CDisplayList(T_ItemList* io_pItems, CPainter* io_pPainter, CPictureDesk* io_pDesk)
      : m_listDispInfo(*io_pItems),
        m_pPainter(io_pPainter),
        m_pDesk(io_pDesk),
        m_objIcons(io_pPainter, io_pDesk) {}

  // Whether one more request may be handled. False when the list is full (logged): then updates of
  // its items are refused, too.
  Bool HasRoom() const;

  // Draws i_record as a new item, or merges it into the item with its seq and draws that.
  // A text cannot be drawn for an unknown position code, or without font or glyph: a new item is
  // not kept then (kGone), an updated one keeps the merged values (kFailed). An icon waits for its
  // pictures (kWaiting); when they cannot be read, or are too large to be shown with all others, a
  // new item is not kept and an updated one becomes what it was.
  EOutcome Show(const T_DispRecord& i_record, const T_Asker& i_asker);
  // The same by source and id instead of the seq; an update replaces all lines. Lines beyond
  // kMaxLines are cut off in io_record itself.
  EOutcome ShowById(T_DispRecord& io_record, const T_Asker& i_asker);

  // Each erases what it hides, and keeps the items and their times. Icons whose pictures are still
  // to come are hidden like others. They return, as those below, how many items they hid or removed;
  // one that was hidden already does not count.
  UInt32 Cancel(UInt16 i_u16Output, UInt16 i_u16Seq);
  void CancelById(const T_DispRecord& i_record);

  // Hides icons of that output (kEveryOutput: of all); i_u16Seq kEveryElement means
  // every seq. Icons of class 2 leave the list, because no delete would ever take them.
  UInt32 HideIcons(UInt16 i_u16Output, UInt16 i_u16Seq);
  // Marks all items hidden; their pixels stay.
  void HideAll();

  // Erases and removes the first item with that seq; with a low byte of 255, all items of the class
  // in the high byte; with 255 there, of any class. Items of class 2 go with the latter only.
  UInt32 Delete(UInt16 i_u16Seq);

  // One second has passed: texts whose time is up are erased, and stay in the list, hidden.
  void HandleTimerMsg();

  // The layer of i_s32Output is new: draws what is shown there, and restarts the time of its texts.
  void DisplayDisInfoList(SInt32 i_s32Output);

  // Shows the icon that waits for this result; a result that nobody waits for is ignored.
  void Take(const T_PictureResult& i_result);

  // The layer of i_s32Output is gone: no icon waits for pictures of its size any more.
  void LayerGone(SInt32 i_s32Output);

  // Asks for pictures that icons lack, the earliest request first, while there is room. To be
  // called after every command and result.
  void AskForMissing();

  // Whether the element that i_asker asked for last lies on any canvas.
  Bool Lies(const T_Asker& i_asker) const;

  // What is in the list, in its order.
  std::vector<T_OsdState::T_Element> State() const;

  // Removes all items; the canvases stay as they are.
  void Clear() { m_listDispInfo.clear(); }

 private:
  UInt32 Size() const { return static_cast<UInt32>(m_listDispInfo.size()); }
  T_ItemList::iterator FindById(const T_DispRecord& i_record);
  T_ItemList::iterator FindOldestOpen();
  T_ItemList::iterator Merge(T_ItemList::iterator i_found, const T_DispRecord& i_record,
                             Bool i_bAllLines, const T_Asker& i_asker);
  EOutcome DrawText(T_ItemList::iterator i_item, Bool i_bNew);
  EOutcome ShowIcon(T_ItemList::iterator i_found, const T_DispRecord& i_record,
                    const T_Asker& i_asker);
  EOutcome DropIfGone(T_ItemList::iterator i_item, EOutcome i_eOutcome);
  void EraseShown(T_Item& io_item);
  // Whether it was not hidden already.
  Bool Hide(T_Item& io_item);

  T_ItemList& m_listDispInfo;
  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
  CIcons m_objIcons;
  // Whether an item may be an icon. While none is, nothing can be open.
  Bool m_bIcons = false;
};
