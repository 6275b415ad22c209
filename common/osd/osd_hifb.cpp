#include "common/osd/osd_hifb.h"

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "common/osd/cargo.h"
#include "daemon/common/bus.h"
#include "daemon/common/counters.h"
#include "daemon/common/timer_commands.h"
#include "framework/log.h"

namespace {

constexpr SInt32 kQueueWaitMs = 10000;
constexpr SInt32 kDrainWaitMs = 1;
// Numbers up to this one, and the tick, are not commands.
constexpr UInt32 kLastNoOp = 2;
// The tick: a periodic timer, every second.
constexpr UInt32 kTickType = 1;
constexpr UInt32 kTickId = 0;
constexpr UInt32 kTickMs = 1000;
constexpr UInt16 kFullOpacity = 255;

constexpr const char* kListFull = "the list is full: 65 elements are in it, the hidden ones, too";
constexpr const char* kNothingHidden =
    "no element of that output and number is shown, or its class cannot be hidden so";
constexpr const char* kNothingDeleted =
    "no element of that number is listed, or its class cannot be deleted";

// The sender's texts need not be terminated. An icon's path may run on over all lines.
void Normalise(UInt32 i_u32MsgNo, T_DispRecord& io_record) {
  if (i_u32MsgNo == T_OsdIconShow::kMsgNo) io_record.m_u32Kind = T_DispRecord::kKindIcon;
  if (io_record.IsIcon()) io_record.m_u16Time = T_DispRecord::kForever;
  io_record.m_u16Opacity = std::min(io_record.m_u16Opacity, kFullOpacity);
  for (UInt32 line = 0; line < T_DispRecord::kMaxLines; ++line)
    if (!io_record.IsIcon() || line + 1 == T_DispRecord::kMaxLines)
      io_record.m_aText[line][T_DispRecord::kLineChars] = '\0';
}

template <class T>
Bool SendToTimer(const T& i_request) {
  const T_ModuleMsg msg = MakeMessage(kSyncMsg, kModuleOsd, kModuleTimer, i_request);
  return SendSyncAndAsyncMsg(&msg, 0) != 0;
}

// To the renderer itself, in turn with its other commands.
Bool SendResult(std::unique_ptr<T_PictureResult>& io_pResult) {
  const T_ModuleMsg msg =
      MakeMessage(kAsyncMsg, kModuleOsd, kModuleOsd, T_OsdPictureResult{io_pResult.get()});
  if (SendSyncAndAsyncMsg(&msg, 0) == 0) return false;  // logged by who refused it
  static_cast<void>(io_pResult.release());
  return true;
}

}  // namespace

template <class T, UInt32 (COsdHifb::*t_pHandler)(const T&)>
UInt32 COsdHifb::With(const T_ModuleMsg& i_msg) {
  return (this->*t_pHandler)(i_msg.Read<T>());
}

// Of a synchronous message the record stays the sender's, as it is.
template <class T, UInt32 (COsdHifb::*t_pHandler)(T_DispRecord&)>
UInt32 COsdHifb::WithRecord(const T_ModuleMsg& i_msg) {
  T_DispRecord* pRecord = i_msg.Read<T>().m_pRecord;
  if (pRecord == nullptr) {
    LOG_ERROR("osd message <%#x> without a display record", i_msg.m_u32MsgNo);
    return 0;
  }
  T_DispRecord copy;
  if (i_msg.m_u32MsgType != kAsyncMsg) pRecord = &(copy = *pRecord);
  Normalise(i_msg.m_u32MsgNo, *pRecord);
  return (this->*t_pHandler)(*pRecord);
}

template <class T, auto t_pHandler>
constexpr COsdHifb::T_Command COsdHifb::Row() {
  if constexpr (std::is_invocable_v<decltype(t_pHandler), COsdHifb*, const T&>)
    return {T::kMsgNo, &COsdHifb::With<T, t_pHandler>};
  else
    return {T::kMsgNo, &COsdHifb::WithRecord<T, t_pHandler>};
}

const COsdHifb::T_Command COsdHifb::s_aCommands[] = {
    Row<T_OsdInit, &COsdHifb::HandleInit>(),
    Row<T_OsdDeInit, &COsdHifb::HandleDeInit>(),
    Row<T_OsdReInit, &COsdHifb::HandleReInit>(),
    Row<T_OsdTextShow, &COsdHifb::HandleShow>(),
    Row<T_OsdTextCancel, &COsdHifb::HandleCancel>(),
    Row<T_OsdIconShow, &COsdHifb::HandleShow>(),
    Row<T_OsdIconHide, &COsdHifb::HandleIconHide>(),
    Row<T_OsdGuide, &COsdHifb::HandleGuide>(),
    Row<T_OsdShowById, &COsdHifb::HandleShowById>(),
    Row<T_OsdCancelById, &COsdHifb::HandleCancelById>(),
    Row<T_OsdDelete, &COsdHifb::HandleDelete>(),
    {T_OsdPicture::kMsgNo, &COsdHifb::HandlePictureOrResult},
    Row<T_OsdCancelAll, &COsdHifb::HandleCancelAll>(),
};

