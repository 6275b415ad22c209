#include "framework/ref.h"

#include <cerrno>
#include <cstring>

#include "framework/assert.h"

static_assert(EPERM == 1, "what Register returns for a key that is taken");

Bool CPLString::Equal(const CPLString& i_refOther) const {
  return m_u32Len == i_refOther.m_u32Len && std::memcmp(m_pPtr, i_refOther.m_pPtr, m_u32Len) == 0;
}

UInt32 CRefTableUtils::HashString(CPLString* i_pPLString) {
  OSD_ASSERT(i_pPLString != nullptr, "i_pPLString != NULL", "ref", 8);
  OSD_ASSERT(i_pPLString->m_pPtr != nullptr, "i_pPLString->m_pPtr != NULL", "ref", 9);
  OSD_ASSERT(i_pPLString->m_u32Len > 0, "i_pPLString->m_u32Len > 0", "ref", 10);
  const UInt32 u32Len = i_pPLString->m_u32Len;
  const UInt32 u32Quarter = u32Len / 4;
  UInt32 u32Sum = 0;
  for (const UInt32 u32At : {0U, u32Quarter, 2 * u32Quarter, 3 * u32Quarter, u32Len - 1})
    u32Sum += static_cast<UInt8>(i_pPLString->m_pPtr[u32At]);
  return u32Len * u32Sum;
}

// Hashes i_pRef's key, which stays with it while it is registered.
CRef* CRefTable::FindEqual(CRef* i_pRef) {
  i_pRef->m_u32HashValue = CRefTableUtils::HashString(&i_pRef->m_objString);
  return m_objTable.Find(CRefKey(i_pRef));
}

OS_Error CRefTable::Register(CRef* i_pRef) {
  OSD_ASSERT(i_pRef != nullptr, "i_pRef != NULL", "ref", 29);
  CMutexLocker objLocker(&m_objMutex);
  OSD_ASSERT(i_pRef->m_u32RefCount == 0, "i_pRef->m_u32RefCount == 0", "ref", 37);
  OSD_ASSERT(i_pRef->m_objString.m_pPtr != nullptr, "i_pRef->m_objString.m_pPtr != NULL", "ref",
             38);
  OSD_ASSERT(i_pRef->m_objString.m_u32Len != 0, "i_pRef->m_objString.m_u32Len != 0", "ref", 39);
  if (FindEqual(i_pRef) != nullptr) return EPERM;
  m_objTable.Add(i_pRef);
  return OS_NoErr;
}

CRef* CRefTable::RegisterOrResolve(CRef* i_pRef) {
  OSD_ASSERT(i_pRef != nullptr, "i_pRef != NULL", "ref", __LINE__);
  CMutexLocker objLocker(&m_objMutex);
  OSD_ASSERT(i_pRef->m_u32RefCount == 0, "i_pRef->m_u32RefCount == 0", "ref", __LINE__);
  CRef* const pExisting = FindEqual(i_pRef);
  if (pExisting != nullptr)
    ++pExisting->m_u32RefCount;
  else
    m_objTable.Add(i_pRef);
  return pExisting;
}

CRef* CRefTable::Resolve(CPLString* i_refPLString) {
  OSD_ASSERT(i_refPLString != nullptr, "i_refPLString != NULL", "ref", 132);
  const CRefKey objKey(i_refPLString);
  CMutexLocker objLocker(&m_objMutex);
  CRef* const i_pRef = m_objTable.Find(objKey);
  if (i_pRef == nullptr) return nullptr;
  ++i_pRef->m_u32RefCount;
  OSD_ASSERT(i_pRef->m_u32RefCount > 0, "i_pRef->m_u32RefCount > 0", "ref", 141);
  return i_pRef;
}

void CRefTable::Release(CRef* i_pRef) {
  OSD_ASSERT(i_pRef != nullptr, "i_pRef != NULL", "ref", 148);
  CMutexLocker objLocker(&m_objMutex);
  --i_pRef->m_u32RefCount;
  OSD_ASSERT(i_pRef->m_u32RefCount < 1048576, "i_pRef->m_u32RefCount < 1048576L", "ref", 154);
  // Under the mutex: once it is free, whoever waits in UnRegister may destroy the reference.
  i_pRef->m_objCond.Signal();
}

void CRefTable::UnRegister(CRef* i_pRef, UInt32 i_u32RefCount) {
  OSD_ASSERT(i_pRef != nullptr, "i_pRef != NULL", "ref", 93);
  CMutexLocker objLocker(&m_objMutex);
  while (i_pRef->m_u32RefCount > i_u32RefCount) i_pRef->m_objCond.TimedWait(&m_objMutex, 0);
  m_objTable.Remove(i_pRef);
}

void CRefTable::Swap(CRef* i_pNewRef) {
  OSD_ASSERT(i_pNewRef != nullptr, "i_pNewRef != NULL", "ref", __LINE__);
  CMutexLocker objLocker(&m_objMutex);
  CRef* pOldRef = FindEqual(i_pNewRef);
  while (pOldRef != nullptr && pOldRef->m_u32RefCount > 0) {
    pOldRef->m_objCond.TimedWait(&m_objMutex, 0);
    pOldRef = FindEqual(i_pNewRef);
  }
  if (pOldRef == nullptr) return;
  m_objTable.Remove(pOldRef);
  m_objTable.Add(i_pNewRef);
}
