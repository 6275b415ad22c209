// From a parsed request to the renderer command that it becomes: this program is the bus.
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <tuple>

#include "common/osd/commands.h"
#include "common/osd/disp_record.h"
#include "daemon/common/bus.h"
#include "endpoint/osdcommands.h"
#include "endpoint/osdcommutask.h"
#include "endpoint/timeoutlist.h"
#include "framework/clock.h"
#include "framework/eventcontext.h"
#include "framework/taskpool.h"
#include "platform/platform.h"
#include "tests/log_capture.h"
#include "tests/system/peer.h"

namespace {

std::vector<T_ModuleMsg> g_commands;
UInt32 g_u32BusResult = 1;
std::atomic<Bool> g_bNoSockets{false};
// 2: the renderer's queue is full, and nobody tells when it has room. 1: it has, and what waits in
// sockets is lost, as damaged datagrams are.
std::atomic<SInt32> g_s32Trouble{0};
// How often its thread had been given away at each attempt to receive; the fiftieth kills the task.
std::mutex g_attemptsGate;
std::atomic<Bool> g_bAttempting{false};
std::vector<UInt32> g_attempts;
thread_local UInt32 t_u32Yields = 0;

}  // namespace

int sched_yield() noexcept {
  ++t_u32Yields;
  return static_cast<int>(syscall(SYS_sched_yield));
}

// The system's, or what it does at the limit of descriptors, which would hit the sanitizers too.
int socket(int i_domain, int i_type, int i_protocol) noexcept {
  if (!g_bNoSockets) return static_cast<int>(syscall(SYS_socket, i_domain, i_type, i_protocol));
  errno = EMFILE;
  return -1;
}

UInt32 SendSyncAndAsyncMsg(const T_ModuleMsg* i_pMsg, UInt32) {
  g_commands.push_back(*i_pMsg);
  return g_u32BusResult;
}
Bool HasRoomFor(UInt32, CTask* i_pTask) {
  g_bAttempting = true;
  const std::lock_guard gate(g_attemptsGate);
  g_attempts.push_back(t_u32Yields);
  if (g_attempts.size() == 50) i_pTask->Signal(CTask::kKillEvent);
  const SInt32 s32Trouble = g_s32Trouble > 0 ? g_s32Trouble-- : 0;
  for (int fd = 3; s32Trouble == 1 && fd < 99; ++fd)
    while (recv(fd, nullptr, 0, MSG_DONTWAIT) >= 0) continue;
  return s32Trouble != 2;
}

namespace {

constexpr UInt32 kLoopback = 0x7F000001;

void StartFrameworkOnce() {
  static const Bool s_bStarted = [] {
    CThread::Initialize(0x180000);
    CTaskThreadPool::AddThreads(2);
    CTimeoutTask::Initialize(100);
    select_startevents();
    g_pEventThread = new CEventThread;
    g_pEventThread->Start();
    CIdleTask::Initialize();
    return true;
  }();
  ASSERT_TRUE(s_bStarted);
}

class Commands : public testing::Test {
 protected:
  void SetUp() override {
    StartFrameworkOnce();
    g_commands.clear();
    g_u32BusResult = 1;
    m_pTask = new COsdCommuTask("127.0.0.1", 0);  // never started: it only holds what it would send
  }
  void TearDown() override { m_pTask->Signal(CTask::kKillEvent); }

