#pragma once

#include <string>

#include "host/capture/av/Libav.h"

/// What is drawn into pictures of limited-range YUV 4:2:0 with even sides.

namespace nimbo::capture::av {

constexpr int Black = 16;
constexpr int Grey = 60;
constexpr int White = 235;
constexpr int NoChroma = 128;

/// In pixels.
struct Area {
  int x;
  int y;
  int width;
  int height;
};

/// Sets the area, of which chroma has half the lines and half the columns, in one of the planes.
void Fill(AVFrame& picture, int plane, const Area& area, int value);
/// Sets a whole picture to one shade.
void FillGrey(AVFrame& picture, int shade);
/// Writes in white what the area has room for, as large as `room` characters would fit into it.
void DrawText(AVFrame& picture, const Area& area, const std::string& text, int room);

}  // namespace nimbo::capture::av
