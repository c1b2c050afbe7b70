#include "host/capture/av/Drawing.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "host/capture/av/Glyphs.h"

namespace nimbo::capture::av {

namespace {

constexpr int CellWidth = GlyphWidth + 1;
constexpr int CellHeight = GlyphHeight + 2;

const Glyph* FindGlyph(char character) {
  const auto* found =
      std::find_if(std::begin(Glyphs), std::end(Glyphs),
                   [character](const Glyph& glyph) { return glyph.character == character; });
  return found == std::end(Glyphs) ? nullptr : found;
}

}  // namespace

void Fill(AVFrame& picture, int plane, const Area& area, int value) {
  const int shift = plane == 0 ? 0 : 1;
  const std::ptrdiff_t stride = picture.linesize[plane];
  unsigned char* line = picture.data[plane] + (area.y >> shift) * stride + (area.x >> shift);
  for (int y = 0; y < area.height >> shift; ++y, line += stride) {
    std::memset(line, value, static_cast<std::size_t>(area.width >> shift));
  }
}

void FillGrey(AVFrame& picture, int shade) {
  const Area whole = {0, 0, picture.width, picture.height};
  Fill(picture, 0, whole, shade);
  for (const int chroma : {1, 2}) Fill(picture, chroma, whole, NoChroma);
}

void DrawText(AVFrame& picture, const Area& area, const std::string& text, int room) {
  const int scale = std::min(area.width / (room * CellWidth), area.height / CellHeight);
  if (scale < 1) return;
  const int top = area.y + (area.height - GlyphHeight * scale) / 2;
  int left = area.x + scale;
  for (const char character : text) {
    const Glyph* glyph = FindGlyph(character);
    for (int row = 0; glyph && row < GlyphHeight; ++row) {
      for (int column = 0; column < GlyphWidth; ++column) {
        if (((glyph->rows[row] >> (GlyphWidth - 1 - column)) & 1) == 0) continue;
        Fill(picture, 0, {left + column * scale, top + row * scale, scale, scale}, White);
      }
    }
    left += CellWidth * scale;
    if (left + CellWidth * scale > area.x + area.width) return;
  }
}

}  // namespace nimbo::capture::av
