#include "framework/heap.h"

#include <algorithm>
#include <utility>

#include "framework/assert.h"

CHeap::CHeap(UInt32 i_u32StartSize)
    : m_u32ArraySize(std::max(i_u32StartSize, UInt32{2})),
      m_pHeap(std::make_unique<CHeapElem*[]>(m_u32ArraySize)) {}

void CHeap::Insert(CHeapElem* i_pElem) {
  OSD_ASSERT(i_pElem != nullptr, "i_pElem != NULL", "heap", 23);
  if (m_u32FreeIndex == m_u32ArraySize) Grow();
  OSD_ASSERT(i_pElem->m_pCurrentHeap == nullptr, "i_pElem->m_pCurrentHeap == NULL", "heap", 39);
  OSD_ASSERT(m_u32ArraySize > m_u32FreeIndex, "m_u32ArraySize > m_u32FreeIndex", "heap", 40);
  m_pHeap[m_u32FreeIndex] = i_pElem;
  for (UInt32 i = m_u32FreeIndex; i > 1; i /= 2) {
    if (m_pHeap[i]->m_s64Value >= m_pHeap[i / 2]->m_s64Value) break;
    std::swap(m_pHeap[i], m_pHeap[i / 2]);
  }
  i_pElem->m_pCurrentHeap = this;
  ++m_u32FreeIndex;
}

void CHeap::Grow() {
  auto pLarger = std::make_unique<CHeapElem*[]>(size_t{m_u32ArraySize} * 2);
  std::copy_n(m_pHeap.get(), m_u32FreeIndex, pLarger.get());
  m_pHeap = std::move(pLarger);
  m_u32ArraySize *= 2;
}

CHeapElem* CHeap::Extract(UInt32 i_u32Index) {
  if (i_u32Index == 0 || i_u32Index >= m_u32FreeIndex) return nullptr;
  CHeapElem* const pVictim = m_pHeap[i_u32Index];
  OSD_ASSERT(pVictim->m_pCurrentHeap == this, "pVictim->m_pCurrentHeap == this", "heap", 90);
  pVictim->m_pCurrentHeap = nullptr;
  m_pHeap[i_u32Index] = m_pHeap[--m_u32FreeIndex];
  // Only ever downwards, deliberately: after an extraction from the middle the moved element may
  // stay below a parent with a greater key.
  if (i_u32Index < m_u32FreeIndex) SiftDown(i_u32Index);
  return pVictim;
}

CHeapElem* CHeap::Remove(CHeapElem* i_pElem) {
  for (UInt32 i = 1; i < m_u32FreeIndex; ++i)
    if (m_pHeap[i] == i_pElem) return Extract(i);
  return nullptr;
}

// The child to swap with, or the index itself when neither child is less. The left one wins a tie.
UInt32 CHeap::LesserChild(UInt32 i_u32Index) const {
  UInt32 u32Least = i_u32Index;
  for (const UInt32 u32Child : {2 * i_u32Index, 2 * i_u32Index + 1})
    if (u32Child < m_u32FreeIndex && m_pHeap[u32Child]->m_s64Value < m_pHeap[u32Least]->m_s64Value)
      u32Least = u32Child;
  return u32Least;
}

void CHeap::SiftDown(UInt32 i_u32Index) {
  for (UInt32 u32Child = LesserChild(i_u32Index); u32Child != i_u32Index;
       u32Child = LesserChild(i_u32Index)) {
    std::swap(m_pHeap[i_u32Index], m_pHeap[u32Child]);
    i_u32Index = u32Child;
  }
}
