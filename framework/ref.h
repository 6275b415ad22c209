// The reference table maps a binary key to an object with a count of its users, so that one thread
// can look an object up and use it while another waits to take it away until nobody does. The
// owner of an object owns its CRef too and unregisters it before destroying either. All functions
// of CRefTable may be called from any thread.
#pragma once

#include "framework/cond.h"
#include "framework/hashtable.h"
#include "framework/mutex.h"
#include "framework/thread_annotations.h"
#include "framework/types.h"

// A view of bytes that somebody else owns; no terminator is needed.
class CPLString {
 public:
  CPLString() = default;
  // i_u32Len bytes, which outlive the view.
  CPLString(char* i_pPtr, UInt32 i_u32Len) : m_pPtr(i_pPtr), m_u32Len(i_u32Len) {}
  CPLString(const CPLString&) = default;
  CPLString& operator=(const CPLString&) = default;
  virtual ~CPLString() = default;

  // Same length and same bytes.
  Bool Equal(const CPLString& i_refOther) const;

  char* m_pPtr = nullptr;
  UInt32 m_u32Len = 0;
};

class CRefTableUtils {
 public:
  // A cheap hash over five of the key's bytes; an empty or null key is a fatal error.
  static UInt32 HashString(CPLString* i_pPLString);
};

class CRef {
 public:
  CRef() = default;
  // As Set.
  CRef(const CPLString& i_refKey, void* i_pObject) { Set(i_refKey, i_pObject); }
  CRef(const CRef&) = delete;
  CRef& operator=(const CRef&) = delete;

  // Only while the reference is in no table. The key's bytes must outlive the registration, and so
  // must i_pObject, which is not owned.
  void Set(const CPLString& i_refKey, void* i_pObject) {
    m_objString = i_refKey;
    m_pObject = i_pObject;
  }

  // Safe to use between Resolve and Release; null if that was given.
  void* GetObject() const { return m_pObject; }

 private:
  friend class CRefKey;
  friend class CRefTable;
  friend class CHashTable<CRef, class CRefKey>;

  void* m_pObject = nullptr;
  CPLString m_objString;
  // From here on guarded by the mutex of the table that holds the reference, which cannot be named
  // here: a reference does not know its table.
  UInt32 m_u32RefCount = 0;
  CCond m_objCond;
  UInt32 m_u32HashValue = 0;
  CRef* m_pNextHashEntry = nullptr;
};

// A key with its hash. What it is made from outlives it.
class CRefKey {
 public:
  // Hashes: an empty or null key is fatal.
  explicit CRefKey(CPLString* i_pKey)
      : m_pKey(i_pKey), m_u32Hash(CRefTableUtils::HashString(i_pKey)) {}
  // Takes over the hash that the reference was registered with.
  explicit CRefKey(const CRef* i_pRef)
      : m_pKey(&i_pRef->m_objString), m_u32Hash(i_pRef->m_u32HashValue) {}

  UInt32 Hash() const { return m_u32Hash; }
  friend Bool operator==(const CRefKey& i_refA, const CRefKey& i_refB) {
    return i_refA.m_u32Hash == i_refB.m_u32Hash && i_refA.m_pKey->Equal(*i_refB.m_pKey);
  }

 private:
  const CPLString* m_pKey;
  UInt32 m_u32Hash;
};

class CRefTable {
 public:
  static constexpr UInt32 kDefaultSize = 1193;

  // i_u32Size buckets; never more.
  explicit CRefTable(UInt32 i_u32Size = kDefaultSize) : m_objTable(i_u32Size) {}

  // 0, or 1 (EPERM) without any change when an equal key is registered already.
  OS_Error Register(CRef* i_pRef);

  // Null when i_pRef was registered; otherwise the reference already there under an equal key,
  // resolved for the caller, who releases it. The daemon does not need it; other programs that are
  // built on this framework may.
  CRef* RegisterOrResolve(CRef* i_pRef);

  // The reference under an equal key with one more user, who must Release it; null when unknown.
  // An empty or null key is fatal.
  CRef* Resolve(CPLString* i_refPLString);

  // Gives back one Resolve; one too many is a fatal error.
  void Release(CRef* i_pRef);

  // Blocks while the reference has more than i_u32RefCount users, then takes it out, so it must
  // not be called by one of them. A reference that is not in the table is left as it is.
  void UnRegister(CRef* i_pRef, UInt32 i_u32RefCount = 0);

  // Puts i_pNewRef in the place of the reference under an equal key, after waiting until nobody
  // uses that one any more: its owner may destroy it afterwards. Without one nothing changes.
  void Swap(CRef* i_pNewRef);

 private:
  CRef* FindEqual(CRef* i_pRef) REQUIRES(m_objMutex);

  CHashTable<CRef, CRefKey> m_objTable GUARDED_BY(m_objMutex);
  CMutex m_objMutex;
};
