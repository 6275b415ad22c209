// What a message's field list is made of. A record names its fields once, in wire order, in
//   template <class V, class M> static constexpr auto Fields(V&& v, M& m) { return v(...); }
// and decoding, encoding, size and trace follow from it. A field is an integer or an array of
// characters as it is, or one of the kinds below, which hold references into the record.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <tuple>
#include <type_traits>

#include "protocol/wire.h"

// Base of the kinds, so that they are told from plain values. Each kind has
//   Decode(io_reader): takes the field from the wire into the record; refuses what it cannot take;
//   Encode(io_writer): appends the field as the record has it, or as much as the record can hold;
//   Traced(): what the field hands to a trace format, as a tuple; kinds that are not traced have none.
struct T_FieldKind {};

template <class Value>
class CPlain : public T_FieldKind {
 public:
  explicit constexpr CPlain(Value& io_value) : m_value(io_value) {}
  void Decode(CWireReader& io_reader) const { io_reader.Bytes(&m_value, sizeof(m_value)); }
  constexpr void Encode(CWireWriter& io_writer) const {
    io_writer.Bytes(&m_value, sizeof(m_value));
  }
  auto Traced() const {
    if constexpr (std::is_signed_v<Value>)
      return std::tuple<SInt32>(m_value);
    else
      return std::tuple<UInt32>(m_value);
  }

 protected:
  Value& m_value;
};

// A 32-bit value that is big-endian on the wire.
template <class Value>
class CNetworkOrder : public T_FieldKind {
 public:
  explicit constexpr CNetworkOrder(Value& io_value) : m_value(io_value) {}
  void Decode(CWireReader& io_reader) const {
    io_reader.Bytes(&m_value, sizeof(m_value));
    m_value = ntohl(m_value);
  }
  void Encode(CWireWriter& io_writer) const {
    const UInt32 u32Wire = htonl(m_value);
    io_writer.Bytes(&u32Wire, sizeof(u32Wire));
  }

 private:
  Value& m_value;
};

// A 16-bit channel number that traces show as high byte and low byte.
template <class Value>
class CHalves : public CPlain<Value> {
 public:
  explicit constexpr CHalves(Value& io_value) : CPlain<Value>(io_value) {}
  auto Traced() const {
    return std::tuple<UInt32, UInt32>(this->m_value >> 8, this->m_value & 0xFF);
  }
};

// A code that traces show by name.
template <class Value>
class CNamed : public CPlain<Value> {
 public:
  using NameOf = const char* (*)(UInt8);
  constexpr CNamed(Value& io_value, NameOf i_pNameOf)
      : CPlain<Value>(io_value), m_pNameOf(i_pNameOf) {}
  auto Traced() const { return std::tuple<const char*>(m_pNameOf(this->m_value)); }

 private:
  NameOf m_pNameOf;
};

// A length and that many bytes. The record's copy has no terminator, so traces bound it by its
// length ("strlen<%u> str<%.*s>"). A null text is sent as an empty one.
template <class Length, class Text>
class CText : public T_FieldKind {
 public:
  constexpr CText(Length& io_length, Text& io_pText) : m_length(io_length), m_pText(io_pText) {}
  void Decode(CWireReader& io_reader) const {
    io_reader.Bytes(&m_length, sizeof(m_length));
    m_pText = io_reader.Text(m_length, 0);
  }
  void Encode(CWireWriter& io_writer) const {
    const std::remove_const_t<Length> length = m_pText ? m_length : 0;
    io_writer.Bytes(&length, sizeof(length));
    if (m_pText) io_writer.Bytes(m_pText.get(), length);
  }
  auto Traced() const {
    const UInt32 u32Shown = m_pText ? std::min<UInt32>(m_length, kMaxDatagram) : 0;
    return std::tuple<UInt32, SInt32, const char*>(m_length, static_cast<SInt32>(u32Shown),
                                                   m_pText ? m_pText.get() : "");
  }

 protected:
  Length& m_length;
  Text& m_pText;
};

// A text that is on the wire only when its bit of an earlier flag word is set.
template <class Flag, class Length, class Text>
class CFlaggedText : public CText<Length, Text> {
 public:
  constexpr CFlaggedText(Flag& i_flag, UInt32 i_u32Bit, Length& io_length, Text& io_pText)
      : CText<Length, Text>(io_length, io_pText), m_flag(i_flag), m_u32Bit(i_u32Bit) {}
  void Decode(CWireReader& io_reader) const {
    if (Follows()) return CText<Length, Text>::Decode(io_reader);
    this->m_length = 0;
    this->m_pText = nullptr;
  }
  void Encode(CWireWriter& io_writer) const {
    if (Follows()) CText<Length, Text>::Encode(io_writer);
  }

 private:
  Bool Follows() const { return (m_flag & m_u32Bit) != 0; }

  Flag& m_flag;
  UInt32 m_u32Bit;
};

// A path whose copy is NUL-terminated. A path of one byte counts as none: deliberate, peers that
// have no path send a lone terminator.
template <class Length, class Text>
class CPath : public CText<Length, Text> {
 public:
  constexpr CPath(Length& io_length, Text& io_pText) : CText<Length, Text>(io_length, io_pText) {}
  void Decode(CWireReader& io_reader) const {
    io_reader.Bytes(&this->m_length, sizeof(this->m_length));
    if (this->m_length < 2) {
      this->m_length = 0;
      this->m_pText = nullptr;
      return;
    }
    this->m_pText = io_reader.Text(this->m_length, 1);
  }
  auto Traced() const {
    return std::tuple<UInt32, const char*>(this->m_length,
                                           this->m_pText ? this->m_pText.get() : "");
  }
};

// Any field as a kind.
template <class Field>
constexpr auto AsKind(Field& io_field) {
  if constexpr (std::is_base_of_v<T_FieldKind, Field>)
    return io_field;
  else
    return CPlain<Field>(io_field);
}

// Absent bytes become 0; a message that cannot be decoded leaves io_reader refused.
template <class Message>
void DecodeFields(CWireReader& io_reader, Message& o_message) {
  Message::Fields([&](auto&&... fields) { (AsKind(fields).Decode(io_reader), ...); }, o_message);
}

// Appends all fields, of which io_writer may drop what passes its capacity.
template <class Message>
constexpr void EncodeFields(CWireWriter& io_writer, const Message& i_message) {
  Message::Fields([&](auto&&... fields) { (AsKind(fields).Encode(io_writer), ...); }, i_message);
}
