#include "common/osd/display_list.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "framework/log.h"

namespace {

// A request is refused when there are more items than this, so the list holds up to 65.
constexpr UInt32 kCapacity = 64;

constexpr UInt8 kCancelClasses[] = {1, 3, 4};
constexpr UInt8 kDeleteClasses[] = {1, 3, 4, 5};

// Tells which items the seq of a request stands for.
template <size_t kCount>
class CSeqMatch {
 public:
  CSeqMatch(UInt16 i_u16Seq, const UInt8 (&i_aClasses)[kCount])
      : m_u16Seq(i_u16Seq), m_aClasses(i_aClasses) {}

  Bool EveryNumber() const { return ElementNumber(m_u16Seq) == kEveryNumber; }
  Bool IsCandidate(const T_DispRecord& i_item) const {
    return EveryNumber() || i_item.m_u16Seq == m_u16Seq;
  }
  Bool HasClass(const T_DispRecord& i_item) const {
    const UInt8 u8Class = ElementClass(m_u16Seq);
    if (u8Class == kEveryClass) return true;
    return u8Class == i_item.Class() &&
           std::find(std::begin(m_aClasses), std::end(m_aClasses), u8Class) != std::end(m_aClasses);
  }

 private:
  UInt16 m_u16Seq;
  const UInt8 (&m_aClasses)[kCount];
};

void ClampLines(T_DispRecord& io_item) {
  if (io_item.m_u16Line <= T_DispRecord::kMaxLines) return;
  LOG_ERROR("disp line num<%d> error", io_item.m_u16Line);
  io_item.m_u16Line = T_DispRecord::kMaxLines;
}

void LogShown(const T_DispRecord& i_item, Bool i_bGuide) {
  LOG_INFO("osd disp: bGS<%u>,seq<%#x>,rect<%d,%d>,line<%d>,time<%u>,str<%s>,hide<%u>,voseq<%#x>",
           UInt32{i_bGuide}, i_item.m_u16Seq, i_item.m_u32X, i_item.m_u32Y, i_item.m_u16Line,
           i_item.m_u16Time, i_item.m_aText[0], i_item.m_u8Hide, i_item.m_u16VoSeq);
}

}  // namespace

Bool CDisplayList::HasRoom() const {
  if (Size() <= kCapacity) return true;
  LOG_ERROR("too many osd info to disp, current size<%d>", Size());
  return false;
}

// A text that waits to be replaced by an icon is erased as that icon would be: what it covers is
// painted anew, and its cells are not cleared.
void CDisplayList::EraseShown(T_Item& io_item) {
  if (io_item.Record().IsIcon())
    m_pPainter->Move(io_item, {});
  else if (io_item.Record().m_u8Hide == 0)
    m_pPainter->ChangeText(io_item, EDrawMode::kErase);
}

Bool CDisplayList::Hide(T_Item& io_item) {
  if (io_item.Record().m_u8Hide != 0) return false;
  EraseShown(io_item);
  m_objIcons.Settle(io_item);
  io_item.m_stWanted.m_stRecord.m_u8Hide = 1;
  return true;
}

// The item that i_record is about, new or with i_record merged into it. An icon that becomes a text
// takes over the whole record.
T_ItemList::iterator CDisplayList::Merge(T_ItemList::iterator i_found, const T_DispRecord& i_record,
                                         Bool i_bAllLines, const T_Asker& i_asker) {
  if (i_found == m_listDispInfo.end()) return m_listDispInfo.emplace(i_found, i_record, i_asker);
  T_DispRecord& stored = i_found->m_stWanted.m_stRecord;
  if (stored.IsIcon()) {
    EraseShown(*i_found);
    m_objIcons.Settle(*i_found);
    stored = i_record;
    i_found->m_stWanted.m_stAsker = i_asker;
    return i_found;
  }
  if (!CoversText(i_record, stored, i_bAllLines)) EraseShown(*i_found);
  MergeFields(i_record, stored);
  MergeText(i_record, i_bAllLines, stored);
  i_found->m_stWanted.m_stAsker = i_asker;
  return i_found;
}

EOutcome CDisplayList::DrawText(T_ItemList::iterator i_item, Bool i_bNew) {
  ClampLines(i_item->m_stWanted.m_stRecord);
  const Bool bDrawn = m_pPainter->ShowText(*i_item);
  i_item->m_strFailed = m_pPainter->Why();
  if (bDrawn) return EOutcome::kShown;
  if (m_pPainter->HasBackground())
    LOG_ERROR("REFRESH <%s> disp failed!", i_item->Record().m_aText[0]);
  return DropIfGone(i_item, i_bNew ? EOutcome::kGone : EOutcome::kFailed);
}

EOutcome CDisplayList::DropIfGone(T_ItemList::iterator i_item, EOutcome i_eOutcome) {
  if (i_eOutcome == EOutcome::kGone) m_listDispInfo.erase(i_item);
  return i_eOutcome;
}

