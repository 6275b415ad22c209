// The process: start in a fixed order, idle until SIGINT or SIGTERM, stop in a fixed order.

#include <fcntl.h>
#include <getopt.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "daemon/common/bus.h"
#include "daemon/modules.h"
#include "daemon/pidfile.h"
#include "daemon/state/document.h"
#include "daemon/state/server.h"
#include "endpoint/osdcommutask.h"
#include "endpoint/timeoutlist.h"
#include "framework/assert.h"
#include "framework/clock.h"
#include "framework/console.h"
#include "framework/ev.h"
#include "framework/eventcontext.h"
#include "framework/idletask.h"
#include "framework/log.h"
#include "framework/taskpool.h"
#include "framework/timeouttask.h"
#include "framework/watchdog.h"
#include "platform/platform.h"

// For modules that an integrator builds into the process: the ways to the endpoint, to notify peers
// (SendNotifyMsg), and to the timeout list, to start it. Set once they exist, never deleted from
// here. Until then only the end of the process uses the first, and nothing the second.
COsdCommuTask* g_pOsdCommuTask = nullptr;
CTimeoutList* g_pTimeoutList = nullptr;

namespace {

constexpr UInt32 kThreadStackBytes = 0x180000;
constexpr UInt32 kTaskThreads = 4;
constexpr int kEndsSupervisor = 255;
constexpr const char* kLocalAddr = "127.0.0.1";
constexpr const char* kPidFile = "/var/run/osd.pid";
constexpr const char* kStateSocket = "/var/run/osd.sock";

// Goes from 1 to 0 once; lock-free, so the signal handler may write it.
std::atomic<SInt32> g_s32Run{1};
Bool g_bSupervised = false;  // this is a child of the supervisor
CStateServer* g_pStateServer = nullptr;
SInt32 g_s32Force = 0;  // set by -f, which start scripts give; nothing reads it

void PrintUsage(const char* i_pProgram) {
  std::printf("%s [options]\n", i_pProgram);
  std::puts("    -h --help           show this help");
  std::puts("    -D --daemonize      Daemonize after startup");
  std::fflush(stdout);
}

// The supervisor of a second instance would start it again and again, and each start would empty
// the first one's pid file; it is therefore told here, where its caller still sees it.
void Daemonize(const char* i_pProgram) {
  if (IsPidFileLocked(SystemPath(kPidFile).c_str())) std::exit(1);
  if (daemon(0, 0) != 0) std::perror("osdsrv: cannot detach, staying in the foreground");
  CreateWatchdog(i_pProgram);
  g_bSupervised = true;
}

// Never prevents the start: an unknown option prints the usage and the daemon comes up.
void ParseOptions(int argc, char** argv) {
  static const option s_options[] = {{"help", no_argument, nullptr, 'h'},
                                     {"daemonize", no_argument, nullptr, 'D'},
                                     {"force", no_argument, nullptr, 'f'},
                                     {nullptr, 0, nullptr, 0}};
  for (int opt; (opt = getopt_long(argc, argv, "hDf", s_options, nullptr)) != -1;) {
    switch (opt) {
      case 'h':
        PrintUsage(argv[0]);
        break;
      case 'D':
        Daemonize(argv[0]);
        break;
      case 'f':
        g_s32Force = 1;
        break;
      default:
        PrintUsage(argv[0]);
        return;
    }
  }
}

// Of those that the launcher closed, so that no other file gets their numbers and our output.
void OpenStandardStreams() {
  SInt32 s32Fd = open("/dev/null", O_RDWR);
  while (s32Fd >= 0 && s32Fd <= STDERR_FILENO) s32Fd = open("/dev/null", O_RDWR);
  if (s32Fd >= 0) close(s32Fd);
}

void StartFramework() {
  // Records are made on one thread and freed on another: arenas of their own would keep for each
  // thread what was ever under way at once.
  mallopt(M_ARENA_MAX, 1);
  CThread::Initialize(kThreadStackBytes);
  CLog::Start();
  CTaskThreadPool::AddThreads(kTaskThreads);
  CTimeoutTask::Initialize(100);
  select_startevents();
  g_pEventThread = new CEventThread;  // never deleted: it serves until the process ends
  g_pEventThread->Start();
  CIdleTask::Initialize();
}

void StartModules() {
  g_objTimer.Start();
  auto* const pTask = new COsdCommuTask(kLocalAddr, kDaemonPort);  // deletes itself
  pTask->Signal(CTask::kStartEvent);
  CThread::Sleep(300);
  g_pOsdCommuTask = pTask;
  g_objOsdHifb.Start();
  g_pTimeoutList = new CTimeoutList;  // lives until the process ends
}

#ifdef OSD_SOFT_SCREEN
// Through the door that the timer service comes through.
void PassSeconds(UInt32 i_u32Seconds) {
  const T_ModuleMsg tick = MakeMessage(kSyncMsg, kModuleTimer, kModuleOsd, T_TimerExpiry{});
  for (; i_u32Seconds > 0; --i_u32Seconds) SendSyncAndAsyncMsg(&tick, 0);
}
#else
constexpr void (*PassSeconds)(UInt32) = nullptr;  // on the chip time passes by itself alone
#endif

// Last, when there is something to tell of. Never destroyed: threads that nobody stops may still
// note a change.
void StartTelling() {
  const SInt64 s64Started = CTime::Milliseconds();  // here: a supervisor may have run for weeks
  g_pStateServer = new CStateServer(
      {[=] { return StateDocument(g_objOsdHifb.State(), g_objOsdHifb.LongestQueue(), s64Started); },
       PassSeconds});
  g_pStateServer->Open(SystemPath(kStateSocket));
  g_objLedger.SetListener([] { g_pStateServer->Changed(); });
}

void StopModules() {
  LOG_ERROR("osdsrv stop run");
  g_pStateServer->Stop();
  g_objOsdHifb.Stop();
  g_objTimer.Stop();
  g_pOsdCommuTask->Signal(CTask::kKillEvent);
  CTaskThreadPool::RemoveThreads();
  CLog::Shutdown();
}

}  // namespace