  // Gives i_body to the task as if a peer at port 9635 had sent it.
  template <class T>
  void Request(UInt32 i_u32Id, T i_body) {
    T_MsgParams params;
    i_body.m_stHeader = {kMsgMagic, 0, {'C', 'M', 'D'}, 77, i_u32Id, BodySize(i_body)};
    params.Body<T>() = std::make_unique<T>(std::move(i_body));
    m_pTask->ProcessOsdMsg(i_u32Id, kLoopback, 9635, &params);
    EXPECT_EQ(params.Body<T>(), nullptr) << "the body outlived its request";
  }
  COsdCommuTask* m_pTask = nullptr;
  CLogCapture m_log;
};

std::unique_ptr<char[]> Copy(std::string_view i_text) {
  auto pCopy = std::make_unique<char[]>(i_text.size());
  i_text.copy(pCopy.get(), i_text.size());
  return pCopy;
}

TEST_F(Commands, TextBecomesARecordThatIsTheRenderersUnlessRefused) {
  T_MsgOsdStringShow request;
  request.m_u16VoutSeq = 0x0102;
  request.m_u16OsdSeq = 0x0305;
  request.m_u32Flag = 0x8000001F;
  const std::string text = std::string("a\0b", 3) + std::string(70, 'x') + '\0';
  request.m_u16StrLen = static_cast<UInt16>(text.size());
  request.m_pStr = Copy(text);
  Request(kMsgOsdStringShow, std::move(request));
  ASSERT_EQ(g_commands.size(), 1u);
  EXPECT_EQ(g_commands[0].m_u32MsgType, kAsyncMsg);
  EXPECT_EQ(g_commands[0].m_u32Src, 9u);
  EXPECT_EQ(g_commands[0].m_u32MsgNo, 0x503u);
  const std::unique_ptr<T_DispRecord> pRecord(g_commands[0].Read<T_OsdTextShow>().m_pRecord);
  EXPECT_EQ(pRecord->m_u32Mask, 0x8000001Fu);
  EXPECT_EQ(pRecord->m_u16VoSeq, 2);
  EXPECT_EQ(pRecord->m_u16Seq, 0x0305);
  EXPECT_EQ(pRecord->m_u32Background, 0x3F616161u) << "0 stands for the default";
  EXPECT_EQ(std::string(pRecord->m_aText[0], 65), "a b" + std::string(61, 'x') + '\0');

  request = {};
  request.m_u32Flag = 0x20;
  g_u32BusResult = 0;  // the record must then be freed by the sender: leak checkers watch
  Request(kMsgOsdStringShow, std::move(request));
  EXPECT_EQ(g_commands.size(), 2u);
}

TEST_F(Commands, HidesNameAnotherSourceAndTheLowByteOfTheOutput) {
  T_MsgOsdElemHide hide;
  hide.m_u16VoutSeq = 0x0102;
  for (const UInt32 u32Seq : {0x0005U, 0x0105U, 0x0305U, 0x0405U, 0x0205U, 0xFFFFU, 0x0505U}) {
    hide.m_u16OsdSeq = static_cast<UInt16>(u32Seq);
    Request(kMsgOsdElemHide, hide);
  }
  ASSERT_EQ(g_commands.size(), 6u) << "class 5 cannot be hidden";
  EXPECT_EQ(g_commands[0].m_u32Src, 1u);
  EXPECT_EQ(g_commands[1].m_u32MsgNo, 0x504u);
  const auto [u16Output, u16Seq] = g_commands[1].Read<T_OsdTextCancel>();
  EXPECT_EQ(std::pair(u16Output, u16Seq), std::pair(UInt16{2}, UInt16{0x105}));
  EXPECT_TRUE(m_log.Has("ERROR ProcessMsgOsdElemHide: Unknown osd type<0x5>"));
}

TEST_F(Commands, DeletesNameAnotherSourceAndLeavePicturesAlone) {
  T_MsgOsdElemDel request;
  for (const UInt32 u32Seq : {0x0605U, 0x0205U, 0x0505U, 0xFFFFU}) {
    request.m_u16OsdSeq = static_cast<UInt16>(u32Seq);
    Request(kMsgOsdElemDel, request);
  }
  ASSERT_EQ(g_commands.size(), 2u);
  const T_ModuleMsg& first = g_commands[0];
  EXPECT_EQ(std::tuple(first.m_u32Src, first.m_u32MsgNo, first.Read<T_OsdDelete>().m_u16OsdSeq),
            std::tuple(1, 0x50A, 0x505));
  EXPECT_TRUE(m_log.Has("ERROR ProcessMsgOsdElemDel: Unknown osd type<0x6>"));
  EXPECT_EQ(m_log.Count("WARN delete image, not implement!"), 2);
}

TEST_F(Commands, IconsTravelWithTheirPaths) {
  const std::string longest(2209, 'p');  // the record's whole text area
  for (const std::string& path : {longest + "p", std::string("a\0b", 3), longest + '\0'}) {
    T_MsgOsdDispImage icon;
    icon.m_u32StrLen = static_cast<UInt32>(path.size());
    icon.m_pPath = Copy(path);
    icon.m_u16Height = 44;
    icon.m_u16Opacity = 55;
    Request(kMsgOsdDispImage, std::move(icon));
  }
  EXPECT_TRUE(
      m_log.Has("ERROR picture <a\\x00b> is not shown: its path has 3 bytes; at most 2209 "
                "and no NUL among them"));
  ASSERT_EQ(g_commands.size(), 1u) << "a NUL at the end is no part of the path";
  const std::unique_ptr<T_DispRecord> pRecord(g_commands[0].Read<T_OsdIconShow>().m_pRecord);
  EXPECT_EQ(pRecord->m_u32Kind, T_DispRecord::kKindIcon);
  EXPECT_EQ(pRecord->m_u16Time, 0xFFFF);
  EXPECT_EQ(pRecord->m_u32H, 44u);
  EXPECT_EQ(pRecord->m_u16Opacity, 55u);
  EXPECT_EQ(pRecord->Path(), longest);
}

TEST_F(Commands, TheGuideTravelsWithItsPath) {
  T_MsgOsdGuideShow guide;
  guide.m_u32PathLen = 3;
  guide.m_pPath = Copy({"a\0b", 3});
  Request(kMsgOsdGuideShow, std::move(guide));  // refused
  guide.m_u32PathLen = 5;
  guide.m_pPath = Copy("a.jpg");
  Request(kMsgOsdGuideShow, std::move(guide));
  ASSERT_EQ(g_commands.size(), 1u);
  const auto picture = g_commands[0].Read<T_OsdPicture>();
  const std::unique_ptr<char[]> pPath(picture.m_pPath);
  EXPECT_STREQ(pPath.get(), "a.jpg");
  EXPECT_EQ(UInt32{picture.m_u32PathLen}, 5u);
}

TEST_F(Commands, HidesOfPicturesKeepTheWholeOutput) {
  T_MsgOsdCancelImage cancel;
  cancel.m_u16VoutSeq = 0x0102;
  cancel.m_u16OsdSeq = 0x0203;
  Request(kMsgOsdCancelImage, cancel);
  const auto hide = g_commands[0].Read<T_OsdIconHide>();
  EXPECT_EQ(std::tuple(hide.m_u16Output, hide.m_u16OsdSeq, hide.m_u16What),
            std::tuple(0x102, 0x203, 0));
  EXPECT_TRUE(m_log.Has("INFO osd image hide: vosseq<0x102> seq<0x203>"));
  HideOsdGuide(0xff);
  EXPECT_EQ(g_commands[1].m_u32MsgNo, 0x506u);
  const auto guideHide = g_commands[1].Read<T_OsdIconHide>();
  EXPECT_EQ(std::tuple(guideHide.m_u16Output, guideHide.m_u16OsdSeq, guideHide.m_u16What),
            std::tuple(0xFF, 0xFFFF, 0xFF));
  HideOsdGuide(0);
  EXPECT_TRUE(m_log.Has("ERROR HideOsdGuide: shouldn't be here"));
}

TEST_F(Commands, CalibrationTakesItsSizeFromTheResolutionFile) {
  const std::filesystem::path file = SystemPath("/tmpfile/resolution.cfg");
  std::filesystem::create_directories(file.parent_path());
  T_MsgOsdTouchCalibration request;
  const std::tuple<std::string, UInt32, UInt32> kFiles[] = {
      {"width=1920\nheight=1080\n", 1920, 1080},
      {"widths=1 \nheight = 720x\nwidth: 5", 0, 720},
      {"width=-5\nheight=99999999999999999999999", 0, 0xFFFFFFFF},
      {"\xff\x01 width=3\nheight==3", 0, 0},
      {"xxxxxxxxxxxxxxxxxxxwidth=640", 640, 0},
      {std::string("width=7\0\nheight=8", 17), 7, 8},
      {std::string(4089, '\n') + "width=19", 1, 0}};
  for (const auto& [content, u32Width, u32Height] : kFiles) {
    std::ofstream(file) << content;
    Request(kMsgOsdTouchCalibration, request);
    const T_ModuleMsg& command = g_commands.back();
    EXPECT_EQ(command.m_u32MsgNo, 0x500u);
    const T_LayerRequest layer = command.Read<T_OsdInit>().m_stLayer;
    EXPECT_EQ(layer.m_s32Layer, 0);
    EXPECT_EQ(layer.m_u32W, u32Width) << content;
    EXPECT_EQ(layer.m_u32H, u32Height) << content;
  }
  EXPECT_TRUE(m_log.Has("INFO get resolution.cfg [1920 x 1080]"));
  g_commands.clear();
  std::filesystem::remove(file);
  Request(kMsgOsdTouchCalibration, request);
  EXPECT_TRUE(m_log.Has("ERROR can not open resolution.cfg: <No such file or directory>!!!"));
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);  // without a writer, a reader waits for ever
  Request(kMsgOsdTouchCalibration, request);
  std::filesystem::remove(file);
  std::filesystem::create_symlink("/dev/zero", file);
  Request(kMsgOsdTouchCalibration, request);
  std::filesystem::remove(file);
  EXPECT_EQ(m_log.Count("ERROR can not open resolution.cfg: <it is not a regular file>!!!"), 2);
  for (const UInt8 u8Mode : std::vector<UInt8>{1, 2, 3}) {
    request.m_u8CalibrationMode = u8Mode;
    Request(kMsgOsdTouchCalibration, request);
  }
  ASSERT_EQ(g_commands.size(), 1u);
  EXPECT_EQ(g_commands[0].m_u32MsgNo, 0x501u);
}

