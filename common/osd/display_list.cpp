#include "common/osd/display_list.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "framework/log.h"

namespace {

// Tested with "above": the list holds one item more than this.
constexpr UInt32 kCapacity = 64;
constexpr UInt32 kEvery = 255;
constexpr UInt16 kEverySeq = 0xFFFF;

constexpr UInt32 kCancelClasses[] = {1, 3, 4};
constexpr UInt32 kDeleteClasses[] = {1, 3, 4, 5};

// A request's seq against the items that it may mean.
template <size_t kCount>
class CSeqMatch {
 public:
  CSeqMatch(UInt16 i_u16Seq, const UInt32 (&i_aClasses)[kCount])
      : m_u16Seq(i_u16Seq), m_aClasses(i_aClasses) {}

  Bool EveryNumber() const { return (m_u16Seq & 0xFF) == kEvery; }
  Bool IsCandidate(const T_DispRecord& i_item) const {
    return EveryNumber() || i_item.m_u16Seq == m_u16Seq;
  }
  Bool HasClass(const T_DispRecord& i_item) const {
    const UInt32 u32Class = m_u16Seq >> 8;
    if (u32Class == kEvery) return true;
    return u32Class == i_item.Class() && std::find(std::begin(m_aClasses), std::end(m_aClasses),
                                                   u32Class) != std::end(m_aClasses);
  }

 private:
  UInt16 m_u16Seq;
  const UInt32 (&m_aClasses)[kCount];
};

void ClampLines(T_DispRecord& io_item) {
  if (io_item.m_u16Line <= T_DispRecord::kMaxLines) return;
  LOG_ERROR("disp line num<%d> error", io_item.m_u16Line);
  io_item.m_u16Line = T_DispRecord::kMaxLines;
}

// Whether a new layer of that output shows it again.
Bool ComesBack(const T_DispRecord& i_item, SInt32 i_s32VoDev) {
  return i_item.m_u16VoSeq == i_s32VoDev && i_item.m_u8Hide == 0 &&
         i_item.Class() != T_DispRecord::kImageClass;
}

// A path is not the peer's text to the viewer, and is not to break the line.
void LogShown(const T_DispRecord& i_item, Bool i_bGuide) {
  LOG_INFO("osd disp: bGS<%u>,seq<%#x>,rect<%d,%d>,line<%d>,time<%u>,str<%s>,hide<%u>,voseq<%#x>",
           UInt32{i_bGuide}, i_item.m_u16Seq, i_item.m_u32X, i_item.m_u32Y, i_item.m_u16Line,
           i_item.m_u16Time, i_item.IsIcon() ? Printable(i_item.Path()).c_str() : i_item.m_aText[0],
           i_item.m_u8Hide, i_item.m_u16VoSeq);
}

}  // namespace

Bool CDisplayList::HasRoom() const {
  if (Size() <= kCapacity) return true;
  LOG_ERROR("too many osd info to disp, current size<%d>", Size());
  return false;
}

void CDisplayList::Erase(T_Item& io_item) {
  if (io_item.m_stRecord.IsIcon())
    m_pPainter->Move(io_item, {});
  else
    m_pPainter->ChangeText(io_item, kModeErase);
}

void CDisplayList::EraseIfShown(T_Item& io_item) {
  if (io_item.m_stRecord.m_u8Hide == 0) Erase(io_item);
}

void CDisplayList::Hide(T_Item& io_item) {
  EraseIfShown(io_item);
  io_item.m_stRecord.m_u8Hide = 1;
}

// What is shown and what is on its way may be meant apart, on different outputs.
template <class T_Means>
void CDisplayList::HideWhere(T_Item& io_item, const T_Means& i_means) {
  if (io_item.m_pNext != nullptr && i_means(*io_item.m_pNext)) m_objIcons.Withdraw(io_item);
  if (i_means(io_item.m_stRecord)) Hide(io_item);
}

// The item that i_record is about, as it is from now on. An icon becomes a text as a whole.
CDisplayList::T_List::iterator CDisplayList::Merge(T_List::iterator i_found,
                                                   const T_DispRecord& i_record, Bool i_bAllLines) {
  if (i_found == m_listDispInfo.end()) return m_listDispInfo.insert(i_found, T_Item(i_record));
  T_DispRecord& stored = i_found->m_stRecord;
  m_objIcons.Withdraw(*i_found);
  if (stored.IsIcon()) {
    Erase(*i_found);
    stored = i_record;
    return i_found;
  }
  if (!CoversText(i_record, stored, i_bAllLines)) EraseIfShown(*i_found);
  MergeFields(i_record, stored);
  MergeText(i_record, i_bAllLines, stored);
  return i_found;
}

