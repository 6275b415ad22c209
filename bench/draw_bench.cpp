// A line of 40 characters on 1920x1080: drawn, drawn and shown, cleared; each beside memset over
// the same bytes (row by row in the canvas, and in one piece), measured in turns in the same run.
// Then drawn and shown in font sizes that change at random, beside the same ones in order. The
// counters are those of the quickest turn of each.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "common/osd/painter.h"

namespace {

using T_Clock = std::chrono::steady_clock;

constexpr UInt32 kCharacters = 40;
constexpr int kBatch = 64;
constexpr T_LayerRequest kScreen{0, 0, 0, 0, 1920, 1080};

// One layer with a text in the middle. Its size is i_u32Pixels on this screen.
class CScene {
 public:
  explicit CScene(UInt32 i_u32Pixels) {
    if (!SetUpLayer(kScreen, m_mapLayers)) std::abort();
    m_lstItems.emplace_back(T_DispRecord{});
    T_DispRecord& record = m_lstItems.front().m_stWanted.m_stRecord;
    record.m_u16Line = 1;
    record.m_u16FontSize = static_cast<UInt16>(i_u32Pixels * 3840 / kScreen.m_u32W);
    record.m_u32TextColour = 0xFFFFFFFF;
    record.m_u32Background = 0x3F616161;
    for (UInt32 i = 0; i < kCharacters; ++i) record.m_aText[0][i] = static_cast<char>('0' + i);
    m_layout = m_objDrawer.LayOut(record, Canvas());
    m_stRect = m_layout.value().LineRect(0);
    m_vecFlat.resize(size_t{m_stRect.m_u32W} * m_stRect.m_u32H);
  }

  T_Canvas Canvas() const { return m_mapLayers.begin()->second.Canvas(); }
  void Draw() { m_objDrawer.DrawOsdInfo(*m_layout, EDrawMode::kDraw, Canvas(), Canvas().Whole()); }
  void SetFontSize(UInt16 i_u16Size) {
    m_lstItems.front().m_stWanted.m_stRecord.m_u16FontSize = i_u16Size;
  }
  void DrawAndRefresh() { m_objPainter.ChangeText(m_lstItems.front(), EDrawMode::kDraw); }
  void EraseAndRefresh() { m_objPainter.ChangeText(m_lstItems.front(), EDrawMode::kErase); }
  void ClearRows() { ClearRect(Canvas(), m_stRect); }
  void ClearFlat() { std::memset(m_vecFlat.data(), 0, m_vecFlat.size() * sizeof(UInt32)); }
  double Pixels() const { return static_cast<double>(m_vecFlat.size()); }

 private:
  T_LayerMap m_mapLayers;
  T_ItemList m_lstItems;
  CPainter m_objPainter{&m_mapLayers, &m_lstItems};
  CTextDrawer m_objDrawer;
  std::optional<T_Layout> m_layout;
  T_Rect m_stRect;
  std::vector<UInt32> m_vecFlat;
};

double Seconds(CScene& io_scene, void (CScene::*i_pWork)()) {
  const auto start = T_Clock::now();
  for (int i = 0; i < kBatch; ++i) {
    (io_scene.*i_pWork)();
    benchmark::ClobberMemory();
  }
  return std::chrono::duration<double>(T_Clock::now() - start).count() / kBatch;
}

void BesideMemset(benchmark::State& io_state, void (CScene::*i_pWork)()) {
  CScene scene(static_cast<UInt32>(io_state.range(0)));
  (scene.*i_pWork)();
  double work = 1;
  double rows = 1;
  double flat = 1;
  while (io_state.KeepRunning()) {
    const double seconds = Seconds(scene, i_pWork);
    io_state.SetIterationTime(seconds);
    work = std::min(work, seconds);
    rows = std::min(rows, Seconds(scene, &CScene::ClearRows));
    flat = std::min(flat, Seconds(scene, &CScene::ClearFlat));
  }
  io_state.counters["pixels/s"] = scene.Pixels() / work;
  io_state.counters["x_memset_rows"] = work / rows;
  io_state.counters["x_memset_flat"] = work / flat;
}

double SecondsInSizes(CScene& io_scene, const std::vector<UInt16>& i_vecSizes) {
  const auto start = T_Clock::now();
  for (const UInt16 u16Size : i_vecSizes) {
    io_scene.SetFontSize(u16Size);
    io_scene.DrawAndRefresh();
  }
  return std::chrono::duration<double>(T_Clock::now() - start).count() /
         static_cast<double>(i_vecSizes.size());
}

void SizesAtRandom(benchmark::State& io_state) {
  CScene scene(16);
  std::vector<UInt16> random(2048);
  std::ranges::generate(random, [engine = std::minstd_rand()]() mutable {
    return static_cast<UInt16>(40 + engine() % 40);
  });
  std::vector<UInt16> order = random;
  std::ranges::sort(order);
  double atRandom = 1;
  double inOrder = 1;
  while (io_state.KeepRunning()) {
    inOrder = std::min(inOrder, SecondsInSizes(scene, order));
    const double seconds = SecondsInSizes(scene, random);
    io_state.SetIterationTime(seconds);
    atRandom = std::min(atRandom, seconds);
  }
  io_state.counters["texts/s"] = 1 / atRandom;
  io_state.counters["x_in_order"] = inOrder / atRandom;
}

void Arguments(benchmark::internal::Benchmark* i_pBenchmark) {
  i_pBenchmark->Arg(16)->Arg(32)->ArgName("px")->Iterations(500)->UseManualTime();
}

BENCHMARK_CAPTURE(BesideMemset, draw, &CScene::Draw)->Apply(Arguments);
BENCHMARK_CAPTURE(BesideMemset, draw_refresh, &CScene::DrawAndRefresh)->Apply(Arguments);
BENCHMARK_CAPTURE(BesideMemset, clear, &CScene::ClearRows)->Apply(Arguments);
BENCHMARK_CAPTURE(BesideMemset, erase_refresh, &CScene::EraseAndRefresh)->Apply(Arguments);
BENCHMARK(SizesAtRandom)->Iterations(20)->UseManualTime();

}  // namespace

int main(int i_s32Argc, char** i_ppArgv) {
  char szRoot[] = "/tmp/osd-bench-XXXXXX";
  if (mkdtemp(szRoot) == nullptr) return 1;
  const std::string root = szRoot;
  if (std::system((OSD_DEVICE_ROOT_TOOL " " + root).c_str()) != 0) return 1;
  setenv("OSD_ROOT", szRoot, 1);
  benchmark::Initialize(&i_s32Argc, i_ppArgv);
  benchmark::RunSpecifiedBenchmarks();
  return std::system(("rm -r " + root).c_str()) == 0 ? 0 : 1;
}
