// From a parsed request to the renderer command that it becomes: this program is the bus.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

#include "common/osd/commands.h"
#include "common/osd/disp_record.h"
#include "daemon/common/bus.h"
#include "endpoint/osdcommands.h"
#include "endpoint/osdcommutask.h"
#include "endpoint/timeoutlist.h"
#include "framework/eventcontext.h"
#include "framework/taskpool.h"
#include "platform/platform.h"
#include "tests/log_capture.h"

namespace {

std::vector<T_ModuleMsg> g_commands;
UInt32 g_u32BusResult = 1;
std::atomic<Bool> g_bNoSockets{false};
std::atomic<Bool> g_bFull{false};  // the renderer's queue, once, and nobody tells when it has room

}  // namespace

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
Bool HasRoomFor(UInt32, CTask*) { return !g_bFull.exchange(false); }

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

std::unique_ptr<char[]> Bytes(std::string_view i_text) {
  auto pBytes = std::make_unique<char[]>(i_text.size());
  i_text.copy(pBytes.get(), i_text.size());
  return pBytes;
}

TEST_F(Commands, TextBecomesARecordThatIsTheRenderersUnlessRefused) {
  T_MsgOsdStringShow request;
  request.m_u16VoutSeq = 0x0102;
  request.m_u16OsdSeq = 0x0305;
  request.m_u32Flag = 0x8000001F;
  const std::string text = std::string("a\0b", 3) + std::string(70, 'x') + '\0';
  request.m_u16StrLen = static_cast<UInt16>(text.size());
  request.m_pStr = Bytes(text);
  Request(kMsgOsdStringShow, std::move(request));
  ASSERT_EQ(g_commands.size(), 1u);
  EXPECT_EQ(g_commands[0].m_u32MsgType, kAsyncMsg);
  EXPECT_EQ(g_commands[0].m_u32Src, 9u);
  EXPECT_EQ(g_commands[0].m_u32MsgNo, 0x503u);
  const std::unique_ptr<T_DispRecord> pRecord(g_commands[0].Block<T_DispRecord>());
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
  EXPECT_EQ(g_commands[1].Word(0), 0x01050002u);
}

TEST_F(Commands, PicturesTravelWithTheirPaths) {
  const std::string longest(2209, 'p');  // the record's whole text area
  for (const std::string& path : {longest + "p", std::string("a\0b", 3), longest + '\0'}) {
    T_MsgOsdDispImage icon;
    icon.m_u32StrLen = static_cast<UInt32>(path.size());
    icon.m_pPath = Bytes(path);
    icon.m_u16Height = 44;
    icon.m_u16Opacity = 55;
    Request(kMsgOsdDispImage, std::move(icon));
  }
  EXPECT_TRUE(
      m_log.Has("ERROR picture <a\\x00b> is not shown: its path has 3 bytes; at most 2209 "
                "and no NUL among them"));
  ASSERT_EQ(g_commands.size(), 1u) << "a NUL at the end is no part of the path";
  const std::unique_ptr<T_DispRecord> pRecord(g_commands[0].Block<T_DispRecord>());
  EXPECT_EQ(pRecord->m_u32Kind, T_DispRecord::kKindIcon);
  EXPECT_EQ(pRecord->m_u16Time, 0xFFFF);
  EXPECT_EQ(pRecord->m_u32H, 44u);
  EXPECT_EQ(pRecord->m_u16Opacity, 55u);
  EXPECT_EQ(pRecord->Path(), longest);

  T_MsgOsdGuideShow guide;
  guide.m_u32PathLen = 3;
  guide.m_pPath = Bytes({"a\0b", 3});
  Request(kMsgOsdGuideShow, std::move(guide));  // refused as well
  guide.m_u16OsdSeq = 9;
  guide.m_u32PathLen = 5;
  guide.m_pPath = Bytes("a.jpg");
  Request(kMsgOsdGuideShow, std::move(guide));
  const std::unique_ptr<char[]> pPath(g_commands[1].Get<char*>(kPicturePathOffset));
  EXPECT_STREQ(pPath.get(), "a.jpg");
  EXPECT_EQ(g_commands[1].Word(kPicturePathLenWord), 5u);

  T_MsgOsdCancelImage cancel;
  cancel.m_u16VoutSeq = 0x0102;
  cancel.m_u16OsdSeq = 0x0203;
  Request(kMsgOsdCancelImage, cancel);
  EXPECT_EQ(g_commands[2].Word(0), 0x02030102u);
  EXPECT_TRUE(m_log.Has("INFO osd image hide: vosseq<0x102> seq<0x203>"));
  HideOsdGuide(0xff);
  EXPECT_EQ(g_commands[3].m_u32MsgNo, 0x506u);
  EXPECT_EQ(std::pair(g_commands[3].Word(0), g_commands[3].Word(1)), std::pair(0xFFFF00FFu, 0xFFu));
  HideOsdGuide(0);
  EXPECT_TRUE(m_log.Has("ERROR HideOsdGuide: shouldn't be here"));
}

