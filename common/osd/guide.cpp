#include "common/osd/guide.h"

#include <algorithm>
#include <utility>

namespace {

constexpr const char* kOwnPicture = "/usr/local/share/guidescreen.png";
constexpr const char* kOwnOverlay = "/usr/local/share/image_overlay1.png";
// So many requests of an output are kept at most, the wanted one among them.
constexpr size_t kMaxScreens = 4;

constexpr const char* kReplaced = "a later request came before its picture had been read";

}  // namespace

const CGuide::T_Screens& CGuide::WantedOn(SInt32 i_s32Output) const {
  const auto own = m_mapWanted.find(i_s32Output);
  return own != m_mapWanted.end() ? own->second : m_vecOthers;
}

template <class T_Change>
void CGuide::ChangeWanted(UInt16 i_u16Output, const T_Change& i_change) {
  if (i_u16Output != kEveryOutput) {
    i_change(m_mapWanted.try_emplace(i_u16Output, m_vecOthers).first->second);
  } else {
    for (auto& [s32Output, screens] : m_mapWanted) i_change(screens);
    i_change(m_vecOthers);
  }
}

// The same picture, requested again while it is read, does not count as one more to return to.
void CGuide::Show(UInt16 i_u16Output, UInt16 i_u16Seq, const std::string& i_strPath,
                  const T_Asker& i_asker) {
  const T_Screen screen{++m_u64LastNumber, i_u16Seq, i_strPath, i_asker};
  ChangeWanted(i_u16Output, [&](T_Screens& io_screens) {
    if (!io_screens.empty() && !io_screens.back().m_bCame &&
        io_screens.back().m_strPath == i_strPath) {
      Close(io_screens.back(), kReplaced);
      io_screens.pop_back();
    }
    io_screens.push_back(screen);
    if (io_screens.size() <= kMaxScreens) return;
    const auto dropped = io_screens.begin() + (io_screens[0].m_bCame ? 1 : 0);
    Close(*dropped, kReplaced);
    io_screens.erase(dropped);
  });
}

Bool CGuide::Hide(UInt16 i_u16Output, UInt16 i_u16Seq) {
  Bool bHidden = false;
  ChangeWanted(i_u16Output, [&](T_Screens& io_screens) {
    if (io_screens.empty()) return;
    if (i_u16Seq != kEveryElement && io_screens.back().m_u16Seq != i_u16Seq) return;
    for (const T_Screen& screen : io_screens) Close(screen, kReplaced);
    io_screens.clear();
    bHidden = true;
  });
  return bHidden;
}

void CGuide::Close(const T_Screen& i_screen, const char* i_pWhy) {
  const Bool bDone = *i_pWhy == '\0';
  g_objLedger.Close(i_screen.m_stAsker, bDone ? ERequest::kDone : ERequest::kRefused, i_pWhy);
}

void CGuide::Withdraw(T_Layer& io_layer) {
  const UInt64 u64Ticket = std::exchange(io_layer.m_u64Ticket, 0);
  if (std::none_of(m_mapLayers.begin(), m_mapLayers.end(),
                   [=](const auto& i_entry) { return i_entry.second.m_u64Ticket == u64Ticket; }))
    m_pDesk->Withdraw(u64Ticket);
}

void CGuide::LayerGone(SInt32 i_s32Output) {
  const auto layer = m_mapLayers.find(i_s32Output);
  if (layer == m_mapLayers.end()) return;
  Withdraw(layer->second);
  m_mapLayers.erase(layer);
}

void CGuide::CloseDifference() {
  for (const auto& [s32Output, unused] : m_pPainter->Layers()) {
    const T_Screens& wanted = WantedOn(s32Output);
    T_Layer& layer = m_mapLayers[s32Output];
    if (layer.m_u64Ticket != 0 && (wanted.empty() || wanted.back().m_strPath != layer.m_strAsked))
      Withdraw(layer);
    if (!wanted.empty()) continue;
    layer.m_u64Number = 0;
    m_pPainter->SetBackground(s32Output, nullptr);
  }
  for (UInt64 number = OldestMissing(); number != 0 && m_pDesk->HasRoom(); number = OldestMissing())
    Ask(number);
  SettleWanted();
}

// The number of the earliest request that some layer lacks and that is not being read for it; 0
// when there is none.
UInt64 CGuide::OldestMissing() const {
  UInt64 u64Oldest = 0;
  for (const auto& [s32Output, layer] : m_mapLayers) {
    const T_Screens& wanted = WantedOn(s32Output);
    if (wanted.empty() || layer.m_u64Ticket != 0) continue;
    const UInt64 u64Number = wanted.back().m_u64Number;
    if (u64Number == layer.m_u64Number) continue;
    if (u64Oldest == 0 || u64Number < u64Oldest) u64Oldest = u64Number;
  }
  return u64Oldest;
}

