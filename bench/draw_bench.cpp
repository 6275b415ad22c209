// What drawing costs beside filling the same rectangle: lines of text, erased ones, canvases cleared,
// the way to the layer, a list drawn anew, and what is read back from the canvas meanwhile. Built a
// second time with OSD_VECTOR_BITS=128, which confines the drawing to 128-bit instructions.
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <tuple>

#include "bench/bench.h"
#include "common/osd/display_list.h"
#include "common/osd/painter.h"
#include "platform/records.h"
#include "platform/soft/faults.h"

namespace {

#ifdef OSD_VECTOR_BITS
constexpr char kSuffix[] = "-128";
#else
constexpr char kSuffix[] = "";
#endif

constexpr UInt32 kW = 1920;
constexpr UInt32 kH = 1080;
constexpr UInt32 kCharacters = 40;
constexpr UInt32 kBatch = 64;
// Of the scene that is traced, px: whole pages.
constexpr UInt32 kSceneW = 1024;
constexpr UInt32 kSceneH = 300;
constexpr UInt32 kSceneRefreshes = 16;  // at most
constexpr UInt64 kSceneBytes = UInt64{kSceneW} * kSceneH * sizeof(UInt32);

T_DispRecord TextRecord(UInt32 i_u32Pixels) {
  T_DispRecord record{};
  record.m_u16Line = 1;
  record.m_u16Time = T_DispRecord::kForever;
  record.m_u32X = 1000;
  record.m_u16FontSize = static_cast<UInt16>(i_u32Pixels * 3840 / kW);
  record.m_u32TextColour = 0xFFFFFFFF;
  record.m_u32Background = 0x3F616161;
  for (UInt32 i = 0; i < kCharacters; ++i) record.m_aText[0][i] = static_cast<char>('0' + i);
  return record;
}

using T_Four = UInt32 __attribute__((vector_size(16), aligned(4)));

// With stores of 128 bits, four in a turn of the loop, whatever the processor has.
__attribute__((noinline)) void Fill(const T_Canvas& i_canvas, const T_Rect& i_rect,
                                    UInt32 i_u32Value) {
  const T_Four four{i_u32Value, i_u32Value, i_u32Value, i_u32Value};
  for (UInt32 y = i_rect.m_u32Y; y < i_rect.m_u32Y + i_rect.m_u32H; ++y) {
    UInt32* pPixel = i_canvas.Row(y) + i_rect.m_u32X;
    const UInt32* const pEnd = pPixel + i_rect.m_u32W;
    for (; pEnd - pPixel >= 16; pPixel += 16) {
      auto* const pFour = reinterpret_cast<T_Four*>(pPixel);
      pFour[0] = pFour[1] = pFour[2] = pFour[3] = four;
    }
    for (; pEnd - pPixel >= 4; pPixel += 4) *reinterpret_cast<T_Four*>(pPixel) = four;
    for (; pPixel < pEnd; ++pPixel) *pPixel = i_u32Value;
  }
}

// The same with one store in a turn of the loop, which not every processor takes at full speed.
__attribute__((noinline)) void FillPlainly(const T_Canvas& i_canvas, const T_Rect& i_rect,
                                           UInt32 i_u32Value) {
  const T_Four four{i_u32Value, i_u32Value, i_u32Value, i_u32Value};
  for (UInt32 y = i_rect.m_u32Y; y < i_rect.m_u32Y + i_rect.m_u32H; ++y) {
    UInt32* pPixel = i_canvas.Row(y) + i_rect.m_u32X;
    const UInt32* const pEnd = pPixel + i_rect.m_u32W;
    for (; pEnd - pPixel >= 4; pPixel += 4) *reinterpret_cast<T_Four*>(pPixel) = four;
    for (; pPixel < pEnd; ++pPixel) *pPixel = i_u32Value;
  }
}

void CopyRows(const T_Canvas& i_from, const T_Rect& i_rect, const T_Canvas& i_to) {
  for (UInt32 y = i_rect.m_u32Y; y < i_rect.m_u32Y + i_rect.m_u32H; ++y)
    std::memcpy(i_to.Row(y) + i_rect.m_u32X, i_from.Row(y) + i_rect.m_u32X,
                i_rect.m_u32W * sizeof(UInt32));
}

// Memory as a layer's canvas has it, of kW pixels a row.
class CMemory {
 public:
  explicit CMemory(UInt32 i_u32H) : m_u32H(i_u32H) {
    if (!m_memory.Allocate(kW, i_u32H)) Die("no memory for a canvas");
  }
  T_Canvas Canvas() const { return {static_cast<UInt32*>(m_memory.Get().m_pVirtual), kW, m_u32H}; }

