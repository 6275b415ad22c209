#include "common/osd/guide.h"

#include <algorithm>
#include <utility>

namespace {

constexpr const char* kOwnPicture = "/usr/local/share/guidescreen.png";
constexpr const char* kOwnOverlay = "/usr/local/share/image_overlay1.png";
constexpr SInt32 kOthers = T_DispRecord::kAllOutputs;

}  // namespace

// Those with an entry or a layer, when all are meant.
std::vector<SInt32> CGuide::OutputsOf(UInt16 i_u16Output) const {
  if (i_u16Output != kOthers) return {i_u16Output};
  std::vector<SInt32> outputs{kOthers};
  for (const auto& [s32VoDev, layer] : m_pPainter->Layers()) outputs.push_back(s32VoDev);
  for (const auto& [s32VoDev, output] : m_mapOutputs) outputs.push_back(s32VoDev);
  std::sort(outputs.begin(), outputs.end());
  outputs.erase(std::unique(outputs.begin(), outputs.end()), outputs.end());
  return outputs;
}

CGuide::T_Output& CGuide::Output(SInt32 i_s32VoDev) {
  const auto others = m_mapOutputs.find(kOthers);
  return m_mapOutputs
      .try_emplace(i_s32VoDev, others != m_mapOutputs.end() ? others->second : T_Output{})
      .first->second;
}

void CGuide::Withdraw(T_Output& io_output) {
  const UInt64 u64Ticket = std::exchange(io_output.m_u64Ticket, 0);
  io_output.m_wanted.reset();
  if (u64Ticket != 0 &&
      std::none_of(m_mapOutputs.begin(), m_mapOutputs.end(),
                   [=](const auto& i_entry) { return i_entry.second.m_u64Ticket == u64Ticket; }))
    m_pDesk->Withdraw(u64Ticket);
}

// Outputs without a layer get what those with one get; when none has one, there is nothing to read.
void CGuide::Ask(const std::vector<SInt32>& i_vecOutputs, const T_Screen& i_screen) {
  const Bool bOwn = i_screen.m_strPath.empty();
  T_PictureJob job{bOwn ? kOwnPicture : i_screen.m_strPath, true, bOwn ? kOwnOverlay : "", {}};
  for (const SInt32 s32VoDev : i_vecOutputs) {
    const auto layer = m_pPainter->Layers().find(s32VoDev);
    if (layer == m_pPainter->Layers().end()) continue;
    const T_Canvas canvas = layer->second.Canvas();
    job.m_vecTargets.push_back({s32VoDev, {canvas.m_u32W, canvas.m_u32H}, {}});
  }
  for (const SInt32 s32VoDev : i_vecOutputs) Withdraw(Output(s32VoDev));
  const UInt64 u64Ticket = job.m_vecTargets.empty() ? 0 : m_pDesk->Ask(std::move(job)).m_u64Ticket;
  for (const SInt32 s32VoDev : i_vecOutputs) {
    T_Output& output = m_mapOutputs[s32VoDev];
    (u64Ticket == 0 ? output.m_shown : output.m_wanted) = i_screen;
    output.m_u64Ticket = u64Ticket;
  }
}

void CGuide::Show(UInt16 i_u16Output, UInt16 i_u16Seq, const std::string& i_strPath) {
  Ask(OutputsOf(i_u16Output), {i_u16Seq, i_strPath});
}

void CGuide::Hide(UInt16 i_u16Output, UInt16 i_u16Seq) {
  for (const SInt32 s32VoDev : OutputsOf(i_u16Output)) {
    T_Output& output = Output(s32VoDev);
    if (output.m_wanted && output.m_wanted->Is(i_u16Seq)) Withdraw(output);
    if (!output.m_shown || !output.m_shown->Is(i_u16Seq)) continue;
    output.m_shown.reset();
    m_pPainter->SetBackground(s32VoDev, nullptr);
  }
  if (!m_mapOutputs.contains(kOthers) || m_mapOutputs[kOthers] == T_Output{})
    std::erase_if(m_mapOutputs, [](const auto& i_entry) { return i_entry.second == T_Output{}; });
}

void CGuide::Renew(SInt32 i_s32VoDev) {
  if (!m_mapOutputs.contains(i_s32VoDev) && !m_mapOutputs.contains(kOthers)) return;
  const T_Output& output = Output(i_s32VoDev);
  const std::optional<T_Screen> screen = output.m_wanted ? output.m_wanted : output.m_shown;
  if (screen) Ask({i_s32VoDev}, *screen);
}

// What the others will show it need not know itself.
void CGuide::LayerGone(SInt32 i_s32VoDev) {
  const auto output = m_mapOutputs.find(i_s32VoDev);
  const auto others = m_mapOutputs.find(kOthers);
  if (output == m_mapOutputs.end() || others == m_mapOutputs.end() || output == others) return;
  if (output->second == others->second) m_mapOutputs.erase(output);
}

Bool CGuide::Take(const T_PictureResult& i_result) {
  Bool bMine = false;
  for (auto& [s32VoDev, output] : m_mapOutputs) {
    if (output.m_u64Ticket != i_result.m_u64Ticket) continue;
    bMine = true;
    output.m_u64Ticket = 0;
    TakeOn(s32VoDev, output, i_result);
  }
  return bMine;
}

void CGuide::TakeOn(SInt32 i_s32VoDev, T_Output& io_output, const T_PictureResult& i_result) {
  const std::optional<T_Screen> asked = std::exchange(io_output.m_wanted, std::nullopt);
  const auto layer = m_pPainter->Layers().find(i_s32VoDev);
  if (i_result.m_stLoaded.m_strError.empty()) {
    io_output.m_shown = asked;
    if (layer != m_pPainter->Layers().end())
      m_pPainter->SetBackground(i_s32VoDev, i_result.For(i_s32VoDev, layer->second.Canvas()));
    return;
  }
  // The layer may have been renewed since, and what was there is to stay.
  if (layer != m_pPainter->Layers().end() && io_output.m_shown && io_output.m_shown != asked &&
      !m_pPainter->HasBackground(i_s32VoDev))
    Ask({i_s32VoDev}, *io_output.m_shown);
}
