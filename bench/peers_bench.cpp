// The line of 40 characters at 32 px beside what others take for it: cairo, SDL_ttf, Pango, and
// FreeType without a cache. The figures are lines a second.
#include <SDL_ttf.h>
#include <cairo-ft.h>
#include <ft2build.h>
#include <pango/pangocairo.h>
#include FT_FREETYPE_H
#include <sys/wait.h>

#include <cstring>
#include <fstream>

#include "bench/bench.h"
#include "common/osd/textdrawer.h"

namespace {

constexpr UInt32 kW = 1920;
constexpr UInt32 kH = 64;
constexpr int kPixels = 32;
constexpr UInt32 kBatch = 64;
constexpr UInt32 kBackground = 0x3F616161;
constexpr char kText[] = "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVW";
static_assert(sizeof(kText) - 1 == 40);

std::string FontPath() { return DeviceRoot() + "/usr/share/fonts/monos.ttf"; }

// What all draw on.
UInt32 g_aPixels[size_t{kW} * kH];

// Each of these draws the line, with its text and its background.
class COurs {
 public:
  COurs() {
    m_record.m_u16Line = 1;
    m_record.m_u16FontSize = kPixels * 3840 / kW;
    m_record.m_u32TextColour = 0xFFFFFFFF;
    m_record.m_u32Background = kBackground;
    std::strcpy(m_record.m_aText[0], kText);
    m_layout = m_drawer.LayOut(m_record, m_canvas).value();
  }
  void Draw() { m_drawer.DrawOsdInfo(m_layout, EDrawMode::kDraw, m_canvas, m_canvas.Whole()); }

 private:
  T_Canvas m_canvas{g_aPixels, kW, kH};
  CTextDrawer m_drawer;
  T_DispRecord m_record{};
  T_Layout m_layout;
};

FT_Face OpenFace() {
  FT_Library library = nullptr;
  FT_Face face = nullptr;
  if (FT_Init_FreeType(&library) != 0 || FT_New_Face(library, FontPath().c_str(), 0, &face) != 0 ||
      FT_Set_Pixel_Sizes(face, 0, kPixels) != 0)
    Die("FreeType cannot open the font");
  return face;
}

cairo_t* NewCairo() {
  return cairo_create(cairo_image_surface_create_for_data(
      reinterpret_cast<unsigned char*>(g_aPixels), CAIRO_FORMAT_ARGB32, kW, kH, kW * 4));
}

void PaintBackground(cairo_t* io_pCairo) {
  cairo_set_operator(io_pCairo, CAIRO_OPERATOR_SOURCE);
  cairo_set_source_rgba(io_pCairo, 0.38, 0.38, 0.38, 0.25);
  cairo_rectangle(io_pCairo, 0, 0, 40 * 19, 38);
  cairo_fill(io_pCairo);
  cairo_set_operator(io_pCairo, CAIRO_OPERATOR_OVER);
  cairo_set_source_rgba(io_pCairo, 1, 1, 1, 1);
}

class CCairo {
 public:
  CCairo() {
    cairo_set_font_face(m_pCairo, cairo_ft_font_face_create_for_ft_face(OpenFace(), 0));
    cairo_set_font_size(m_pCairo, kPixels);
    cairo_scaled_font_text_to_glyphs(cairo_get_scaled_font(m_pCairo), 0, kPixels, kText, 40,
                                     &m_pGlyphs, &m_s32Glyphs, nullptr, nullptr, nullptr);
  }
  void Draw() {
    PaintBackground(m_pCairo);
    cairo_show_glyphs(m_pCairo, m_pGlyphs, m_s32Glyphs);
  }

 private:
  cairo_t* m_pCairo = NewCairo();
  cairo_glyph_t* m_pGlyphs = nullptr;
  int m_s32Glyphs = 0;
};

class CPango {
 public:
  CPango() {
    PangoFontDescription* const pFont = pango_font_description_from_string("DejaVu Sans Mono");
    pango_font_description_set_absolute_size(pFont, kPixels * PANGO_SCALE);
    pango_layout_set_font_description(m_pLayout, pFont);
  }
  void Draw() {
    pango_layout_set_text(m_pLayout, "", 0);  // the same text again would not be laid out
    pango_layout_set_text(m_pLayout, kText, 40);
    PaintBackground(m_pCairo);
    cairo_move_to(m_pCairo, 0, 0);
    pango_cairo_show_layout(m_pCairo, m_pLayout);
  }

