// A decoded message with the records that it owns. Used by one thread at a time.
#pragma once

#include <memory>
#include <tuple>

#include "protocol/catalogue.h"

// The header of a datagram that was refused; the receiver answers from it.
struct T_MsgHeadError : T_MsgBody {};

// One message: its id and the records that it owns, all null but the one of the id. Move-only.
class T_MsgParams {
 public:
  MsgId m_eMsgId = RES_MSG_ACK;
  const T_CatalogueRow* m_pRow = nullptr;        // of the id, set by MsgParse unless it has none
  std::unique_ptr<T_MsgHeadError> m_pHeadError;  // set when MsgParse refused the header

  // The row of i_u32Id, which is looked for only when it is not the message's; null as FindMessage.
  const T_CatalogueRow* RowOf(UInt32 i_u32Id) const {
    return m_pRow != nullptr && m_pRow->m_u32Id == i_u32Id ? m_pRow : FindMessage(i_u32Id);
  }

  // The owner of a record type's record, null unless the message is of that type.
  template <class T>
  std::unique_ptr<T>& Body() {
    return std::get<std::unique_ptr<T>>(m_bodies);
  }
  template <class T>
  const std::unique_ptr<T>& Body() const {
    return std::get<std::unique_ptr<T>>(m_bodies);
  }

  // The header of the record that it owns; null without one.
  T_MsgHeader* Header() {
    T_MsgHeader* pHeader = nullptr;
    const auto look = [&](auto& i_pBody) {
      if (i_pBody) pHeader = &i_pBody->m_stHeader;
    };
    std::apply([&](auto&... i_bodies) { (look(i_bodies), ...); }, m_bodies);
    return pHeader;
  }

  // Frees every record.
  void Clear() { *this = T_MsgParams(); }

 private:
  template <class First, class... Records>
  struct T_Owners {
    using Tuple = std::tuple<std::unique_ptr<Records>...>;
  };
#define OSD_MESSAGE(i_id, i_Name, i_Record, ...) , i_Record
#define OSD_ERROR_REPLY(i_id, i_Name, i_Record) , i_Record
  T_Owners<void
#include "protocol/messages.def"
           >::Tuple m_bodies;
};
