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
      : m_pPainter(io_pPainter), m_objIcons(io_pPainter, io_pDesk) {}

  // For the painter, which looks at the items and at where they lie.
  T_ItemList* Items() { return &m_listDispInfo; }

  // Whether one more request may be handled; false is logged. A full list refuses updates, too.
  Bool HasRoom() const;

  // Draws i_record as a new item, or merged into the item with its seq. False when drawing failed:
  // a new item is then not kept, an updated one keeps the merged values. An icon is drawn when its
  // picture has been read; when it cannot be, a new item goes and an updated one stays as it was.
  Bool Show(const T_DispRecord& i_record);
  // The same for the item of its source and id; an update takes all lines.
  Bool ShowById(const T_DispRecord& i_record);

  // Each erases what it hides, and keeps the items and their times. An icon whose picture is on its
  // way will not be shown.
  void Cancel(UInt16 i_u16VoSeq, UInt16 i_u16Seq);
  void CancelById(const T_DispRecord& i_record);

  // Hides icons of that output (T_DispRecord::kAllOutputs: of every one); i_u16Seq 0xFFFF means
  // all of them.
  void HideIcons(UInt16 i_u16VoSeq, UInt16 i_u16Seq);
  // Marks all items hidden and leaves the pixels.
  void HideAll();

  // Erases and removes items; a number (low byte) of 255 means every one of the class (high byte).
  void Delete(UInt16 i_u16Seq);

  // One second has passed.
  void HandleTimerMsg();

  // Draws what is shown on output i_s32VoDev, and restarts the time of its texts.
  void DisplayDisInfoList(SInt32 i_s32VoDev);

  // Shows the icon that waits for this result, which may be that of nobody. Its error may be made
  // up by the caller.
  void Take(const T_PictureResult& i_result);

  void Clear() { m_listDispInfo.clear(); }

 private:
  using T_List = T_ItemList;

  UInt32 Size() const { return static_cast<UInt32>(m_listDispInfo.size()); }
  T_List::iterator FindById(const T_DispRecord& i_record);
  T_List::iterator FindByTicket(UInt64 i_u64Ticket);
  T_List::iterator Merge(T_List::iterator i_found, const T_DispRecord& i_record, Bool i_bAllLines);
  Bool DrawText(T_List::iterator i_item, Bool i_bNew);
  Bool ShowIcon(T_List::iterator i_found, const T_DispRecord& i_record);
  Bool DropFailed(T_List::iterator i_item);
  void RedrawIcon(T_List::iterator i_item, SInt32 i_s32VoDev);
  void Erase(T_Item& io_item);
  void EraseIfShown(T_Item& io_item);
  void Hide(T_Item& io_item);
  template <class T_Means>
  void HideWhere(T_Item& io_item, const T_Means& i_means);

  T_List m_listDispInfo;
  CPainter* const m_pPainter;
  CIcons m_objIcons;
};
