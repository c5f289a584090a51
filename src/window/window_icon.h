#pragma once

#include <QIcon>

namespace kestravine {

// The window's icon, the SVG of the package (packaging/kestravine-launcher.svg). GUI thread,
// after the application exists.
//
// On X11 at a device pixel ratio of 1 the window carries the icon as pixels at 16, 32, 64 and
// 128 px, which the build drew from the SVG with the same renderer (window_icon_pixels.cpp): the
// same pixels, without loading the SVG renderer at start-up. Elsewhere (Wayland, where Qt may
// draw the icon into its own title bar at any size, or another scale) it is the SVG itself.
QIcon windowIcon();

}  // namespace kestravine
