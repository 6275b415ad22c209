// The guide screen: a picture behind everything on an output, or on each. It outlives the layers,
// and a layer that is set up anew gets it again. Owned by the renderer and used under its mutexes.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "common/osd/painter.h"
#include "common/osd/picture_desk.h"

class CGuide {
 public:
  static constexpr UInt16 kWhichever = 0xFFFF;

  // Both are borrowed for life.
  CGuide(CPainter* io_pPainter, CPictureDesk* io_pDesk)
      : m_pPainter(io_pPainter), m_pDesk(io_pDesk) {}

  // Shows the picture i_strPath, or when that is empty the device's own, on output i_u16Output
  // (T_DispRecord::kAllOutputs: on every one, also those to come) as soon as it has been read.
  // Until then, and when it cannot be read, what is there stays; but whatever follows takes it as
  // if it were there already.
  void Show(UInt16 i_u16Output, UInt16 i_u16Seq, const std::string& i_strPath);

  // Takes it away where it is wanted as i_u16Seq (kWhichever: any).
  void Hide(UInt16 i_u16Output, UInt16 i_u16Seq);

  // The layer of i_s32VoDev is gone. One that is new gets its screen from CloseDifference.
  void LayerGone(SInt32 i_s32VoDev);

  // Compares what is wanted with what lies on the layers, takes away what is not wanted, and asks
  // for what is missing while there is room. After every request, result and new layer.
  void CloseDifference();

  // Puts what has been read behind everything; false when it is not for the guide.
  Bool Take(const T_PictureResult& i_result);

 private:
  struct T_Screen {
    UInt64 m_u64Number;  // later requests have greater ones
    UInt16 m_u16Seq;
    std::string m_strPath;  // empty = the device's own
    Bool m_bCame = false;   // it has been read, or nothing had to be

    bool operator==(const T_Screen&) const = default;
  };
  // The last one is wanted. Those before it stay when it cannot be read; only the first of them may
  // have come. Empty: none is wanted.
  using T_Screens = std::vector<T_Screen>;
  // What lies on a layer, and what is on its way there.
  struct T_Layer {
    UInt64 m_u64Number = 0;  // of the request that is done with, 0 = none
    UInt64 m_u64Ticket = 0;  // layers that were asked for together share it
    UInt64 m_u64Asked = 0;
    std::string m_strAsked;  // its path
  };

  const T_Screens& WantedOn(SInt32 i_s32VoDev) const;
  template <class T_Change>
  void ChangeWanted(UInt16 i_u16Output, const T_Change& i_change);
  void Withdraw(T_Layer& io_layer);
  UInt64 OldestMissing() const;
  void Ask(UInt64 i_u64Number);
  static void CountAsCome(T_Screens& io_screens);
  void SettleWanted();
  void Come(const std::string& i_strPath);
  void Fail(UInt64 i_u64Number);

  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
  UInt64 m_u64LastNumber = 0;
  // Of outputs on which something else is wanted than on all others, by their 8-bit numbers.
  std::map<SInt32, T_Screens> m_mapWanted;
  T_Screens m_vecOthers;
  std::map<SInt32, T_Layer> m_mapLayers;
};