// Has the picture of that request read, in one job for all layers that lack it.
void CGuide::Ask(UInt64 i_u64Number) {
  T_PictureJob job;
  job.m_bWholeScreen = true;
  std::vector<T_Layer*> layers;
  for (auto& [s32Output, layer] : m_mapLayers) {
    const T_Screens& wanted = WantedOn(s32Output);
    if (wanted.empty() || wanted.back().m_u64Number != i_u64Number || layer.m_u64Ticket != 0 ||
        layer.m_u64Number == i_u64Number)
      continue;
    const T_Canvas canvas = m_pPainter->Layers().at(s32Output).Canvas();
    job.m_vecTargets.push_back({s32Output, canvas.Extent(), {}});
    layer.m_strAsked = wanted.back().m_strPath;
    layer.m_u64Asked = i_u64Number;
    layers.push_back(&layer);
  }
  const Bool bOwn = layers.front()->m_strAsked.empty();
  job.m_strPath = bOwn ? kOwnPicture : layers.front()->m_strAsked;
  if (bOwn) job.m_strOverlay = kOwnOverlay;
  const UInt64 u64Ticket = m_pDesk->Ask(std::move(job));
  for (T_Layer* const pLayer : layers) pLayer->m_u64Ticket = u64Ticket;
}

void CGuide::CountAsCome(T_Screens& io_screens) {
  for (size_t i = 0; i + 1 < io_screens.size(); ++i) Close(io_screens[i], kReplaced);
  Close(io_screens.back(), "");
  io_screens.erase(io_screens.begin(), io_screens.end() - 1);
  io_screens.back().m_bCame = true;
}

// A screen that no layer lacks has come. Outputs that want the same as all others then need no
// entry of their own.
void CGuide::SettleWanted() {
  ChangeWanted(kEveryOutput, [this](T_Screens& io_screens) {
    if (io_screens.empty() || io_screens.back().m_bCame) return;
    const UInt64 u64Number = io_screens.back().m_u64Number;
    if (std::none_of(m_mapLayers.begin(), m_mapLayers.end(), [&](const auto& i_entry) {
          const T_Screens& wanted = WantedOn(i_entry.first);
          return !wanted.empty() && wanted.back().m_u64Number == u64Number &&
                 i_entry.second.m_u64Number != u64Number;
        })) {
      if (m_mapLayers.empty()) Close(io_screens.back(), CPainter::NoLayer(kEveryOutput).c_str());
      CountAsCome(io_screens);
    }
  });
  std::erase_if(m_mapWanted, [&](const auto& i_entry) { return i_entry.second == m_vecOthers; });
}

// A screen that came once stays wanted: some layer shows it, and a new one asks for it again.
void CGuide::Fail(UInt64 i_u64Number, const std::string& i_strWhy) {
  ChangeWanted(kEveryOutput, [&](T_Screens& io_screens) {
    std::erase_if(io_screens, [&](const T_Screen& i_screen) {
      const Bool bFails = !i_screen.m_bCame && i_screen.m_u64Number == i_u64Number;
      if (bFails) Close(i_screen, i_strWhy.c_str());
      return bFails;
    });
  });
}

// A later request for the same picture is answered as well.
void CGuide::Come(const std::string& i_strPath) {
  ChangeWanted(kEveryOutput, [&](T_Screens& io_screens) {
    if (!io_screens.empty() && io_screens.back().m_strPath == i_strPath) CountAsCome(io_screens);
  });
}

std::vector<T_OsdState::T_Guide> CGuide::State() const {
  std::vector<T_OsdState::T_Guide> guides;
  for (const auto& [s32Output, layer] : m_mapLayers)
    if (const T_Screens& wanted = WantedOn(s32Output); !wanted.empty())
      guides.push_back({s32Output, wanted.back().m_u16Seq, wanted.back().m_strPath,
                        wanted.back().m_bCame ? EPicture::kShown : EPicture::kWaiting,
                        wanted.back().m_stAsker});
  return guides;
}

Bool CGuide::Take(const T_PictureResult& i_result) {
  const T_Layer* pAsked = nullptr;
  for (auto& [s32Output, layer] : m_mapLayers) {
    if (layer.m_u64Ticket != i_result.m_u64Ticket) continue;
    pAsked = &layer;
    layer.m_u64Ticket = 0;
    layer.m_u64Number = layer.m_u64Asked;
    const T_Canvas canvas = m_pPainter->Layers().at(s32Output).Canvas();
    if (i_result.m_loaded)
      m_pPainter->SetBackground(s32Output, i_result.For(s32Output, canvas.Extent()));
  }
  if (pAsked == nullptr) return false;
  if (i_result.m_loaded)
    Come(pAsked->m_strAsked);
  else
    Fail(pAsked->m_u64Asked, i_result.m_loaded.Why());
  return true;
}
