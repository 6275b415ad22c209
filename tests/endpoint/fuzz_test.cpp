// Any bytes at all, through the parser, the trace, the dispatch and the packing, in one process so
// that the sanitizers see every access. OSD_FUZZ_SECONDS sets how long it runs (2), OSD_FUZZ_SEED
// repeats a run.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <random>

#include "common/osd/commands.h"
#include "common/osd/disp_record.h"
#include "daemon/common/bus.h"
#include "endpoint/osdcommutask.h"
#include "endpoint/replies.h"
#include "framework/clock.h"
#include "framework/taskpool.h"

// A renderer that takes everything and frees what it takes.
UInt32 SendSyncAndAsyncMsg(const T_ModuleMsg* i_pMsg, UInt32) {
  if (i_pMsg->m_u32MsgNo == T_OsdTextShow::kMsgNo || i_pMsg->m_u32MsgNo == T_OsdIconShow::kMsgNo)
    delete i_pMsg->Read<T_OsdTextShow>().m_pRecord;
  if (i_pMsg->m_u32MsgNo == T_OsdPicture::kMsgNo) delete[] i_pMsg->Read<T_OsdPicture>().m_pPath;
  return 1;
}
Bool HasRoomFor(UInt32, CTask*) { return true; }

namespace {

unsigned long FromEnvironment(const char* i_pName, unsigned long i_default) {
  const char* const pValue = std::getenv(i_pName);
  return pValue != nullptr ? std::strtoul(pValue, nullptr, 10) : i_default;
}

using T_Random = std::independent_bits_engine<std::mt19937, 32, UInt32>;

// Mostly a good header with a random body, so that the fuzz gets past the first checks.
UInt32 MakeDatagram(T_Random& io_random, UInt8* o_pBuf) {
  static constexpr UInt32 kLengths[] = {0, 17, 18, 19, 60, 200, 4095, kMaxDatagram};
  const UInt32 u32Len = kLengths[io_random() % std::size(kLengths)];
  for (UInt32 i = 0; i < u32Len; i += 4) {
    const UInt32 u32Word = io_random() % 3 ? io_random() : io_random() % 64;
    std::memcpy(o_pBuf + i, &u32Word, 4);
  }
  const T_CatalogueRow& row = kCatalogue[io_random() % std::size(kCatalogue)];
  T_MsgHeadError head;
  head.m_stHeader = {kMsgMagic, 0, {'C', 'M', 'D'}, io_random() % 4, row.m_u32Id, 0};
  head.m_stHeader.m_u16ParamLen =
      static_cast<UInt16>(row.m_u32RequiredLen == kAnyLength ? io_random() : row.m_u32RequiredLen);
  if (u32Len >= kMsgHeaderSize && io_random() % 8) {
    CWireWriter writer(o_pBuf, kMsgHeaderSize);
    EncodeFields(writer, head.m_stHeader);
  }
  if (u32Len > 0 && io_random() % 8 == 0) o_pBuf[io_random() % std::min(u32Len, 40u)] ^= 1;
  return u32Len;
}

TEST(Fuzz, AnyBytesAreHandledOrRefused) {
  CThread::Initialize(0x180000);
  CTaskThreadPool::AddThreads(1);
  CTimeoutTask::Initialize(100);
  auto* const pTask = new COsdCommuTask("127.0.0.1", 0);
  const auto seed = FromEnvironment("OSD_FUZZ_SEED", std::random_device{}());
  const auto seconds = static_cast<SInt64>(FromEnvironment("OSD_FUZZ_SECONDS", 2));
  SCOPED_TRACE("OSD_FUZZ_SEED=" + std::to_string(seed));
  T_Random random(static_cast<T_Random::result_type>(seed));
  std::array<UInt32, 10> aResults = {};
  T_MsgSeq seq;
  for (const SInt64 end = CTime::Milliseconds() + seconds * 1000; CTime::Milliseconds() < end;) {
    UInt8 aWhole[kMaxDatagram];
    const UInt32 u32Len = MakeDatagram(random, aWhole);
    const auto pDatagram = std::make_unique<UInt8[]>(u32Len);  // a read beyond it is seen
    std::memcpy(pDatagram.get(), aWhole, u32Len);
    seq.m_u16RemotePort = kPeers[random() % std::size(kPeers)].m_u16Port;
    MsgId eId = RES_MSG_ACK;
    T_MsgParams params;
    const CmdErr eResult = CAPIParser::MsgParse(pDatagram.get(), u32Len, &seq, &eId, &params);
    ++aResults.at(eResult);
    if (eResult == kCmdSuccess) {
      CAPIParser::PrintMsg(eId, seq.m_u16RemotePort, &params);
      pTask->ProcessOsdMsg(eId, 0x7F000001, seq.m_u16RemotePort, &params);
    } else if (params.m_pHeadError) {
      const T_Received refused{params.m_pHeadError->m_stHeader, 0x7F000001, seq.m_u16RemotePort};
      RefuseDatagram(pTask->Outgoing(), eResult, refused, 0);
    }
    UInt8 aBuf[kMaxDatagram + 1];
    UInt32 u32Packed = 0, u32Addr = 0;
    UInt16 u16Port = 0;
    do CAPIParser::MsgPack(&params, aBuf, &u32Packed, &u32Addr, &u16Port);
    while (pTask->Outgoing().Take(&params));
    ASSERT_LE(u32Packed, kMaxDatagram);
  }
  for (UInt32 code = 0; code < std::size(aResults); ++code)
    EXPECT_GT(aResults[code], 0u) << "the fuzz never reached result " << code;
  CTaskThreadPool::RemoveThreads();
  delete pTask;
}

}  // namespace
