#include "tests/osd/scene.h"

namespace {

class Thread : public Renderer {
 protected:
  UInt32 Push(T_ModuleMsg i_msg) {
    i_msg.m_u32MsgType = kAsyncMsg;
    return m_osd->PushMsg(&i_msg);
  }
  UInt32 PushNew(UInt32 i_u32MsgNo, UInt32 i_u32Seq) {
    return Push(RecordMessage(i_u32MsgNo, new T_DispRecord(Text(i_u32Seq, "x")), kAsyncMsg));
  }
  // Whatever was pushed before has been handled when the thread has told this one.
  void Drain() {
    ASSERT_EQ(Push(Message(0x5FF)), 1u);
    while (!m_log.Has("ERROR unkown handle message <0x5ff>")) CThread::Sleep(1);
  }
};

TEST_F(Thread, UnknownMessagesAreToldAndTheNoOpsDoNothing) {
  for (const UInt32 u32MsgNo : {0u, 2u, 3u, 0x50Du}) EXPECT_EQ(Send(Message(u32MsgNo)), 1u);
  EXPECT_THAT(m_log.Take(), testing::ElementsAre("INFO -Osd_hifb_msg<0>", "INFO -Osd_hifb_msg<0x2>",
                                                 "INFO -Osd_hifb_msg<0x50d>",
                                                 "ERROR unkown handle message <0x50d>"));
  EXPECT_EQ(m_osd->HandleSyncMsg(nullptr, 0), 0u);
}

// Leaks and double frees show under the address sanitizer.
TEST_F(Thread, AsynchronousRecordsAreFreedWhateverBecomesOfThem) {
  m_osd->Start();
  for (UInt32 number = 0; number < 65; ++number) EXPECT_EQ(Show(Text(0x100 + number, "x")), 1u);
  EXPECT_EQ(Show(Text(0x100, "x")), 0u) << "a full list refuses updates, too";
  EXPECT_EQ(PushNew(kOsdCancelById, 0x400) + PushNew(kOsdTextShow, 0x400), 2u);
  EXPECT_EQ(PushNew(kOsdIconShow, 0x201) + PushNew(kOsdShowById, 0x400), 2u);
  EXPECT_EQ(Push(Message(kOsdDelete, {0x1FF})) + PushNew(kOsdTextShow, 0x400), 2u);
  EXPECT_EQ(PushNew(kOsdIconShow, 0x201) + Push(Message(kOsdTextShow)), 2u);
  T_ModuleMsg picture = Message(kOsdPicture);
  picture.Put<char*>(kPicturePathOffset, new char[2]{'p', '\0'});
  EXPECT_EQ(Push(picture), 1u);
  Drain();
  EXPECT_EQ(m_log.Count("ERROR too many osd info to disp, current size<65>"), 4);
  EXPECT_TRUE(m_log.Has("ERROR osd message <0x503> without a display record"));
  EXPECT_TRUE(m_log.Has("WARN pictures are not built in: <x> is not drawn"));
  EXPECT_TRUE(m_log.Has("WARN pictures are not built in: <p> is not drawn"));
  m_log.Take();
  m_osd->Stop();
  Delete(0xFFFF);
  EXPECT_EQ(m_log.Count("INFO m_listDispInfo.size=0"), 2) << "the thread's end empties the list";
}

TEST_F(Thread, RecordsThatWereNeverHandledAreFreedToo) {
  for (int i = 0; i < 57; ++i) EXPECT_EQ(PushNew(kOsdTextShow, 0x101), 1u);
  EXPECT_EQ(Push(Message(kOsdTextShow)), 0u);
  EXPECT_TRUE(m_log.Has("ERROR COsdHifb pushmsg fail"));
}

TEST_F(Thread, TextsNeedNoTerminator) {
  Init();
  T_DispRecord record = Text(0x101, "");
  std::fill_n(record.m_aText[0], sizeof(record.m_aText), 'x');
  record.m_u16Line = 34;
  record.m_u16FontSize = 32;
  EXPECT_EQ(Show(record), 1u);
  record.m_u16Seq = 0x201;  // an icon's path may fill all lines
  EXPECT_EQ(Show(record, kOsdIconShow), 1u);
  for (auto& line : record.m_aText) line[64] = '\0';
  EXPECT_TRUE(COracle().Draw(record).IsShown());
}

}  // namespace
