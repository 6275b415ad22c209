#include "tests/osd/scene.h"

#include <cstdlib>
#include <filesystem>

#include "daemon/common/bus.h"

std::vector<T_ModuleMsg> g_vecSent;
UInt32 g_u32Answer = 1;

UInt32 SendSyncAndAsyncMsg(const T_ModuleMsg* i_pMsg, UInt32) {
  g_vecSent.push_back(*i_pMsg);
  return g_u32Answer;
}

namespace {

// Named before any test asks for a path: the device root is read once.
class CDeviceRoot : public testing::Environment {
 public:
  void SetUp() override {
    char aFolder[] = "/tmp/osd-renderer.XXXXXX";
    ASSERT_NE(mkdtemp(aFolder), nullptr);
    ASSERT_EQ(setenv("OSD_ROOT", aFolder, 1), 0);
    ASSERT_EQ(std::system((OSD_DEVICE_ROOT_TOOL " " + SystemPath("")).c_str()), 0);
    CThread::Initialize(0x180000);
  }
  void TearDown() override { std::filesystem::remove_all(SystemPath("")); }
};

const testing::Environment* const s_pDeviceRoot =
    testing::AddGlobalTestEnvironment(new CDeviceRoot);

}  // namespace

void PutLine(T_DispRecord& io_record, UInt32 i_u32Line, const std::string& i_text) {
  char* const pLine = io_record.m_aText[i_u32Line];
  pLine[i_text.copy(pLine, T_DispRecord::kLineChars)] = '\0';
}

T_DispRecord Text(UInt32 i_u32Seq, const std::string& i_text, UInt32 i_u32Position, UInt32 i_u32X,
                  UInt32 i_u32Y) {
  T_DispRecord record{};
  record.m_u32Source = 9;
  record.m_u32Mask = kMaskPosition | kMaskFontSize | kMaskTextColour | kMaskBackground | kMaskText;
  record.m_u16Seq = static_cast<UInt16>(i_u32Seq);
  record.m_u16Time = T_DispRecord::kTimedSeconds;
  record.m_u32Position = i_u32Position;
  record.m_u32X = i_u32X;
  record.m_u32Y = i_u32Y;
  record.m_u16Line = 1;
  PutLine(record, 0, i_text);
  record.m_u16FontSize = 64;
  record.m_u32TextColour = 0xFFFFFFFF;
  record.m_u32Background = 0x3F616161;
  return record;
}

T_ModuleMsg Message(UInt32 i_u32MsgNo, const std::vector<UInt32>& i_words) {
  T_ModuleMsg msg{kSyncMsg, kModuleEndpoint, kModuleOsd, i_u32MsgNo, {}};
  for (UInt32 word = 0; word < i_words.size(); ++word) msg.PutWord(word, i_words[word]);
  return msg;
}

T_ModuleMsg RecordMessage(UInt32 i_u32MsgNo, T_DispRecord* i_pRecord, UInt32 i_u32Type) {
  T_ModuleMsg msg = Message(i_u32MsgNo);
  msg.m_u32MsgType = i_u32Type;
  msg.PutBlock(i_pRecord);
  return msg;
}
