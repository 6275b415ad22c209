#include "common/osd/osd_hifb.h"

#include <algorithm>
#include <iterator>

#include "common/osd/commands.h"
#include "daemon/common/bus.h"
#include "framework/log.h"

namespace {

constexpr SInt32 kQueueWaitMs = 10000;
constexpr SInt32 kDrainWaitMs = 1;
// Numbers up to this one, and the tick, are not commands.
constexpr UInt32 kLastNoOp = 2;
// Periodic, identity 0, every second; the last word is not used.
constexpr UInt32 kTickTimer[] = {1, 0, 1000, 0};
constexpr UInt16 kFullOpacity = 255;
// Outputs are numbered in 8 bits, though hides of pictures carry 16.
constexpr UInt16 kOutputMask = 0xFF;

T_LayerRequest ReadLayerRequest(const T_ModuleMsg& i_msg) {
  return {i_msg.Get<SInt32>(0),  i_msg.Get<SInt32>(4), i_msg.Get<SInt32>(8),
          i_msg.Get<SInt32>(12), i_msg.Word(4),        i_msg.Word(5)};
}

// The sender's texts need not be terminated. An icon's path may run on over all lines.
Bool CopyRecord(const T_ModuleMsg& i_msg, T_DispRecord* o_pRecord) {
  const T_DispRecord* const pBlock = i_msg.Block<T_DispRecord>();
  if (pBlock == nullptr) {
    LOG_ERROR("osd message <%#x> without a display record", i_msg.m_u32MsgNo);
    return false;
  }
  *o_pRecord = *pBlock;
  if (i_msg.m_u32MsgNo == kOsdIconShow) o_pRecord->m_u32Kind = T_DispRecord::kKindIcon;
  if (o_pRecord->IsIcon()) o_pRecord->m_u16Time = T_DispRecord::kForever;
  o_pRecord->m_u16Opacity = std::min(o_pRecord->m_u16Opacity, kFullOpacity);
  for (UInt32 line = 0; line < T_DispRecord::kMaxLines; ++line)
    if (o_pRecord->m_u32Kind != T_DispRecord::kKindIcon || line + 1 == T_DispRecord::kMaxLines)
      o_pRecord->m_aText[line][T_DispRecord::kLineChars] = '\0';
  return true;
}

// A synchronous sender keeps its record.
void FreeRecord(T_ModuleMsg* io_pMsg) {
  if (io_pMsg->m_u32MsgType != kAsyncMsg) return;
  delete io_pMsg->Block<T_DispRecord>();
  io_pMsg->PutBlock<T_DispRecord>(nullptr);
}

// What waits for its pictures counts as shown.
UInt32 Accepted(EOutcome i_eOutcome) {
  return i_eOutcome == EOutcome::kShown || i_eOutcome == EOutcome::kWaiting ? 1 : 0;
}

Bool IsResult(const T_ModuleMsg& i_msg) { return i_msg.m_u32Src == kModuleOsd; }

// What comes with it belongs to the renderer in either case.
void FreePicture(T_ModuleMsg* io_pMsg) {
  if (IsResult(*io_pMsg)) {
    delete io_pMsg->Block<T_PictureResult>();
    io_pMsg->PutBlock<T_PictureResult>(nullptr);
    return;
  }
  delete[] io_pMsg->Get<char*>(kPicturePathOffset);
  io_pMsg->Put<char*>(kPicturePathOffset, nullptr);
}

Bool SendToTimer(UInt32 i_u32MsgNo) {
  T_ModuleMsg msg{};
  msg.m_u32MsgType = kSyncMsg;
  msg.m_u32Src = kModuleOsd;
  msg.m_u32Dst = kModuleTimer;
  msg.m_u32MsgNo = i_u32MsgNo;
  for (UInt32 word = 0; word < std::size(kTickTimer); ++word) msg.PutWord(word, kTickTimer[word]);
  return SendSyncAndAsyncMsg(&msg, 0) != 0;
}

}  // namespace

