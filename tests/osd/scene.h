// A renderer on the software screen, with the bus played by the test.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <optional>

#include "common/osd/cargo.h"
#include "common/osd/osd_hifb.h"
#include "daemon/common/timer_commands.h"
#include "platform/records.h"
#include "platform/soft/faults.h"
#include "tests/log_capture.h"
#include "tests/oracle.h"

// What the renderer sent over the bus, and what it is answered.
extern std::vector<T_ModuleMsg> g_vecSent;
extern UInt32 g_u32Answer;
// Called for each message of these, when it is set.
extern std::function<void()> g_onSent;
// What the picture worker sent to the renderer.
extern CMsgQueue g_objResults;

// A text in white on grey, 16 px on the usual layer; all its fields count as given.
T_DispRecord Text(UInt32 i_u32Seq, const std::string& i_text, UInt32 i_u32Position = 1,
                  UInt32 i_u32X = 0, UInt32 i_u32Y = 0);
void AddLine(T_DispRecord& io_record, const std::string& i_text);

// Whether layer i_digit shows these items and nothing else.
testing::AssertionResult Shows(const std::vector<T_DispRecord>& i_items, char i_digit = '0',
                               UInt32 i_u32W = 960, UInt32 i_u32H = 540);
// How often the layer has been refreshed, in the low bits.
int Refreshes(char i_digit);

class Renderer : public testing::Test {
 protected:
  Renderer() {
    g_vecSent.clear();
    g_u32Answer = 1;
    g_onSent = nullptr;
    m_osd.emplace();
  }
  ~Renderer() override {
    SoftFailNothing();
    Stop();
  }

  void Stop() {
    m_osd->Stop();
    for (T_ModuleMsg late; g_objResults.Pop(1, &late) != 0;) Handle(late);
  }
  UInt32 Send(const T_ModuleMsg& i_msg) { return m_osd->HandleSyncMsg(&i_msg, 0); }
  // Synchronous: what it carries stays the caller's.
  template <class T>
  UInt32 Send(const T& i_command) {
    return Send(MakeMessage(kSyncMsg, kModuleEndpoint, kModuleOsd, i_command));
  }
  // As the renderer's thread does with a message that it popped.
  void Handle(const T_ModuleMsg& i_msg) {
    const T_Cargo cargo = TakeOver(i_msg);
    Send(i_msg);
  }
  UInt32 Init(SInt32 i_s32VoDev = 0, SInt32 i_s32Layer = 0, UInt32 i_u32W = 960,
              UInt32 i_u32H = 540) {
    return Send(T_OsdInit{{i_s32VoDev, i_s32Layer, 3, 4, i_u32W, i_u32H}});
  }
  UInt32 DeInit(SInt32 i_s32VoDev = 0) { return Send(T_OsdDeInit{{i_s32VoDev, 0, 0, 0, 0, 0}}); }
  template <class T = T_OsdTextShow>
  UInt32 Show(T_DispRecord i_record) {
    return Send(T{&i_record});
  }
  // The picture worker's next result. Its queue may wake for nothing; the test's own limit of time
  // ends the wait.
  static T_ModuleMsg NextResult() {
    T_ModuleMsg result;
    while (g_objResults.Pop(20000, &result) == 0) continue;
    return result;
  }
  // Hands i_count of them over.
  void Deliver(int i_count) {
    for (; i_count > 0; --i_count) Handle(NextResult());
  }
  void Tick(int i_count) {
    while (i_count-- > 0) Send(T_TimerExpiry{});
  }
  // Deletes; the size that is told then.
  std::string SizeAfterDelete(UInt32 i_u32Seq) {
    EXPECT_EQ(Send(T_OsdDelete{static_cast<UInt16>(i_u32Seq)}), 1u);
    return m_log.Take().back();
  }

  CLogCapture m_log;
  std::optional<COsdHifb> m_osd;
};