TEST_F(Commands, WhatHasNoHandlerOrNoBodyIsLeftAlone) {
  T_MsgParams params;
  for (const T_CatalogueRow& row : kCatalogue)
    m_pTask->ProcessOsdMsg(row.m_u32Id, kLoopback, 9635, &params);
  m_pTask->ProcessOsdMsg(0x10007, kLoopback, 9635, &params);
  EXPECT_TRUE(g_commands.empty() && m_pTask->Outgoing().IsEmpty());
  for (const char* pLine :
       {"INFO ProcessOsdMsg[9635]: RES_MSG_ACK", "INFO ProcessOsdMsg: RES_MSG_PROCESS_SUCCESS",
        "WARN ProcessOsdMsg: RES_MSG_PROCESS_FAILURE", "WARN ProcessOsdMsg: ERR_RES_MSG_PARAM_LEN"})
    EXPECT_EQ(m_log.Count(pLine), 1) << pLine;
}

TEST_F(Commands, OneMoreThanTheWaitingRepliesIsLostWithoutANumber) {
  COutgoing& outgoing = m_pTask->Outgoing();
  for (UInt32 i = 0; i <= 1024; ++i) outgoing.Queue(std::make_unique<T_MsgOsdDeinit>());
  EXPECT_EQ(m_log.Count("WARN too many replies wait to be sent, current size<1024>"), 1);
  UInt32 u32Taken = 0;
  for (T_MsgParams params; outgoing.Take(&params);) ++u32Taken;
  EXPECT_EQ(std::pair(u32Taken, outgoing.NextSeq()), std::pair(1024u, 1024u));
}

