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
  // (T_DispRecord::kAllOutputs: on every one) as soon as it has been read. Until then, and when it
  // cannot be read, what is there stays.
  void Show(UInt16 i_u16Output, UInt16 i_u16Seq, const std::string& i_strPath);

  // Takes it away where it was shown as i_u16Seq (kWhichever: any), also before it is there.
  void Hide(UInt16 i_u16Output, UInt16 i_u16Seq);

  // The layer of i_s32VoDev is new.
  void Renew(SInt32 i_s32VoDev);

  // Puts what has been read behind everything; false when it is not for the guide.
  Bool Take(const T_PictureResult& i_result);

 private:
  struct T_Screen {
    UInt16 m_u16Seq;
    std::string m_strPath;  // empty = the device's own
  };
  // Asked for and not there yet.
  struct T_Request {
    UInt64 m_u64Ticket;
    SInt32 m_s32Output;
    T_Screen m_stScreen;
    std::vector<SInt32> m_vecHidden;  // taken away again on these
  };

  void Remember(SInt32 i_s32Output, const T_Screen& i_screen);
  void Ask(SInt32 i_s32Output, const T_Screen& i_screen, const std::vector<SInt32>& i_vecVoDevs);
  void Place(const T_Request& i_request, const T_PictureResult& i_result);

  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
  // What is shown, by output; that of kAllOutputs is for outputs that are set up later.
  std::map<SInt32, T_Screen> m_mapScreens;
  std::vector<T_Request> m_vecRequests;
};
