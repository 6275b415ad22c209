#include "common/osd/display_list.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "framework/log.h"

namespace {

// Tested with "above": the list holds one item more than this.
constexpr UInt32 kCapacity = 64;
constexpr UInt32 kImageClass = 2;
constexpr UInt32 kEvery = 255;
constexpr UInt16 kEverySeq = 0xFFFF;
// The guide screen is a picture, and none is built in.
constexpr UInt32 kGuideShown = 0;

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

size_t TextLength(const T_DispRecord& i_item) { return std::strlen(i_item.m_aText[0]); }

// A text of the same length covers its predecessor; otherwise that must be erased first. A request
// without text counts as one of length 0, although the stored text stays.
Bool HasLengthOf(const T_DispRecord& i_item, const T_DispRecord& i_new) {
  return TextLength(i_item) == (i_new.m_u32Mask & kMaskText ? TextLength(i_new) : 0);
}

Bool HasShapeOf(const T_DispRecord& i_item, const T_DispRecord& i_new) {
  if (!(i_new.m_u32Mask & kMaskText)) return HasLengthOf(i_item, i_new);
  if (i_item.m_u16Line != i_new.m_u16Line) return false;
  for (UInt32 line = 0; line < i_item.m_u16Line; ++line)
    if (std::strlen(i_item.m_aText[line]) != std::strlen(i_new.m_aText[line])) return false;
  return true;
}

// Source, kind and mask stay those of the first request.
void Merge(const T_DispRecord& i_new, T_DispRecord& io_item) {
  const UInt32 u32Mask = i_new.m_u32Mask;
  if (u32Mask & kMaskPosition) {
    io_item.m_u32Position = i_new.m_u32Position;
    io_item.m_u32X = i_new.m_u32X;
    io_item.m_u32Y = i_new.m_u32Y;
  }
  if (u32Mask & kMaskFontSize) io_item.m_u16FontSize = i_new.m_u16FontSize;
  if (u32Mask & kMaskTextColour) io_item.m_u32TextColour = i_new.m_u32TextColour;
  if (u32Mask & kMaskBackground) io_item.m_u32Background = i_new.m_u32Background;
  io_item.m_u16Time = u32Mask & kMaskForever ? T_DispRecord::kForever : T_DispRecord::kTimedSeconds;
  io_item.m_u8Hide = 0;
  io_item.m_u16VoSeq = i_new.m_u16VoSeq;
}

void MergeFirstLine(const T_DispRecord& i_new, T_DispRecord& io_item) {
  if (!(i_new.m_u32Mask & kMaskText)) return;
  std::memcpy(io_item.m_aText[0], i_new.m_aText[0], T_DispRecord::kLineChars);
  io_item.m_aText[0][T_DispRecord::kLineChars] = '\0';
  io_item.m_u16Line = 1;
}

void MergeAllLines(const T_DispRecord& i_new, T_DispRecord& io_item) {
  if (!(i_new.m_u32Mask & kMaskText)) return;
  std::memcpy(io_item.m_aText, i_new.m_aText, sizeof(io_item.m_aText));
  io_item.m_u16Line = i_new.m_u16Line;
}

void ClampLines(T_DispRecord& io_item) {
  if (io_item.m_u16Line <= T_DispRecord::kMaxLines) return;
  LOG_ERROR("disp line num<%d> error", io_item.m_u16Line);
  io_item.m_u16Line = T_DispRecord::kMaxLines;
}

}  // namespace

Bool CDisplayList::HasRoom() const {
  if (Size() <= kCapacity) return true;
  LOG_ERROR("too many osd info to disp, current size<%d>", Size());
  return false;
}

Bool CDisplayList::Draw(const T_DispRecord& i_item, EDrawMode i_eMode) {
  if (i_item.m_u32Kind != T_DispRecord::kKindIcon) return m_pDrawer->DrawOsdInfo(i_item, i_eMode);
  LOG_WARN("pictures are not built in: <%s> is not drawn", i_item.m_aText[0]);
  return true;
}

void CDisplayList::EraseIfShown(const T_DispRecord& i_item) {
  if (i_item.m_u8Hide == 0) Draw(i_item, kModeErase);
}

Bool CDisplayList::DrawAndKeep(T_DispRecord& io_item, Bool i_bNew) {
  ClampLines(io_item);
  if (!Draw(io_item, kModeDraw)) return false;
  if (i_bNew) m_listDispInfo.push_back(io_item);
  return true;
}