Bool CDisplayList::DrawText(T_List::iterator i_item, Bool i_bNew) {
  ClampLines(i_item->m_stRecord);
  const Bool bDrawn = m_pPainter->ChangeText(*i_item, kModeDraw);
  if (m_pPainter->Restore(&*i_item) && bDrawn) return true;
  if (m_pPainter->HasBackground())
    LOG_ERROR("REFRESH <%s> disp failed!", i_item->m_stRecord.m_aText[0]);
  if (i_bNew) m_listDispInfo.erase(i_item);
  return false;
}

Bool CDisplayList::DropFailed(T_List::iterator i_item) {
  const Bool bFailed = i_item->m_bNew && i_item->m_pNext == nullptr;
  if (bFailed) m_listDispInfo.erase(i_item);
  return bFailed;
}

Bool CDisplayList::ShowIcon(T_List::iterator i_found, const T_DispRecord& i_record) {
  if (i_found == m_listDispInfo.end()) {
    i_found = m_listDispInfo.insert(i_found, T_Item(i_record));
    i_found->m_bNew = true;
  }
  m_objIcons.Request(*i_found, i_record);
  return !DropFailed(i_found);
}

Bool CDisplayList::Show(const T_DispRecord& i_record) {
  auto item = std::find_if(m_listDispInfo.begin(), m_listDispInfo.end(), [&](const T_Item& i_item) {
    return i_item.m_stRecord.m_u16Seq == i_record.m_u16Seq;
  });
  const Bool bNew = item == m_listDispInfo.end() || item->m_bNew;
  if (i_record.IsIcon()) {
    LogShown(i_record, m_pPainter->HasBackground());
    return ShowIcon(item, i_record);
  }
  item = Merge(item, i_record, false);
  LogShown(item->m_stRecord, m_pPainter->HasBackground());
  return DrawText(item, bNew);
}

CDisplayList::T_List::iterator CDisplayList::FindById(const T_DispRecord& i_record) {
  return std::find_if(m_listDispInfo.begin(), m_listDispInfo.end(), [&](const T_Item& i_item) {
    return i_item.m_stRecord.m_u32Source == i_record.m_u32Source &&
           i_item.m_stRecord.m_u32Id == i_record.m_u32Id;
  });
}

Bool CDisplayList::ShowById(const T_DispRecord& i_record) {
  T_DispRecord record = i_record;
  LOG_INFO("osd disp src<%d>,id<%d>,pos<%d>,rect<%d,%d,%d,%d>,line<%d>", record.m_u32Source,
           record.m_u32Id, record.m_u32Position, record.m_u32X, record.m_u32Y, record.m_u32W,
           record.m_u32H, record.m_u16Line);
  ClampLines(record);
  for (UInt32 line = 0; line < record.m_u16Line; ++line)
    LOG_INFO("osd disp info<%d:%s>", line, record.m_aText[line]);
  const auto found = FindById(record);
  if (record.IsIcon()) return ShowIcon(found, record);
  const Bool bNew = found == m_listDispInfo.end() || found->m_bNew;
  return DrawText(Merge(found, record, true), bNew);
}

void CDisplayList::Cancel(UInt16 i_u16VoSeq, UInt16 i_u16Seq) {
  LOG_INFO("osd cancel disp voseq<%#x> osdseq<%#x>", i_u16VoSeq, i_u16Seq);
  const CSeqMatch match(i_u16Seq, kCancelClasses);
  const auto means = [&](const T_DispRecord& i_record) {
    return i_record.m_u16VoSeq == i_u16VoSeq && match.IsCandidate(i_record);
  };
  for (T_Item& item : m_listDispInfo) {
    const Bool bNext = item.m_pNext != nullptr && means(*item.m_pNext);
    if (!bNext && !means(item.m_stRecord)) continue;
    if (match.HasClass(item.m_stRecord)) HideWhere(item, means);
    if (!match.EveryNumber()) return;
  }
}

void CDisplayList::CancelById(const T_DispRecord& i_record) {
  LOG_INFO("osd cancel disp src<%d>,id<%d>,pos<%d>,rect<%d,%d,%d,%d>,line<%d>",
           i_record.m_u32Source, i_record.m_u32Id, i_record.m_u32Position, i_record.m_u32X,
           i_record.m_u32Y, i_record.m_u32W, i_record.m_u32H, i_record.m_u16Line);
  if (i_record.m_u16Line > T_DispRecord::kMaxLines)
    LOG_ERROR("cancel disp line num<%d> error", i_record.m_u16Line);
  const UInt32 u32Lines = std::min<UInt32>(i_record.m_u16Line, T_DispRecord::kMaxLines);
  for (UInt32 line = 0; line < u32Lines; ++line)
    LOG_INFO("osd cancel disp info<%d:%s>", line, i_record.m_aText[line]);
  const auto found = FindById(i_record);
  if (found == m_listDispInfo.end()) return;
  // The identity decides; a text that is not the stored one is only reported.
  for (UInt32 line = 0; line < u32Lines; ++line)
    if (std::strcmp(i_record.m_aText[line], found->m_stRecord.m_aText[line]) != 0)
      LOG_ERROR("calcel osd disp new<%s> != old<%s>, idx = %d", i_record.m_aText[line],
                found->m_stRecord.m_aText[line], line);
  m_objIcons.Withdraw(*found);
  Hide(*found);
}

