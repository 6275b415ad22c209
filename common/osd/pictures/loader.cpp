#include "common/osd/pictures/loader.h"

#include <algorithm>
#include <functional>
#include <new>

#include "common/osd/pictures/blend.h"
#include "common/osd/pictures/row_reader.h"
#include "common/osd/pictures/scaler.h"
#include "framework/log.h"
#include "platform/platform.h"

namespace {

constexpr UInt32 kBlack = 0xFF000000;
constexpr const char* kChanged = "it changed while it was read";

using T_Read = CResult<T_Rows> (*)(const T_File&, const std::stop_token&);

struct T_Format {
  std::string_view m_start;  // of the file
  T_Read m_pRead;
};
constexpr T_Format kFormats[] = {
    {"\x89PNG\r\n\x1A\n", &ReadPng}, {"\xFF\xD8\xFF", &ReadJpeg}, {"BM", &ReadBmp}};

CResult<T_File> OpenFile(const std::string& i_strPath) {
  CResult<CPictureFile> file = CPictureFile::Open(NamedPath(i_strPath));
  if (!file) return file.Refusal();
  return std::make_shared<CPictureFile>(std::move(*file));
}

CResult<T_Rows> ReadRows(const T_File& i_pFile, const std::stop_token& i_stop) {
  char aStart[8] = {};
  const size_t bytes = std::min(sizeof(aStart), i_pFile->Bytes());
  const CResult<> read = i_pFile->Read(aStart, bytes);
  i_pFile->Seek(0);
  for (const T_Format& format : kFormats)
    if (read && std::string_view(aStart, bytes).starts_with(format.m_start))
      return format.m_pRead(i_pFile, i_stop);
  return Refuse("it is not a PNG, JPEG or BMP file");
}

T_Refusal OfOverlay(const std::string& i_strWhy, const CPictureFile& i_file) {
  return {i_file.HasChanged() ? kChanged : i_strWhy, true};
}

// The rows of one picture with another laid over its middle, pixel by pixel and cut where it passes
// the edges.
class COverlaidRows : public CRowReader {
 public:
  // i_pOver are the rows of i_pFile. When they cannot be read to their end, the refusal is theirs.
  COverlaidRows(T_Rows i_pRows, const T_File& i_pFile, T_Rows i_pOver)
      : CRowReader(i_pRows->Extent(), i_pRows->HasAlpha()),
        m_pRows(std::move(i_pRows)),
        m_pFile(i_pFile),
        m_pOver(std::move(i_pOver)),
        m_over(m_pOver->Extent().m_u32W) {}

  CResult<> Read(UInt32* o_pRow) override {
    if (CResult<> read = m_pRows->Read(o_pRow); !read) return read;
    const auto [w, h] = Extent();
    const auto [overW, overH] = m_pOver->Extent();
    const UInt32 u32W = std::min(w, overW);
    const UInt32 u32H = std::min(h, overH);
    const UInt32 u32Y = m_u32Y++ - (h - u32H) / 2;  // beyond all rows where it would be negative
    if (u32Y >= u32H) return {};
    if (CResult<> read = ReadOver((overH - u32H) / 2 + u32Y + 1); !read) return read;
    BlendRow(m_over.data() + (overW - u32W) / 2, o_pRow + (w - u32W) / 2, u32W, 255);
    return {};
  }

  CResult<> Finish() override {
    if (CResult<> read = ReadOver(m_pOver->Extent().m_u32H); !read) return read;
    if (const CResult<> end = m_pOver->Finish(); !end) return OfOverlay(end.Why(), *m_pFile);
    if (m_pFile->HasChanged()) return OfOverlay(kChanged, *m_pFile);
    return m_pRows->Finish();
  }

 private:
  // Until i_u32Rows of them were read.
  CResult<> ReadOver(UInt32 i_u32Rows) {
    for (; m_u32Over < i_u32Rows; ++m_u32Over)
      if (const CResult<> read = m_pOver->Read(m_over.data()); !read)
        return OfOverlay(read.Why(), *m_pFile);
    return {};
  }

  const T_Rows m_pRows;
  const T_File m_pFile;
  const T_Rows m_pOver;
  std::vector<UInt32> m_over;
  UInt32 m_u32Y = 0;
  UInt32 m_u32Over = 0;
};

// i_u32Side * i_u32By / i_u32Of rounded, from 1 to what 32 bits hold.
UInt32 Proportion(UInt32 i_u32Side, UInt32 i_u32By, UInt32 i_u32Of) {
  const UInt64 u64Side = (UInt64{i_u32Side} * i_u32By + i_u32Of / 2) / i_u32Of;
  return static_cast<UInt32>(std::clamp<UInt64>(u64Side, 1, UINT32_MAX));
}

// The largest size with the aspect of i_stOwn inside i_stRoom.
T_Extent Fitting(const T_Extent& i_stOwn, const T_Extent& i_stRoom) {
  const auto [w, h] = i_stOwn;
  if (UInt64{w} * i_stRoom.m_u32H > UInt64{h} * i_stRoom.m_u32W)
    return {i_stRoom.m_u32W, Proportion(i_stRoom.m_u32W, h, w)};
  return {Proportion(i_stRoom.m_u32H, w, h), i_stRoom.m_u32H};
}

// One of the pictures that are made of the same rows.
struct T_Plan {
  T_Extent m_stPicture;
  T_Extent m_stScaled;
  T_Extent m_stSeen;  // of the scaled one; lies in the middle of the picture, on black