 private:
  cairo_t* m_pCairo = NewCairo();
  PangoLayout* m_pLayout = pango_cairo_create_layout(m_pCairo);
};

class CSdl {
 public:
  CSdl() {
    if (TTF_Init() != 0) Die("SDL_ttf does not start");
    m_pFont = TTF_OpenFont(FontPath().c_str(), kPixels);
    if (m_pFont == nullptr) Die("SDL_ttf cannot open the font");
  }
  void Draw() {
    SDL_Surface* const pText =
        TTF_RenderText_Shaded(m_pFont, kText, {255, 255, 255, 255}, {97, 97, 97, 63});
    // It cannot blend such a surface; copied it has the background's alpha, as ours has.
    if (pText == nullptr || SDL_SetSurfaceBlendMode(pText, SDL_BLENDMODE_NONE) != 0 ||
        SDL_BlitSurface(pText, nullptr, m_pScreen, nullptr) != 0)
      Die("SDL_ttf draws nothing");
    SDL_FreeSurface(pText);
  }

 private:
  TTF_Font* m_pFont;
  SDL_Surface* m_pScreen =
      SDL_CreateRGBSurfaceWithFormatFrom(g_aPixels, kW, kH, 32, kW * 4, SDL_PIXELFORMAT_ARGB8888);
};

// Each glyph rendered anew, each pixel tested.
class CFreeType {
 public:
  void Draw() {
    const auto ascender = static_cast<int>(m_face->size->metrics.ascender >> 6);
    const auto height = static_cast<int>(m_face->size->metrics.height >> 6);
    const auto width = static_cast<int>(m_face->size->metrics.max_advance >> 6);
    for (int i = 0; i < 40; ++i) {
      FT_Load_Char(m_face, static_cast<FT_ULong>(kText[i]), FT_LOAD_RENDER);
      const FT_GlyphSlot glyph = m_face->glyph;
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
          g_aPixels[static_cast<size_t>(y) * kW + static_cast<size_t>(i * width + x)] =
              Grey(*glyph, x - glyph->bitmap_left, y - ascender + glyph->bitmap_top) >= 128
                  ? 0xFFFFFFFF
                  : kBackground;
    }
  }

 private:
  static int Grey(const FT_GlyphSlotRec& i_glyph, int i_x, int i_y) {
    const FT_Bitmap& bitmap = i_glyph.bitmap;
    if (i_x < 0 || i_y < 0 || i_x >= static_cast<int>(bitmap.width) ||
        i_y >= static_cast<int>(bitmap.rows))
      return 0;
    return bitmap.buffer[i_y * bitmap.pitch + i_x];
  }

  FT_Face m_face = OpenFace();
};

template <class T>
void Warm(const CBench& i_bench, const char* i_pRow) {
  if (!i_bench.Wants({i_pRow})) return;
  COurs ours;
  T peer;
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const double theirs = Each(kBatch, [&] { peer.Draw(); });
    row.Add(1e6 / Each(kBatch, [&] { ours.Draw(); }), 1e6 / theirs);
  }
  i_bench.Print(i_pRow, row);
}

double ResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != "RssAnon:") continue;
  double kilobytes = 0;
  status >> kilobytes;
  return kilobytes;
}

struct T_Cold {
  double m_us;
  double m_kilobytes;
};

// The first line of a process, with all that it takes to have the font.
template <class T>
T_Cold Cold() {
  int aResult[2];
  if (pipe(aResult) != 0) Die("no pipe");
  if (fork() == 0) {
    std::ranges::fill(g_aPixels, 1);
    const double before = ResidentKiB();
    const auto start = T_Clock::now();
    T drawer;
    drawer.Draw();
    const double taken = Since(start);
    const T_Cold cold{taken, ResidentKiB() - before};
    _exit(write(aResult[1], &cold, sizeof(cold)) == sizeof(cold) ? 0 : 1);
  }
  close(aResult[1]);
  T_Cold cold{};
  if (read(aResult[0], &cold, sizeof(cold)) != sizeof(cold)) Die("a child gave no result");
  wait(nullptr);
  close(aResult[0]);
  return cold;
}

void FirstText(const CBench& i_bench) {
  T_Row time;
  T_Row memory;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const T_Cold theirs = Cold<CCairo>();
    const T_Cold ours = Cold<COurs>();
    time.Add(ours.m_us, theirs.m_us);
    memory.Add(ours.m_kilobytes, theirs.m_kilobytes);
  }
  i_bench.Print("first-text", time, "each in a new process");
  i_bench.Print("first-text-memory", memory, "without the pixels that it is drawn on");
}

}  // namespace

int main(int argc, char** argv) {
  const CBench bench(argc, argv);
  Pin(0);
  if (bench.Wants({"first-text", "first-text-memory"})) FirstText(bench);
  Warm<CCairo>(bench, "cairo");
  Warm<CSdl>(bench, "sdl-ttf");
  Warm<CPango>(bench, "pango");
  Warm<CFreeType>(bench, "freetype");
  return 0;
}
