// The application's tests run inside one QApplication on the offscreen
// platform, so widgets and painting work without a display, with settings
// and thumbnails kept in folders of their own so no test reads or changes the
// user's.
#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>

#include "app/qtprompt.h"

int main(int argc, char **argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QTemporaryDir config;
  qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
  QTemporaryDir cache;
  qputenv("XDG_CACHE_HOME", cache.path().toUtf8());
  QApplication app(argc, argv);
  // Questions nobody scripted show the real dialogs, as in the program.
  QtPrompt dialogs;
  KorvelPrompt::SetRealDialogs(&dialogs);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
