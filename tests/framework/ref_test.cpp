#include "framework/ref.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace {

CPLString View(std::string& i_refBytes) {
  return {i_refBytes.data(), static_cast<UInt32>(i_refBytes.size())};
}

TEST(RefTable, HashTakesFiveUnsignedBytesTimesTheLength) {
  std::string strFour("\x01\x02\x03\xFF"), strEleven("abcdefghijk");
  CPLString objFour = View(strFour), objEleven = View(strEleven);
  EXPECT_EQ(CRefTableUtils::HashString(&objFour), 4U * (1 + 2 + 3 + 255 + 255));
  EXPECT_EQ(CRefTableUtils::HashString(&objEleven), 11U * ('a' + 'c' + 'e' + 'g' + 'k'));
}

TEST(RefTable, EqualKeyIsRefusedAndTheFirstStays) {
  std::string strKey("\0\x01\x02\x03", 4), strSame(strKey), strOther("\0\x02\x01\x03", 4);
  CPLString objSame = View(strSame), objOther = View(strOther);
  CRef objFirst(View(strKey), nullptr), objSecond(objSame, nullptr), objThird(objOther, nullptr);
  CRefTable objTable;
  EXPECT_EQ(objTable.Register(&objFirst), 0);
  EXPECT_EQ(objTable.Register(&objSecond), 1);
  EXPECT_EQ(objTable.Resolve(&objOther), nullptr);  // of the same hash
  EXPECT_EQ(objTable.Register(&objThird), 0);
  EXPECT_EQ(objTable.RegisterOrResolve(&objSecond), &objFirst);
  objTable.Release(&objFirst);
  objTable.Swap(&objSecond);
  EXPECT_EQ(objTable.Resolve(&objSame), &objSecond);
  objTable.UnRegister(&objThird);
  EXPECT_EQ(objTable.RegisterOrResolve(&objThird), nullptr);
  EXPECT_EQ(objTable.Resolve(&objOther), &objThird);
}

TEST(RefTable, UnRegisterWaitsForTheLastRelease) {
  std::string strKey("key");
  CPLString objKey = View(strKey);
  CRefTable objTable;
  for (int round = 0; round < 200; ++round) {
    auto pRef = std::make_unique<CRef>(objKey, nullptr);
    std::atomic<Bool> bUsed{true}, bEarly{false};
    objTable.Register(pRef.get());
    CRef* const pHeld = objTable.Resolve(&objKey);
    std::thread owner([&] {
      objTable.UnRegister(pRef.get());
      bEarly = bUsed.load();
      pRef.reset();
    });
    std::this_thread::yield();
    bUsed = false;
    objTable.Release(pHeld);
    owner.join();
    ASSERT_FALSE(bEarly);
  }
}

}  // namespace