 private:
  CCanvasMemory m_memory;
  UInt32 m_u32H;
};

// A line of text and the canvases that it is drawn on in turn: as many as it takes to write that
// many bytes before one comes again.
class CLine {
 public:
  CLine(UInt32 i_u32Pixels, size_t i_bytes) : m_record(TextRecord(i_u32Pixels)) {
    m_layout = m_objDrawer.LayOut(m_record, {nullptr, kW, 2 * i_u32Pixels}).value();
    m_rect = m_layout.LineRect(0);
    do m_canvases.emplace_back(2 * i_u32Pixels);
    while (m_canvases.size() * m_rect.m_u32W * m_rect.m_u32H * sizeof(UInt32) < i_bytes);
  }

  void Draw(EDrawMode i_eMode) {
    const T_Canvas canvas = Next();
    m_objDrawer.DrawOsdInfo(m_layout, i_eMode, canvas, canvas.Whole());
  }
  void FillIt(UInt32 i_u32Value) { Fill(Next(), m_rect, i_u32Value); }
  UInt32 Turn() const { return std::max(kBatch, static_cast<UInt32>(m_canvases.size())); }

 private:
  T_Canvas Next() { return m_canvases[m_next++ % m_canvases.size()].Canvas(); }

  CTextDrawer m_objDrawer;
  T_DispRecord m_record;
  T_Layout m_layout;
  T_Rect m_rect;
  std::vector<CMemory> m_canvases;
  size_t m_next = 0;
};

void Line(const CBench& i_bench, const std::string& i_name, UInt32 i_u32Pixels, size_t i_bytes,
          EDrawMode i_eMode) {
  CLine line(i_u32Pixels, i_bytes);
  const UInt32 u32Value = i_eMode == EDrawMode::kDraw ? 0x3F616161 : 0;
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const double filled = Each(line.Turn(), [&] { line.FillIt(u32Value); });
    row.Add(Each(line.Turn(), [&] { line.Draw(i_eMode); }), filled);
  }
  i_bench.Print(i_name + kSuffix, row);
}

void PlainFill(const CBench& i_bench) {
  const CMemory memory(64);
  const T_Rect rect{120, 0, 760, 37};
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const double fill = Each(kBatch, [&] { Fill(memory.Canvas(), rect, 0x3F616161); });
    row.Add(Each(kBatch, [&] { FillPlainly(memory.Canvas(), rect, 0x3F616161); }), fill);
  }
  i_bench.Print("plain-fill", row);
}

size_t BeyondL2() {
  const long l2 = sysconf(_SC_LEVEL2_CACHE_SIZE);
  return static_cast<size_t>(l2 > 0 ? l2 : 1 << 20) * 4;
}

void Clear(const CBench& i_bench) {
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const double set = Each(1, [] {
      T_ContiguousMemory memory{};
      if (!ContiguousAlloc(kW * kH * 4, &memory)) Die("no memory for a canvas");
      std::memset(memory.m_pVirtual, 0, size_t{kW} * kH * 4);
      ContiguousFree(memory);
    });
    row.Add(Each(1, [] { CCanvasMemory().Allocate(kW, kH); }), set);
  }
  i_bench.Print("clear", row, "with the allocation on both sides");
}

// One layer, and a painter with its items.
class CScene {
 public:
  CScene(UInt32 i_u32W, UInt32 i_u32H) {
    if (!SetUpLayer({0, 0, 0, 0, i_u32W, i_u32H}, m_mapLayers)) Die("cannot set up a layer");
  }

