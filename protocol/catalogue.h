// The rows of messages.def as a table: every id that the parser knows, ascending.
#pragma once

#include <algorithm>
#include <iterator>

#include "protocol/bodies.h"

// Required body length of messages whose length is not checked.
inline constexpr UInt32 kAnyLength = 0xFFFFFFFF;

struct T_CatalogueRow {
  UInt32 m_u32Id;
  UInt32 m_u32RequiredLen;  // bytes, or kAnyLength
  const char* m_pName;

  // The place of the row, by which tables that stand row by row beside kCatalogue are indexed.
  constexpr size_t Index() const;
};

inline constexpr T_CatalogueRow kCatalogue[] = {
#define OSD_MESSAGE(i_id, i_Name, i_Record, i_len, ...) {i_id, i_len, #i_Name},
#define OSD_ERROR_REPLY(i_id, i_Name, ...) {i_id, kAnyLength, #i_Name},
#include "protocol/messages.def"
};

constexpr size_t T_CatalogueRow::Index() const { return static_cast<size_t>(this - kCatalogue); }

static_assert(std::adjacent_find(std::begin(kCatalogue), std::end(kCatalogue),
                                 [](const T_CatalogueRow& a, const T_CatalogueRow& b) {
                                   return a.m_u32Id >= b.m_u32Id;
                                 }) == std::end(kCatalogue),
              "ids ascend and none comes twice");

// Whether a required length is that of the record's fields.
template <class Message, UInt32 RequiredLen>
constexpr Bool LengthFits() {
  if constexpr (RequiredLen == kAnyLength)
    return true;
  else
    return BodySize(Message{}) == RequiredLen;
}
#define OSD_MESSAGE(i_id, i_Name, i_Record, i_len, ...) \
  static_assert(LengthFits<i_Record, i_len>());
#include "protocol/messages.def"

// The row of i_u32Id, or null for an id that is not defined. Any thread.
constexpr const T_CatalogueRow* FindMessage(UInt32 i_u32Id) {
  const T_CatalogueRow* pRow =
      std::lower_bound(std::begin(kCatalogue), std::end(kCatalogue), i_u32Id,
                       [](const T_CatalogueRow& row, UInt32 u32Id) { return row.m_u32Id < u32Id; });
  return pRow != std::end(kCatalogue) && pRow->m_u32Id == i_u32Id ? pRow : nullptr;
}