void CDisplayList::HideIcons(UInt16 i_u16VoSeq, UInt16 i_u16Seq) {
  const auto means = [=](const T_DispRecord& i_record) {
    return i_record.IsIcon() && (i_u16Seq == kEverySeq || i_record.m_u16Seq == i_u16Seq) &&
           (i_u16VoSeq == T_DispRecord::kAllOutputs || i_record.m_u16VoSeq == i_u16VoSeq);
  };
  for (T_Item& item : m_listDispInfo) HideWhere(item, means);
}

void CDisplayList::HideAll() {
  for (T_Item& item : m_listDispInfo) {
    m_objIcons.Withdraw(item);
    CPainter::Forget(item);
    item.m_stRecord.m_u8Hide = 1;
  }
}

void CDisplayList::Delete(UInt16 i_u16Seq) {
  LOG_INFO("osd delete disp seq<%#x>", i_u16Seq);
  LOG_INFO("m_listDispInfo.size=%u", Size());
  const CSeqMatch match(i_u16Seq, kDeleteClasses);
  for (auto item = m_listDispInfo.begin(); item != m_listDispInfo.end();) {
    const auto current = item++;
    if (!match.IsCandidate(current->m_stRecord)) continue;
    if (match.HasClass(current->m_stRecord)) {
      m_objIcons.Withdraw(*current);
      Hide(*current);
      m_listDispInfo.erase(current);
    }
    if (!match.EveryNumber()) break;
  }
  LOG_INFO("m_listDispInfo.size=%u", Size());
}

void CDisplayList::HandleTimerMsg() {
  for (T_Item& item : m_listDispInfo) {
    T_DispRecord& record = item.m_stRecord;
    if (record.Class() == T_DispRecord::kImageClass || record.m_u16Time == 0 ||
        record.m_u16Time == T_DispRecord::kForever)
      continue;
    if (--record.m_u16Time != 0) continue;
    Erase(item);
    record.m_u8Hide = 1;
    LOG_INFO("HandleTimerMsg voseq<%#x> str<%s> time<%d> hide<%d>", record.m_u16VoSeq,
             record.m_aText[0], record.m_u16Time, record.m_u8Hide);
  }
}

void CDisplayList::RedrawIcon(T_List::iterator i_item, SInt32 i_s32VoDev) {
  const T_DispRecord& record = i_item->m_stRecord;
  // What is on its way was asked for in another size.
  const Bool bMeant = i_item->m_pNext != nullptr ? i_item->m_pNext->IsOn(i_s32VoDev)
                                                 : record.IsIcon() && ComesBack(record, i_s32VoDev);
  if (!bMeant) return;
  m_objIcons.Redraw(*i_item);
  DropFailed(i_item);
}

void CDisplayList::DisplayDisInfoList(SInt32 i_s32VoDev) {
  LOG_INFO("DisplayDisInfoList: size<%u>", Size());
  for (auto item = m_listDispInfo.begin(); item != m_listDispInfo.end();) {
    const auto current = item++;
    T_DispRecord& record = current->m_stRecord;
    if (!record.IsIcon() && ComesBack(record, i_s32VoDev)) {
      m_pPainter->ChangeText(*current, kModeDraw);
      if (record.m_u16Time < T_DispRecord::kForever) record.m_u16Time = T_DispRecord::kTimedSeconds;
    }
    RedrawIcon(current, i_s32VoDev);
  }
}

CDisplayList::T_List::iterator CDisplayList::FindByTicket(UInt64 i_u64Ticket) {
  return std::find_if(m_listDispInfo.begin(), m_listDispInfo.end(), [&](const T_Item& i_item) {
    return i_item.m_pNext != nullptr && i_item.m_u64Ticket == i_u64Ticket;
  });
}

void CDisplayList::Take(const T_PictureResult& i_result) {
  const auto found = FindByTicket(i_result.m_u64Ticket);
  if (found == m_listDispInfo.end()) return;
  m_objIcons.Take(*found, i_result);
  DropFailed(found);
  // There is room for another one that was dropped.
  const auto missing = std::find_if(m_listDispInfo.begin(), m_listDispInfo.end(),
                                    [](const T_Item& i_item) { return i_item.m_bMissing; });
  if (missing != m_listDispInfo.end() && !i_result.m_bDropped) m_objIcons.Redraw(*missing);
}