const COsdHifb::T_Command COsdHifb::s_aCommands[] = {
    {kOsdInit, &COsdHifb::HandleOsdInitMsg, nullptr},
    {kOsdDeInit, &COsdHifb::HandleDeInit, nullptr},
    {kOsdReInit, &COsdHifb::HandleReInit, nullptr},
    {kOsdTextShow, &COsdHifb::HandleShow, FreeRecord},
    {kOsdTextCancel, &COsdHifb::HandleCancel, nullptr},
    {kOsdIconShow, &COsdHifb::HandleShow, FreeRecord},
    {kOsdIconHide, &COsdHifb::HandleIconHide, nullptr},
    {kOsdGuide, &COsdHifb::HandleGuide, nullptr},
    {kOsdShowById, &COsdHifb::HandleShowById, FreeRecord},
    {kOsdCancelById, &COsdHifb::HandleCancelById, FreeRecord},
    {kOsdDelete, &COsdHifb::HandleDelete, nullptr},
    {kOsdPicture, &COsdHifb::HandlePicture, FreePicture},
    {kOsdCancelAll, &COsdHifb::HandleCancelAll, nullptr},
};

COsdHifb::COsdHifb() = default;

COsdHifb::~COsdHifb() {
  Stop();
  T_ModuleMsg msg;
  while (m_objQueue.Pop(kDrainWaitMs, &msg) != 0) FreeWhatIsLeft(&msg);
}

void COsdHifb::Stop() {
  m_objQueue.Close();
  RequestStop();
  T_ModuleMsg wake{};
  wake.m_u32MsgType = kAsyncMsg;
  wake.m_u32Src = kModuleOsd;
  wake.m_u32Dst = kModuleOsd;
  wake.m_u32MsgNo = kMsgNone;
  m_objQueue.Push(&wake);
  StopAndWaitForThread();
  m_objDesk.Stop();
  // Here and not in the destructor: after main the media SDK may be gone already.
  CMutexLocker locker(&m_objMutex);
  CMutexLocker listLocker(&m_objListMutex);
  while (!m_mapLayers.empty()) LoseLayer(m_mapLayers.begin());
}

UInt32 COsdHifb::PushMsg(const T_ModuleMsg* i_pMsg) {
  const UInt32 u32Queued = m_objQueue.Push(i_pMsg);
  if (u32Queued == 0) LOG_ERROR("COsdHifb pushmsg fail");
  return u32Queued;
}

UInt32 COsdHifb::HandleSyncMsg(const T_ModuleMsg* i_pMsg, UInt32) {
  if (i_pMsg == nullptr) return 0;
  T_ModuleMsg msg = *i_pMsg;
  return Handle(&msg);
}

void COsdHifb::Entry() {
  SetThreadName("osdhifb");
  {
    CMutexLocker locker(&m_objMutex);
    m_objDesk.Start();
  }
  T_ModuleMsg msg;
  while (!IsStopRequested()) {
    msg = {};
    if (m_objQueue.Pop(kQueueWaitMs, &msg) == 0) continue;
    Handle(&msg);
    FreeWhatIsLeft(&msg);
  }
  CMutexLocker locker(&m_objListMutex);
  m_objList.Clear();
}

const COsdHifb::T_Command* COsdHifb::FindCommand(UInt32 i_u32MsgNo) {
  const auto found =
      std::find_if(std::begin(s_aCommands), std::end(s_aCommands),
                   [&](const T_Command& i_command) { return i_command.m_u32MsgNo == i_u32MsgNo; });
  return found != std::end(s_aCommands) ? found : nullptr;
}

// A handler frees the record that it has copied; one that refuses leaves it.
void COsdHifb::FreeWhatIsLeft(T_ModuleMsg* io_pMsg) {
  const T_Command* const pCommand = FindCommand(io_pMsg->m_u32MsgNo);
  if (pCommand != nullptr && pCommand->m_pFree != nullptr) pCommand->m_pFree(io_pMsg);
}

UInt32 COsdHifb::Handle(T_ModuleMsg* io_pMsg) {
  const UInt32 u32Result = HandleAlone(io_pMsg);
  SettleTick();
  return u32Result;
}

