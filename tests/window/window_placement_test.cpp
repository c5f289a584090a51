#include "window/window_placement.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

TEST(WindowPlacement, PrimaryDisplayIsTheOneAtTheOrigin) {
  EXPECT_EQ(window_placement::primaryIndex({QRect(1440, 0, 1920, 1080), QRect(0, 0, 1440, 900)}),
            1u);
  EXPECT_EQ(window_placement::primaryIndex({QRect(-1920, 0, 1920, 1080)}), std::nullopt);
  EXPECT_EQ(window_placement::primaryIndex({}), std::nullopt);
}

TEST(WindowPlacement, ContentIsCentredOnTheAvailableArea) {
  const QSize content(440, 320);
  EXPECT_EQ(window_placement::contentOrigin(QRect(0, 25, 1440, 850), content), QPoint(500, 290));
  EXPECT_EQ(window_placement::contentOrigin(QRect(1440, 0, 1921, 1080), content),
            QPoint(1440 + 740, 380));
}

}  // namespace
}  // namespace kestravine