EOutcome CDisplayList::ShowIcon(T_ItemList::iterator i_found, const T_DispRecord& i_record,
                                const T_Asker& i_asker) {
  m_bIcons = true;
  if (i_found == m_listDispInfo.end()) i_found = m_listDispInfo.emplace(i_found, i_record, i_asker);
  m_objIcons.Request(*i_found, i_record, i_asker);
  return DropIfGone(i_found, m_objIcons.Close(*i_found));
}

EOutcome CDisplayList::Show(const T_DispRecord& i_record, const T_Asker& i_asker) {
  auto item = std::find_if(m_listDispInfo.begin(), m_listDispInfo.end(), [&](const T_Item& i_item) {
    return i_item.Record().m_u16Seq == i_record.m_u16Seq;
  });
  if (i_record.IsIcon()) {
    LogShown(i_record, m_pPainter->HasBackground());
    return ShowIcon(item, i_record, i_asker);
  }
  const Bool bNew = item == m_listDispInfo.end();
  item = Merge(item, i_record, false, i_asker);
  LogShown(item->Record(), m_pPainter->HasBackground());
  return DrawText(item, bNew);
}

T_ItemList::iterator CDisplayList::FindById(const T_DispRecord& i_record) {
  return std::find_if(m_listDispInfo.begin(), m_listDispInfo.end(), [&](const T_Item& i_item) {
    return i_item.Record().m_u32Source == i_record.m_u32Source &&
           i_item.Record().m_u32Id == i_record.m_u32Id;
  });
}

EOutcome CDisplayList::ShowById(T_DispRecord& io_record, const T_Asker& i_asker) {
  LOG_INFO("osd disp src<%d>,id<%d>,pos<%d>,rect<%d,%d,%d,%d>,line<%d>", io_record.m_u32Source,
           io_record.m_u32Id, io_record.m_u32Position, io_record.m_u32X, io_record.m_u32Y,
           io_record.m_u32W, io_record.m_u32H, io_record.m_u16Line);
  ClampLines(io_record);
  for (UInt32 line = 0; line < io_record.m_u16Line; ++line)
    LOG_INFO("osd disp info<%d:%s>", line, io_record.m_aText[line]);
  const auto found = FindById(io_record);
  if (io_record.IsIcon()) return ShowIcon(found, io_record, i_asker);
  const Bool bNew = found == m_listDispInfo.end();
  return DrawText(Merge(found, io_record, true, i_asker), bNew);
}

UInt32 CDisplayList::Cancel(UInt16 i_u16Output, UInt16 i_u16Seq) {
  LOG_INFO("osd cancel disp voseq<%#x> osdseq<%#x>", i_u16Output, i_u16Seq);
  const CSeqMatch match(i_u16Seq, kCancelClasses);
  UInt32 u32Hidden = 0;
  for (T_Item& item : m_listDispInfo) {
    if (item.Record().m_u16VoSeq != i_u16Output || !match.IsCandidate(item.Record())) continue;
    if (match.HasClass(item.Record())) u32Hidden += Hide(item);
    if (!match.EveryNumber()) break;
  }
  return u32Hidden;
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
  // Source and id decide; that the text is another one is only told. "calcel" is on purpose: field
  // reports are searched for it.
  for (UInt32 line = 0; line < u32Lines; ++line)
    if (std::strcmp(i_record.m_aText[line], found->Record().m_aText[line]) != 0)
      LOG_ERROR("calcel osd disp new<%s> != old<%s>, idx = %d", i_record.m_aText[line],
                found->Record().m_aText[line], line);
  Hide(*found);
}

UInt32 CDisplayList::HideIcons(UInt16 i_u16Output, UInt16 i_u16Seq) {
  const auto means = [=](const T_DispRecord& i_record) {
    return i_record.IsIcon() && (i_u16Seq == kEveryElement || i_record.m_u16Seq == i_u16Seq) &&
           (i_u16Output == kEveryOutput || i_record.m_u16VoSeq == i_u16Output);
  };
  UInt32 u32Hidden = 0;
  for (auto item = m_listDispInfo.begin(); item != m_listDispInfo.end();) {
    const auto current = item++;
    if (!means(current->Record())) continue;
    u32Hidden += Hide(*current);
    if (current->Record().Class() == kImageClass) m_listDispInfo.erase(current);
  }
  return u32Hidden;
}

// The pixels of an icon that waits will stay when they come; what it replaces is erased now.
void CDisplayList::HideAll() {
  for (T_Item& item : m_listDispInfo)
    if (!item.m_vecBefore.empty()) EraseShown(item);
  m_pPainter->Restore();
  for (T_Item& item : m_listDispInfo) {
    m_objIcons.Leave(item);
    item.m_stWanted.m_stRecord.m_u8Hide = 1;
  }
}

