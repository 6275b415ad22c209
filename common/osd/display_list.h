// The display list: every item that was asked for, in the order of arrival, shown or hidden. It
// outlives the layers. Owned by the renderer and used under its mutexes; draws through the text
// drawer that it borrows.
#pragma once

#include <list>

#include "common/osd/textdrawer.h"

class CDisplayList {
 public:
  explicit CDisplayList(CTextDrawer* i_pDrawer) : m_pDrawer(i_pDrawer) {}

  // Whether one more request may be handled; false is logged. A full list refuses updates, too.
  Bool HasRoom() const;

  // Draws i_record as a new item, or merged into the item with its seq. False when drawing failed:
  // a new item is then not kept, an updated one keeps the merged values.
  Bool Show(const T_DispRecord& i_record);
  // The same for the item of its source and id; an update takes all lines.
  Bool ShowById(const T_DispRecord& i_record);

  // Each erases what it hides, and keeps the items and their times.
  void Cancel(UInt16 i_u16VoSeq, UInt16 i_u16Seq);
  void CancelById(const T_DispRecord& i_record);

  // Marks icons hidden; i_u16Seq 0xFFFF means all of that output.
  void HideIcons(UInt16 i_u16VoSeq, UInt16 i_u16Seq);
  // Marks all items hidden and leaves the pixels.
  void HideAll();

  // Erases and removes items; a number (low byte) of 255 means every one of the class (high byte).
  void Delete(UInt16 i_u16Seq);

  // One second has passed.
  void HandleTimerMsg();

  // Draws what is shown on output i_s32VoDev, and restarts the time of its texts.
  void DisplayDisInfoList(SInt32 i_s32VoDev);

  void Clear() { m_listDispInfo.clear(); }

 private:
  using T_List = std::list<T_DispRecord>;

  UInt32 Size() const { return static_cast<UInt32>(m_listDispInfo.size()); }
  T_List::iterator FindById(const T_DispRecord& i_record);
  Bool DrawAndKeep(T_DispRecord& io_item, Bool i_bNew);
  Bool Draw(const T_DispRecord& i_item, EDrawMode i_eMode);
  void EraseIfShown(const T_DispRecord& i_item);

  CTextDrawer* const m_pDrawer;
  T_List m_listDispInfo;
};