TEST_F(Commands, AHeaderTellsTheLengthOfTheBodyThatIsSent) {
  const auto lengthOf = [this](auto i_pBody) {
    const T_MsgHeader& header = i_pBody->m_stHeader;  // the queue keeps it
    m_pTask->Outgoing().Queue(std::move(i_pBody));
    return header.m_u16ParamLen;
  };
  EXPECT_EQ(lengthOf(std::make_unique<T_MsgOsdDeinit>()), 0) << "sent without its six fields";
  auto pCut = std::make_unique<T_MsgOsdStringShow>();
  pCut->m_u32Flag = kMaskText;
  pCut->m_u16StrLen = 0xFFFF;
  pCut->m_pStr = std::make_unique<char[]>(0xFFFF);
  EXPECT_EQ(lengthOf(std::move(pCut)), 4096 - 18);
}

// A socket on a loopback port of the kernel's choice.
int BoundSocket(sockaddr_in* o_pAddress) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  *o_pAddress = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t size = sizeof(*o_pAddress);
  EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(o_pAddress), size), 0);
  getsockname(fd, reinterpret_cast<sockaddr*>(o_pAddress), &size);
  return fd;
}

TEST_F(Commands, NotificationsLeaveFromTheirOwnSocket) {
  auto* const pTask = new COsdCommuTask("127.0.0.1", 0);  // deletes itself
  pTask->Signal(CTask::kStartEvent);
  sockaddr_in own{};
  const int receiver = BoundSocket(&own);
  pollfd ready{receiver, POLLIN, 0};
  for (int attempt = 0; attempt < 100 && poll(&ready, 1, 100) == 0; ++attempt) {
    T_MsgParams params;  // until the task has opened the socket, sending fails
    params.m_eMsgId = kMsgOsdElemHide;
    params.Body<T_MsgOsdElemHide>() = std::make_unique<T_MsgOsdElemHide>();
    params.Body<T_MsgOsdElemHide>()->m_u32RemoteAddr = kLoopback;
    params.Body<T_MsgOsdElemHide>()->m_u16RemotePort = ntohs(own.sin_port);
    params.Header()->m_u32Seq = 1000;
    pTask->SendNotifyMsg(&params);
    EXPECT_EQ(params.Body<T_MsgOsdElemHide>(), nullptr);
  }
  UInt8 aBuf[64];
  EXPECT_EQ(recv(receiver, aBuf, sizeof(aBuf), 0), 22);
  EXPECT_LT(DecodeHeader(aBuf).m_u32Seq, 100U);
  close(receiver);
  EXPECT_EQ(pTask->SendNotifyMsg(nullptr), EINVAL);
  EXPECT_TRUE(m_log.Has("ERROR CEventMonitorTask SendNotifyMsg para <0> err"));
  pTask->Signal(CTask::kWriteEvent);
  EXPECT_TRUE(
      Eventually([&] { return m_log.Has("WARN ProcessWriteEvent m_objMsgQueue is empty"); }));
  pTask->Signal(CTask::kKillEvent);
}

