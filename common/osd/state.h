// What the renderer shows and keeps, as a copy for whoever wants to tell of it.
#pragma once

#include <string>
#include <vector>

#include "common/osd/canvas.h"
#include "common/osd/commands.h"
#include "daemon/common/ledger.h"

enum class EPicture : UInt8 { kNone, kShown, kWaiting };

struct T_OsdState {
  // A part of an output's canvas, px.
  struct T_Place {
    SInt32 m_s32Output;
    T_Rect m_stRect;
  };
  struct T_Element {
    UInt16 m_u16OsdSeq;
    UInt16 m_u16Output;  // kEveryOutput: on all
    Bool m_bIcon;
    std::vector<std::string> m_vecLines;  // bytes as received; of an icon: its path alone
    UInt16 m_u16SecondsLeft;              // T_DispRecord::kForever: not counted
    Bool m_bHidden;
    EPicture m_ePicture;      // kNone for a text
    std::string m_strFailed;  // why its last request failed; empty when it did not
    std::vector<T_Place> m_vecPlaces;
    T_Asker m_stAsker;
  };
  // The guide screen of an output.
  struct T_Guide {
    SInt32 m_s32Output;
    UInt16 m_u16OsdSeq;
    std::string m_strPath;  // empty: the device's own
    EPicture m_ePicture;
    T_Asker m_stAsker;
  };

  std::vector<T_LayerRequest> m_vecLayers;  // by output
  std::vector<T_Element> m_vecElements;     // in the list's order: the last one lies on top
  std::vector<T_Guide> m_vecGuides;
};
