// A renderer on the software screen, with the bus played by the test.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <optional>

#include "common/osd/commands.h"
#include "common/osd/osd_hifb.h"
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
T_ModuleMsg Message(UInt32 i_u32MsgNo, const std::vector<UInt32>& i_words = {});

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
    for (T_ModuleMsg late; g_objResults.Pop(1, &late) != 0;) Send(late);
  }
  UInt32 Send(const T_ModuleMsg& i_msg) { return m_osd->HandleSyncMsg(&i_msg, 0); }
  UInt32 Init(UInt32 i_u32VoDev = 0, UInt32 i_u32Layer = 0, UInt32 i_u32W = 960,
              UInt32 i_u32H = 540) {
    return Send(Message(kOsdInit, {i_u32VoDev, i_u32Layer, 3, 4, i_u32W, i_u32H}));
  }
  UInt32 DeInit(UInt32 i_u32VoDev = 0) { return Send(Message(kOsdDeInit, {i_u32VoDev})); }
  // Synchronous: the record stays this frame's.
  UInt32 Show(T_DispRecord i_record, UInt32 i_u32MsgNo = kOsdTextShow) {
    T_ModuleMsg msg = Message(i_u32MsgNo);
    msg.PutBlock(&i_record);
    return Send(msg);
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
    for (; i_count > 0; --i_count) Send(NextResult());
  }
  void Tick(int i_count) {
    while (i_count-- > 0) Send(Message(kMsgTimer));
  }
  // Deletes; the size that is told then.
  std::string SizeAfterDelete(UInt32 i_u32Seq) {
    EXPECT_EQ(Send(Message(kOsdDelete, {i_u32Seq})), 1u);
    return m_log.Take().back();
  }

  CLogCapture m_log;
  std::optional<COsdHifb> m_osd;
};
