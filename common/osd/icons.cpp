#include "common/osd/icons.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "daemon/common/counters.h"
#include "framework/log.h"

namespace {

// px; far beyond any canvas.
constexpr SInt64 kMaxScaledSide = 1 << 20;

// A side that was asked for has 1 px at least; 0 stays 0, which means that it was not asked for.
UInt32 ScaledSide(UInt32 i_u32Asked, SInt64 i_s64Px) {
  return i_u32Asked == 0 ? 0 : static_cast<UInt32>(std::clamp<SInt64>(i_s64Px, 1, kMaxScaledSide));
}

// The px from the icon's left or top edge to the canvas's right or bottom edge.
UInt32 RoomBehind(SInt64 i_s64Edge, UInt32 i_u32Canvas) {
  return static_cast<UInt32>(std::max<SInt64>(i_u32Canvas - i_s64Edge, 0));
}

T_WantedSize WantedSize(const T_DispRecord& i_record, const T_Canvas& i_canvas) {
  return {{ScaledSide(i_record.m_u32W, AcrossGrid(i_record.m_u32W, i_canvas)),
           ScaledSide(i_record.m_u32H, DownGrid(i_record.m_u32H, i_canvas))},
          {RoomBehind(AcrossGrid(i_record.m_u32X, i_canvas), i_canvas.m_u32W),
           RoomBehind(DownGrid(i_record.m_u32Y, i_canvas), i_canvas.m_u32H)}};
}

// Where the icon is seen: cut at the canvas's edges, and empty when it lies outside.
T_Rect IconRect(const T_DispRecord& i_record, const T_Canvas& i_canvas, const CPicture& i_picture) {
  const T_Extent room = WantedSize(i_record, i_canvas).m_stRoom;
  return {i_canvas.m_u32W - room.m_u32W, i_canvas.m_u32H - room.m_u32H,
          std::min(room.m_u32W, i_picture.Extent().m_u32W),
          std::min(room.m_u32H, i_picture.Extent().m_u32H)};
}

constexpr const char* kReplaced = "a later request came before its picture had been read";

// They will never be returned to.
void DropBefore(T_Item& io_item) {
  for (const T_Request& request : io_item.m_vecBefore)
    g_objLedger.Close(request.m_stAsker, ERequest::kRefused, kReplaced);
  io_item.m_vecBefore.clear();
}

// So many earlier requests of an item are kept at most.
constexpr size_t kMaxBefore = 4;

Bool IsSamePicture(const T_DispRecord& i_a, const T_DispRecord& i_b) {
  return i_a.m_u16VoSeq == i_b.m_u16VoSeq && i_a.m_u32W == i_b.m_u32W && i_a.m_u32H == i_b.m_u32H &&
         std::strcmp(i_a.Path(), i_b.Path()) == 0;
}

// Keeps the present request for the case that the pictures of the next one cannot be read. Of too
// many the oldest is dropped, but not the one that is shown.
void KeepBefore(T_Item& io_item) {
  T_Request& wanted = io_item.m_stWanted;
  if (!wanted.m_stRecord.IsIcon())
    for (const T_Drawn& drawn : io_item.m_vecDrawn)
      wanted.m_vecOutputs.push_back(drawn.m_s32Output);
  auto& before = io_item.m_vecBefore;
  before.push_back(wanted);
  if (before.size() <= kMaxBefore) return;
  const auto dropped = before.begin() + (before[0].m_bCame ? 1 : 0);
  g_objLedger.Close(dropped->m_stAsker, ERequest::kRefused, kReplaced);
  before.erase(dropped);
}

}  // namespace

void CIcons::Withdraw(T_Item& io_item) { m_pDesk->Withdraw(std::exchange(io_item.m_u64Ticket, 0)); }

// A peer may ask for the same picture again and again, faster than it can be read. So a picture
// that is being read is not given up for the same one; it is shown, and then read once more.
void CIcons::Request(T_Item& io_item, const T_DispRecord& i_record, const T_Asker& i_asker) {
  io_item.m_strFailed.clear();
  T_Request request(i_record, i_asker);
  request.m_stRecord.m_u8Hide = 0;
  request.m_u64Number = ++m_u64LastNumber;
  for (const auto& [s32Output, layer] : m_pPainter->Layers())
    if (i_record.IsOn(s32Output)) request.m_vecOutputs.push_back(s32Output);
  const Bool bSame = IsSamePicture(io_item.Record(), i_record);
  if (bSame && !io_item.m_stWanted.m_bCame &&
      io_item.m_stWanted.m_stAsker.m_u32Entry != i_asker.m_u32Entry)
    g_objLedger.Close(io_item.m_stWanted.m_stAsker, ERequest::kRefused, kReplaced);
  if (!bSame) Withdraw(io_item);
  if (!bSame || io_item.m_stWanted.m_bCame) KeepBefore(io_item);
  io_item.m_stWanted = std::move(request);
}

