// A chained hash table of entries that carry their own link and hash value, so that adding one
// never allocates. The owner guards it; the entries belong to whoever added them.
#pragma once

#include <memory>

#include "framework/assert.h"
#include "framework/types.h"

// T has m_u32HashValue and m_pNextHashEntry; K is made from a T, offers Hash() and compares equal
// for the same key.
template <class T, class K>
class CHashTable {
 public:
  // i_u32Size buckets, at least one. Throws std::bad_alloc.
  explicit CHashTable(UInt32 i_u32Size) : m_pBuckets(new T* [i_u32Size] {}), m_u32Size(i_u32Size) {}

  // Puts i_pEntry at the head of its bucket; an entry still chained somewhere is a fatal error.
  void Add(T* i_pEntry) {
    OSD_ASSERT(i_pEntry->m_pNextHashEntry == nullptr, "i_pEntry->m_pNextHashEntry == NULL",
               "hashtable.h", 43);
    T*& pHead = m_pBuckets[Index(i_pEntry->m_u32HashValue)];
    i_pEntry->m_pNextHashEntry = pHead;
    pHead = i_pEntry;
    ++m_u64NumEntries;
  }

  // Unlinks exactly this entry; one that is not here is left as it is.
  void Remove(T* i_pEntry) {
    T** ppLink = &m_pBuckets[Index(i_pEntry->m_u32HashValue)];
    while (*ppLink != nullptr && *ppLink != i_pEntry) ppLink = &(*ppLink)->m_pNextHashEntry;
    if (*ppLink == nullptr) return;
    *ppLink = i_pEntry->m_pNextHashEntry;
    i_pEntry->m_pNextHashEntry = nullptr;
    --m_u64NumEntries;
  }

  // The entry with an equal key, or null.
  T* Find(const K& i_refKey) const {
    T* pEntry = m_pBuckets[Index(i_refKey.Hash())];
    while (pEntry != nullptr && !(K(pEntry) == i_refKey)) pEntry = pEntry->m_pNextHashEntry;
    return pEntry;
  }

 private:
  UInt32 Index(UInt32 i_u32Hash) const {
    return m_u32Mask != 0 ? i_u32Hash & m_u32Mask : i_u32Hash % m_u32Size;
  }

  std::unique_ptr<T*[]> m_pBuckets;
  UInt32 m_u32Size;
  // Non-zero only for a table whose power-of-two size serves as a mask; no table here does.
  UInt32 m_u32Mask = 0;
  UInt64 m_u64NumEntries = 0;
};
