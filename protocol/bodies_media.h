// Records of the media and network messages with their field lists. Codes that only the media
// process understands (mode, vtype, scanMode, type) are carried as they are.
#pragma once

#include <algorithm>
#include <iterator>

#include "protocol/header.h"

// Names for traces; a code that has none reads "BUTT" and "24bit".
inline const char* PixFmtName(UInt8 i_u8Code) {
  constexpr const char* kNames[] = {"YUV444", "RGB444", "YUV422", "YUV420"};
  return i_u8Code < std::size(kNames) ? kNames[i_u8Code] : "BUTT";
}
inline const char* ColorDepthName(UInt8 i_u8Code) {
  constexpr const char* kNames[] = {"24bit", "30bit", "36bit"};
  return kNames[i_u8Code < std::size(kNames) ? i_u8Code : 0];
}

struct T_MsgMppShow : T_MsgBody {
  UInt16 m_u16Vout = 0;
  UInt16 m_u16Vin = 0;
  UInt16 m_u16X = 0;
  UInt16 m_u16Y = 0;
  UInt16 m_u16W = 0;
  UInt16 m_u16H = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vout, CHalves(m.m_u16Vin), m.m_u16X, m.m_u16Y, m.m_u16W, m.m_u16H);
  }
};

// An output and one of its inputs.
struct T_MsgMppInput : T_MsgBody {
  UInt16 m_u16Vout = 0;
  UInt16 m_u16Vin = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vout, CHalves(m.m_u16Vin));
  }
};
struct T_MsgMppHide : T_MsgMppInput {};
struct T_MsgMppFreeze : T_MsgMppInput {};
struct T_MsgMppUnfreeze : T_MsgMppInput {};
struct T_MsgMppClearRemainFrame : T_MsgMppInput {};

struct T_BatchEntry {
  static constexpr UInt32 kSize = 10;  // bytes on the wire

  UInt16 m_u16VinSeq = 0;
  UInt16 m_u16X = 0;
  UInt16 m_u16Y = 0;
  UInt16 m_u16W = 0;
  UInt16 m_u16H = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(CHalves(m.m_u16VinSeq), m.m_u16X, m.m_u16Y, m.m_u16W, m.m_u16H);
  }
};

// The entries of MppBatchShow, which follow their number. Traced one line each, not here.
template <class Message>
class CBatchEntries : public T_FieldKind {
 public:
  explicit CBatchEntries(Message& io_message) : m_message(io_message) {}
  void Decode(CWireReader& io_reader) const {
    if (!m_message.Accepted()) return io_reader.Refuse();
    for (UInt32 i = 0; i < m_message.m_u8Num; ++i) DecodeFields(io_reader, m_message.m_aEntry[i]);
  }
  void Encode(CWireWriter& io_writer) const {
    const UInt32 u32Num = std::min<UInt32>(m_message.m_u8Num, Message::kMaxEntries);
    for (UInt32 i = 0; i < u32Num; ++i) EncodeFields(io_writer, m_message.m_aEntry[i]);
  }

 private:
  Message& m_message;
};

struct T_MsgMppBatchShow : T_MsgBody {
  static constexpr UInt32 kMaxEntries = 16;
  static constexpr UInt32 kFixedSize = 3;  // bytes ahead of the entries
  // Kept on purpose: whoever handles the refusal sees output and number.
  static constexpr Bool kKeptWhenRefused = true;

  UInt16 m_u16Vout = 0;
  UInt8 m_u8Num = 0;  // as received, also above kMaxEntries
  T_BatchEntry m_aEntry[kMaxEntries];

  // The number fits the record and the header's body length fits the number.
  Bool Accepted() const {
    const UInt32 u32Length = kFixedSize + m_u8Num * T_BatchEntry::kSize;
    return m_u8Num <= kMaxEntries && m_stHeader.m_u16ParamLen == u32Length;
  }

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vout, m.m_u8Num, CBatchEntries(m));
  }
};

struct T_MsgMppModifyRes : T_MsgBody {
  UInt16 m_u16Vout = 0;
  UInt8 m_u8Mode = 0;
  UInt16 m_u16Width = 0;
  UInt16 m_u16Height = 0;
  UInt16 m_u16FrameRate = 0;
  UInt8 m_u8PixFmt = 0;      // PixFmtName
  UInt8 m_u8ColorDepth = 0;  // ColorDepthName

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vout, m.m_u8Mode, m.m_u16Width, m.m_u16Height, m.m_u16FrameRate,
             CNamed(m.m_u8PixFmt, PixFmtName), CNamed(m.m_u8ColorDepth, ColorDepthName));
  }
};

struct T_MsgMppOutput : T_MsgBody {
  UInt16 m_u16Vout = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vout);
  }
};
struct T_MsgMppQueryRes : T_MsgMppOutput {};
struct T_MsgMppQueryDispStatus : T_MsgMppOutput {};

struct T_MsgMppSetInputFmt : T_MsgBody {
  UInt16 m_u16Vin = 0;
  UInt16 m_u16Width = 0;
  UInt16 m_u16Height = 0;
  UInt16 m_u16FrameRate = 0;
  UInt32 m_u32ScanMode = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(CHalves(m.m_u16Vin), m.m_u16Width, m.m_u16Height, m.m_u16FrameRate, m.m_u32ScanMode);
  }
};