Bool CDisplayList::Show(const T_DispRecord& i_record) {
  const auto found = std::find_if(
      m_listDispInfo.begin(), m_listDispInfo.end(),
      [&](const T_DispRecord& i_item) { return i_item.m_u16Seq == i_record.m_u16Seq; });
  const Bool bNew = found == m_listDispInfo.end();
  T_DispRecord record = i_record;
  T_DispRecord& item = bNew ? record : *found;
  if (!bNew) {
    if (!HasLengthOf(item, i_record)) EraseIfShown(item);
    Merge(i_record, item);
    MergeFirstLine(i_record, item);
  }
  LOG_INFO("osd disp: bGS<%u>,seq<%#x>,rect<%d,%d>,line<%d>,time<%u>,str<%s>,hide<%u>,voseq<%#x>",
           kGuideShown, item.m_u16Seq, item.m_u32X, item.m_u32Y, item.m_u16Line, item.m_u16Time,
           item.m_aText[0], item.m_u8Hide, item.m_u16VoSeq);
  return DrawAndKeep(item, bNew);
}

CDisplayList::T_List::iterator CDisplayList::FindById(const T_DispRecord& i_record) {
  return std::find_if(
      m_listDispInfo.begin(), m_listDispInfo.end(), [&](const T_DispRecord& i_item) {
        return i_item.m_u32Source == i_record.m_u32Source && i_item.m_u32Id == i_record.m_u32Id;
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
  if (found == m_listDispInfo.end()) return DrawAndKeep(record, true);
  if (!HasShapeOf(*found, record)) EraseIfShown(*found);
  Merge(record, *found);
  MergeAllLines(record, *found);
  return DrawAndKeep(*found, false);
}

void CDisplayList::Cancel(UInt16 i_u16VoSeq, UInt16 i_u16Seq) {
  LOG_INFO("osd cancel disp voseq<%#x> osdseq<%#x>", i_u16VoSeq, i_u16Seq);
  const CSeqMatch match(i_u16Seq, kCancelClasses);
  for (T_DispRecord& item : m_listDispInfo) {
    if (item.m_u16VoSeq != i_u16VoSeq || !match.IsCandidate(item)) continue;
    if (match.HasClass(item)) {
      EraseIfShown(item);
      item.m_u8Hide = 1;
    }
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
    if (std::strcmp(i_record.m_aText[line], found->m_aText[line]) != 0)
      LOG_ERROR("calcel osd disp new<%s> != old<%s>, idx = %d", i_record.m_aText[line],
                found->m_aText[line], line);
  EraseIfShown(*found);
  found->m_u8Hide = 1;
}

void CDisplayList::HideIcons(UInt16 i_u16VoSeq, UInt16 i_u16Seq) {
  for (T_DispRecord& item : m_listDispInfo)
    if (item.m_u32Kind == T_DispRecord::kKindIcon && item.m_u16VoSeq == i_u16VoSeq &&
        (i_u16Seq == kEverySeq || item.m_u16Seq == i_u16Seq))
      item.m_u8Hide = 1;
}

void CDisplayList::HideAll() {
  for (T_DispRecord& item : m_listDispInfo) item.m_u8Hide = 1;
}

void CDisplayList::Delete(UInt16 i_u16Seq) {
  LOG_INFO("osd delete disp seq<%#x>", i_u16Seq);
  LOG_INFO("m_listDispInfo.size=%u", Size());
  const CSeqMatch match(i_u16Seq, kDeleteClasses);
  for (auto item = m_listDispInfo.begin(); item != m_listDispInfo.end();) {
    const auto current = item++;
    if (!match.IsCandidate(*current)) continue;
    if (match.HasClass(*current)) {
      EraseIfShown(*current);
      m_listDispInfo.erase(current);
    }
    if (!match.EveryNumber()) break;
  }
  LOG_INFO("m_listDispInfo.size=%u", Size());
}

void CDisplayList::HandleTimerMsg() {
  for (T_DispRecord& item : m_listDispInfo) {
    if (item.Class() == kImageClass || item.m_u16Time == 0 ||
        item.m_u16Time == T_DispRecord::kForever)
      continue;
    if (--item.m_u16Time != 0) continue;
    Draw(item, kModeErase);
    item.m_u8Hide = 1;
    LOG_INFO("HandleTimerMsg voseq<%#x> str<%s> time<%d> hide<%d>", item.m_u16VoSeq,
             item.m_aText[0], item.m_u16Time, item.m_u8Hide);
  }
}

void CDisplayList::DisplayDisInfoList(SInt32 i_s32VoDev) {
  LOG_INFO("DisplayDisInfoList: size<%u>", Size());
  for (T_DispRecord& item : m_listDispInfo) {
    if (item.m_u16VoSeq != i_s32VoDev || item.m_u8Hide != 0 || item.Class() == kImageClass)
      continue;
    Draw(item, kModeDraw);
    if (item.m_u32Kind != T_DispRecord::kKindIcon && item.m_u16Time < T_DispRecord::kForever)
      item.m_u16Time = T_DispRecord::kTimedSeconds;
  }
}
