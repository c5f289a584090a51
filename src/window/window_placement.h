#pragma once

#include <QPoint>
#include <QRect>
#include <QScreen>
#include <QSize>
#include <optional>
#include <vector>

namespace kestravine::window_placement {

// Where the launcher's window goes. Stateless functions; GUI thread for the ones taking screens.

// The screen to centre on: the first whose geometry starts at (0, 0), the primary display;
// otherwise `fallback` (the toolkit's primary screen), which may be null.
QScreen* chooseScreen(const std::vector<QScreen*>& screens, QScreen* fallback);
// The index of the first rectangle starting at (0, 0), if any.
std::optional<std::size_t> primaryIndex(const std::vector<QRect>& geometries);

// Top-left of the content area: the content is centred on the available area, so the title bar
// sits above the exact middle.
QPoint contentOrigin(const QRect& available, const QSize& content);

}  // namespace kestravine::window_placement
