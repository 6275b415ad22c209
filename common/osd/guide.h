// The guide screen: a picture behind everything on an output, or on each. It outlives the layers,
// and a layer that is set up anew gets it again. Owned by the renderer and used under its mutexes.
#pragma once

#include <map>
#include <optional>
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
  // Until then, and when it cannot be read, what is there stays.
  void Show(UInt16 i_u16Output, UInt16 i_u16Seq, const std::string& i_strPath);

  // Takes it away where it is shown as i_u16Seq (kWhichever: any), also before it is there.
  void Hide(UInt16 i_u16Output, UInt16 i_u16Seq);

  // The layer of i_s32VoDev is new, or gone.
  void Renew(SInt32 i_s32VoDev);
  void LayerGone(SInt32 i_s32VoDev);

  // Puts what has been read behind everything; false when it is not for the guide.
  Bool Take(const T_PictureResult& i_result);

 private:
  struct T_Screen {
    UInt16 m_u16Seq;
    std::string m_strPath;  // empty = the device's own

    Bool Is(UInt16 i_u16Seq) const { return i_u16Seq == kWhichever || i_u16Seq == m_u16Seq; }
    bool operator==(const T_Screen&) const = default;
  };
  // Of one output. Without either screen it is one that shall show none.
  struct T_Output {
    std::optional<T_Screen> m_shown;   // as soon as there is a layer
    std::optional<T_Screen> m_wanted;  // the result of m_u64Ticket is for it
    UInt64 m_u64Ticket = 0;            // outputs that were asked for together share it

    bool operator==(const T_Output&) const = default;
  };
  using T_Outputs = std::map<SInt32, T_Output>;

  std::vector<SInt32> OutputsOf(UInt16 i_u16Output) const;
  T_Output& Output(SInt32 i_s32VoDev);
  void Ask(const std::vector<SInt32>& i_vecOutputs, const T_Screen& i_screen);
  void Withdraw(T_Output& io_output);
  void TakeOn(SInt32 i_s32VoDev, T_Output& io_output, const T_PictureResult& i_result);

  CPainter* const m_pPainter;
  CPictureDesk* const m_pDesk;
  // An entry of an output goes before that of kAllOutputs, which is for all that have none.
  T_Outputs m_mapOutputs;
};
