// The guide screen: a picture behind everything else on one output, or on all. It outlives the
// layers: one that is set up anew shows it again. Owned by the renderer and used under its mutexes.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "common/osd/painter.h"
#include "common/osd/pictures/desk.h"
#include "common/osd/state.h"

class CGuide {
 public:
  // Both are borrowed for life.
  CGuide(CPainter* io_pPainter, CPictureDesk* io_pDesk)
      : m_pPainter(io_pPainter), m_pDesk(io_pDesk) {}

  // Has the picture i_strPath (when that is empty, the device's own) shown on output i_u16Output
  // (kEveryOutput: on all, also those that get a layer later) as soon as it has been
  // read. Until then the screen before it stays, and for good when it cannot be read; but later
  // requests treat it as if it were there already. CloseDifference has it read.
  void Show(UInt16 i_u16Output, UInt16 i_u16Seq, const std::string& i_strPath,
            const T_Asker& i_asker);

  // On that output, or on all: nothing is wanted any more where the latest Show had i_u16Seq.
  // CloseDifference takes it away. Whether anything is taken away.
  Bool Hide(UInt16 i_u16Output, UInt16 i_u16Seq);

  // The layer of i_s32Output is gone: nothing is read for it any more.
  void LayerGone(SInt32 i_s32Output);

  // Compares what is wanted with what lies on the layers: takes away what is not wanted, and asks
  // for pictures that are missing while there is room. To be called after every request, result
  // and new layer.
  void CloseDifference();

  // Puts the pictures of i_result behind everything on their layers. When they could not be read
  // (logged), the screen before them is wanted again. False when no guide screen waits for it.
  Bool Take(const T_PictureResult& i_result);

  // What is wanted on each layer, where anything is.
  std::vector<T_OsdState::T_Guide> State() const;

 private:
  struct T_Screen {
    UInt64 m_u64Number;  // of the request; counted up
    UInt16 m_u16Seq;
    std::string m_strPath;  // empty = the device's own
    T_Asker m_stAsker;
    Bool m_bCame = false;  // it has been read, or no layer needs it

    bool operator==(const T_Screen&) const = default;
  };
  // The last one is wanted; those before it are what to return to when it cannot be read, and wait
  // themselves, but maybe for the first. Empty: none is wanted.
  using T_Screens = std::vector<T_Screen>;
  // What lies on a layer, and what is being read for it.
  struct T_Layer {
    UInt64 m_u64Number = 0;  // of the last request that was answered here, well or not; 0 = none
    UInt64 m_u64Ticket = 0;  // of what is being read, 0 = nothing; layers may share it
    UInt64 m_u64Asked = 0;   // the number of the request that it was asked for
    std::string m_strAsked;  // and its path
  };

  const T_Screens& WantedOn(SInt32 i_s32Output) const;
  template <class T_Change>
  void ChangeWanted(UInt16 i_u16Output, const T_Change& i_change);
  void Withdraw(T_Layer& io_layer);
  UInt64 OldestMissing() const;
  void Ask(UInt64 i_u64Number);
  static void CountAsCome(T_Screens& io_screens);
  static void Close(const T_Screen& i_screen, const char* i_pWhy);
  void SettleWanted();
  void Come(const std::string& i_strPath);
  void Fail(UInt64 i_u64Number, const std::string& i_strWhy);

  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
  UInt64 m_u64LastNumber = 0;
  // What is wanted, by output, where that is not the same as on m_vecOthers, all other outputs.
  std::map<SInt32, T_Screens> m_mapWanted;
  T_Screens m_vecOthers;
  std::map<SInt32, T_Layer> m_mapLayers;
};
