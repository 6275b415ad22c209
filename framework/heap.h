// A binary min-heap of intrusive elements keyed by a signed 64-bit value: the framework's timers,
// keyed by absolute monotonic milliseconds. Not thread-safe: it belongs to whoever guards it.
#pragma once

#include <memory>

#include "framework/types.h"

class CHeap;

class CHeapElem {
 public:
  // i_pEnclosingObject is whom it stands for; not owned.
  explicit CHeapElem(void* i_pEnclosingObject = nullptr, SInt64 i_s64Value = 0)
      : m_s64Value(i_s64Value), m_pEnclosingObject(i_pEnclosingObject) {}
  CHeapElem(const CHeapElem&) = delete;
  CHeapElem& operator=(const CHeapElem&) = delete;

  // Only while the element is in no heap.
  void SetValue(SInt64 i_s64Value) { m_s64Value = i_s64Value; }
  SInt64 GetValue() const { return m_s64Value; }
  // As given to the constructor.
  void* GetEnclosingObject() const { return m_pEnclosingObject; }
  // Under the lock of the heap in question.
  Bool IsMemberOfAnyHeap() const { return m_pCurrentHeap != nullptr; }

 private:
  friend class CHeap;
  SInt64 m_s64Value;
  void* m_pEnclosingObject;
  CHeap* m_pCurrentHeap = nullptr;
};

class CHeap {
 public:
  static constexpr UInt32 kDefaultStartSize = 1024;

  // Room for i_u32StartSize - 1 elements, at least for one; grows when needed.
  explicit CHeap(UInt32 i_u32StartSize = kDefaultStartSize);
  CHeap(const CHeap&) = delete;
  CHeap& operator=(const CHeap&) = delete;

  // The element must be in no heap: asserted. Throws std::bad_alloc when it cannot grow. Of equal
  // keys the one inserted first leaves first, as long as no extraction reorders them.
  void Insert(CHeapElem* i_pElem);

  // Null when empty.
  CHeapElem* ExtractMin() { return Extract(1); }

  // Takes out the element in slot i_u32Index, counted from 1; null when there is none.
  CHeapElem* Extract(UInt32 i_u32Index);

  // Takes out i_pElem, found by a linear scan; null when this heap does not hold it.
  CHeapElem* Remove(CHeapElem* i_pElem);

  // Only when the heap is not empty.
  CHeapElem* PeekMin() const { return m_pHeap[1]; }

  // Elements.
  UInt32 CurrentHeapSize() const { return m_u32FreeIndex - 1; }

 private:
  void Grow();
  UInt32 LesserChild(UInt32 i_u32Index) const;
  void SiftDown(UInt32 i_u32Index);

  // Used from slot 1, so that the children of slot i are 2i and 2i + 1.
  UInt32 m_u32ArraySize;
  std::unique_ptr<CHeapElem*[]> m_pHeap;
  UInt32 m_u32FreeIndex = 1;
};
