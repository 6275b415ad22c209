// Records of the replies with their field lists. m_u32MsgSeq and m_u32MsgId are those of the
// request that is answered.
#pragma once

#include "protocol/header.h"

struct T_MsgAck : T_MsgBody {
  UInt32 m_u32MsgSeq = 0;
  UInt32 m_u32MsgId = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u32MsgSeq, m.m_u32MsgId);
  }
};
struct T_MsgProcessSuccess : T_MsgAck {};

struct T_MsgProcessFailure : T_MsgBody {
  UInt32 m_u32MsgSeq = 0;
  UInt32 m_u32MsgId = 0;
  UInt32 m_u32MsgErrCode = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u32MsgSeq, m.m_u32MsgId, m.m_u32MsgErrCode);
  }
};

struct T_MsgErrMagic : T_MsgBody {
  UInt32 m_u32Magic = 0;  // as received

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u32Magic);
  }
};

struct T_MsgErrVersion : T_MsgBody {
  UInt8 m_u8Version = 0;    // as received
  UInt8 m_u8Supported = 0;  // the one that is understood

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u8Version, m.m_u8Supported);
  }
};

struct T_MsgErrType : T_MsgBody {
  char m_aType[3] = {};  // as received, not terminated

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_aType);
  }
};

struct T_MsgErrSequence : T_MsgBody {
  UInt32 m_u32MsgSeq = 0;
  UInt32 m_u32PrevSeq = 0;  // the last one seen from the peer

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u32MsgSeq, m.m_u32PrevSeq);
  }
};

struct T_MsgErrId : T_MsgBody {
  UInt32 m_u32MsgSeq = 0;
  UInt32 m_u32MsgId = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u32MsgSeq, m.m_u32MsgId);
  }
};

struct T_MsgErrParamLen : T_MsgBody {
  UInt32 m_u32MsgSeq = 0;
  UInt32 m_u32MsgId = 0;
  UInt16 m_u16ParamLen = 0;     // as received
  UInt16 m_u16RequiredLen = 0;  // the one that the id requires

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u32MsgSeq, m.m_u32MsgId, m.m_u16ParamLen, m.m_u16RequiredLen);
  }
};
