// The display list: every item that was asked for, in the order of arrival, shown or hidden. It
// outlives the layers. Owned by the renderer and used under its mutexes; what it changes on the
// canvases it tells the painter, whose damage the caller restores.
#pragma once

#include "common/osd/icons.h"
#include "common/osd/text_rules.h"

class CDisplayList {
 public:
  // Both are borrowed for life.
  CDisplayList(CPainter* io_pPainter, CPictureDesk* io_pDesk)
      : m_pPainter(io_pPainter), m_pDesk(io_pDesk), m_objIcons(io_pPainter, io_pDesk) {}

  // For the painter, which looks at the items and at where they lie.
  T_ItemList* Items() { return &m_listDispInfo; }

  // Whether one more request may be handled; false is logged. A full list refuses updates, too.
  Bool HasRoom() const;

  // Draws i_record as a new item, or merged into the item with its seq. When drawing fails, a new
  // item is not kept and an updated one keeps the merged values. An icon whose pictures are to be
  // read waits; when they cannot be had, a new item goes and an updated one stays as it was.
  EOutcome Show(const T_DispRecord& i_record);
  // The same for the item of its source and id; an update takes all lines.
  EOutcome ShowById(const T_DispRecord& i_record);

  // Each erases what it hides, and keeps the items and their times. An icon counts as there from
  // its request on.
  void Cancel(UInt16 i_u16VoSeq, UInt16 i_u16Seq);
  void CancelById(const T_DispRecord& i_record);

  // Hides icons of that output (T_DispRecord::kAllOutputs: of every one); i_u16Seq 0xFFFF means
  // all of them. Those of class 2, which no delete takes, leave the list.
  void HideIcons(UInt16 i_u16VoSeq, UInt16 i_u16Seq);
  // Marks all items hidden and leaves the pixels.
  void HideAll();

  // Erases and removes items; a number (low byte) of 255 means every one of the class (high byte).
  void Delete(UInt16 i_u16Seq);

  // One second has passed.
  void HandleTimerMsg();

  // Draws what is shown on output i_s32VoDev, and restarts the time of its texts.
  void DisplayDisInfoList(SInt32 i_s32VoDev);

  // Shows the icon that waits for this result, which may be that of nobody.
  void Take(const T_PictureResult& i_result);

  // The layer of that output is gone.
  void LayerGone(SInt32 i_s32VoDev);

  // Asks for pictures that are missing, the earliest request first, while there is room.
  void AskForMissing();

  void Clear() { m_listDispInfo.clear(); }

 private:
  using T_List = T_ItemList;

  UInt32 Size() const { return static_cast<UInt32>(m_listDispInfo.size()); }
  T_List::iterator FindById(const T_DispRecord& i_record);
  T_List::iterator FindOldestOpen();
  T_List::iterator Merge(T_List::iterator i_found, const T_DispRecord& i_record, Bool i_bAllLines);
  EOutcome DrawText(T_List::iterator i_item, Bool i_bNew);
  EOutcome ShowIcon(T_List::iterator i_found, const T_DispRecord& i_record);
  EOutcome DropIfGone(T_List::iterator i_item, EOutcome i_eOutcome);
  void EraseShown(T_Item& io_item);
  void Hide(T_Item& io_item);

  T_List m_listDispInfo;
  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
  CIcons m_objIcons;
};