  bool operator==(const T_Plan&) const = default;
};

struct T_Target {
  std::shared_ptr<CPicture> m_pPicture;
  T_Part m_part;
  CScaler m_scaler;
};

CResult<T_Target> NewTarget(const CRowReader& i_rows, const T_Plan& i_plan) {
  const auto [w, h] = i_plan.m_stPicture;
  if (const CResult<> size = CheckSize(w, h); !size) return size.Refusal();
  try {
    auto pPicture = std::make_shared<CPicture>(i_plan.m_stPicture);
    const T_Part part = pPicture->Middle(i_plan.m_stSeen);
    if (i_plan.m_stSeen != i_plan.m_stPicture)
      std::fill_n(pPicture->Row(0), i_plan.m_stPicture.Pixels(), kBlack);
    CScaler scaler(i_rows.Extent(), i_rows.HasAlpha(), i_plan.m_stScaled, part);
    return T_Target{std::move(pPicture), part, std::move(scaler)};
  } catch (const std::bad_alloc&) {
    return Refuse("there is not enough memory for %u x %u pixels", w, h);
  }
}

Bool AreOpaque(const std::vector<UInt32>& i_row) {
  UInt32 u32All = ~0U;
  for (const UInt32 u32Argb : i_row) u32All &= u32Argb;
  return u32All >> 24 == 0xFF;
}

// All rows into all targets; whether all their pixels are opaque.
CResult<Bool> Pour(CRowReader& io_rows, std::vector<T_Target>& io_targets,
                   const std::stop_token& i_stop) {
  constexpr UInt32 kRowsPerLook = 64;
  std::vector<UInt32> row(io_rows.Extent().m_u32W);
  Bool bOpaque = true;
  for (UInt32 u32Y = 0; u32Y < io_rows.Extent().m_u32H; ++u32Y) {
    if (u32Y % kRowsPerLook == 0 && i_stop.stop_requested()) return Refuse("stopped");
    if (const CResult<> read = io_rows.Read(row.data()); !read) return read.Refusal();
    bOpaque = bOpaque && (!io_rows.HasAlpha() || AreOpaque(row));
    for (T_Target& target : io_targets) target.m_scaler.Take(row.data());
  }
  if (const CResult<> end = io_rows.Finish(); !end) return end.Refusal();
  for (T_Target& target : io_targets) target.m_scaler.Finish();
  return bOpaque;
}

void LayOnBlack(const T_Part& i_part) {
  std::vector<UInt32> row(i_part.m_stExtent.m_u32W);
  for (UInt32 u32Y = 0; u32Y < i_part.m_stExtent.m_u32H; ++u32Y) {
    UInt32* const pRow = i_part.Row(u32Y);
    std::copy_n(pRow, row.size(), row.begin());
    std::fill_n(pRow, row.size(), kBlack);
    BlendRow(row.data(), pRow, i_part.m_stExtent.m_u32W, 255);
  }
}

// What is to be made, of which file.
struct T_Job {
  std::string m_strPath;
  std::string m_strOverlay;  // empty: none
  std::function<std::vector<T_Plan>(const T_Extent& i_stOwn)> m_plans;
  Bool m_bOnBlack;
  std::stop_token m_stop;
};

using T_Pictures = std::vector<std::shared_ptr<const CPicture>>;

// A picture for each plan; equal plans share one.
CResult<T_Pictures> MakeAll(const T_Job& i_job, CRowReader& io_rows) {
  const std::vector<T_Plan> plans = i_job.m_plans(io_rows.Extent());
  std::vector<T_Plan> made;
  std::vector<T_Target> targets;
  for (const T_Plan& plan : plans) {
    if (std::find(made.begin(), made.end(), plan) != made.end()) continue;
    CResult<T_Target> target = NewTarget(io_rows, plan);
    if (!target) return target.Refusal();
    made.push_back(plan);
    targets.push_back(std::move(*target));
  }
  const CResult<Bool> opaque = Pour(io_rows, targets, i_job.m_stop);
  if (!opaque) return opaque.Refusal();
  for (T_Target& target : targets) {
    if (i_job.m_bOnBlack && !*opaque) LayOnBlack(target.m_part);
    target.m_pPicture->SetOpaque(i_job.m_bOnBlack || *opaque);
  }
  T_Pictures pictures;
  for (const T_Plan& plan : plans) {
    const auto at = std::find(made.begin(), made.end(), plan) - made.begin();
    pictures.push_back(targets[static_cast<size_t>(at)].m_pPicture);
  }
  return pictures;
}

CResult<T_Rows> Overlaid(T_Rows i_pRows, const T_Job& i_job) {
  CResult<T_File> file = OpenFile(i_job.m_strOverlay);
  if (!file) return T_Refusal{file.Why(), true};
  CResult<T_Rows> over = ReadRows(*file, i_job.m_stop);
  if (!over) return OfOverlay(over.Why(), **file);
  return T_Rows(new COverlaidRows(std::move(i_pRows), *file, std::move(*over)));
}

CResult<T_Loaded> LoadFrom(const T_File& i_pFile, const T_Job& i_job) {
  CResult<T_Rows> rows = ReadRows(i_pFile, i_job.m_stop);
  if (rows && !i_job.m_strOverlay.empty()) rows = Overlaid(std::move(*rows), i_job);
  if (!rows) return rows.Refusal();
  CResult<T_Pictures> pictures = MakeAll(i_job, **rows);
  if (!pictures) return pictures.Refusal();
  return T_Loaded{i_pFile->Id(), (*rows)->Extent(), std::move(*pictures)};
}

CResult<T_Loaded> Load(const T_Job& i_job) try {
  const CResult<T_File> file = OpenFile(i_job.m_strPath);
  if (!file) return file.Refusal();
  CResult<T_Loaded> loaded = LoadFrom(*file, i_job);
  if (!loaded && loaded.Refusal().m_bOverlay) return loaded;
  if ((*file)->HasChanged()) return Refuse("%s", kChanged);
  return loaded;
} catch (const std::bad_alloc&) {
  return Refuse("there is not enough memory for scaling it");
}

T_Plan PlanFor(const T_Extent& i_stOwn, const T_WantedSize& i_wanted) {
  const T_Extent stScaled = ScaledExtent(i_stOwn, i_wanted.m_stScaled);
  const T_Extent stSeen{std::min(stScaled.m_u32W, i_wanted.m_stRoom.m_u32W),
                        std::min(stScaled.m_u32H, i_wanted.m_stRoom.m_u32H)};
  return {stSeen, stScaled, stSeen};
}

}  // namespace