COsdHifb::COsdHifb() : m_objDesk(SendResult) {}

COsdHifb::~COsdHifb() {
  Stop();
  T_ModuleMsg msg;
  while (m_objQueue.Pop(kDrainWaitMs, &msg) != 0) static_cast<void>(TakeOver(msg));
}

void COsdHifb::Stop() {
  m_objQueue.Close();
  RequestStop();
  const T_ModuleMsg wake{kAsyncMsg, kModuleOsd, kModuleOsd, kMsgNone, {}};
  m_objQueue.Push(&wake);
  StopAndWaitForThread();
  CMutexLocker locker(&m_objMutex);
  CMutexLocker listLocker(&m_objListMutex);
  m_objDesk.Stop();
  // Here and not in the destructor: after main the media SDK may be gone already.
  while (!m_mapLayers.empty()) LoseLayer(m_mapLayers.begin());
}

UInt32 COsdHifb::PushMsg(const T_ModuleMsg* i_pMsg) {
  const UInt32 u32Queued = m_objQueue.Push(i_pMsg);
  if (u32Queued == 0) LOG_ERROR("COsdHifb pushmsg fail");
  return u32Queued;
}

UInt32 COsdHifb::HandleSyncMsg(const T_ModuleMsg* i_pMsg, UInt32) {
  return i_pMsg != nullptr ? Handle(*i_pMsg) : 0;
}