UInt32 COsdHifb::HandleAlone(T_ModuleMsg* io_pMsg) {
  CMutexLocker locker(&m_objMutex);
  CMutexLocker listLocker(&m_objListMutex);
  const UInt32 u32Result = Dispatch(io_pMsg);
  m_objGuide.CloseDifference();
  m_objList.AskForMissing();
  m_objPainter.Restore();
  return u32Result;
}

UInt32 COsdHifb::Dispatch(T_ModuleMsg* io_pMsg) {
  if (io_pMsg->m_u32MsgNo == kMsgTimer) {
    m_objList.HandleTimerMsg();
    return 1;
  }
  LOG_INFO("-Osd_hifb_msg<%#x>", io_pMsg->m_u32MsgNo);
  if (io_pMsg->m_u32MsgNo <= kLastNoOp) return 1;
  const T_Command* const pCommand = FindCommand(io_pMsg->m_u32MsgNo);
  if (pCommand != nullptr) return (this->*pCommand->m_pHandler)(io_pMsg);
  LOG_ERROR("unkown handle message <0x%x>", io_pMsg->m_u32MsgNo);
  return 1;
}

UInt32 COsdHifb::HandleOsdInitMsg(T_ModuleMsg* i_pMsg) {
  const T_LayerRequest request = ReadLayerRequest(*i_pMsg);
  LOG_INFO("osd init vodev<%d>,layer<%d>,rect<%d,%d,%d,%d>", request.m_s32VoDev, request.m_s32Layer,
           request.m_s32X, request.m_s32Y, request.m_u32W, request.m_u32H);
  if (m_mapLayers.contains(request.m_s32VoDev)) DeInit(request.m_s32VoDev);
  if (!SetUpLayer(request, m_mapLayers)) return 0;
  m_objList.DisplayDisInfoList(request.m_s32VoDev);
  WantTick(true);
  LOG_INFO("osd init for [%d] ok size[%d]", request.m_s32Layer,
           static_cast<SInt32>(m_mapLayers.size()));
  return 1;
}

UInt32 COsdHifb::HandleDeInit(T_ModuleMsg* i_pMsg) {
  DeInit(ReadLayerRequest(*i_pMsg).m_s32VoDev);
  return 1;
}

UInt32 COsdHifb::HandleReInit(T_ModuleMsg* i_pMsg) {
  HandleDeInit(i_pMsg);
  HandleOsdInitMsg(i_pMsg);
  return 1;
}

void COsdHifb::DeInit(SInt32 i_s32VoDev) {
  const auto layer = m_mapLayers.find(i_s32VoDev);
  if (layer == m_mapLayers.end()) {
    LOG_INFO("no need osd deinit for [%d]", i_s32VoDev);
    return;
  }
  LOG_INFO("osd deinit for [%d]", i_s32VoDev);
  LoseLayer(layer);
  if (m_mapLayers.empty()) WantTick(false);
}

void COsdHifb::LoseLayer(T_LayerMap::iterator i_layer) {
  const SInt32 s32VoDev = i_layer->first;
  m_mapLayers.erase(i_layer);
  m_objPainter.ForgetLayer(s32VoDev);
  m_objList.LayerGone(s32VoDev);
  m_objGuide.LayerGone(s32VoDev);
}

// Noted here and asked for when the mutexes are free. A re-init stops the tick and starts it again.
// What the timer service refused is asked for again by the next init, or deinit.
void COsdHifb::WantTick(Bool i_bWanted) {
  const Bool bComing = m_dequeTick.empty() ? m_bTickRunning : m_dequeTick.back();
  if (bComing != i_bWanted) m_dequeTick.push_back(i_bWanted);
}

// The next step that has an effect, if there is one; its sender is the only one until it is done.
std::optional<Bool> COsdHifb::TickToSettle() {
  CMutexLocker locker(&m_objMutex);
  if (m_bTickSettling) return std::nullopt;
  while (!m_dequeTick.empty() && m_dequeTick.front() == m_bTickRunning) m_dequeTick.pop_front();
  if (m_dequeTick.empty()) return std::nullopt;
  m_bTickSettling = true;
  return m_dequeTick.front();
}