// Outside the namespace: the assertion prints the signature.
void HandleSig(SInt32 i_s32Signal) {
  OSD_ASSERT(i_s32Signal == SIGINT || i_s32Signal == SIGTERM, "FALSE", "main", __LINE__);
  g_s32Run = 0;
  PrintAtOnce(STDOUT_FILENO, "\033[0;31mprogram will exit now!\033[0;39m\n");
}

int main(int argc, char** argv) {
  // A reader that is gone and a file at its limit are told by the write that fails.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  OpenStandardStreams();
  ParseOptions(argc, argv);
  sleep(2);  // the rest of the device comes up meanwhile
  const std::string strLogConf = SystemPath("/usr/local/etc/ztosdlog.conf");
  Bool bLogging = CLog::Configure(strLogConf.c_str());
  const std::string strPidFile = SystemPath(kPidFile);
  // With any other code the supervisor would try for ever, and empty the other instance's pid file
  // each time.
  if (g_bSupervised && !AwaitPidFile(strPidFile.c_str())) return kEndsSupervisor;
  if (!AcquirePidFile(strPidFile.c_str())) return 1;
  std::signal(SIGINT, HandleSig);
  std::signal(SIGTERM, HandleSig);
  std::signal(SIGCHLD, SIG_DFL);  // a launcher that ignores it would hide the ends of children
  StartFramework();
  StartModules();
  StartTelling();
  while (g_s32Run != 0) {
    CThread::Sleep(2000);
    if (!bLogging) bLogging = CLog::Configure(strLogConf.c_str());  // it may have come by now
    CLog::FollowFiles();
  }
  StopModules();
  return 0;
}