UInt32 CDisplayList::Delete(UInt16 i_u16Seq) {
  LOG_INFO("osd delete disp seq<%#x>", i_u16Seq);
  LOG_INFO("m_listDispInfo.size=%u", Size());
  const UInt32 u32Before = Size();
  const CSeqMatch match(i_u16Seq, kDeleteClasses);
  for (auto item = m_listDispInfo.begin(); item != m_listDispInfo.end();) {
    const auto current = item++;
    if (!match.IsCandidate(current->Record())) continue;
    if (match.HasClass(current->Record())) {
      Hide(*current);
      m_objIcons.Settle(*current);  // hidden by HideAll, it may still wait for its pictures
      m_listDispInfo.erase(current);
    }
    if (!match.EveryNumber()) break;
  }
  LOG_INFO("m_listDispInfo.size=%u", Size());
  return u32Before - Size();
}

// The time of a text runs on while it waits to be replaced by an icon.
void CDisplayList::HandleTimerMsg() {
  for (T_Item& item : m_listDispInfo) {
    T_DispRecord& record = item.Shown().m_stRecord;
    if (record.Class() == kImageClass || record.m_u16Time == 0 ||
        record.m_u16Time == T_DispRecord::kForever)
      continue;
    if (--record.m_u16Time != 0) continue;
    if (item.Record().IsIcon())
      m_pPainter->Move(item, {});
    else
      m_pPainter->ChangeText(item, EDrawMode::kErase);
    record.m_u8Hide = 1;
    LOG_INFO("HandleTimerMsg voseq<%#x> str<%s> time<%d> hide<%d>", record.m_u16VoSeq,
             record.m_aText[0], record.m_u16Time, record.m_u8Hide);
  }
}

void CDisplayList::DisplayDisInfoList(SInt32 i_s32Output) {
  LOG_INFO("DisplayDisInfoList: size<%u>", Size());
  for (T_Item& item : m_listDispInfo) {
    m_objIcons.LayerCame(item, i_s32Output);
    T_DispRecord& shown = item.Shown().m_stRecord;
    if (shown.IsIcon() || !shown.ComesBackOn(i_s32Output)) continue;
    if (!item.Record().IsIcon()) m_pPainter->ChangeText(item, EDrawMode::kDraw);
    if (shown.m_u16Time < T_DispRecord::kForever) shown.m_u16Time = T_DispRecord::kTimedSeconds;
  }
}

void CDisplayList::LayerGone(SInt32 i_s32Output) {
  for (T_Item& item : m_listDispInfo) m_objIcons.LayerGone(item, i_s32Output);
}

void CDisplayList::Take(const T_PictureResult& i_result) {
  const auto found = std::find_if(
      m_listDispInfo.begin(), m_listDispInfo.end(),
      [&](const T_Item& i_item) { return i_item.m_u64Ticket == i_result.m_u64Ticket; });
  if (found != m_listDispInfo.end()) DropIfGone(found, m_objIcons.Take(*found, i_result));
}

Bool CDisplayList::Lies(const T_Asker& i_asker) const {
  return std::ranges::any_of(m_listDispInfo, [&](const T_Item& i_item) {
    return i_item.m_stWanted.m_stAsker == i_asker && !i_item.m_vecDrawn.empty();
  });
}

std::vector<T_OsdState::T_Element> CDisplayList::State() const {
  std::vector<T_OsdState::T_Element> elements;
  for (const T_Item& item : m_listDispInfo) {
    const T_DispRecord& record = item.Record();
    T_OsdState::T_Element element{
        record.m_u16Seq,      record.m_u16VoSeq, record.IsIcon(),  {}, record.m_u16Time,
        record.m_u8Hide != 0, EPicture::kNone,   item.m_strFailed, {}, item.m_stWanted.m_stAsker};
    if (record.IsIcon()) {
      element.m_vecLines = {record.Path()};
      element.m_ePicture = item.m_stWanted.m_bCame ? EPicture::kShown : EPicture::kWaiting;
    } else {
      for (UInt32 line = 0; line < record.m_u16Line; ++line)
        element.m_vecLines.emplace_back(record.m_aText[line]);
    }
    for (const T_Drawn& drawn : item.m_vecDrawn)
      element.m_vecPlaces.push_back({drawn.m_s32Output, drawn.m_stRect});
    elements.push_back(std::move(element));
  }
  return elements;
}

T_ItemList::iterator CDisplayList::FindOldestOpen() {
  auto oldest = m_listDispInfo.end();
  if (!m_bIcons) return oldest;
  m_bIcons = false;
  for (auto item = m_listDispInfo.begin(); item != m_listDispInfo.end(); ++item) {
    m_bIcons = m_bIcons || item->Record().IsIcon();
    if (m_objIcons.IsOpen(*item) && (oldest == m_listDispInfo.end() ||
                                     item->m_stWanted.m_u64Number < oldest->m_stWanted.m_u64Number))
      oldest = item;
  }
  return oldest;
}

void CDisplayList::AskForMissing() {
  for (auto open = FindOldestOpen(); open != m_listDispInfo.end() && m_pDesk->HasRoom();
       open = FindOldestOpen())
    DropIfGone(open, m_objIcons.Close(*open));
}
