#include "common/osd/guide.h"

#include <algorithm>
#include <utility>

namespace {

constexpr const char* kOwnPicture = "/usr/local/share/guidescreen.png";
constexpr const char* kOwnOverlay = "/usr/local/share/image_overlay1.png";

Bool Covers(SInt32 i_s32Output, SInt32 i_s32VoDev) {
  return i_s32Output == T_DispRecord::kAllOutputs || i_s32Output == i_s32VoDev;
}

Bool Means(UInt16 i_u16Asked, UInt16 i_u16Seq) {
  return i_u16Asked == CGuide::kWhichever || i_u16Asked == i_u16Seq;
}

}  // namespace

void CGuide::Ask(SInt32 i_s32Output, const T_Screen& i_screen,
                 const std::vector<SInt32>& i_vecVoDevs) {
  const Bool bOwn = i_screen.m_strPath.empty();
  T_PictureJob job{bOwn ? kOwnPicture : i_screen.m_strPath, true, bOwn ? kOwnOverlay : "", {}};
  for (const SInt32 s32VoDev : i_vecVoDevs) {
    const T_Canvas canvas = m_pPainter->Layers().at(s32VoDev).Canvas();
    job.m_vecTargets.push_back({s32VoDev, {canvas.m_u32W, canvas.m_u32H}, {}});
  }
  m_vecRequests.push_back({m_pDesk->Ask(std::move(job)).m_u64Ticket, i_s32Output, i_screen, {}});
}

void CGuide::Show(UInt16 i_u16Output, UInt16 i_u16Seq, const std::string& i_strPath) {
  std::erase_if(m_vecRequests, [&](const T_Request& i_request) {
    if (!Covers(i_u16Output, i_request.m_s32Output)) return false;
    m_pDesk->Withdraw(i_request.m_u64Ticket);
    return true;
  });
  const T_Screen screen{i_u16Seq, i_strPath};
  std::vector<SInt32> voDevs;
  for (const auto& [s32VoDev, layer] : m_pPainter->Layers())
    if (Covers(i_u16Output, s32VoDev)) voDevs.push_back(s32VoDev);
  if (!voDevs.empty())
    Ask(i_u16Output, screen, voDevs);
  else
    Remember(i_u16Output, screen);
}

// One for every output takes the place of all that outputs without a layer waited for.
void CGuide::Remember(SInt32 i_s32Output, const T_Screen& i_screen) {
  if (i_s32Output == T_DispRecord::kAllOutputs) m_mapScreens.clear();
  m_mapScreens[i_s32Output] = i_screen;
}

void CGuide::Hide(UInt16 i_u16Output, UInt16 i_u16Seq) {
  std::erase_if(m_vecRequests, [&](T_Request& io_request) {
    if (!Means(i_u16Seq, io_request.m_stScreen.m_u16Seq)) return false;
    if (Covers(io_request.m_s32Output, i_u16Output)) io_request.m_vecHidden.push_back(i_u16Output);
    if (!Covers(i_u16Output, io_request.m_s32Output)) return false;
    m_pDesk->Withdraw(io_request.m_u64Ticket);
    return true;
  });
  std::erase_if(m_mapScreens, [&](const auto& i_entry) {
    const auto& [s32Output, screen] = i_entry;
    if (!Covers(i_u16Output, s32Output) || !Means(i_u16Seq, screen.m_u16Seq)) return false;
    m_pPainter->SetBackground(s32Output, nullptr);
    return true;
  });
}

void CGuide::Renew(SInt32 i_s32VoDev) {
  auto screen = m_mapScreens.find(i_s32VoDev);
  if (screen == m_mapScreens.end()) screen = m_mapScreens.find(T_DispRecord::kAllOutputs);
  if (screen == m_mapScreens.end()) return;
  m_mapScreens[i_s32VoDev] = screen->second;
  Ask(i_s32VoDev, m_mapScreens[i_s32VoDev], {i_s32VoDev});
}

Bool CGuide::Take(const T_PictureResult& i_result) {
  const auto found = std::find_if(
      m_vecRequests.begin(), m_vecRequests.end(),
      [&](const T_Request& i_request) { return i_request.m_u64Ticket == i_result.m_u64Ticket; });
  if (found == m_vecRequests.end()) return false;
  const T_Request request = std::move(*found);
  m_vecRequests.erase(found);
  if (!i_result.m_stLoaded.m_strError.empty()) return true;
  Remember(request.m_s32Output, request.m_stScreen);
  Place(request, i_result);
  return true;
}

// Layers may have come, gone or changed their size in the meantime.
void CGuide::Place(const T_Request& i_request, const T_PictureResult& i_result) {
  for (const auto& [s32VoDev, layer] : m_pPainter->Layers()) {
    const auto& hidden = i_request.m_vecHidden;
    if (!Covers(i_request.m_s32Output, s32VoDev) ||
        std::find(hidden.begin(), hidden.end(), s32VoDev) != hidden.end())
      continue;
    m_mapScreens[s32VoDev] = i_request.m_stScreen;
    const auto pPicture = i_result.For(s32VoDev, layer.Canvas());
    if (pPicture != nullptr)
      m_pPainter->SetBackground(s32VoDev, pPicture);
    else
      Renew(s32VoDev);
  }
}