TEST_F(Commands, ABusyPortIsToldOnceAndTakenWhenItIsFree) {
  sockaddr_in port{};
  const int blocker = BoundSocket(&port);
  auto* const pTask = new COsdCommuTask("127.0.0.1", ntohs(port.sin_port));  // deletes itself
  pTask->Signal(CTask::kStartEvent | CTask::kTimeoutEvent);                  // two attempts
  const std::string told = "WARN cannot bind 127.0.0.1:" + std::to_string(ntohs(port.sin_port)) +
                           ": Address already in use; trying again every second";
  std::string name;
  std::getline(std::ifstream("/proc/self/comm"), name);
  const std::string taken = "WARN 127.0.0.1:" + std::to_string(ntohs(port.sin_port)) +
                            " is taken by process " + std::to_string(getpid()) + " (" + name + ")";
  EXPECT_TRUE(Eventually([&] { return m_log.Has(taken); }));
  close(blocker);
  g_s32Trouble = 2;
  const int peer = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_TRUE(Eventually([&] {
    sendto(peer, "", 0, 0, reinterpret_cast<sockaddr*>(&port), sizeof(port));
    return m_log.Has("WARN Msg head len error");
  })) << "still deaf";
  EXPECT_EQ(m_log.Count(told), 1);
  EXPECT_EQ(m_log.Count(taken), 1);
  CUDPSocket thief(nullptr, 0);
  ASSERT_EQ(thief.Open(), 0);
  thief.ReuseAddr();
  EXPECT_EQ(thief.Bind(kLoopback, ntohs(port.sin_port)), EADDRINUSE);
  close(peer);
  pTask->Signal(CTask::kKillEvent);
  EXPECT_TRUE(Eventually([&] { return thief.Bind(kLoopback, ntohs(port.sin_port)) == 0; }));
}

TEST_F(Commands, ABurstIsWorkedOffInSharesAndAKillWaitsForNone) {
  sockaddr_in port{};
  close(BoundSocket(&port));
  const int peer = socket(AF_INET, SOCK_DGRAM, 0);
  const auto send = [&] {
    sendto(peer, "", 0, 0, reinterpret_cast<sockaddr*>(&port), sizeof(port));
  };
  {
    const std::lock_guard gate(g_attemptsGate);
    g_attempts.clear();
    g_bAttempting = false;
    (new COsdCommuTask("127.0.0.1", ntohs(port.sin_port)))->Signal(CTask::kStartEvent);
    ASSERT_TRUE(Eventually([&] { return send(), g_bAttempting.load(); }));
    for (int i = 0; i < 70; ++i) send();
  }
  CUDPSocket next(nullptr, 0);
  ASSERT_EQ(next.Open(), 0);
  EXPECT_TRUE(Eventually([&] { return next.Bind(kLoopback, ntohs(port.sin_port)) == 0; }));
  const std::lock_guard gate(g_attemptsGate);
  EXPECT_EQ(g_attempts.size(), 50U) << "after the kill";
  // The first one may share its run with the start.
  EXPECT_NEAR(static_cast<double>(std::ranges::count(g_attempts, g_attempts[0])), 31.5, 0.5);
  close(peer);
}

TEST_F(Commands, WithoutADescriptorItSaysThatItIsDeaf) {
  g_bNoSockets = true;
  m_pTask->Signal(CTask::kStartEvent);
  const std::string told =
      "ERROR cannot open the control socket: Too many open files; deaf until started with more "
      "files (ulimit -n)";
  EXPECT_TRUE(Eventually([&] { return m_log.Has(told); }));
  g_bNoSockets = false;
}

TEST(TimeoutList, IsEmptiedAPeriodAfterItsStart) {
  StartFrameworkOnce();
  for (const auto& [pPeriod, s64Ms] : {std::pair("", 0), std::pair("300", 300)}) {
    auto* const pList = new CTimeoutList(pPeriod);
    CTimeoutList::Insert(1);
    CTimeoutList::Insert(2);
    EXPECT_EQ(CTimeoutList::PendingCount(), 2u);
    const SInt64 s64Start = CTime::Milliseconds();
    pList->Signal(CTask::kStartEvent);
    EXPECT_TRUE(Eventually([] { return CTimeoutList::PendingCount() == 0; }));
    EXPECT_GE(CTime::Milliseconds() - s64Start, s64Ms);
    pList->Signal(CTask::kKillEvent);
  }
}

}  // namespace