  T_Item& Add(const T_DispRecord& i_record) { return m_lstItems.emplace_back(i_record, T_Asker{}); }
  CLayer& Layer() { return m_mapLayers.begin()->second; }
  CPainter& Painter() { return m_objPainter; }
  T_ItemList& Items() { return m_lstItems; }

 private:
  T_LayerMap m_mapLayers;
  T_ItemList m_lstItems;
  CPainter m_objPainter{&m_mapLayers, &m_lstItems};
};

void DrawRefresh(const CBench& i_bench) {
  CScene scene(kW, kH);
  T_Item& item = scene.Add(TextRecord(32));
  CTextDrawer drawer;
  const CMemory canvas(kH);
  const CMemory layer(kH);
  const T_Layout layout = drawer.LayOut(item.Record(), canvas.Canvas()).value();
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const double reference = Each(kBatch, [&] {
      drawer.DrawOsdInfo(layout, EDrawMode::kDraw, canvas.Canvas(), canvas.Canvas().Whole());
      CopyRows(canvas.Canvas(), layout.LineRect(0), layer.Canvas());
    });
    row.Add(Each(kBatch, [&] { scene.Painter().ChangeText(item, EDrawMode::kDraw); }), reference);
  }
  i_bench.Print("draw-refresh", row);
}

// The list as a new layer gets it. Its refreshes fail at once by order of the software screen, which
// leaves the drawing alone.
void AfterInit(const CBench& i_bench) {
  constexpr UInt32 kItems = 65;
  CScene scene(kW, kH);
  CPictureDesk desk([](std::unique_ptr<T_PictureResult>&) { return true; });
  CDisplayList list(&scene.Items(), &scene.Painter(), &desk);
  for (UInt32 i = 0; i < kItems; ++i) {
    T_DispRecord record = TextRecord(32);
    record.m_u32Y = i * 130;
    scene.Add(record);
  }
  list.DisplayDisInfoList(0);
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const double filled = Each(1, [&] {
      for (const T_Item& item : scene.Items())
        Fill(scene.Layer().Canvas(), item.RectOn(0), 0x3F616161);
    });
    for (UInt32 i = 1; i <= kItems; ++i) SoftFail(kFbRefresh, i, EIO);
    row.Add(Each(1, [&] { list.DisplayDisInfoList(0); }), filled);
    SoftFailNothing();
  }
  i_bench.Print("after-init", row);
}

std::shared_ptr<const CPicture> Picture(UInt32 i_u32Alpha) {
  const auto pPicture = std::make_shared<CPicture>(T_Extent{64, 64});
  for (UInt32 i = 0; i < 64 * 64; ++i) pPicture->Row(0)[i] = i_u32Alpha << 24 | i;
  pPicture->SetOpaque(i_u32Alpha == 255);
  return pPicture;
}

// Text, an opaque, a translucent and a faint picture upon it, a text upon them, and all away again.
// The refreshes, whose reads of the canvas are the device's, fail at once by order of the software
// screen. Says where the canvas is, for whoever traces it.
void PaintScene() {
  CScene scene(kSceneW, kSceneH);
  std::printf("%" PRIxPTR "\n", reinterpret_cast<uintptr_t>(scene.Layer().Canvas().m_pPixels));
  for (UInt32 i = 1; i <= kSceneRefreshes; ++i) SoftFail(kFbRefresh, i, EIO);
  T_Item& below = scene.Add(TextRecord(32));
  scene.Painter().ShowText(below);
  const std::pair<UInt32, UInt16> kLooks[] = {{255, 255}, {100, 255}, {255, 100}};
  T_Rect place{10, 0, 64, 64};
  for (const auto& [u32Alpha, u16Opacity] : kLooks) {
    T_DispRecord record{};
    record.m_u32Kind = T_DispRecord::kKindIcon;
    record.m_u16Opacity = u16Opacity;
    scene.Painter().Move(scene.Add(record), {{0, place, Picture(u32Alpha), 1}});
    scene.Painter().Restore();
    place.m_u32X += 50;
  }
  T_Item& above = scene.Add(TextRecord(16));
  scene.Painter().ShowText(above);
  for (T_Item& item : scene.Items()) {
    scene.Painter().Move(item, {});
    scene.Painter().Restore();
  }
}