// Whether the wanted picture still has to be drawn on that layer; not when it lies outside.
Bool CIcons::IsMissingOn(const T_Item& i_item, SInt32 i_s32Output) const {
  const T_Drawn* const pDrawn = i_item.On(i_s32Output);
  if (pDrawn != nullptr && pDrawn->m_u64Number == i_item.m_stWanted.m_u64Number) return false;
  const T_Canvas canvas = m_pPainter->Layers().at(i_s32Output).Canvas();
  return WantedSize(i_item.Record(), canvas).m_stRoom.Pixels() != 0;
}

std::vector<T_PictureJob::T_Target> CIcons::Missing(const T_Item& i_item) const {
  std::vector<T_PictureJob::T_Target> missing;
  for (const SInt32 s32Output : i_item.m_stWanted.m_vecOutputs) {
    if (!IsMissingOn(i_item, s32Output)) continue;
    const T_Canvas canvas = m_pPainter->Layers().at(s32Output).Canvas();
    missing.push_back({s32Output, canvas.Extent(), WantedSize(i_item.Record(), canvas)});
  }
  return missing;
}

Bool CIcons::IsOpen(const T_Item& i_item) const {
  if (!i_item.Record().IsIcon() || i_item.m_u64Ticket != 0) return false;
  const auto& outputs = i_item.m_stWanted.m_vecOutputs;
  return !i_item.m_stWanted.m_bCame ||
         std::any_of(outputs.begin(), outputs.end(),
                     [&](SInt32 i_s32Output) { return IsMissingOn(i_item, i_s32Output); });
}

EOutcome CIcons::Close(T_Item& io_item) {
  if (io_item.m_u64Ticket != 0) return EOutcome::kWaiting;
  T_PictureJob job;
  job.m_strPath = io_item.Record().Path();
  job.m_vecTargets = Missing(io_item);
  io_item.m_u64Asked = io_item.m_stWanted.m_u64Number;
  if (job.m_vecTargets.empty()) return Place(io_item, {});
  if (const auto kept = m_pDesk->Find(job)) {
    Count(g_stCounters.m_picturesCached);
    return Place(io_item, *kept);
  }
  io_item.m_u64Ticket = m_pDesk->Ask(std::move(job));
  return EOutcome::kWaiting;
}

EOutcome CIcons::Take(T_Item& io_item, const T_PictureResult& i_result) {
  io_item.m_u64Ticket = 0;
  if (i_result.m_loaded) return Place(io_item, i_result);
  // Requested again since it was asked for: it is read once more.
  const Bool bAgain = io_item.m_u64Asked != io_item.m_stWanted.m_u64Number;
  return bAgain ? EOutcome::kWaiting : Fail(io_item, i_result.m_loaded.Why());
}

// The wanted request is answered: where it is seen, or why it is not.
void CIcons::CloseEntry(T_Item& io_item) {
  DropBefore(io_item);
  const T_Asker& asker = io_item.m_stWanted.m_stAsker;
  const auto isSeen = [](const T_Drawn& i_drawn) { return !i_drawn.m_stRect.IsEmpty(); };
  if (std::ranges::any_of(io_item.m_vecDrawn, isSeen))
    g_objLedger.Close(asker, ERequest::kDone);
  else if (io_item.m_stWanted.m_vecOutputs.empty())
    g_objLedger.Close(asker, ERequest::kRefused,
                      CPainter::NoLayer(io_item.Record().m_u16VoSeq).c_str());
  else
    g_objLedger.Close(asker, ERequest::kRefused, "it lies outside the screen");
}

