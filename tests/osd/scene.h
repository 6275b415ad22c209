// A renderer on the software screen, with the bus played by the test.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "common/osd/commands.h"
#include "common/osd/osd_hifb.h"
#include "platform/records.h"
#include "platform/soft/faults.h"
#include "platform/soft/layer_file.h"
#include "tests/log_capture.h"

// What the renderer sent over the bus, and what it is answered.
extern std::vector<T_ModuleMsg> g_vecSent;
extern UInt32 g_u32Answer;

constexpr UInt32 kW = 960;
constexpr UInt32 kH = 540;

// A text in white on grey, 16 px on kW; all its fields count as given.
T_DispRecord Text(UInt32 i_u32Seq, const std::string& i_text, UInt32 i_u32Position = 1,
                  UInt32 i_u32X = 0, UInt32 i_u32Y = 0);
void PutLine(T_DispRecord& io_record, UInt32 i_u32Line, const std::string& i_text);
T_ModuleMsg Message(UInt32 i_u32MsgNo, const std::vector<UInt32>& i_words = {});
T_ModuleMsg RecordMessage(UInt32 i_u32MsgNo, T_DispRecord* i_pRecord, UInt32 i_u32Type);

// A second opinion on what texts look like: pixel by pixel, straight from the font library.
class COracle {
 public:
  explicit COracle(UInt32 i_u32W = kW, UInt32 i_u32H = kH)
      : m_pixels(i_u32W * i_u32H), m_s64W(i_u32W), m_s64H(i_u32H) {}
  // Lines that do not fit are left out.
  COracle& Draw(const T_DispRecord& i_item);
  // Whether that is what layer i_digit shows now.
  Bool IsShown(char i_digit = '0') const;

 private:
  std::vector<UInt32> m_pixels;
  SInt64 m_s64W;
  SInt64 m_s64H;
};

T_LayerHeader Header(char i_digit = '0');

class Renderer : public testing::Test {
 protected:
  Renderer() {
    g_vecSent.clear();
    g_u32Answer = 1;
    m_osd.emplace();
  }
  ~Renderer() override { SoftFailNothing(); }

  UInt32 Send(const T_ModuleMsg& i_msg) { return m_osd->HandleSyncMsg(&i_msg, 0); }
  UInt32 Init(UInt32 i_u32VoDev = 0, UInt32 i_u32Layer = 0, UInt32 i_u32W = kW,
              UInt32 i_u32H = kH) {
    return Send(Message(kOsdInit, {i_u32VoDev, i_u32Layer, 3, 4, i_u32W, i_u32H}));
  }
  UInt32 DeInit(UInt32 i_u32VoDev = 0) { return Send(Message(kOsdDeInit, {i_u32VoDev})); }
  // Synchronous: the record stays this frame's.
  UInt32 Show(T_DispRecord i_record, UInt32 i_u32MsgNo = kOsdTextShow) {
    return Send(RecordMessage(i_u32MsgNo, &i_record, kSyncMsg));
  }
  UInt32 Delete(UInt32 i_u32Seq) { return Send(Message(kOsdDelete, {i_u32Seq})); }
  UInt32 Cancel(UInt32 i_u32Seq) { return Send(Message(kOsdTextCancel, {i_u32Seq << 16})); }
  void Tick(int i_count = 1) {
    while (i_count-- > 0) Send(Message(kMsgTimer));
  }

  CLogCapture m_log;
  std::optional<COsdHifb> m_osd;
};