// Bytes loaded and stored, by page.
struct T_Traffic {
  UInt64 m_u64Loaded = 0;
  UInt64 m_u64Stored = 0;
};
constexpr UInt64 kPage = 4096;
using T_Trace = std::map<UInt64, T_Traffic>;

T_Traffic Between(const T_Trace& i_trace, UInt64 i_u64From, UInt64 i_u64To) {
  T_Traffic sum;
  for (auto page = i_trace.lower_bound(i_u64From / kPage);
       page != i_trace.lower_bound(i_u64To / kPage); ++page) {
    sum.m_u64Loaded += page->second.m_u64Loaded;
    sum.m_u64Stored += page->second.m_u64Stored;
  }
  return sum;
}

// Every access of this program painting the scene, by valgrind's lackey.
T_Trace TraceScene(const std::string& i_addresses) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  std::FILE* const pLog =
      popen(("exec 9>&1; exec valgrind --tool=lackey --trace-mem=yes --log-fd=9 " + self +
             " 1 scene >" + i_addresses)
                .c_str(),
            "r");
  T_Trace trace;
  char szLine[256];
  while (std::fgets(szLine, sizeof(szLine), pLog) != nullptr) {
    const char what = szLine[1];
    if (szLine[0] != ' ' || std::strchr("LSM", what) == nullptr) continue;
    char* pSize = nullptr;
    T_Traffic& page = trace[std::strtoull(szLine + 3, &pSize, 16) / kPage];
    const UInt64 u64Size = std::strtoull(pSize + 1, nullptr, 10);
    if (what != 'S') page.m_u64Loaded += u64Size;
    if (what != 'L') page.m_u64Stored += u64Size;
  }
  if (pclose(pLog) != 0) Die("valgrind did not run");
  return trace;
}

void ReadBack(const CBench& i_bench) {
  const std::string addresses = DeviceRoot() + "/addresses";
  const T_Trace trace = TraceScene(addresses);
  UInt64 u64Canvas = 0;
  std::ifstream(addresses) >> std::hex >> u64Canvas;
  const T_Traffic canvas = Between(trace, u64Canvas, u64Canvas + kSceneBytes);
  // The software screen and the layer fill it once each.
  if (canvas.m_u64Stored <= 2 * kSceneBytes) Die("the trace shows no drawing");
  T_Row row;
  row.m_ours = {static_cast<double>(canvas.m_u64Loaded)};
  i_bench.Print("readback", row,
                "of " + std::to_string(canvas.m_u64Stored) + " bytes written, clearing included");
}

}  // namespace

int main(int argc, char** argv) {
  const CBench bench(argc, argv);
  if (bench.Wants({"scene"})) return PaintScene(), 0;
  Pin(0);
  constexpr EDrawMode kDraw = EDrawMode::kDraw;
  const std::tuple<const char*, UInt32, size_t, EDrawMode> kLines[] = {
      {"text-32", 32, 0, kDraw},
      {"text-32-far", 32, BeyondL2(), kDraw},
      {"text-16", 16, 0, kDraw},
      {"text-16-far", 16, BeyondL2(), kDraw},
      {"erase", 32, 0, EDrawMode::kErase}};
  for (const auto& [pName, u32Pixels, bytes, eMode] : kLines)
    if (bench.Wants({(std::string(pName) + kSuffix).c_str()}))
      Line(bench, pName, u32Pixels, bytes, eMode);
  if (bench.Wants({"plain-fill"})) PlainFill(bench);
  if (bench.Wants({"clear"})) Clear(bench);
  if (bench.Wants({"draw-refresh"})) DrawRefresh(bench);
  if (bench.Wants({"after-init"})) AfterInit(bench);
  if (bench.Wants({"readback"})) ReadBack(bench);
  return 0;
}