T_Extent ScaledExtent(const T_Extent& i_stOwn, const T_Extent& i_stWanted) {
  const auto [w, h] = i_stWanted;
  if (w == 0 && h == 0) return i_stOwn;
  if (w == 0) return {Proportion(h, i_stOwn.m_u32W, i_stOwn.m_u32H), h};
  if (h == 0) return {w, Proportion(w, i_stOwn.m_u32H, i_stOwn.m_u32W)};
  return i_stWanted;
}

T_FileId IdentifyFile(const std::string& i_strPath) {
  struct stat status {};
  return stat(NamedPath(i_strPath).c_str(), &status) == 0 ? T_FileId::Of(status) : T_FileId{};
}

CResult<T_Loaded> LoadPicture(const std::string& i_strPath, std::span<const T_WantedSize> i_sizes,
                              std::stop_token i_stop) {
  const auto plans = [&](const T_Extent& i_stOwn) {
    std::vector<T_Plan> made;
    for (const T_WantedSize& size : i_sizes) made.push_back(PlanFor(i_stOwn, size));
    return made;
  };
  return Load({i_strPath, {}, plans, false, std::move(i_stop)});
}

CResult<T_Loaded> LoadScreen(const std::string& i_strPath, const std::string& i_strOverlay,
                             std::span<const T_Extent> i_canvases, std::stop_token i_stop) {
  const auto plans = [&](const T_Extent& i_stOwn) {
    std::vector<T_Plan> made;
    for (const T_Extent& stCanvas : i_canvases) {
      const T_Extent stFitting = Fitting(i_stOwn, stCanvas);
      made.push_back({stCanvas, stFitting, stFitting});
    }
    return made;
  };
  T_Job job{i_strPath, {}, plans, true, std::move(i_stop)};
  if (IdentifyFile(i_strOverlay) != T_FileId{}) job.m_strOverlay = i_strOverlay;
  CResult<T_Loaded> loaded = Load(job);
  if (loaded || !loaded.Refusal().m_bOverlay) return loaded;
  if (!job.m_stop.stop_requested())
    LOG_ERROR("picture <%s> not laid over: %s", i_strOverlay.c_str(), loaded.Why().c_str());
  job.m_strOverlay.clear();
  return Load(job);  // from its start: some of its rows may have been under the overlay
}