void COsdHifb::Entry() {
  SetThreadName("osdhifb");
  {
    CMutexLocker locker(&m_objListMutex);
    m_objDesk.Start();
  }
  T_ModuleMsg msg;
  while (!IsStopRequested()) {
    if (m_objQueue.Pop(kQueueWaitMs, &msg) == 0) continue;
    const T_Cargo cargo = TakeOver(msg);
    Handle(msg);
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

UInt32 COsdHifb::Handle(const T_ModuleMsg& i_msg) {
  const UInt32 u32Result = HandleAlone(i_msg);
  SettleTick();
  g_objLedger.NoteChange();
  return u32Result;
}

UInt32 COsdHifb::HandleAlone(const T_ModuleMsg& i_msg) {
  CMutexLocker locker(&m_objMutex);
  CMutexLocker listLocker(&m_objListMutex);
  const UInt32 u32Result = Dispatch(i_msg);
  m_objGuide.CloseDifference();
  m_objList.AskForMissing();
  m_objPainter.Restore();
  return u32Result;
}

UInt32 COsdHifb::Dispatch(const T_ModuleMsg& i_msg) {
  if (i_msg.m_u32MsgNo == kMsgTimer) {
    m_objList.HandleTimerMsg();
    return 1;
  }
  LOG_INFO("-Osd_hifb_msg<%#x>", i_msg.m_u32MsgNo);
  if (i_msg.m_u32MsgNo <= kLastNoOp) return 1;
  m_stAsker = i_msg.m_u32Src != kModuleOsd ? ReadAsker(i_msg) : T_Asker{};
  const T_Command* const pCommand = FindCommand(i_msg.m_u32MsgNo);
  if (pCommand != nullptr) return (this->*pCommand->m_pHandler)(i_msg);
  // "unkown" is on purpose: field reports are searched for the text as it stands.
  LOG_ERROR("unkown handle message <0x%x>", i_msg.m_u32MsgNo);
  return 1;
}

UInt32 COsdHifb::Init(const T_LayerRequest& i_request) {
  LOG_INFO("osd init vodev<%d>,layer<%d>,rect<%d,%d,%d,%d>", i_request.m_s32VoDev,
           i_request.m_s32Layer, i_request.m_s32X, i_request.m_s32Y, i_request.m_u32W,
           i_request.m_u32H);
  if (m_mapLayers.contains(i_request.m_s32VoDev)) DeInit(i_request.m_s32VoDev);
  if (!SetUpLayer(i_request, m_mapLayers)) return 0;
  m_objList.DisplayDisInfoList(i_request.m_s32VoDev);
  WantTick(true);
  LOG_INFO("osd init for [%d] ok size[%d]", i_request.m_s32Layer,
           static_cast<SInt32>(m_mapLayers.size()));
  return 1;
}

void COsdHifb::Conclude(Bool i_bDone, const std::string& i_strWhy) {
  g_objLedger.Close(m_stAsker, i_bDone ? ERequest::kDone : ERequest::kRefused,
                    i_bDone ? "" : i_strWhy.c_str());
}

UInt32 COsdHifb::HandleInit(const T_OsdInit& i_command) {
  const UInt32 u32Done = Init(i_command.m_stLayer);
  Conclude(u32Done != 0, "the layer cannot be set up; the log says which step failed");
  return u32Done;
}

UInt32 COsdHifb::HandleDeInit(const T_OsdDeInit& i_command) {
  const SInt32 s32Output = i_command.m_stLayer.m_s32VoDev;
  Conclude(m_mapLayers.contains(s32Output),
           CPainter::NoLayer(OutputOf(static_cast<UInt16>(s32Output))));
  DeInit(i_command.m_stLayer.m_s32VoDev);
  return 1;
}

UInt32 COsdHifb::HandleReInit(const T_OsdReInit& i_command) {
  DeInit(i_command.m_stLayer.m_s32VoDev);
  Init(i_command.m_stLayer);
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
    const Bool bAccepted = *bStart ? SendToTimer(T_TimerAdd{kTickType, kTickId, kTickMs, {}})
                                   : SendToTimer(T_TimerCancel{kTickType, kTickId});
    CMutexLocker locker(&m_objMutex);
    m_dequeTick.pop_front();
    if (bAccepted) m_bTickRunning = *bStart;
    m_bTickSettling = false;
  }
}

// What waits for its pictures counts as shown.
UInt32 COsdHifb::ConcludeShow(EOutcome i_eOutcome) {
  if (i_eOutcome == EOutcome::kShown)
    g_objLedger.Close(m_stAsker, m_objList.Lies(m_stAsker) ? ERequest::kDone : ERequest::kRefused,
                      m_objPainter.Why().c_str());
  if (i_eOutcome == EOutcome::kShown || i_eOutcome == EOutcome::kWaiting) return 1;
  Conclude(false, m_objPainter.Why());
  return 0;
}

UInt32 COsdHifb::HandleShow(T_DispRecord& io_record) {
  if (m_objList.HasRoom()) return ConcludeShow(m_objList.Show(io_record, m_stAsker));
  Conclude(false, kListFull);
  return 0;
}

UInt32 COsdHifb::HandleCancel(const T_OsdTextCancel& i_command) {
  const UInt32 u32Hidden = m_objList.Cancel(i_command.m_u16Output, i_command.m_u16OsdSeq);
  Conclude(u32Hidden > 0, kNothingHidden);
  return 1;
}

UInt32 COsdHifb::HandleIconHide(const T_OsdIconHide& i_command) {
  const UInt16 u16Output = OutputOf(i_command.m_u16Output);
  Bool bHidden = m_objGuide.Hide(u16Output, i_command.m_u16OsdSeq);
  if (i_command.m_u16What != T_OsdIconHide::kGuideAlone &&
      m_objList.HideIcons(u16Output, i_command.m_u16OsdSeq) > 0)
    bHidden = true;
  Conclude(bHidden, kNothingHidden);
  return 1;
}

UInt32 COsdHifb::HandleGuide(const T_OsdGuide& i_command) {
  m_objGuide.Show(OutputOf(i_command.m_u16Output), i_command.m_u16OsdSeq, "", m_stAsker);
  return 1;
}

UInt32 COsdHifb::HandleShowById(T_DispRecord& io_record) {
  if (m_objList.HasRoom()) return ConcludeShow(m_objList.ShowById(io_record, m_stAsker));
  Conclude(false, kListFull);
  return 0;
}

UInt32 COsdHifb::HandleCancelById(T_DispRecord& io_record) {
  m_objList.CancelById(io_record);
  return 1;
}

UInt32 COsdHifb::HandleDelete(const T_OsdDelete& i_command) {
  Conclude(m_objList.Delete(i_command.m_u16OsdSeq) > 0, kNothingDeleted);
  return 1;
}

UInt32 COsdHifb::HandlePictureOrResult(const T_ModuleMsg& i_msg) {
  return T_OsdPictureResult::Is(i_msg) ? With<T_OsdPictureResult, &COsdHifb::HandleResult>(i_msg)
                                       : With<T_OsdPicture, &COsdHifb::HandlePicture>(i_msg);
}

UInt32 COsdHifb::HandlePicture(const T_OsdPicture& i_command) {
  m_objGuide.Show(OutputOf(i_command.m_u16Output), i_command.m_u16OsdSeq,
                  i_command.m_pPath != nullptr ? i_command.m_pPath : "", m_stAsker);
  return 1;
}

UInt32 COsdHifb::HandleResult(const T_OsdPictureResult& i_command) {
  if (i_command.m_pResult == nullptr) return 1;
  Count(g_stCounters.m_picturesRead);
  m_objDesk.Keep(*i_command.m_pResult);
  if (!m_objGuide.Take(*i_command.m_pResult)) m_objList.Take(*i_command.m_pResult);
  return 1;
}

T_OsdState COsdHifb::State() {
  CMutexLocker locker(&m_objMutex);
  CMutexLocker listLocker(&m_objListMutex);
  T_OsdState state{{}, m_objList.State(), m_objGuide.State()};
  for (const auto& [s32VoDev, layer] : m_mapLayers) state.m_vecLayers.push_back(layer.Request());
  return state;
}

UInt32 COsdHifb::HandleCancelAll(const T_OsdCancelAll&) {
  for (auto& [s32VoDev, layer] : m_mapLayers) layer.Refresh({});
  m_objList.HideAll();
  LOG_INFO("cancel all_disp done!");
  // Callers know this command by its 0, also when it succeeds.
  return 0;
}
