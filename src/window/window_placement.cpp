#include "window/window_placement.h"

#include <cmath>

namespace kestravine::window_placement {

std::optional<std::size_t> primaryIndex(const std::vector<QRect>& geometries) {
  for (std::size_t i = 0; i < geometries.size(); ++i) {
    if (geometries[i].topLeft() == QPoint(0, 0)) return i;
  }
  return std::nullopt;
}

QScreen* chooseScreen(const std::vector<QScreen*>& screens, QScreen* fallback) {
  std::vector<QRect> geometries;
  for (QScreen* screen : screens) geometries.push_back(screen->geometry());
  auto index = primaryIndex(geometries);
  return index ? screens[*index] : fallback;
}

QPoint contentOrigin(const QRect& available, const QSize& content) {
  // QRect::center() rounds towards the top-left pixel; the middle is x + width / 2.
  const double midX = available.x() + available.width() / 2.0;
  const double midY = available.y() + available.height() / 2.0;
  return {static_cast<int>(std::floor(midX - content.width() / 2.0)),
          static_cast<int>(std::floor(midY - content.height() / 2.0))};
}

}  // namespace kestravine::window_placement