EOutcome CIcons::Place(T_Item& io_item, const T_PictureResult& i_result) {
  const T_DispRecord& record = io_item.Record();
  std::vector<T_Drawn> drawn;
  for (const SInt32 s32Output : io_item.m_stWanted.m_vecOutputs) {
    const T_Canvas canvas = m_pPainter->Layers().at(s32Output).Canvas();
    const auto pPicture = i_result.For(s32Output, canvas.Extent());
    const T_Drawn* const pDrawn = io_item.On(s32Output);
    if (pPicture != nullptr)
      drawn.push_back(
          {s32Output, IconRect(record, canvas, *pPicture), pPicture, io_item.m_u64Asked});
    else if (pDrawn != nullptr && pDrawn->m_u64Number == io_item.m_stWanted.m_u64Number)
      drawn.push_back(*pDrawn);
  }
  const size_t bytes = m_pPainter->PictureBytes(io_item, drawn);
  if (bytes > kMaxBytesShown) {
    LOG_ERROR(
        "picture <%.4000s> is not shown: all that are shown would take %zu bytes, at most "
        "%zu; hide some, or show them smaller",
        record.Path(), bytes, kMaxBytesShown);
    return Fail(io_item, "the pictures that are shown would take more than " +
                             std::to_string(kMaxBytesShown >> 20) + " MiB together");
  }
  if (record.m_u8Hide == 0) {
    m_pPainter->Move(io_item, std::move(drawn));
  } else {
    m_pPainter->LayOnce(drawn, record.m_u16Opacity);
    if (io_item.m_u64Asked == io_item.m_stWanted.m_u64Number)
      io_item.m_stWanted.m_vecOutputs.clear();
  }
  io_item.m_stWanted.m_bCame = true;
  CloseEntry(io_item);
  return EOutcome::kShown;
}

// An icon that was shown once stays where it is drawn; it is not asked for again for the other
// layers until the next request or new layer.
EOutcome CIcons::Fail(T_Item& io_item, const std::string& i_strWhy) {
  T_Request& wanted = io_item.m_stWanted;
  io_item.m_strFailed = i_strWhy;
  g_objLedger.Close(wanted.m_stAsker, ERequest::kRefused, i_strWhy.c_str());
  if (wanted.m_bCame) {
    std::erase_if(wanted.m_vecOutputs,
                  [&](SInt32 i_s32Output) { return io_item.On(i_s32Output) == nullptr; });
    for (T_Drawn& drawn : io_item.m_vecDrawn) drawn.m_u64Number = wanted.m_u64Number;
    return EOutcome::kFailed;
  }
  if (io_item.m_vecBefore.empty()) return EOutcome::kGone;
  GoBack(io_item);
  return EOutcome::kFailed;
}

// A text was not drawn on layers that came while the icon was to replace it: it is drawn now,
// unless its time is up.
void CIcons::GoBack(T_Item& io_item) {
  T_Request& wanted = io_item.m_stWanted;
  wanted = std::move(io_item.m_vecBefore.back());
  io_item.m_vecBefore.pop_back();
  if (wanted.m_stRecord.IsIcon()) return;
  const auto outputs = std::exchange(wanted.m_vecOutputs, {});
  if (wanted.m_stRecord.m_u8Hide != 0) return;
  if (std::any_of(outputs.begin(), outputs.end(),
                  [&](SInt32 i_s32Output) { return io_item.On(i_s32Output) == nullptr; }))
    m_pPainter->ChangeText(io_item, EDrawMode::kDraw);
}

void CIcons::Settle(T_Item& io_item) {
  Withdraw(io_item);
  DropBefore(io_item);
  g_objLedger.Close(io_item.m_stWanted.m_stAsker, ERequest::kRefused, kReplaced);
  io_item.m_stWanted.m_vecOutputs.clear();
  io_item.m_stWanted.m_bCame = true;
}

void CIcons::Leave(T_Item& io_item) {
  std::vector<SInt32> outputs;
  if (io_item.Record().IsIcon())
    for (const auto& target : Missing(io_item)) outputs.push_back(target.m_s32Output);
  if (outputs.empty()) Settle(io_item);
  io_item.m_stWanted.m_vecOutputs = std::move(outputs);
  io_item.m_stWanted.m_bCame = true;
  DropBefore(io_item);
  CPainter::Forget(io_item);
}

// Pictures that are being read are withdrawn, and asked for again for the layers that are left.
void CIcons::LayerGone(T_Item& io_item, SInt32 i_s32Output) {
  const auto leave = [=](T_Request& io_request) {
    std::erase(io_request.m_vecOutputs, i_s32Output);
  };
  std::for_each(io_item.m_vecBefore.begin(), io_item.m_vecBefore.end(), leave);
  leave(io_item.m_stWanted);
  if (io_item.m_u64Ticket != 0 && io_item.Record().IsOn(i_s32Output)) Withdraw(io_item);
}

void CIcons::LayerCame(T_Item& io_item, SInt32 i_s32Output) {
  const auto come = [=](T_Request& io_request) {
    if (io_request.m_stRecord.ComesBackOn(i_s32Output))
      io_request.m_vecOutputs.push_back(i_s32Output);
  };
  std::for_each(io_item.m_vecBefore.begin(), io_item.m_vecBefore.end(), come);
  if (io_item.Record().IsIcon()) come(io_item.m_stWanted);
}
