// The application's tests run inside one QApplication on the offscreen
// platform, so widgets and painting work without a display.
#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char **argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