struct T_MsgMppSetAudioFmt : T_MsgBody {
  UInt16 m_u16Ain = 0;
  UInt16 m_u16SoundInfo0 = 0;
  UInt16 m_u16SoundInfo1 = 0;
  UInt16 m_u16SoundInfo2 = 0;
  UInt32 m_u32SoundInfo3 = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(CHalves(m.m_u16Ain), m.m_u16SoundInfo0, m.m_u16SoundInfo1, m.m_u16SoundInfo2,
             m.m_u32SoundInfo3);
  }
};

struct T_MsgMppRequestMediaChn : T_MsgBody {
  UInt16 m_u16Vin = 0;
  UInt16 m_u16Vtype = 0;
  UInt16 m_u16Width = 0;
  UInt16 m_u16Height = 0;
  UInt16 m_u16FrameRate = 0;
  UInt16 m_u16Mode = 0;
  UInt32 m_u32AspectRatio = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vin, m.m_u16Vtype, m.m_u16Width, m.m_u16Height, m.m_u16FrameRate, m.m_u16Mode,
             m.m_u32AspectRatio);
  }
};

struct T_MsgMppReleaseMediaChn : T_MsgBody {
  UInt16 m_u16Vin = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vin);
  }
};

struct T_MsgMppAudioPlay : T_MsgBody {
  UInt16 m_u16Aout = 0;
  UInt16 m_u16Ain = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Aout, CHalves(m.m_u16Ain));
  }
};

// The display's EDID: present on the wire only behind the presence code 2.
template <class Code, class Length, class Area>
class CEdid : public T_FieldKind {
 public:
  CEdid(Code& io_code, Length& io_length, Area& io_area)
      : m_code(io_code), m_length(io_length), m_area(io_area) {}
  void Decode(CWireReader& io_reader) const {
    io_reader.Bytes(&m_code, sizeof(m_code));
    m_length = 0;
    if (m_code != kFollows) return;
    io_reader.Bytes(&m_length, sizeof(m_length));
    m_length = std::min<Length>(m_length, sizeof(m_area));
    io_reader.Bytes(m_area, m_length);
  }
  void Encode(CWireWriter& io_writer) const {
    io_writer.Bytes(&m_code, sizeof(m_code));
    if (m_code != kFollows) return;
    const std::remove_const_t<Length> length = std::min<Length>(m_length, sizeof(m_area));
    io_writer.Bytes(&length, sizeof(length));
    io_writer.Bytes(m_area, length);
  }
  auto Traced() const { return std::tuple<UInt32>(m_length); }

 private:
  static constexpr UInt8 kFollows = 2;

  Code& m_code;
  Length& m_length;
  Area& m_area;
};

struct T_MsgMppDispStatusChg : T_MsgBody {
  // All that may be read of a datagram behind the header and the fields.
  static constexpr UInt32 kEdidSize = kMaxReadable - kMsgHeaderSize - 6;

  UInt16 m_u16Vout = 0;
  UInt8 m_u8Connected = 0;
  UInt8 m_u8EdidPresence = 0;
  UInt16 m_u16EdidLen = 0;  // bytes of m_aEdid in use, at most kEdidSize
  UInt8 m_aEdid[kEdidSize] = {};

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vout, m.m_u8Connected, CEdid(m.m_u8EdidPresence, m.m_u16EdidLen, m.m_aEdid));
  }
};

struct T_MsgMppAdjustAudioDelay : T_MsgBody {
  UInt16 m_u16Aout = 0;
  UInt16 m_u16Delay = 0;  // ms

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Aout, m.m_u16Delay);
  }
};

struct T_MsgMppEncodingControl : T_MsgBody {
  UInt8 m_u8Type = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u8Type);
  }
};

struct T_MsgOnOffControl : T_MsgBody {
  UInt8 m_u8Status = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u8Status);
  }
};

// The answer to a resolution query: the sequence number of the query, the output, and its
// resolution as MppModifyRes carries it. Its trace shows the pixel format as the text behind
// width x height.
struct T_QueryResAckExt : T_MsgBody {
  UInt32 m_u32MsgSeq = 0;
  UInt16 m_u16Vout = 0;
  UInt16 m_u16Width = 0;
  UInt16 m_u16Height = 0;
  UInt16 m_u16FrameRate = 0;
  UInt8 m_u8PixFmt = 0;
  UInt8 m_u8ColorDepth = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u32MsgSeq, m.m_u16Vout, m.m_u16Width, m.m_u16Height, m.m_u16FrameRate,
             CNamed(m.m_u8PixFmt, PixFmtName), CNamed(m.m_u8ColorDepth, ColorDepthName));
  }
};

// Video processing (Con to Sp) and output picture controls (lum to sat) of an input.
struct T_MsgMppVpssVoParam : T_MsgBody {
  UInt16 m_u16Vin = 0;
  UInt16 m_u16Switch = 0;
  UInt32 m_u32Con = 0;
  UInt32 m_u32Ie = 0;
  UInt32 m_u32Sf = 0;
  UInt32 m_u32Tf = 0;
  UInt32 m_u32Cf = 0;
  UInt32 m_u32CTf = 0;
  UInt32 m_u32Sp = 0;
  UInt32 m_u32VoLum = 0;
  UInt32 m_u32VoCon = 0;
  UInt32 m_u32VoHue = 0;
  UInt32 m_u32VoSat = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16Vin, m.m_u16Switch, m.m_u32Con, m.m_u32Ie, m.m_u32Sf, m.m_u32Tf, m.m_u32Cf,
             m.m_u32CTf, m.m_u32Sp, m.m_u32VoLum, m.m_u32VoCon, m.m_u32VoHue, m.m_u32VoSat);
  }
};