TEST_F(Commands, CalibrationTakesItsSizeFromTheResolutionFile) {
  constexpr UInt32 kAny = 0xFFFFFFFF;  // out of range: some number, but no crash
  struct T_Case {
    std::string m_content;
    UInt32 m_u32W, m_u32H;
  };
  const std::filesystem::path file = SystemPath("/tmpfile/resolution.cfg");
  std::filesystem::create_directories(file.parent_path());
  T_MsgOsdTouchCalibration request;
  for (const T_Case& c : {T_Case{"width=1920\nheight=1080\n", 1920, 1080},
                          {"height = 720x\nwidth: 5\nwidth=1 \nwidths==3\nheight=x", 0, 0},
                          {"width=-5\nheight=99999999999999999999999", 0, kAny},
                          {"\xff\x01 width=3", 0, 0},
                          {"xxxxxxxxxxxxxxxxxxxwidth=640", 640, 0},
                          {std::string("width=7\0\nheight=8", 17), 7, 8},
                          {std::string(4089, '\n') + "width=19", 1, 0}}) {
    std::ofstream(file) << c.m_content;
    Request(kMsgOsdTouchCalibration, request);
    const T_ModuleMsg& command = g_commands.back();
    EXPECT_EQ(command.m_u32MsgNo, 0x500u);
    EXPECT_EQ(command.Word(1), 0u);
    EXPECT_EQ(command.Word(4), c.m_u32W) << c.m_content;
    EXPECT_TRUE(c.m_u32H == kAny || command.Word(5) == c.m_u32H) << c.m_content;
  }
  EXPECT_TRUE(m_log.Has("INFO get resolution.cfg [1920 x 1080]"));
  g_commands.clear();
  std::filesystem::remove(file);
  Request(kMsgOsdTouchCalibration, request);
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);  // without a writer, a reader waits for ever
  Request(kMsgOsdTouchCalibration, request);
  std::filesystem::remove(file);
  std::filesystem::create_symlink("/dev/zero", file);
  Request(kMsgOsdTouchCalibration, request);
  std::filesystem::remove(file);
  EXPECT_TRUE(g_commands.empty());
  EXPECT_TRUE(m_log.Has("ERROR can not open resolution.cfg: <No such file or directory>!!!"));
  EXPECT_EQ(m_log.Count("ERROR can not open resolution.cfg: <it is not a regular file>!!!"), 2);
  request.m_u8CalibrationMode = 1;
  Request(kMsgOsdTouchCalibration, request);
  EXPECT_EQ(g_commands.back().m_u32MsgNo, 0x501u);
  request.m_u8CalibrationMode = 2;
  Request(kMsgOsdTouchCalibration, request);
  EXPECT_EQ(g_commands.size(), 1u);
}

TEST_F(Commands, AHeaderTellsTheLengthOfTheBodyThatIsSent) {
  const auto lengthOf = [this](auto i_pBody) {
    const T_MsgHeader& header = i_pBody->m_stHeader;  // the queue keeps it
    m_pTask->Outgoing().Queue(std::move(i_pBody));
    return header.m_u16ParamLen;
  };
  EXPECT_EQ(lengthOf(std::make_unique<T_MsgOsdDeinit>()), 0) << "sent without its six fields";
  auto pCut = std::make_unique<T_MsgOsdStringShow>();
  pCut->m_u32Flag = kStringShowTextFollows;
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
    pTask->SendNotifyMsg(&params);
    EXPECT_EQ(params.Body<T_MsgOsdElemHide>(), nullptr);
  }
  char aBuf[64];
  EXPECT_EQ(recv(receiver, aBuf, sizeof(aBuf), 0), 22);
  close(receiver);
  EXPECT_EQ(pTask->SendNotifyMsg(nullptr), EINVAL);
  EXPECT_TRUE(m_log.Has("ERROR CEventMonitorTask SendNotifyMsg para <0> err"));
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
  for (int turn = 0; turn < 1000 && !m_log.Has(taken); ++turn) CThread::Sleep(10);
  close(blocker);
  g_bFull = true;
  const int peer = socket(AF_INET, SOCK_DGRAM, 0);
  for (int turn = 0; turn < 1000 && !m_log.Has("WARN Msg head len error"); ++turn) {
    sendto(peer, "", 0, 0, reinterpret_cast<sockaddr*>(&port), sizeof(port));
    CThread::Sleep(10);
  }
  EXPECT_TRUE(m_log.Has("WARN Msg head len error")) << "still deaf";
  EXPECT_EQ(m_log.Count(told), 1);
  EXPECT_EQ(m_log.Count(taken), 1);
  CUDPSocket thief(nullptr, 0);
  ASSERT_EQ(thief.Open(), 0);
  thief.ReuseAddr();
  EXPECT_EQ(thief.Bind(kLoopback, ntohs(port.sin_port)), EADDRINUSE);
  close(peer);
  pTask->Signal(CTask::kKillEvent);
}

TEST_F(Commands, WithoutADescriptorItSaysThatItIsDeaf) {
  g_bNoSockets = true;
  m_pTask->Signal(CTask::kStartEvent);
  const std::string told =
      "ERROR cannot open the control socket: Too many open files; deaf until started with more "
      "files (ulimit -n)";
  for (int turn = 0; turn < 1000 && !m_log.Has(told); ++turn) CThread::Sleep(10);
  g_bNoSockets = false;
  EXPECT_TRUE(m_log.Has(told));
}

TEST(TimeoutList, IsEmptiedOnceAfterItsStartAndNeverBefore) {
  StartFrameworkOnce();
  auto* const pList = new CTimeoutList;
  CTimeoutList::Insert(1);
  CTimeoutList::Insert(2);
  EXPECT_EQ(CTimeoutList::PendingCount(), 2u);
  pList->Signal(CTask::kStartEvent);
  for (int turn = 0; turn < 1000 && CTimeoutList::PendingCount() != 0; ++turn) CThread::Sleep(10);
  EXPECT_EQ(CTimeoutList::PendingCount(), 0u);
  pList->Signal(CTask::kKillEvent);
}

}  // namespace
