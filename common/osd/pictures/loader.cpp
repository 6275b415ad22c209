#include "common/osd/pictures/loader.h"

#include <algorithm>
#include <cstring>

#include "common/osd/pictures/blend.h"
#include "common/osd/pictures/decoders.h"
#include "common/osd/pictures/scaler.h"
#include "framework/log.h"
#include "platform/platform.h"

namespace {

constexpr UInt32 kBlack = 0xFF000000;

using T_Decode = std::optional<CPicture> (*)(CPictureFile&, const std::stop_token&, std::string*);

struct T_Format {
  std::string_view m_start;  // of the file
  T_Decode m_pDecode;
};
constexpr T_Format kFormats[] = {
    {"\x89PNG\r\n\x1A\n", &DecodePng}, {"\xFF\xD8\xFF", &DecodeJpeg}, {"BM", &DecodeBmp}};

// Null when it is none that is read.
T_Decode DecoderOf(CPictureFile& io_file) {
  char aStart[8] = {};
  const size_t bytes = std::min(sizeof(aStart), io_file.Bytes());
  if (!io_file.Read(aStart, bytes)) return nullptr;
  io_file.Seek(0);
  for (const T_Format& format : kFormats)
    if (std::string_view(aStart, bytes).starts_with(format.m_start)) return format.m_pDecode;
  return nullptr;
}

std::optional<CPicture> Read(const std::string& i_strPath, const std::stop_token& i_stop,
                             T_FileId* o_pFile, std::string* o_pError) {
  std::optional<CPictureFile> file = CPictureFile::Open(NamedPath(i_strPath), o_pError);
  if (!file) return std::nullopt;
  *o_pFile = file->Id();
  const T_Decode pDecode = DecoderOf(*file);
  std::optional<CPicture> picture;
  if (pDecode != nullptr)
    picture = pDecode(*file, i_stop, o_pError);
  else
    Refuse(o_pError, "it is not a PNG, JPEG or BMP file");
  if (file->HasChanged()) return Refuse(o_pError, "it changed while it was read");
  return picture;
}

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

// i_over over the middle of io_picture, cut where it passes the edges.
void LayOver(const CPicture& i_over, CPicture* io_pPicture) {
  const auto [fromW, fromH] = i_over.Extent();
  const auto [toW, toH] = io_pPicture->Extent();
  const UInt32 u32W = std::min(fromW, toW);
  const UInt32 u32H = std::min(fromH, toH);
  for (UInt32 u32Y = 0; u32Y < u32H; ++u32Y)
    BlendRow(i_over.Row((fromH - u32H) / 2 + u32Y) + (fromW - u32W) / 2,
             io_pPicture->Row((toH - u32H) / 2 + u32Y) + (toW - u32W) / 2, u32W, 255);
}

std::optional<CPicture> OnBlack(const CPicture& i_picture, const T_Extent& i_stCanvas,
                                const std::stop_token& i_stop, std::string* o_pError) {
  if (!IsSizeAllowed(i_stCanvas.m_u32W, i_stCanvas.m_u32H, o_pError)) return std::nullopt;
  const T_Extent stFitting = Fitting(i_picture.Extent(), i_stCanvas);
  const auto scaled = ScalePicture(i_picture, stFitting, stFitting, i_stop, o_pError);
  if (!scaled) return std::nullopt;
  std::optional<CPicture> screen = NewPicture(i_stCanvas, o_pError);
  if (!screen) return std::nullopt;
  std::fill_n(screen->Row(0), i_stCanvas.Pixels(), kBlack);
  LayOver(*scaled, &*screen);
  screen->SetOpaque(true);
  return screen;
}

void AddOverlay(const std::string& i_strOverlay, const std::stop_token& i_stop,
                CPicture* io_pPicture) {
  if (i_strOverlay.empty() || IdentifyFile(i_strOverlay) == T_FileId{}) return;
  T_FileId file;
  std::string error;
  const std::optional<CPicture> overlay = Read(i_strOverlay, i_stop, &file, &error);
  if (overlay)
    LayOver(*overlay, io_pPicture);
  else if (!i_stop.stop_requested())
    LOG_ERROR("picture <%s> not laid over: %s", i_strOverlay.c_str(), error.c_str());
}

// The picture itself where nothing is to do, one that was made for the same size, or a new one.
std::shared_ptr<const CPicture> Sized(const std::shared_ptr<const CPicture>& i_pOwn,
                                      const T_WantedSize& i_wanted, const std::stop_token& i_stop,
                                      std::string* o_pError) {
  const T_Extent stScaled = ScaledExtent(i_pOwn->Extent(), i_wanted.m_stScaled);
  const T_Extent stSeen{std::min(stScaled.m_u32W, i_wanted.m_stRoom.m_u32W),
                        std::min(stScaled.m_u32H, i_wanted.m_stRoom.m_u32H)};
  if (stScaled == i_pOwn->Extent() && stSeen == stScaled) return i_pOwn;
  if (!IsSizeAllowed(stSeen.m_u32W, stSeen.m_u32H, o_pError)) return nullptr;
  std::optional<CPicture> picture = ScalePicture(*i_pOwn, stScaled, stSeen, i_stop, o_pError);
  return picture ? std::make_shared<const CPicture>(std::move(*picture)) : nullptr;
}

// One i_make for each of i_sizes; equal sizes share one. All of them or an error.
template <class T_Size, class T_Make>
void MakeAll(std::span<const T_Size> i_sizes, const T_Make& i_make, T_Loaded* io_pLoaded) {
  auto& pictures = io_pLoaded->m_vecPictures;
  for (const T_Size& size : i_sizes) {
    const auto same = std::find(i_sizes.begin(), i_sizes.end(), size) - i_sizes.begin();
    const auto made = static_cast<size_t>(same);
    pictures.push_back(made < pictures.size() ? pictures[made] : i_make(size));
    if (pictures.back() == nullptr) return pictures.clear();
  }
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

T_Loaded LoadPicture(const std::string& i_strPath, std::span<const T_WantedSize> i_sizes,
                     std::stop_token i_stop) {
  T_Loaded loaded;
  std::optional<CPicture> picture = Read(i_strPath, i_stop, &loaded.m_stFile, &loaded.m_strError);
  if (!picture) return loaded;
  const auto pOwn = std::make_shared<const CPicture>(std::move(*picture));
  loaded.m_stOwn = pOwn->Extent();
  const auto make = [&](const T_WantedSize& i_size) {
    return Sized(pOwn, i_size, i_stop, &loaded.m_strError);
  };
  MakeAll(i_sizes, make, &loaded);
  return loaded;
}

T_Loaded LoadScreen(const std::string& i_strPath, const std::string& i_strOverlay,
                    std::span<const T_Extent> i_canvases, std::stop_token i_stop) {
  T_Loaded loaded;
  std::optional<CPicture> picture = Read(i_strPath, i_stop, &loaded.m_stFile, &loaded.m_strError);
  if (!picture) return loaded;
  loaded.m_stOwn = picture->Extent();
  AddOverlay(i_strOverlay, i_stop, &*picture);
  const auto make = [&](const T_Extent& i_stCanvas) -> std::shared_ptr<const CPicture> {
    auto screen = OnBlack(*picture, i_stCanvas, i_stop, &loaded.m_strError);
    return screen ? std::make_shared<const CPicture>(std::move(*screen)) : nullptr;
  };
  MakeAll(i_canvases, make, &loaded);
  return loaded;
}