void COsdHifb::SettleTick() {
  while (const std::optional<Bool> bStart = TickToSettle()) {
    const Bool bAccepted = SendToTimer(*bStart ? kMsgTimerAdd : kMsgTimerCancel);
    CMutexLocker locker(&m_objMutex);
    m_dequeTick.pop_front();
    if (bAccepted) m_bTickRunning = *bStart;
    m_bTickSettling = false;
  }
}

UInt32 COsdHifb::HandleShow(T_ModuleMsg* io_pMsg) {
  T_DispRecord record;
  if (!CopyRecord(*io_pMsg, &record) || !m_objList.HasRoom()) return 0;
  FreeRecord(io_pMsg);
  return Accepted(m_objList.Show(record));
}

UInt32 COsdHifb::HandleCancel(T_ModuleMsg* i_pMsg) {
  m_objList.Cancel(i_pMsg->Get<UInt16>(0), i_pMsg->Get<UInt16>(2));
  return 1;
}

UInt32 COsdHifb::HandleIconHide(T_ModuleMsg* i_pMsg) {
  const UInt16 u16Output = i_pMsg->Get<UInt16>(0) & kOutputMask;
  const UInt16 u16Seq = i_pMsg->Get<UInt16>(2);
  m_objGuide.Hide(u16Output, u16Seq);
  if (i_pMsg->Get<UInt16>(4) != kGuideAlone) m_objList.HideIcons(u16Output, u16Seq);
  return 1;
}

UInt32 COsdHifb::HandleGuide(T_ModuleMsg* i_pMsg) {
  m_objGuide.Show(i_pMsg->Get<UInt16>(0) & kOutputMask, i_pMsg->Get<UInt16>(2), "");
  return 1;
}

UInt32 COsdHifb::HandleShowById(T_ModuleMsg* io_pMsg) {
  T_DispRecord record;
  if (!CopyRecord(*io_pMsg, &record) || !m_objList.HasRoom()) return 0;
  FreeRecord(io_pMsg);
  return Accepted(m_objList.ShowById(record));
}

UInt32 COsdHifb::HandleCancelById(T_ModuleMsg* io_pMsg) {
  T_DispRecord record;
  if (!CopyRecord(*io_pMsg, &record)) return 0;
  FreeRecord(io_pMsg);
  m_objList.CancelById(record);
  return 1;
}

UInt32 COsdHifb::HandleDelete(T_ModuleMsg* i_pMsg) {
  m_objList.Delete(i_pMsg->Get<UInt16>(0));
  return 1;
}

UInt32 COsdHifb::HandlePicture(T_ModuleMsg* io_pMsg) {
  if (IsResult(*io_pMsg)) {
    const T_PictureResult* const pResult = io_pMsg->Block<T_PictureResult>();
    if (pResult != nullptr) TakeResult(*pResult);
  } else {
    const char* const pPath = io_pMsg->Get<const char*>(kPicturePathOffset);
    m_objGuide.Show(io_pMsg->Get<UInt16>(kPictureOutSeqWord * 4) & kOutputMask,
                    io_pMsg->Get<UInt16>(kPictureOutSeqWord * 4 + 2),
                    pPath != nullptr ? pPath : "");
  }
  FreePicture(io_pMsg);
  return 1;
}

void COsdHifb::TakeResult(const T_PictureResult& i_result) {
  m_objDesk.Keep(i_result);
  if (!m_objGuide.Take(i_result)) m_objList.Take(i_result);
}

UInt32 COsdHifb::HandleCancelAll(T_ModuleMsg*) {
  for (auto& [s32VoDev, layer] : m_mapLayers) layer.Refresh({});
  m_objList.HideAll();
  LOG_INFO("cancel all_disp done!");
  // Callers know this command by its 0, also when it succeeds.
  return 0;
}
