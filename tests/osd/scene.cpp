#include "tests/osd/scene.h"

#include <filesystem>

#include "daemon/common/bus.h"

std::vector<T_ModuleMsg> g_vecSent;
UInt32 g_u32Answer = 1;
std::function<void()> g_onSent;
CMsgQueue g_objResults;

// The picture worker's results may come at any time, so they wait for their test.
UInt32 SendSyncAndAsyncMsg(const T_ModuleMsg* i_pMsg, UInt32) {
  if (i_pMsg->m_u32Dst == kModuleOsd) return g_objResults.Push(i_pMsg);
  g_vecSent.push_back(*i_pMsg);
  if (g_onSent) g_onSent();
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

void AddLine(T_DispRecord& io_record, const std::string& i_text) {
  i_text.copy(io_record.m_aText[io_record.m_u16Line++], T_DispRecord::kLineChars);
}

T_DispRecord Text(UInt32 i_u32Seq, const std::string& i_text, UInt32 i_u32Position, UInt32 i_u32X,
                  UInt32 i_u32Y) {
  T_DispRecord record{};
  record.m_u32Source = 9;
  record.m_u32Mask = 0x1F;
  record.m_u16Seq = static_cast<UInt16>(i_u32Seq);
  record.m_u16Time = T_DispRecord::kTimedSeconds;
  record.m_u32Position = i_u32Position;
  record.m_u32X = i_u32X;
  record.m_u32Y = i_u32Y;
  AddLine(record, i_text);
  record.m_u16FontSize = 64;
  record.m_u32TextColour = 0xFFFFFFFF;
  record.m_u32Background = 0x3F616161;
  return record;
}

testing::AssertionResult Shows(const std::vector<T_DispRecord>& i_items, char i_digit,
                               UInt32 i_u32W, UInt32 i_u32H) {
  T_Picture picture{3, 4, i_u32W, i_u32H};
  for (const T_DispRecord& item : i_items)
    DrawItem(item, SystemPath("/usr/share/fonts/monos.ttf"), &picture);
  return IsShown(picture, SystemPath("/dev/fb") + i_digit);
}

int Refreshes(char i_digit) {
  return static_cast<UInt8>(ReadFile(SystemPath("/dev/fb") + i_digit).at(48)) / 2;
}
